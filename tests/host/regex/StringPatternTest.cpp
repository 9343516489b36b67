#include "host/regex/StringPattern.h"

#include <string>

#include <gtest/gtest.h>

#include "host/parser/Exception.h"

namespace Corvane {
namespace {

struct NameRow {
    const char *name;
    const char *pattern;
    bool isRegex;
    const char *matching;
    const char *other;
};

void PrintTo(const NameRow &row, std::ostream *out) {
    *out << row.name;
}

class StringPatternNames : public testing::TestWithParam<NameRow> {};

TEST_P(StringPatternNames, TellsThemApart) {
    const StringPattern pattern(GetParam().pattern, true, GetParam().isRegex);
    EXPECT_FALSE(pattern.isNull());
    EXPECT_TRUE(pattern.matches(GetParam().matching));
    EXPECT_FALSE(pattern.matches(GetParam().other));
}

INSTANTIATE_TEST_SUITE_P(
    Cases, StringPatternNames,
    testing::Values(NameRow{"wholeName", "Subject", false, "sUBJECT", "Subject2"},
                    NameRow{"noSubstring", "to", false, "To", "Into"},
                    NameRow{"literalBytes", "a.c", false, "A.C", "abc"},
                    NameRow{"starInside", "X-*-Id", false, "x-mail-er-ID", "X-Id"},
                    NameRow{"starEmptyRun", "List*", false, "list", "Lis"},
                    NameRow{"starGoesBack", "*ab*b", false, "aabxbb", "aabxba"},
                    NameRow{"emptyPattern", "", false, "", "x"},
                    NameRow{"regexSearches", "Message-Id", true, "Resent-Message-ID", "Message"},
                    NameRow{"regexAlternatives", "^to|^cc", true, "Together", "Into"}),
    [](const auto &row) { return std::string(row.param.name); });

TEST(StringPattern, StarMatchesAnyName) {
    const StringPattern any("*", true, false);
    EXPECT_TRUE(any.matches(""));
    EXPECT_TRUE(any.matches("Anything"));
    EXPECT_FALSE(StringPattern("Abc", false, false).matches("abc"));
}

TEST(StringPattern, NullMatchesNothingAndBadRegexThrows) {
    EXPECT_TRUE(StringPattern().isNull());
    EXPECT_FALSE(StringPattern().matches(""));
    EXPECT_THROW(StringPattern("(", true, true), Exception);
}

TEST(StringPattern, ManyStarsStayCheap) {
    std::string pattern;
    for (int i = 0; i < 50; ++i) {
        pattern += "*a";
    }
    EXPECT_FALSE(StringPattern(pattern, true, false).matches(std::string(5000, 'a') + "b"));
}

} // namespace
} // namespace Corvane
