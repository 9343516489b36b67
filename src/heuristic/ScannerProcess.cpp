#include <algorithm>
#include <list>
#include <map>
#include <utility>

#include <boost/assign/list_of.hpp>

#include "heuristic/BodyRule.h"
#include "heuristic/FullRule.h"
#include "heuristic/HeaderRule.h"
#include "heuristic/MetaRule.h"
#include "heuristic/PartText.h"
#include "heuristic/ScanTexts.h"
#include "heuristic/Scanner.h"
#include "heuristic/StageRules.h"
#include "heuristic/UriRule.h"
#include "host/parser/Text.h"
#include "host/parser/Utf2lang.h"

namespace Corvane::Heuristic {

namespace {

constexpr const char *kSubject = "Subject";

// Lower-case charset names and the languages that they are used for. ALL marks the charset whose text has to be looked
// at. A charset that is not listed says nothing.
using CharsetLanguage = std::pair<std::string, langID>;
const std::list<CharsetLanguage> s_charsetList =
    boost::assign::list_of<CharsetLanguage>("gb18030", CN)("gb2312", CN)("big5", CN)("koi8-r", RU)(
        "windows-1251", RU)("shift_jis", JP)("euc-jp", JP)("iso-2022-jp", JP)("euc-kr", KO)(
        "iso-2022-kr", KO)("uhc", KO)("iso-8859-11", TH)("utf-8", ALL);
const std::map<std::string, langID> s_charsetLanguages(s_charsetList.begin(), s_charsetList.end());

langID s_detect(const Buffer &text) {
    Utf2lang detector;
    detector.proc(reinterpret_cast<const char *>(text.data()), text.size());
    if (detector.chinese) {
        return CN;
    }
    if (detector.japanese) {
        return JP;
    }
    if (detector.korean) {
        return KO;
    }
    return detector.russian ? RU : DEFAULT;
}

// Whether the match set has tripped or the thread's budget has ended, for which the clock is looked at.
bool s_isOver(const RefMatches &matches) {
    Budget *budget = Budget::ofThisThread();
    return matches->tripped() || (budget != nullptr && budget->look());
}

// One message on its way through the stages.
class MessageScan {
public:
    MessageScan(const ScannerRules &rules, langID language, RefMatches &matches,
                unsigned int cutoff, bool verbose)
        : rules_(rules), language_(language), matches_(matches), cutoff_(cutoff),
          verbose_(verbose) {}

    // Whether no further stage is to begin.
    bool isOver() const { return s_isOver(matches_); }

    void headers(const EmailAddress &sender, const RefHeaderList &headers) {
        StageRules rules = stage(Rule::Header);
        HeaderCheck check = rules.check<HeaderCheck>(matches_);
        check.checkInUtf8(sender, headers);
    }

    // Answers whether a rule was added, as do the next two.
    bool text(const RefHeaderList &headers, const MPartText *text) {
        const std::size_t before = matches_->size();
        StageRules rules = stage(Rule::Body);
        BodyCheck check = rules.check<BodyCheck>(matches_);
        // The decoded value may view the header's own text, so the header must outlive the check.
        const Header subject = headers.find(kSubject);
        if (!subject.isNull() && text != nullptr) {
            check.checkBoth(headerValueDecode(subject.value()), text->text());
        } else if (!subject.isNull()) {
            check.check(headerValueDecode(subject.value()), false);
        } else if (text != nullptr) {
            check.check(text->text(), false);
        }
        return matches_->size() > before;
    }

    bool rawBody(const MPartText *text) {
        const std::size_t before = matches_->size();
        if (text != nullptr) {
            stage(Rule::RawBody).check<BodyCheck>(matches_).check(text->text(), true);
        }
        return matches_->size() > before;
    }

    bool secondText(const MPartText *text) {
        const std::size_t before = matches_->size();
        if (text != nullptr && (text->flags() & MPartText::kDiffers) != 0) {
            stage(Rule::Body).check<BodyCheck>(matches_).check(text->text(), false);
        }
        return matches_->size() > before;
    }

    void uris(const UriContainer *uris) {
        if (uris != nullptr) {
            stage(Rule::Uri).check<UriCheck>(matches_).check(*uris);
        }
    }

    void full(const RefHeaderList &headers) {
        stage(Rule::Full).check<FullCheck>(matches_).check(headers);
    }

    void meta() { stage(Rule::Meta).check<MetaCheck>(matches_).check(); }

    // The stages over the main part; answers which of them have added a rule.
    unsigned int mainPart(const RefHeaderList &headers, const MimePart &part) {
        unsigned int mask = 0;
        if (!isOver() && text(headers, partText(&part, MPartAttribute::Text))) {
            mask |= Scanner::kTextMatched;
        }
        if (!isOver() && rawBody(partText(&part, MPartAttribute::RawText))) {
            mask |= Scanner::kRawBodyMatched;
        }
        if (!isOver() && secondText(partText(&part, MPartAttribute::AltText))) {
            mask |= Scanner::kSecondTextMatched;
        }
        if (!isOver()) {
            uris(dynamic_cast<const UriContainer *>(part.findAttr(MPartAttribute::Uris)));
        }
        return mask;
    }

private:
    StageRules stage(Rule::Type kind) const {
        return StageRules(rules_, language_, kind, cutoff_, verbose_);
    }

    const ScannerRules &rules_;
    langID language_;
    RefMatches &matches_;
    unsigned int cutoff_;
    bool verbose_;
};

} // namespace

LanguageChoice languageOf(const MimePart *part) {
    using Reason = LanguageChoice::Reason;
    const MPartText *text = partText(part, MPartAttribute::Text);
    if (text == nullptr) {
        return {DEFAULT, Reason::NoText, {}};
    }
    std::string charset;
    copyStringToLower(text->charset().c_str(), charset, 0, text->charset().size());
    const auto found = s_charsetLanguages.find(charset);
    if (found == s_charsetLanguages.end()) {
        return {DEFAULT, Reason::UnknownCharset, text->charset()};
    }
    if (found->second != ALL) {
        return {found->second, Reason::Charset, text->charset()};
    }
    Budget::spend(text->text().size());
    return {s_detect(text->text()), Reason::Letters, text->charset()};
}

langID Scanner::selectLanguage(const MimePart *textPart) {
    return languageOf(textPart).language;
}

unsigned int Scanner::process(RefMatches &matches, const RefMessageProperties &message,
                              const EmailAddress &sender, unsigned int percent, bool verbose) {
    if (!ready()) {
        return 0;
    }
    const MimePart *part = message->part().operator->();
    const RefHeaderList &headers = message->headers();
    MessageScan scan(**this, selectLanguage(part), matches, getordinalCutoff(percent), verbose);
    if (!scan.isOver()) {
        scan.headers(sender, headers);
    }
    const unsigned int mask = part == nullptr ? 0 : scan.mainPart(headers, *part);
    if (!scan.isOver()) {
        scan.full(headers);
    }
    if (!scan.isOver()) {
        scan.meta();
    }
    return mask;
}

void Scanner::process(RefRuleList &rules, RefMatches &matches, const Buffer &text, bool verbose) {
    if (!s_isOver(matches)) {
        FullCheck(rules, matches, 0, verbose).check(text);
    }
}

bool Scanner::checkRaw(RefMatches &matches, langID language, const Buffer &body,
                       unsigned int percent, bool verbose) {
    if (!ready() || s_isOver(matches)) {
        return false;
    }
    StageRules rules(**this, language, Rule::RawBody, getordinalCutoff(percent), verbose);
    const std::size_t before = matches->size();
    rules.check<BodyCheck>(matches).check(body, true);
    return matches->size() > before;
}

bool Scanner::check(RefMatches &matches, langID language, const Buffer &body, unsigned int percent,
                    bool verbose) {
    if (!ready() || s_isOver(matches)) {
        return false;
    }
    StageRules rules(**this, language, Rule::Body, getordinalCutoff(percent), verbose);
    const std::size_t before = matches->size();
    rules.check<BodyCheck>(matches).check(body, false);
    return matches->size() > before;
}

void Scanner::check(RefMatches &matches, langID language, const EmailAddress &sender,
                    unsigned int percent, bool verbose) {
    if (ready() && !s_isOver(matches)) {
        StageRules(**this, language, Rule::Header, getordinalCutoff(percent), verbose)
            .check<HeaderCheck>(matches)
            .check(sender);
    }
}

void Scanner::check(RefMatches &matches, langID language, const HeaderContainer &headers,
                    unsigned int percent, bool verbose) {
    if (!ready()) {
        return;
    }
    const unsigned int cutoff = getordinalCutoff(percent);
    if (!s_isOver(matches)) {
        StageRules(**this, language, Rule::Header, cutoff, verbose)
            .check<HeaderCheck>(matches)
            .check(headers.headers());
    }
    if (!s_isOver(matches)) {
        StageRules rules(**this, language, Rule::Body, cutoff, verbose);
        const Header subject = headers.find(kSubject);
        if (!subject.isNull()) {
            rules.check<BodyCheck>(matches).check(headerValueDecode(subject.value()), false);
        }
    }
    if (!s_isOver(matches)) {
        StageRules(**this, language, Rule::Full, cutoff, verbose)
            .check<FullCheck>(matches)
            .check(headers.headers());
    }
}

} // namespace Corvane::Heuristic
