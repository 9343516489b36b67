#include "heuristic/RuleFilter.h"

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "heuristic/RuleIndex.h"
#include "heuristic/Scanner.h"
#include "host/regex/Expression.h"
#include "support/Message.h"
#include "support/RuleSet.h"
#include "support/Rules.h"

namespace Corvane::Heuristic {
namespace {

constexpr std::uint64_t kPlenty = std::uint64_t{1} << 40;

RuleFilter::Source s_source(const std::string &text) {
    return {text, Regex::kAnyLineEnd};
}

TEST(RuleFilter, LooksForWhatTheBudgetSufficesFor) {
    const std::vector<RuleFilter::Source> sources{s_source("/zorqing/"), s_source("/[a-z]\\d/"),
                                                  s_source("/(?:viagrax|casinoz)\\d/i")};
    const auto unfiltered = [&](Regex::WorkBudget &budget) {
        return RuleFilter(sources, Regex::TextKind::Text, budget).unfiltered();
    };
    Regex::WorkBudget plenty(kPlenty, kPlenty);
    EXPECT_EQ(unfiltered(plenty), std::vector<std::uint32_t>{1});
    const std::uint64_t steps = kPlenty - plenty.steps();
    for (const std::uint64_t more : {0U, 1U}) {
        Regex::WorkBudget budget(steps + more, kPlenty);
        EXPECT_EQ(unfiltered(budget), std::vector<std::uint32_t>{1});
        EXPECT_EQ(budget.steps(), more);
    }
    Regex::WorkBudget less(steps - 1, kPlenty);
    EXPECT_EQ(unfiltered(less), (std::vector<std::uint32_t>{1, 2}));
    Regex::WorkBudget none;
    EXPECT_EQ(unfiltered(none), (std::vector<std::uint32_t>{0, 1, 2}));
}

// A rule of many words, none of which another one has.
std::string s_listOfWords(std::size_t number) {
    std::string list = "/(?:";
    for (std::size_t i = 0; i < 200; ++i) {
        std::size_t seed = number * 1000 + i + 1;
        for (int letter = 0; letter < 6; ++letter) {
            seed = seed * 6364136223846793005U + 1442695040888963407U;
            list += static_cast<char>('a' + (seed >> 33U) % 26);
        }
        list += i == 199 ? "zq" + std::to_string(number) + ")/" : "|";
    }
    return list;
}

// An automaton of thousands of cells.
std::string s_window(std::size_t number) {
    return std::string("/") + "mpucdl"[number % 6] + ".{0,40}[k-m].{0," +
           std::to_string(20 + number) + "}[0-9]/";
}

struct Hostile {
    const char *name;
    std::string (*pattern)(std::size_t number);
};

void PrintTo(const Hostile &row, std::ostream *out) {
    *out << row.name;
}

class HostileSet : public testing::TestWithParam<Hostile> {
protected:
    static constexpr std::size_t kRules = 60;

    HostileSet() {
        std::string rules;
        for (std::size_t i = 0; i < kRules; ++i) {
            rules += "body R" + std::to_string(i) + ' ' + GetParam().pattern(i) + '\n';
        }
        scanner_ = Scanner(set_.add("a.cf", rules).path());
    }

    // Which of the rules are looked for by a literal, or have an automaton.
    static std::vector<bool> prepared(const RuleIndex &index) {
        const RuleFilter &filter = *index.of(Rule::Body).filter;
        std::vector<bool> prepared(kRules, true);
        for (const std::uint32_t pattern : filter.unfiltered()) {
            prepared[pattern] = filter.hasAutomaton(pattern);
        }
        return prepared;
    }

    Names scan(const std::string &text, bool verbose) {
        Message message;
        message.text("", text);
        RefMatches matches = RefMatches::create();
        testing::internal::CaptureStdout();
        scanner_.process(matches, message.properties(), EmailAddress(), 0, verbose);
        testing::internal::GetCapturedStdout();
        return namesOf(*matches);
    }

    RuleSet set_;
    Scanner scanner_;
};

TEST_P(HostileSet, IsPreparedAsFarAsTheBudgetSuffices) {
    const RuleIndex index(scanner_.rules());
    const RuleIndex again(scanner_.rules());
    const std::vector<bool> first = prepared(index);
    EXPECT_TRUE(first.front());
    EXPECT_FALSE(first.back());
    EXPECT_EQ(first, prepared(again));
    EXPECT_EQ(index.memoryBytes(), again.memoryBytes());
    constexpr std::size_t kOtherBytes = 4096;
    EXPECT_LE(index.memoryBytes(), kRules * (RuleIndex::kRuleTableBytes + kOtherBytes));
}

TEST_P(HostileSet, IsScannedLikeAWalk) {
    for (const char *text :
         {"no such word\n", "a mk 3 p l 7\nf d u lk 33 zq1\n", "c dozq59 l 3\n"}) {
        EXPECT_EQ(scan(text, false), scan(text, true)) << text;
    }
}

INSTANTIATE_TEST_SUITE_P(Sets, HostileSet,
                         testing::Values(Hostile{"lists", s_listOfWords},
                                         Hostile{"windows", s_window}),
                         [](const auto &row) { return std::string(row.param.name); });

} // namespace
} // namespace Corvane::Heuristic
