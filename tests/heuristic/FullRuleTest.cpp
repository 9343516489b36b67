#include "heuristic/FullRule.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/CheckFixture.h"
#include "support/Expect.h"
#include "support/LogCapture.h"

namespace Corvane::Heuristic {
namespace {

bool matches(const RefRule &rule, const std::string &text) {
    return static_cast<const FullRule &>(*rule).matches(viewOf(text));
}

bool matches(const RefRule &rule, const Corvane::Header &header) {
    return static_cast<const FullRule &>(*rule).matches(header);
}

TEST(FullRule, MatchesTextAndWholeHeader) {
    const RefRule rule = makeRule(Rule::Full, "A", " \t/^x: b$/i \r");
    EXPECT_EQ(rule->value(), " \t/^x: b$/i \r");
    EXPECT_TRUE(matches(rule, "X: b\n"));
    EXPECT_TRUE(matches(rule, Corvane::Header("X", "b")));
    // Only LF ends a line.
    EXPECT_FALSE(matches(rule, "X: b\r\n"));
    EXPECT_FALSE(matches(rule, Corvane::Header("X", "c")));
}

TEST(FullRule, MatchesWhetherOrNotItIsActive) {
    const RefRule rule = makeRule(Rule::Full, "A", "/a/", "");
    EXPECT_FALSE(rule->active());
    EXPECT_TRUE(matches(rule, "a"));
}

TEST(FullRule, MissingOrFailingExpressionDoesNotMatch) {
    LogCapture log;
    const RefRule eval = makeRule(Rule::Full, "A", "eval:a");
    EXPECT_EQ(eval->value(), "eval:a");
    EXPECT_FALSE(matches(eval, "eval:a"));
    EXPECT_EQ(log.records, (std::vector<LogRecord>{{0x300002F, " "}}));
    const RefRule exhausting = makeRule(Rule::Full, "A", "/^X: (a+)+$/");
    EXPECT_FALSE(matches(exhausting, "X: " + std::string(2000, 'a') + "!"));
    EXPECT_FALSE(matches(exhausting, Corvane::Header("X", std::string(2000, 'a') + "!")));
    EXPECT_FALSE(FullRule("A").matches(viewOf("a")));
    EXPECT_EQ(FullRule().type(), Rule::Full);
}

TEST(FullRule, BadPatternKeepsFormerOne) {
    const RefRule rule = makeRule(Rule::Full, "A", "/a/");
    expectFailure([&] { rule->value("/(/"); }, {"FullRule::Value", 4, "FullRule", 37, {"A"}, true});
    EXPECT_EQ(rule->value(), "/a/");
    EXPECT_TRUE(matches(rule, "a"));
}

class FullCheckTest : public CheckFixture {
protected:
    FullCheckTest() : CheckFixture(Rule::Full) {}

    FullCheck checker(unsigned int cutoff = 0) { return {rules_, matches_, cutoff, true}; }

    Names traced(const std::string &text, unsigned int cutoff = 0) {
        return tracedBy([&] { checker(cutoff).check(viewOf(text)); });
    }
};

TEST_F(FullCheckTest, TracesAndErasesOnText) {
    rule("A", "/a/");
    rule("B", "/b/");
    EXPECT_EQ(traced("a"), (Names{"A", "B"}));
    EXPECT_EQ(traced("a"), Names{"B"});
    EXPECT_EQ(tripped(), Names{"A"});
    EXPECT_EQ(left(), Names{"B"});
}

TEST_F(FullCheckTest, StopsWhereTheSetTripsButDoesNotAskFirst) {
    for (const char *name : {"A", "B", "C"}) {
        rule(name, "/a/", "2");
    }
    matches_->threshold(3.0F);
    EXPECT_EQ(traced("a"), (Names{"A", "B"}));
    EXPECT_EQ(traced("a"), Names{"C"});
    EXPECT_EQ(tripped(), (Names{"A", "B", "C"}));
}

TEST_F(FullCheckTest, CutoffLeavesLaterRulesOut) {
    rules_.add(RefRule());
    for (const char *name : {"A", "B", "C"}) {
        rule(name, "/a/");
    }
    EXPECT_EQ(traced("a", 2), Names{"A"});
    EXPECT_FALSE(checker(3)(Corvane::Header("a", "")));
    EXPECT_EQ(tripped(), (Names{"A", "B"}));
    EXPECT_EQ(left(), (Names{"(null)", "B", "C"}));
}

TEST_F(FullCheckTest, NeitherTracesNorErasesOnHeaders) {
    rule("A", "/a/");
    rule("B", "/b/");
    rule("C", "/b/");
    const std::list<Corvane::Header> headers = {{"X", "a"}, {"X", "a"}, {"X", "b"}, {"X", "b"}};
    matches_->threshold(1.5F);
    EXPECT_TRUE(tracedBy([&] { checker().check(headers); }).empty());
    EXPECT_EQ(tripped(), (Names{"A", "B"}));
    EXPECT_EQ(matches_.score(false), 2.0F);
    EXPECT_EQ(left(), (Names{"A", "B", "C"}));
    EXPECT_TRUE(checker()(Corvane::Header("X", "b")));
    EXPECT_EQ(tripped(), (Names{"A", "B"}));
}

TEST_F(FullCheckTest, WalksSharedHeaderLists) {
    rule("A", "/^X: a$/");
    RefHeaderList headers(true);
    checker().check(headers);
    EXPECT_TRUE(tripped().empty());
    headers->append({"Y", "a"});
    headers->append({"X", "a"});
    checker().check(headers);
    EXPECT_EQ(tripped(), Names{"A"});
    expectFailure([&] { checker().check(RefHeaderList()); }, {"operator*", 1, "TesselRefcounted"});
}

// Rules that no other kind of check would let into the set.
TEST_F(FullCheckTest, AddsInactiveRules) {
    rule("ZERO", "/a/", "0");
    rule("__UNUSED", "/a/", "");
    rule("NONE", "/a/", "");
    rule("NEXT", "/a/");
    expectFailure([&] { checker().check(viewOf("a")); },
                  {"Heuristic::Matches", 4, "Rule", kAnyLine, {"NONE score is NULL"}});
    EXPECT_EQ(tripped(), (Names{"NONE", "ZERO", "__UNUSED"}));
    EXPECT_EQ(left().size(), 4U);
    expectFailure([&] { (void)matches_.score(false); },
                  {"ScoreAccumulator", 4, "Rule", kAnyLine, {"NONE score is NULL"}});
}

class FullTapTest : public FullCheckTest {
protected:
    // Writes each piece from memory that is overwritten right after the call.
    static bool write(FullTap &tap, const std::vector<std::string> &pieces) {
        bool answer = true;
        for (std::string piece : pieces) {
            answer = tap.write(viewOf(piece)) && answer;
            piece.assign(piece.size(), '#');
        }
        return answer;
    }

    Scanner scanner_;
};

struct PiecesRow {
    const char *name;
    std::vector<std::string> pieces;
    std::vector<std::string> lines; // in the order in which they are named by a set
    bool complete;
};

class FullTapPieces : public FullTapTest, public testing::WithParamInterface<PiecesRow> {};

TEST_P(FullTapPieces, GiveCompleteLines) {
    const std::vector<std::string> candidates = {"\n",      "abc",      "abc\n",
                                                 "abc\r\n", "abcdef\n", "def\n"};
    for (const std::string &line : candidates) {
        rule(line, "/\\A\\Q" + line + "\\E\\z/");
    }
    FullTap tap(scanner_, rules_, matches_, 0, false);
    EXPECT_TRUE(write(tap, GetParam().pieces));
    EXPECT_EQ(tripped(), GetParam().lines);
    EXPECT_EQ(tap.end(), GetParam().complete);
    EXPECT_EQ(left(), candidates);
}

INSTANTIATE_TEST_SUITE_P(
    Writes, FullTapPieces,
    testing::Values(PiecesRow{"nothing", {}, {}, true}, PiecesRow{"noBytes", {""}, {}, true},
                    PiecesRow{"unterminated", {"abc"}, {}, false},
                    PiecesRow{"inTwo", {"abc", "def\n"}, {"abcdef\n"}, true},
                    PiecesRow{"inBytes", {"a", "b", "c", "\r", "\n"}, {"abc\r\n"}, true},
                    PiecesRow{"several", {"abc\n\ndef\nx"}, {"\n", "abc\n", "def\n"}, false},
                    PiecesRow{"acrossLineEnds",
                              {"abc\nde", "f\nabc", "", "def\n"},
                              {"abc\n", "abcdef\n", "def\n"},
                              true}),
    [](const auto &row) { return std::string(row.param.name); });

TEST_F(FullTapTest, TriesMatchedRuleNoMoreAndIgnoresCutoff) {
    rule("A", "/a/");
    rule("B", "/b/");
    FullTap tap(scanner_, rules_, matches_, 1, true);
    EXPECT_EQ(tracedBy([&] { write(tap, {"a\na\nb\nb\n"}); }), (Names{"A", "B", "B", "B"}));
    EXPECT_EQ(tripped(), (Names{"A", "B"}));
}

TEST_F(FullTapTest, TrippedSetEndsTheReading) {
    rule("A", "/a/", "2");
    rule("B", "/b/");
    matches_->threshold(1.0F);
    FullTap tap(scanner_, rules_, matches_, 0, true);
    EXPECT_EQ(tracedBy([&] {
                  EXPECT_TRUE(write(tap, {"x\na\nb\n", "b\n"}));
              }),
              (Names{"A", "B", "A"}));
    EXPECT_EQ(tripped(), Names{"A"});
    EXPECT_FALSE(tap.end());
    // What was pending then is still there once the set is armed anew.
    matches_->threshold(9.0F);
    (void)matches_.score(true);
    EXPECT_TRUE(write(tap, {"c\n"}));
    EXPECT_EQ(tripped(), (Names{"A", "B"}));
    EXPECT_TRUE(tap.end());
}

TEST_F(FullTapTest, PassesFailuresOn) {
    rule("A", "/a/", "");
    FullTap tap(scanner_, rules_, matches_, 0, false);
    expectFailure([&] { write(tap, {"a\n"}); },
                  {"Heuristic::Matches", 4, "Rule", kAnyLine, {"A score is NULL"}});
}

} // namespace
} // namespace Corvane::Heuristic
