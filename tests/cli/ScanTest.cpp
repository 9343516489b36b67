// The command as a user meets it: its output, its exit status, and what it says of bad input.

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sys/stat.h>
#include <unistd.h>

#include "support/Command.h"

namespace Corvane {
namespace {

using testing::HasSubstr;

const std::string kMessage = "From: a@example.org\nSubject: x\n\nred apple\ngreen pear\n";

const std::string kMark = "From a@example.org Tue Sep  1 09:01:00 2026\n";

class ScanCommandTest : public testing::Test {
protected:
    // Scans with the one rule file's text and whatever else is named.
    Outcome scan(const std::string &rules, const std::vector<std::string> &more,
                 const std::string &input = {}) const {
        directory_.write("rules.cf", rules);
        std::vector<std::string> arguments = {"scan", "--rules", directory_.path()};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return corvane(arguments, input);
    }

    std::string message() const { return directory_.write("a.eml", kMessage); }

    const TempDir directory_;
};

TEST_F(ScanCommandTest, PrintsTotalRulesAndTheirScores) {
    const std::string rules = "body APPLE /apple/\nrawbody PEAR /pear\\n/\nbody PLUM /plum/\n"
                              "score APPLE 2.5\nscore PEAR -0.25\n";
    const std::string file = message();
    const Outcome outcome = scan(rules, {file});
    EXPECT_EQ(outcome.out, "    2.250  ok    " + file +
                               "\n"
                               "             2.500  body     APPLE\n"
                               "            -0.250  rawbody  PEAR\n"
                               "3 rules loaded, 0 left out\n");
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(ScanCommandTest, StatusSaysWhetherAMessageIsAboveTheThreshold) {
    const struct {
        std::vector<std::string> more;
        int status;
    } rows[] = {{{}, 0},
                {{"--threshold", "3"}, 0},
                {{"--threshold", "2.9"}, 1},
                {{"--threshold", "0"}, 1},
                {{"--threshold=-1"}, 1}};
    for (const auto &row : rows) {
        std::vector<std::string> more = row.more;
        more.push_back(message());
        EXPECT_EQ(scan("body APPLE /apple/\nscore APPLE 3\n", more).status, row.status)
            << testing::PrintToString(row.more);
    }
}

TEST_F(ScanCommandTest, ReadsStandardInput) {
    const Outcome outcome = scan("body APPLE /apple/\n", {"-"}, kMessage);
    EXPECT_THAT(outcome.out, HasSubstr("1.000  ok    -\n"));
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(ScanCommandTest, NamesTheLimitThatAMessageRanInto) {
    const std::string subject(20000, 'x');
    const Outcome outcome =
        scan("body APPLE /apple/\n", {"-"}, "Subject: " + subject + "\n\napple\n");
    EXPECT_THAT(outcome.out, HasSubstr("APPLE\n            cut at  header-value-bytes\n"));
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(ScanCommandTest, AnUnreadMessageDoesNotStopTheOthersAndWins) {
    const std::string file = message();
    const Outcome outcome =
        scan("body APPLE /apple/\nscore APPLE 9\n", {file, directory_.path("missing.eml"), file});
    EXPECT_THAT(outcome.out, HasSubstr("2 of 3 messages scanned, 2 over 5, 1 not read\n"));
    EXPECT_THAT(outcome.err, HasSubstr("missing.eml"));
    EXPECT_EQ(outcome.status, 2);
}

// A fault of each kind, which the log would tell without its place.
TEST_F(ScanCommandTest, ProblemsWithRulesBeginWithTheirPlace) {
    const Outcome outcome = scan("body APPLE /apple/\nheader A h /(/\nbody APPLE /pear/\n"
                                 "meta M A && (B\nfull E eval:x()\nscore APPLE off\n",
                                 {message()});
    const std::string file = directory_.path("rules.cf");
    EXPECT_THAT(outcome.err,
                testing::MatchesRegex(file + ":2:14: A: [^\n]*parenthesis\n" + file +
                                      ":3:6: APPLE: [^\n]*rules.cf:1[^\n]*\n" + file +
                                      ":4:8: M: [^\n]*\n" + file + ":5:8: E: [^\n]*\n" + file +
                                      ":6:13: APPLE: [^\n]*\n"));
    EXPECT_THAT(outcome.out, testing::EndsWith("\n3 rules loaded, 2 left out\n"));
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(ScanCommandTest, ProblemsBeyondAHundredAreCounted) {
    std::string rules;
    for (unsigned int each = 0; each < 102; ++each) {
        rules += "body APPLE /apple/\n";
    }
    const Outcome some = scan(rules, {message()});
    EXPECT_EQ(std::count(some.err.begin(), some.err.end(), '\n'), 101);
    EXPECT_THAT(some.err, testing::EndsWith("\ncorvane: problems with rules that are not shown: 1; "
                                            "'corvane scan --verbose' shows all\n"));
    EXPECT_THAT(scan(rules, {"--verbose", message()}).err, HasSubstr("rules.cf:102:6: "));
}

TEST_F(ScanCommandTest, StrictEndsWithAFailureWhereARuleWasRefused) {
    const Outcome refused = scan("body APPLE /apple/\nbody BAD /(/\n", {"--strict", message()});
    EXPECT_EQ(refused.status, 2);
    EXPECT_THAT(refused.out, HasSubstr("APPLE\n1 rule loaded, 1 left out\n"));
    EXPECT_THAT(refused.err, HasSubstr("corvane: rules were refused"));
    const std::string duplicate = "body APPLE /apple/\nbody APPLE /pear/\n";
    EXPECT_EQ(scan(duplicate, {"--strict", message()}).status, 0);
}

TEST_F(ScanCommandTest, LaterDirectoriesOverrideScoresAndNotRules) {
    directory_.makeDirectory("local");
    directory_.write("local/rules.cf", "body APPLE /nowhere/\nbody PEAR /pear/\nscore APPLE 2.5\n");
    const Outcome outcome = scan("body APPLE /apple/\nscore APPLE 1\n",
                                 {"--rules", directory_.path("local"), "--json", message()});
    const auto result = nlohmann::json::parse(outcome.out);
    EXPECT_EQ(result.at("score"), 3.5);
    EXPECT_EQ(result.at("ruleset").at("loaded"), 2);
    EXPECT_THAT(outcome.err, HasSubstr("local/rules.cf:1:6: APPLE: "));
}

TEST_F(ScanCommandTest, JsonTellsOfTheRuleSetInEachObject) {
    directory_.write("README", "CF_MAJOR_VERSION=5\nCF_HR_VERSION=123\n");
    const Outcome outcome = scan("body APPLE /apple/\nbody APPLE /apple/\nbody OFF /x/\n"
                                 "score OFF 0\nbody BAD /(/\n",
                                 {"--json", message(), directory_.path("missing")});
    std::istringstream lines(outcome.out);
    for (std::string line; std::getline(lines, line);) {
        nlohmann::json ruleSet = nlohmann::json::parse(line).at("ruleset");
        EXPECT_THAT(ruleSet.at("generation").get<std::string>(),
                    testing::MatchesRegex("[0-9a-f]{16}"));
        EXPECT_THAT(ruleSet.at("engine").get<std::string>(), HasSubstr("+"));
        ruleSet.erase("generation");
        ruleSet.erase("engine");
        EXPECT_EQ(ruleSet, nlohmann::json({{"loaded", 2},
                                           {"active", 1},
                                           {"refused", 1},
                                           {"duplicates", 1},
                                           {"version", "v5.123"}}));
    }
}

// A running total of floats is 96.535995 here, which is no score of the rules' making.
TEST_F(ScanCommandTest, ScoresAreShownAsShortAsTheyCanBe) {
    const std::string rules = "body A /apple/\nbody B /apple/\nbody C /apple/\n"
                              "score A 30.1\nscore B 33.3\nscore C 33.136\n";
    const Outcome outcome = scan(rules, {"--json", message()});
    EXPECT_THAT(outcome.out, HasSubstr("\"score\":96.536,"));
    EXPECT_THAT(outcome.out, HasSubstr("\"score\":33.136,"));
}

// One rule of each kind; the full rule sees a line that no other kind does.
const char *const kRules = "header TO_A To:addr =~ /^a@/\nuri LINK /example/\nbody APPLE /apple/\n"
                           "rawbody PEAR /pear\\n/\nfull PLUM /^plum\\r?\\n/\n"
                           "meta BOTH LINK && PLUM\nscore BOTH 0.5\n";
const std::string kFruit = "Return-Path: <r@example.org>\nTo: a@example.org\n\n"
                           "red apple http://example.org/\ngreen pear\nplum\n";

std::vector<std::string> s_names(const nlohmann::json &result) {
    std::vector<std::string> names;
    for (const nlohmann::json &rule : result.at("rules")) {
        names.push_back(rule.at("name"));
    }
    return names;
}

TEST_F(ScanCommandTest, TriesThatAreGivenUpAreCountedAndNamed) {
    const std::string rules = "body SLOW /^(?:a|aa)*c|^a+b/\nbody APPLE /apple/\n";
    const std::string message = "Subject: x\n\n" + std::string(60, 'a') + "b\napple\n";
    const auto plain = nlohmann::json::parse(scan(rules, {"--json", "-"}, message).out);
    EXPECT_EQ(plain.at("stepLimited"), 1);
    EXPECT_FALSE(plain.contains("stepLimitedRules"));
    const auto named =
        nlohmann::json::parse(scan(rules, {"--json", "--verbose", "-"}, message).out);
    EXPECT_EQ(named.at("stepLimitedRules"), nlohmann::json({"SLOW"}));
    EXPECT_THAT(scan(rules, {"--verbose", "-"}, message).out,
                HasSubstr("           gave up  1 try of a rule\n           gave up  SLOW\n"));
}

// What the first rule adds stays; the other kinds are not tried any more. With 0 there is no bound.
TEST_F(ScanCommandTest, AScanThatUsesItsBudgetUpIsAFailureUnlessOver) {
    const std::string rules =
        "full SLOW /(?:x|xx)*y(?!z)/\nfull FIRST /^Subject: x/\nmeta LAST FIRST\n";
    std::string message = "Subject: x\n\n";
    for (unsigned int each = 0; each < 3000; ++each) {
        message += std::string(70, 'x') + "yz\n";
    }
    const std::string file = directory_.write("slow.eml", message);
    const Outcome ended = scan(rules, {"--json", "--budget", "0.01", file});
    const std::string named = "\"budget\"]";
    EXPECT_THAT(ended.out, HasSubstr(named));
    EXPECT_EQ(s_names(nlohmann::json::parse(ended.out)), std::vector<std::string>{"FIRST"});
    EXPECT_EQ(ended.status, 2);
    EXPECT_THAT(ended.err, HasSubstr("'" + file + "' is undecided"));
    const Outcome both = scan(rules, {"--budget", "0.01", file, file});
    EXPECT_THAT(both.out, testing::StartsWith("    1.000  ?     " + file + "\n"));
    EXPECT_THAT(both.out, HasSubstr("2 of 2 messages scanned, 0 over 5, 0 not read, 2 undecided"));
    EXPECT_EQ(scan(rules, {"--threshold", "0.5", "--budget", "0.01", file}).status, 1);
    EXPECT_EQ(scan(rules, {"--budget", "1e-12", file}).status, 2);
    const Outcome whole = scan(rules, {"--json", "--budget", "0", file});
    EXPECT_THAT(whole.out, testing::Not(HasSubstr(named)));
    EXPECT_EQ(whole.status, 0);
}

TEST_F(ScanCommandTest, JsonTellsEverythingOfAMessage) {
    const Outcome outcome = scan(kRules, {"--json", "-"}, kFruit);
    nlohmann::json result = nlohmann::json::parse(outcome.out);
    EXPECT_GE(result.at("ms"), 0);
    result.erase("ms");
    result.erase("ruleset");
    const auto rule = [](const char *name, const char *kind, double score) {
        return nlohmann::json{
            {"name", name}, {"kind", kind}, {"score", score}, {"language", "DEFAULT"}};
    };
    const nlohmann::json expected = {
        {"version", 2},
        {"file", "-"},
        {"language", "DEFAULT"},
        {"mask", 3},
        {"score", 5.5},
        {"tripped", false},
        {"over", true},
        {"rules",
         {rule("APPLE", "body", 1), rule("BOTH", "meta", 0.5), rule("LINK", "uri", 1),
          rule("PEAR", "rawbody", 1), rule("PLUM", "full", 1), rule("TO_A", "header", 1)}},
        {"limits", nlohmann::json::array()},
        {"reader", {{"hiddenTextBytes", 0}, {"invisibleCharacters", 0}}},
        {"stepLimited", 0}};
    EXPECT_EQ(result, expected);
    EXPECT_EQ(outcome.status, 1);
}

TEST_F(ScanCommandTest, JsonTellsBytesThatAreNotUtf8) {
    const std::string file = directory_.write("caf\xe9.eml", kMessage);
    const Outcome outcome = scan("body A\xff /apple/\n", {"--json", file, file + "x"});
    const std::size_t end = outcome.out.find('\n');
    const auto result = nlohmann::json::parse(outcome.out.substr(0, end));
    EXPECT_THAT(result.at("file").get<std::string>(), testing::EndsWith("caf\xef\xbf\xbd.eml"));
    EXPECT_THAT(result.at("fileHex").get<std::string>(), testing::EndsWith("636166e92e656d6c"));
    EXPECT_EQ(result.at("rules").at(0).at("name"), "A\xef\xbf\xbd");
    EXPECT_EQ(result.at("rules").at(0).at("nameHex"), "41ff");
    const auto missing = nlohmann::json::parse(outcome.out.substr(end));
    EXPECT_THAT(missing.at("error").get<std::string>(), HasSubstr("No such file"));
    EXPECT_FALSE(missing.contains("rules"));
    EXPECT_THAT(outcome.err, HasSubstr("No such file"));
    EXPECT_EQ(outcome.status, 2);
}

// The tap tries the full rule on every line first, whatever the percentage; then each kind has its
// turn with the rules that are left of it.
TEST_F(ScanCommandTest, VerboseTracesTheRulesInOrderOnStandardError) {
    const std::string rules = "header H Subject =~ /x/\nbody B1 /apple/\nbody B2 /nowhere/\n"
                              "rawbody R /pear/\nfull F /nowhere/\nmeta M H && R\n";
    const std::string message = "Subject: x\n\napple\npear\n";
    const Outcome all = scan(rules, {"--verbose", "--json", "-"}, message);
    EXPECT_EQ(all.err, "F\nF\nF\nF\nH\nB1\nB2\nB1\nB2\nB2\nR\nR\nM\n");
    EXPECT_THAT(s_names(nlohmann::json::parse(all.out)), testing::ElementsAre("B1", "H", "M", "R"));
    // Ordinals below 6 * 34 / 100 + 1 = 3.
    const Outcome some = scan(rules, {"--verbose", "--percent", "34", "-"}, message);
    EXPECT_EQ(some.err, "F\nF\nF\nF\nH\nB1\nB1\n");
}

TEST_F(ScanCommandTest, StopEndsTheChecksOnceTheThresholdIsPassed) {
    const struct {
        std::vector<std::string> more;
        std::size_t tripped;
        bool isTripped;
    } rows[] = {{{"--threshold", "1.5"}, 6, false},
                {{"--threshold", "1.5", "--stop"}, 2, true},
                {{"--threshold", "9", "--stop"}, 6, false}};
    for (const auto &row : rows) {
        std::vector<std::string> more = row.more;
        more.insert(more.end(), {"--json", "-"});
        const auto result = nlohmann::json::parse(scan(kRules, more, kFruit).out);
        EXPECT_EQ(result.at("rules").size(), row.tripped) << testing::PrintToString(row.more);
        EXPECT_EQ(result.at("tripped"), row.isTripped) << testing::PrintToString(row.more);
    }
}

TEST_F(ScanCommandTest, SenderIsReturnPathUnlessGiven) {
    const std::string rules = "header FROM_R EnvelopeFrom =~ /r@example/\n";
    const struct {
        std::vector<std::string> more;
        bool trips;
    } rows[] = {{{}, true},
                {{"--sender", "x@example.net"}, false},
                {{"--sender", "Joe <rr@example.net>"}, true},
                {{"--sender", "<>"}, false}};
    for (const auto &row : rows) {
        std::vector<std::string> more = row.more;
        more.insert(more.end(), {"--json", "-"});
        const auto result =
            nlohmann::json::parse(scan(rules, more, "Return-Path: <r@example.org>\n\nx\n").out);
        EXPECT_EQ(result.at("rules").size() == 1, row.trips) << testing::PrintToString(row.more);
    }
}

TEST_F(ScanCommandTest, MboxAndDirectoryAreSplitIntoMessages) {
    directory_.makeDirectory("mail");
    const std::string box =
        directory_.write("mail/box", kMark + kMessage + "\n" + kMark + "\n" + kMark + kMessage);
    directory_.write("mail/a.eml", kMessage);
    const Outcome outcome = scan("body APPLE /apple/\n", {"-j", "3", directory_.path("mail")});
    EXPECT_THAT(outcome.out, HasSubstr("ok    " + directory_.path("mail/a.eml") + "\n"));
    EXPECT_THAT(outcome.out, HasSubstr("ok    " + box + " #1\n"));
    EXPECT_THAT(outcome.out, HasSubstr("ok    " + box + " #3\n"));
    EXPECT_THAT(outcome.out, HasSubstr("3 of 4 messages scanned, 0 over 5, 1 not read\n"));
    EXPECT_THAT(outcome.err, HasSubstr("'" + box + " #2' is empty"));
    const Outcome input = scan("body APPLE /apple/\n", {"--json", "-"}, TempDir::read(box));
    EXPECT_EQ(nlohmann::json::parse(input.out.substr(0, input.out.find('\n'))).at("index"), 1);
    EXPECT_EQ(input.status, 2);
}

TEST_F(ScanCommandTest, IncludeTakesOnePatternEachTime) {
    directory_.makeDirectory("mail");
    for (const char *name : {"mail/a.eml", "mail/b.txt", "mail/c.md"}) {
        directory_.write(name, kMessage);
    }
    const Outcome outcome =
        scan("body APPLE /apple/\n",
             {"--include", "*.eml", message(), "--include", "*.txt", directory_.path("mail")});
    EXPECT_THAT(outcome.out, HasSubstr("3 of 3 messages scanned"));
}

TEST_F(ScanCommandTest, WhatIsNoMessageInADirectoryIsPassedOver) {
    directory_.makeDirectory("mail");
    directory_.makeDirectory("mail/.sub");
    directory_.write("mail/.sub/a.eml", kMessage);
    ASSERT_EQ(mkfifo(directory_.path("mail/fifo").c_str(), S_IRUSR | S_IWUSR), 0);
    ASSERT_EQ(symlink(".sub", directory_.path("mail/link").c_str()), 0);
    const Outcome outcome = scan("body APPLE /apple/\n", {directory_.path("mail")});
    EXPECT_EQ(outcome.out, "1 rule loaded, 0 left out\n"
                           "0 of 0 messages scanned, 0 over 5, 0 not read\n");
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(ScanCommandTest, OutputThatCannotBeWrittenIsAFailure) {
    directory_.write("rules.cf", "body APPLE /apple/\n");
    const TempDir other;
    const std::string paths[] = {"scan --rules " + directory_.path() + " " + message(),
                                 "encrypt " + directory_.path() + " " + other.path("new"), "--help",
                                 "scan --help", "--version"};
    for (const std::string &arguments : paths) {
        const std::string line =
            CORVANE_COMMAND " " + arguments + " >/dev/full 2>" + other.path("said");
        const int status = std::system(line.c_str());
        EXPECT_EQ(WEXITSTATUS(status), 2) << arguments;
        EXPECT_THAT(TempDir::read(other.path("said")), HasSubstr("No space left on device\n"));
    }
}

// Each row is refused with status 2, nothing but the summary on standard output, and an error that
// names the culprit and says what is wrong.
struct BadInput {
    const char *name;
    std::vector<std::string> arguments; // after "scan"; $ stands for the test's directory
    std::vector<const char *> said;     // in standard error, $ likewise
};

std::ostream &operator<<(std::ostream &out, const BadInput &row) {
    return out << row.name;
}

class BadInputTest : public testing::TestWithParam<BadInput> {
protected:
    BadInputTest() {
        directory_.write("good.eml", kMessage);
        directory_.write("empty.eml", "");
        directory_.write("nuls.eml", std::string(100, '\0'));
        directory_.makeDirectory("none");
        directory_.write("none/rules.txt", "body A /a/\n");
        directory_.makeDirectory("refused");
        directory_.write("refused/a.cf", "# nothing\nbody A /(/\nuri U /(/\nnonsense\n");
        directory_.makeDirectory("rules");
        directory_.write("rules/a.cf", "body APPLE /apple/\n");
        directory_.makeDirectory("sealed");
        directory_.write("sealed/version", "");
        directory_.write("sealed/a.cf", "body APPLE /apple/\n");
        directory_.makeDirectory("cf");
        directory_.write("cf/version", "");
        directory_.write("cf/a.score", "score APPLE 1\n");
    }

    std::string resolved(std::string text) const {
        for (std::size_t at = text.find('$'); at != std::string::npos; at = text.find('$')) {
            text.replace(at, 1, directory_.path());
        }
        return text;
    }

    const TempDir directory_;
};

TEST_P(BadInputTest, IsNamedWithItsRemedy) {
    std::vector<std::string> arguments = {"scan"};
    for (const std::string &argument : GetParam().arguments) {
        arguments.push_back(resolved(argument));
    }
    const Outcome outcome = corvane(arguments);
    EXPECT_EQ(outcome.status, 2);
    EXPECT_THAT(outcome.out, testing::AnyOf("", "1 rule loaded, 0 left out\n"));
    for (const char *said : GetParam().said) {
        EXPECT_THAT(outcome.err, HasSubstr(resolved(said)));
    }
}

const BadInput kBadInputs[] = {
    {"RulesMissing", {"--rules", "$/no", "$/good.eml"}, {"'$/no'", "does not exist"}},
    {"RulesAreAFile",
     {"--rules", "$/rules/a.cf", "$/good.eml"},
     {"'$/rules/a.cf' is no directory", "name the directory"}},
    {"RulesHoldNoRuleFile", {"--rules", "$/none", "$/good.eml"}, {"'$/none'", "no file *.cf"}},
    {"RulesAreAllRefused",
     {"--rules", "$/refused", "$/good.eml"},
     {"$/refused/a.cf:2:", "$/refused/a.cf:3:", "'$/refused': none of its 1 *.cf"}},
    {"RulesDoNotDecrypt",
     {"--rules", "$/sealed", "$/good.eml"},
     {"cannot read rule file '$/sealed/a.cf'", "cipher text"}},
    {"PathMarksPlainScores",
     {"--rules", "$/cf", "$/good.eml"},
     {"cannot read score file '$/cf/a.score': its path holds \"cf\"", "by another path"}},
    {"MessageMissing", {"--rules", "$/rules", "$/no.eml"}, {"'$/no.eml'", "No such file"}},
    {"MessageIsEmpty", {"--rules", "$/rules", "$/empty.eml"}, {"'$/empty.eml' is empty"}},
    {"StandardInputIsEmpty", {"--rules", "$/rules", "-"}, {"standard input is empty"}},
    {"MessageIsNuls", {"--rules", "$/rules", "$/nuls.eml"}, {"'$/nuls.eml'", "NUL bytes"}},
    {"MessageFailsInReading", {"--rules", "$/rules", "/proc/self/mem"}, {"'/proc/self/mem'"}},
    {"ThresholdNaN", {"--rules", "$/rules", "--threshold", "nan", "$/good.eml"}, {"threshold"}},
    {"ThresholdInfinite", {"--rules", "$/rules", "--threshold=inf", "$/good.eml"}, {"'inf'"}},
    {"ThresholdTooLarge",
     {"--rules", "$/rules", "--threshold", "1e40", "$/good.eml"},
     {"'1e40' is out of range"}},
    {"SecondRulesMissing",
     {"--rules", "$/rules", "--rules", "$/no", "$/good.eml"},
     {"'$/no' does not exist"}},
    {"NoRulesInTwo",
     {"--rules", "$/none", "--rules", "$/none", "$/good.eml"},
     {"no rules in '$/none': it holds no file *.cf; no rules in '$/none'"}},
    {"PercentTwice",
     {"--rules", "$/rules", "--percent", "1", "--percent", "2", "$/good.eml"},
     {"corvane: --percent is given 2 times; give it once\n"}},
    {"BudgetNoNumber",
     {"--rules", "$/rules", "--budget", "1s", "$/good.eml"},
     {"'1s' is no number"}},
    {"BudgetNegative", {"--rules", "$/rules", "--budget=-1", "$/good.eml"}, {"--budget: '-1'"}},
    {"BudgetEndless", {"--rules", "$/rules", "--budget=inf", "$/good.eml"}, {"or 0 for no bound"}},
    {"ThresholdNoNumber", {"--rules", "$/rules", "--threshold", "x", "$/good.eml"}, {"'x'"}},
    {"PercentTooLarge", {"--rules", "$/rules", "--percent", "101", "$/good.eml"}, {"0 to 100"}},
    {"PercentNegative", {"--rules", "$/rules", "--percent=-1", "$/good.eml"}, {"'-1'"}},
    {"NoThreads", {"--rules", "$/rules", "-j", "0", "$/good.eml"}, {"'0'", "1 to 64"}},
    {"SenderIsNoAddress",
     {"--rules", "$/rules", "--sender", "Joe Doe", "$/good.eml"},
     {"'Joe Doe' is no address"}},
    {"VerboseWithThreads",
     {"--rules", "$/rules", "--verbose", "-j", "2", "$/good.eml"},
     {"--verbose", "-j"}},
    {"NoRules", {"$"}, {"1 option from [--rules,--set,--via] is required", "--help"}},
    {"RulesAndSet", {"--rules", "$/rules", "--set", "0", "$"}, {"2 were given"}},
    {"SetsWithoutSet", {"--rules", "$/rules", "--sets", "$", "$"}, {"--sets requires --set"}},
    {"NoMessage", {"--rules", "$/rules"}, {"MESSAGE is required", "--help"}},
    {"IncludeIsAPath",
     {"--rules", "$/rules", "--include", "a/*.eml", "$"},
     {"'a/*.eml' is no pattern for a file's name"}},
    {"UnknownOption", {"--rules", "$/rules", "--fast", "$/good.eml"}, {"--fast", "--help"}},
};

INSTANTIATE_TEST_SUITE_P(Rows, BadInputTest, testing::ValuesIn(kBadInputs),
                         [](const auto &row) { return row.param.name; });

// Root may read every file, unless it gives up the capabilities to.
std::string s_withoutRootsRights() {
    return geteuid() == 0 ? "setpriv --bounding-set -dac_override,-dac_read_search" : "";
}

TEST_F(ScanCommandTest, RuleFileThatCannotBeReadIsNamed) {
    const std::string locked = directory_.write("locked.cf", "body A /a/\n");
    chmod(locked.c_str(), 0);
    const Outcome outcome =
        corvane({"scan", "--rules", directory_.path(), message()}, {}, s_withoutRootsRights());
    EXPECT_THAT(outcome.err,
                HasSubstr("cannot read rule file '" + locked + "': Permission denied"));
    EXPECT_EQ(outcome.status, 2);
}

TEST_F(ScanCommandTest, RuleFileThatFailsWhileItIsReadStopsTheScan) {
    ASSERT_EQ(symlink("/proc/self/mem", directory_.path("broken.cf").c_str()), 0);
    const Outcome outcome = scan("body APPLE /apple/\n", {message()});
    EXPECT_THAT(outcome.err,
                testing::AllOf(HasSubstr("broken.cf'"), HasSubstr("Input/output error")));
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.status, 2);
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
// Wherever the memory ends, no rule is left out for it and no file is blamed. 127: too little for the
// program itself.
TEST_F(ScanCommandTest, OutOfMemoryIsSaidAndCostsNoRule) {
    constexpr int kCount = 1000;
    constexpr int kMostKiB = 400000;
    std::string rules;
    for (int rule = 0; rule < kCount; ++rule) {
        const std::string number = std::to_string(rule);
        rules += "body R" + number + " /word" + number + "(?:[a-z]{1,3}|(\\d+)x){9}/\n";
    }
    directory_.write("rules.cf", rules);
    int failures = 0;
    Outcome outcome{-1, {}, {}};
    for (int kiB = kMostKiB / 16; kiB <= kMostKiB && outcome.status != 0; kiB += 2000) {
        outcome = corvane({"scan", "--rules", directory_.path(), message()}, {},
                          "ulimit -v " + std::to_string(kiB) + "; ");
        if (outcome.status == 127) {
            continue;
        }
        const bool isLoaded =
            outcome.out.find("1000 rules loaded, 0 left out") != std::string::npos;
        const bool isSaid = outcome.err.find("out of memory; ") != std::string::npos;
        EXPECT_TRUE(outcome.status == 0 ? isLoaded : outcome.status == 2 && isSaid)
            << kiB << " KiB: " << outcome.status << ' ' << outcome.out << outcome.err;
        failures += isSaid ? 1 : 0;
    }
    EXPECT_EQ(outcome.status, 0);
    EXPECT_GT(failures, 0);
}
#endif

TEST(Command, WithoutASubcommandSaysHowToGoOn) {
    const Outcome none = corvane({});
    EXPECT_EQ(none.status, 2);
    EXPECT_THAT(none.err, testing::AllOf(HasSubstr("scan"), HasSubstr("--help")));
    EXPECT_THAT(corvane({"scann", "x"}).err, HasSubstr("unknown subcommand 'scann'"));
    EXPECT_THAT(corvane({"ctl", "stat"}).err,
                HasSubstr("unknown subcommand 'ctl stat'; there are status, "));
    EXPECT_THAT(corvane({"ctl"}).err, HasSubstr("try 'corvane ctl --help'"));
    const Outcome early = corvane({"--rules", "r", "scan", "m"});
    EXPECT_EQ(early.status, 2);
    EXPECT_THAT(early.err, HasSubstr("options go behind the subcommand, as in"));
    const std::string remedy = "'; a file of that name is given as ./";
    EXPECT_EQ(corvane({"scan", "--bogus"}).err,
              "corvane: unknown option '--bogus" + remedy +
                  "--bogus\nRun 'corvane scan --help' for what can be given.\n");
    EXPECT_EQ(corvane({"encrypt", "--rules"}).err,
              "corvane: unknown option '--rules" + remedy +
                  "--rules\nRun 'corvane encrypt --help' for what can be given.\n");
    const Outcome help = corvane({"scan", "--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_THAT(help.out, testing::AllOf(HasSubstr("--rules"), HasSubstr("Exit status")));
    EXPECT_EQ(corvane({"--version"}).status, 0);
}

} // namespace
} // namespace Corvane
