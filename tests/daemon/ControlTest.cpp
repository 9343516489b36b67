// The control socket and the metrics, by the command that asks for them.

#include <sstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>

#include "daemon/Daemon.h"
#include "daemon/MilterClient.h"
#include "support/Command.h"
#include "support/TempDir.h"

namespace Corvane::Milter {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

class ControlTest : public testing::Test {
protected:
    ControlTest() {
        directory_.makeDirectory("rules");
        directory_.write("rules/a.cf",
                         "body PRIZE /prize/\nscore PRIZE 6\nbody \"\xFF\\\n /prize/\n"
                         "body \"\xFF\\ /prize/\n");
    }

    Outcome ctl(std::vector<std::string> words) const {
        words.insert(words.begin(), {"ctl", "--socket", directory_.path("control.sock")});
        return corvane(words);
    }

    static Mail prize() {
        Mail mail;
        mail.bytes = "Subject: hello\n\nprize\n";
        return mail;
    }

    TempDir directory_;
};

TEST_F(ControlTest, TellsWhatItRunsWithAndReloads) {
    Daemon daemon(directory_, "");
    struct stat status {};
    ASSERT_EQ(stat(directory_.path("control.sock").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
    const auto before = nlohmann::json::parse(ctl({"status"}).out);
    EXPECT_EQ(before["pid"], daemon.process());
    EXPECT_EQ(before["ruleset"]["loaded"], 2);
    EXPECT_EQ(before["draining"], false);

    directory_.write("rules/a.cf", "body PRIZE /prize/\n");
    const Outcome reload = ctl({"reload"});
    EXPECT_EQ(reload.status, 0);
    const auto answer = nlohmann::json::parse(reload.out);
    EXPECT_EQ(answer["result"], "replaced");
    EXPECT_EQ(answer["former"], before["ruleset"]["generation"]);
    EXPECT_NE(answer["current"], answer["former"]);

    directory_.write("milter.toml", "rules = [\"/nonexistent\"]\n");
    const Outcome refused = ctl({"reload"});
    EXPECT_EQ(refused.status, 1);
    const auto kept = nlohmann::json::parse(refused.out);
    EXPECT_EQ(kept["result"], "failed");
    EXPECT_EQ(kept["current"], answer["current"]);
    EXPECT_THAT(kept["reason"].get<std::string>(), HasSubstr("'/nonexistent' does not exist"));
    EXPECT_THAT(ctl({"metrics"}).out,
                AllOf(HasSubstr("corvane_reloads_total{result=\"replaced\"} 1"),
                      HasSubstr("corvane_reloads_total{result=\"failed\"} 1"),
                      HasSubstr("generation=\"" + answer["current"].get<std::string>() + "\""),
                      Not(HasSubstr(answer["former"].get<std::string>()))));
    EXPECT_EQ(daemon.stop(), 0);
    EXPECT_NE(stat(directory_.path("control.sock").c_str(), &status), 0);
}

TEST_F(ControlTest, CountsMessagesAndRules) {
    Daemon daemon(directory_, "[[actions]]\nmin = 6\naction = \"reject\"\n"
                              "[skip]\nauthenticated = true\n");
    MilterClient client(daemon.socket());
    ASSERT_TRUE(client.negotiate());
    client.deliver(prize());
    client.deliver(prize());
    Mail skipped = prize();
    skipped.login = "joe";
    client.deliver(skipped);
    EXPECT_THAT(ctl({"metrics"}).out,
                AllOf(HasSubstr("corvane_messages_received_total 3"),
                      HasSubstr("corvane_messages_total{action=\"reject\",verdict=\"hit\"} 2"),
                      HasSubstr("corvane_messages_total{action=\"tag\",verdict=\"skipped\"} 1"),
                      HasSubstr("corvane_rule_hits_total{rule=\"PRIZE\"} 2"),
                      HasSubstr("corvane_rule_hits_total{rule=\"\\\"\\\\xff\\\\x5c\"} 2"),
                      HasSubstr("corvane_score_bucket{le=\"8\"} 2"),
                      HasSubstr("corvane_scan_seconds_count 2"), HasSubstr("corvane_sessions 1")));
}

TEST_F(ControlTest, OperatingPageNamesEachMetric) {
    Daemon daemon(directory_, "");
    const std::string page = TempDir::read(CORVANE_OPERATING_PAGE);
    std::istringstream lines(ctl({"metrics"}).out);
    const std::string mark = "# TYPE ";
    std::size_t metrics = 0;
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind(mark, 0) == 0) {
            const std::string name = line.substr(mark.size(), line.rfind(' ') - mark.size());
            EXPECT_THAT(page, HasSubstr('`' + name));
            ++metrics;
        }
    }
    EXPECT_GT(metrics, 0U);
}

TEST_F(ControlTest, DrainsAndResumes) {
    Daemon daemon(directory_, "");
    MilterClient client(daemon.socket());
    ASSERT_TRUE(client.negotiate());
    EXPECT_EQ(ctl({"drain"}).status, 0);
    EXPECT_EQ(nlohmann::json::parse(ctl({"status"}).out)["draining"], true);
    EXPECT_EQ(client.deliver(prize()).code, 'a') << "nobody else would take it";
    EXPECT_EQ(ctl({"resume"}).status, 0);
    EXPECT_EQ(client.deliver(prize()).code, 'a');
    EXPECT_EQ(ctl({"log", "error"}).status, 0);
    EXPECT_EQ(nlohmann::json::parse(ctl({"status"}).out)["log"], "error");
    EXPECT_EQ(ctl({"log", "loud"}).status, 2);
}

TEST_F(ControlTest, SaysWhyItCannotAsk) {
    const Outcome none = ctl({"status"});
    EXPECT_EQ(none.status, 2);
    EXPECT_THAT(none.err, HasSubstr("no daemon answers at '"));
    EXPECT_EQ(ctl({"dance"}).status, 2);
    EXPECT_EQ(ctl({}).status, 2);
    const std::string taken = "[log]\nlevel = \"info\"\n";
    directory_.makeDirectory("control.sock");
    EXPECT_THROW(Daemon(directory_, taken), std::runtime_error) << "a directory is in the way";
}

} // namespace
} // namespace Corvane::Milter
