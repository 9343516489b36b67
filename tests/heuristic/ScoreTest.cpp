#include "heuristic/Score.h"

#include <locale>
#include <string>

#include <gtest/gtest.h>

namespace Corvane::Heuristic {
namespace {

struct ScoreRow {
    const char *text;
    float expected;
};

void PrintTo(const ScoreRow &row, std::ostream *out) {
    *out << '"' << row.text << '"';
}

class ScoreText : public testing::TestWithParam<ScoreRow> {};

TEST_P(ScoreText, GivesValue) {
    EXPECT_EQ(RefScore(GetParam().text)->value(), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Cases, ScoreText,
                         testing::Values(ScoreRow{"1.0", 1.0F}, ScoreRow{"0 2.5 1 4", 2.5F},
                                         ScoreRow{"3 5", 5.0F}, ScoreRow{" \t7\r", 7.0F},
                                         ScoreRow{"-1.5e0", -1.5F}, ScoreRow{"3abc", 3.0F},
                                         ScoreRow{"2 x 9", 2.0F}, ScoreRow{"1 2 3 4 5", 2.0F},
                                         ScoreRow{"abc 3", 0.0F}, ScoreRow{"", 0.0F},
                                         ScoreRow{"1e400", 0.0F}, ScoreRow{"4 1e400", 4.0F},
                                         ScoreRow{"nan", 0.0F}));

class CommaDecimals : public std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
};

TEST(Score, IgnoresLocale) {
    const std::locale former =
        std::locale::global(std::locale(std::locale::classic(), new CommaDecimals));
    const float value = RefScore("2.5")->value();
    std::locale::global(former);
    EXPECT_EQ(value, 2.5F);
}

TEST(Score, CopiesShareTheValue) {
    RefScore score("1");
    const RefScore copy = score;
    score.parse("4");
    EXPECT_EQ(copy->value(), 4.0F);
    EXPECT_TRUE(RefScore().isNull());
    EXPECT_THROW(RefScore().parse("1"), Exception);
}

} // namespace
} // namespace Corvane::Heuristic
