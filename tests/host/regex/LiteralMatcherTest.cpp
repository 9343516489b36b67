#include "host/regex/LiteralMatcher.h"

#include <algorithm>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "host/parser/Exception.h"
#include "host/parser/Text.h"

namespace Corvane::Regex {
namespace {

using Hits = std::vector<std::pair<std::uint32_t, std::size_t>>;

Hits s_scan(const LiteralMatcher &matcher, const std::string &text, LiteralScratch &scratch) {
    Hits hits;
    matcher.scan(reinterpret_cast<const unsigned char *>(text.data()), text.size(), scratch,
                 [&](std::uint32_t number, std::size_t end) { hits.emplace_back(number, end); });
    std::sort(hits.begin(), hits.end());
    return hits;
}

// The same with the text at the beginning of a longer one.
Hits s_scanWithMore(const LiteralMatcher &matcher, const std::string &text, const std::string &more,
                    LiteralScratch &scratch) {
    Hits hits;
    const std::string all = text + more;
    matcher.scan(reinterpret_cast<const unsigned char *>(all.data()), text.size(), all.size(),
                 scratch,
                 [&](std::uint32_t number, std::size_t end) { hits.emplace_back(number, end); });
    std::sort(hits.begin(), hits.end());
    return hits;
}

bool s_standsAt(const Literal &literal, const std::string &text, std::size_t at) {
    const std::string part = text.substr(at, literal.bytes.size());
    return literal.ignoreCase ? equalIgnoringCase(part, literal.bytes) : part == literal.bytes;
}

Hits s_searched(const std::vector<Literal> &distinct, const std::string &text) {
    Hits hits;
    for (std::uint32_t number = 0; number < distinct.size(); ++number) {
        const std::size_t length = distinct[number].bytes.size();
        for (std::size_t at = 0; at + length <= text.size(); ++at) {
            if (s_standsAt(distinct[number], text, at)) {
                hits.emplace_back(number, at + length);
            }
        }
    }
    return hits;
}

std::string s_refusal(const std::vector<Literal> &literals) {
    try {
        const LiteralMatcher matcher(literals);
    } catch (const Exception &failure) {
        return failure.code() == Exception::kGeneral ? failure.parameters().at(0) : "other code";
    }
    return "none";
}

TEST(LiteralMatcher, ReportsEachOccurrenceOfADistinctLiteralOnce) {
    const LiteralMatcher matcher(
        {{"aa", false}, {"offer", true}, {"aa", false}, {"aa", true}, {"offer", true}});
    EXPECT_EQ(matcher.numbers(), (std::vector<std::uint32_t>{0, 1, 0, 2, 1}));
    EXPECT_EQ(matcher.size(), 3U);
    EXPECT_EQ(matcher.literalLength(1), 5U);
    EXPECT_GT(matcher.memoryBytes(), 0U);
    LiteralScratch scratch;
    EXPECT_EQ(s_scan(matcher, "aaaA oFFer", scratch),
              (Hits{{0, 2}, {0, 3}, {1, 10}, {2, 2}, {2, 3}, {2, 4}}));
}

TEST(LiteralMatcher, FindsNothingWithoutLiteralsOrText) {
    LiteralScratch scratch;
    EXPECT_TRUE(s_scan(LiteralMatcher(), "text", scratch).empty());
    EXPECT_TRUE(s_scan(LiteralMatcher(std::vector<Literal>()), "text", scratch).empty());
    EXPECT_EQ(scratch.memoryBytes(), 0U);
    const LiteralMatcher matcher({{"x", false}});
    matcher.scan(nullptr, 0, scratch, [](std::uint32_t, std::size_t) { FAIL(); });
}

TEST(LiteralMatcher, RefusesWhatCannotBeCompiled) {
    EXPECT_EQ(s_refusal({{"a", false}, {"", false}}), "literal 1 is empty");
    EXPECT_EQ(s_refusal({{std::string("\0a", 2), false}}), "literal 0 begins with a zero byte");
    EXPECT_EQ(s_refusal({{std::string("a\0", 2), false}}), "none");
}

TEST(LiteralMatcher, PassesOnWhatTheSinkThrows) {
    const LiteralMatcher matcher({{"a", false}});
    LiteralScratch scratch;
    int calls = 0;
    const std::string text = "aaa";
    const auto scan = [&] {
        matcher.scan(reinterpret_cast<const unsigned char *>(text.data()), text.size(), scratch,
                     [&](std::uint32_t, std::size_t) {
                         ++calls;
                         throw std::runtime_error("full");
                     });
    };
    EXPECT_THROW(scan(), std::runtime_error);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(s_scan(matcher, text, scratch).size(), 3U);
}

// In a text that is searched in one piece, and in one whose end is searched apart.
TEST(LiteralMatcher, EndsWhereTheSinkSaysSo) {
    const LiteralMatcher matcher({{"a", false}});
    LiteralScratch scratch;
    for (const std::size_t length : {3U, 3000U}) {
        const std::string text(length, 'a');
        int calls = 0;
        matcher.scan(reinterpret_cast<const unsigned char *>(text.data()), text.size(), scratch,
                     [&](std::uint32_t, std::size_t) { return ++calls < 2; });
        EXPECT_EQ(calls, 2);
    }
}

TEST(LiteralMatcher, AgreesWithASearchForEachLiteral) {
    // 0, and so the same run, unless the tests are shuffled.
    std::mt19937 random(static_cast<unsigned int>(testing::UnitTest::GetInstance()->random_seed()));
    const auto word = [&](std::size_t longest) {
        std::string bytes(1 + random() % longest, '\0');
        for (char &byte : bytes) {
            byte = "abABk.\xC3\xFF\n\0"[random() % 10];
        }
        return bytes;
    };
    LiteralScratch scratch;
    for (int round = 0; round < 100; ++round) {
        std::vector<Literal> literals;
        for (std::size_t count = 1 + random() % 200; count > 0; --count) {
            Literal literal{word(round % 10 == 0 ? 80 : 6), random() % 2 == 0};
            literal.bytes[0] = literal.bytes[0] == '\0' ? 'b' : literal.bytes[0];
            if (std::find(literals.begin(), literals.end(), literal) == literals.end()) {
                literals.push_back(literal);
            }
        }
        const LiteralMatcher matcher(literals);
        const std::string text = word(3000) + literals.back().bytes;
        const Hits expected = s_searched(literals, text);
        ASSERT_EQ(s_scan(matcher, text, scratch), expected) << round;
        for (const std::size_t readable : {1U, 127U, 128U, 300U}) {
            ASSERT_EQ(
                s_scanWithMore(matcher, text, text.substr(0, readable) + word(readable), scratch),
                expected)
                << round;
        }
    }
}

// Engines take texts block by block and the rest in another way; with few literals they work differently, too.
TEST(LiteralMatcher, FindsALiteralAtEveryDistanceFromTheEnds) {
    LiteralScratch scratch;
    const std::vector<Literal> all = {
        {"hello", false}, {"offer!", true}, {"viagra", false}, {"zq", true}};
    for (std::size_t count = 1; count <= all.size(); ++count) {
        const LiteralMatcher matcher({all.begin(), all.begin() + static_cast<long>(count)});
        for (std::size_t length = 5; length <= 330; ++length) {
            for (std::size_t at = 0; at + 5 <= length; ++at) {
                std::string text(length, 'x');
                text.replace(at, 5, "hello");
                ASSERT_EQ(s_scan(matcher, text, scratch), (Hits{{0, at + 5}}))
                    << count << " literals, at " << at << " of " << length;
            }
        }
    }
}

TEST(LiteralMatcher, ScansOnSeveralThreadsAndAfterAMove) {
    LiteralMatcher source({{"needle", true}, {"\xE4\xBD\xA0", false}});
    const LiteralMatcher matcher = std::move(source);
    const std::string text = "Needle in \xE4\xBD\xA0 needle";
    std::vector<std::size_t> found(4);
    std::vector<std::thread> threads;
    threads.reserve(found.size());
    for (std::size_t &count : found) {
        threads.emplace_back([&] {
            LiteralScratch scratch;
            for (int round = 0; round < 200; ++round) {
                count += s_scan(matcher, text, scratch).size();
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(found, std::vector<std::size_t>(4, 600));
}

} // namespace
} // namespace Corvane::Regex
