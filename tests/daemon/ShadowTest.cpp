// Rules on trial beside those that count.

#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>

#include "daemon/Daemon.h"
#include "daemon/MilterClient.h"
#include "support/Command.h"
#include "support/TempDir.h"

namespace Corvane::Milter {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

class ShadowTest : public testing::Test {
protected:
    ShadowTest() {
        directory_.makeDirectory("rules");
        directory_.makeDirectory("trial");
        directory_.write("rules/a.cf", "body PRIZE /prize/\nscore PRIZE 6\n"
                                       "body LUNCH /lunch/\nscore LUNCH 2\n");
        directory_.write("trial/a.cf", "body PRIZE /prize/\nscore PRIZE 6\n"
                                       "body LUNCH /lunch/\nscore LUNCH 3\n"
                                       "body \"A,\" /lunch/\nscore \"A,\" 4\n"
                                       "body FRIEND /friend/\nscore FRIEND -3\n");
    }

    std::string config(unsigned int percent) const {
        return "[shadow]\nrules = [\"" + directory_.path("trial") +
               "\"]\npercent = " + std::to_string(percent) + "\n";
    }

    static std::string deliver(const Daemon &daemon, const std::string &body) {
        MilterClient client(daemon.socket());
        EXPECT_TRUE(client.negotiate());
        Mail mail;
        mail.bytes = "Subject: hello\nMessage-ID: <1@example.org>\n\n" + body + '\n';
        return client.deliver(mail).status();
    }

    // Once they have the line, or as they are after a while: the second scan yields to all others.
    std::string metricsWith(const std::string &line) const {
        constexpr int kTries = 200;
        constexpr int kStepMillis = 50;
        std::string text;
        for (int each = 0; each < kTries && text.find(line) == std::string::npos; ++each) {
            poll(nullptr, 0, kStepMillis);
            text = corvane({"ctl", "--socket", directory_.path("control.sock"), "metrics"}).out;
        }
        return text;
    }

    TempDir directory_;
};

TEST_F(ShadowTest, FlipsAreCountedAndLoggedWithTheirRulesAndChangeNothing) {
    Daemon daemon(directory_, config(100));
    EXPECT_THAT(deliver(daemon, "lunch"), HasSubstr("clean; score=2; threshold=5; rules=LUNCH;"));
    ASSERT_TRUE(daemon.waitFor("event=shadow_flip"));
    EXPECT_THAT(
        daemon.log(),
        AllOf(HasSubstr("event=shadow_flip id=4XqB7 message_id=<1@example.org> "
                        "flip=clean_to_hit score=2 shadow_score="),
              HasSubstr("shadow_score=7 rules=LUNCH shadow_rules=\\x22A\\x2c\\x22,LUNCH ")));
    EXPECT_THAT(deliver(daemon, "prize friend"), HasSubstr("hit; score=6;"));
    ASSERT_TRUE(daemon.waitFor("flip=hit_to_clean score=6 shadow_score=3 rules=\"\" "
                               "shadow_rules=FRIEND"));
    deliver(daemon, "nothing");
    directory_.write("trial/a.cf", "body PRIZE /prize/\nscore PRIZE 6\n");
    daemon.signal(SIGHUP);
    ASSERT_TRUE(daemon.waitFor("event=reload result=replaced"));
    deliver(daemon, "prize friend");
    directory_.write("trial/a.cf", "# none\n");
    daemon.signal(SIGHUP);
    ASSERT_TRUE(daemon.waitFor("event=reload result=failed"));
    EXPECT_THAT(daemon.log(), HasSubstr("there are no rules in the directories of shadow.rules"));
    EXPECT_THAT(metricsWith("{result=\"same\"} 2"),
                AllOf(HasSubstr("corvane_shadow_messages_total{result=\"clean_to_hit\"} 1"),
                      HasSubstr("corvane_shadow_messages_total{result=\"hit_to_clean\"} 1"),
                      HasSubstr("corvane_shadow_messages_total{result=\"same\"} 2"),
                      HasSubstr("corvane_messages_total{action=\"tag\",verdict=\"hit\"} 2"),
                      HasSubstr("corvane_rule_hits_total{rule=\"LUNCH\"} 1"),
                      Not(HasSubstr("FRIEND"))));
    EXPECT_EQ(daemon.stop(), 0);
}

TEST_F(ShadowTest, OnlySomeMessagesAreScoredTwice) {
    constexpr unsigned int kMessages = 8;
    constexpr unsigned int kPercent = 25;
    Daemon daemon(directory_, config(kPercent));
    for (unsigned int each = 0; each < kMessages; ++each) {
        deliver(daemon, "lunch");
    }
    ASSERT_TRUE(daemon.waitFor("event=shadow_flip"));
    ASSERT_TRUE(daemon.waitFor("event=shadow_flip"));
    EXPECT_EQ(daemon.stop(), 0);
    EXPECT_FALSE(daemon.waitFor("event=shadow_flip")) << "a quarter of them";
}

} // namespace
} // namespace Corvane::Milter
