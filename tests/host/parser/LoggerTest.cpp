#include "host/parser/Logger.h"

#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace Corvane {
namespace {

class LoggerSink : public testing::Test {
protected:
    ~LoggerSink() override { Logger::instance(false).sink({}); }
};

TEST_F(LoggerSink, ReceivesTextOfAnyLength) {
    std::vector<std::string> texts;
    Logger &log = Logger::instance(false);
    log.sink([&texts](unsigned int id, int level, const std::string &text) {
        EXPECT_EQ(id, 0x3000031U);
        EXPECT_EQ(level, 0);
        texts.push_back(text);
    });
    for (const std::size_t length : {0U, 511U, 512U, 513U, 100000U}) {
        log.log(0x3000031, 0, "%s\x01%s", "NAME", std::string(length, 'x').c_str());
        EXPECT_EQ(texts.back(), "NAME\x01" + std::string(length, 'x'));
    }
    EXPECT_EQ(texts.size(), 5U);
}

TEST_F(LoggerSink, ContainsThrowingSink) {
    Logger &log = Logger::instance(false);
    log.sink([](unsigned int, int, const std::string &) { throw std::runtime_error("sink"); });
    EXPECT_NO_THROW(log.log(0x300002F, 0, "%s", " "));
}

TEST_F(LoggerSink, ReplacementAnswersFormerSink) {
    Logger &log = Logger::instance(false);
    int calls = 0;
    EXPECT_FALSE(log.sink([&calls](unsigned int, int, const std::string &) { ++calls; }));
    const Logger::Sink former = log.sink({});
    ASSERT_TRUE(former);
    former(0, 0, "");
    EXPECT_EQ(calls, 1);
}

TEST(Logger, PrintableShowsSeparatorAsBlankAndEscapesTheRest) {
    EXPECT_EQ(Logger::printable("a\x01"
                                "b\n\x7F\xC3\xA9"),
              "a b\\x0a\\x7f\xC3\xA9");
}

} // namespace
} // namespace Corvane
