// What is told of patterns that compile, for the people who write them.

#include "host/regex/PatternReview.h"

#include <ostream>
#include <string>

#include <gtest/gtest.h>

#include "host/regex/Expression.h"

namespace Corvane::Regex {
namespace {

struct Row {
    const char *name;
    const char *text;
    bool isExpected;
};

void PrintTo(const Row &row, std::ostream *out) {
    *out << row.text;
}

std::string s_nameOf(const testing::TestParamInfo<Row> &row) {
    return row.param.name;
}

class NestedRepeats : public testing::TestWithParam<Row> {};

TEST_P(NestedRepeats, AreFound) {
    EXPECT_EQ(reviewPattern(GetParam().text, kNoOptions).hasNestedRepeats, GetParam().isExpected);
}

INSTANTIATE_TEST_SUITE_P(Patterns, NestedRepeats,
                         testing::Values(Row{"plain", "/(?:a+)+b/", true},
                                         Row{"captured", "/(a*)*b/", true},
                                         Row{"optionalEnd", "/(?:\\w+\\s?)+:/", true},
                                         Row{"optionalStart", "/(?:\\s*\\w+)*:/", true},
                                         Row{"alternatives", "/(?:x|[ab]+)+:/", true},
                                         Row{"deeper", "/x(?:y(?:a+)+)?z/", true},
                                         Row{"toldApart", "/(?:\\.\\w+)+:/", false},
                                         Row{"separatorBehind", "/(?:\\w+,)+:/", false},
                                         Row{"bounded", "/(?:a+){2}b/", false},
                                         Row{"innerBounded", "/(?:a{1,3})+b/", false},
                                         Row{"possessive", "/(?:a++)+b/", false},
                                         Row{"atomic", "/(?:(?>a+))+b/", false},
                                         Row{"single", "/a+b+/", false}),
                         s_nameOf);

class Dots : public testing::TestWithParam<Row> {};

TEST_P(Dots, AreFoundAtEitherEnd) {
    const PatternReview review = reviewPattern(GetParam().text, kNoOptions);
    EXPECT_EQ(review.beginsWithDots || review.endsWithDots, GetParam().isExpected);
}

INSTANTIATE_TEST_SUITE_P(
    Patterns, Dots,
    testing::Values(Row{"beginning", "/.*a/", true}, Row{"lazyBeginning", "/.*?a/", true},
                    Row{"afterStart", "/^.*a/", true}, Row{"end", "/a.*/", true},
                    Row{"lazyEnd", "/a.*?/", true}, Row{"beforeEnd", "/a.*$/", true},
                    Row{"escapedBackslash", "/a\\\\.*/", true}, Row{"fullStop", "/a\\.*/", false},
                    Row{"possessive", "/.*+a/", false}, Row{"inside", "/a.*b/", false},
                    Row{"plus", "/a.+/", false}, Row{"quoted", "/\\Qa.*/", false}),
    s_nameOf);

class LineFeeds : public testing::TestWithParam<Row> {};

TEST_P(LineFeeds, AreFoundWhereEachMatchHoldsOne) {
    EXPECT_EQ(reviewPattern(GetParam().text, kAnyLineEnd).needsLineFeed, GetParam().isExpected);
}

INSTANTIATE_TEST_SUITE_P(
    Patterns, LineFeeds,
    testing::Values(Row{"plain", "/a\\nb/", true}, Row{"inAllAlternatives", "/a\\n|\\x0Ab/", true},
                    Row{"repeated", "/a\\n+b/", true}, Row{"optional", "/a\\n?b/", false},
                    Row{"inOneAlternative", "/a\\n|b/", false}, Row{"space", "/a\\sb/", false}),
    s_nameOf);

TEST(PatternReview, TellsWhereAClassHasBytesOfCharacters) {
    EXPECT_EQ(reviewPattern("/a[b][\xC3\xA4]/", kNoOptions).byteClass, 5U);
    EXPECT_EQ(reviewPattern("a[\xC3\xA4][\xC3\xB6]", kNoOptions).byteClass, 1U);
    EXPECT_FALSE(reviewPattern("/a[\xC3\xA4]/u", kNoOptions).byteClass.has_value());
    EXPECT_FALSE(reviewPattern("/\xC3\xA4[\\xC3-\\xC5]/", kNoOptions).byteClass.has_value());
}

TEST(PatternReview, TellsTheLeastLength) {
    EXPECT_EQ(reviewPattern("/ab{3}(?:c|de)f?/", kNoOptions).minimumLength, 5U);
    EXPECT_EQ(reviewPattern("/(?:a{60000}){60000}/", kNoOptions).minimumLength, 1U << 30);
    EXPECT_EQ(reviewPattern("//", kNoOptions).minimumLength, 0U);
}

TEST(PatternReview, TellsNothingOfWhatItDoesNotUnderstand) {
    const PatternReview review = reviewPattern("/(*NOTEMPTY)a{3}\\n/", kNoOptions);
    EXPECT_FALSE(review.isUnderstood);
    EXPECT_FALSE(review.needsLineFeed);
    EXPECT_FALSE(reviewPattern("/a", kNoOptions).isUnderstood);
    EXPECT_FALSE(reviewPattern("", kNoOptions).isUnderstood);
}

} // namespace
} // namespace Corvane::Regex
