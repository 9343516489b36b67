#include "host/parser/Budget.h"

#include <string>
#include <thread>

#include <gtest/gtest.h>

namespace Corvane {
namespace {

constexpr std::chrono::nanoseconds kNoTime(1);

TEST(Budget, IsTheThreadsWhileInUseAndNests) {
    EXPECT_EQ(Budget::ofThisThread(), nullptr);
    Budget outer(std::chrono::hours(1));
    {
        const Budget::Use use(outer);
        Budget inner(std::chrono::hours(1));
        {
            const Budget::Use innerUse(inner);
            EXPECT_EQ(Budget::ofThisThread(), &inner);
            const Budget::Use again(inner);
            EXPECT_EQ(Budget::ofThisThread(), &inner);
        }
        EXPECT_EQ(Budget::ofThisThread(), &outer);
        std::thread([] { EXPECT_EQ(Budget::ofThisThread(), nullptr); }).join();
    }
    EXPECT_EQ(Budget::ofThisThread(), nullptr);
}

TEST(Budget, EndsOnceItsTimeIsUsedUpAndStaysSo) {
    Budget budget(kNoTime);
    EXPECT_FALSE(budget.look()) << "nobody has used it";
    {
        const Budget::Use use(budget);
        EXPECT_FALSE(Budget::isOver()) << "nobody has looked yet";
        EXPECT_FALSE(Budget::spend(Budget::kWorkBetweenLooks - 1));
        EXPECT_TRUE(Budget::spend(1));
        EXPECT_TRUE(Budget::isOver());
        EXPECT_TRUE(Budget::spend(0));
    }
    EXPECT_TRUE(budget.ended());
    EXPECT_GE(budget.used(), kNoTime);
    EXPECT_FALSE(Budget::isOver()) << "the thread has none any more";
}

TEST(Budget, WithoutTimeOnlyCounts) {
    for (const auto time : {std::chrono::nanoseconds(0), std::chrono::nanoseconds(-1)}) {
        Budget budget(time);
        const Budget::Use use(budget);
        EXPECT_FALSE(budget.hasEnd());
        EXPECT_FALSE(Budget::spend(Budget::kWorkBetweenLooks));
        EXPECT_FALSE(budget.look());
        budget.end();
        EXPECT_TRUE(Budget::isOver());
    }
    EXPECT_FALSE(Budget::spend(Budget::kWorkBetweenLooks)) << "no budget never ends";
}

TEST(Budget, AffordsWhatEndsLittleBehindIt) {
    Budget budget(std::chrono::hours(1));
    EXPECT_TRUE(budget.affords(std::chrono::hours(2))) << "nobody uses it";
    const Budget::Use use(budget);
    EXPECT_TRUE(budget.affords(std::chrono::minutes(59)));
    EXPECT_TRUE(budget.affords(std::chrono::hours(1) + Budget::kMaxOverrun / 2));
    EXPECT_FALSE(budget.affords(std::chrono::hours(1) + Budget::kMaxOverrun * 2));
    EXPECT_TRUE(budget.ended());
    EXPECT_FALSE(budget.affords(std::chrono::nanoseconds(0)));
}

// Two uses that are each too short for it end it together.
TEST(Budget, AddsUpTheTimeOfItsUses) {
    Budget measure(std::chrono::hours(1));
    const auto work = [] {
        volatile unsigned int sum = 0;
        for (unsigned int i = 0; i < 1000000; ++i) {
            sum = sum + i;
        }
    };
    {
        const Budget::Use use(measure);
        work();
    }
    const std::chrono::nanoseconds once = measure.used();
    EXPECT_GT(once.count(), 0);
    {
        const Budget::Use use(measure);
        work();
    }
    EXPECT_GT(measure.used(), once);
    EXPECT_FALSE(measure.ended());
}

TEST(Budget, KnowsWhichTriesHaveNoNameYet) {
    Budget budget(std::chrono::nanoseconds(0));
    EXPECT_FALSE(budget.takeUnnamed());
    budget.countStepLimit();
    budget.countStepLimit();
    EXPECT_TRUE(budget.takeUnnamed());
    EXPECT_FALSE(budget.takeUnnamed());
    EXPECT_EQ(budget.stepLimited(), 2U);
}

TEST(Budget, NamesABoundedNumberOfRulesOnceEach) {
    Budget budget(std::chrono::nanoseconds(0));
    for (const char *name : {"B", "A", "B"}) {
        budget.addStepLimitedRule(name);
    }
    EXPECT_EQ(budget.stepLimitedRules(), (std::vector<std::string>{"B", "A"}));
    for (std::size_t i = 0; i < Budget::kMaxNamedRules; ++i) {
        budget.addStepLimitedRule("RULE" + std::to_string(i));
    }
    EXPECT_EQ(budget.stepLimitedRules().size(), Budget::kMaxNamedRules);
}

} // namespace
} // namespace Corvane
