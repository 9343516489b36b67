// corvane corpus: results are the same however they come about, and nothing is lost or half written.

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/Command.h"
#include "support/TempDir.h"

namespace Corvane {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;

constexpr const char *kMark = "From a@b Mon Jan  1 00:00:00 2024\n";

class CorpusTest : public testing::Test {
protected:
    CorpusTest() {
        directory_.makeDirectory("rules");
        directory_.write("rules/a.cf", "body PRIZE /prize/\nscore PRIZE 6\nbody __WON /won/\n"
                                       "meta BOTH PRIZE && __WON\nuri LINK /b.example/\n"
                                       "describe PRIZE an offer\n#[lang section]\tRU\n"
                                       "body PRIZE /prize/\n");
        directory_.makeDirectory("mail");
        directory_.makeDirectory("mail/ham");
        directory_.makeDirectory("mail/spam");
        directory_.write("mail/ham/1.eml", "Subject: lunch\n\nAt noon?\n");
        directory_.write("mail/ham/2.eml", "");
        directory_.write("mail/spam/1.eml", "Subject: won\n\na prize\n");
        directory_.write("mail/spam/2.mbox",
                         std::string(kMark) + "\na prize http://b.example/\n\n" + kMark +
                             "Content-Type: text/plain; charset=koi8-r\n\nprize\n");
    }

    std::string path(const std::string &name) const { return directory_.path(name); }

    Outcome run(const std::string &result, std::vector<std::string> more = {}) const {
        std::vector<std::string> arguments = {"corpus",      "run", "--rules",
                                              path("rules"), "-o",  path(result)};
        if (more.empty() || more.front().rfind("--class", 0) != 0) {
            arguments.push_back(path("mail"));
        }
        arguments.insert(arguments.end(), more.begin(), more.end());
        return corvane(arguments);
    }

    std::string exported(const std::string &result) const {
        return corvane({"corpus", "export", path(result)}).out;
    }

    std::vector<nlohmann::json> lines(const std::string &result) const {
        std::istringstream text(exported(result));
        std::vector<nlohmann::json> found;
        for (std::string line; std::getline(text, line);) {
            found.push_back(nlohmann::json::parse(line));
        }
        return found;
    }

    void expectNothingOf(const std::string &result) const {
        for (const auto &entry : fs::directory_iterator(directory_.path())) {
            EXPECT_NE(entry.path().filename().string().rfind(result, 0), 0U) << entry.path();
        }
    }

    const TempDir directory_;
};

TEST_F(CorpusTest, TellsWhatCameOfEachMessage) {
    const Outcome outcome = run("all.db");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "5 messages, 1 of them not read: " + path("all.db") + "\n");
    EXPECT_THAT(outcome.err, HasSubstr("is empty"));
    const auto found = lines("all.db");
    ASSERT_EQ(found.size(), 11U);
    EXPECT_EQ(found[0]["classes"], "ham,spam");
    EXPECT_EQ(found[0]["threshold"], "5");
    EXPECT_EQ(found[1]["description"], "an offer");
    EXPECT_EQ(found[5]["languages"], nlohmann::json({"RU"}));
    std::vector<std::string> messages;
    for (std::size_t each = 6; each < found.size(); ++each) {
        messages.push_back(
            found[each]["class"].get<std::string>() + ' ' + found[each]["path"].get<std::string>() +
            ' ' + found[each]["number"].dump() + ' ' + found[each]["total"].dump() + ' ' +
            found[each]["verdict"].get<std::string>() + ' ' + found[each]["hits"].dump());
    }
    EXPECT_THAT(messages,
                testing::ElementsAre("ham 1.eml 0 0.0 under []", "ham 2.eml 0 0.0 failed []",
                                     "spam 1.eml 0 7.0 over [0,1,2]",
                                     "spam 2.mbox 1 7.0 over [0,3]", "spam 2.mbox 2 6.0 over [4]"));
    EXPECT_GE(found[1]["tries"], 2);
    EXPECT_EQ(found[5]["tries"], 1);
}

TEST_F(CorpusTest, GivesTheSameByThreadsAndShards) {
    run("one.db");
    run("two.db", {"-j", "2"});
    std::vector<std::string> all = {"corpus", "merge", "-o", path("merged.db")};
    constexpr int kShards = 3;
    for (int shard = kShards; shard > 0; --shard) {
        const std::string name = "shard" + std::to_string(shard);
        EXPECT_EQ(run(name, {"--shard", std::to_string(shard) + "/3"}).status, 0);
        all.push_back(path(name));
    }
    EXPECT_EQ(
        corvane({"corpus", "merge", "-o", path("pair.db"), path("shard3"), path("shard1")}).status,
        0);
    EXPECT_EQ(corvane({"corpus", "merge", "-o", path("nested.db"), path("pair.db"), path("shard2"),
                       path("pair.db"), path("shard1")})
                  .status,
              0);
    EXPECT_EQ(corvane(all).status, 0);
    const std::string expected = exported("one.db");
    for (const char *other : {"two.db", "merged.db", "nested.db"}) {
        EXPECT_EQ(exported(other), expected) << other;
    }
    EXPECT_NE(exported("pair.db"), expected);
}

// The last class is a FIFO: the run waits there, with all before it kept.
TEST_F(CorpusTest, GoesOnAfterItWasKilled) {
    std::string many;
    constexpr int kMany = 2100;
    for (int each = 0; each < kMany; ++each) {
        many += std::string(kMark) + "\nprize " + std::to_string(each) + "\n\n";
    }
    const std::string options = " corpus run --rules " + path("rules") +
                                " --class a=" + directory_.write("many.mbox", many) +
                                " --class b=" + path("fifo") + " -o ";
    const std::string command = CORVANE_COMMAND + options;
    const auto shell = [](const std::string &script) {
        return std::system(("sh -c '" + script + "'").c_str());
    };
    ASSERT_EQ(shell("mkfifo " + path("fifo")), 0);
    const std::string feed = "(printf \"\\n\\nwon\\n\" >" + path("fifo") + ") & ";
    ASSERT_EQ(shell(feed + command + path("whole.db") + " >" + path("out")), 0);
    const std::string partial = path("cut.db.partial");
    ASSERT_EQ(shell(command + path("cut.db") + " & p=$!; until [ -s " + partial +
                    " ] && [ $(stat -c %s " + partial +
                    ") -gt 150000 ]; do sleep 0.05; done; sleep 0.5; kill -9 $p"),
              0);
    EXPECT_FALSE(fs::exists(path("cut.db")));
    EXPECT_THAT(corvane({"corpus", "export", partial}).err, HasSubstr("is not complete"));
    const Outcome other = corvane({"corpus", "run", "--rules", path("rules"), "--class",
                                   "a=" + path("many.mbox"), "-o", path("cut.db")});
    EXPECT_EQ(other.status, 2);
    EXPECT_THAT(other.err, AllOf(HasSubstr("was begun with another c"), HasSubstr("begin anew")));
    ASSERT_EQ(shell(feed + command + path("cut.db") + " 2>" + path("err")), 0);
    EXPECT_THAT(TempDir::read(path("err")), HasSubstr("going on behind 2000 messages"));
    EXPECT_FALSE(fs::exists(partial));
    EXPECT_EQ(exported("cut.db"), exported("whole.db"));
}

TEST_F(CorpusTest, RefusesWhatDoesNotBelongTogether) {
    run("one.db", {"--shard", "1/2"});
    run("two.db", {"--shard", "2/2", "--threshold", "6"});
    run("three.db", {"--shard", "2/3"});
    directory_.write("mail/ham/1.eml", "Subject: LUNCH\n\nAt noon?\n");
    directory_.write("mail/spam/1.eml", "Subject: Won\n\na prize\n");
    run("changed.db", {"--shard", "1/2"});
    directory_.write("mail/ham/3.eml", "Subject: more\n\n\n");
    run("grown.db", {"--shard", "2/2"});
    directory_.write("text.db", "no result, but long enough to be looked at as one");
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"two.db", "differ in threshold: 5 and 6"},
        {"three.db", "differ in number of shards: 2 and 3"},
        {"changed.db", "has other messages"},
        {"grown.db", "differ in corpus"},
        {"text.db", "is no result of"},
        {"none.db", "does not exist"}};
    for (const auto &[other, reason] : cases) {
        const Outcome outcome =
            corvane({"corpus", "merge", "-o", path("out.db"), path("one.db"), path(other)});
        EXPECT_EQ(outcome.status, 2);
        EXPECT_THAT(outcome.err, HasSubstr(reason));
        expectNothingOf("out.db");
    }
}

TEST_F(CorpusTest, SaysWhatIsWrongWithTheCommandLine) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"--class", "spam"}, "give one as NAME=PATH"},
        {{"--class", "a,b=" + path("mail")}, "names no class"},
        {{"--class", "a=" + path("none")}, "'" + path("none") + "', the messages of class 'a'"},
        {{"--class", "a=" + path("mail/ham"), "--class", "a=" + path("mail/spam")},
         "class 'a' has two messages '1.eml'"},
        {{"--shard", "4/3"}, "'4/3' is no shard"},
        {{"--shard", "1"}, "'1' is no shard"},
        {{"--rules", path("none")}, "does not exist"}};
    for (const auto &[arguments, reason] : cases) {
        const Outcome outcome = run("out.db", arguments);
        EXPECT_EQ(outcome.status, 2);
        EXPECT_THAT(outcome.err, HasSubstr(reason));
    }
    run("there.db");
    EXPECT_THAT(run("there.db").err, HasSubstr("is there already; remove it"));
    EXPECT_THAT(corvane({"corpus", "run", "--rules", path("rules"), "-o", path("x.db")}).err,
                HasSubstr("there is no class"));
    EXPECT_THAT(corvane({"corpus", "rnu"}).err,
                HasSubstr("unknown subcommand 'corpus rnu'; there are run, "));
    EXPECT_THAT(corvane({"corpus", "run", "--bogus"}).err,
                HasSubstr("Run 'corvane corpus run --help'"));
}

} // namespace
} // namespace Corvane
