#include "heuristic/UriRule.h"

#include <string>

#include <gtest/gtest.h>

#include "support/CheckFixture.h"
#include "support/Expect.h"
#include "support/LogCapture.h"

namespace Corvane::Heuristic {
namespace {

bool matches(const RefRule &rule, const Corvane::Uri &uri) {
    return static_cast<const UriRule &>(*rule).matches(uri);
}

bool matches(const RefRule &rule, const std::string &uri) {
    return matches(rule, Corvane::Uri(uri));
}

TEST(UriRule, SearchesTheWholeText) {
    const RefRule rule = makeRule(Rule::Uri, "A", " \t/b\\.EXAMPLE/i \r");
    EXPECT_EQ(rule->value(), " \t/b\\.EXAMPLE/i \r");
    EXPECT_TRUE(matches(rule, "http://b.example/"));
    EXPECT_FALSE(matches(rule, "http://bxexample/"));
    EXPECT_FALSE(matches(makeRule(Rule::Uri, "B", "/^http:$/"), "http:\r\n"));
}

TEST(UriRule, EvalIsAPatternLikeAnyOther) {
    const LogCapture log;
    const RefRule rule = makeRule(Rule::Uri, "A", "eval:x");
    EXPECT_TRUE(matches(rule, "http://eval:x@b.example/"));
    EXPECT_TRUE(log.records.empty());
}

TEST(UriRule, NeedsScorePatternAndUri) {
    EXPECT_FALSE(matches(makeRule(Rule::Uri, "A", "/a/", ""), "a"));
    EXPECT_FALSE(matches(makeRule(Rule::Uri, "A", " "), "a"));
    const RefRule rule = makeRule(Rule::Uri, "A", "//");
    EXPECT_TRUE(matches(rule, ""));
    EXPECT_FALSE(matches(rule, Corvane::Uri()));
    EXPECT_FALSE(matches(makeRule(Rule::Uri, "A", "/^(a+)+$/"), std::string(2000, 'a') + "!"));
    EXPECT_EQ(UriRule().type(), Rule::Uri);
    EXPECT_EQ(UriRule("A").name(), "A");
}

TEST(UriRule, BadPatternKeepsFormerOne) {
    const RefRule rule = makeRule(Rule::Uri, "A", "/a/");
    expectFailure([&] { rule->value("/(/"); }, {"UriRule::Value", 4, "UriRule", 45, {"A"}, true});
    EXPECT_EQ(rule->value(), "/a/");
    EXPECT_TRUE(matches(rule, "a"));
}

class UriCheckTest : public CheckFixture {
protected:
    UriCheckTest() : CheckFixture(Rule::Uri) {
        // Sources are visited by number, whatever came first.
        uris_.add(UriContainer::kHtml, Corvane::Uri("html"));
        uris_.add(UriContainer::kHeader, Corvane::Uri("head"));
        uris_.add(UriContainer::kHeader, Corvane::Uri());
        uris_.add(UriContainer::kText, Corvane::Uri("text"));
    }

    Names traced(unsigned int cutoff = 0) {
        UriCheck check(rules_, matches_, cutoff, true);
        return tracedBy([&] { check.check(uris_); });
    }

    UriContainer uris_;
};

TEST_F(UriCheckTest, AddsARuleOnceAndTriesItNoMore) {
    rule("TEXT", "/text/");
    rule("ANY", "//");
    rule("HTML", "/html/");
    EXPECT_EQ(traced(), (Names{"TEXT", "ANY", "HTML", "TEXT", "HTML", "TEXT", "HTML", "HTML"}));
    EXPECT_EQ(tripped(), (Names{"ANY", "HTML", "TEXT"}));
    EXPECT_EQ(matches_.score(false), 3.0F);
    // The list that was erased from is the check's own.
    EXPECT_EQ(left(), (Names{"TEXT", "ANY", "HTML"}));
    UriCheck(rules_, matches_, 0, false).check(UriContainer());
}

TEST_F(UriCheckTest, TrippedSetEndsEachWalkAtItsNextMatch) {
    rule("A", "/head/", "5");
    rule("B", "/head|text/");
    rule("C", "/text/");
    rule("D", "/html/");
    matches_->threshold(3.0F);
    EXPECT_EQ(traced(), (Names{"A", "B", "C", "D", "B", "C", "D"}));
    EXPECT_EQ(tripped(), (Names{"A", "B", "D"}));
}

TEST_F(UriCheckTest, CutoffLeavesLaterRulesOut) {
    for (const char *name : {"A", "B", "C"}) {
        rule(name, "/head/");
    }
    rules_->push_front(RefRule());
    EXPECT_EQ(traced(3), (Names{"A", "B"}));
    EXPECT_EQ(tripped(), (Names{"A", "B"}));
}

TEST_F(UriCheckTest, WrapsFailureAndKeepsWhatWasAdded) {
    rule("A", "/head/");
    brokenRule("B", "/head/");
    brokenRule("C", "/text/");
    UriCheck check(rules_, matches_, 0, false);
    expectFailure([&] { check.check(uris_); }, {"UriCheck::check", 4, "UriRule", 69, {}, true});
    EXPECT_EQ(tripped(), (Names{"A", "B"}));
    expectFailure([&] { check(Corvane::Uri("text")); },
                  {"Heuristic::Matches", 4, "Rule", kAnyLine, {"C score is NULL"}});
}

class FailingContainer : public UriContainer {
public:
    const Sources &sourced() const override {
        throw Exception("sourced", Exception::kGeneral, "UriRuleTest", 0);
    }
};

TEST_F(UriCheckTest, WrapsFailureOfTheContainer) {
    expectFailure([&] { UriCheck(rules_, matches_, 0, false).check(FailingContainer()); },
                  {"UriCheck::check", 4, "UriRule", 69, {}, true});
}

} // namespace
} // namespace Corvane::Heuristic
