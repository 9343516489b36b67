#include "host/regex/AutomatonTable.h"

#include <algorithm>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "host/regex/Expression.h"

namespace Corvane::Regex {
namespace {

using When = AutomatonTable::When;

AutomatonTable::Text s_view(const std::string &text) {
    return {reinterpret_cast<const unsigned char *>(text.data()), text.size(), 0};
}

std::vector<std::size_t> s_numbers(const std::vector<AutomatonTable::Text> &texts) {
    std::vector<std::size_t> numbers(texts.size());
    std::transform(texts.begin(), texts.end(), numbers.begin(),
                   [](const AutomatonTable::Text &text) { return text.number; });
    return numbers;
}

bool s_matches(const std::string &pattern, const std::string &subject) {
    return Expression(pattern, kAnyLineEnd, true)(subject, nullptr);
}

struct AutomatonRow {
    const char *name;
    const char *pattern;
    std::string subject;
    bool expected;
};

void PrintTo(const AutomatonRow &row, std::ostream *out) {
    *out << row.name;
}

class AutomatonOf : public testing::TestWithParam<AutomatonRow> {};

TEST_P(AutomatonOf, AcceptsWhatTheEngineMatches) {
    const AutomatonRow &row = GetParam();
    AutomatonTable table;
    const auto number = table.add(row.pattern, kAnyLineEnd, TextKind::Text, When::Possible);
    ASSERT_TRUE(number.has_value());
    EXPECT_EQ(table.mayMatch(*number, s_view(row.subject)), row.expected);
    EXPECT_EQ(s_matches(row.pattern, row.subject), row.expected);
}

constexpr const char *kJunk = R"(/c["'\[]*(?:\$\w*)?m["'\[]*d\s/i)";
const std::string kLong(1000, 'x');

INSTANTIATE_TEST_SUITE_P(
    Cases, AutomatonOf,
    testing::Values(AutomatonRow{"junkBetweenLetters", kJunk, "run C'\"$pathmD now", true},
                    AutomatonRow{"otherJunk", kJunk, "run C'\"$path.mD now", false},
                    AutomatonRow{"afterManyBytes", kJunk, kLong + "cmd\t", true},
                    AutomatonRow{"notAfterManyBytes", kJunk, kLong + "cmd.", false},
                    AutomatonRow{"beginsWithinAnotherTry", "/[01]{3}2/", "0100112", true},
                    AutomatonRow{"start", R"(^[^.]*[?;])", "ab?", true},
                    AutomatonRow{"nothingAfterTheStart", R"(^[^.]*[?;])", "a.b?" + kLong, false},
                    AutomatonRow{"startOfOneBranch", R"((?:^a|b)9)", "a9", true},
                    AutomatonRow{"notAtTheStart", R"((?:^a|b)9)", "xa9", false},
                    AutomatonRow{"everyLineStart", R"(/^\d9/m)", "x\n19", true},
                    AutomatonRow{"end", R"([;!]$)", "x;", true},
                    AutomatonRow{"endBeforeLineEnd", R"([;!]$)", "x;\r\n", true},
                    AutomatonRow{"notAtTheEnd", R"([;!]$)", "x;y\n", false},
                    AutomatonRow{"onlyStartAndEnd", R"(^\d?$)", "\n", true},
                    AutomatonRow{"moreThanStartAndEnd", R"(^\d?$)", "12", false},
                    AutomatonRow{"emptyText", R"(^\d?$)", "", true},
                    AutomatonRow{"counted", R"(a[eo]{3,5}t)", "aeoeoet", true},
                    AutomatonRow{"countedTooFew", R"(a[eo]{3,5}t)", "aeot", false},
                    AutomatonRow{"countedTooMany", R"(a[eo]{3,5}t)", "aeoeoeot", false},
                    AutomatonRow{"countedOften", R"(a[01]{500}b)",
                                 "a" + std::string(500, '0') + "b", true},
                    AutomatonRow{"countedOftenWithAGap", R"(a[01]{500}b)", "a0 0b", false},
                    AutomatonRow{"dotEndsAtCr", R"(a.{1,9}b)", "a\rb", false},
                    AutomatonRow{"highBytes", R"([\x80-\x8f]{2}!)", "\x81\x8f!", true},
                    AutomatonRow{"wideCharacter", R"(/[^\d]9[^\d]8/u)",
                                 "\xe4\xb8\xad"
                                 "9\xc3\xa9"
                                 "8",
                                 true},
                    AutomatonRow{"kelvin", R"(/\dk\d/iu)",
                                 "1\xe2\x84\xaa"
                                 "2",
                                 true},
                    AutomatonRow{"manyStates", R"([ab][^\n]{18}[yz]!)",
                                 "ab" + std::string(17, 'a') + "zz!" + kLong, true}),
    [](const testing::TestParamInfo<AutomatonRow> &row) { return row.param.name; });

TEST(AutomatonTable, HasNothingForWhatItCannotTell) {
    AutomatonTable table;
    std::string huge;
    for (int i = 0; i < 9000; ++i) {
        huge += "[ab]";
    }
    for (const std::string &pattern :
         {std::string(), std::string("a*"), std::string("x?$"), std::string("(?R)"),
          std::string("/[ab]\x85\\d/x"), std::string("(*UTF)a"), std::string("(a"),
          std::string("/a"), huge}) {
        EXPECT_FALSE(table.add(pattern, kNoOptions, TextKind::Text, When::Possible).has_value())
            << pattern;
    }
    EXPECT_EQ(table.memoryBytes(), 0U);
}

struct WorthRow {
    const char *name;
    const char *pattern;
    bool expected;
};

void PrintTo(const WorthRow &row, std::ostream *out) {
    *out << row.name;
}

class WorthOf : public testing::TestWithParam<WorthRow> {};

TEST_P(WorthOf, IsGuessed) {
    AutomatonTable table;
    EXPECT_EQ(table.add(GetParam().pattern, kNoOptions, TextKind::Text, When::Faster).has_value(),
              GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, WorthOf,
    testing::Values(WorthRow{"manyBeginnings", R"((?:and|x?or|not)[\s(]+\w+=\d)", true},
                    WorthRow{"goesOnFromTheStart", R"(^[^.]*?[*?]+/)", true},
                    WorthRow{"acceptsMostTexts", R"([^ ] [^ ])", false},
                    WorthRow{"rareBeginning", R"(jq\w+[;!])", false},
                    WorthRow{"rareSecondByte", R"(\w[@#]\d)", false},
                    WorthRow{"failsAtTheStart", R"(^\d+[;!])", false}),
    [](const testing::TestParamInfo<WorthRow> &row) { return row.param.name; });

// Assertions and back-references count as true, and a pattern that would need more than the states
// or the steps that are spent on it accepts the more.
TEST(AutomatonTable, AcceptsTooMuchRatherThanTooLittle) {
    std::string optional;
    for (int i = 0; i < 1000; ++i) {
        optional += "[ab]?";
    }
    for (const std::string &pattern : {std::string(R"((\d)x\1!)"), std::string(R"(\b\d(?!y)x\d!)"),
                                       std::string(R"(\d(?<=1)x1!)"), "1(?:x|" + optional + "9)1!",
                                       std::string("1(?:(?:x{1,50}){1,50}){1,50}1!")}) {
        AutomatonTable table;
        const auto number = table.add(pattern, kNoOptions, TextKind::Text, When::Possible);
        ASSERT_TRUE(s_matches(pattern, "0x 1x1! 1")) << pattern;
        EXPECT_TRUE(!number.has_value() || table.mayMatch(*number, s_view("0x 1x1! 1"))) << pattern;
    }
}

TEST(AutomatonTable, SelectsOfManyTextsWhatItAcceptsOfEach) {
    AutomatonTable table;
    ASSERT_EQ(table.add(R"(^\d+;)", kNoOptions, TextKind::Text, When::Possible), 0U);
    ASSERT_EQ(table.add(R"([01]2[^x]{0,40}[;:]$)", kNoOptions, TextKind::Text, When::Possible), 1U);
    std::mt19937_64 random(5);
    for (std::size_t count : {0U, 1U, 3U, 4U, 5U, 200U}) {
        std::vector<std::string> subjects(count);
        std::vector<AutomatonTable::Text> texts;
        for (std::string &subject : subjects) {
            for (std::size_t left = random() % 80; left > 0; --left) {
                subject += "01222 ;x"[random() % 8];
            }
            texts.push_back(s_view(subject));
            texts.back().number = texts.size();
        }
        for (std::uint32_t number : {0U, 1U}) {
            std::vector<AutomatonTable::Text> selected = texts;
            table.select(number, selected);
            std::vector<AutomatonTable::Text> expected;
            std::copy_if(
                texts.begin(), texts.end(), std::back_inserter(expected),
                [&](const AutomatonTable::Text &text) { return table.mayMatch(number, text); });
            EXPECT_EQ(s_numbers(selected), s_numbers(expected));
        }
    }
}

} // namespace
} // namespace Corvane::Regex
