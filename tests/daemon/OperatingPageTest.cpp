// What the operating page says of metrics and log lines is what there is, and each has its value.

#include <algorithm>
#include <filesystem>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "daemon/Daemon.h"
#include "daemon/MilterClient.h"
#include "support/Command.h"
#include "support/TempDir.h"

namespace Corvane::Milter {
namespace {

using testing::HasSubstr;
using testing::MatchesRegex;

// The words in backquotes.
std::set<std::string> wordsIn(const std::string &text) {
    const std::regex quoted("`([^`]*)`");
    std::set<std::string> words;
    for (std::sregex_iterator at(text.begin(), text.end(), quoted), end; at != end; ++at) {
        words.insert((*at)[1]);
    }
    return words;
}

// The rows of the tables of one section, by each word of their first cells.
std::map<std::string, std::string> rowsOf(const std::string &section) {
    std::map<std::string, std::string> rows;
    std::istringstream page(TempDir::read(CORVANE_OPERATING_PAGE));
    bool isInside = false;
    for (std::string line; std::getline(page, line);) {
        isInside = line.rfind("## ", 0) == 0 ? line == "## " + section : isInside;
        if (isInside && line.rfind("| `", 0) == 0) {
            const std::size_t cell = line.find(" | ", 2);
            for (const std::string &word : wordsIn(line.substr(0, cell))) {
                rows[word] = line.substr(cell);
            }
        }
    }
    return rows;
}

std::set<std::string> wordsOf(const std::map<std::string, std::string> &rows) {
    std::set<std::string> words;
    for (const auto &[word, row] : rows) {
        words.insert(word);
    }
    return words;
}

// All events and keys that the program's source gives to the log.
struct Logged {
    Logged() {
        const std::regex event(
            R"re(LogLevel::(?:Info|Error),\s+(?:\w+ \? )?"(\w+)"(?: : "(\w+)")?)re");
        const std::regex key(R"re([.\s]add(?:Millis|Names|Escaped)?\("(\w+)")re");
        for (const auto &each : std::filesystem::directory_iterator(CORVANE_DAEMON_SOURCES)) {
            if (each.path().extension() == ".cpp") {
                const std::string source = TempDir::read(each.path().string());
                collect(source, event, events);
                collect(source, key, keys);
            }
        }
    }

    static void collect(const std::string &source, const std::regex &pattern,
                        std::set<std::string> &all) {
        for (std::sregex_iterator at(source.begin(), source.end(), pattern), end; at != end; ++at) {
            for (std::size_t group = 1; group < at->size(); ++group) {
                if ((*at)[group].matched) {
                    all.insert((*at)[group]);
                }
            }
        }
    }

    std::set<std::string> events;
    std::set<std::string> keys;
};

TEST(OperatingPage, NamesEachEventAndFieldOfTheLogAndNoOther) {
    const Logged logged;
    ASSERT_THAT(logged.events, testing::IsSupersetOf({"message", "ready", "drain", "resume"}));
    ASSERT_THAT(logged.keys, testing::IsSupersetOf({"time", "sender", "rules", "lines", "every"}));
    const std::string page = TempDir::read(CORVANE_OPERATING_PAGE);
    const std::size_t begin = page.find("\n## The log\n");
    const std::set<std::string> words =
        wordsIn(page.substr(begin, page.find("\n## Sizing") - begin));
    EXPECT_THAT(words, testing::IsSupersetOf(logged.keys));
    std::set<std::string> rows = wordsOf(rowsOf("The log"));
    for (const std::string &event : logged.events) {
        EXPECT_TRUE(event == "message" || rows.count(event) == 1) << event;
        rows.erase(event);
    }
    // What is left are the fields of a message.
    EXPECT_THAT(logged.keys, testing::IsSupersetOf(rows));
}

class ReportsTest : public testing::Test {
protected:
    ReportsTest() {
        directory_.makeDirectory("rules");
        directory_.write("rules/a.cf", "body PRIZE /prize/\nscore PRIZE 6\n"
                                       "body \xFF\\ /prize/\nscore \xFF\\ 0.5\n"
                                       "rawbody SLOW /(x+x+)+(?=y)/\nscore SLOW 1\n");
    }

    std::string metrics() const {
        return corvane({"ctl", "--socket", directory_.path("control.sock"), "metrics"}).out;
    }
    void ctl(const std::string &action) const {
        EXPECT_EQ(corvane({"ctl", "--socket", directory_.path("control.sock"), action}).status, 0);
    }

    static Mail mail(const std::string &body) {
        Mail mail;
        mail.recipients.emplace_back("<bob@example.org>");
        mail.bytes = "Subject: hello\nMessage-ID: <1@example.org>\n\n" + body + '\n';
        return mail;
    }

    TempDir directory_;
};

TEST_F(ReportsTest, EachFieldOfAMessageHasItsValue) {
    Daemon daemon(directory_, "[log]\nformat = \"json\"\n[limits]\nmessage_bytes = 3000\n");
    MilterClient client(daemon.socket());
    ASSERT_TRUE(client.negotiate());
    client.deliver(mail("prize\n" + std::string(4000, 'a')));
    client.deliver(mail(std::string(4000, 'a')));
    EXPECT_EQ(daemon.stop(), 0);
    std::istringstream log(daemon.log());
    std::vector<nlohmann::json> messages;
    for (std::string line; std::getline(log, line);) {
        nlohmann::json object = nlohmann::json::parse(line);
        if (object["event"] == "message") {
            messages.push_back(std::move(object));
        }
    }
    ASSERT_EQ(messages.size(), 2U);
    const nlohmann::json expected = {{"level", "info"},
                                     {"event", "message"},
                                     {"id", "4XqB7"},
                                     {"message_id", "<1@example.org>"},
                                     {"client", "192.0.2.1"},
                                     {"sender", "joe@example.org"},
                                     {"recipients", 2},
                                     {"size", 4053},
                                     {"verdict", "hit"},
                                     {"action", "tag"},
                                     {"score", 6.5},
                                     {"rules", "PRIZE,\\xff\\x5c"},
                                     {"limits", "message-bytes"}};
    for (const auto &[key, value] : expected.items()) {
        EXPECT_EQ(messages[0][key], value) << key;
    }
    EXPECT_THAT(messages[0]["time"].get<std::string>(),
                MatchesRegex("20[0-9-]{8}T[0-9:]{8}[.][0-9]{3}Z"));
    EXPECT_THAT(messages[0]["generation"].get<std::string>(), MatchesRegex("[0-9a-f]{16}"));
    EXPECT_NE(messages[0]["engine"], "");
    EXPECT_GT(messages[0]["scan_ms"], 0);
    EXPECT_GE(messages[0]["wait_ms"], 0);
    EXPECT_GE(messages[0]["total_ms"], messages[0]["scan_ms"]);
    EXPECT_EQ(messages[0].count("cause"), 0U);
    EXPECT_EQ(messages[1]["verdict"], "error");
    EXPECT_EQ(messages[1]["cause"], "too_large");
}

// A sample of the metrics, by the name with its labels as it is written.
std::map<std::string, double> samplesOf(const std::string &text) {
    std::map<std::string, double> samples;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (line.front() != '#') {
            const std::size_t blank = line.rfind(' ');
            samples[line.substr(0, blank)] = std::stod(line.substr(blank + 1));
        }
    }
    return samples;
}

// Its name as the page has it, such as corvane_errors_total{cause}.
std::string shapeOf(const std::string &sample) {
    const std::regex histogram("_(bucket|sum|count)(?=[{]|$)");
    const std::string plain = std::regex_replace(sample, std::regex("\"([^\"\\\\]|\\\\.)*\""), "");
    const std::string shape =
        std::regex_replace(std::regex_replace(plain, histogram, ""), std::regex("="), "");
    return std::regex_replace(shape, std::regex("[{]le[}]"), "");
}

const std::map<std::string, double> &expectedSamples() {
    static const std::map<std::string, double> samples = {
        {"corvane_messages_received_total", 4},
        {R"(corvane_messages_total{action="quarantine",verdict="hit"})", 2},
        {R"(corvane_messages_total{action="tag",verdict="clean"})", 1},
        {R"(corvane_messages_total{action="tag",verdict="error"})", 1},
        {"corvane_messages_put_off_total", 1},
        {R"(corvane_errors_total{cause="too_large"})", 1},
        {R"(corvane_rule_hits_total{rule="PRIZE"})", 2},
        {R"(corvane_rule_hits_total{rule="\\xff\\x5c"})", 2},
        {R"(corvane_limits_total{limit="message-bytes"})", 1},
        {"corvane_step_limited_total", 1},
        {R"(corvane_score_bucket{le="6"})", 1},
        {R"(corvane_score_bucket{le="8"})", 3},
        {"corvane_score_sum", 13},
        {"corvane_scan_seconds_count", 3},
        {"corvane_wait_seconds_count", 4},
        {"corvane_message_seconds_count", 4},
        {R"(corvane_reloads_total{result="replaced"})", 1},
        {"corvane_log_lines_dropped_total", 0},
        {"corvane_rules", 3},
        {"corvane_sessions", 3},
        {"corvane_sessions_refused_total", 1},
        {"corvane_messages_open", 1},
    };
    return samples;
}

TEST_F(ReportsTest, EachMetricHasItsValue) {
    const std::string trial =
        "[shadow]\nrules = [\"" + directory_.path("rules") + "\"]\npercent = 100\n";
    Daemon daemon(directory_,
                  "[[actions]]\nmin = 6\naction = \"quarantine\"\n[limits]\nmessage_bytes = 3000\n"
                  "sessions = 2\n" +
                      trial);
    MilterClient client(daemon.socket());
    ASSERT_TRUE(client.negotiate());
    client.deliver(mail("prize"));
    client.deliver(mail(std::string(60, 'x')));
    client.deliver(mail(std::string(4000, 'a')));
    MilterClient helpless(daemon.socket());
    constexpr std::uint32_t kHolds = 0x20;
    ASSERT_TRUE(helpless.negotiate(MilterClient::kActions & ~kHolds));
    EXPECT_EQ(helpless.deliver(mail("prize")).code, 't');
    helpless.envelope(mail(""));
    MilterClient third(daemon.socket());
    ASSERT_TRUE(third.negotiate());
    EXPECT_EQ(third.connection().command, 't');
    EXPECT_EQ(corvane({"ctl", "--socket", directory_.path("control.sock"), "reload"}).status, 0);
    std::map<std::string, double> samples = samplesOf(metrics());
    for (const auto &[sample, value] : expectedSamples()) {
        ASSERT_EQ(samples.count(sample), 1U) << sample;
        EXPECT_EQ(samples[sample], value) << sample;
    }
    EXPECT_GT(samples["corvane_scan_seconds_sum"], 0);
    EXPECT_GE(samples["corvane_message_seconds_sum"], samples["corvane_scan_seconds_sum"]);
    EXPECT_GT(samples["corvane_resident_memory_bytes"], 1e6);
    const std::map<std::string, std::string> rows = rowsOf("Metrics");
    for (const auto &[sample, value] : samples) {
        EXPECT_EQ(rows.count(shapeOf(sample)), 1U) << shapeOf(sample);
    }
}

TEST_F(ReportsTest, ARuleThatIsGoneHasNoMetricAnyMore) {
    Daemon daemon(directory_, "");
    MilterClient client(daemon.socket());
    ASSERT_TRUE(client.negotiate());
    client.deliver(mail("prize"));
    directory_.write("rules/a.cf", "body PRIZE /prize/\nscore PRIZE 7\nbody LATE /prize/\n");
    ctl("reload");
    client.deliver(mail("prize"));
    const std::map<std::string, double> samples = samplesOf(metrics());
    EXPECT_EQ(samples.at(R"(corvane_rule_hits_total{rule="PRIZE"})"), 2);
    EXPECT_EQ(samples.at(R"(corvane_rule_hits_total{rule="LATE"})"), 1);
    EXPECT_EQ(samples.count(R"(corvane_rule_hits_total{rule="\\xff\\x5c"})"), 0U);
}

// Each line that comes of steering the daemon has only fields that its row tells of.
TEST_F(ReportsTest, LinesHaveTheFieldsThatThePageGivesThem) {
    directory_.write("rules/b.cf", "body BROKEN /(/\n");
    Daemon daemon(directory_, "[log]\nformat = \"json\"\n");
    const std::vector<std::vector<std::string>> actions = {
        {"drain"}, {"resume"}, {"reload"}, {"profile", "--every", "10"}, {"restart"}};
    pid_t next = 0;
    for (std::vector<std::string> words : actions) {
        words.insert(words.begin(), {"ctl", "--socket", directory_.path("control.sock")});
        const Outcome outcome = corvane(words);
        EXPECT_EQ(outcome.status, 0) << outcome.err;
        const auto answer = nlohmann::json::parse(outcome.out, nullptr, false);
        next = words.back() == "restart" ? answer["pid"].get<pid_t>() : next;
    }
    EXPECT_EQ(daemon.follow(next), 0);
    EXPECT_EQ(daemon.stop(), 0);
    const std::map<std::string, std::string> rows = rowsOf("The log");
    std::set<std::string> events;
    std::istringstream log(daemon.log());
    for (std::string line; std::getline(log, line);) {
        const auto object = nlohmann::json::parse(line);
        const std::string event = object["event"];
        events.insert(event);
        ASSERT_EQ(rows.count(event), 1U) << event;
        const std::set<std::string> words = wordsIn(rows.at(event));
        for (const auto &[key, value] : object.items()) {
            const bool isCommon = key == "time" || key == "level" || key == "event";
            EXPECT_TRUE(isCommon || words.count(key) == 1) << line;
        }
    }
    EXPECT_THAT(events,
                testing::IsSupersetOf({"rules", "rule_problem", "ready", "drain", "resume",
                                       "reload", "profile", "restart", "handed_over", "stopped"}));
}

} // namespace
} // namespace Corvane::Milter
