// Random patterns against random subjects: whenever an expression matches, what was said to be
// required must be there, and its automaton must accept the subject. CORVANE_LITERAL_PAIRS gives another number of pairs than kPairs, and
// CORVANE_LITERAL_SEED another beginning.

#include "host/regex/AutomatonTable.h"
#include "host/regex/Literals.h"
#include "host/regex/PhraseTable.h"

#include <array>
#include <cstdlib>
#include <iterator>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "host/parser/Exception.h"
#include "host/parser/Text.h"
#include "host/regex/Expression.h"

namespace Corvane::Regex {
namespace {

constexpr unsigned long kPairs = 100000;
constexpr unsigned long kSubjectsPerPattern = 10;
constexpr std::size_t kSamples = 3;

unsigned long s_setting(const char *name, unsigned long otherwise) {
    const char *value = std::getenv(name);
    return value != nullptr ? std::strtoul(value, nullptr, 10) : otherwise;
}

// A piece of a pattern, and some texts that it may match.
struct Part {
    std::string text;
    std::array<std::string, kSamples> samples;
};

// A piece of syntax, and subjects that it is likely to match.
struct SyntaxRow {
    const char *text;
    std::array<const char *, kSamples> samples;
};

constexpr SyntaxRow kSyntaxRows[] = {
    {"\\x41", {"A", "a", "A"}},
    {"\\x{6b}", {"k", "K", "\xE2\x84\xAA"}},
    {"\\x", {"a", "", "x"}},
    {"\\141", {"a", "A", "a"}},
    {"\\012", {"\n", "\n", "\r"}},
    {"\\o{163}", {"s", "\xC5\xBF", "S"}},
    {"\\cA", {"\x01", "\x01", "A"}},
    {"\\e", {"\x1b", "\x1b", "e"}},
    {"\\t", {"\t", "\t", " "}},
    {"\\-", {"-", "-", "-"}},
    {"\\xe9", {"\xe9", "\xc3\xa9", "\xc9"}},
    {"\\xff", {"\xff", "\xc3\xbf", "\xff"}},
    {".", {"a", "\r", "\xe9"}},
    {"\\d", {"1", "2", "1"}},
    {"\\D", {"a", " ", "_"}},
    {"\\w", {"k", "_", "1"}},
    {"\\W", {" ", "-", "\xe9"}},
    {"\\s", {" ", "\n", "\t"}},
    {"\\S", {"b", "-", "\xe9"}},
    {"\\h", {" ", "\t", "\xa0"}},
    {"\\v", {"\n", "\r", "\x85"}},
    {"\\R", {"\r\n", "\n", "\x0b"}},
    {"\\N", {"a", "\r", "s"}},
    {"\\X", {"a", "e\xcc\x81", "-"}},
    {"\\C", {"a", "-", "1"}},
    {"\\p{L}", {"a", "K", "\xC3\xA9"}},
    {"\\PL", {"1", " ", "-"}},
    {"[]a]", {"]", "a", "A"}},
    {"[^]a]", {"b", "-", "K"}},
    {"[a-c]", {"a", "b", "C"}},
    {"[^k]", {"s", "1", "K"}},
    {"[ks]", {"k", "S", "\xE2\x84\xAA"}},
    {"[-a]", {"-", "a", "-"}},
    {"[\\Qa-c\\E]", {"-", "a", "c"}},
    {"[\\Q]\\E8]", {"]", "8", "]"}},
    {"(a|b)\\1", {"aa", "bb", "aa"}},
    {"(?:8bk|(?i:8bk))", {"8bk", "8BK", "8Bk"}},
    {"[a-]", {"-", "a", "-"}},
    {"[\\Qa-\\E]", {"-", "a", "-"}},
    {"[\\Qa\\E-c]", {"b", "a", "c"}},
    {"[a-\\Qc\\E]", {"b", "a", "c"}},
    {"[[:alpha:]]", {"a", "K", "s"}},
    {"[[:^upper:]]", {"a", "1", "-"}},
    {"[^[:^upper:]]", {"K", "S", "a"}},
    {"[a[:digit:]]", {"1", "a", "2"}},
    {"[[:alpha]", {"[", ":", "a"}},
    {"[\\]a]", {"]", "a", "a"}},
    {"[\\W_]", {"_", "-", " "}},
    {"[\\d-]", {"-", "1", "-"}},
    {"[\\b]", {"\b", "\b", "b"}},
    {"[\\101]", {"A", "a", "A"}},
    {"[\\8]", {"8", "8", "\\"}},
    {"[\\E^a]", {"b", "1", "^"}},
    {"[a#]", {"#", "a", "#"}},
    {"[ a]", {" ", "a", " "}},
    {"[a@4]", {"a", "@", "4"}},
    {"[^\\D]", {"1", "2", "1"}},
    {"[\\x{e9}a]", {"a", "\xe9", "\xc3\xa9"}},
    {"[^\\x{e9}]", {"a", "\xe9", "\xc3\x89"}},
    {"[a-\\xff]", {"b", "\xe9", "z"}},
    {"[\\p{L}1]", {"1", "a", "\xc3\xa9"}},
    {"[+--]", {",", "+", "-"}},
    {"^", {"", "\n", ""}},
    {"$", {"", "\n", "\r\n"}},
    {"\\b", {"", " ", ""}},
    {"\\B", {"", "a", ""}},
    {"\\A", {"", "", ""}},
    {"\\z", {"", "", ""}},
    {"\\Z", {"", "\n", ""}},
    {"\\G", {"", "", ""}},
    {"\\K", {"", "", ""}},
    {"(?#a)b)", {"b)", "b", "b)"}},
    {"(?#ab)", {"", "", ""}},
    {"(?i)", {"", "", ""}},
    {"(?-i)", {"", "", ""}},
    {"(?x)", {"", "", ""}},
    {"(?s)", {"", "", ""}},
    {"(?^)", {"", "", ""}},
    {"(?x) # ab\n", {"", "", ""}},
    {"(?x) # ab\rk\n", {"", "k", "k"}},
    {"\\1", {"a", "k", ""}},
    {"\\g{-1}", {"a", "k", ""}},
    {"\\11", {"\t", "a", "\t"}},
    {"(?1)", {"a", "k", ""}},
    {"(?R)?", {"", "a", ""}},
    {"(*SKIP)", {"", "", ""}},
    {"(*ACCEPT)", {"", "", ""}},
    {"(*F)", {"", "", ""}},
    {"(?C1)", {"", "", ""}},
    {"\\Qa.b", {"a.b", "A.b", "a.b"}},
    {"\\E", {"", "", ""}},
    {"a\\E+", {"a", "aa", "aaa"}},
    {"\\Qk*\\E+", {"k*", "k**", "K*"}},
    {"(?(1)a|ks)", {"a", "ks", "ks"}},
    {"(?(?=a)ab|ks)", {"ab", "ks", "ks"}},
    {"(?(DEFINE)(?<x>ab))", {"", "", "ab"}},
    {"()", {"", "", ""}},
    {"|", {"", "", ""}},
    {"{", {"{", "{", "{"}},
    {"a{,3}", {"a{,3}", "a", ""}},
    {"a{2", {"a{2", "aa", "a{2"}},
    {"}", {"}", "}", "}"}},
    {"]", {"]", "]", "]"}},
    {"\\x{4e2d}", {"\xe4\xb8\xad", "\xe4\xb8\xad", "a"}},
};

class Generator {
public:
    explicit Generator(unsigned long seed) : random_(seed) {}

    std::size_t below(std::size_t end) { return random_() % end; }
    bool oneIn(std::size_t count) { return below(count) == 0; }

    template <std::size_t Size>
    std::string oneOf(const std::array<const char *, Size> &list) {
        return list[below(Size)];
    }

    Part pattern() { return oneIn(3) ? soup() : alternatives(3); }

    // Takes a sample, puts it between other bytes and now and then damages it.
    std::string subject(const Part &part) {
        std::string text = part.samples[below(kSamples)];
        for (std::size_t changes = oneIn(2) ? 0 : below(3); changes > 0; --changes) {
            const std::size_t at = below(text.size() + 1);
            if (at < text.size() && oneIn(2)) {
                const char c = text[at];
                text[at] = c != toLowerAscii(c)     ? toLowerAscii(c)
                           : (c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A')
                                                    : 'a';
            } else if (oneIn(2)) {
                text.insert(at, text.substr(0, below(4)));
            } else {
                text.erase(at, 1);
            }
        }
        return (oneIn(2) ? filler() : "") + text + (oneIn(2) ? filler() : "");
    }

    std::string text(const std::string &pattern) {
        if (oneIn(4)) {
            return pattern;
        }
        std::string modifiers;
        for (const char letter : std::string("imsxu")) {
            modifiers += oneIn(3) ? std::string(1, letter) : "";
        }
        return "/" + pattern + "/" + modifiers;
    }

    unsigned int options() {
        return (oneIn(3) ? kIgnoreCase : 0) | (oneIn(4) ? kDotMatchesAll : 0) |
               (oneIn(2) ? kAnyLineEnd : 0);
    }

private:
    std::string filler() {
        std::string text;
        for (std::size_t count = below(6); count > 0; --count) {
            text += oneOf(kCharacters);
        }
        return text;
    }

    static Part same(const std::string &text, const std::string &sample) {
        return {text, {sample, sample, sample}};
    }

    Part character() {
        const std::string c = oneOf(kCharacters);
        const bool special = std::string("\\^$.[|()?*+{#/").find(c[0]) != std::string::npos;
        return same(special && !oneIn(8) ? "\\" + c : c, c);
    }

    Part fixed() {
        const SyntaxRow &row = kSyntaxRows[below(std::size(kSyntaxRows))];
        return {row.text, {row.samples[0], row.samples[1], row.samples[2]}};
    }

    Part item(std::size_t depth) {
        const std::size_t choice = below(depth == 0 ? 8 : 12);
        Part part = choice < 6 ? character() : choice < 8 ? fixed() : group(depth - 1);
        return oneIn(4) ? quantified(part) : part;
    }

    Part quantified(Part part) {
        struct Row {
            const char *text;
            std::array<std::size_t, kSamples> times;
        };
        static const std::vector<Row> kRows = {
            {"*", {0, 1, 2}},    {"+", {1, 2, 3}},     {"?", {0, 1, 0}},     {"{2}", {2, 2, 2}},
            {"{0}", {0, 0, 1}},  {"{1,}", {1, 2, 3}},  {"{0,2}", {0, 1, 2}}, {"{2,3}", {2, 3, 2}},
            {"{0,}", {0, 3, 1}}, {"{1,40}", {1, 7, 2}}};
        const Row &row = kRows[below(kRows.size())];
        part.text += row.text + std::string(oneIn(4) ? "?" : oneIn(6) ? "+" : "");
        for (std::size_t i = 0; i < kSamples; ++i) {
            std::string all;
            for (std::size_t times = row.times[i]; times > 0; --times) {
                all += part.samples[times % 2 == 0 ? i : (i + times) % kSamples];
            }
            part.samples[i] = all;
        }
        return part;
    }

    Part group(std::size_t depth) {
        static constexpr std::array<const char *, 16> kOpenings = {
            "(",    "(?:",  "(?:",   "(?|",   "(?>",    "(?<n>", "(?'m'", "(?P<p>",
            "(?i:", "(?x:", "(?-i:", "(?^s:", "(?i-s:", "(?=",   "(?!",   "(?<="};
        Part part = alternatives(depth);
        const std::string opening = oneOf(kOpenings);
        part.text = opening + part.text + ")";
        if (opening == "(?!" || opening == "(?<=" || (opening == "(?=" && oneIn(2))) {
            part.samples = {"", "", ""};
        }
        return part;
    }

    Part sequence(std::size_t depth) {
        Part whole;
        for (std::size_t count = 1 + below(5); count > 0; --count) {
            const Part part = item(depth);
            whole.text += part.text;
            for (std::size_t i = 0; i < kSamples; ++i) {
                whole.samples[i] += part.samples[i];
            }
        }
        return whole;
    }

    Part alternatives(std::size_t depth) {
        Part all = sequence(depth);
        for (std::size_t count = oneIn(3) ? below(3) : 0; count > 0; --count) {
            const Part branch = oneIn(8) ? Part() : sequence(depth);
            all.text += "|" + branch.text;
            const std::size_t at = below(kSamples);
            all.samples[at] = branch.samples[at];
        }
        return all;
    }

    // Syntax thrown together without sense; what does not compile is dropped.
    Part soup() {
        static constexpr std::array<const char *, 38> kShreds = {
            "(",   ")",   "[",    "]",         "{",   "}",   "?",    "*",   "+",   "|",
            "\\",  "-",   "^",    "$",         ".",   ":",   "#",    "\n",  "\\Q", "\\E",
            "(?",  "(?i", "(?x)", "[:alpha:]", "\\x", "\\0", "\\12", "a-c", "{2}", "{1,",
            "(?=", "(?:", "\\g",  "1",         "<",   "\\N", "=",    "\r"};
        Part part;
        for (std::size_t count = 2 + below(9); count > 0; --count) {
            const bool shred = oneIn(2);
            const std::string text = shred ? oneOf(kShreds) : oneOf(kCharacters);
            part.text += text;
            for (std::string &sample : part.samples) {
                sample += !shred || oneIn(3) ? text : "";
            }
        }
        return part;
    }

    static constexpr std::array<const char *, 25> kCharacters = {"\x85",
                                                                 "a",
                                                                 "b",
                                                                 "k",
                                                                 "s",
                                                                 "K",
                                                                 "S",
                                                                 "a",
                                                                 "b",
                                                                 "1",
                                                                 "_",
                                                                 " ",
                                                                 "-",
                                                                 ".",
                                                                 "#",
                                                                 "/",
                                                                 "\n",
                                                                 "{",
                                                                 "]",
                                                                 "\xc3\xa9",
                                                                 "\xe2\x84\xaa",
                                                                 "\xc5\xbf",
                                                                 "\xe4\xb8\xad",
                                                                 ",",
                                                                 "8"};

    std::mt19937_64 random_;
};

bool s_occurs(const Literal &literal, const std::string &subject) {
    if (!literal.ignoreCase) {
        return subject.find(literal.bytes) != std::string::npos;
    }
    std::string lower;
    copyStringToLower(subject.data(), lower, 0, subject.size());
    return lower.find(literal.bytes) != std::string::npos;
}

bool s_anyOccurs(const std::vector<Literal> &literals, const std::string &subject) {
    bool any = literals.empty();
    for (const Literal &literal : literals) {
        any = any || s_occurs(literal, subject);
    }
    return any;
}

// Whether an alternative occurs in its phrase, or may do so where that is not followed to the end.
PhraseTable::Verdict s_phraseOccurs(const Literal &literal, const Phrase &phrase,
                                    const std::string &subject) {
    PhraseTable table;
    const std::uint32_t number = table.add(phrase);
    const auto *text = reinterpret_cast<const unsigned char *>(subject.data());
    PhraseTable::Verdict best = PhraseTable::Verdict::No;
    for (std::size_t at = 0; at + literal.bytes.size() <= subject.size(); ++at) {
        const std::size_t end = at + literal.bytes.size();
        if (s_occurs(literal, subject.substr(at, literal.bytes.size()))) {
            std::size_t read = 0;
            const auto verdict = table.check(number, text, subject.size(), at, end, read);
            best = verdict == PhraseTable::Verdict::No ? best : verdict;
        }
        if (best == PhraseTable::Verdict::Yes) {
            break;
        }
    }
    return best;
}

PhraseTable::Verdict s_anyPhraseOccurs(const RequiredLiterals &required,
                                       const std::string &subject) {
    PhraseTable::Verdict best = PhraseTable::Verdict::No;
    for (std::size_t i = 0; i < required.phrases.size(); ++i) {
        const auto verdict = s_phraseOccurs(required.alternatives[i], required.phrases[i], subject);
        if (best != PhraseTable::Verdict::Yes && verdict != PhraseTable::Verdict::No) {
            best = verdict;
        }
    }
    return best;
}

// Whether an alternative occurs together with its companion, or in its phrase.
bool s_anyPairOccurs(const RequiredLiterals &required, const std::string &subject) {
    if (!required.phrases.empty()) {
        return s_anyPhraseOccurs(required, subject) != PhraseTable::Verdict::No;
    }
    if (required.companions.empty()) {
        return s_anyOccurs(required.alternatives, subject);
    }
    bool any = false;
    for (std::size_t i = 0; i < required.alternatives.size(); ++i) {
        any = any || (s_occurs(required.alternatives[i], subject) &&
                      s_occurs(required.companions[i], subject));
    }
    return any;
}

// Whether what is known decides about the subject, and wrongly.
bool s_misjudges(const RequiredLiterals &required, const std::string &subject, bool matches) {
    if (!required.whole || subject.size() > required.wholeUpTo) {
        return false;
    }
    if (required.phrases.empty()) {
        return matches != s_anyOccurs(required.alternatives, subject);
    }
    const PhraseTable::Verdict verdict = s_anyPhraseOccurs(required, subject);
    return verdict != PhraseTable::Verdict::Unknown &&
           matches != (verdict == PhraseTable::Verdict::Yes);
}

std::string s_squeezed(const std::string &subject) {
    std::string left;
    for (const char c : subject) {
        const char lower = toLowerAscii(c);
        left += (lower >= 'a' && lower <= 'z') || (c >= '0' && c <= '9') ? std::string(1, c) : "";
    }
    return left;
}

bool s_holdsAll(const RequiredLiterals &required, const std::string &subject) {
    bool every = true;
    for (const auto &set : required.byteSets) {
        bool any = false;
        for (const char c : subject) {
            any = any || set[static_cast<unsigned char>(c)];
        }
        every = every && any;
    }
    const bool begins =
        required.firstBytes.all() ||
        (!subject.empty() && required.firstBytes[static_cast<unsigned char>(subject[0])]);
    return every && begins && subject.size() >= required.minimumLength &&
           subject.size() <= required.maximumLength && s_anyPairOccurs(required, subject) &&
           s_anyOccurs(required.second, subject) &&
           s_anyOccurs(required.squeezed, s_squeezed(subject));
}

std::string s_visible(const std::string &text) {
    return testing::PrintToString(text);
}

struct Count {
    unsigned long patterns = 0;
    unsigned long matches = 0;
    unsigned long claims = 0;
    unsigned long wholes = 0;
    unsigned long phrases = 0;
    unsigned long automata = 0;
    unsigned long rejected = 0;
    unsigned long cut = 0;
};

// Compiles what the generator gave; nothing where it is no pattern.
std::optional<Expression> s_compiled(const std::string &text, unsigned int options) {
    try {
        return Expression(text, options, false);
    } catch (const Exception &) {
        return std::nullopt;
    }
}

// What is found out of an expression at the cost of a budget.
class Findings {
public:
    Findings(const std::string &text, unsigned int options, TextKind kind, WorkBudget budget)
        : required(requiredLiterals(text, options, kind, budget)),
          number_(table_.add(text, options, kind, AutomatonTable::When::Possible, budget)) {}

    bool hasAutomaton() const { return number_.has_value(); }
    bool rejects(const std::string &subject) const {
        const auto *data = reinterpret_cast<const unsigned char *>(subject.data());
        return hasAutomaton() && !table_.mayMatch(*number_, {data, subject.size(), 0});
    }
    // Whether any of it is wrong about the subject.
    bool err(const std::string &subject, bool matches, bool failed) const {
        return (matches && (!s_holdsAll(required, subject) || rejects(subject))) ||
               s_misjudges(required, subject, matches) || (failed && required.whole);
    }

    RequiredLiterals required;

private:
    AutomatonTable table_;
    std::optional<std::uint32_t> number_;
};

void s_try(Generator &generator, Count &count) {
    constexpr std::size_t kPlenty = std::size_t{1} << 30;
    constexpr std::size_t kUsualSteps = 60000;
    const Part part = generator.pattern();
    const std::string text = generator.text(part.text);
    const unsigned int options = generator.options();
    const std::optional<Expression> expression = s_compiled(text, options);
    const auto kind = static_cast<TextKind>(generator.below(4));
    const Findings all(text, options, kind, WorkBudget(kPlenty, kPlenty));
    // Most often this one ends somewhere on the way.
    const Findings some(text, options, kind,
                        WorkBudget(generator.below(kUsualSteps), generator.below(4096)));
    if (!expression.has_value() || expression->isNull()) {
        return;
    }
    const RequiredLiterals &required = all.required;
    ++count.patterns;
    count.wholes += required.whole ? 1U : 0U;
    count.automata += all.hasAutomaton() ? 1U : 0U;
    count.phrases += required.whole && !required.phrases.empty() ? 1U : 0U;
    count.cut += some.required.alternatives != required.alternatives ? 1U : 0U;
    for (unsigned long i = 0; i < kSubjectsPerPattern; ++i) {
        const std::string subject = generator.subject(part);
        bool failed = false;
        const bool matches = (*expression)(subject, &failed);
        const bool claims = !required.alternatives.empty() || !required.squeezed.empty();
        count.matches += matches ? 1 : 0;
        count.claims += matches && claims ? 1 : 0;
        count.rejected += all.rejects(subject) ? 1U : 0U;
        ASSERT_FALSE(all.err(subject, matches, failed))
            << s_visible(text) << " options " << options << " on " << s_visible(subject);
        ASSERT_FALSE(some.err(subject, matches, failed))
            << s_visible(text) << " options " << options << " on " << s_visible(subject)
            << " with a small budget";
    }
}

TEST(RequiredLiterals, HoldForEveryMatchOfRandomPatterns) {
    const unsigned long pairs = s_setting("CORVANE_LITERAL_PAIRS", kPairs);
    Generator generator(s_setting("CORVANE_LITERAL_SEED", 1));
    Count count;
    while (count.patterns * kSubjectsPerPattern < pairs && !HasFatalFailure()) {
        s_try(generator, count);
    }
    RecordProperty("matches", std::to_string(count.matches));
    RecordProperty("claims", std::to_string(count.claims));
    RecordProperty("wholes", std::to_string(count.wholes));
    RecordProperty("phrases", std::to_string(count.phrases));
    RecordProperty("automata", std::to_string(count.automata));
    RecordProperty("rejected", std::to_string(count.rejected));
    RecordProperty("cut", std::to_string(count.cut));
    // A generator whose patterns hardly ever match, or hardly ever hold a literal, tests nothing.
    EXPECT_GT(count.matches, pairs / 3);
    EXPECT_GT(count.claims, pairs / 20);
    EXPECT_GT(count.wholes, count.patterns / 100);
    EXPECT_GT(count.phrases, count.patterns / 200);
    EXPECT_GT(count.automata, count.patterns / 3);
    EXPECT_GT(count.cut, count.patterns / 20);
    // Of the subjects without a match most.
    EXPECT_GT(count.rejected, count.automata);
}

} // namespace
} // namespace Corvane::Regex
