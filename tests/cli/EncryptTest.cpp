// corvane encrypt and corvane decrypt: what they write, and what they refuse.

#include <algorithm>
#include <csignal>
#include <filesystem>
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
using Names = std::vector<std::string>;

// Paths are relative to the test's directory: its own name is random and may hold any letters.
class EncryptCommandTest : public testing::Test {
protected:
    EncryptCommandTest() {
        directory_.makeDirectory("plain");
        directory_.write("plain/a.cf", "body A /apple/\nbody B /pear/\n");
        directory_.write("plain/b.cf2", "body IGNORED /x/\n");
        directory_.write("plain/empty.cf", "");
        directory_.write("plain/a.score", "score A 3\n");
        directory_.write("plain/cf.score", "score B 4\n");
        directory_.write("plain/README", "CF_MAJOR_VERSION=5\n");
        directory_.write("plain/notes.txt", "x");
        directory_.makeDirectory("plain/more");
    }

    Outcome run(const Names &arguments, const std::string &starter = {}) const {
        return corvane(arguments, "Subject: x\n\napple and pear\n",
                       "cd '" + directory_.path() + "' && " + starter);
    }

    Names names(const std::string &directory) const {
        Names names;
        for (const auto &entry : std::filesystem::directory_iterator(directory_.path(directory))) {
            names.push_back(entry.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    mode_t mode(const std::string &name) const {
        struct stat status {};
        EXPECT_EQ(stat(directory_.path(name).c_str(), &status), 0);
        return status.st_mode & (S_IRWXU | S_IRWXG | S_IRWXO);
    }

    std::string read(const std::string &name) const { return TempDir::read(directory_.path(name)); }

    const TempDir directory_;
};

TEST_F(EncryptCommandTest, WritesASetThatScansAsTheOriginalDoes) {
    const Outcome outcome = run({"encrypt", "plain", "sealed/"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "encrypted 2 rules in 6 files to sealed\n");
    EXPECT_THAT(outcome.err, HasSubstr("left out 'plain/more'"));
    EXPECT_THAT(outcome.err, HasSubstr("left out 'plain/notes.txt'"));
    EXPECT_THAT(names("sealed"), testing::ElementsAre("README", "a.cf", "a.score", "b.cf2",
                                                      "cf.score", "empty.cf", "version"));
    EXPECT_EQ(mode("sealed"), mode_t{S_IRWXU});
    for (const std::string &name : names("sealed")) {
        EXPECT_EQ(mode("sealed/" + name), mode_t{S_IRUSR | S_IWUSR}) << name;
    }
    EXPECT_EQ(read("sealed/a.score"), "score A 3\n");
    EXPECT_EQ(read("sealed/README"), "CF_MAJOR_VERSION=5\n");
    // A vector each: the start of the file differs from one copy to the next.
    ASSERT_EQ(run({"encrypt", "plain", "second"}).status, 0);
    EXPECT_NE(read("sealed/a.cf").substr(0, 16), read("second/a.cf").substr(0, 16));
    const Outcome scan = run({"scan", "--rules", "sealed", "-"});
    EXPECT_EQ(scan.out, run({"scan", "--rules", "plain", "-"}).out);
    EXPECT_THAT(scan.out, HasSubstr("7.000"));
}

TEST_F(EncryptCommandTest, DecryptGivesTheBytesBack) {
    ASSERT_EQ(run({"encrypt", "plain", "sealed"}).status, 0);
    const Outcome outcome = run({"decrypt", "sealed", "open.cf"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "decrypted 2 rules in 6 files to open.cf\n");
    EXPECT_EQ(outcome.err, "");
    EXPECT_THAT(names("open.cf"),
                testing::ElementsAre("README", "a.cf", "a.score", "b.cf2", "cf.score", "empty.cf"));
    for (const std::string &name : names("open.cf")) {
        EXPECT_EQ(read("open.cf/" + name), read("plain/" + name)) << name;
        EXPECT_EQ(mode("open.cf/" + name), mode_t{S_IRUSR | S_IWUSR}) << name;
    }
}

TEST_F(EncryptCommandTest, RefusesWithTheReasonAndLeavesNothing) {
    ASSERT_EQ(run({"encrypt", "plain", "sealed"}).status, 0);
    directory_.makeDirectory("none");
    directory_.makeDirectory("broken");
    directory_.write("broken/version", "");
    directory_.write("broken/a.cf", "body A /apple/\n");
    ASSERT_EQ(symlink("nowhere", directory_.path("link").c_str()), 0);
    const Names before = names(".");
    const struct {
        Names arguments;
        const char *said;
    } rows[] = {{{"encrypt", "plain", "none"}, "'none' exists"},
                {{"encrypt", "plain", "link"}, "'link' exists"},
                {{"encrypt", "plain", "my.cf"}, "holds the letters \"cf\""},
                {{"encrypt", "plain", "no/where"}, "beside 'no/where': No such file"},
                {{"encrypt", "sealed", "x"}, "'sealed' is encrypted already"},
                {{"encrypt", "none", "x"}, "no rules in 'none'"},
                {{"encrypt", "missing", "x"}, "'missing' does not exist"},
                {{"decrypt", "plain", "x"}, "'plain' is not encrypted"},
                {{"decrypt", "broken", "x"}, "cannot read rule file 'broken/a.cf'"},
                {{"decrypt", "sealed", "none"}, "'none' exists"},
                {{"encrypt", "plain"}, "OUT is required"}};
    for (const auto &row : rows) {
        const Outcome outcome = run(row.arguments);
        EXPECT_EQ(outcome.status, 2) << testing::PrintToString(row.arguments);
        EXPECT_EQ(outcome.out, "");
        EXPECT_THAT(outcome.err, HasSubstr(row.said));
        EXPECT_EQ(names("."), before) << testing::PrintToString(row.arguments);
    }
}

TEST_F(EncryptCommandTest, FaultsInEncryptedRulesAreShownByPlace) {
    directory_.write("plain/a.cf", "body A /apple/\nbody BAD /(/\nbody BAD /(/\n");
    const Outcome outcome = run({"encrypt", "plain", "sealed"});
    EXPECT_THAT(outcome.err, testing::StartsWith("plain/a.cf:2:12: BAD: "));
    EXPECT_THAT(outcome.err, HasSubstr("\nplain/a.cf:3:12: BAD: "));
    EXPECT_THAT(run({"scan", "--rules", "sealed", "-"}).err,
                testing::StartsWith("sealed/a.cf:2:12: BAD: "));
}

// What fails only while files are written: here a file that is too large.
TEST_F(EncryptCommandTest, LeavesNothingWhereWritingFails) {
    directory_.write("plain/z.cf", std::string(100000, '#') + "\n");
    const Names before = names(".");
    const Outcome outcome = run({"encrypt", "plain", "sealed"}, "trap '' XFSZ; ulimit -f 60; ");
    EXPECT_EQ(outcome.status, 2);
    EXPECT_THAT(outcome.err, HasSubstr("File too large"));
    EXPECT_EQ(names("."), before);
}

// The command waits in the midst of its work, until the complaints about what it leaves out are read.
TEST_F(EncryptCommandTest, LeavesNothingWhereASignalStopsIt) {
    const std::string longName(200, 'x');
    for (unsigned int each = 0; each < 400; ++each) {
        directory_.write("plain/" + longName + std::to_string(each), "");
    }
    directory_.write("said", "");
    directory_.write("status", "");
    const Names before = names(".");
    const struct {
        const char *name;
        int number;
    } rows[] = {{"INT", SIGINT}, {"TERM", SIGTERM}, {"HUP", SIGHUP}};
    for (const auto &row : rows) {
        const auto former = std::signal(row.number, SIG_DFL);
        const std::string script =
            "cd '" + directory_.path() +
            "'; { sh -c 'echo $$; exec " CORVANE_COMMAND
            " encrypt plain sealed 2>&1'; echo $? >status; } | { read process; until ls -d sealed.*"
            " 2>/dev/null; do sleep 0.01; done >/dev/null; kill -" +
            row.name + " $process; cat >said; }";
        EXPECT_EQ(std::system(script.c_str()), 0);
        std::signal(row.number, former);
        EXPECT_EQ(read("status"), "2\n") << row.name;
        EXPECT_THAT(read("said"),
                    testing::EndsWith("stopped by a signal; nothing is left of 'sealed'\n"));
        EXPECT_EQ(names("."), before) << row.name;
    }
}

} // namespace
} // namespace Corvane
