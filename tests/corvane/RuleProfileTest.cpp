// What single rules cost, as a profile tells it.

#include <map>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "corvane/MessageCollector.h"
#include "corvane/RuleSet.h"

namespace corvane {
namespace {

// One rule of each kind that matches, one that is tried on each line in vain, two of one pattern,
// one that runs out of steps, and one that no text comes near.
const std::string kRules = "header SUBJECT Subject =~ /^hello$/\n"
                           "header THERE exists:Subject\n"
                           "body PRIZE /prize/\nscore PRIZE 2\n"
                           "body UNSEEN /lottery/\n"
                           "body VAIN /^(\\w)(\\w)?\\2\\1$/\n"
                           "rawbody RAW /claim/\n"
                           "uri LINK /claim\\.example/\n"
                           "full LINE /^claim/\n"
                           "body TWIN_A /^(a)?\\1\\d\\d:/\n"
                           "body TWIN_B /^(a)?\\1\\d\\d:/\n"
                           "body STEPS /^(?:a?){60}\\1*(a|b)c?(?:aa?)+$|(x+x+)+y/\n"
                           "meta SUM PRIZE && LINE\n";
const std::string kMessage = "Subject: hello\n\nclaim a prize at http://claim.example/\n"
                             "second line\naa01: third\n" +
                             std::string(300, 'x') + "\n";

std::map<std::string, RuleCost> costsOf(const RuleProfile &profile) {
    std::map<std::string, RuleCost> byName;
    const std::vector<RuleCost> costs = profile.costs();
    const std::vector<Rule> &rules = profile.rules().rules();
    EXPECT_EQ(costs.size(), rules.size());
    for (std::size_t each = 0; each < costs.size(); ++each) {
        byName[rules[each].name] = costs[each];
    }
    return byName;
}

RuleProfile scanned(const RuleSet &rules, const ScanOptions &options, RuleProfile::Times times,
                    int messages = 1) {
    RuleProfile profile(rules, times);
    for (int each = 0; each < messages; ++each) {
        rules.scan(kMessage, options, profile);
    }
    return profile;
}

TEST(RuleProfile, CountsWhatEachRuleTries) {
    // As many more that it is worth while to search for their literals.
    std::string more;
    for (int each = 0; each < 200; ++each) {
        more += "body FILLER" + std::to_string(each) + " /filler" + std::to_string(each) + "\\d/\n";
    }
    const RuleSet rules = RuleSet::fromMemory({{"a.cf", kRules}, {"b.cf", more}});
    RuleProfile profile(rules);
    const Verdict verdict = rules.scan(kMessage, {}, profile);
    const auto costs = costsOf(profile);
    for (const auto &[name, cost] : costs) {
        std::uint64_t hits = 0;
        for (const Hit &hit : verdict.hits()) {
            hits += hit.name == name ? 1U : 0U;
        }
        EXPECT_EQ(cost.matches, hits) << name;
        EXPECT_EQ(cost.tries == 0, cost.bytes == 0 && name != "SUM") << name;
    }
    EXPECT_EQ(verdict.hits().size(), 9U);
    EXPECT_EQ(costs.at("SUM").tries, 1U);
    EXPECT_EQ(costs.at("THERE").tries, 0U) << "no expression";
    EXPECT_EQ(costs.at("UNSEEN").tries, 0U) << "its literal is nowhere";
    EXPECT_EQ(costs.at("TWIN_A").tries, costs.at("TWIN_B").tries);
    EXPECT_GT(costs.at("TWIN_A").tries, 0U);
    EXPECT_GT(costs.at("VAIN").time.count(), 0);
    EXPECT_EQ(costs.at("STEPS").stepLimited, verdict.stepLimited());
    EXPECT_GT(verdict.stepLimited(), 0U);
    EXPECT_EQ(profile.messages(), 1U);
    EXPECT_EQ(profile.scanningTime(), verdict.scanningTime());
    EXPECT_EQ(profile.readingTime(), verdict.readingTime());
}

TEST(RuleProfile, IsTheSameInEachRunAndAddsUp) {
    const RuleSet rules = RuleSet::fromMemory({{"a.cf", kRules}});
    constexpr auto kCounts = RuleProfile::Times::LeftOut;
    const auto once = costsOf(scanned(rules, {}, kCounts));
    RuleProfile sum = scanned(rules, {}, kCounts, 2);
    sum.add(scanned(rules, {}, kCounts));
    MessageCollector collector;
    collector.header("Subject", "hello");
    collector.body(kMessage.substr(kMessage.find("\n\n") + 2));
    collector.finish(rules, sum);
    const auto fourfold = costsOf(sum);
    EXPECT_EQ(sum.messages(), 4U);
    for (const auto &[name, cost] : once) {
        EXPECT_EQ(fourfold.at(name).tries, 4 * cost.tries) << name;
        EXPECT_EQ(fourfold.at(name).bytes, 4 * cost.bytes) << name;
        EXPECT_EQ(fourfold.at(name).matches, 4 * cost.matches) << name;
        EXPECT_EQ(fourfold.at(name).stepLimited, 4 * cost.stepLimited) << name;
        EXPECT_EQ(fourfold.at(name).time.count(), 0) << name;
    }
}

TEST(RuleProfile, CountsEveryTryOfTheTracedWalk) {
    const RuleSet rules = RuleSet::fromMemory({{"a.cf", kRules}});
    ScanOptions options;
    const auto fast = costsOf(scanned(rules, options, RuleProfile::Times::LeftOut));
    options.trace = true;
    testing::internal::CaptureStdout();
    const auto walk = costsOf(scanned(rules, options, RuleProfile::Times::LeftOut));
    const std::string trace = testing::internal::GetCapturedStdout();
    for (const auto &[name, cost] : walk) {
        EXPECT_GE(cost.tries, fast.at(name).tries) << name;
        EXPECT_EQ(cost.matches, fast.at(name).matches) << name;
    }
    // The Subject, and the four lines of the text.
    EXPECT_EQ(walk.at("UNSEEN").tries, 5U);
    EXPECT_THAT(trace, testing::HasSubstr("UNSEEN\n"));
}

TEST(RuleProfile, IsFilledByManyThreads) {
    const RuleSet rules = RuleSet::fromMemory({{"a.cf", kRules}});
    constexpr int kMessages = 20;
    const auto alone = costsOf(scanned(rules, {}, RuleProfile::Times::LeftOut));
    RuleProfile profile(rules);
    const auto work = [&] {
        for (int each = 0; each < kMessages; ++each) {
            rules.scan(kMessage, {}, profile);
        }
    };
    std::thread other(work);
    work();
    other.join();
    EXPECT_EQ(profile.messages(), 2U * kMessages);
    for (const auto &[name, cost] : costsOf(profile)) {
        EXPECT_EQ(cost.tries, 2 * kMessages * alone.at(name).tries) << name;
    }
}

TEST(RuleProfile, IsOfOneSet) {
    const RuleSet rules = RuleSet::fromMemory({{"a.cf", kRules}});
    const RuleSet other = RuleSet::fromMemory({{"a.cf", "body A /x/\n"}});
    RuleProfile profile(rules);
    const RuleSet copy = rules;
    EXPECT_NO_THROW(copy.scan(kMessage, {}, profile));
    EXPECT_THROW(other.scan(kMessage, {}, profile), std::invalid_argument);
    EXPECT_THROW(profile.add(RuleProfile(other)), std::invalid_argument);
    EXPECT_EQ(profile.messages(), 1U);
}

} // namespace
} // namespace corvane
