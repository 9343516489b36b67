#include "corvane/RuleSetHolder.h"

#include <atomic>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/TempDir.h"

namespace corvane {
namespace {

using Corvane::TempDir;
using Outcome = RuleSetHolder::Outcome;

RuleSet rulesOf(const std::string &text) {
    return RuleSet::fromMemory({{"a.cf", text}});
}

TEST(RuleSetHolder, ReplacesOrKeepsAndSaysWhy) {
    RuleSetHolder holder(rulesOf("body A /x/\n"));
    const std::string first = holder.current().generation();

    const auto failed = holder.reload("/nonexistent");
    EXPECT_EQ(failed.outcome, Outcome::KeptFailed);
    EXPECT_FALSE(failed.replaced());
    EXPECT_THAT(failed.reason, testing::HasSubstr("'/nonexistent' does not exist"));
    EXPECT_EQ(failed.current.generation(), first);

    const TempDir directory;
    const auto empty = holder.reload(directory.path());
    EXPECT_EQ(empty.outcome, Outcome::KeptEmpty);
    EXPECT_EQ(empty.reason, "the new rule set has no rules");
    EXPECT_EQ(holder.current().generation(), first);

    directory.write("a.cf", "body B /y/\n");
    const auto replaced = holder.reload({directory.path()});
    EXPECT_TRUE(replaced.replaced());
    EXPECT_EQ(replaced.reason, "");
    EXPECT_EQ(replaced.former.generation(), first);
    EXPECT_TRUE(replaced.changed());
    EXPECT_FALSE(holder.reload({directory.path()}).changed());
    EXPECT_EQ(holder.current().rules().at(0).name, "B");

    const auto thrown = holder.reload([]() -> RuleSet { throw std::runtime_error("no disk"); });
    EXPECT_EQ(thrown.reason, "no disk");
    EXPECT_THROW(holder.reload([]() -> RuleSet { throw std::bad_alloc(); }), std::bad_alloc);
    EXPECT_EQ(holder.current().rules().at(0).name, "B");
    EXPECT_TRUE(holder.reload([] { return rulesOf("body C /z/\n"); }).replaced())
        << "a failed reload leaves no lock behind";
}

TEST(RuleSetHolder, EmptySetMayFollowAnEmptyOne) {
    RuleSetHolder holder;
    EXPECT_TRUE(holder.current().empty());
    EXPECT_TRUE(holder.reload([] { return rulesOf("# nothing\n"); }).replaced());
}

// Each scan has the verdict of one of the sets, and that of the set it took.
TEST(RuleSetHolder, ScansGoOnBesideReloads) {
    constexpr unsigned int kThreads = 4;
    constexpr int kReloads = 40;
    const TempDir directories[] = {TempDir(), TempDir()};
    std::string generations[2];
    for (int set = 0; set < 2; ++set) {
        std::string text;
        for (int rule = 0; rule < 100; ++rule) {
            text += "body R" + std::to_string(rule) + " /word" + std::to_string(rule) + "/\n";
        }
        text += "score R7 " + std::to_string(set + 2) + "\nfull LINE /word7/\n";
        directories[set].write("a.cf", text);
        generations[set] = RuleSet::load(directories[set].path()).generation();
    }
    const std::string message = "Subject: x\n\nword7\n";
    RuleSetHolder holder(RuleSet::load(directories[0].path()));
    std::atomic<bool> done{false};
    std::atomic<unsigned int> scans{0};
    std::atomic<unsigned int> wrong{0};
    std::vector<std::thread> threads;
    for (unsigned int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&] {
            do {
                const RuleSet rules = holder.current();
                const Verdict verdict = rules.scan(message);
                const float expected = rules.generation() == generations[0] ? 3.0F : 4.0F;
                wrong += verdict.score() == expected ? 0U : 1U;
                ++scans;
            } while (!done);
        });
    }
    unsigned int replaced = 0;
    for (int reload = 0; reload < kReloads; ++reload) {
        replaced += holder.reload(directories[(reload + 1) % 2].path()).replaced() ? 1U : 0U;
        holder.reload("/nonexistent");
    }
    done = true;
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(replaced, static_cast<unsigned int>(kReloads));
    EXPECT_GE(scans, kThreads);
    EXPECT_EQ(wrong, 0U);
}

} // namespace
} // namespace corvane
