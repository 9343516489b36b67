// The control socket and the metrics, by the command that asks for them.

#include <algorithm>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

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

// Without the times, which differ from scan to scan.
std::string withoutTimes(const std::string &json) {
    return std::regex_replace(json, std::regex(R"("ms":[0-9.e+-]+)"), "\"ms\":0");
}

TEST_F(ControlTest, ScansViaTheDaemonAsWithRulesOfItsOwn) {
    Daemon daemon(directory_, "[scan]\nthreshold = 100\npercent = 1\n");
    const std::string messages = CORVANE_TEST_DATA_DIR "/mail";
    const std::string missing = directory_.path("missing.eml");
    directory_.write("two.mbox", "From a@b.example Mon Jan  1 00:00:00 2024\nSubject: prize\n\n"
                                 "prize\n\nFrom c@d.example Mon Jan  1 00:00:00 2024\n\nnone\n");
    const std::vector<std::string> sources[] = {
        {"--rules", directory_.path("rules"), "--budget", "0"},
        {"--via", directory_.path("control.sock")}};
    const std::vector<std::string> uses[] = {
        {"--json", messages, directory_.path("two.mbox"), missing},
        {messages, missing},
        {"-j", "3", "--threshold", "5.5", directory_.path("two.mbox")},
        {"--threshold", "-1", "--stop", "--sender", "<>", "--json", messages},
        {"--percent", "50", "--strict", directory_.path("two.mbox")},
    };
    for (const auto &use : uses) {
        Outcome outcomes[2];
        for (std::size_t way = 0; way < 2; ++way) {
            std::vector<std::string> words{"scan"};
            words.insert(words.end(), sources[way].begin(), sources[way].end());
            words.insert(words.end(), use.begin(), use.end());
            outcomes[way] = corvane(words);
        }
        EXPECT_EQ(withoutTimes(outcomes[1].out), withoutTimes(outcomes[0].out)) << use.front();
        EXPECT_EQ(outcomes[1].status, outcomes[0].status) << use.front();
        EXPECT_NE(outcomes[1].out, "");
    }
    EXPECT_EQ(daemon.stop(), 0);
}

TEST_F(ControlTest, ScansForManyAtOnce) {
    Daemon daemon(directory_, "[limits]\nscans = 4\n");
    std::string mbox;
    constexpr int kMessages = 400;
    for (int each = 0; each < kMessages; ++each) {
        mbox += "From a@b.example Mon Jan  1 00:00:00 2024\nSubject: " + std::to_string(each) +
                "\n\nprize\n\n";
    }
    const std::string file = directory_.write("many.mbox", mbox);
    const Outcome outcome =
        corvane({"scan", "--via", directory_.path("control.sock"), "-j", "64", "--json", file});
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(std::count(outcome.out.begin(), outcome.out.end(), '\n'), kMessages);
    EXPECT_EQ(daemon.stop(), 0);
}

TEST_F(ControlTest, SaysWhyItCannotScanViaTheDaemon) {
    const std::string socket = directory_.path("control.sock");
    const std::string message =
        directory_.write("m.eml", "Subject: x\n\n" + std::string(4096, 'x'));
    const auto scan = [&](const std::vector<std::string> &more) {
        std::vector<std::string> words{"scan", "--via", socket, message};
        words.insert(words.end(), more.begin(), more.end());
        return corvane(words);
    };
    const Outcome nobody = scan({});
    EXPECT_EQ(nobody.status, 2);
    EXPECT_THAT(nobody.err, HasSubstr("no daemon answers at '" + socket + "'"));
    Daemon daemon(directory_, "[limits]\nmessage_bytes = 1024\n");
    EXPECT_THAT(scan({}).err, HasSubstr("larger than the daemon's limits.message_bytes"));
    EXPECT_EQ(scan({}).status, 2);
    EXPECT_THAT(scan({"--verbose"}).err, HasSubstr("--via tries it elsewhere"));
    EXPECT_EQ(scan({"--budget", "1"}).status, 2);
    EXPECT_EQ(scan({"--rules", directory_.path("rules")}).status, 2);
}

TEST(Monitoring, AsksForMetricsThatThereAre) {
    // It names each metric, those too that have counted nothing yet.
    const std::string page = TempDir::read(CORVANE_OPERATING_PAGE);
    for (const char *name : {"corvane-milter.rules.yml", "corvane-milter.dashboard.json"}) {
        const std::string text = TempDir::read(std::string(CORVANE_MONITORING_DIR "/") + name);
        const std::regex word("corvane_[a-z_]+");
        std::size_t words = 0;
        for (std::sregex_iterator at(text.begin(), text.end(), word), end; at != end; ++at) {
            const std::string metric = std::regex_replace(at->str(), std::regex("_bucket$"), "");
            EXPECT_THAT(page, HasSubstr('`' + metric)) << name;
            ++words;
        }
        EXPECT_GT(words, 0U) << name;
    }
}

// Name, tries and matches of each rule.
std::string profiled(const nlohmann::json &profile) {
    std::ostringstream text;
    for (const auto &rule : profile["rules"]) {
        text << rule["name"].get<std::string>() << ' ' << rule["tries"] << ' ' << rule["matches"]
             << '\n';
    }
    return text.str();
}

TEST_F(ControlTest, ProfilesRulesOnceAskedTo) {
    directory_.write("rules/a.cf", "body PRIZE /prize/\nscore PRIZE 6\nbody \"\xFF\\\n /prize/\n"
                                   "body FIGURES /^(?:\\d\\w)+$/\nmeta BOTH PRIZE && FIGURES\n");
    Daemon daemon(directory_, "");
    MilterClient client(daemon.socket());
    ASSERT_TRUE(client.negotiate());
    client.deliver(prize());
    EXPECT_THAT(ctl({"profile"}).out, HasSubstr("nothing was profiled"));
    EXPECT_EQ(ctl({"profile", "--every", "2"}).status, 0);
    EXPECT_THAT(ctl({"profile"}).out, HasSubstr("0 messages profiled, one in 2\n"));
    for (int each = 0; each < 5; ++each) {
        client.deliver(prize());
    }
    // Of an equal number the ones that took longer are first, which is left to chance.
    const auto profile = nlohmann::json::parse(ctl({"profile", "--json"}).out);
    EXPECT_EQ(profile["messages"], 3);
    EXPECT_EQ(profile["every"], 2);
    EXPECT_THAT(profiled(profile),
                AllOf(HasSubstr("PRIZE 6 3\n"), HasSubstr("BOTH 3 0\n"), Not(HasSubstr("\xFF"))));
    EXPECT_GT(profile["tries_us"].get<double>(), 0);
    EXPECT_GT(profile["scanning_us"].get<double>(), profile["tries_us"].get<double>());
    const auto best =
        nlohmann::json::parse(ctl({"profile", "--json", "--sort", "matches", "--top", "1"}).out);
    EXPECT_THAT(profiled(best), testing::EndsWith(" 3\n"));
    EXPECT_THAT(ctl({"profile", "--sort", "tries"}).out,
                testing::ContainsRegex(" 6 +[0-9]+ +3 +0 +body +PRIZE  .*/rules/a.cf:1\n"));

    EXPECT_EQ(ctl({"reload"}).status, 0);
    EXPECT_EQ(nlohmann::json::parse(ctl({"profile", "--json"}).out)["messages"], 3)
        << "the rules are the same";
    EXPECT_EQ(ctl({"profile", "--every", "0"}).status, 0);
    client.deliver(prize());
    client.deliver(prize());
    EXPECT_THAT(ctl({"profile"}).out, HasSubstr("3 messages profiled, off now\n"));
    EXPECT_EQ(ctl({"profile", "--every", "1"}).status, 0);
    client.deliver(prize());
    directory_.write("rules/a.cf", "body OTHER /prize/\n");
    EXPECT_EQ(ctl({"reload"}).status, 0);
    client.deliver(prize());
    EXPECT_EQ(profiled(nlohmann::json::parse(ctl({"profile", "--json"}).out)), "OTHER 2 1\n");
    EXPECT_EQ(ctl({"profile", "--every", "x"}).status, 2);
    EXPECT_EQ(ctl({"profile", "--sort", "beauty"}).status, 2);
    EXPECT_EQ(ctl({"profile", "--every", "1", "--top", "3"}).status, 2);
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
