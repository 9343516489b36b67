#include "host/regex/HeldPattern.h"

#include <string>

#include <gtest/gtest.h>

namespace Corvane::Regex {
namespace {

struct Row {
    const char *expression;
    const char *proper;
    bool rereads = false;
    unsigned int options = 0;
};

void s_expect(const Row &row) {
    const HeldPattern held = heldPattern(parseDefinition(row.expression, row.options));
    EXPECT_EQ(held.proper, row.proper) << row.expression;
    EXPECT_EQ(held.rereads, row.rereads) << row.expression;
}

constexpr unsigned int kAnyLineEnd = 0x500000;

TEST(HeldPattern, CallsInWhatIsRepeatedOrLookedAheadFor) {
    const Row rows[] = {
        {"a(?=b)c", "a(?=(?C)b)c"},
        {"(?:(?!.*b).)*", "(?:(?C)(?!(?C).*b).)*", true},
        {"(?=(a+)b)c", "(?=(?C)(a+)b)c", true},
        {"(?=a)b+", "(?=(?C)a)b+"},
        {"(*nla:a*)b", "(*nla:(?C)a*)b", true},
        {"(?:a*b)?(c|d){20}", "(?:a*b)?(c|d){20}"},
        {"(?:(?:.*z)?a)*", "(?:(?C)(?:.*z)?a)*", true},
        {"(?:a(b+)+)", "(?:a((?C)b+)+)", true},
        {"(?:a{2,30}b)+", "(?:(?C)a{2,30}b)+"},
        {"(?:a{2,300}b){3,}", "(?:(?C)a{2,300}b){3,}", true},
        {"(?<n>a)*(?'n'a)*(?P<n>a)*(?|a)*(?>a)*(?i-m:a)*(*atomic:a)*",
         "(?<n>(?C)a)*(?'n'(?C)a)*(?P<n>(?C)a)*(?|(?C)a)*(?>(?C)a)*(?i-m:(?C)a)*(*atomic:(?C)a)*"},
        {"(?<=a)*(?<!a)*", "(?<=(?C)a)*(?<!(?C)a)*"},
        // Conditions.
        {"(?(?=a)b|c)", "(?(?=(?C)a)b|c)"},
        {"(?:(?(?<=a)b|c)*)", "(?:(?(?<=(?C)a)b|c)*)"},
        {"(a)?(?(1)b|c)*", "(a)?(?(1)(?C)b|c)*"},
        // What calls a part of itself may repeat it.
        {"(a*b)(?1)*", "((?C)a*b)(?1)*", true},
        {"(a)\\g<1>", "((?C)a)\\g<1>"},
        {"(?:a(?R)?)", "(?:(?C)a(?R)?)"},
        {"(?<n>a)(?&n)(?P>n)", "(?<n>(?C)a)(?&n)(?P>n)"},
        {"(?<n>a)(?P=n)+", "(?<n>a)(?P=n)+"},
        // No groups.
        {"(*SKIP)*a", "(*SKIP)*a"},
        {"(?C1)*(?C\"(a\"\")\")(a)+", "(?C1)*(?C\"(a\"\")\")((?C)a)+"},
        {"(?i)*(a)+", "(?i)*((?C)a)+"},
        {"(?=", "(?="},
    };
    for (const Row &row : rows) {
        s_expect(row);
    }
}

TEST(HeldPattern, LeavesClassesQuotationsAndCommentsAsTheyAre) {
    const Row rows[] = {
        {"[(?=a)]*[]](?=b)", "[(?=a)]*[]](?=(?C)b)"},
        {"[^](?=a)][[:alpha:](?=)]x", "[^](?=a)][[:alpha:](?=)]x"},
        {"[[:a](?=b)]", "[[:a](?=(?C)b)]"},
        {"[\\](?=)]*", "[\\](?=)]*"},
        {"[\\E](a)*][^\\E](a)*]", "[\\E](a)*][^\\E](a)*]"},
        {"[\\Q](a)*\\E](a)*", "[\\Q](a)*\\E]((?C)a)*"},
        {"\\(?=b", "\\(?=b"},
        {"\\Q(a)*\\E(?=b)", "\\Q(a)*\\E(?=(?C)b)"},
        {"(?#(a)*(?=b)", "(?#(a)*(?=(?C)b)"},
        {"(a)(?#b)*", "((?C)a)(?#b)*"},
        {"[(", "[("},
    };
    for (const Row &row : rows) {
        s_expect(row);
    }
}

TEST(HeldPattern, KnowsWhereAPatternIsExtended) {
    const Row rows[] = {
        {"/(a) * # (a)* [/x", "((?C)a) * # (a)* ["},
        {"/(a) * # (a)*\n(a)*/x", "((?C)a) * # (a)*\n((?C)a)*"},
        {"/#(a)*\r(a)*/x", "#(a)*\r(a)*"},
        {"/#(a)*\r(a)*/x", "#(a)*\r((?C)a)*", false, kAnyLineEnd},
        {"/(*LF)(*CR)#(a)*\n(a)*\r(a)*/x", "#(a)*\n(a)*\r((?C)a)*"},
        {"/(a) *#(a)*/", "(a) *#((?C)a)*"},
        {"/(?:(?x)a|#(b)*\n)(a) *#(a)*/", "(?:(?x)a|#(b)*\n)(a) *#((?C)a)*"},
        {"/(?x:#(a)*\n(?-x)#(a)*)#(a)*/", "(?x:#(a)*\n(?-x)#((?C)a)*)#((?C)a)*"},
        {"/(?i-x)#(a)*(?^)#(a)*/x", "(?i-x)#((?C)a)*(?^)#((?C)a)*"},
        {"/(?xx)[ ](a)*](a)*/", "(?xx)[ ](a)*]((?C)a)*"},
        {"/(?x)[ ](a)*/", "(?x)[ ]((?C)a)*"},
    };
    for (const Row &row : rows) {
        s_expect(row);
    }
}

TEST(HeldPattern, PutsTheStartOfTheTextForThatOfTheTryAndDropsResets) {
    const Row rows[] = {
        {R"(\Ga|b\G)", R"(\Aa|b\A)"},
        {R"(\\Ga\\\G)", R"(\\Ga\\\A)"},
        {R"(\Q\G\K\E\G\K)", R"(\Q\G\K\E\A(?:))"},
        {R"(\Q\\E\G)", R"(\Q\\E\A)"},
        {R"(\c\G\G)", R"(\c\G\A)"},
        {R"([\]]\G[\Q]\G\E\K])", R"([\]]\A[\Q]\G\E\K])"},
        {R"((?#\Q)\G\K)", R"((?#\Q)\A(?:))"},
        {"/# \\Q\n\\G\\K/x", "# \\Q\n\\A(?:)"},
        {R"((*NOTEMPTY)a\K)", R"(a\K)"},
        {"\\", "\\"},
    };
    for (const Row &row : rows) {
        s_expect(row);
    }
}

} // namespace
} // namespace Corvane::Regex
