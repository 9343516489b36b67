// What foreign bytes become in log lines and headers.

#include "Text.h"

#include <algorithm>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Log.h"
#include "StatusHeader.h"

namespace Corvane::Milter {
namespace {

using testing::HasSubstr;

TEST(Escaped, LeavesNothingThatCouldEndAField) {
    struct Case {
        std::string text;
        Charset charset;
        const char *expected;
    };
    using namespace std::string_literals;
    const Case cases[] = {
        {"plain text", Charset::Ascii, "plain text"},
        {"a\r\nb\0c\t\x7F"s, Charset::Utf8, "a\\x0d\\x0ab\\x00c\\x09\\x7f"},
        {"back\\slash \"q\"", Charset::Ascii, "back\\x5cslash \\x22q\\x22"},
        {"gr\xC3\xBC\xC3\x9F\x65", Charset::Utf8, "gr\xC3\xBC\xC3\x9F\x65"},
        {"gr\xC3\xBC", Charset::Ascii, "gr\\xc3\\xbc"},
        {"\xC3", Charset::Utf8, "\\xc3"},
        {"\xC0\xAF\xE0\x80\xAF", Charset::Utf8, "\\xc0\\xaf\\xe0\\x80\\xaf"},
        {"\xED\xA0\x80\xF4\x90\x80\x80", Charset::Utf8, "\\xed\\xa0\\x80\\xf4\\x90\\x80\\x80"},
        {"\xC2\x85\xE2\x80\xA8\xE2\x80\xA9", Charset::Utf8,
         "\\xc2\\x85\\xe2\\x80\\xa8\\xe2\\x80\\xa9"},
        {"\xF0\x9F\x98\x80\xE2\x82\xAC", Charset::Utf8, "\xF0\x9F\x98\x80\xE2\x82\xAC"},
        {"\xE2\x28\xA1", Charset::Utf8, "\\xe2(\\xa1"},
    };
    for (const Case &each : cases) {
        EXPECT_EQ(escaped(each.text, each.charset, "\""), each.expected);
    }
    EXPECT_EQ(escaped("abc\xC3\xBC", Charset::Utf8, "", 4), "abc...") << "no half character";
    EXPECT_EQ(escaped("abc\n", Charset::Utf8, "", 7), "abc\\x0a");
    EXPECT_EQ(escaped("abc\n", Charset::Utf8, "", 6), "abc...");
}

TEST(LogLine, WritesBothFormats) {
    LogLine line(LogLevel::Info, "message");
    line.add("sender", "a b\"c\n\\")
        .add("none", "")
        .add("size", std::uint64_t{7})
        .add("score", 1.5F);
    line.addMillis("took_ms", 0.25);
    EXPECT_THAT(
        line.rendered(LogFormat::Logfmt),
        HasSubstr(" level=info event=message sender=\"a b\\x22c\\x0a\\x5c\" none=\"\" size=7 "
                  "score=1.5 took_ms=0.250\n"));
    EXPECT_THAT(
        line.rendered(LogFormat::Json),
        HasSubstr("\"event\":\"message\",\"sender\":\"a b\\\\x22c\\\\x0a\\\\x5c\",\"none\":\"\","
                  "\"size\":7,\"score\":1.5,\"took_ms\":0.250}\n"));
}

TEST(LogLine, SaysHowManyNamesItLeavesOut) {
    const auto line = [](const std::vector<std::string_view> &names) {
        return LogLine(LogLevel::Info, "x").addNames("rules", names).rendered(LogFormat::Logfmt);
    };
    EXPECT_THAT(line({}), HasSubstr(" rules=\"\"\n"));
    EXPECT_THAT(line({"A,+1", "B\"", "C D"}), HasSubstr(" rules=\"A\\x2c\\x2b1,B\\x22,C D\"\n"));
    const std::string hundred(100, 'x');
    const std::string many = line(std::vector<std::string_view>(30, hundred));
    EXPECT_THAT(many, HasSubstr(hundred + ",+10\n"));
    const std::string kilo(1000, 'x');
    EXPECT_THAT(line({kilo, "B"}), HasSubstr("x...,B\n"));
}

// A set whose rules all trip on the message.
struct Tripped {
    explicit Tripped(const std::string &rules) {
        Setup setup;
        setup.rules = corvane::RuleSet::fromMemory({{"a.cf", rules}});
        Slots slots(1);
        corvane::MessageCollector message(setup.config.scanOptions());
        message.header("Subject", "x");
        message.body("x\n");
        Profiler profiler;
        scored = score(message, setup, slots, profiler);
        value = statusValue(scored, setup, "id;\r\nX-Evil: 1 \"%s");
        report = reportValue(scored);
    }

    Scored scored;
    std::string value;
    std::string report;
};

std::size_t longestLine(const std::string &text) {
    std::istringstream lines(text);
    std::string line;
    std::size_t longest = 0;
    while (std::getline(lines, line)) {
        longest = std::max(longest, line.size());
    }
    return longest;
}

// Whether a line end stands anywhere but in a fold.
bool breaksOut(const std::string &text) {
    for (std::size_t at = 0; (at = text.find('\n', at)) != std::string::npos; ++at) {
        if (text.compare(at, 2, "\n\t") != 0 || text.find_first_not_of('\t', at + 1) == at + 1) {
            return text.compare(at, 2, "\n\t") != 0;
        }
    }
    return text.find('\r') != std::string::npos;
}

TEST(StatusHeader, CannotBeForgedOrOverflowed) {
    const Tripped odd("body A;B=\xFF,\"%s /x/\ndescribe A;B=\xFF,\"%s one; two\x01\n"
                      "body " +
                      std::string(3000, 'L') + " /x/\n");
    EXPECT_THAT(odd.value, HasSubstr("A\\x3bB\\x3d\\xff\\x2c\"%s,"));
    EXPECT_THAT(odd.value, HasSubstr("id=id\\x3b\\x0d\\x0aX-Evil:\\x201\\x20\"%s"));
    EXPECT_FALSE(breaksOut(odd.value));
    EXPECT_THAT(odd.report, HasSubstr("one\\x3b two\\x01"));
    EXPECT_FALSE(breaksOut(odd.report));
    EXPECT_LT(longestLine(odd.value), 998U);
    EXPECT_LT(longestLine(odd.report), 998U);
}

TEST(StatusHeader, ListsSoManyRulesAndSoManyBytes) {
    const auto rules = [](int count, std::size_t length) {
        std::string text;
        for (int each = 100; each < 100 + count; ++each) {
            text += "body R" + std::to_string(each) + std::string(length, 'x') + " /x/\n";
        }
        return text;
    };
    EXPECT_THAT(Tripped(rules(50, 1)).value, HasSubstr("R149x;"));
    const std::string many = Tripped(rules(51, 1)).value;
    EXPECT_THAT(many, testing::AllOf(HasSubstr("R149x,+1;"), HasSubstr("R100x,")));
    const std::string wide = Tripped(rules(40, 190)).value;
    EXPECT_THAT(wide, HasSubstr(",\n\t+"));
    EXPECT_LT(wide.size(), kMostStatusBytes + 400);
    EXPECT_LT(longestLine(wide), 998U);
    EXPECT_THAT(Tripped("body NONE /y/\n").value,
                HasSubstr("clean; score=0; threshold=5; rules=none;"));
}

} // namespace
} // namespace Corvane::Milter
