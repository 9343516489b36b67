#include "heuristic/BodyRule.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "heuristic/RawBodyRule.h"
#include "support/CheckFixture.h"
#include "support/Expect.h"
#include "support/LogCapture.h"
#include "support/Rules.h"

namespace Corvane::Heuristic {
namespace {

TEST(BodyRule, CompilesTrimmedButStoresAsWritten) {
    const RefRule rule = makeRule(Rule::Body, "A", " \t/^a b$/i \r");
    EXPECT_EQ(rule->value(), " \t/^a b$/i \r");
    EXPECT_TRUE(static_cast<const BodyRule &>(*rule).matches(viewOf("A B")));
}

TEST(BodyRule, NeverMatchesWithoutScore) {
    const RefRule rule = makeRule(Rule::Body, "A", "/a/", "");
    EXPECT_FALSE(static_cast<const BodyRule &>(*rule).matches(viewOf("a")));
}

TEST(BodyRule, EvalIsStoredLoggedAndNeverMatches) {
    LogCapture log;
    const RefRule rule = makeRule(Rule::Body, "A", "/some/");
    rule->value("eval:some_test()");
    EXPECT_EQ(rule->value(), "eval:some_test()");
    EXPECT_FALSE(static_cast<const BodyRule &>(*rule).matches(viewOf("eval:some_test()")));
    EXPECT_EQ(log.records,
              (std::vector<LogRecord>{{0x300002F, " "}, {0x3000032, "eval:some_test()"}}));
    rule->value("/eval:/");
    EXPECT_TRUE(static_cast<const BodyRule &>(*rule).matches(viewOf("an eval:x")));
}

TEST(BodyRule, BadPatternKeepsFormerOne) {
    const RefRule rule = makeRule(Rule::RawBody, "A", "/a/");
    expectFailure([&] { rule->value("/(/"); }, {"BodyRule::Value", 4, "BodyRule", 42, {"A"}, true});
    EXPECT_EQ(rule->value(), "/a/");
    EXPECT_TRUE(static_cast<const BodyRule &>(*rule).matches(viewOf("a")));
}

TEST(BodyRule, FailingExpressionDoesNotMatch) {
    const RefRule rule = makeRule(Rule::Body, "A", "/^(a+)+$/");
    EXPECT_FALSE(
        static_cast<const BodyRule &>(*rule).matches(viewOf(std::string(2000, 'a') + "!")));
}

class BodyCheckTest : public CheckFixture {
protected:
    explicit BodyCheckTest(Rule::Type kind = Rule::Body) : CheckFixture(kind) {}

    void scan(const std::string &body, unsigned int cutoff = 0, bool verbose = false) {
        BodyCheck(rules_, matches_, cutoff, verbose).check(viewOf(body), kind_ == Rule::RawBody);
    }

    Names traced(const std::string &body) {
        return tracedBy([&] { scan(body, 0, true); });
    }
};

class RawBodyCheckTest : public BodyCheckTest {
protected:
    RawBodyCheckTest() : BodyCheckTest(Rule::RawBody) {}
};

TEST_F(BodyCheckTest, StripsLineEndsOfDecodedTextOnly) {
    rule("WHOLE", "/\\Aabc\\z/");
    rule("EMPTY", "/\\A\\z/");
    scan("\r\n\nabc\r\r\n");
    EXPECT_EQ(tripped(), Names{"WHOLE"});
    EXPECT_EQ(left(), Names{"EMPTY"});
}

TEST_F(RawBodyCheckTest, KeepsLineEnds) {
    rule("CRLF", "/\\Aabc\\r\\n\\z/");
    rule("BLANK", "/\\A\\r\\n\\z/");
    scan("abc\r\n\r\n");
    EXPECT_EQ(tripped(), (Names{"BLANK", "CRLF"}));
}

TEST_F(BodyCheckTest, TriesNothingOnEmptyBody) {
    rule("ANY", "//");
    scan("");
    EXPECT_TRUE(tripped().empty());
}

struct PieceRow {
    const char *name;
    unsigned int length;
    std::vector<unsigned int> pieces;
};

void PrintTo(const PieceRow &row, std::ostream *out) {
    *out << row.name;
}

class BodyCheckPieces : public BodyCheckTest, public testing::WithParamInterface<PieceRow> {};

TEST_P(BodyCheckPieces, CutsLine) {
    for (const unsigned int piece : {1U, 2U, 904U, 2047U, 2048U, 2049U, 5000U}) {
        rule(std::to_string(piece), "/\\A.{" + std::to_string(piece) + "}\\z/s");
    }
    scan(std::string(GetParam().length, 'x') + "\n");
    Names expected;
    for (const unsigned int piece : GetParam().pieces) {
        expected.push_back(std::to_string(piece));
    }
    EXPECT_EQ(tripped(), expected);
}

INSTANTIATE_TEST_SUITE_P(Lengths, BodyCheckPieces,
                         testing::Values(PieceRow{"below", 2047, {2047}},
                                         PieceRow{"atLimit", 2048, {2048}},
                                         PieceRow{"above", 2049, {1, 2048}},
                                         PieceRow{"long", 5000, {2048, 904}}),
                         [](const auto &row) { return std::string(row.param.name); });

TEST_F(RawBodyCheckTest, LineEndMayBeAPieceOfItsOwn) {
    rule("LF", "/\\A\\n\\z/");
    scan(std::string(2047, 'x') + "\r\n");
    EXPECT_EQ(tripped(), Names{"LF"});
}

TEST_F(BodyCheckTest, MatchAcrossCutIsLost) {
    rule("STRADDLES", "/ab/");
    scan(std::string(2047, 'x') + "ab\n");
    EXPECT_TRUE(tripped().empty());
}

TEST_F(BodyCheckTest, UnterminatedRestIsTriedWholeAndErasesNothing) {
    rule("WHOLE", "/\\Ax{5000}\\r\\z/");
    scan("first\n" + std::string(5000, 'x') + "\r");
    EXPECT_EQ(tripped(), Names{"WHOLE"});
    EXPECT_EQ(left(), Names{"WHOLE"});
}

struct LimitRow {
    const char *name;
    bool raw;
    std::vector<std::size_t> lines; // content bytes of the lines before the one in question
    bool read;
};

void PrintTo(const LimitRow &row, std::ostream *out) {
    *out << row.name;
}

class BodyCheckLimit : public BodyCheckTest, public testing::WithParamInterface<LimitRow> {};

TEST_P(BodyCheckLimit, EndsReading) {
    kind_ = GetParam().raw ? Rule::RawBody : Rule::Body;
    std::string body;
    for (const std::size_t length : GetParam().lines) {
        body += std::string(length, 'x') + "\r\n";
    }
    rule("LAST", "/last/");
    scan(body + "last");
    EXPECT_EQ(tripped().empty(), !GetParam().read);
}

INSTANTIATE_TEST_SUITE_P(Totals, BodyCheckLimit,
                         testing::Values(LimitRow{"decodedBelow", false, {2048, 1023}, true},
                                         LimitRow{"decodedAt", false, {2048, 1024}, false},
                                         LimitRow{"decodedCrossed", false, {3071, 1}, false},
                                         LimitRow{"emptyLinesCountNothing", false,
                                                  std::vector<std::size_t>(4000, 0), true},
                                         LimitRow{"rawBelow", true, {32765}, true},
                                         LimitRow{"rawAt", true, {32766}, false},
                                         LimitRow{"rawLineEndsCount", true,
                                                  std::vector<std::size_t>(16384, 0), false}),
                         [](const auto &row) { return std::string(row.param.name); });

TEST_F(BodyCheckTest, ChecksCrossingLineInFull) {
    rule("END", "/end/");
    scan(std::string(3071, 'x') + "\n" + std::string(6000, 'x') + "end\nmore\n");
    EXPECT_EQ(tripped(), Names{"END"});
}

TEST_F(BodyCheckTest, MatchedRuleIsNotTriedAgain) {
    rule("A", "/a/");
    rule("B", "/b/");
    EXPECT_EQ(traced("a\na\nb"), (Names{"A", "B", "B", "B"}));
    EXPECT_EQ(left(), Names{"B"});
    EXPECT_EQ(matches_.score(false), 2.0F);
}

TEST_F(BodyCheckTest, ErasesFirstEntryOfTheName) {
    rule("A", "/never/");
    rule("A", "/a/");
    scan("a\n");
    EXPECT_FALSE(static_cast<const BodyRule &>(**rules_->begin()).matches(viewOf("never")));
    EXPECT_EQ(left(), Names{"A"});
}

TEST_F(BodyCheckTest, StopsWhereTheSetTrips) {
    rule("A", "/x/", "2");
    rule("B", "/x/", "2");
    rule("C", "/x/");
    matches_->threshold(3.0F);
    EXPECT_EQ(traced("x\nx\n"), (Names{"A", "B"}));
    EXPECT_EQ(left(), Names{"C"});
}

TEST_F(BodyCheckTest, CutoffLeavesLaterRulesOut) {
    for (const char *name : {"A", "B", "C"}) {
        rule(name, "/x/");
    }
    rules_->push_front(RefRule());
    scan("x\n", 3);
    EXPECT_EQ(tripped(), (Names{"A", "B"}));
    scan("x\n", 1);
    EXPECT_EQ(left(), (Names{"(null)", "C"}));
    scan("x\n");
    EXPECT_EQ(tripped(), (Names{"A", "B", "C"}));
}

TEST_F(BodyCheckTest, WrapsFailureAndKeepsWhatWasAdded) {
    rule("A", "/x/");
    brokenRule("B", "/x/");
    expectFailure([&] { scan("x\n"); }, {"BodyCheck::body", 4, "BodyRule", 219, {}, true});
    EXPECT_EQ(tripped(), (Names{"A", "B"}));
}

TEST(RawBodyRule, HasItsOwnKind) {
    EXPECT_EQ(RawBodyRule().type(), Rule::RawBody);
    EXPECT_EQ(RawBodyRule("A").name(), "A");
    EXPECT_EQ(BodyRule("A").type(), Rule::Body);
}

} // namespace
} // namespace Corvane::Heuristic
