#include "heuristic/HeaderRule.h"

#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "heuristic/HeaderPass.h"
#include "support/CheckFixture.h"
#include "support/Expect.h"
#include "support/LogCapture.h"

namespace Corvane::Heuristic {
namespace {

const std::string kCafe = "caf\xC3\xA9";
const std::string kEncodedCafe = "=?utf-8?q?caf=C3=A9?=";
const std::string kUnknownCharset = "=?no-such-charset?Q?a?=";
const std::string kExhausting = std::string(2000, 'a') + "!";

const HeaderRule &asHeaderRule(const RefRule &rule) {
    return static_cast<const HeaderRule &>(*rule);
}

bool matches(const RefRule &rule, const std::string &name, const std::string &value) {
    return asHeaderRule(rule).matches(HeaderRuleParameter(Header(name, value)));
}

struct DefinitionRow {
    const char *name;
    const char *definition;
    const char *header;
    std::string value;
    bool expected;
};

void PrintTo(const DefinitionRow &row, std::ostream *out) {
    *out << '\'' << row.definition << "' on '" << row.header << ": " << row.value << '\'';
}

class HeaderRuleDefinition : public testing::TestWithParam<DefinitionRow> {};

TEST_P(HeaderRuleDefinition, DecidesMatch) {
    const LogCapture log;
    const RefRule rule = makeRule(Rule::Header, "R", GetParam().definition);
    EXPECT_EQ(rule->value(), GetParam().definition);
    EXPECT_EQ(matches(rule, GetParam().header, GetParam().value), GetParam().expected);
}

const DefinitionRow kNames[] = {
    {"caseOfName", "Subject =~ /^hi$/", "sUBJECT", "hi", true},
    {"wholeName", "Subject =~ /hi/", "Subjects", "hi", false},
    {"star", "X-*-Id =~ /a/", "x-mail-id", "a", true},
    {"dotIsLiteral", "X.Id =~ /a/", "X-Id", "a", false},
    {"emptyName", " Subject /a/", "", "Subject /a/", true},
    {"messageId", "MESSAGEID =~ /a/", "resent-message-id", "a", true},
    {"messageIdCase", "MessageId =~ /a/", "Message-Id", "a", false},
    {"toCcTo", "ToCc =~ /a/", "TO", "a", true},
    {"toCcLonger", "ToCc =~ /a/", "Together", "a", true},
    {"toCcInside", "ToCc =~ /a/", "X-Cc", "a", false},
    {"toCcSuffix", "ToCc:addr =~ /a/", "To", "a@b", false},
    {"all", "ALL =~ /^Subject: caf\xC3\xA9$/", "Subject", kEncodedCafe, true},
    {"allSuffix", "ALL:raw =~ /a/", "Subject", "a", false},
    {"exists", "exists:X-Flag", "x-flag", "", true},
    {"existsOther", "exists:X-Flag", "Flag", "a", false},
    {"existsKeepsBlank", "exists: X-Flag", "X-Flag", "a", false},
    {"existsBlankInName", "exists: X-Flag", " X-Flag", "a", true},
    {"existsStar", "exists:X-*", "X-Flag", "a", true},
    {"existsSpecial", "exists:ToCc", "To", "a", false},
    {"existsSuffix", "exists:From:addr", "From", "a@b", false},
};

const DefinitionRow kExpressions[] = {
    {"noOperator", "Subject /a/", "Subject", "bar", true},
    {"noOperatorMiss", "Subject /a/", "Subject", "b", false},
    {"blanks", "Subject \t=~ \t/a/", "Subject", "a", true},
    {"operatorGlued", "Subject =~/a/", "Subject", "a", true},
    {"notMiss", "Subject !~ /a/", "Subject", "b", true},
    {"notHit", "Subject !~ /a/", "Subject", "a", false},
    {"notOtherHeader", "Subject !~ /a/", "From", "b", false},
    {"loneEquals", "Subject =/a/", "Subject", "x=/a/", true},
    {"loneEqualsIsNoOperator", "Subject =/a/", "Subject", "a", false},
    {"loneBang", "Subject !/a/", "Subject", "!/a/", true},
    {"bare", "Subject a b", "Subject", "xa bx", true},
    {"oneCharacter", "Subject a", "Subject", "a", false},
    {"oneBadCharacter", "Subject (", "Subject", "(", false},
    {"empty", "", "", "", false},
    {"nameAlone", "Subject", "Subject", "a", false},
    {"nameBlank", "Subject \t", "Subject", "a", false},
    {"operatorAlone", "Subject =~", "Subject", "a", false},
    {"operatorBlank", "Subject !~ ", "Subject", "a", false},
    {"eval", "eval:test()", "eval:test()", "a", false},
    {"evalInPattern", "Subject =~ /eval:/", "Subject", "eval:x", true},
    {"dotMatchesLineEnd", "Subject =~ /a.b/", "Subject", "a\nb", true},
    {"carriageReturn", "Subject =~ /a/\r", "Subject", "a", true},
    {"ifUnsetBlankKept", "Subject ab [if-unset: x]", "Subject", "ab ", true},
    {"ifUnsetBlankNeeded", "Subject ab [if-unset: x]", "Subject", "ab", false},
    {"ifUnset", "Subject =~ /a/ [if-unset: b]", "Subject", "a", true},
    {"ifUnsetText", "Subject =~ /a/ [if-unset: b]", "Subject", "b", false},
    {"ifUnsetOpen", "Subject =~ /[a]/ [if-unset: x", "Subject", "a", true},
    {"ifUnsetAlone", "Subject =~ [if-unset: x]", "Subject", "x", false},
    {"failing", "Subject =~ /^(a+)+$/", "Subject", kExhausting, false},
    {"failingNot", "Subject !~ /^(a+)+$/", "Subject", kExhausting, false},
};

const DefinitionRow kForms[] = {
    {"decoded", "Subject =~ /^caf\xC3\xA9$/", "Subject", kEncodedCafe, true},
    {"undecodable", "Subject =~ /^=\\?no-such/", "Subject", kUnknownCharset, true},
    {"raw", "Subject:raw =~ /^=\\?utf-8/", "Subject", kEncodedCafe, true},
    {"rawIsNotDecoded", "Subject:raw =~ /\xC3\xA9/", "Subject", kEncodedCafe, false},
    {"addr", "From:addr =~ /^joe@b\\.example$/", "From", "Joe <joe@b.example>", true},
    {"name", "From:name =~ /^Joe$/", "From", "Joe <joe@b.example>", true},
    {"noAddress", "From:addr =~ /^$/", "From", "nobody here", true},
    {"noAddressNot", "From:addr !~ /a/", "From", "nobody here", true},
    {"noName", "From:name =~ /^$/", "From", "joe@b.example", true},
    {"suffixIsAPrefix", "From:address =~ /^a@b$/", "From", "x <a@b>", true},
    {"suffixCase", "From:ADDR =~ /a/", "From", "a@b", false},
    {"addrThenName", "From:addr:name =~ /^a@b$/", "From", "x <a@b>", true},
    {"nameThenAddr", "From:name:addr =~ /^a@b$/", "From:name", "x <a@b>", true},
    {"rawThenAddr", "Subject:raw:addr =~ /a/", "Subject", "a@b", false},
    {"rawThenName", "Subject:raw:name =~ /^x$/", "Subject:raw", "x <a@b>", true},
};

constexpr auto kRowName = [](const auto &row) { return std::string(row.param.name); };

INSTANTIATE_TEST_SUITE_P(Names, HeaderRuleDefinition, testing::ValuesIn(kNames), kRowName);
INSTANTIATE_TEST_SUITE_P(Expressions, HeaderRuleDefinition, testing::ValuesIn(kExpressions),
                         kRowName);
INSTANTIATE_TEST_SUITE_P(Forms, HeaderRuleDefinition, testing::ValuesIn(kForms), kRowName);

TEST(HeaderRule, LogsEval) {
    const LogCapture log;
    makeRule(Rule::Header, "A", "eval:test()");
    EXPECT_EQ(log.records, (std::vector<LogRecord>{{0x300002F, " "}}));
}

TEST(HeaderRule, BadExpressionLeavesRuleAsItWas) {
    const RefRule rule = makeRule(Rule::Header, "A", "From:addr !~ /a/");
    expectFailure([&] { rule->value("Subject =~ /(/"); },
                  {"HeaderRule::Value", 4, "HeaderRule", 258, {"A"}, true});
    EXPECT_EQ(rule->value(), "From:addr !~ /a/");
    EXPECT_TRUE(matches(rule, "From", "a name <x@b>"));
    EXPECT_FALSE(matches(rule, "Subject", "b"));
}

TEST(HeaderRule, NewDefinitionReplacesAllOfTheFormer) {
    const RefRule rule = makeRule(Rule::Header, "A", "exists:From");
    rule->value("From:addr !~ /a/");
    EXPECT_FALSE(matches(rule, "From", "a@b"));
    rule->value("From =~ /name/");
    EXPECT_TRUE(matches(rule, "From", "name <a@b>"));
    for (const char *lacking : {"From", "From =~"}) {
        rule->value(lacking);
        EXPECT_FALSE(matches(rule, "From", "name")) << lacking;
        rule->value("From =~ /name/");
    }
}

TEST(HeaderRule, NeitherInactiveNorNullHeaderMatches) {
    EXPECT_FALSE(matches(makeRule(Rule::Header, "A", "exists:From", ""), "From", "a"));
    const RefRule rule = makeRule(Rule::Header, "A", "exists:*");
    EXPECT_TRUE(matches(rule, "", ""));
    EXPECT_FALSE(asHeaderRule(rule).matches(HeaderRuleParameter(Header())));
}

TEST(HeaderRule, HasItsKindAndStartsEmpty) {
    EXPECT_EQ(HeaderRule().type(), Rule::Header);
    HeaderRule rule("A");
    rule.score(RefScore("1"));
    EXPECT_EQ(rule.name(), "A");
    EXPECT_FALSE(rule.matches(HeaderRuleParameter(Header("", ""))));
}

class UnreadableHeader : public HeaderRuleParameter {
public:
    UnreadableHeader() : HeaderRuleParameter(Header("From", "a")) {}

protected:
    const std::string &typeText() const override {
        throw Exception("unreadable", Exception::kGeneral, "HeaderRuleTest", 0);
    }
};

TEST(HeaderRule, WrapsFailureWhileMatching) {
    const RefRule rule = makeRule(Rule::Header, "A", "From =~ /a/");
    expectFailure([&] { (void)asHeaderRule(rule).matches(UnreadableHeader()); },
                  {"HeaderRule::Value", 4, "HeaderRule", 308, {}, true});
}

TEST(HeaderRuleParameter, KeepsEachFormOnceItIsPrepared) {
    const HeaderRuleParameter parameter(
        Header("From", "=?utf-8?Q?Jos=C3=A9?= <Jose@b.example> " + std::string(100, ' ')));
    EXPECT_EQ(parameter.header().type(), "From");
    const std::vector<std::pair<const Buffer &(HeaderRuleParameter::*)() const, std::string>>
        forms = {{&HeaderRuleParameter::value, "Jos\xC3\xA9 <Jose@b.example>"},
                 {&HeaderRuleParameter::raw, "=?utf-8?Q?Jos=C3=A9?= <Jose@b.example>"},
                 {&HeaderRuleParameter::addr, "Jose@b.example"},
                 {&HeaderRuleParameter::name, "Jos\xC3\xA9"},
                 {&HeaderRuleParameter::all, "From: Jos\xC3\xA9 <Jose@b.example>"}};
    for (const auto &[form, expected] : forms) {
        const Buffer &prepared = (parameter.*form)();
        const unsigned char *bytes = prepared.data();
        EXPECT_EQ(prepared.asString().substr(0, expected.size()), expected);
        EXPECT_EQ((parameter.*form)().data(), bytes) << expected;
    }
}

// The whole text of a header without encoded words is viewed, not copied.
TEST(HeaderRuleParameter, WholeTextOutlivesTheCall) {
    const HeaderRuleParameter parameter(Header("X", std::string(100, 'a')));
    const Buffer &all = parameter.all();
    EXPECT_EQ(all.asString(), "X: " + std::string(100, 'a'));
    EXPECT_TRUE(HeaderRuleParameter(Header("X", "")).raw().isEmpty());
}

TEST(HeaderValueDecode, ViewsTextThatNothingIsDecodedIn) {
    for (const std::string &text : {std::string("plain"), std::string("=?x?="), kUnknownCharset,
                                    std::string("=?utf-8?Q?a\n?=")}) {
        const Buffer result = headerValueDecode(text);
        EXPECT_EQ(result.asString(), text);
        EXPECT_EQ(static_cast<const void *>(result.data()), text.data());
    }
    EXPECT_TRUE(headerValueDecode("").isEmpty());
    EXPECT_EQ(headerValueDecode(std::string("a " + kEncodedCafe)).asString(), "a " + kCafe);
}

std::string repeated(const std::string &part, std::size_t times) {
    std::string text;
    for (; times > 0; --times) {
        text += part;
    }
    return text;
}

// What stands behind an encoded word may send the expression that tells such words back and forth until it gives up.
TEST(HeaderValueDecode, IsNotTurnedAwayByWhatFollows) {
    for (const std::string &behind : {repeated("?Q", 141), repeated("?B?", 100),
                                      repeated("=?", 4000), repeated("=?x?q?", 2000)}) {
        const std::string text = "Joe (=?utf-8?Q?free_money?= " + behind + ") <joe@b.example>";
        EXPECT_EQ(headerValueDecode(text).asString().substr(0, 16), "Joe (free money ");
    }
}

TEST(HeaderValueDecode, TellsEncodedWordsAsTheExpressionDoes) {
    const Regex::Expression expression("=\\?.*\\?[BQ]\\?.*\\?=", Regex::kIgnoreCase, true);
    const std::vector<std::string> parts = {"=",   "?",   "B",  "b", "Q",  "q",  "=?",
                                            "?B?", "?q?", "?=", "a", "\n", "\r", std::string(1, 0)};
    constexpr int kTexts = 200'000;
    constexpr std::size_t kMostParts = 14;
    std::mt19937 random(1);
    int words = 0;
    for (int i = 0; i < kTexts; ++i) {
        std::string text;
        for (std::size_t left = random() % kMostParts; left > 0; --left) {
            text += parts[random() % parts.size()];
        }
        bool failed = false;
        const bool expected = expression(text, &failed);
        ASSERT_FALSE(failed);
        ASSERT_EQ(holdsEncodedWord(text), expected) << testing::PrintToString(text);
        words += expected ? 1 : 0;
    }
    EXPECT_GT(words, kTexts / 50);
}

class HeaderCheckTest : public CheckFixture {
protected:
    HeaderCheckTest() : CheckFixture(Rule::Header) {}

    HeaderCheck checker(unsigned int cutoff = 0, bool verbose = false) {
        return {rules_, matches_, cutoff, verbose};
    }

    static RefHeaderList listOf(const std::list<Header> &headers) {
        RefHeaderList list(true);
        for (const Header &header : headers) {
            list->append(header);
        }
        return list;
    }

    const EmailAddress sender_{"Joe", "joe@b.example"};
};

TEST_F(HeaderCheckTest, TriesSenderAsAHeader) {
    rule("ADDR", "EnvelopeFrom:addr =~ /^joe@b\\.example$/");
    rule("ALL", "ALL =~ /^EnvelopeFrom: Joe <joe@b\\.example>$/");
    rule("FROM", "From =~ /Joe/");
    checker().check(EmailAddress());
    EXPECT_TRUE(tripped().empty());
    HeaderCheck check = checker(0, true);
    EXPECT_EQ(tracedBy([&] { check.check(sender_); }), (Names{"ADDR", "ALL", "FROM"}));
    EXPECT_EQ(tripped(), (Names{"ADDR", "ALL"}));
    // Both were erased with the match, so the message's own headers do not see them.
    EXPECT_EQ(tracedBy([&] { check.check(listOf({{"EnvelopeFrom", "Joe"}})); }), Names{"FROM"});
}

TEST_F(HeaderCheckTest, AddsARuleOnceAndErasesIt) {
    rule("A", "Received =~ /x/");
    rule("B", "Subject =~ /x/");
    HeaderCheck check = checker(0, true);
    const std::list<Header> headers = {{"Received", "x"}, {"Received", "x"}};
    EXPECT_EQ(tracedBy([&] { check.check(headers); }), (Names{"A", "B", "B"}));
    EXPECT_EQ(left(), Names{"B"});
    EXPECT_EQ(matches_.score(false), 1.0F);
    check.check(std::list<Header>());
    check.check(RefHeaderList(true));
    EXPECT_EQ(tripped(), Names{"A"});
}

TEST_F(HeaderCheckTest, StopsWhereTheSetTrips) {
    for (const char *name : {"A", "B", "C"}) {
        rule(name, "X =~ /a/", "2");
    }
    matches_->threshold(3.0F);
    HeaderCheck check = checker(0, true);
    const std::list<Header> headers = {{"Y", "a"}, {"X", "a"}, {"X", "a"}};
    EXPECT_EQ(tracedBy([&] { check.check(headers); }), (Names{"A", "B", "C", "A", "B"}));
    EXPECT_EQ(left(), Names{"C"});
    // A list is left after the first header that finds the set tripped, a header is always tried.
    EXPECT_EQ(tracedBy([&] { check.check(listOf({{"Y", "a"}, {"X", "a"}})); }), Names{"C"});
    EXPECT_EQ(tracedBy([&] { EXPECT_TRUE(check({"X", "a"})); }), Names{"C"});
    EXPECT_TRUE(left().empty());
}

TEST_F(HeaderCheckTest, NameThatIsHeldDoesNotStopButIsErased) {
    rule("A", "X =~ /never/");
    for (const char *name : {"A", "B", "C"}) {
        rule(name, "X =~ /a/");
    }
    matches_.add(makeRule(Rule::Body, "A", "/x/"));
    matches_->threshold(0.5F);
    HeaderCheck check = checker(0, true);
    EXPECT_EQ(tracedBy([&] { EXPECT_TRUE(check({"X", "a"})); }), (Names{"A", "A", "B"}));
    EXPECT_EQ(left(), (Names{"A", "C"}));
    EXPECT_FALSE(matches(*rules_->begin(), "X", "never"));
}

TEST_F(HeaderCheckTest, CutoffLeavesLaterRulesOut) {
    for (const char *name : {"A", "B", "C"}) {
        rule(name, "X =~ /a/");
    }
    rules_->push_front(RefRule());
    HeaderCheck check = checker(3, true);
    EXPECT_EQ(tracedBy([&] { EXPECT_FALSE(check({"X", "a"})); }), (Names{"A", "B"}));
    EXPECT_FALSE(checker()({"X", "a"}));
    EXPECT_EQ(left(), Names{"(null)"});
}

TEST_F(HeaderCheckTest, WrapsFailuresOfListsOnly) {
    rule("A", "ALL =~ /a/");
    for (const char *name : {"B", "C", "D"}) {
        brokenRule(name, "ALL =~ /a/");
    }
    HeaderCheck check = checker();
    expectFailure(
        [&] {
            check.check(std::list<Header>{{"X", "a"}});
        },
        {"HeaderCheck::check", 4, "HeaderRule", 334, {}, true});
    EXPECT_EQ(tripped(), (Names{"A", "B"}));
    expectFailure(
        [&] {
            check.check(listOf({{"X", "a"}}));
        },
        {"HeaderCheck::check", 4, "HeaderRule", 345, {}, true});
    expectFailure([&] { check.check(RefHeaderList()); },
                  {"HeaderCheck::check", 4, "HeaderRule", 345, {}, true});
    expectFailure([&] { check.check(sender_); },
                  {"Heuristic::Matches", 4, "Rule", kAnyLine, {"D score is NULL"}});
}

} // namespace
} // namespace Corvane::Heuristic
