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
    return table.check(number, reinterpret_cast<const unsigned char *>(subject.data()),
                       subject.size(), start, start + literal.size());
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
    testing::Values(
        PhraseRow{"least", kGap, "x  zorq.end", Verdict::Yes},
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
        PhraseRow{"endOfPhraseIsEnough", R"(zorqend\s+)", "zorqend" + std::string(99, ' '),
                  Verdict::Yes},
        PhraseRow{"oneOfACharacter", R"(zorqend\s{0,9}(?:a|[4@]))", "zorqend@", Verdict::Yes},
        PhraseRow{"repeatedGroup", R"(zorqend(?:\s+x){2}y)", "zorqend  x xy", Verdict::Yes},
        PhraseRow{"caseOfTheRest", "(?i)zorqend(?-i)[x]", "zorqendX", Verdict::No}),
    [](const auto &row) { return std::string(row.param.name); });

// A phrase decides in place of the engine, which therefore must not give one up where it is long or much like others.
TEST(PhraseTable, StandsForWhatIsNeverGivenUp) {
    std::string list = "(?:";
    for (char letter = 'a'; letter <= 'z'; ++letter) {
        list += std::string(R"(zorq\s+[.,]*\d{1,60})") + letter + "jx|";
    }
    list += "end)";
    ASSERT_TRUE(requiredLiterals(list, kNoOptions, TextKind::Text).whole);
    const std::string subject = "zorq" + std::string(60000, ' ') + std::string(60000, '.') +
                                std::string(50, '1') + "jx zorq .1zjx";
    bool failed = true;
    EXPECT_TRUE(Expression(list, kNoOptions, true)(subject, &failed));
    EXPECT_FALSE(failed);
    EXPECT_TRUE(Expression(list, kNoOptions, false)(subject, &failed));
    EXPECT_FALSE(failed);
}

} // namespace
} // namespace Corvane::Regex
