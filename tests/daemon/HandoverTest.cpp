// A restart that hands the sockets over to a new process, and the ways in which it does not.

#include <filesystem>
#include <memory>
#include <string>

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
using testing::Not;

class HandoverTest : public testing::Test {
protected:
    HandoverTest() {
        directory_.makeDirectory("rules");
        directory_.write("rules/a.cf", "body PRIZE /prize/\nscore PRIZE 6\n");
    }

    nlohmann::json ctl(const std::string &action, int status = 0) const {
        const Outcome outcome =
            corvane({"ctl", "--socket", directory_.path("control.sock"), action});
        EXPECT_EQ(outcome.status, status) << outcome.out << outcome.err;
        return nlohmann::json::parse(outcome.out, nullptr, false);
    }

    static std::string statusFrom(MilterClient &client) {
        Mail mail;
        mail.bytes = "Subject: hello\n\nprize\n";
        return client.deliver(mail).status();
    }
    std::string statusOfNew() const {
        MilterClient client(directory_.path("milter.sock"));
        EXPECT_TRUE(client.negotiate());
        return statusFrom(client);
    }

    TempDir directory_;
};

TEST_F(HandoverTest, OpenSessionsStayAndNewOnesGoToTheNewProcess) {
    Daemon daemon(directory_, "");
    auto open = std::make_unique<MilterClient>(daemon.socket());
    ASSERT_TRUE(open->negotiate());
    EXPECT_THAT(statusFrom(*open), HasSubstr("score=6;"));
    // Has connected and said nothing yet.
    auto early = std::make_unique<MilterClient>(daemon.socket());
    directory_.write("rules/a.cf", "body PRIZE /prize/\nscore PRIZE 7\n");
    const nlohmann::json answer = ctl("restart");
    EXPECT_EQ(answer["result"], "restarted");
    EXPECT_NE(answer["former"], answer["current"]);
    EXPECT_NE(answer["pid"], daemon.process());
    EXPECT_EQ(ctl("status")["pid"], answer["pid"]);
    EXPECT_THAT(statusOfNew(), HasSubstr("score=7;"));
    EXPECT_THAT(statusFrom(*open), HasSubstr("score=6;"));
    ASSERT_TRUE(early->negotiate());
    EXPECT_THAT(statusFrom(*early), HasSubstr("score=6;"));
    open.reset();
    early.reset();
    EXPECT_EQ(daemon.follow(answer["pid"]), 0);
    EXPECT_THAT(daemon.log(), HasSubstr("event=handed_over"));
    EXPECT_THAT(statusOfNew(), HasSubstr("score=7;")) << "it has removed its own socket alone";
    EXPECT_EQ(ctl("status")["pid"], answer["pid"]);
    const nlohmann::json again = ctl("restart");
    EXPECT_EQ(daemon.follow(again["pid"]), 0);
    EXPECT_EQ(daemon.stop(), 0);
    EXPECT_FALSE(std::filesystem::exists(daemon.socket()));
    EXPECT_FALSE(std::filesystem::exists(directory_.path("control.sock")));
}

TEST_F(HandoverTest, SessionsThatNeverEndAreLeftAfterAWhile) {
    Daemon daemon(directory_, "[limits]\nstop = 0\n");
    MilterClient open(daemon.socket());
    ASSERT_TRUE(open.negotiate());
    EXPECT_EQ(daemon.follow(ctl("restart")["pid"]), 0);
    EXPECT_THAT(statusOfNew(), HasSubstr("hit"));
}

TEST_F(HandoverTest, WhatCannotServeLeavesTheOldProcessThere) {
    Daemon daemon(directory_, "");
    const std::string right = TempDir::read(directory_.path("milter.toml"));
    const std::string rules = TempDir::read(directory_.path("rules/a.cf"));
    const auto replaced = [&right](const std::string &from, const std::string &to) {
        std::string text = right;
        return text.replace(text.find(from), from.size(), to);
    };
    struct Case {
        const char *name;
        std::string config;
        std::string rules;
        const char *reason;
    };
    const Case cases[] = {
        {"configuration", right + "wrong = 1\n", rules, "unknown key 'sets.wrong'"},
        {"no rules", right, "# none\n", "the new rule set has no rules"},
        {"no directory", replaced("/rules", "/none"), rules, "does not exist"},
        {"control socket", replaced("control.sock", "none/control.sock"), rules,
         "cannot listen on '"},
        {"other path", replaced("milter.sock", "other.sock"), rules, "is another path by now"},
        {"TCP", replaced("unix:", "inet:0@127.0.0.1\"\n#"), rules, "a TCP socket"},
        {"memory", right + "[limits]\nmemory_bytes = 1000\n", rules, "limits.memory_bytes"},
    };
    for (const Case &each : cases) {
        directory_.write("milter.toml", each.config);
        directory_.write("rules/a.cf", each.rules);
        const nlohmann::json answer = ctl("restart", 1);
        EXPECT_EQ(answer["result"], "failed") << each.name;
        EXPECT_EQ(answer["pid"], daemon.process()) << each.name;
        EXPECT_THAT(answer["reason"].get<std::string>(), HasSubstr(each.reason)) << each.name;
        EXPECT_THAT(statusOfNew(), HasSubstr("score=6;")) << each.name;
    }
    directory_.write("milter.toml", right);
    directory_.write("rules/a.cf", rules);
    EXPECT_EQ(daemon.follow(ctl("restart")["pid"]), 0);
    EXPECT_EQ(daemon.stop(), 0);
}

} // namespace
} // namespace Corvane::Milter
