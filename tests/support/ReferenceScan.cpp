#include "support/ReferenceScan.h"

#include <algorithm>

#include "heuristic/HeaderRule.h"
#include "host/parser/HeaderText.h"
#include "host/parser/Text.h"
#include "host/parser/Uri.h"
#include "host/parser/Utf2lang.h"

namespace Corvane::Heuristic {

namespace {

constexpr std::size_t kMaxPieceBytes = 2048;
constexpr std::size_t kMaxTextBytes = 3072;
constexpr std::size_t kMaxRawBytes = 32768;
constexpr int kHeaderBytes = 2048;
constexpr unsigned int kWhole = 100;

using Form = ReferenceRule::Form;

bool s_startsWith(const std::string &text, const std::string &start) {
    return text.compare(0, start.size(), start) == 0;
}

bool s_found(const Regex::Expression &expression, const std::string &text) {
    bool failed = false;
    const bool found = expression(text, &failed);
    return found && !failed;
}

Regex::Expression s_expression(std::string definition, unsigned int options) {
    stringLeftTrim(definition);
    stringRightTrim(definition);
    return {definition, options, true};
}

void s_readHeaderName(ReferenceRule &rule, const std::string &name) {
    if (name == "MESSAGEID") {
        rule.headerName = StringPattern("Message-Id", true, true);
    } else if (name == "ToCc") {
        rule.headerName = StringPattern("^to|^cc", true, true);
    } else if (name == "ALL") {
        rule.headerName = StringPattern("*", true, false);
        rule.form = Form::Whole;
    } else {
        static const std::vector<std::pair<std::string, Form>> s_suffixes = {
            {":addr", Form::Address}, {":name", Form::DisplayName}, {":raw", Form::Raw}};
        const auto suffix =
            std::find_if(s_suffixes.begin(), s_suffixes.end(), [&](const auto &candidate) {
                return name.find(candidate.first) != std::string::npos;
            });
        const bool any = suffix != s_suffixes.end();
        rule.form = any ? suffix->second : Form::Decoded;
        rule.headerName =
            StringPattern(any ? name.substr(0, name.find(suffix->first)) : name, true, false);
    }
}

void s_readHeaderRule(ReferenceRule &rule, const std::string &definition) {
    const std::string exists = "exists:";
    const std::size_t nameEnd = stringFindWhiteSpace(definition, 0);
    if (s_startsWith(definition, "eval:")) {
        return;
    }
    if (s_startsWith(definition, exists)) {
        rule.exists = true;
        rule.headerName = StringPattern(definition.substr(exists.size()), true, false);
        return;
    }
    if (nameEnd == std::string::npos) {
        return;
    }
    s_readHeaderName(rule, definition.substr(0, nameEnd));
    std::size_t at = stringFindNonWhiteSpace(definition, nameEnd);
    if (at == std::string::npos || at == definition.size() - 1) {
        return;
    }
    const std::string sign = definition.substr(at, 2);
    if (sign == "=~" || sign == "!~") {
        rule.positive = sign == "=~";
        at = stringFindNonWhiteSpace(definition, at + sign.size());
    }
    if (at != std::string::npos) {
        const std::string expression = definition.substr(at);
        rule.expression = Regex::Expression(expression.substr(0, expression.find("[if-unset:")),
                                            Regex::kDotMatchesAll, true);
    }
}

MetaTokens s_metaTokens(const std::string &expression) {
    static const std::vector<std::string> s_signs = {"&&", "||", "<=", ">=", "!", "(", ")",
                                                     "+",  "-",  "*",  "/",  "<", ">"};
    MetaTokens tokens;
    for (std::size_t at = 0; at < expression.size();) {
        if (expression[at] == ' ' || expression[at] == '\t') {
            ++at;
            continue;
        }
        const auto sign = std::find_if(s_signs.begin(), s_signs.end(), [&](const auto &candidate) {
            return expression.compare(at, candidate.size(), candidate) == 0;
        });
        tokens.push_back(
            sign != s_signs.end()
                ? *sign
                : expression.substr(at, expression.find_first_of("!+-()<> \t\a|&", at) - at));
        at += tokens.back().size();
    }
    return tokens;
}

ReferenceRule s_compiled(const Rule &rule) {
    ReferenceRule compiled;
    compiled.name = rule.name();
    compiled.subRule = rule.name().compare(0, 2, "__") == 0;
    compiled.active = rule.active();
    compiled.score = compiled.subRule ? 0.0F : rule.score()->value();
    compiled.ordinal = rule.ordinal();
    const bool eval = s_startsWith(rule.value(), "eval:");
    if (rule.type() == Rule::Header) {
        s_readHeaderRule(compiled, rule.value());
    } else if (rule.type() == Rule::Meta) {
        compiled.tokens = s_metaTokens(rule.value());
    } else if (rule.type() == Rule::Uri || (rule.type() == Rule::Full && !eval)) {
        compiled.expression = s_expression(rule.value(), Regex::kNoOptions);
    } else if (!eval) {
        compiled.expression = s_expression(rule.value(), Regex::kAnyLineEnd);
    }
    return compiled;
}

std::string s_formOf(const Header &header, Form form) {
    switch (form) {
    case Form::Decoded:
        return headerValueDecode(header.value()).asString();
    case Form::Raw:
        return header.value();
    case Form::Address:
        return EmailAddress::rfc5322Parse(header.value(), true).address();
    case Form::DisplayName:
        return EmailAddress::rfc5322Parse(header.value(), true).displayName();
    case Form::Whole:
        break;
    }
    const std::string whole = header.asString();
    return headerValueDecode(whole).asString();
}

bool s_headerMatches(const ReferenceRule &rule, const Header &header) {
    if (!rule.active || !rule.headerName.matches(header.type())) {
        return false;
    }
    if (rule.exists || rule.expression.isNull()) {
        return rule.exists;
    }
    bool failed = false;
    const bool found = rule.expression(s_formOf(header, rule.form), &failed);
    return !failed && found == rule.positive;
}

const MPartText *s_text(const MimePart &part, MPartAttribute::Type type) {
    return dynamic_cast<const MPartText *>(part.findAttr(type));
}

} // namespace

ReferenceRules::ReferenceRules(const Scanner &scanner) : count_(scanner.ruleCount()) {
    for (const langID language : {DEFAULT, CN, JP, KO, RU, TH}) {
        for (const Rule::Type kind :
             {Rule::Header, Rule::Uri, Rule::Body, Rule::RawBody, Rule::Full, Rule::Meta}) {
            List &list = lists_[{language, kind}];
            for (const RefRule &rule : *scanner.rules().rules(language, kind)) {
                const Rule *key = rule.operator->();
                if (compiled_.count(key) == 0) {
                    compiled_[key] = s_compiled(*rule);
                }
                list.push_back(&compiled_[key]);
            }
        }
    }
}

unsigned int ReferenceRules::cutoff(unsigned int percent) const {
    return percent == 0 ? 0 : percent == kWhole ? count_ + 1 : count_ * percent / kWhole + 1;
}

langID ReferenceScan::language(const MimePart *part) {
    static const std::map<std::string, langID> s_languages = {
        {"gb18030", CN},      {"gb2312", CN},      {"big5", CN},   {"koi8-r", RU},
        {"windows-1251", RU}, {"shift_jis", JP},   {"euc-jp", JP}, {"iso-2022-jp", JP},
        {"euc-kr", KO},       {"iso-2022-kr", KO}, {"uhc", KO},    {"iso-8859-11", TH}};
    const MPartText *text = part != nullptr ? s_text(*part, MPartAttribute::Text) : nullptr;
    if (text == nullptr) {
        return DEFAULT;
    }
    std::string charset = text->charset();
    std::transform(charset.begin(), charset.end(), charset.begin(), toLowerAscii);
    if (charset != "utf-8") {
        const auto found = s_languages.find(charset);
        return found != s_languages.end() ? found->second : DEFAULT;
    }
    Utf2lang guess;
    const std::string bytes = text->text().asString();
    guess.proc(bytes.data(), bytes.size());
    return guess.chinese    ? CN
           : guess.japanese ? JP
           : guess.korean   ? KO
           : guess.russian  ? RU
                            : DEFAULT;
}

// What a match set does when a rule is added to it: the first rule of a name counts, and the answer is whether the set
// is tripped then, but false for every further rule of that name.
bool ReferenceScan::add(const ReferenceRule &rule) {
    if (held_.count(rule.name) != 0) {
        return false;
    }
    held_[rule.name] = rule.score;
    if (!rule.subRule) {
        total_ += rule.score;
    }
    outcome_.additions.push_back({rule.name, stage_, total_});
    return tripped();
}

bool ReferenceScan::tripped() {
    tripped_ = tripped_ || (settings_.threshold != 0.0F && total_ > settings_.threshold);
    return tripped_;
}

// Tries the rules in order up to one that trips; answers those that matched.
ReferenceScan::List ReferenceScan::tryEach(const List &list, const Test &matches) {
    List matched;
    for (const ReferenceRule *rule : list) {
        if (cutoff_ != 0 && rule->ordinal >= cutoff_) {
            continue;
        }
        if (settings_.verbose) {
            outcome_.trace += rule->name + '\n';
        }
        if (matches(*rule)) {
            matched.push_back(rule);
            if (add(*rule)) {
                break;
            }
        }
    }
    return matched;
}

// By name: what goes is the first rule of the name, which need not be the one that matched.
void ReferenceScan::erase(List &list, const List &matched) {
    for (const ReferenceRule *rule : matched) {
        const auto found = std::find_if(list.begin(), list.end(), [rule](const auto *candidate) {
            return candidate->name == rule->name;
        });
        if (found != list.end()) {
            list.erase(found);
        }
    }
}

void ReferenceScan::process(const RefMessageProperties &message, const EmailAddress &sender) {
    cutoff_ = rules_.cutoff(settings_.percent);
    const MimePart *part = message->part().operator->();
    const langID language = ReferenceScan::language(part);
    if (!tripped()) {
        headerStage(*message, sender, language);
    }
    if (!tripped() && part != nullptr) {
        textStage(*message, language);
    }
    if (!tripped() && part != nullptr) {
        bodyStage(*part, Stage::RawBody, language);
    }
    if (!tripped() && part != nullptr) {
        bodyStage(*part, Stage::SecondText, language);
    }
    if (!tripped() && part != nullptr) {
        uriStage(*part, language);
    }
    if (!tripped()) {
        fullStage(message->headers(), language);
    }
    if (!tripped()) {
        metaStage(language);
    }
}

// A total of exactly 0.0 is summed up anew, in the order of names.
ReferenceOutcome ReferenceScan::outcome() const {
    ReferenceOutcome outcome = outcome_;
    outcome.tripped = tripped_;
    outcome.score = total_;
    if (total_ == 0.0F) {
        for (const auto &[name, score] : held_) {
            outcome.score += score;
        }
    }
    return outcome;
}

void ReferenceScan::headerStage(const MessageProperties &message, const EmailAddress &sender,
                                langID language) {
    stage_ = Stage::Header;
    List list = rules_.list(language, Rule::Header);
    if (!sender.isNull()) {
        checkHeader(list, Header("EnvelopeFrom", sender.asString()));
    }
    for (const Header &header : *message.headers()) {
        char utf8[kHeaderBytes] = {};
        tessel_to_utf8(header.value().c_str(), utf8, kHeaderBytes, 0);
        if (checkHeader(list, Header(header.type(), utf8))) {
            return;
        }
    }
}

bool ReferenceScan::checkHeader(List &list, const Header &header) {
    erase(list, tryEach(list, [&header](const ReferenceRule &rule) {
              return s_headerMatches(rule, header);
          }));
    return tripped();
}

// The Subject is a text of its own before the text; what matches it is not tried on the text.
void ReferenceScan::textStage(const MessageProperties &message, langID language) {
    stage_ = Stage::Text;
    const std::size_t before = held_.size();
    List list = rules_.list(language, Rule::Body);
    const Header subject = message.headers().find("Subject");
    if (!subject.isNull()) {
        checkBody(list, s_formOf(subject, Form::Decoded));
    }
    if (const MPartText *text = s_text(*message.part(), MPartAttribute::Text)) {
        checkBody(list, text->text().asString());
    }
    outcome_.mask |= held_.size() > before ? Scanner::kTextMatched : 0;
}

// The raw body or the second text.
void ReferenceScan::bodyStage(const MimePart &part, Stage stage, langID language) {
    stage_ = stage;
    const std::size_t before = held_.size();
    const bool raw = stage == Stage::RawBody;
    List list = rules_.list(language, raw ? Rule::RawBody : Rule::Body);
    const MPartText *text = s_text(part, raw ? MPartAttribute::RawText : MPartAttribute::AltText);
    if (text != nullptr && (raw || (text->flags() & MPartText::kDiffers) != 0)) {
        checkBody(list, text->text().asString());
    }
    if (held_.size() > before) {
        outcome_.mask |= raw ? Scanner::kRawBodyMatched : Scanner::kSecondTextMatched;
    }
}

// Complete lines are cut into pieces and end the check once there were enough of them; an unterminated last line is
// tried as it stands, and nothing is erased after it. The lines of a raw body keep their ends.
void ReferenceScan::checkBody(List &list, const std::string &body) {
    const bool raw = stage_ == Stage::RawBody;
    std::size_t total = 0;
    std::size_t start = 0;
    for (std::size_t end = 0; (end = body.find('\n', start)) != std::string::npos;
         start = end + 1) {
        std::string line = body.substr(start, end + 1 - start);
        if (!raw) {
            line.erase(line.find_last_not_of("\r\n") + 1);
        }
        total += line.size();
        for (std::size_t at = 0; at < line.size(); at += kMaxPieceBytes) {
            checkLine(list, line.substr(at, kMaxPieceBytes));
            if (tripped()) {
                return;
            }
        }
        if (total >= (raw ? kMaxRawBytes : kMaxTextBytes)) {
            return;
        }
    }
    if (start < body.size()) {
        List last = list;
        checkLine(last, body.substr(start));
    }
}

void ReferenceScan::checkLine(List &list, const std::string &line) {
    erase(list, tryEach(list, [&line](const ReferenceRule &rule) {
              return rule.active && s_found(rule.expression, line);
          }));
}

// A set that trips does not end the walk over the URIs; the next rule that is added to it ends its own.
void ReferenceScan::uriStage(const MimePart &part, langID language) {
    stage_ = Stage::Uri;
    List list = rules_.list(language, Rule::Uri);
    const auto *uris = dynamic_cast<const UriContainer *>(part.findAttr(MPartAttribute::Uris));
    if (uris == nullptr) {
        return;
    }
    for (const auto &[source, found] : uris->sourced()) {
        for (const Uri &uri : found) {
            erase(list, tryEach(list, [&uri](const ReferenceRule &rule) {
                      return rule.active && !uri.isNull() &&
                             s_found(rule.expression, uri.asString());
                  }));
        }
    }
}

// Neither traced nor asked whether they are active, and all are tried on each header.
void ReferenceScan::fullStage(const RefHeaderList &headers, langID language) {
    stage_ = Stage::Full;
    for (const Header &header : *headers) {
        for (const ReferenceRule *rule : rules_.list(language, Rule::Full)) {
            const bool leftOut = cutoff_ != 0 && rule->ordinal >= cutoff_;
            if (!leftOut && s_found(rule->expression, header.asString()) && add(*rule)) {
                return;
            }
        }
    }
}

// A meta rule sees the meta rules before it.
void ReferenceScan::metaStage(langID language) {
    stage_ = Stage::Meta;
    tryEach(rules_.list(language, Rule::Meta), [this](const ReferenceRule &rule) {
        std::set<std::string> names;
        for (const auto &[name, score] : held_) {
            names.insert(name);
        }
        return rule.active && referenceOutcome(rule.tokens, names) == MetaOutcome::True;
    });
}

// Lines keep their ends, and no cutoff holds here. What follows the line that tripped is left lying.
void ReferenceTap::write(const std::string &data) {
    if (scan_.tripped()) {
        return;
    }
    pending_ += data;
    std::size_t start = 0;
    for (std::size_t end = 0;
         !scan_.tripped() && (end = pending_.find('\n', start)) != std::string::npos;
         start = end + 1) {
        const std::string line = pending_.substr(start, end + 1 - start);
        scan_.erase(list_, scan_.tryEach(list_, [&line](const ReferenceRule &rule) {
            return s_found(rule.expression, line);
        }));
    }
    pending_.erase(0, start);
}

} // namespace Corvane::Heuristic
