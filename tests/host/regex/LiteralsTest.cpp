#include "host/regex/Literals.h"

#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "host/regex/Expression.h"

namespace Corvane::Regex {
namespace {

// Literals in one line: blanks between them, ! behind those that ignore the case.
std::string s_line(const std::vector<Literal> &literals) {
    std::string line;
    for (const Literal &literal : literals) {
        line += (line.empty() ? "" : " ") + literal.bytes + (literal.ignoreCase ? "!" : "");
    }
    return line;
}

struct LiteralRow {
    const char *name;
    std::string text;
    std::string expected;
};

void PrintTo(const LiteralRow &row, std::ostream *out) {
    *out << row.name;
}

class LiteralsOf : public testing::TestWithParam<LiteralRow> {};

TEST_P(LiteralsOf, AreFound) {
    const RequiredLiterals required =
        requiredLiterals(GetParam().text, kAnyLineEnd, TextKind::Text);
    EXPECT_EQ(s_line(required.alternatives), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Syntax, LiteralsOf,
    testing::Values(
        LiteralRow{"plain", "zorq", "zorq"}, LiteralRow{"ignoringCase", "/ZorQ/i", "zorq!"},
        LiteralRow{"anchors", R"(^\bzorq\b$)", "zorq"},
        LiteralRow{"anchorsBetween", R"(zo\B\Krq\Z)", "zorq"},
        LiteralRow{"optional", "(zorq)?", ""}, LiteralRow{"optionalTail", "zorqx*", "zorq"},
        LiteralRow{"zeroTimes", "(zorq){0}", ""}, LiteralRow{"noTimesIsText", "z{x,3}q", "z{x,3}q"},
        LiteralRow{"openBraceIsText", "zx{2", "zx{2"}, LiteralRow{"times", "(?:zq){2}", "zqzq"},
        LiteralRow{"lazyAndPossessive", "zq+?x++j", "zq"},
        LiteralRow{"alternatives", "zorq|(?:pf|w)x", "zorq pfx wx"},
        LiteralRow{"emptyBranch", "zorq|", ""},
        LiteralRow{"heldByAnother", "zorqs?|zorqette", "zorq"},
        LiteralRow{"shortSet", "zor[qx]j", "zorqj zorxj"},
        LiteralRow{"bracketFirstInClass", "[]z]jxq", "]jxq zjxq"},
        LiteralRow{"quoted", R"(\Qz.q*\E+x)", "z.q"},
        LiteralRow{"quotedToTheEnd", R"(\Qz.[q)", "z.[q"},
        LiteralRow{"lookahead", "(?=.*zorq)a", "zorq"}, LiteralRow{"notAhead", "(?!zorq)a", ""},
        LiteralRow{"lookbehind", "(?<=zorq)a", ""}, LiteralRow{"backReference", R"((zorq)?\1)", ""},
        LiteralRow{"octal", R"(\172orq)", "zorq"},
        LiteralRow{"octalNotReference", R"(zjq\012)", "zjq\n"},
        LiteralRow{"inlineIgnoreCase", "z(?i)orq", "zorq!"},
        LiteralRow{"inlineForLaterBranches", "(?:a(?i)zq|jx)w", "azqw! jxw!"},
        LiteralRow{"inlineEndsWithGroup", "(?:(?i)z|z)qjx", "qjx"},
        LiteralRow{"extended", "/z o # r\n q/x", "zoq"},
        LiteralRow{"extendedCr", "(?x)z#r\rq", "zq"},
        LiteralRow{"extendedEscapes", R"((?x)z\ [ ]q)", "z  q"},
        LiteralRow{"comment", "zo(?#(x)rq", "zorq"}, LiteralRow{"call", "(zorq){0}(?1)", ""},
        LiteralRow{"conditional", "(a)?(?(1)zorq|zjx)", "zorq zjx"},
        LiteralRow{"conditionalWithoutElse", "(a)?(?(1)zorq)", ""},
        LiteralRow{"accept", "a(*ACCEPT)zorq", ""}, LiteralRow{"leadingVerb", "(*CRLF)zorq", ""},
        LiteralRow{"leadingZeroByte", std::string("\\0zorq"), "zorq"},
        LiteralRow{"highByteIgnoringCase", R"(/\xe9zq/i)", "\xe9zq!"},
        LiteralRow{"utf", R"(/\x{e9}zq/u)", "\xc3\xa9zq"},
        LiteralRow{"utfIgnoringCaseCutsAtK", "/zorqkwbjx/iu", "wbjx!"},
        LiteralRow{"utfIgnoringCaseCutsAtHigh", "/\xc3\xa9zorq/iu", "zorq!"},
        LiteralRow{"commonByteAlone", "a", ""},
        LiteralRow{"furniture", "(?i)https?://[^/]+/zq", "/zq!"},
        LiteralRow{"manyBranches", "(?:a|b|c|d|e|f)(?:g|h|i|j|k|l)zorqjelly", "zorqjelly"}),
    [](const auto &row) { return std::string(row.param.name); });

TEST(RequiredLiterals, GiveAnIndependentSecond) {
    const auto required = requiredLiterals("/zorq.{0,20}jelly(?:fish|bean)/i", 0, TextKind::Text);
    EXPECT_EQ(s_line(required.alternatives), "zorq!");
    EXPECT_EQ(s_line(required.second), "jelly!");
    EXPECT_EQ(required.minimumLength, 13U);
    EXPECT_FALSE(required.whole);
}

TEST(RequiredLiterals, AskForTwoLiteralsOfABranch) {
    const auto required = requiredLiterals(
        R"(/\b(?:zorq.{1,9}jelly|fishpaste|fishpaste.+zorq)\b/i)", 0, TextKind::Text);
    EXPECT_EQ(s_line(required.alternatives), "zorq! fishpaste!");
    EXPECT_EQ(s_line(required.companions), "jelly! ");
}

TEST(RequiredLiterals, SqueezeWhatStandsBetweenLetters) {
    const char *kSpaced = R"(/v[\W_]{0,2}i[\W_]*a[\W_]?g[^a-z0-9]*[r4]/i)";
    auto required = requiredLiterals(kSpaced, kAnyLineEnd, TextKind::Text);
    EXPECT_EQ(s_line(required.alternatives), "");
    EXPECT_EQ(s_line(required.squeezed), "viag4! viagr!");
    EXPECT_FALSE(required.byteSets.empty());
    required = requiredLiterals(R"(v\W?i\w?a\W?g\W?)", kAnyLineEnd, TextKind::Text);
    EXPECT_EQ(s_line(required.squeezed), "");
}

TEST(RequiredLiterals, KnowThatNoMatchBeginsBetweenCrAndLf) {
    for (const char *text : {R"(\Wzqxj-k)", R"(\szqxj-k)", R"([\n;]\h{1,3}zqxj-k)"}) {
        EXPECT_FALSE(requiredLiterals(text, kAnyLineEnd, TextKind::Text).whole) << text;
        EXPECT_TRUE(requiredLiterals(text, kNoOptions, TextKind::Text).whole) << text;
    }
}

TEST(RequiredLiterals, TellOfTheEdges) {
    const auto maximum = [](const char *text) {
        return requiredLiterals(text, kNoOptions, TextKind::Text).maximumLength;
    };
    EXPECT_EQ(maximum("^[a-z]{3,10}$"), 12U);
    EXPECT_EQ(maximum(R"((?:\Aab|^(?:c|))\z)"), 4U);
    for (const char *text : {"^a+$", "/^a$/m", "(?m)^a$", "a$", "^a", "^a|b$", "/^a$/u"}) {
        EXPECT_EQ(maximum(text), std::numeric_limits<std::size_t>::max()) << text;
    }
    const auto first = [](const char *text) {
        return requiredLiterals(text, kNoOptions, TextKind::Text).firstBytes;
    };
    EXPECT_EQ(first("(?i)^(?:ab|[5]?c)").count(), 5U);
    for (const char *text : {"^a?", "ab", "^a|b", "(?:^)?a", "/^a/m", "^(?=a)"}) {
        EXPECT_TRUE(first(text).all()) << text;
    }
    // Deep nesting takes no more time than its length.
    EXPECT_EQ(maximum((std::string(200, '(') + "^a$" + std::string(200, ')')).c_str()), 3U);
}

TEST(RequiredLiterals, TellWhatIsNothingButLiterals) {
    const auto isWhole = [](const char *text) {
        return requiredLiterals(text, 0, TextKind::Text).whole;
    };
    for (const char *text : {"zorq", "/(zorq|jxw)x?/i", "[zZ]7[qQ]", "(?i)zorq(?-i)(?i:x)", "zorq.",
                             "(?i)zorq(?-i)x", "[zZ]orq7", R"(zorq\s{1,4}jx|jx\d*q+zorq)"}) {
        EXPECT_TRUE(isWhole(text)) << text;
    }
    for (const char *text :
         {"^zorq", R"(zorq\b)", "/zorq/u", "(?>zq|z)orq", "zorq(?=x)", R"((zq)\1)",
          // More than one number of bytes may lead to a match, or be tried.
          R"(zorq\w+jx)", R"(zorq\s+?jx)", R"((?U)zorq\s+jx)", R"(zorq(?:jx|\d+)w)", "zq+",
          "zq(*SKIP)", R"(zorq\R)",
          // Nothing matches these.
          R"([^\s\S])", R"(abc[^\x00-\xff])",
          // Tries of these are given up where much reads the same.
          "(?:q|q|q|q|q|q|q|q){6}zor", "(?:(?:q?q?){0,4}){0,4}zor"}) {
        EXPECT_FALSE(isWhole(text)) << text;
    }
}

// Releases of the engine differ in whether these are quantifiers, or white space.
TEST(RequiredLiterals, ClaimNothingOfWhatIsDisputed) {
    for (const char *text : {"zorq{,3}", "zorq{ 1,2}", "zorq{\t2}", "zorq{1 ,2}", "zorq{1, 2}",
                             "zorq{1,2 }", "zorq{1,2\t}", "zorq{1, }", "zorq{3 }", "(?x)zorq{1,2 }",
                             "(?x)zorq{1,2 }?", "zorq[x]{1,2 }", "zorq\\x{41}{1,2 }",
                             "zorq\\N{1,2 }", "zorq\\N{,2}", "zorq(?(1){,2}|a)", "(?x)zo\x85rq"}) {
        EXPECT_TRUE(requiredLiterals(text, 0, TextKind::Text).alternatives.empty()) << text;
    }
    for (const char *text : {"zorq[{1,2 }]", "zorq\\{1,2 }", "zorq\\Q{1,2 }\\E", "zorq{1,x}"}) {
        EXPECT_FALSE(requiredLiterals(text, 0, TextKind::Text).alternatives.empty()) << text;
    }
}

TEST(RequiredLiterals, ComeToAnEndWithBoundsThatTheEngineRefuses) {
    for (const char *text :
         {"/(?:z{2,1}q)+x/", "/(?:z{1,0})*(?:q{65536})*x/", "/(?:(?:zq){9,3}){2,}zorq/"}) {
        EXPECT_TRUE(requiredLiterals(text, 0, TextKind::Text).alternatives.empty()) << text;
    }
}

TEST(RequiredLiterals, KeepTheirBounds) {
    std::string text = "(?:";
    for (int i = 0; i < 500; ++i) {
        text += "zq" + std::to_string(i * 7919 % 1000) + (i < 499 ? "|" : ")");
    }
    EXPECT_LE(requiredLiterals(text, 0, TextKind::Text).alternatives.size(), kMaxAlternatives);
    const std::string deep = std::string(100000, '(') + "zorq" + std::string(100000, ')');
    EXPECT_TRUE(requiredLiterals(deep, 0, TextKind::Text).alternatives.empty());
    const std::string repeated = "(?:(?:(?:zq){60000}){60000}){60000}";
    EXPECT_FALSE(requiredLiterals(repeated, 0, TextKind::Text).alternatives.empty());
    for (const char *wrong :
         {"", "/zorq", "/zorq/q", "z(", "z\\", "[", "[\\", "(?", "(?<", "a{1}{"}) {
        EXPECT_NO_THROW(requiredLiterals(wrong, 0, TextKind::Text)) << wrong;
    }
    EXPECT_NO_THROW(requiredLiterals("zorq", 2, TextKind::Text));
}

} // namespace
} // namespace Corvane::Regex
