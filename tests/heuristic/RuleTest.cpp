#include "heuristic/Rule.h"

#include <algorithm>
#include <functional>
#include <sstream>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "heuristic/BodyRule.h"
#include "heuristic/FullRule.h"
#include "heuristic/HeaderRule.h"
#include "heuristic/MetaRule.h"
#include "heuristic/RawBodyRule.h"
#include "heuristic/UriRule.h"
#include "support/Expect.h"
#include "support/Rules.h"

namespace Corvane::Heuristic {
namespace {

RefRule bodyRule(const std::string &name, const std::string &score = "1.0") {
    return makeRule(Rule::Body, name, "/x/", score);
}

TEST(Rule, PrefixMakesSubrule) {
    EXPECT_TRUE(Rule(Rule::Body, "__X").metasubrule());
    EXPECT_TRUE(Rule(Rule::Body, "__").metasubrule());
    EXPECT_FALSE(Rule(Rule::Body, "_X").metasubrule());
    EXPECT_FALSE(Rule(Rule::Body, "X__").metasubrule());
    EXPECT_EQ(Rule().type(), Rule::None);
    EXPECT_EQ(Rule().ordinal(), 0U);
}

TEST(Rule, IsActiveWithScoreOrUse) {
    EXPECT_FALSE(bodyRule("A", "")->active());
    EXPECT_FALSE(bodyRule("A", "0")->active());
    EXPECT_TRUE(bodyRule("A", "-1")->active());
    EXPECT_FALSE(bodyRule("__A", "5")->active());
    const RefRule used = bodyRule("__A", "");
    used->used(true);
    EXPECT_TRUE(used->active());
}

TEST(Rule, KeepsItsFirstAnswer) {
    const RefRule rule = bodyRule("A", "");
    EXPECT_FALSE(rule->active());
    rule->score(RefScore("3"));
    EXPECT_FALSE(rule->active());
}

TEST(Rule, ManyThreadsMayAskFirst) {
    const RefRule rule = bodyRule("A");
    std::thread other([rule] { EXPECT_TRUE(rule->active()); });
    EXPECT_TRUE(rule->active());
    other.join();
}

TEST(RefRule, ComparesByName) {
    const RefRule null;
    EXPECT_TRUE(null == RefRule());
    EXPECT_FALSE(null < RefRule());
    EXPECT_TRUE(null < bodyRule("A"));
    EXPECT_FALSE(bodyRule("A") < null);
    EXPECT_FALSE(bodyRule("A") == null);
    const RefRule raw = makeRule(Rule::RawBody, "ABC", "/y/", "7");
    EXPECT_TRUE(bodyRule("ABC") == raw);
    EXPECT_FALSE(bodyRule("ABC") < raw);
    EXPECT_TRUE(raw < bodyRule("ABCD"));
    EXPECT_TRUE(bodyRule("B") < bodyRule("a"));
    EXPECT_TRUE(bodyRule("a") < bodyRule("\xC3\xA4"));
}

TEST(RefRule, BuildsKindsThatExist) {
    EXPECT_NE(dynamic_cast<HeaderRule *>(RefRule(Rule::Header, "A").operator->()), nullptr);
    EXPECT_NE(dynamic_cast<UriRule *>(RefRule(Rule::Uri, "A").operator->()), nullptr);
    EXPECT_NE(dynamic_cast<BodyRule *>(RefRule(Rule::Body, "A").operator->()), nullptr);
    EXPECT_NE(dynamic_cast<RawBodyRule *>(RefRule(Rule::RawBody, "A").operator->()), nullptr);
    EXPECT_NE(dynamic_cast<FullRule *>(RefRule(Rule::Full, "A").operator->()), nullptr);
    EXPECT_NE(dynamic_cast<MetaRule *>(RefRule(Rule::Meta, "A").operator->()), nullptr);
    for (unsigned int kind = Rule::Header; kind <= Rule::Meta; ++kind) {
        const RefRule rule(static_cast<Rule::Type>(kind), "A");
        EXPECT_EQ(rule->type(), kind);
        EXPECT_EQ(rule->name(), "A");
    }
    for (const unsigned int kind : {0U, 7U}) {
        expectFailure([kind] { RefRule(static_cast<Rule::Type>(kind), "A"); },
                      {"Heuristic::Rule", 2, "Rule", kAnyLine, {"Unhandled rule type"}});
    }
}

TEST(RefRuleList, CopiesSharesAndErases) {
    RefRuleList list = RefRuleList::create();
    for (const char *name : {"A", "B", "A"}) {
        list.add(bodyRule(name));
    }
    list.add(RefRule());
    RefRuleList shared(list, false);
    RefRuleList own(list, true);
    EXPECT_EQ(own->begin()->operator->(), list->begin()->operator->());

    own.erase(bodyRule("B"));
    shared.erase(makeRule(Rule::RawBody, "A", "/z/"));
    EXPECT_EQ(namesOf(*own), (Names{"A", "A", "(null)"}));
    EXPECT_EQ(namesOf(*list), (Names{"B", "A", "(null)"}));

    list->push_front(RefRule());
    EXPECT_FALSE(list.find("A").isNull());
    EXPECT_TRUE(list.find("a").isNull());
    list.erase(bodyRule("missing"));
    EXPECT_EQ(list->size(), 4U);
    EXPECT_THROW(list.erase(RefRule()), Exception);
}

TEST(RefRuleList, NullHandleIsHarmlessToRead) {
    RefRuleList null;
    EXPECT_TRUE(RefRuleList(null, true).isNull());
    EXPECT_TRUE(RefRuleList(null, false).isNull());
    EXPECT_TRUE(null.find("A").isNull());
    null.erase(RefRule());
    EXPECT_THROW(null.add(RefRule()), Exception);
}

TEST(RefRuleList, HandleThatHoldsNoListIsRefused) {
    struct Hollow : RefRuleList {
        Hollow() { Ref<RuleList>::operator=(Ref<RuleList>(static_cast<RuleList *>(nullptr))); }
    };
    Hollow hollow;
    EXPECT_EQ(hollow.operator->(), nullptr);
    const std::function<void()> uses[] = {
        [&] { RefRuleList(hollow, true); }, [&] { hollow.find("A"); }, [&] { *hollow; },
        [&] { hollow.erase(bodyRule("A")); }, [&] { hollow.add(bodyRule("A")); }};
    for (const auto &use : uses) {
        expectFailure(use, {"RefRuleList", 4, "Rule", kAnyLine, {"the handle holds no list"}});
    }
}

TEST(RefMatches, CountsEachNameOnce) {
    RefMatches matches = RefMatches::create();
    EXPECT_FALSE(matches.add(bodyRule("A", "2")));
    EXPECT_FALSE(matches.add(makeRule(Rule::RawBody, "A", "/x/", "5")));
    EXPECT_FALSE(matches.add(bodyRule("__S", "")));
    EXPECT_EQ(namesOf(*matches), (Names{"A", "__S"}));
    EXPECT_EQ(matches.score(false), 2.0F);
    EXPECT_FALSE(matches->tripped());
}

TEST(RefMatches, TripsAboveThresholdAndStays) {
    RefMatches matches = RefMatches::create();
    matches->threshold(5.0F);
    EXPECT_FALSE(matches.add(bodyRule("A", "5")));
    EXPECT_TRUE(matches.add(bodyRule("B", "0.5")));
    EXPECT_FALSE(matches.add(bodyRule("B", "0.5")));
    EXPECT_TRUE(matches.add(bodyRule("C", "-3")));
    EXPECT_EQ(matches.score(true), 2.5F);
    EXPECT_FALSE(matches->tripped());
}

TEST(RefMatches, NegativeThresholdTripsAnEmptySet) {
    const RefMatches matches = RefMatches::create();
    matches->threshold(-1.0F);
    EXPECT_TRUE(matches->tripped());
}

TEST(RefMatches, ZeroTotalIsSummedAgain) {
    RefMatches matches = RefMatches::create();
    const RefRule rule = bodyRule("A", "0");
    matches.add(rule);
    rule->score(RefScore("7.5"));
    EXPECT_EQ(matches.score(false), 7.5F);
    rule->score(RefScore("1"));
    EXPECT_EQ(matches.score(false), 7.5F);
    EXPECT_EQ(matches.score(true), 1.0F);
}

TEST(RefMatches, MissingScoreThrowsButKeepsTheRule) {
    RefMatches matches = RefMatches::create();
    const ExpectedFailure fromAdd{"Heuristic::Matches", 4, "Rule", kAnyLine, {"A score is NULL"}};
    expectFailure([&] { matches.add(bodyRule("A", "")); }, fromAdd);
    EXPECT_EQ(namesOf(*matches), Names{"A"});
    expectFailure([&] { (void)matches.score(true); },
                  {"ScoreAccumulator", 4, "Rule", kAnyLine, {"A score is NULL"}});
    float total = 0.0F;
    expectFailure(
        [&] {
            ScoreAccumulator accumulate(&total);
            accumulate(RefRule());
        },
        {"ScoreAccumulator", 4, "Rule", kAnyLine, {"Rule is Null"}});
}

TEST(RefMatches, NullHandleAnswersNothing) {
    RefMatches null;
    EXPECT_FALSE(null.add(bodyRule("A")));
    EXPECT_TRUE(null.find("A").isNull());
    EXPECT_EQ(null.score(true), 0.0F);
    expectFailure([&] { (void)null->tripped(); }, {"operator->", 1, "TesselRefcounted"});
}

TEST(RuleContainer, MakesEachListOnce) {
    const RuleContainer rules;
    RefRuleList &list = rules.bodyRules(CN);
    EXPECT_FALSE(list.isNull());
    list.add(bodyRule("A"));
    EXPECT_EQ(&rules.bodyRules(CN), &list);
    EXPECT_EQ(&rules.rules(CN, Rule::Body), &list);
    EXPECT_TRUE(rules.rawBodyRules(CN)->empty());
    EXPECT_TRUE(rules.bodyRules(DEFAULT)->empty());
}

TEST(RuleContainer, RefusesWhatIsNoLanguageOrKind) {
    const RuleContainer rules;
    const ExpectedFailure failure{
        "getRules", 4, "Rule", kAnyLine, {"Rule language is out of range"}};
    for (const int language : {-1, 6, 7}) {
        const auto outside = static_cast<langID>(language);
        expectFailure([&] { rules.metaRules(outside); }, failure);
        expectFailure([&] { (void)rules.find("", outside, false); }, failure);
    }
    expectFailure([&] { rules.rules(CN, Rule::None); },
                  {"getRules", 2, "Rule", kAnyLine, {"Unhandled rule type"}});
}

TEST(RuleContainer, FindsByOrderOfKinds) {
    const RuleContainer rules;
    // From the last kind searched to the first, each hides those before it.
    for (unsigned int kind = Rule::Meta; kind >= Rule::Header; --kind) {
        rules.rules(CN, static_cast<Rule::Type>(kind)).add({static_cast<Rule::Type>(kind), "X"});
        EXPECT_EQ(rules.find("X", CN, false)->type(), kind);
        EXPECT_EQ(rules.find("X", CN, true).isNull(), kind > Rule::RawBody);
    }
    EXPECT_TRUE(rules.find("", CN, false).isNull());
    EXPECT_TRUE(rules.find("X", JP, false).isNull());
}

TEST(Buffer, IsWrittenToStreamsAsBytes) {
    std::ostringstream out;
    out.width(10);
    out << viewOf(std::string("a\0b", 3)) << Buffer();
    EXPECT_EQ(out.str(), std::string("a\0b", 3));
}

} // namespace
} // namespace Corvane::Heuristic
