// Scans through the index against changes that were made to the set after its load.

#include "heuristic/RuleIndex.h"

#include <functional>
#include <string>

#include <gtest/gtest.h>

#include "heuristic/FullRule.h"
#include "heuristic/Scanner.h"
#include "host/parser/Logger.h"
#include "support/Message.h"
#include "support/RuleSet.h"
#include "support/Rules.h"

namespace Corvane::Heuristic {
namespace {

constexpr const char *kRules = "body B_OFFER /offer/\nbody B_OTHER /other/\n"
                               "header H_SUBJECT Subject =~ /hello/i\nuri U_HOST /host/\n"
                               "full F_SUBJECT /^Subject: hello/i\nmeta M_BOTH B_OFFER && U_HOST\n";

struct Change {
    const char *title;
    std::function<void(RuleContainer &)> make;
    Names tripped;
};

void PrintTo(const Change &change, std::ostream *out) {
    *out << change.title;
}

RefRule ruleFor(Rule::Type kind, const std::string &name, const std::string &definition) {
    return makeRule(kind, name, definition, "1.0", 100);
}

const Change kChanges[] = {
    {"none", [](RuleContainer &) {}, {"B_OFFER", "F_SUBJECT", "H_SUBJECT", "M_BOTH", "U_HOST"}},
    {"only looked at",
     [](RuleContainer &rules) { EXPECT_EQ(rules.bodyRules(DEFAULT)->size(), 2U); },
     {"B_OFFER", "F_SUBJECT", "H_SUBJECT", "M_BOTH", "U_HOST"}},
    {"rules added to each kind of list",
     [](RuleContainer &rules) {
         rules.bodyRules(DEFAULT).add(ruleFor(Rule::Body, "B_NEW", "/free/"));
         rules.headerRules(DEFAULT).add(ruleFor(Rule::Header, "H_NEW", "exists:Subject"));
         rules.uriRules(DEFAULT).add(ruleFor(Rule::Uri, "U_NEW", "/http/"));
         rules.fullRules(DEFAULT).add(ruleFor(Rule::Full, "F_NEW", "/llo/"));
         rules.metaRules(DEFAULT).add(ruleFor(Rule::Meta, "M_NEW", "M_BOTH"));
     },
     {"B_NEW", "B_OFFER", "F_NEW", "F_SUBJECT", "H_NEW", "H_SUBJECT", "M_BOTH", "M_NEW", "U_HOST",
      "U_NEW"}},
    {"rule erased",
     [](RuleContainer &rules) {
         rules.bodyRules(DEFAULT).erase(rules.find("B_OFFER", DEFAULT, true));
     },
     {"F_SUBJECT", "H_SUBJECT", "U_HOST"}},
    {"rule replaced in its place",
     [](RuleContainer &rules) {
         rules.bodyRules(DEFAULT)->back() = ruleFor(Rule::Body, "B_NEW", "/free/");
     },
     {"B_NEW", "B_OFFER", "F_SUBJECT", "H_SUBJECT", "M_BOTH", "U_HOST"}},
    {"list replaced",
     [](RuleContainer &rules) { rules.bodyRules(DEFAULT) = RefRuleList::create(); },
     {"F_SUBJECT", "H_SUBJECT", "U_HOST"}},
    {"list cleared",
     [](RuleContainer &rules) { (*rules.uriRules(DEFAULT)).clear(); },
     {"B_OFFER", "F_SUBJECT", "H_SUBJECT"}},
    {"definition replaced",
     [](RuleContainer &rules) { rules.find("B_OTHER", DEFAULT, true)->value("/free/"); },
     {"B_OFFER", "B_OTHER", "F_SUBJECT", "H_SUBJECT", "M_BOTH", "U_HOST"}},
    {"expression extended",
     [](RuleContainer &rules) { rules.find("M_BOTH", DEFAULT, false)->value("&& B_OTHER"); },
     {"B_OFFER", "F_SUBJECT", "H_SUBJECT", "U_HOST"}},
};

// The set has scanned once before a test changes it, as one in use has.
class LoadedSet : public testing::Test {
protected:
    LoadedSet() { scan(); }

    Names scan(unsigned int percent = 0) {
        Message message;
        message.header("Subject", "Hello").text("", "a free offer\n").uri("http://host/");
        RefMatches matches = RefMatches::create();
        scanner_.process(matches, message.properties(), EmailAddress(), percent, false);
        return namesOf(*matches);
    }

    RuleSet set_;
    Scanner scanner_{set_.add("a.cf", kRules).path()};
};

class ChangedSet : public LoadedSet, public testing::WithParamInterface<Change> {};

TEST_P(ChangedSet, ScansByTheRulesAsTheyAre) {
    GetParam().make(scanner_.rules());
    EXPECT_EQ(scan(), GetParam().tripped);
    EXPECT_EQ(scan(), GetParam().tripped);
}

INSTANTIATE_TEST_SUITE_P(Changes, ChangedSet, testing::ValuesIn(kChanges));

TEST_F(LoadedSet, OrdinalsAndScoresCountAsTheyAre) {
    scanner_.rules().find("B_OFFER", DEFAULT, true)->ordinal(6);
    EXPECT_EQ(scan(50), (Names{"H_SUBJECT"}));
    const RefRule scored = scanner_.rules().find("H_SUBJECT", DEFAULT, true);
    scored->score(RefScore("7.5"));
    EXPECT_EQ(scan(50), (Names{"H_SUBJECT"}));
}

TEST_F(LoadedSet, TapGoesOnWithWhatIsLeftWhenRulesChange) {
    RuleContainer &rules = scanner_.rules();
    RefMatches matches = RefMatches::create();
    FullTap tap(scanner_, rules.fullRules(DEFAULT), matches, 0, false);
    tap.write(viewOf("Subject: other\nSubject: hel"));
    // What is added to the container's list is too late for this tap, a new definition is not.
    rules.fullRules(DEFAULT).add(ruleFor(Rule::Full, "F_NEW", "/./"));
    tap.write(viewOf("lo\n"));
    EXPECT_EQ(namesOf(*matches), (Names{"F_SUBJECT"}));
    matches->clear();
    rules.find("F_SUBJECT", DEFAULT, false)->value("/world/");
    tap.write(viewOf("world\n"));
    EXPECT_EQ(namesOf(*matches), Names{});
    EXPECT_TRUE(tap.end());
}

// A write that a failure ends leaves lines, which the next write takes whether or not it ends one itself.
TEST_F(LoadedSet, TapGoesOnWithTheLinesThatAFailureLeft) {
    RuleContainer &rules = scanner_.rules();
    rules.find("F_SUBJECT", DEFAULT, false)->score(RefScore());
    RefMatches matches = RefMatches::create();
    FullTap tap(scanner_, rules.fullRules(DEFAULT), matches, 0, false);
    EXPECT_THROW(tap.write(viewOf("Subject: hello\nnext\n")), Exception);
    EXPECT_FALSE(tap.end());
    tap.write(viewOf("x"));
    EXPECT_FALSE(tap.end());
    tap.write(viewOf("\n"));
    EXPECT_TRUE(tap.end());
}

TEST(RuleIndex, OutlivesAnExpressionThatTheLogOfAScanReplaces) {
    RuleSet set;
    Scanner scanner(set.add("a.cf", "body B_EVAL eval:x\nbody B_OFFER /offer\\d/\n").path());
    const auto former = Logger::instance(false).sink([&](unsigned int, int, const std::string &) {
        scanner.rules().find("B_OFFER", DEFAULT, true)->value("/other\\d/");
    });
    RefMatches matches = RefMatches::create();
    scanner.check(matches, DEFAULT, viewOf("offer1 other1\n"), 0, false);
    Logger::instance(false).sink(former);
    EXPECT_EQ(namesOf(*matches), Names{"B_OFFER"});
}

// A message with more names than are worth remembering, one of them longer.
TEST(RuleIndex, SelectsHeadersOfAnyNames) {
    RuleSet set;
    const std::string longName = "X-" + std::string(100, 'a');
    Scanner scanner(set.add("a.cf", "header LONG " + longName +
                                        " =~ /offer/\nheader WILD X-b* =~ "
                                        "/other/\n")
                        .path());
    Message message;
    for (int i = 0; i < 3000; ++i) {
        message.header("Y-" + std::to_string(i), "offer other");
    }
    message.header("x-" + std::string(100, 'A'), "offer").header("x-b" + longName, "other");
    RefMatches matches = RefMatches::create();
    scanner.process(matches, message.properties(), EmailAddress(), 0, false);
    EXPECT_EQ(namesOf(*matches), (Names{"LONG", "WILD"}));
}

struct AlikeRow {
    const char *name;
    const char *rule;
    std::string text;
    bool matches;
};

void PrintTo(const AlikeRow &row, std::ostream *out) {
    *out << row.name;
}

class AlikeWays : public testing::TestWithParam<AlikeRow> {};

// What decides without the expression must know where that fails. A trace walks all rules.
TEST_P(AlikeWays, FindTheSame) {
    RuleSet set;
    Scanner scanner(set.add("a.cf", GetParam().rule).path());
    for (const bool verbose : {true, false}) {
        Message message;
        message.header("Subject", GetParam().text).text("", GetParam().text);
        RefMatches matches = RefMatches::create();
        scanner.process(matches, message.properties(), EmailAddress(), 0, verbose);
        EXPECT_EQ(matches->size() == 1, GetParam().matches) << verbose;
    }
}

std::string encodedBefore(const std::string &part, std::size_t times) {
    std::string text = "(=?utf-8?Q?free_money?= ";
    for (; times > 0; --times) {
        text += part;
    }
    return text + ")\n";
}

INSTANTIATE_TEST_SUITE_P(
    EncodedWords, AlikeWays,
    testing::Values(
        AlikeRow{"value", "header R Subject =~ /free money/\n", encodedBefore("?Q", 141), true},
        AlikeRow{"valueOfB", "header R Subject =~ /free money/\n", encodedBefore("?B?", 100), true},
        AlikeRow{"all", "header R ALL =~ /^Subject: .free money/\n", encodedBefore("?Q", 141),
                 true},
        AlikeRow{"subjectAsText", "body R /free money/\n", encodedBefore("?B?", 100), true},
        AlikeRow{"raw", "header R Subject:raw =~ /free money/\n", encodedBefore("?Q", 141), false},
        AlikeRow{"lineEnd", "header R Subject =~ /free money/\n",
                 "=?utf-8?Q?free_money\n?=", false}),
    [](const auto &row) { return std::string(row.param.name); });

INSTANTIATE_TEST_SUITE_P(
    Cases, AlikeWays,
    testing::Values(
        AlikeRow{"phrase", "body R /buy\\s{1,20}viagraXL/\n", "no buy  viagraXL\n", true},
        AlikeRow{"phraseAfterATryThatIsGivenUp", "body R /buy(?:\\s|\\W|_)+viagraXL/\n",
                 "buy" + std::string(15, ' ') + "stocks now, or buy viagraXL\n", false},
        AlikeRow{"phraseAfterALongRun", "body R /1\\h+[a-z]cheapest watches/\n",
                 "1" + std::string(20000, ' ') + "xno 1 xcheapest watches", false},
        AlikeRow{"nothingNegated", "header R Subject !~ /[^\\s\\S]/\n", "hello", true},
        AlikeRow{"boundToBothEnds", "header R Subject =~ /^hel+o$/\n", "hello", true},
        AlikeRow{"boundAndLonger", "header R Subject =~ /^hel{1,2}o$/\n", "hello hello", false}),
    [](const auto &row) { return std::string(row.param.name); });

// A list that was changed must not be used, and one that was only read must not stay out of use.
TEST(RuleIndex, HoldsForListsThatHaveWhatWasIndexed) {
    RuleContainer rules;
    RefRuleList &list = rules.bodyRules(DEFAULT);
    const RefRule first = makeRule(Rule::Body, "A", "/a/", "1.0", 1);
    const RefRule second = makeRule(Rule::Body, "B", "/b/", "1.0", 2);
    list.add(first);
    list.add(second);
    rules.rawBodyRules(KO).add(second);
    rules.rawBodyRules(KO).add(first);
    const RuleIndex index(rules);
    EXPECT_TRUE(index.holds(rules, DEFAULT, Rule::Body));
    EXPECT_FALSE(index.holds(rules, KO, Rule::RawBody)) << "not in the order of loading";
    list.erase(second);
    EXPECT_FALSE(index.holds(rules, DEFAULT, Rule::Body));
    EXPECT_FALSE(index.holds(rules, DEFAULT, Rule::Body));
    EXPECT_TRUE(index.holds(rules, CN, Rule::Body));
    list.add(second);
    EXPECT_TRUE(index.holds(rules, DEFAULT, Rule::Body));
    EXPECT_EQ(list->front()->name(), "A");
    EXPECT_TRUE(index.holds(rules, DEFAULT, Rule::Body));
    first->value("/c/");
    EXPECT_FALSE(index.holds(rules, DEFAULT, Rule::Body));
}

} // namespace
} // namespace Corvane::Heuristic
