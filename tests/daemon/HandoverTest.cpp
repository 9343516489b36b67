// A restart that hands the sockets over to a new process, and the ways in which it does not.

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <nlohmann/json.hpp>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "Sockets.h"
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

// A port that nobody has at the moment.
unsigned int freePort() {
    const int file = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    EXPECT_EQ(bind(file, reinterpret_cast<const sockaddr *>(&address), size), 0);
    EXPECT_EQ(getsockname(file, reinterpret_cast<sockaddr *>(&address), &size), 0);
    close(file);
    return ntohs(address.sin_port);
}

TEST_F(HandoverTest, ThePortOfTheMetricsGoesToTheNewProcessAndToNoOther) {
    const unsigned int port = freePort();
    // The first line is of [control], which comes right before.
    const std::string more =
        "metrics = \"127.0.0.1:" + std::to_string(port) + "\"\n[sets]\nkeep = 0\n";
    Daemon daemon(directory_, more);
    const nlohmann::json answer = ctl("restart");
    EXPECT_EQ(daemon.follow(answer["pid"]), 0) << "with the port shared for a while";
    EXPECT_TRUE(touchInet("127.0.0.1", port));
    const TempDir other;
    other.makeDirectory("rules");
    other.write("rules/a.cf", "body PRIZE /prize/\n");
    try {
        Daemon neighbour(other, more);
        ADD_FAILURE() << "two have the port";
    } catch (const std::runtime_error &failure) {
        EXPECT_THAT(failure.what(), HasSubstr("see that no other process has the port"));
    }
    EXPECT_EQ(daemon.stop(), 0);
    EXPECT_FALSE(touchInet("127.0.0.1", port));
}

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

// What the service manager hears, as it hears it.
class Manager {
public:
    explicit Manager(const std::string &path) : file_(socket(AF_UNIX, SOCK_DGRAM, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(std::begin(address.sun_path), sizeof(address.sun_path) - 1);
        EXPECT_EQ(bind(file_, reinterpret_cast<const sockaddr *>(&address), sizeof(address)), 0);
        setenv("NOTIFY_SOCKET", path.c_str(), 1);
        setenv("WATCHDOG_USEC", "2000000", 1);
    }
    Manager(const Manager &) = delete;
    Manager &operator=(const Manager &) = delete;
    ~Manager() {
        unsetenv("NOTIFY_SOCKET");
        unsetenv("WATCHDOG_USEC");
        close(file_);
    }

    // All that was said since, each behind a bar.
    std::string heard() const {
        constexpr std::size_t kRoom = 4096;
        std::string all;
        std::vector<char> bytes(kRoom);
        ssize_t got = 0;
        while ((got = recv(file_, bytes.data(), bytes.size(), MSG_DONTWAIT)) >= 0) {
            all += '|' + std::string(bytes.data(), static_cast<std::size_t>(got));
        }
        return all;
    }

private:
    int file_;
};

TEST_F(HandoverTest, TheServiceManagerHearsOfTheNewProcessAndOfNoEnd) {
    const Manager manager(directory_.path("notify"));
    Daemon daemon(directory_, "");
    const std::string old = std::to_string(daemon.process());
    const nlohmann::json answer = ctl("restart");
    EXPECT_EQ(daemon.follow(answer["pid"]), 0);
    const std::string heard = manager.heard();
    const std::string fresh = answer["pid"].dump();
    EXPECT_THAT(heard, HasSubstr("|READY=1\nMAINPID=" + old));
    EXPECT_THAT(heard, HasSubstr("|READY=1\nMAINPID=" + fresh));
    EXPECT_THAT(heard, Not(HasSubstr("STOPPING"))) << "the service goes on";
    EXPECT_EQ(daemon.stop(), 0);
    EXPECT_THAT(manager.heard(), HasSubstr("|STOPPING=1"));
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
