#include "host/regex/PhraseTable.h"

#include <string>

#include <gtest/gtest.h>

#include "host/regex/Expression.h"

namespace Corvane::Regex {
namespace {

using Verdict = PhraseTable::Verdict;

// The verdict on the one place of the literal of a pattern that is a phrase.
Verdict s_check(const std::string &pattern, const std::string &subject) {
    const RequiredLiterals required = requiredLiterals(pattern, kNoOptions, TextKind::Text);
    EXPECT_EQ(required.phrases.size(), 1U) << pattern;
    EXPECT_TRUE(required.whole) << pattern;
    PhraseTable table;
    const std::uint32_t number = table.add(required.phrases.at(0));
    const std::string &literal = required.alternatives.at(0).bytes;
    const std::size_t start = subject.find(literal);
    EXPECT_NE(start, subject.npos) << literal;
    std::size_t read = 0;
    return table.check(number, reinterpret_cast<const unsigned char *>(subject.data()),
                       subject.size(), start, start + literal.size(), read);
}

struct PhraseRow {
    const char *name;
    const char *pattern;
    std::string subject;
    Verdict expected;
};

void PrintTo(const PhraseRow &row, std::ostream *out) {
    *out << row.name;
}

class PhraseOf : public testing::TestWithParam<PhraseRow> {};

TEST_P(PhraseOf, IsJudgedAsByTheEngine) {
    const PhraseRow &row = GetParam();
    EXPECT_EQ(s_check(row.pattern, row.subject), row.expected);
    if (row.expected != Verdict::Unknown) {
        EXPECT_EQ(Expression(row.pattern, kNoOptions, true)(row.subject, nullptr),
                  row.expected == Verdict::Yes);
    }
}

constexpr const char *kGap = R"(x\s{2,4}zorq\d*[.!]end)";

INSTANTIATE_TEST_SUITE_P(
    Cases, PhraseOf,
    testing::Values(PhraseRow{"least", kGap, "x  zorq.end", Verdict::Yes},
                    PhraseRow{"tooFew", kGap, "x zorq.end", Verdict::No},
                    PhraseRow{"most", kGap, "x \t \tzorq!end", Verdict::Yes},
                    PhraseRow{"tooMany", kGap, "x     zorq!end", Verdict::No},
                    PhraseRow{"optional", kGap, "x  zorq123!end", Verdict::Yes},
                    PhraseRow{"otherByte", kGap, "x  zorq123?end", Verdict::No},
                    PhraseRow{"textEndsEarly", kGap, "x  zorq.en", Verdict::No},
                    PhraseRow{"textStartsLate", kGap, "  zorq.end", Verdict::No},
                    PhraseRow{"longestRun", R"(zorq\s*end)", "zorq" + std::string(63, ' ') + "end",
                              Verdict::Yes},
                    PhraseRow{"longerRun", R"(zorq\s*end)", "zorq" + std::string(65, ' ') + "end",
                              Verdict::Unknown},
                    PhraseRow{"runBefore", R"(end\s*zorq)", "end" + std::string(65, ' ') + "zorq",
                              Verdict::Unknown},
                    PhraseRow{"endOfPhraseIsEnough", R"(zorqend\s+)",
                              "zorqend" + std::string(99, ' '), Verdict::Yes},
                    PhraseRow{"oneOfACharacter", R"(zorqend\s{0,9}[a4@])", "zorqend@",
                              Verdict::Yes},
                    PhraseRow{"caseOfTheRest", "(?i)zorqend(?-i)[x]", "zorqendX", Verdict::No}),
    [](const auto &row) { return std::string(row.param.name); });

struct LongRow {
    const char *name;
    std::string pattern;
    std::string subject;
};

void PrintTo(const LongRow &row, std::ostream *out) {
    *out << row.name;
}

class LongText : public testing::TestWithParam<LongRow> {};

// The engine gives up a try that takes too many steps, and then the whole text: a phrase must not decide there.
TEST_P(LongText, IsNotDecidedWhereTheEngineGivesUp) {
    const auto &[name, pattern, subject] = GetParam();
    for (const bool jit : {true, false}) {
        bool failed = false;
        EXPECT_FALSE(Expression(pattern, kAnyLineEnd, jit)(subject, &failed));
        EXPECT_TRUE(failed);
    }
    const auto required = requiredLiterals(pattern, kAnyLineEnd, TextKind::Text);
    EXPECT_TRUE(!required.whole || required.wholeUpTo < subject.size());
}

std::string s_branches(const char *before, const char *after) {
    std::string list;
    for (char letter = 'a'; letter <= 'f'; ++letter) {
        list += (list.empty() ? "" : "|") + std::string(before) + std::string(3, letter) + after;
    }
    return list;
}

std::string s_repeated(const char *text, int times) {
    std::string all;
    for (int i = 0; i < times; ++i) {
        all += text;
    }
    return all;
}

INSTANTIATE_TEST_SUITE_P(
    Cases, LongText,
    testing::Values(LongRow{"overlappingBranches", R"(/buy(?:\s|\W|_)+viagraXL/i)",
                            "buy" + std::string(15, ' ') + "stocks now, or buy viagraXL"},
                    LongRow{"branchesThatMeet", s_branches(R"(1\h+[a-z])", "qq-cheapest"),
                            "1" + std::string(1900, ' ') + "xno 1 xfffqq-cheapest"},
                    LongRow{"longRun", R"(1\h+[a-z]cheapest watches)",
                            "1" + std::string(20000, ' ') + "xno 1 xcheapest watches"},
                    LongRow{"repeatedGroup", R"(1(?:\s|_)+cheapest watches)",
                            "1" + s_repeated(" _", 8000) + "no 1 cheapest watches"},
                    LongRow{"capturedCharacter", R"(1(\s)+cheapest watches)",
                            "1" + std::string(12000, ' ') + "no 1 cheapest watches"}),
    [](const auto &row) { return std::string(row.param.name); });

// On what it decides the engine must not give up, however much the branches or the bytes are alike.
TEST(PhraseTable, DecidesOnlyWhereTheEngineGoesToTheEnd) {
    const std::string list = s_branches(R"(zorq\h+[.,]*[a-f]{1,60})", "jx") + R"(|zorq\d{2,3}!)";
    const auto required = requiredLiterals(list, kNoOptions, TextKind::Text);
    ASSERT_TRUE(required.whole);
    ASSERT_GT(required.wholeUpTo, 64U);
    const std::string end = "no zorq12!";
    const std::size_t left = required.wholeUpTo - end.size() - 4;
    const std::string subject =
        "zorq" + std::string(left / 2, ' ') + std::string(left - left / 2, '.') + end;
    for (const bool jit : {true, false}) {
        bool failed = true;
        EXPECT_TRUE(Expression(list, kNoOptions, jit)(subject, &failed));
        EXPECT_FALSE(failed);
    }
}

} // namespace
} // namespace Corvane::Regex
