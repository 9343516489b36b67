// Random rules on random messages: scans through the index of a set against scans that walk its lists, and against the
// slow scanner. Both are made of one small vocabulary, so that much matches and literals are parts of each other.
// CORVANE_SCAN_CASES gives another number of messages than kCases, and CORVANE_SCAN_SEED another beginning.

#include <array>
#include <chrono>
#include <cstdlib>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "heuristic/FullRule.h"
#include "heuristic/Scanner.h"
#include "host/parser/Budget.h"
#include "support/LogCapture.h"
#include "support/Message.h"
#include "support/ReferenceScan.h"
#include "support/RuleSet.h"
#include "support/Rules.h"

namespace Corvane::Heuristic {
namespace {

constexpr unsigned long kCases = 1500;
constexpr unsigned long kCasesPerSet = 30;

constexpr std::array kWords = {
    "offer", "ffer",     "Free", "freeoffer", "via",   "viagra", "v-i_a", "offers", "a",    "12",
    "re",    "\xc3\xa9", "\xe9", "k",         "hello", "OFFER!", "x1",    "cash",   "%PDF-"};
constexpr std::array kJoints = {"", "", " ", " ", ".", "-", "\t", "_ "};
constexpr std::array kOddities = {
    "=?utf-8?Q?free_offer?=", "<", ">", "@", ".example", "\"", "=?", "?=", "\xff", "\r"};
constexpr std::array kLineEnds = {"\n", "\n", "\r\n", "\n\n", "\r\r\n", "\r"};
constexpr std::array kHeaderNames = {"Subject",    "SUBJECT", "From",    "To", "cc",
                                     "Message-Id", "X-Free",  "x-offer", "",   "Received"};
constexpr std::array kSelectors = {
    "Subject",  "From:addr",        "From:name", "To:raw",    "X-*",       "*",
    "ALL",      "ALL:raw",          "ToCc",      "MESSAGEID", "x-*r:addr", "subject:raw",
    "*e*:name", "EnvelopeFrom:addr"};
// What no literal can be looked for, and what begins almost anywhere.
constexpr std::array kLoosePatterns = {
    "(?:of+|an?d|x?f)[r-v\\W]*[=!<e.]", "[a-f][\\W_]*[r-v]\\S?[.!-]", "^[^.]*?[!=_]\\S",
    "(?:re|of|\\d).[^e]*?\\.\\s?[a-c]", "[.-]\\s*[a-o]+[!\"]?$",      "(?:[.\\-_][^.\\-_]*?){4}"};
constexpr std::array kTails = {"", "", "", "i", "i", "s", "m", "x", "u", "iu", "is"};
constexpr std::array kScores = {"1",    "0.1", "0.3",  "-0.7", "1e7",
                                "-1e7", "2.5", "1e-3", "0",    "0.7"};
constexpr std::array kSections = {"DEFAULT", "DEFAULT", "ALL", "ALL", "RU", "CN"};
constexpr std::array kKinds = {"header",  "header", "body", "body",
                               "rawbody", "uri",    "full", "meta"};
constexpr std::array kCharsets = {"", "utf-8", "KOI8-R", "gb2312", "bogus"};
// Texts around these lengths: of a piece, of what is read of a text and of a raw body.
constexpr std::array<std::size_t, 5> kLengths = {2047, 2048, 2049, 3072, 4096};
constexpr std::size_t kLongBytes = 32768;

class Random {
public:
    explicit Random(unsigned long seed) : random_(seed) {}

    std::size_t below(std::size_t end) { return random_() % end; }
    bool oneIn(std::size_t count) { return below(count) == 0; }
    template <class List>
    auto of(const List &list) {
        return list[below(list.size())];
    }

    // Words with what is between them, about so many.
    std::string text(std::size_t words) {
        std::string text;
        for (std::size_t left = below(2 * words + 1); left > 0; --left) {
            text += oneIn(6) ? of(kOddities) : of(kWords);
            text += of(kJoints);
            text += oneIn(40) ? std::string(1, '\0') : std::string();
        }
        return text;
    }

    // Filler up to one of the lengths that matter, or one byte off.
    std::string filler() {
        return std::string((oneIn(20) ? kLongBytes : of(kLengths)) - 1 + below(3),
                           oneIn(2) ? '7' : 'x');
    }

    std::string lines(std::size_t count) {
        std::string text;
        for (std::size_t left = below(count + 1); left > 0; --left) {
            text += oneIn(20) ? filler() : this->text(4);
            text += of(kLineEnds);
        }
        return oneIn(2) ? text : text + this->text(2);
    }

    // A pattern between slashes.
    std::string pattern() {
        std::string pattern;
        for (std::size_t left = 1 + below(3); left > 0; --left) {
            pattern += part();
        }
        return '/' + pattern + '/' + of(kTails);
    }

private:
    std::string part() {
        const std::string word = of(kWords);
        const std::string other = of(kWords);
        switch (below(19)) {
        case 0:
            return "(?:" + word + '|' + other + '|' + of(kWords) + ')';
        case 1:
            return word + ".{0,9}" + other;
        case 2:
            return "\\b" + word;
        case 3:
            return '^' + word;
        case 4:
            return word + (oneIn(2) ? "$" : "\\r?\\n");
        case 5:
            return spaced(word);
        case 6:
            return '(' + word + ")?" + other;
        case 7:
            return "(?=.{0,9}" + word + ')';
        case 8:
            return oneIn(2) ? "(?i)" + word : "(?-i:" + word + ')';
        case 9:
            return "(?!" + word + ')' + other;
        case 10:
            return of(std::array{"\\d\\d", "^$", "^\\s*$", ".", "^.{2048}$", "[A-Z]{3}",
                                 "(.)\\1{3}", "[\\x80-\\xff]", "\\x00", "[^\\x00-\\x7f]", "^\\S+$",
                                 "7{40}", "x$"});
        case 11:
            return '[' + word.substr(0, 1) + "0]" + word.substr(1);
        case 12:
            return word + '{' + std::to_string(below(3)) + ',' + (oneIn(2) ? "3}" : "}");
        case 13:
            return of(kLoosePatterns);
        default:
            return word;
        }
    }

    std::string spaced(const std::string &word) {
        std::string pattern;
        for (const char letter : word) {
            pattern += letter;
            pattern += "[\\W_]{0,2}";
        }
        return pattern;
    }

    std::mt19937_64 random_;
};

// A rule file over all kinds and some languages. Names are few enough to repeat.
class RandomRules {
public:
    explicit RandomRules(Random &random) : random_(random) {}

    std::string text(std::size_t rules) {
        std::string text;
        for (std::size_t i = 0; i < rules; ++i) {
            if (random_.oneIn(6)) {
                text += "#[lang section]\t" + std::string(random_.of(kSections)) + '\n';
            }
            const std::string name = nameOf(rules);
            const std::string kind = random_.of(kKinds);
            text += kind + ' ' + name + ' ' + definition(kind, rules) + '\n';
            if (!random_.oneIn(4)) {
                text += "score " + name + ' ' + random_.of(kScores) + '\n';
            }
        }
        return text;
    }

private:
    std::string nameOf(std::size_t rules) {
        const std::size_t number = random_.below(2 * rules);
        return (number % 5 == 0 ? "__R" : "R") + std::to_string(number);
    }

    std::string definition(const std::string &kind, std::size_t rules) {
        if (kind == "meta") {
            return meta(rules);
        }
        if (random_.oneIn(12)) {
            return "eval:x";
        }
        if (kind != "header") {
            return random_.pattern();
        }
        const std::string selector = random_.of(kSelectors);
        if (random_.oneIn(8)) {
            return "exists:" + selector;
        }
        const std::string definition = selector +
                                       random_.of(std::array{" =~ ", " =~ ", " =~ ", " !~ ", " "}) +
                                       random_.pattern();
        return random_.oneIn(8) ? definition + " [if-unset: x]" : definition;
    }

    std::string meta(std::size_t rules) {
        std::string expression;
        for (std::size_t left = 1 + random_.below(4); left > 0; --left) {
            const std::string name = random_.oneIn(8) ? std::string("2") : nameOf(rules);
            expression += random_.of(std::array{"", "", "", "!", "(", "!("}) + name +
                          random_.of(std::array{"", "", ")", " )"});
            if (left > 1 || random_.oneIn(10)) {
                expression += random_.of(std::array{" && ", " && ", " || ", " || ", " + ", " - ",
                                                    " > ", " <= ", " * ", " / "});
            }
        }
        return expression;
    }

    Random &random_;
};

// What is scanned: a message, and its bytes in the pieces in which they are written into a tap.
struct RandomInput {
    RandomInput(Random &random) {
        const std::size_t headers = random.oneIn(200) ? 9000 : random.below(9);
        for (std::size_t i = 0; i < headers; ++i) {
            const std::string value =
                random.text(4) + (random.oneIn(30) ? random.filler() : "") + random.text(1);
            headers_->append(random.oneIn(40) ? Header() : Header(random.of(kHeaderNames), value));
            written += headers_->headers().back().asString() + random.of(kLineEnds);
        }
        body = random.lines(8);
        raw = random.oneIn(3) ? random.lines(60) : body;
        written += random.lines(8);
        sender = random.oneIn(3) ? EmailAddress()
                                 : EmailAddress(random.text(1), random.text(1) + "@b.example");
        charset = random.of(kCharsets);
        if (!random.oneIn(10)) {
            addPart(random);
        }
        for (std::size_t at = 0; at < written.size();) {
            const std::size_t size = 1 + random.below(random.oneIn(2) ? 8 : 3000);
            pieces.push_back(written.substr(at, size));
            at += size;
        }
    }

    void addPart(Random &random) {
        part = Ref<MimePart>(new MimePart);
        const auto add = [&](MPartAttribute::Type type, const std::string &text,
                             unsigned int flags) {
            if (!random.oneIn(5)) {
                const Buffer bytes(text.data(), static_cast<unsigned int>(text.size()), false);
                part->attr(type, Ref<MPartAttribute>(new MPartText(charset, bytes, flags)));
            }
        };
        add(MPartAttribute::Text, body, 0);
        add(MPartAttribute::RawText, raw, 0);
        add(MPartAttribute::AltText, random.lines(8), random.oneIn(3) ? 0 : MPartText::kDiffers);
        const Ref<MPartAttribute> uris(new UriContainer);
        for (std::size_t left = random.oneIn(200) ? 9000 : random.below(8); left > 0; --left) {
            dynamic_cast<UriContainer &>(*uris).add(static_cast<unsigned int>(random.below(4)),
                                                    random.oneIn(20) ? Uri() : Uri(random.text(2)));
        }
        part->attr(MPartAttribute::Uris, uris);
    }

    RefMessageProperties properties() const { return RefMessageProperties::create(headers_, part); }
    langID language() const { return Scanner::selectLanguage(part.operator->()); }

    RefHeaderList headers_{true};
    Ref<MimePart> part{nullptr};
    EmailAddress sender;
    std::string charset;
    std::string body;
    std::string raw;
    std::string written;
    std::vector<std::string> pieces;
};

// All that a scan shows.
struct Result {
    Names names;
    float score = 0.0F;
    bool tripped = false;
    bool tapEnd = false;
    unsigned int answers = 0;
    std::string failures;
    std::vector<LogRecord> records;
};

void expectSame(const Result &filtered, const Result &walked) {
    EXPECT_EQ(filtered.names, walked.names);
    EXPECT_EQ(filtered.score, walked.score);
    EXPECT_EQ(filtered.tripped, walked.tripped);
    EXPECT_EQ(filtered.tapEnd, walked.tapEnd);
    EXPECT_EQ(filtered.answers, walked.answers);
    EXPECT_EQ(filtered.failures, walked.failures);
    EXPECT_EQ(filtered.records, walked.records);
}

std::string described(const Exception &failure) {
    std::string text = failure.message() + '|' + std::to_string(failure.code()) + '|' +
                       failure.file() + '|' + std::to_string(failure.line());
    for (const std::string &parameter : failure.parameters()) {
        text += '|' + parameter;
    }
    return failure.cause() == nullptr ? text : text + " <- " + described(*failure.cause());
}

// Ways to scan one input.
enum class Way { Process, TapFirst, Parts };

class Scan {
public:
    Scan(Scanner &scanner, const RandomInput &input, const ReferenceSettings &settings)
        : scanner_(scanner), input_(input), percent_(settings.percent) {
        matches_->threshold(settings.threshold);
    }

    Result run(Way way) {
        FullTap tap(scanner_, scanner_.rules().fullRules(input_.language()), matches_, 0, false);
        for (const std::string &piece :
             way == Way::TapFirst ? input_.pieces : std::vector<std::string>()) {
            attempt([&] { return tap.write(viewOf(piece)) ? 1U : 0U; });
        }
        if (way == Way::Parts) {
            scanParts();
        } else {
            attempt([&] {
                return scanner_.process(matches_, input_.properties(), input_.sender, percent_,
                                        false);
            });
        }
        result_.tapEnd = tap.end();
        result_.names = namesOf(*matches_);
        result_.tripped = matches_->tripped();
        attempt([&] {
            result_.score = matches_->score(false);
            return 0U;
        });
        result_.records = log_.records;
        return result_;
    }

private:
    void scanParts() {
        const langID language = input_.language();
        const auto scan = [&](auto &&...what) {
            scanner_.check(matches_, language, what..., percent_, false);
            return 0U;
        };
        attempt([&] { return scan(input_.sender); });
        attempt([&] {
            return scan(input_.headers_->headers().empty() ? HeaderContainer()
                                                           : HeaderContainer(*input_.headers_));
        });
        attempt([&] {
            return scanner_.check(matches_, language, viewOf(input_.body), percent_, false) ? 1U
                                                                                            : 0U;
        });
        attempt([&] {
            return scanner_.checkRaw(matches_, language, viewOf(input_.raw), percent_, false) ? 1U
                                                                                              : 0U;
        });
    }

    template <class Operation>
    void attempt(Operation operation) {
        try {
            result_.answers = 8 * result_.answers + operation();
        } catch (const Exception &failure) {
            result_.failures += described(failure) + '\n';
        }
    }

    Scanner &scanner_;
    const RandomInput &input_;
    unsigned int percent_;
    RefMatches matches_ = RefMatches::create();
    LogCapture log_;
    Result result_;
};

class RandomSet {
public:
    explicit RandomSet(Random &random) : random_(random) {
        set_.add("a.cf", RandomRules(random).text(4 + random.below(60)));
        const LogCapture log;
        filtered_.emplace(set_.path());
        walked_.emplace(set_.path());
        reference_.emplace(*filtered_);
        stopIndex();
    }

    bool isUsable() const { return !kept_.empty(); }

    void compare(const RandomInput &input) {
        ReferenceSettings settings{random_.of(std::array{0U, 0U, 0U, 1U, 37U, 50U, 100U, 130U}),
                                   0.0F, false};
        for (const Way way : {Way::Process, Way::TapFirst, Way::Parts}) {
            settings.threshold = 0.0F;
            compareBoth(input, way, settings);
            settings.threshold = thresholdOf(input, way, settings);
            compareBoth(input, way, settings);
        }
    }

    // The same change to both sets, of which there are those that no reference knows.
    void change() {
        referenceHolds_ = false;
        const std::size_t number = random_.below(kept_.size());
        const RefRule &first = kept_[number].first;
        const RefRule &second = kept_[number].second;
        switch (random_.below(4)) {
        case 0:
            first->score(RefScore());
            second->score(RefScore());
            break;
        case 1:
            first->score(RefScore("-3.5"));
            second->score(RefScore("-3.5"));
            break;
        case 2:
            filtered_->rules().rules(DEFAULT, first->type()).erase(first);
            walked_->rules().rules(DEFAULT, first->type()).erase(second);
            break;
        default:
            filtered_->rules().bodyRules(DEFAULT).add(first->type() == Rule::Body ? first
                                                                                  : RefRule());
            walked_->rules().bodyRules(DEFAULT).add(first->type() == Rule::Body ? second
                                                                                : RefRule());
        }
    }

private:
    // Remembers the rules of both sets, and edits one of the second so that its index is not used.
    void stopIndex() {
        for (const langID language : {DEFAULT, RU, CN}) {
            for (unsigned int kind = Rule::Header; kind <= Rule::Meta; ++kind) {
                const auto type = static_cast<Rule::Type>(kind);
                for (const RefRule &rule : *filtered_->rules().rules(language, type)) {
                    kept_.emplace_back(rule,
                                       walked_->rules().rules(language, type).find(rule->name()));
                }
            }
        }
        if (!kept_.empty()) {
            const RefRule &rule = kept_.front().second;
            rule->ordinal(rule->ordinal());
        }
    }

    // One of the totals that the scan goes through, so that it trips there.
    float thresholdOf(const RandomInput &input, Way way, const ReferenceSettings &settings) {
        const ReferenceOutcome outcome = refer(input, way, settings);
        return outcome.additions.empty()
                   ? 0.5F
                   : random_.of(outcome.additions).total - (random_.oneIn(2) ? 0.01F : 0.0F);
    }

    ReferenceOutcome refer(const RandomInput &input, Way way, const ReferenceSettings &settings) {
        ReferenceScan scan(*reference_, settings);
        ReferenceTap tap(scan, input.language());
        for (const std::string &piece :
             way == Way::TapFirst ? input.pieces : std::vector<std::string>()) {
            tap.write(piece);
        }
        scan.process(input.properties(), input.sender);
        return scan.outcome();
    }

    void compareBoth(const RandomInput &input, Way way, const ReferenceSettings &settings) {
        SCOPED_TRACE(testing::Message()
                     << "way " << static_cast<int>(way) << ", percent " << settings.percent
                     << ", threshold " << settings.threshold);
        const Result filtered = filteredResult(input, way, settings);
        expectSame(filtered, Scan(*walked_, input, settings).run(way));
        if (way == Way::Parts || !referenceHolds_) {
            return;
        }
        const ReferenceOutcome outcome = refer(input, way, settings);
        std::set<std::string> names;
        for (const ReferenceOutcome::Addition &addition : outcome.additions) {
            names.insert(addition.name);
        }
        EXPECT_EQ(filtered.names, Names(names.begin(), names.end()));
        EXPECT_EQ(filtered.score, outcome.score);
        EXPECT_EQ(filtered.tripped, outcome.tripped);
    }

    // With a budget, which does not end and must change nothing.
    Result filteredResult(const RandomInput &input, Way way, const ReferenceSettings &settings) {
        Budget budget(std::chrono::hours(1));
        const Budget::Use use(budget);
        return Scan(*filtered_, input, settings).run(way);
    }

    Random &random_;
    RuleSet set_{"random"};
    std::optional<Scanner> filtered_;
    std::optional<Scanner> walked_;
    std::optional<ReferenceRules> reference_;
    bool referenceHolds_ = true;
    std::vector<std::pair<RefRule, RefRule>> kept_;
};

unsigned long setting(const char *name, unsigned long otherwise) {
    const char *value = std::getenv(name);
    return value != nullptr ? std::strtoul(value, nullptr, 10) : otherwise;
}

TEST(FilteredScanRandom, GivesWhatTheWalkGives) {
    const unsigned long seed = setting("CORVANE_SCAN_SEED", 1);
    const unsigned long cases = setting("CORVANE_SCAN_CASES", kCases);
    for (unsigned long done = 0; done < cases && !HasFailure(); done += kCasesPerSet) {
        SCOPED_TRACE(testing::Message() << "CORVANE_SCAN_SEED " << seed + done);
        Random random(seed + done);
        RandomSet set(random);
        for (unsigned long each = 0; each < kCasesPerSet && set.isUsable() && !HasFailure();
             ++each) {
            set.compare(RandomInput(random));
            if (each > kCasesPerSet / 2) {
                set.change();
            }
        }
    }
}

} // namespace
} // namespace Corvane::Heuristic
