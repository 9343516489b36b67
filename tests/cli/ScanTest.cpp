// The command as a user meets it: its output, its exit status, and what it says of bad input.

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
                               "            -0.250  rawbody  PEAR\n");
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
    EXPECT_THAT(outcome.out, testing::EndsWith("APPLE\n            cut at  header-value-bytes\n"));
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

TEST_F(ScanCommandTest, EqualLogRecordsAreShownOnceWithCountAndFirstPlace) {
    const Outcome outcome = scan("body APPLE /apple/\nheader A h /(/\nheader A h /(/\n"
                                 "body BAD /(/\nbody APPLE /pear/\n",
                                 {message()});
    EXPECT_THAT(
        outcome.err,
        testing::MatchesRegex(
            "corvane: a rule was left out, 2 times, first in .*/rules\\.cf:2: .*0x3000034.\n"
            "corvane: a rule was left out, in .*/rules\\.cf:4: .*BAD.*0x3000034.\n"
            "corvane: a rule's name is taken, the first one counts: APPLE .*0x3000035.\n"));
    EXPECT_EQ(outcome.status, 0);
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

TEST_F(ScanCommandTest, JsonTellsEverythingOfAMessage) {
    const Outcome outcome = scan(kRules, {"--json", "-"}, kFruit);
    nlohmann::json result = nlohmann::json::parse(outcome.out);
    EXPECT_GE(result.at("ms"), 0);
    result.erase("ms");
    const auto rule = [](const char *name, const char *kind, double score) {
        return nlohmann::json{
            {"name", name}, {"kind", kind}, {"score", score}, {"language", "DEFAULT"}};
    };
    const nlohmann::json expected = {
        {"version", 1},
        {"file", "-"},
        {"language", "DEFAULT"},
        {"mask", 3},
        {"score", 5.5},
        {"tripped", false},
        {"over", true},
        {"rules",
         {rule("APPLE", "body", 1), rule("BOTH", "meta", 0.5), rule("LINK", "uri", 1),
          rule("PEAR", "rawbody", 1), rule("PLUM", "full", 1), rule("TO_A", "header", 1)}},
        {"limits", nlohmann::json::array()}};
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
        directory_.write("mail/box", "From a\n" + kMessage + "\nFrom b\n\nFrom c\n" + kMessage);
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

TEST_F(ScanCommandTest, WhatIsNoMessageInADirectoryIsPassedOver) {
    directory_.makeDirectory("mail");
    directory_.makeDirectory("mail/.sub");
    directory_.write("mail/.sub/a.eml", kMessage);
    ASSERT_EQ(mkfifo(directory_.path("mail/fifo").c_str(), S_IRUSR | S_IWUSR), 0);
    ASSERT_EQ(symlink(".sub", directory_.path("mail/link").c_str()), 0);
    const Outcome outcome = scan("body APPLE /apple/\n", {directory_.path("mail")});
    EXPECT_EQ(outcome.out, "0 of 0 messages scanned, 0 over 5, 0 not read\n");
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
    EXPECT_EQ(outcome.out, "");
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
     {"'$/refused'", "$/refused/a.cf:2", "$/refused/a.cf:3", "none of its 1 *.cf"}},
    {"RulesDoNotDecrypt",
     {"--rules", "$/sealed", "$/good.eml"},
     {"cannot read rule file '$/sealed/a.cf'", "decrypt"}},
    {"PathMarksPlainScores",
     {"--rules", "$/cf", "$/good.eml"},
     {"'$/cf' holds \"cf\", so that its score files are read as encrypted; load it by another"}},
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
    {"RulesTwice",
     {"--rules", "$/rules", "--rules", "$/rules", "$/good.eml"},
     {"corvane: --rules is given 2 times; give it once\n"}},
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
    {"NoArguments", {}, {"--rules is required", "--help"}},
    {"NoMessage", {"--rules", "$/rules"}, {"MESSAGE is required", "--help"}},
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

TEST(Command, WithoutASubcommandSaysHowToGoOn) {
    const Outcome none = corvane({});
    EXPECT_EQ(none.status, 2);
    EXPECT_THAT(none.err, testing::AllOf(HasSubstr("scan"), HasSubstr("--help")));
    EXPECT_THAT(corvane({"scann", "x"}).err, HasSubstr("unknown subcommand 'scann'"));
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
