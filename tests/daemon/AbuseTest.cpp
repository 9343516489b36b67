// Broken sessions beside good ones, and what clients put where lines are written.

#include <chrono>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "daemon/Abuse.h"
#include "daemon/Daemon.h"
#include "daemon/Traffic.h"
#include "support/Command.h"
#include "support/TempDir.h"

namespace Corvane::Milter {
namespace {

using testing::HasSubstr;

TEST(Abuse, BrokenSessionsEndAndLeaveTheOthersAlone) {
    constexpr unsigned int kSessions = 200;
    const TempDir directory;
    directory.makeDirectory("rules");
    directory.write("rules/a.cf", "body PRIZE /prize/\nscore PRIZE 6\n");
    Daemon daemon(directory, "");
    Traffic traffic(daemon.socket(), 2);
    for (unsigned int each = 0; each < kSessions; ++each) {
        ASSERT_NO_THROW(abuse(daemon.socket(), each)) << each;
    }
    const Traffic::Tally tally = traffic.stop();
    EXPECT_GT(tally.accepted, 0U);
    EXPECT_EQ(tally.putOff + tally.broken + tally.unreachable + tally.unscored, 0U);
    std::string metrics;
    const auto end = std::chrono::steady_clock::now() + Daemon::kPatience;
    do {
        metrics = corvane({"ctl", "--socket", directory.path("control.sock"), "metrics"}).out;
    } while (metrics.find("\ncorvane_sessions 0\n") == std::string::npos &&
             std::chrono::steady_clock::now() < end);
    EXPECT_THAT(metrics, HasSubstr("\ncorvane_sessions 0\n"));
    EXPECT_THAT(metrics, HasSubstr("\ncorvane_messages_open 0\n"));
    EXPECT_EQ(daemon.stop(), 0);
}

// The keys of a line of fields, each followed by = and a value that is bare or in quotes; none where
// it is no such line.
std::vector<std::string> keysOf(const std::string &line) {
    std::vector<std::string> keys;
    for (std::size_t at = 0; at < line.size();) {
        const std::size_t equals = line.find_first_of("= \"", at);
        if (equals == std::string::npos || line[equals] != '=') {
            return {};
        }
        keys.push_back(line.substr(at, equals - at));
        const bool isQuoted = line[equals + 1] == '"';
        const std::size_t end =
            isQuoted ? line.find('"', equals + 2) + 1 : line.find_first_of("= \"", equals + 1);
        if (end != std::string::npos && end < line.size() && line[end] != ' ') {
            return {};
        }
        at = end == std::string::npos ? line.size() : end + 1;
    }
    return keys;
}

std::vector<std::string> keysOfJson(const std::string &line) {
    std::vector<std::string> keys;
    const auto json = nlohmann::ordered_json::parse(line, nullptr, false);
    for (const auto &[key, value] : json.items()) {
        keys.push_back(key);
    }
    return keys;
}

// Rules that trip on "prize", with names that end lines, quotes and fields.
std::string hostileRules() {
    const std::string names[] = {"A\rB",
                                 "\"A",
                                 "%s%n",
                                 "{rule=\"x\"}",
                                 std::string("N\0M", 3),
                                 std::string(1000, 'L'),
                                 "\xC3\x28",
                                 "a=b,c;d"};
    std::string rules;
    for (const std::string &name : names) {
        rules += "body " + name + " /prize/\n";
    }
    return rules;
}

void expectWholeHeaders(const Answer &answer) {
    ASSERT_EQ(answer.code, 'a');
    ASSERT_EQ(answer.inserted.size(), 2U);
    for (const std::string &header : answer.inserted) {
        for (std::size_t at = 0; (at = header.find('\n', at)) != std::string::npos; ++at) {
            EXPECT_THAT(std::string(" \t"), HasSubstr(header.substr(at + 1, 1))) << header;
        }
        EXPECT_EQ(header.find_first_of(std::string("\r\0", 2)), std::string::npos);
    }
}

// Answers how many of the lines are of messages.
std::size_t expectWholeLines(const std::string &text) {
    std::istringstream log(text);
    std::size_t messages = 0;
    for (std::string line; std::getline(log, line);) {
        EXPECT_EQ(line.find_first_of(std::string("\r\0\x1B", 3)), std::string::npos);
        const bool isJson = line.front() == '{';
        const std::vector<std::string> keys = isJson ? keysOfJson(line) : keysOf(line);
        EXPECT_THAT(keys, testing::Contains("event").Times(1)) << line;
        EXPECT_THAT(keys, testing::Contains("level").Times(1)) << line;
        messages += testing::Matches(testing::Contains("message_id"))(keys) ? 1U : 0U;
    }
    return messages;
}

// Each has its form whatever stands in it: a line of the log, one of the metrics, and a header.
TEST(Abuse, NothingThatIsTakenFromOutsideForgesALine) {
    const TempDir directory;
    directory.makeDirectory("rules");
    directory.write("rules/a.cf", hostileRules());
    const std::string texts[] = {
        "a\r\nX-Corvane-Status: clean",
        std::string("a\0b", 3),
        "\" level=error event=forged",
        "' event=forged",
        "%s%n%1$s",
        "\n# TYPE forged counter\nforged 1",
        std::string(65536, 'x'),
        "\xE2\x80\xA8\xFF\x1B[2J",
    };
    for (const char *format : {"logfmt", "json"}) {
        Daemon daemon(directory, std::string("[headers]\nreport = true\n[log]\nformat = \"") +
                                     format + "\"\n");
        MilterClient client(daemon.socket());
        ASSERT_TRUE(client.negotiate());
        for (const std::string &text : texts) {
            Mail mail;
            mail.id = text;
            mail.sender = '<' + text + '>';
            mail.bytes = "Subject: hello\nMessage-ID: <" + text + ">\n\nprize\n";
            expectWholeHeaders(client.deliver(mail));
        }
        std::istringstream metrics(
            corvane({"ctl", "--socket", directory.path("control.sock"), "metrics"}).out);
        for (std::string line; std::getline(metrics, line);) {
            EXPECT_THAT(line, testing::MatchesRegex("(# (HELP|TYPE) )?corvane_.*"));
        }
        EXPECT_EQ(daemon.stop(), 0);
        EXPECT_EQ(expectWholeLines(daemon.log()), std::size(texts));
    }
}

} // namespace
} // namespace Corvane::Milter
