#include "host/parser/Utf2lang.h"

#include <string>

#include <gtest/gtest.h>

namespace Corvane {
namespace {

struct LanguageRow {
    const char *name;
    std::string text;
    // The flags in order: C, J, K, R.
    const char *expected;
};

void PrintTo(const LanguageRow &row, std::ostream *out) {
    *out << row.name;
}

std::string times(int count, const std::string &piece) {
    std::string text;
    for (int i = 0; i < count; ++i) {
        text += piece;
    }
    return text;
}

class Languages : public testing::TestWithParam<LanguageRow> {};

TEST_P(Languages, Flags) {
    Utf2lang guess;
    guess.chinese = guess.japanese = guess.korean = guess.russian = true;
    guess.proc(GetParam().text.data(), GetParam().text.size());
    std::string flags;
    flags += guess.chinese ? "C" : "";
    flags += guess.japanese ? "J" : "";
    flags += guess.korean ? "K" : "";
    flags += guess.russian ? "R" : "";
    EXPECT_EQ(flags, GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, Languages,
    testing::Values(LanguageRow{"empty", "", ""}, LanguageRow{"noLetters", "123 !?€", ""},
                    LanguageRow{"english", "Plain words", ""},
                    LanguageRow{"german", "größer über", ""},
                    LanguageRow{"chinese", "您的账户已被暂停，请点击链接", "C"},
                    LanguageRow{"chineseWithOrnament", times(20, "中") + "の", "C"},
                    LanguageRow{"japanese", "会議は来週の月曜日に変更になりました", "J"},
                    LanguageRow{"kanaAtItsShare", times(7, "中") + "の", "J"},
                    LanguageRow{"kanaBelowItsShare", times(8, "中") + "の", "C"},
                    LanguageRow{"halfWidthKana", "ｱｲｳ", "J"},
                    LanguageRow{"korean", "회의가 월요일로 변경되었습니다", "K"},
                    LanguageRow{"koreanWithHan", "가가中中", "K"},
                    LanguageRow{"koreanWithOrnament", times(20, "가") + "の", "K"},
                    LanguageRow{"russian", "Встреча перенесена", "R"},
                    LanguageRow{"aQuarterOfTheWeight", "д" + times(3, "x"), "R"},
                    LanguageRow{"belowAQuarter", "д" + times(4, "x"), ""},
                    LanguageRow{"hanWeighsThree", "中" + times(9, "x"), "C"},
                    LanguageRow{"hanBelowAQuarter", "中" + times(10, "x"), ""},
                    LanguageRow{"twoScripts", "中" + times(3, "д"), "CR"},
                    LanguageRow{"badBytesSkipped", "\xE4\xB8" + times(3, "д") + "\xFF\xD0", "R"}),
    [](const auto &row) { return std::string(row.param.name); });

TEST(Utf2lang, StartsWithoutFlags) {
    const Utf2lang guess;
    EXPECT_FALSE(guess.chinese || guess.japanese || guess.korean || guess.russian);
}

} // namespace
} // namespace Corvane
