#include "heuristic/MetaRule.h"

#include <cmath>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/CheckFixture.h"
#include "support/Expect.h"
#include "support/LogCapture.h"
#include "support/MetaReference.h"

namespace Corvane::Heuristic {
namespace {

const MetaRule &asMetaRule(const RefRule &rule) {
    return static_cast<const MetaRule &>(*rule);
}

RefMatches trippedSet(const Names &names) {
    RefMatches matches = RefMatches::create();
    for (const std::string &name : names) {
        matches.add(makeRule(Rule::Body, name, "/x/"));
    }
    return matches;
}

// The names are separated by one blank each.
Names split(const std::string &text) {
    Names names;
    std::istringstream words(text);
    for (std::string name; std::getline(words, name, ' ');) {
        names.push_back(name);
    }
    return names;
}

struct ExpressionRow {
    const char *expression;
    const char *tripped;
    bool expected;
};

void PrintTo(const ExpressionRow &row, std::ostream *out) {
    *out << '\'' << row.expression << "' with '" << row.tripped << '\'';
}

class MetaRuleExpression : public testing::TestWithParam<ExpressionRow> {};

TEST_P(MetaRuleExpression, IsDecided) {
    const LogCapture log;
    const RefRule rule = makeRule(Rule::Meta, "M", GetParam().expression);
    EXPECT_EQ(rule->value(), GetParam().expression);
    EXPECT_EQ(asMetaRule(rule).matches(trippedSet(split(GetParam().tripped))), GetParam().expected);
    EXPECT_TRUE(log.records.empty());
}

const ExpressionRow kBoolean[] = {
    {"", "", false},
    {" \t ", "", false},
    {"A", "A", true},
    {"A", "", false},
    {"\tA&&B ", "A B", true},
    {"A && !B", "A", true},
    {"A && !B", "A B", false},
    {"!(A||B)", "", true},
    {"!(A||B)", "B", false},
    {"!!A", "A", true},
    // && and || group from the left.
    {"A || B && D", "A", false},
    {"A || B && D", "A D", true},
    {"A || (B && D)", "A", true},
    {"(A || B) && (D || E)", "B E", true},
    {"(A || B) && (D || E)", "A B", false},
    {"!(A)(B)", "B", true},
    // Operands without an operator, and operators without an operand.
    {"A B", "A", false},
    {"A B", "B", true},
    {"(A)(B)", "A", false},
    {"(A) B", "A", false},
    {"A || B D", "A", true},
    {"A && B D", "D", false},
    {"A || && B", "A", false},
    {"&& A", "A", false},
    {"!&& A", "A", true},
    {"()", "", false},
    {"!()", "", true},
    // A stray parenthesis ends the evaluation.
    {"A) && B", "A", true},
    {"A || (B)) && (D", "A", true},
    {"!)", "", true},
    // Names end at few characters.
    {"A*B", "A*B", true},
    {"3*B", "", false},
    {"A == 1", "1", true},
    {"A=1.5/2", "A=1.5/2", true},
    {"A && B\r", "A B", false},
    {"A && B\r", "A B\r", true},
    {"A\n!\xC3\xA4", "A\n", true},
    // A number is a name.
    {"3", "", false},
    {"3", "3", true},
};

const ExpressionRow kArithmetic[] = {
    {"3 > 2", "", true},
    {"3 > 2", "3", false},
    {"A<=3", "", true},
    {"A>=1", "", false},
    {"A>=1", "A", true},
    {"A<B", "B", true},
    {"A + B + D >= 2", "A D", true},
    {"A + B + D >= 2", "A", false},
    {"A - B", "A B", false},
    {"!A + B", "A", false},
    {"!A + B", "", true},
    {"!!A + 0", "A", true},
    {"FOO > 0", "", false},
    {"FOO > 0", "FOO", true},
    // * and / bind to what stands next to them, all else goes from left to right.
    {"(A + B) * 2 > 3", "A B", true},
    {"(A + B) * 2 > 3", "A", false},
    {"1 + 2 * 3 >= 7", "", true},
    {"1 + 2 * 3 > 7", "", false},
    {"8 / 2 / 2 > 1", "", true},
    {"8 / 2 / 2 > 2", "", false},
    {"1 < 2 + 5 >= 6", "", true},
    {"1 < 2 + 5 > 6", "", false},
    {"A + B && D", "A D", true},
    {"A + B && D", "D", false},
    {"A && B + D", "D", true},
    {"-1 < A", "", true},
    // A group as the right side of * is not multiplied.
    {"3 * (1 + 2) >= 3", "", true},
    {"3 * (1 + 2) > 3", "", false},
    // A name after && or || takes the parenthesis of its group along.
    {"10 - (A && B + 2) > 8", "A B", true},
    {"10 - (0 + 2) > 8", "A B", false},
    // An operator replaces one that still waits, and drops a name that it can not apply to.
    {"1 > -1", "", false},
    {"1 && < 2", "", true},
    {"1 && + 2 > 1", "", false},
    {"(1 &&) 2 > 0", "", false},
    {"2 * && 3", "", false},
    {"1 +", "", true},
    {"0 + 0 !", "", false},
    {"(* 2)", "", false},
    {"/", "", false},
    // Parentheses that are not in pairs.
    {"1 + (2", "", true},
    {"5 + (0", "", false},
    {"1 + 2) > 2", "", true},
    {") + 0", "", false},
    // Infinity and NaN are kept, and are true.
    {"1 / 0 > 5", "", true},
    {"0 / 0", "", true},
    {"0 / 0 > 5", "", false},
    {"0 / 0 <= 5", "", false},
    {"!(0 / 0)", "", false},
    // Blanks decide what is a name, and a name is the number that it begins with.
    {"A*B + 0", "A*B", true},
    {"3*B + 0", "", true},
    {"1/0 > 1", "", false},
    {"A* B + 0", "A*", false},
    {"3abc > 2", "", true},
    {"2.5 > 2.4", "", true},
    {"1e400 + 0", "", false},
    {"nan + 0", "", false},
    {"16777216 + 1 > 16777216", "", false},
};

INSTANTIATE_TEST_SUITE_P(Boolean, MetaRuleExpression, testing::ValuesIn(kBoolean));
INSTANTIATE_TEST_SUITE_P(Arithmetic, MetaRuleExpression, testing::ValuesIn(kArithmetic));

struct FailingRow {
    const char *name;
    std::string expression;
    const char *logged;
};

void PrintTo(const FailingRow &row, std::ostream *out) {
    *out << '\'' << row.expression << '\'';
}

class MetaRuleFailing : public testing::TestWithParam<FailingRow> {};

TEST_P(MetaRuleFailing, IsLoggedAndFalse) {
    const LogCapture log;
    const RefRule rule = makeRule(Rule::Meta, "M", GetParam().expression);
    EXPECT_FALSE(asMetaRule(rule).matches(trippedSet({"A"})));
    ASSERT_EQ(log.records.size(), 1U);
    EXPECT_EQ(log.records[0].id, 0x3000031U);
    const std::string expected = std::string("M\x01") + GetParam().logged;
    EXPECT_EQ(log.records[0].text.substr(0, expected.size()), expected);
}

constexpr const char *kIncomplete = "MetaRuleBooleanEvaluator [4 MetaRule:";
constexpr const char *kNoLeftOperand = "MetaRuleArithmeticEvaluator [4 MetaRule:242]";

INSTANTIATE_TEST_SUITE_P(
    Cases, MetaRuleFailing,
    testing::Values(FailingRow{"openGroup", "(A", kIncomplete},
                    FailingRow{"openAtEnd", "A && (", kIncomplete},
                    FailingRow{"negationAtEnd", "A || !", kIncomplete},
                    FailingRow{"innerOpen", "(A && (A)", kIncomplete},
                    // Every parenthesis has its partner, but the negation takes the last one.
                    FailingRow{"negationTakesTheEnd", "(A && !)", kIncomplete},
                    FailingRow{"tooDeep", std::string(1001, '!') + "A", kIncomplete},
                    FailingRow{"tooDeepGroups",
                               std::string(1001, '(') + "A" + std::string(1001, ')'), kIncomplete},
                    FailingRow{"product", "* 2", kNoLeftOperand},
                    FailingRow{"quotient", "/ 2", kNoLeftOperand}),
    [](const auto &row) { return std::string(row.param.name); });

TEST(MetaRule, FollowsNestingToItsLimit) {
    const LogCapture log;
    const RefMatches set = trippedSet({"A"});
    const unsigned int limit = MetaRuleBooleanEvaluator::kMaxDepth;
    EXPECT_TRUE(asMetaRule(makeRule(Rule::Meta, "M", std::string(limit, '!') + "A")).matches(set));
    EXPECT_TRUE(asMetaRule(makeRule(Rule::Meta, "M",
                                    std::string(limit, '(') + "A" + std::string(limit, ')')))
                    .matches(set));
    EXPECT_TRUE(log.records.empty());
}

TEST(MetaRule, RefusesHalfAnOperator) {
    const struct {
        const char *expression;
        unsigned int line;
    } rows[] = {{"A & B", 143}, {"A &", 143},  {"A &| B", 143}, {"A | B", 154},
                {"A |", 154},   {"A |&", 154}, {"A\aB", 160},   {"A \a", 160}};
    for (const auto &row : rows) {
        const RefRule rule = makeRule(Rule::Meta, "M", "__OLD");
        expectFailure([&] { rule->value(row.expression); },
                      {"MetaRule::value", 4, "MetaRule", row.line, {row.expression}});
        EXPECT_EQ(rule->value(), "__OLD");
        // What stands before the fault has been appended.
        EXPECT_TRUE(asMetaRule(rule).matches(trippedSet({"A"}))) << row.expression;
    }
}

TEST(MetaRule, AppendsToTheFormerExpression) {
    const RefRule rule = makeRule(Rule::Meta, "M", "A && __B");
    rule->value("&& !__C");
    EXPECT_EQ(rule->value(), "&& !__C");
    EXPECT_TRUE(asMetaRule(rule).matches(trippedSet({"A", "__B"})));
    EXPECT_FALSE(asMetaRule(rule).matches(trippedSet({"A"})));
    EXPECT_EQ(asMetaRule(rule).names(), (std::set<std::string>{"__B", "__C"}));
    rule->value("> 0");
    EXPECT_TRUE(asMetaRule(rule).matches(trippedSet({"A", "__B"})));
}

TEST(MetaRule, NamesSubrules) {
    const RefRule rule = makeRule(Rule::Meta, "M", "__SUB1 && (__X||!X__) && __ && ___ && _Y__Z");
    EXPECT_EQ(asMetaRule(rule).names(), (std::set<std::string>{"__SUB1", "__X", "___"}));
}

TEST(MetaRule, NeverMatchesWhenInactive) {
    EXPECT_FALSE(asMetaRule(makeRule(Rule::Meta, "M", "3 > 2", "")).matches(trippedSet({})));
    EXPECT_FALSE(asMetaRule(makeRule(Rule::Meta, "__M", "!A")).matches(trippedSet({})));
    EXPECT_EQ(MetaRule().type(), Rule::Meta);
    EXPECT_EQ(MetaRule("M").name(), "M");
}

TEST(MetaRuleAtom, HoldsWhatItsTypeSays) {
    using Atom = MetaRule::Atom;
    EXPECT_EQ(Atom().type(), 0U);
    EXPECT_EQ(Atom('L').type(), 1U);
    EXPECT_EQ(Atom('L').opvalue(), 'L');
    EXPECT_EQ(Atom(std::string("A")).type(), 2U);
    EXPECT_EQ(Atom(std::string("A")).strvalue(), "A");
    EXPECT_EQ(Atom(2.5F).type(), 3U);
    EXPECT_EQ(Atom(2.5F).value(), 2.5F);
    EXPECT_EQ(Atom(2.5F).opvalue(), 0);
    EXPECT_EQ(Atom('L').value(), 0.0F);
}

TEST(MetaRuleArithmeticEvaluator, ReadsAtomsAndAnEmptyStack) {
    const std::list<MetaRule::Atom> none;
    const RefMatches set = trippedSet({"7"});
    MetaRuleArithmeticEvaluator evaluator(none.begin(), none.end(), set);
    EXPECT_EQ(evaluator.atomToFloat(MetaRule::Atom(std::string("7"))), 1.0F);
    EXPECT_EQ(evaluator.atomToFloat(MetaRule::Atom(std::string("-2.5x"))), -2.5F);
    EXPECT_EQ(evaluator.atomToFloat(MetaRule::Atom(std::string("x"))), 0.0F);
    EXPECT_EQ(evaluator.atomToFloat(MetaRule::Atom('*')), 0.0F);
    EXPECT_EQ(evaluator.atomToFloat(MetaRule::Atom(2.5F)), 2.5F);
    EXPECT_FALSE(evaluator());
    EXPECT_EQ(evaluator.calculate(), 0.0F);
    expectFailure([&] { (void)evaluator.lastValue(); },
                  {"MetaRuleArithmeticEvaluator", 4, "MetaRule", 242});
}

TEST(MetaRule, AgreesWithTheReferenceOnRandomExpressions) {
    constexpr unsigned int kExpressions = 20000;
    MetaExpressionGenerator generator(1);
    unsigned int outcomes[3] = {};
    for (unsigned int i = 0; i < kExpressions; ++i) {
        const MetaTokens tokens = generator.expression();
        const std::set<std::string> tripped = generator.tripped();
        LogCapture log;
        const RefRule rule = makeRule(Rule::Meta, "M", joined(tokens));
        const RefMatches set = trippedSet(Names(tripped.begin(), tripped.end()));
        const bool matched = asMetaRule(rule).matches(set);
        const MetaOutcome outcome = !log.records.empty() ? MetaOutcome::Failed
                                    : matched            ? MetaOutcome::True
                                                         : MetaOutcome::False;
        ASSERT_EQ(outcome, referenceOutcome(tokens, tripped))
            << joined(tokens) << " with " << testing::PrintToString(tripped);
        ++outcomes[static_cast<unsigned int>(outcome)];
    }
    for (const unsigned int count : outcomes) {
        EXPECT_GT(count, kExpressions / 100);
    }
}

class MetaCheckTest : public CheckFixture {
protected:
    MetaCheckTest() : CheckFixture(Rule::Meta) {
        for (const char *name : {"A", "B"}) {
            matches_.add(makeRule(Rule::Body, name, "/x/"));
        }
    }

    Names traced(unsigned int cutoff = 0) {
        return tracedBy([&] { MetaCheck(rules_, matches_, cutoff, true).check(); });
    }
};

TEST_F(MetaCheckTest, SeesOnlyWhatStandsBefore) {
    EXPECT_TRUE(traced().empty());
    rule("EARLY", "__LATE || M");
    rule("__LATE", "A && B")->used(true);
    rule("M", "__LATE && !EARLY");
    EXPECT_EQ(traced(), (Names{"EARLY", "__LATE", "M"}));
    EXPECT_EQ(tripped(), (Names{"A", "B", "M", "__LATE"}));
    EXPECT_EQ(matches_.score(false), 3.0F);
    // Nothing is erased: a second pass tries them all, with what has tripped since.
    EXPECT_EQ(traced(), (Names{"EARLY", "__LATE", "M"}));
    EXPECT_EQ(tripped(), (Names{"A", "B", "EARLY", "M", "__LATE"}));
}

TEST_F(MetaCheckTest, StopsWhereTheSetTrips) {
    rule("A", "B");
    rule("NO", "!A");
    rule("YES", "A");
    rule("LATER", "A");
    matches_->threshold(1.5F);
    EXPECT_EQ(traced(), (Names{"A", "NO", "YES"}));
    EXPECT_EQ(tripped(), (Names{"A", "B", "YES"}));
}

TEST_F(MetaCheckTest, CutoffLeavesLaterRulesOut) {
    rules_.add(RefRule());
    for (const char *name : {"X", "Y", "Z"}) {
        rule(name, "A");
    }
    EXPECT_EQ(traced(3), (Names{"X", "Y"}));
    EXPECT_EQ(tripped(), (Names{"A", "B", "X", "Y"}));
}

TEST_F(MetaCheckTest, PassesFailuresOn) {
    brokenRule("X", "A");
    expectFailure([&] { MetaCheck(rules_, matches_, 0, false).check(); },
                  {"Heuristic::Matches", 4, "Rule", kAnyLine, {"X score is NULL"}});
}

} // namespace
} // namespace Corvane::Heuristic
