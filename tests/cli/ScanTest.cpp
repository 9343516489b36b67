// The command as a user meets it: its output, its exit status, and what it says of bad input.

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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
    const Outcome outcome = scan("body APPLE /apple/\nheader A eval:x\nheader B eval:x\n"
                                 "body BAD /(/\nbody APPLE /pear/\n",
                                 {message()});
    EXPECT_THAT(outcome.err,
                testing::MatchesRegex(
                    "corvane: an eval: rule is loaded but never matches, 2 times, first in "
                    ".*/rules\\.cf: .*0x300002f.\n"
                    "corvane: a rule was left out, in .*/rules\\.cf:4: .*BAD.*0x3000034.\n"
                    "corvane: a rule's name is taken, the first one counts, in .*/rules\\.cf: "
                    "APPLE .*0x3000035.\n"));
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(ScanCommandTest, OutputThatCannotBeWrittenIsAFailure) {
    const std::string line = std::string(CORVANE_COMMAND) + " scan --rules " + directory_.path() +
                             " " + message() + " >/dev/full 2>/dev/null";
    directory_.write("rules.cf", "body APPLE /apple/\n");
    const int status = std::system(line.c_str());
    EXPECT_EQ(WEXITSTATUS(status), 2);
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
        directory_.makeDirectory("mail");
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
     {"'$/refused'", "$/refused/a.cf:2", "$/refused/a.cf:3", "none of its 1 *.cf files"}},
    {"MessageMissing", {"--rules", "$/rules", "$/no.eml"}, {"'$/no.eml'", "No such file"}},
    {"MessageIsADirectory", {"--rules", "$/rules", "$/mail"}, {"'$/mail' is a directory", "name"}},
    {"MessageIsEmpty", {"--rules", "$/rules", "$/empty.eml"}, {"'$/empty.eml' is empty"}},
    {"StandardInputIsEmpty", {"--rules", "$/rules", "-"}, {"standard input is empty"}},
    {"MessageIsNuls", {"--rules", "$/rules", "$/nuls.eml"}, {"'$/nuls.eml'", "NUL bytes"}},
    {"MessageFailsInReading", {"--rules", "$/rules", "/proc/self/mem"}, {"'/proc/self/mem'"}},
    {"ThresholdNaN", {"--rules", "$/rules", "--threshold", "nan", "$/good.eml"}, {"threshold"}},
    {"ThresholdInfinite", {"--rules", "$/rules", "--threshold=inf", "$/good.eml"}, {"'inf'"}},
    {"ThresholdNoNumber", {"--rules", "$/rules", "--threshold", "x", "$/good.eml"}, {"'x'"}},
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
    const Outcome help = corvane({"scan", "--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_THAT(help.out, testing::AllOf(HasSubstr("--rules"), HasSubstr("Exit status")));
    EXPECT_EQ(corvane({"--version"}).status, 0);
}

} // namespace
} // namespace Corvane
