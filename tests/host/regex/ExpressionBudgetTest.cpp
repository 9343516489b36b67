// A budget that does not end changes no answer.

#include <array>
#include <chrono>
#include <optional>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "host/parser/Budget.h"
#include "host/parser/Exception.h"
#include "host/regex/Expression.h"

namespace Corvane::Regex {
namespace {

struct Answer {
    bool matches;
    bool failed;
    bool operator==(const Answer &other) const = default;
};

void PrintTo(const Answer &answer, std::ostream *out) {
    *out << (answer.failed ? "failed" : answer.matches ? "match" : "no match");
}

Answer s_ask(const Expression &expression, const std::string &text) {
    Answer answer{};
    answer.matches = expression(text, &answer.failed);
    return answer;
}

Answer s_askWithin(const Expression &expression, const std::string &text) {
    Budget budget(std::chrono::hours(1));
    const Budget::Use use(budget);
    return s_ask(expression, text);
}

std::string s_repeated(const std::string &part, std::size_t times) {
    std::string text;
    for (; times > 0; --times) {
        text += part;
    }
    return text;
}

// Machine code that can be held up counts other steps than machine code that cannot. The texts are
// such that one of them passes the limit on steps before the other.
TEST(ExpressionBudget, ChangesNothingNearTheLimitOnSteps) {
    const struct {
        const char *expression;
        const char *begin;
        const char *part;
        const char *end;
    } rows[] = {
        {"/(?:#y*.*?){1,3}\\A\\x{e9}?/is", "z#", "x#", "x"},
        {"/(?:#y*.*?){1,3}\\A\\x{e9}?/is", "z1#", "x", "x"},
        {"/(a|y+?){2}\\n*?(?!(?#c)x+?a++|(?1){0,40})+/", "", "y", "ay\xC3\xA9"},
        {"/(?:x|xx)*y(?!z)/", "", "x", "yz"},
        {"/x.*y.*z(?!w)/", "", "xyz", "w"},
    };
    for (const auto &row : rows) {
        const Expression expression(row.expression, kNoOptions, true);
        for (std::size_t times = 1; times < 300; ++times) {
            const std::string text = row.begin + s_repeated(row.part, times) + row.end;
            EXPECT_EQ(s_askWithin(expression, text), s_ask(expression, text))
                << row.expression << " on " << text;
        }
    }
}

// Patterns of all that such a pattern may hold, and texts that they mostly read in vain.
class Generator {
public:
    explicit Generator(unsigned int seed) : random_(seed) {}

    std::string expression() {
        constexpr std::array kStarts = {
            "(*NOTEMPTY)",       "(*NOTEMPTY_ATSTART)", "(*ANYCRLF)",        "(*CRLF)",
            "(*LIMIT_MATCH=50)", "(*LIMIT_HEAP=1)",     "(*NO_AUTO_POSSESS)"};
        std::string text = "/";
        text += oneIn(3) ? of(kStarts) : "";
        text += sequence(2) + '/';
        for (const char modifier : {'i', 'm', 's', 'x', 'u'}) {
            text += oneIn(5) ? std::string(1, modifier) : "";
        }
        return text;
    }

    unsigned int options() { return oneIn(2) ? kAnyLineEnd : kNoOptions; }

    // One in twenty is so long that it is never tried at once.
    std::string text() {
        constexpr std::array kParts = {
            "x",  "xx", "xxxxxx", "y", "z", "yz",       " ",    "\n",     "\r\n",
            "\r", "a",  "#",      "1", "é", "\xE2\x82", "\xFF", "xyxyxy", "xxxxxxxxxxxxxxxxyz"};
        const std::size_t most = oneIn(20) ? 40000 : oneIn(3) ? 3000 : 60;
        const std::size_t bytes = below(most);
        const std::string usual = oneIn(2) ? of(kParts) : "";
        const bool isAscii = oneIn(2);
        std::string text;
        while (text.size() < bytes) {
            std::string part = usual.empty() || oneIn(50) ? of(kParts) : usual;
            const bool isWide = static_cast<unsigned char>(part.front()) >= 0x80;
            text += isAscii && isWide ? "x" : part;
        }
        return text;
    }

private:
    std::size_t below(std::size_t end) { return random_() % end; }
    bool oneIn(std::size_t count) { return below(count) == 0; }
    template <class List>
    std::string of(const List &list) {
        return list[below(list.size())];
    }

    std::string item(unsigned int depth) {
        constexpr std::array kAtoms = {
            "x",         "y",       "z",         "a",        " ",       "\\n",      ".",
            "\\w",       "\\s",     "\\b",       "\\B",      "^",       "$",        "\\A",
            "\\Z",       "\\G",     "\\K",       "[^y]",     "[xy]",    "[^\\n]",   "\\d",
            "é",         "\\x{e9}", "\\R",       "\\X",      "\\C",     "(*PRUNE)", "(*SKIP)",
            "(*COMMIT)", "(*THEN)", "(*ACCEPT)", "\\Qx*\\E", "\\Q#\\E", "(?#c)",    "#",
            "\\1",       "(?1)",    "(?R)?",     "x",        "y",       ".*z",      "[^\\n]*#"};
        constexpr std::array kOpenings = {"(?:",  "(?:",  "(?:", "(",    "(?>",  "(?=",  "(?!",
                                          "(?<=", "(?<!", "(?|", "(?i:", "(?x:", "(?s:", "(?m:"};
        constexpr std::array kQuantifiers = {"",     "",      "",       "",   "*",  "+",
                                             "?",    "*?",    "+?",     "??", "*+", "++",
                                             "{2,}", "{1,3}", "{0,40}", "{2}"};
        // One after the other: the order within an expression is the compiler's.
        const bool isGroup = depth > 0 && oneIn(3);
        std::string text = isGroup ? of(kOpenings) : of(kAtoms);
        text += isGroup ? sequence(depth - 1) + ')' : "";
        return text + of(kQuantifiers);
    }

    std::string sequence(unsigned int depth) {
        std::string text = item(depth);
        for (std::size_t left = below(4); left > 0; --left) {
            text += oneIn(6) ? "|" : "";
            text += item(depth);
        }
        return text;
    }

    std::mt19937 random_;
};

std::optional<Expression> s_compiled(const std::string &text, unsigned int options) {
    try {
        return Expression(text, options, true);
    } catch (const Exception &) {
        return std::nullopt;
    }
}

TEST(ExpressionBudget, ChangesNothingForRandomPatterns) {
    constexpr unsigned int kPatterns = 12000;
    constexpr unsigned int kTexts = 4;
    for (unsigned int seed = 0; seed < kPatterns; ++seed) {
        Generator generator(seed);
        const std::string text = generator.expression();
        const auto expression = s_compiled(text, generator.options());
        for (unsigned int i = 0; expression.has_value() && i < kTexts; ++i) {
            const std::string subject = generator.text();
            EXPECT_EQ(s_askWithin(*expression, subject), s_ask(*expression, subject))
                << text << ", seed " << seed << ", text " << i;
        }
    }
}

} // namespace
} // namespace Corvane::Regex
