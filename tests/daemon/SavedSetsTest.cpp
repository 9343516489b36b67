// Rule sets that were in use, as the daemon saves them and the command finds them again.

#include "report/SavedSets.h"

#include <filesystem>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>

#include "corvane/RuleSet.h"
#include "daemon/Daemon.h"
#include "daemon/MilterClient.h"
#include "support/Command.h"
#include "support/TempDir.h"

namespace Corvane::Milter {
namespace {

namespace fs = std::filesystem;

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

unsigned int modeOf(const fs::path &path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 ? status.st_mode & 0777U : 0U;
}

// The files of a directory and of those below it, by their paths.
std::map<std::string, std::string> bytesOf(const fs::path &directory) {
    std::map<std::string, std::string> all;
    for (const auto &entry : fs::recursive_directory_iterator(directory)) {
        if (entry.is_regular_file()) {
            all[fs::relative(entry.path(), directory)] = TempDir::read(entry.path());
        }
    }
    return all;
}

class SavedSetsTest : public testing::Test {
protected:
    SavedSetsTest() {
        directory_.makeDirectory("rules");
        directory_.write("rules/a.cf", "body PRIZE /prize/\n");
        directory_.write("rules/z.score", "score PRIZE 6\n");
        directory_.write("message", "Subject: hello\n\nprize\n");
    }

    std::string sets() const { return directory_.path("sets"); }

    Outcome replay(const std::string &set) const {
        return corvane(
            {"scan", "--set", set, "--sets", sets(), "--json", directory_.path("message")});
    }

    // What the daemon's header says behind a word such as "generation=".
    static std::string told(const std::string &status, const std::string &word) {
        const std::size_t at = status.find(word) + word.size();
        return status.substr(at, status.find(';', at) - at);
    }

    std::string statusOf(const Daemon &daemon) const {
        MilterClient client(daemon.socket());
        EXPECT_TRUE(client.negotiate());
        Mail mail;
        mail.bytes = TempDir::read(directory_.path("message"));
        return client.deliver(mail).status();
    }

    void reload(Daemon &daemon, const std::string &scores) const {
        directory_.write("rules/z.score", scores);
        daemon.signal(SIGHUP);
        ASSERT_TRUE(daemon.waitFor("event=reload result=replaced"));
    }

    TempDir directory_;
};

TEST_F(SavedSetsTest, AVerdictIsFoundOutAgainWhenTheRulesAreOthers) {
    Daemon daemon(directory_, "");
    const std::string first = statusOf(daemon);
    const std::string generation = told(first, "generation=");
    EXPECT_EQ(bytesOf(sets() + '/' + generation + "/1"), bytesOf(directory_.path("rules")));
    EXPECT_EQ(modeOf(sets()), 0700U);
    EXPECT_EQ(modeOf(sets() + '/' + generation), 0700U);
    EXPECT_EQ(modeOf(sets() + '/' + generation + "/1/a.cf"), 0600U);
    reload(daemon, "score PRIZE 7\n");
    EXPECT_EQ(told(statusOf(daemon), "score="), "7");
    const auto json = nlohmann::json::parse(replay(generation.substr(0, 6)).out);
    EXPECT_EQ(json["ruleset"]["generation"], generation);
    EXPECT_EQ(json["score"], 6);
    EXPECT_EQ(daemon.stop(), 0);

    const Outcome none = replay("xyz");
    EXPECT_EQ(none.status, 2);
    EXPECT_THAT(none.err, AllOf(HasSubstr("no saved set in '" + sets() + "' begins with 'xyz'"),
                                HasSubstr(generation)));
    fs::create_directory(sets() + '/' + generation.substr(0, 6));
    EXPECT_THAT(replay(generation.substr(0, 6)).err, HasSubstr("more than one saved set"));
    directory_.write("sets/" + generation + "/1/a.cf", "body PRIZE /price/\n");
    EXPECT_THAT(replay(generation).err, HasSubstr("was changed: its files give the generation"));
}

// Loading takes score files below a path with these letters for encrypted ones.
TEST_F(SavedSetsTest, EncryptedSetsStayEncrypted) {
    const Outcome sealed =
        corvane({"encrypt", directory_.path("rules"), directory_.path("sealed")});
    ASSERT_EQ(sealed.status, 0) << sealed.err;
    const std::string plain = statusOf(Daemon(directory_, ""));
    const std::string generation = told(plain, "generation=");
    fs::rename(directory_.path("rules"), directory_.path("plain"));
    fs::rename(directory_.path("sealed"), directory_.path("rules"));
    EXPECT_EQ(told(statusOf(Daemon(directory_, "")), "generation="), generation);
    EXPECT_EQ(bytesOf(sets() + '/' + generation + "/1"), bytesOf(directory_.path("rules")));
    fs::rename(directory_.path("sets"), directory_.path("cf"));
    const Outcome outcome = corvane({"scan", "--set", generation, "--sets", directory_.path("cf"),
                                     "--json", directory_.path("message")});
    EXPECT_EQ(nlohmann::json::parse(outcome.out)["score"], 6) << outcome.err;
}

TEST_F(SavedSetsTest, TheOldestGoAndWhatWasLeftHalfDone) {
    directory_.makeDirectory("sets");
    directory_.makeDirectory("sets/.new");
    directory_.write("sets/.new/1.path", "x");
    Daemon daemon(directory_, "[sets]\nkeep = 2\ndirectory = \"" + sets() + "\"\n");
    const std::string first = told(statusOf(daemon), "generation=");
    reload(daemon, "score PRIZE 7\n");
    const std::string second = told(statusOf(daemon), "generation=");
    reload(daemon, "score PRIZE 6\n");
    reload(daemon, "score PRIZE 8\n");
    const std::string last = told(statusOf(daemon), "generation=");
    EXPECT_THAT(SavedSets(sets()).generations(), ElementsAre(last, first));
    EXPECT_FALSE(fs::exists(sets() + "/.new"));
    SavedSets(sets()).prune(0, {first});
    EXPECT_THAT(SavedSets(sets()).generations(), ElementsAre(first));
}

TEST_F(SavedSetsTest, MailGoesOnWhereNothingCanBeSaved) {
    directory_.write("sets", "a file");
    Daemon daemon(directory_, "");
    EXPECT_THAT(statusOf(daemon), HasSubstr("hit"));
    EXPECT_EQ(daemon.stop(), 0);
    EXPECT_THAT(daemon.log(), HasSubstr("level=error event=rules_not_saved"));
}

} // namespace
} // namespace Corvane::Milter
