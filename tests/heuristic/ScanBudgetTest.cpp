// Scans under a budget of processor time.

#include <algorithm>
#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "heuristic/FullRule.h"
#include "heuristic/Scanner.h"
#include "host/parser/Budget.h"
#include "host/parser/Logger.h"
#include "support/LogCapture.h"
#include "support/Message.h"
#include "support/RuleSet.h"
#include "support/Rules.h"

namespace Corvane::Heuristic {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;

// Whether a set's index serves, or each list is walked.
enum class Path { Index, Walk };

void PrintTo(Path path, std::ostream *out) {
    *out << (path == Path::Index ? "Index" : "Walk");
}

class ScanBudget : public testing::TestWithParam<Path> {
protected:
    ScanBudget() : properties_(message().properties()) {}

    static Message message() {
        Message message;
        message.header("X", "x").header("Subject", "x").header("Y", "x").text("", "x\nx\n");
        return message.raw("x\n").second("x\n", MPartText::kDiffers).uri("http://x");
    }

    // Setting an ordinal stops the use of the index.
    Scanner load(const std::string &rules) {
        const Scanner scanner(set_.add("a.cf", rules).path());
        if (GetParam() == Path::Walk) {
            for (const RefRule &rule : *scanner.rules().fullRules(DEFAULT)) {
                rule->ordinal(rule->ordinal());
            }
        }
        return scanner;
    }

    Names matched() const { return namesOf(*matches_); }

    LogCapture log_;
    RuleSet set_;
    RefMatches matches_ = RefMatches::create();
    RefMessageProperties properties_;
    const EmailAddress sender_ = EmailAddress::rfc5322Parse("x@example.org", true);
};

INSTANTIATE_TEST_SUITE_P(Paths, ScanBudget, testing::Values(Path::Index, Path::Walk),
                         testing::PrintToStringParamName());

const std::string kOfEachKind = "header H Y =~ /x/\nheader E exists:Y\nbody B /x/\nrawbody R /x/\n"
                                "uri U /x/\nfull F /x/\nmeta M !Q\nbody L eval:l()\n";

TEST_P(ScanBudget, NothingIsTriedOnceItHasEnded) {
    Scanner scanner = load(kOfEachKind);
    log_.records.clear();
    Budget budget(nanoseconds(0));
    budget.end();
    const Budget::Use use(budget);
    EXPECT_EQ(scanner.process(matches_, properties_, sender_, 0, false), 0U);
    EXPECT_FALSE(scanner.check(matches_, DEFAULT, viewOf("x\n"), 0, false));
    EXPECT_FALSE(scanner.checkRaw(matches_, DEFAULT, viewOf("x\n"), 0, false));
    scanner.check(matches_, DEFAULT, sender_, 0, false);
    scanner.check(matches_, DEFAULT, *properties_->headers(), 0, false);
    FullTap tap(scanner, scanner.rules().fullRules(DEFAULT), matches_, 0, false);
    EXPECT_TRUE(tap.write(viewOf("x\nx\n")));
    EXPECT_EQ(matched(), Names{});
    EXPECT_TRUE(log_.records.empty());
}

// A rule that logs each try, and a log that ends the budget at the first.
TEST_P(ScanBudget, NoStageBeginsBehindTheOneInWhichItEnds) {
    Scanner scanner = load(kOfEachKind);
    Budget budget(hours(1));
    const Budget::Use use(budget);
    unsigned int tries = 0;
    const Logger::Sink former = Logger::instance(false).sink(
        [&](unsigned int, int, const std::string &) { budget.end(), ++tries; });
    EXPECT_EQ(scanner.process(matches_, properties_, sender_, 0, false), Scanner::kTextMatched);
    Logger::instance(false).sink(former);
    EXPECT_EQ(matched(), (Names{"B", "E", "H"}));
    EXPECT_EQ(tries, 1U);
    EXPECT_EQ(matches_->score(false), 3.0F);
}

TEST_P(ScanBudget, OneThatDoesNotEndChangesNothing) {
    Scanner scanner = load(kOfEachKind);
    scanner.process(matches_, properties_, sender_, 0, false);
    const RefMatches within = RefMatches::create();
    RefMatches taken = within;
    Budget budget(hours(1));
    const Budget::Use use(budget);
    scanner.process(taken, properties_, sender_, 0, false);
    EXPECT_EQ(namesOf(*within), matched());
    EXPECT_EQ(matched(), (Names{"B", "E", "F", "H", "M", "R", "U"}));
    EXPECT_EQ(budget.stepLimited(), 0U);
}

// Either of these patterns takes seconds on that text, which is one try.
TEST_P(ScanBudget, EndsWithinATry) {
    Scanner scanner = load("full BEFORE /^x/\nfull STEPS /(?:x|xx)*y(?!z)/\n"
                           "full BYTES /x[^z]*z[^w]*w(?!.)/s\nfull FROM_START /\\Gx.*y.*z(?!.)/s\n"
                           "full AFTER /z$/\n");
    std::string text;
    while (text.size() < (1U << 20U)) {
        text += "xxxxxxxxxxxxxxxxyz";
    }
    for (const char *name : {"STEPS", "BYTES"}) {
        RefRuleList rules = RefRuleList::create();
        for (const char *each : {"BEFORE", name, "AFTER"}) {
            rules.add(scanner.rules().fullRules(DEFAULT).find(each));
        }
        RefMatches matches = RefMatches::create();
        Budget budget(milliseconds(30));
        const Budget::Use use(budget);
        scanner.process(rules, matches, viewOf(text + "w\n"), false);
        EXPECT_TRUE(budget.ended()) << name;
        EXPECT_EQ(namesOf(*matches), Names{"BEFORE"}) << name;
    }
    Budget budget(milliseconds(30));
    const Budget::Use use(budget);
    FullTap tap(scanner, scanner.rules().fullRules(DEFAULT), matches_, 0, false);
    tap.write(viewOf(text + "w\n"));
    EXPECT_TRUE(budget.ended());
    EXPECT_TRUE(matches_.find("AFTER").isNull());
}

TEST_P(ScanBudget, EndsAmongLinesThatNoRuleIsTriedOn) {
    Scanner scanner = load("body B /x/\n");
    std::string text;
    for (unsigned int line = 0; line < 100000; ++line) {
        text += "x\n";
    }
    Budget budget(nanoseconds(1));
    const Budget::Use use(budget);
    FullTap tap(scanner, scanner.rules().fullRules(DEFAULT), matches_, 0, false);
    tap.write(viewOf(text));
    EXPECT_TRUE(budget.ended());
}

TEST_P(ScanBudget, CountsAndNamesTriesThatNeedTooManySteps) {
    const std::string slow = "/(?:x|xx)*y(?!z)/";
    Scanner scanner =
        load("body B1 " + slow + "\nbody B2 " + slow + "\nbody OK /y/\nfull F " + slow +
             "\nheader H Z =~ " + slow + "\nheader N Z !~ " + slow + "\nuri U " + slow + '\n');
    const std::string text = std::string(60, 'x') + "yz";
    Message slowMessage;
    slowMessage.header("Z", text).text("", text + "\n").uri(text);
    for (const milliseconds limit : {milliseconds(0), milliseconds(3600000)}) {
        RefMatches matches = RefMatches::create();
        Budget budget(limit);
        const Budget::Use use(budget);
        scanner.process(matches, slowMessage.properties(), sender_, 0, false);
        EXPECT_EQ(namesOf(*matches), Names{"OK"});
        Names names = budget.stepLimitedRules();
        std::sort(names.begin(), names.end());
        EXPECT_EQ(names, (Names{"B1", "B2", "F", "H", "N", "U"}));
        // The index tries one pattern once, for however many rules.
        EXPECT_EQ(budget.stepLimited(), GetParam() == Path::Index ? 5U : 6U);
    }
}

} // namespace
} // namespace Corvane::Heuristic
