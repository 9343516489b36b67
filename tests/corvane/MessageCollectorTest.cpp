#include "corvane/MessageCollector.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/TempDir.h"

namespace corvane {
namespace {

RuleSet rulesOf(const std::string &text) {
    return RuleSet::fromMemory({{"a.cf", text}});
}

TEST(MessageCollector, MakesTheMessageThatAFileWouldHold) {
    MessageCollector message;
    message.header("Subject", "folded\r\n\tvalue");
    message.rawHeader("X-Odd", "no blank");
    message.rawHeader("X-Wide", "   three");
    EXPECT_EQ(message.bytes(), "Subject: folded\n\tvalue\nX-Odd:no blank\nX-Wide:   three\n");
    message.body("one\r");
    message.body("\ntwo\rthree\r\r\n");
    message.body("");
    message.body("\r");
    message.body("four\r");
    EXPECT_EQ(message.bytes(), "Subject: folded\n\tvalue\nX-Odd:no blank\nX-Wide:   three\n\n"
                               "one\ntwo\rthree\r\n\rfour");
    EXPECT_EQ(message.dropped(), 0U);
}

TEST(MessageCollector, ScansWhatWasCollectedAndBeginsAnew) {
    const RuleSet rules = rulesOf("body PRIZE /prize/\nheader HELLO Subject =~ /hello/\n"
                                  "full END /end\\r$/\n");
    MessageCollector message;
    message.header("Subject", "hello");
    message.body("a pri");
    message.body("ze\r\nend\r");
    EXPECT_EQ(message.finish(rules).hits().size(), 2U) << "an unterminated line is no line";
    EXPECT_EQ(message.bytes(), "");
    message.header("Subject", "hello");
    EXPECT_EQ(message.finish(rules).hits().size(), 1U) << "a message without a body";
    message.body("prize");
    message.reset();
    EXPECT_TRUE(message.finish(rules).hits().empty());
    ScanOptions options;
    options.sender = "a@b.example";
    message.reset(options);
    message.header("Subject", "x");
    EXPECT_EQ(message.finish(rulesOf("header FROM EnvelopeFrom =~ /a@b/\n")).hits().size(), 1U);
}

TEST(MessageCollector, NeverHoldsMoreThanTheLimitAndOneByte) {
    ScanOptions options;
    options.limits.messageBytes = 1000;
    const RuleSet rules = rulesOf("full A /a/\n");
    MessageCollector message(options);
    const std::string piece(300, 'a');
    message.body(piece);
    message.body(piece);
    message.body(piece);
    message.body(std::string(99, 'b'));
    EXPECT_EQ(message.bytes().size(), 1000U);
    EXPECT_EQ(message.dropped(), 0U);
    message.body("\r\n");
    EXPECT_EQ(message.bytes().size(), 1001U);
    for (int i = 0; i < 1000; ++i) {
        message.body(piece);
    }
    EXPECT_EQ(message.bytes().size(), 1001U);
    EXPECT_EQ(message.dropped(), 300000U);
    EXPECT_THAT(message.finish(rules).limits(), testing::Contains("message-bytes"));
    EXPECT_EQ(message.dropped(), 0U);
    message.body(std::string(999, 'a'));
    EXPECT_TRUE(message.finish(rules).limits().empty());
}

// Handed over as a mail server does it, however it is cut: the file's own bytes.
TEST(MessageCollector, AnyCutGivesTheSame) {
    const std::string file = "Received: from a\n\tby b\nSubject: x\nEmpty:\n\nfirst\n\nsecond\n.\n";
    std::string wire;
    for (const char byte : file.substr(file.find("\n\n") + 2)) {
        wire += byte == '\n' ? "\r\n" : std::string(1, byte);
    }
    for (std::size_t step = 1; step <= wire.size(); ++step) {
        MessageCollector message;
        message.rawHeader("Received", " from a\n\tby b");
        message.rawHeader("Subject", " x");
        message.rawHeader("Empty", "");
        for (std::size_t at = 0; at < wire.size(); at += step) {
            message.body(std::string_view(wire).substr(at, step));
        }
        EXPECT_EQ(message.bytes(), file) << step;
    }
}

} // namespace
} // namespace corvane
