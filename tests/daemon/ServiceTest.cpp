// The daemon from outside: what a mail server hears from it, and how it starts and stops.

#include <fstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "daemon/Daemon.h"
#include "daemon/MilterClient.h"
#include "support/TempDir.h"

namespace Corvane::Milter {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr const char *kRules =
    "body PRIZE /prize/\nscore PRIZE 6\ndescribe PRIZE Tells of a prize\n"
    "body LUNCH /lunch/\nscore LUNCH 2\n"
    "body VIRUS /virus/\nscore VIRUS 20\n"
    "body LATE /late/\nscore LATE 12\n"
    "header FORGED X-Corvane-Status =~ /clean/\nscore FORGED 9\n";

class ServiceTest : public testing::Test {
protected:
    ServiceTest() {
        directory_.makeDirectory("rules");
        directory_.write("rules/a.cf", kRules);
    }

    static Mail mail(const std::string &body, const std::string &headers = {}) {
        Mail mail;
        mail.bytes = "Subject: hello\nMessage-ID: <1@example.org>\n" + headers + '\n' + body + '\n';
        return mail;
    }

    TempDir directory_;
};

constexpr const char *kBands = "[[actions]]\nmin = -100\naction = \"none\"\n"
                               "[[actions]]\nmin = 1\naction = \"tag\"\n"
                               "[[actions]]\nmin = 6\naction = \"quarantine\"\n"
                               "[[actions]]\nmin = 12\naction = \"reject\"\ntext = \"Too late\"\n"
                               "[[actions]]\nmin = 20\naction = \"discard\"\n";

TEST_F(ServiceTest, ActsByTheHighestBandThatTheScoreReaches) {
    Daemon daemon(directory_, kBands);
    MilterClient client(daemon.socket());
    ASSERT_TRUE(client.negotiate());
    const Answer none = client.deliver(mail("nothing"));
    EXPECT_EQ(none.code, 'a');
    EXPECT_THAT(none.inserted, IsEmpty());
    const Answer tagged = client.deliver(mail("lunch"));
    EXPECT_EQ(tagged.code, 'a');
    EXPECT_THAT(tagged.status(), AllOf(HasSubstr(" clean; score=2; threshold=5; rules=LUNCH;"),
                                       HasSubstr(" id=4XqB7")));
    EXPECT_EQ(tagged.quarantined, "");
    const Answer held = client.deliver(mail("lunch prize"));
    EXPECT_EQ(held.code, 'a');
    EXPECT_THAT(held.status(), HasSubstr(" hit; score=8; threshold=5; rules=LUNCH,PRIZE;"));
    EXPECT_NE(held.quarantined, "");
    const Answer refused = client.deliver(mail("late"));
    EXPECT_EQ(refused.code, 'y');
    EXPECT_EQ(refused.text, "550 5.7.1 Too late");
    EXPECT_EQ(client.deliver(mail("virus")).code, 'd');
    EXPECT_EQ(daemon.stop(), 0);
    EXPECT_THAT(daemon.log(), AllOf(HasSubstr("message_id=<1@example.org>"),
                                    HasSubstr("verdict=hit action=quarantine"),
                                    HasSubstr("client=192.0.2.1"), HasSubstr("event=stopped")));
}

TEST_F(ServiceTest, ForgedHeadersAreScoredAndRemovedFromTheLastOn) {
    Daemon daemon(directory_, "[headers]\nreport = true\n");
    for (const std::uint32_t steps : {MilterClient::kSteps, std::uint32_t{0}}) {
        MilterClient client(daemon.socket());
        ASSERT_TRUE(client.negotiate(MilterClient::kActions, steps, steps == 0 ? 2 : 6));
        const Answer answer =
            client.deliver(mail("lunch", "X-Corvane-Status: clean\nx-corvane-REPORT: none\n"
                                         "X-Corvane-Status: clean\nX-Corvane-Other: x\n"));
        EXPECT_THAT(answer.removed,
                    ElementsAre("X-Corvane-Report 1", "X-Corvane-Status 2", "X-Corvane-Status 1"));
        EXPECT_THAT(answer.status(), HasSubstr("score=11;"));
        EXPECT_THAT(answer.header("X-Corvane-Report"), HasSubstr("FORGED 9;\tLUNCH 2"));
        EXPECT_EQ(answer.status().front(), steps == 0 ? 'h' : ' ') << "one blank in the end";
    }
}

TEST_F(ServiceTest, SkipsWhomTheConfigurationExempts) {
    Daemon daemon(directory_, "[skip]\nauthenticated = true\nnetworks = [\"198.51.100.0/24\", "
                              "\"2001:db8::/32\"]\nrecipients = [\"abuse@example.org\", "
                              "\"@Lists.example.org\"]\n");
    struct Case {
        const char *name;
        std::string login;
        std::string client;
        std::vector<std::string> recipients;
        bool skipped;
    };
    const Case cases[] = {
        {"nobody", "", "192.0.2.1", {"<ann@example.org>"}, false},
        {"login", "joe", "192.0.2.1", {"<ann@example.org>"}, true},
        {"network", "", "198.51.100.9", {"<ann@example.org>"}, true},
        {"network of IPv6", "", "2001:db8::7", {"<ann@example.org>"}, true},
        {"all recipients", "", "192.0.2.1", {"<Abuse@example.org>", "<x@lists.example.org>"}, true},
        {"not all recipients",
         "",
         "192.0.2.1",
         {"<abuse@example.org>", "<ann@example.org>"},
         false},
    };
    for (const Case &each : cases) {
        MilterClient client(daemon.socket());
        ASSERT_TRUE(client.negotiate());
        Mail prize = mail("prize", "X-Corvane-Status: clean\n");
        prize.login = each.login;
        prize.client = each.client;
        prize.recipients = each.recipients;
        const Answer answer = client.deliver(prize);
        EXPECT_EQ(answer.code, 'a');
        EXPECT_THAT(answer.status(), HasSubstr(each.skipped ? "skipped;" : "hit;")) << each.name;
        EXPECT_THAT(answer.removed, ElementsAre("X-Corvane-Status 1")) << each.name;
    }
}

TEST_F(ServiceTest, MessagesWithoutAVerdictFareAsTheCauseIsConfigured) {
    Daemon daemon(directory_, "[limits]\nmessage_bytes = 1000\n");
    MilterClient client(daemon.socket());
    ASSERT_TRUE(client.negotiate());
    const Answer large = client.deliver(mail("lunch\n" + std::string(2000, 'x')));
    EXPECT_EQ(large.code, 'a');
    EXPECT_THAT(large.status(), AllOf(HasSubstr(" error; cause=too_large; score=2;"),
                                      HasSubstr("limits=message-bytes;")));
    EXPECT_THAT(client.deliver(mail("prize\n" + std::string(2000, 'x'))).status(),
                HasSubstr(" hit; score=6;"))
        << "what is over is so whatever was left out";
    const TempDir other;
    other.makeDirectory("rules");
    Daemon empty(other, "[on_error]\nno_rules = \"tempfail\"\n");
    MilterClient late(empty.socket());
    ASSERT_TRUE(late.negotiate());
    EXPECT_EQ(late.deliver(mail("prize")).code, 't');
}

TEST_F(ServiceTest, ScoresMessagesWithHeadersAsLongAsAServerTakesThem) {
    Daemon daemon(directory_, "");
    // What follows a header that fills a piece of the protocol is seen too; Postfix cuts at 102,400.
    for (const std::size_t bytes : {65500U, 65535U, 65536U, 70000U, 102400U, 250000U}) {
        MilterClient client(daemon.socket());
        ASSERT_TRUE(client.negotiate());
        const std::string header = "X-Long: " + std::string(bytes, 'x') + '\n';
        const Answer answer = client.deliver(mail("prize", header));
        EXPECT_EQ(answer.code, 'a') << bytes;
        EXPECT_THAT(answer.status(), HasSubstr(" hit; score=6;")) << bytes;
        EXPECT_THAT(answer.status(), HasSubstr("limits=header-value-bytes;")) << bytes;
    }
}

TEST_F(ServiceTest, AMessageGivenUpLeavesNothingForTheNext) {
    Daemon daemon(directory_, "");
    MilterClient client(daemon.socket());
    ASSERT_TRUE(client.negotiate());
    client.connection();
    const Mail prize = mail("prize");
    for (int stage = 0; stage < 3; ++stage) {
        client.envelope(prize);
        if (stage > 0) {
            client.step('L', std::string("Subject") + '\0' + " prize" + '\0', 0x80);
        }
        if (stage > 1) {
            client.step('N', {}, 0x40000);
            client.step('B', "prize\r\n", 0x80000);
        }
        client.sendPacket('A');
        client.envelope(mail(""));
        client.content(mail("lunch"));
        EXPECT_THAT(client.end("").status(), AllOf(HasSubstr("score=2;"), HasSubstr("id=none")));
    }
}

TEST_F(ServiceTest, NothingThatABrokenServerSendsHarmsOtherSessions) {
    Daemon daemon(directory_, "");
    using namespace std::string_literals;
    const std::string beginnings[] = {
        ""s,
        "GET / HTTP/1.0\r\n\r\n"s,
        "\0\0\0\0"s,
        "\xFF\xFF\xFF\xFFO"s,
        "\0\0\0\x0D"s,
        "\0\0\0\1E"s,
        "\0\0\0\5Oxxxx"s,
        "\0\0\0\1O\0\0\0\1B"s,
    };
    for (const std::string &each : beginnings) {
        const MilterClient client(daemon.socket());
        client.sendRaw(each);
    }
    const std::vector<Packet> sequences[] = {
        {{'B', "body first"}, {'L', "Subject\0x\0"s}, {'E', ""}},
        {{'M', "<a@b>\0"s}, {'E', ""}},
        {{'L', "no end of the name"}, {'E', ""}},
        {{'C', "name\0"s}, {'M', ""}, {'R', ""}, {'N', ""}, {'E', ""}},
        {{'?', "x"}, {'Q', ""}, {'E', ""}},
        {{'D', "Mi\0"s}, {'D', ""}, {'D', "\xFF"}, {'M', "<a@b>\0"s}, {'A', ""}, {'E', ""}},
    };
    for (const auto &sequence : sequences) {
        MilterClient client(daemon.socket());
        ASSERT_TRUE(client.negotiate());
        for (const Packet &each : sequence) {
            client.sendPacket(each.command, each.data);
        }
    }
    MilterClient client(daemon.socket());
    ASSERT_TRUE(client.negotiate());
    EXPECT_THAT(client.deliver(mail("prize")).status(), HasSubstr("hit"));
    EXPECT_FALSE(MilterClient(daemon.socket()).negotiate(0)) << "it could not tag";
    EXPECT_EQ(daemon.stop(), 0);
}

TEST_F(ServiceTest, RefusesSessionsBeyondTheBound) {
    Daemon daemon(directory_, "[limits]\nsessions = 1\n");
    MilterClient first(daemon.socket());
    ASSERT_TRUE(first.negotiate());
    EXPECT_EQ(first.connection().command, 'c');
    MilterClient second(daemon.socket());
    ASSERT_TRUE(second.negotiate());
    EXPECT_EQ(second.connection().command, 't');
}

TEST_F(ServiceTest, StopsAtOnceButFinishesTheMessageAtHand) {
    Daemon daemon(directory_, "");
    MilterClient idle(daemon.socket());
    ASSERT_TRUE(idle.negotiate());
    MilterClient busy(daemon.socket());
    ASSERT_TRUE(busy.negotiate());
    busy.connection();
    busy.envelope(mail(""));
    daemon.signal(SIGTERM);
    // The listening socket goes before the messages are waited for.
    struct stat ignored {};
    const auto end = std::chrono::steady_clock::now() + Daemon::kPatience;
    while (stat(daemon.socket().c_str(), &ignored) == 0 && std::chrono::steady_clock::now() < end) {
        sched_yield();
    }
    busy.content(mail("prize"));
    EXPECT_THAT(busy.end("1").status(), HasSubstr("hit"));
    EXPECT_EQ(daemon.wait(), 0);
    EXPECT_THAT(daemon.log(), HasSubstr("given_up=0"));
}

TEST_F(ServiceTest, AReloadTakesNewRulesAndKeepsTheOldWhereItMust) {
    Daemon daemon(directory_, "");
    MilterClient client(daemon.socket());
    ASSERT_TRUE(client.negotiate());
    EXPECT_THAT(client.deliver(mail("prize")).status(), HasSubstr("score=6;"));
    directory_.write("rules/a.cf", "body PRIZE /prize/\nscore PRIZE 7\n");
    daemon.signal(SIGHUP);
    ASSERT_TRUE(daemon.waitFor("event=reload result=replaced"));
    EXPECT_THAT(client.deliver(mail("prize")).status(), HasSubstr("score=7;"));
    directory_.write("rules/a.cf", "# nothing\n");
    daemon.signal(SIGHUP);
    ASSERT_TRUE(daemon.waitFor("event=reload result=empty"));
    std::ofstream(directory_.path("milter.toml"), std::ios::app) << "[wrong]\n";
    daemon.signal(SIGHUP);
    ASSERT_TRUE(daemon.waitFor("event=reload result=failed"));
    EXPECT_THAT(daemon.log(), HasSubstr("unknown key 'wrong'"));
    EXPECT_THAT(client.deliver(mail("prize")).status(), HasSubstr("score=7;"));
    EXPECT_EQ(daemon.stop(), 0);
}

TEST_F(ServiceTest, RulesThatNeedTooMuchMemoryAreNotTaken) {
    constexpr std::size_t kRoomBytes = 12U << 20U;
    std::size_t resident = 0;
    {
        Daemon daemon(directory_, "");
        std::ifstream statm("/proc/" + std::to_string(daemon.process()) + "/statm");
        statm >> resident >> resident;
        resident *= static_cast<std::size_t>(getpagesize());
    }
    Daemon daemon(directory_,
                  "[limits]\nmemory_bytes = " + std::to_string(resident + kRoomBytes) + "\n");
    std::string many;
    constexpr int kMany = 10000;
    for (int each = 0; each < kMany; ++each) {
        const std::string word = std::to_string(each);
        many += "body R" + word + " /a[b" + word + "]+c" + word + "|d" + word + "{3}e/i\n";
    }
    directory_.write("rules/large.cf", many);
    daemon.signal(SIGHUP);
    ASSERT_TRUE(daemon.waitFor("event=reload result=memory")) << "by what they have taken";
    directory_.write("rules/large.cf", std::string(2 * kRoomBytes, '\n'));
    daemon.signal(SIGHUP);
    ASSERT_TRUE(daemon.waitFor("event=reload result=memory")) << "by the size of the files";
    EXPECT_THAT(daemon.log(), AllOf(HasSubstr("would take the process to about"),
                                    HasSubstr("have taken the process to")));
    MilterClient client(daemon.socket());
    ASSERT_TRUE(client.negotiate());
    EXPECT_THAT(client.deliver(mail("prize")).status(), HasSubstr("score=6;"));
    EXPECT_EQ(daemon.stop(), 0);
}

TEST_F(ServiceTest, TakesOverADeadSocketButNotALivingOne) {
    {
        Daemon killed(directory_, "");
        killed.signal(SIGKILL);
        EXPECT_EQ(killed.wait(), -1);
    }
    Daemon daemon(directory_, "[log]\nformat = \"json\"\n");
    struct stat status {};
    ASSERT_EQ(stat(daemon.socket().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0660U);
    EXPECT_THROW(Daemon(directory_, ""), std::runtime_error);
    MilterClient client(daemon.socket());
    ASSERT_TRUE(client.negotiate());
    Mail odd = mail("prize");
    odd.sender = "<\"a\"\\\r\n\x01\xFF@example.org>";
    client.deliver(odd);
    EXPECT_EQ(daemon.stop(), 0);
    EXPECT_THAT(daemon.log(),
                HasSubstr(R"("sender":"\\x22a\\x22\\x5c\\x0d\\x0a\\x01\\xff@example.org")"));
    EXPECT_NE(stat(daemon.socket().c_str(), &status), 0) << "its own socket goes with it";
}

TEST_F(ServiceTest, ListensOnTcpToo) {
    Daemon daemon(directory_, "", "inet:0@127.0.0.1");
    const std::string mark = "socket=inet:";
    const std::size_t at = daemon.log().find(mark) + mark.size();
    MilterClient client(static_cast<std::uint16_t>(std::stoul(daemon.log().substr(at))));
    ASSERT_TRUE(client.negotiate());
    EXPECT_FALSE(client.has(0x80)) << "silence makes small packets wait for each other";
    EXPECT_THAT(client.deliver(mail("prize")).status(), HasSubstr("hit"));
    EXPECT_EQ(daemon.stop(), 0);
}

TEST_F(ServiceTest, TestsAConfigurationWithoutServing) {
    struct Case {
        std::string config;
        int status;
        const char *said;
    };
    const Case cases[] = {
        {Daemon::text(directory_, ""), 0, "5 rules loaded"},
        {Daemon::text(directory_, "[scan]\nbudget = -1\n"), 78,
         "milter.toml:9:10: scan.budget: this is no number from 0 to 86400 seconds"},
        {"rules = [\"/nonexistent\"]\n", 78, "rule directory '/nonexistent' does not exist"},
    };
    for (const Case &each : cases) {
        const std::string config = directory_.write("milter.toml", each.config);
        const std::string line = std::string("'") + CORVANE_MILTER + "' -t -c '" + config +
                                 "' 2>'" + directory_.path("said") + "'";
        const int status = std::system(line.c_str());
        EXPECT_EQ(WEXITSTATUS(status), each.status);
        EXPECT_THAT(TempDir::read(directory_.path("said")), HasSubstr(each.said));
    }
}

} // namespace
} // namespace Corvane::Milter
