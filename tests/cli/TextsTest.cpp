// corvane text: what rules see of messages.

#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/Command.h"
#include "support/TempDir.h"

namespace Corvane {
namespace {

using testing::HasSubstr;
using testing::Not;

nlohmann::json textsOf(const nlohmann::json &object, const std::string &source) {
    nlohmann::json found = nlohmann::json::array();
    for (const auto &text : object["texts"]) {
        if (text["source"] == source) {
            found.push_back(text);
        }
    }
    return found;
}

TEST(Texts, TellsAllAsJson) {
    const TempDir directory;
    const std::string file = directory.write(
        "a.eml", "Return-Path: <joe@example.org>\nSubject: \xFFone\nContent-Type: text/plain; "
                 "charset=koi8-r\n\n" +
                     std::string(2100, 'x') + "\n\n" + std::string(2000, 'y') +
                     "\nhttp://a.example/ not read\n");
    const Outcome outcome = corvane({"text", "--json", file});
    EXPECT_EQ(outcome.status, 0);
    const auto object = nlohmann::json::parse(outcome.out);
    EXPECT_EQ(object["file"], file);
    EXPECT_EQ(object["language"], "RU");
    EXPECT_EQ(object["because"], "charset");
    EXPECT_EQ(object["charset"], "koi8-r");
    const auto text = textsOf(object, "text");
    ASSERT_EQ(text.size(), 3U);
    EXPECT_EQ(text[1]["piece"], 2);
    EXPECT_EQ(text[1]["offset"], 2048);
    EXPECT_EQ(text[2]["number"], 3);
    EXPECT_EQ(text[2]["unread"], 27);
    EXPECT_EQ(textsOf(object, "raw-body").size(), 5U);
    EXPECT_EQ(textsOf(object, "uri")[0]["from"], "text");
    EXPECT_EQ(textsOf(object, "sender").size(), 5U);
    EXPECT_EQ(textsOf(object, "line")[1]["textHex"], "5375626a6563743a20ff6f6e650a");
    EXPECT_EQ(corvane({"text", "--json", "--sender", "<>", file}).out.find("\"sender\""),
              std::string::npos);
    EXPECT_THAT(corvane({"text", "--sender", "x@y.example", file}).out,
                HasSubstr("EnvelopeFrom: x@y.example"));
}

TEST(Texts, TakesMailboxesAndSaysWhatCannotBeRead) {
    const TempDir directory;
    const std::string mbox = directory.write(
        "two.mbox", "From a@b.example Mon Jan  1 00:00:00 2024\nSubject: first\x1B[2J\n\nx\n\n"
                    "From c@d.example Mon Jan  1 00:00:00 2024\nSubject: second\n\n\n");
    const Outcome outcome = corvane({"text", directory.path("missing"), mbox});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_THAT(outcome.err, HasSubstr("missing': No such file"));
    EXPECT_THAT(outcome.out, HasSubstr("Subject: first\\x1b[2J\n"));
    EXPECT_THAT(outcome.out, HasSubstr("Subject: second\n"));
    EXPECT_THAT(outcome.out, Not(HasSubstr("\x1B")));
    EXPECT_EQ(corvane({"text", "--sender", "Joe Doe", mbox}).status, 2);
    EXPECT_EQ(corvane({"text"}).status, 2);
    EXPECT_EQ(corvane({"text", "-"}, "Subject: x\n\n").status, 0);
}

} // namespace
} // namespace Corvane
