// What preparing expressions costs: counted, near in proportion to their length, and never more than there is.

#include "host/regex/WorkBudget.h"

#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "host/regex/AutomatonTable.h"
#include "host/regex/Expression.h"
#include "host/regex/LiteralCosts.h"
#include "host/regex/Literals.h"

namespace Corvane::Regex {
namespace {

constexpr std::uint64_t kPlenty = std::uint64_t{1} << 40;

TEST(WorkBudget, GivesWhatIsLeft) {
    for (const std::uint64_t wanted : {99U, 100U, 101U}) {
        WorkBudget budget(100, 100);
        EXPECT_EQ(budget.takeSteps(wanted), wanted <= 100) << wanted;
        EXPECT_EQ(budget.steps(), wanted == 99 ? 1U : 0U) << wanted;
        EXPECT_EQ(budget.takeBytes(wanted), wanted <= 100) << wanted;
        budget.add(7, 8);
        EXPECT_EQ(budget.steps(), wanted == 99 ? 8U : 7U) << wanted;
    }
}

// A pattern of about that many parts.
struct Shape {
    const char *name;
    std::function<std::string(std::size_t)> make;
};

void PrintTo(const Shape &shape, std::ostream *out) {
    *out << shape.name;
}

std::string s_times(std::size_t count, const std::function<std::string(std::size_t)> &part,
                    const std::string &between = "") {
    std::string all;
    for (std::size_t i = 0; i < count; ++i) {
        all += (i == 0 ? "" : between) + part(i);
    }
    return all;
}

// Letters that differ from number to number.
std::string s_word(std::size_t number, std::size_t letters) {
    std::string word;
    std::size_t seed = (number + 1) * 2654435761U;
    for (; word.size() < letters; seed = seed * 1103515245U + 12345U) {
        word += static_cast<char>('a' + seed / 65536 % 26);
    }
    return word;
}

const std::vector<Shape> &s_shapes() {
    static const std::vector<Shape> s_all = {
        {"words",
         [](std::size_t n) {
             return s_times(
                 n, [](std::size_t i) { return s_word(i, 7); }, "|");
         }},
        {"wordsWithOneEnd",
         [](std::size_t n) {
             return s_times(
                 n, [](std::size_t i) { return s_word(i, 4) + "viag"; }, "|");
         }},
        {"optionalLetters",
         [](std::size_t n) {
             return s_times(n, [](std::size_t) { return std::string("ab?c?d?e?f?g"); });
         }},
        {"classes",
         [](std::size_t n) {
             return s_times(n, [](std::size_t i) { return '[' + s_word(i, 2) + ']'; });
         }},
        {"branchesOfClasses",
         [](std::size_t n) {
             const auto letters = [](std::size_t i) { return '[' + s_word(i, 3) + ']'; };
             return s_times(
                 n, [&](std::size_t i) { return letters(i) + 'x' + letters(i + 1); }, "|");
         }},
        {"groupsInGroups",
         [](std::size_t n) {
             n = std::min<std::size_t>(n, 240);
             return s_times(n, [](std::size_t) { return std::string("(?:"); }) +
                    s_times(n, [](std::size_t i) { return s_word(i, 6) + "|q)"; });
         }},
        {"windows",
         [](std::size_t n) {
             return s_times(
                 n, [](std::size_t i) { return s_word(i, 1) + ".{0,60}" + s_word(i, 2); }, "|");
         }},
        {"optionalDots",
         [](std::size_t n) {
             return 'a' + s_times(n, [](std::size_t) { return std::string(".?"); }) + 'b';
         }},
        {"repeatedGroups",
         [](std::size_t n) {
             return s_times(
                 n, [](std::size_t i) { return "(?:" + s_word(i, 3) + "){40}"; }, "|");
         }},
    };
    return s_all;
}

class CostOf : public testing::TestWithParam<Shape> {
protected:
    static std::uint64_t costOfLiterals(const std::string &text) {
        WorkBudget budget(kPlenty);
        requiredLiterals(text, kAnyLineEnd, TextKind::Text, budget);
        return kPlenty - budget.steps();
    }

    static std::uint64_t costOfAutomaton(const std::string &text, std::uint64_t most) {
        WorkBudget budget(most, kPlenty);
        AutomatonTable table;
        table.add(text, kAnyLineEnd, TextKind::Text, AutomatonTable::When::Possible, budget);
        return most - budget.steps();
    }
};

TEST_P(CostOf, GrowsLittleFasterThanThePattern) {
    constexpr std::size_t kParts = 20;
    constexpr std::size_t kTimes = 8;
    EXPECT_LE(costOfLiterals(GetParam().make(kTimes * kParts)),
              3 * kTimes * costOfLiterals(GetParam().make(kParts)));
}

TEST_P(CostOf, HasAnEnd) {
    const std::string text = GetParam().make(2000);
    EXPECT_LE(costOfLiterals(text), kMaxPatternSteps);
    EXPECT_LE(costOfAutomaton(text, kPlenty), AutomatonTable::kMaxSteps);
}

INSTANTIATE_TEST_SUITE_P(Shapes, CostOf, testing::ValuesIn(s_shapes()),
                         [](const auto &shape) { return std::string(shape.param.name); });

bool s_isSame(const RequiredLiterals &left, const RequiredLiterals &right) {
    return left.alternatives == right.alternatives && left.second == right.second &&
           left.companions == right.companions && left.squeezed == right.squeezed &&
           left.whole == right.whole && left.minimumLength == right.minimumLength;
}

TEST(RequiredLiterals, AreWhatTheBudgetSufficesFor) {
    const std::string text = R"(/(?:zorqing|jelly(?:fish|bean)s?)\s+[a-f]{3}viagra[xy]z/i)";
    const auto found = [&](std::uint64_t steps) {
        WorkBudget budget(steps);
        return requiredLiterals(text, kAnyLineEnd, TextKind::Text, budget);
    };
    const RequiredLiterals all = requiredLiterals(text, kAnyLineEnd, TextKind::Text);
    ASSERT_FALSE(all.alternatives.empty());
    EXPECT_TRUE(s_isSame(found(0), {}));
    std::uint64_t tooFew = 0;
    std::uint64_t enough = kMaxPatternSteps;
    while (enough - tooFew > 1) {
        const std::uint64_t steps = (tooFew + enough) / 2;
        (s_isSame(found(steps), all) ? enough : tooFew) = steps;
    }
    EXPECT_GT(enough, text.size());
    EXPECT_LT(enough, kMaxPatternSteps / 8);
    EXPECT_FALSE(s_isSame(found(enough - 1), all));
    EXPECT_TRUE(s_isSame(found(enough), all));
    EXPECT_TRUE(s_isSame(found(enough + 1), all));
}

// What stands before the place where the budget ends still counts.
TEST(RequiredLiterals, AreFoundAtTheBeginningOfWhatIsTooLong) {
    const std::string text =
        "zorqing" + s_times(3000, [](std::size_t) { return std::string("[ab]c?"); });
    WorkBudget budget(4'000'000);
    const RequiredLiterals required = requiredLiterals(text, 0, TextKind::Text, budget);
    EXPECT_FALSE(required.alternatives.empty());
    EXPECT_FALSE(required.whole);
    EXPECT_LT(required.minimumLength, 3007U);
}

TEST(AutomatonTable, IsWhatTheBudgetSufficesFor) {
    const std::string text = "/[\"'].{0,3}\\bor\\b/i";
    const auto add = [&](AutomatonTable &table, WorkBudget &budget) {
        return table.add(text, kAnyLineEnd, TextKind::Text, AutomatonTable::When::Possible, budget)
            .has_value();
    };
    AutomatonTable table;
    WorkBudget plenty(kPlenty, kPlenty);
    ASSERT_TRUE(add(table, plenty));
    table.shrinkToFit();
    const std::uint64_t steps = kPlenty - plenty.steps();
    const std::uint64_t bytes = kPlenty - plenty.bytes();
    EXPECT_EQ(table.memoryBytes(), bytes);
    for (const std::uint64_t more : {0U, 1U}) {
        AutomatonTable exact;
        WorkBudget budget(steps + more, bytes + more);
        EXPECT_TRUE(add(exact, budget));
        exact.shrinkToFit();
        EXPECT_EQ(exact.memoryBytes(), bytes);
        EXPECT_EQ(budget.bytes(), more);
    }
    AutomatonTable other;
    WorkBudget lessTime(steps - 1, bytes);
    EXPECT_FALSE(add(other, lessTime));
    EXPECT_EQ(lessTime.bytes(), bytes);
    // Fewer states are told apart.
    WorkBudget lessRoom(kPlenty, bytes - 1);
    add(other, lessRoom);
    other.shrinkToFit();
    EXPECT_LT(other.memoryBytes(), bytes);
}

TEST(LiteralCosts, CountWhatMakesAMatcherDear) {
    const auto costOf = [](std::size_t count, const std::function<std::string(std::size_t)> &word) {
        LiteralCosts costs;
        std::vector<Literal> literals;
        std::uint64_t sum = 0;
        for (std::size_t i = 0; i < count; ++i) {
            const std::vector<Literal> one{{word(i), true}};
            const std::uint64_t expected = costs.of(one);
            sum += costs.add(one);
            EXPECT_LE(expected, sum);
        }
        return sum;
    };
    const auto plain = [](std::size_t i) { return s_word(i, 12); };
    EXPECT_EQ(LiteralCosts().of({}), 0U);
    EXPECT_GT(costOf(1, plain), 0U);
    EXPECT_LT(costOf(4000, plain), 8 * costOf(512, plain));
    // Those that end alike cost more with each of them, and so do those that end with a run.
    const auto sameEnd = [](std::size_t i) { return s_word(i, 4) + "viagrass"; };
    EXPECT_GT(costOf(20000, sameEnd), 2 * costOf(20000, plain));
    EXPECT_GT(costOf(2000, [](std::size_t i) { return s_word(i, 9) + "aAa"; }),
              2 * costOf(2000, plain));
}

} // namespace
} // namespace Corvane::Regex
