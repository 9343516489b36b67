#include "host/regex/Expression.h"

#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace Corvane::Regex {
namespace {

struct MatchRow {
    const char *name;
    std::string text;
    unsigned int options;
    std::string subject;
    bool expected;
};

void PrintTo(const MatchRow &row, std::ostream *out) {
    *out << row.name;
}

class ExpressionMatch : public testing::TestWithParam<MatchRow> {};

TEST_P(ExpressionMatch, Decides) {
    const MatchRow &row = GetParam();
    for (const bool jit : {true, false}) {
        bool failed = true;
        EXPECT_EQ(Expression(row.text, row.options, jit)(row.subject, &failed), row.expected);
        EXPECT_FALSE(failed);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Forms, ExpressionMatch,
    testing::Values(MatchRow{"bare", "^to|^cc", kNoOptions, "cc", true},
                    MatchRow{"bareHasNoModifiers", "ab/i", kNoOptions, "AB/I", false},
                    MatchRow{"otherDelimitersAreText", "m{2}", kNoOptions, "mm", true},
                    MatchRow{"equalsIsText", "=/x/", kNoOptions, "a=/x/b", true},
                    MatchRow{"escapedSlash", R"(/a\/b/)", kNoOptions, "a/b", true},
                    MatchRow{"innerSlashes", "/http://x/", kNoOptions, "http://x", true},
                    MatchRow{"slashInClass", "/^[/]$/i", kNoOptions, "/", true},
                    MatchRow{"evenBackslashesEscapeNothing", R"(/^a\\/)", kNoOptions, R"(a\)",
                             true},
                    MatchRow{"emptyPattern", "//", kNoOptions, "", true},
                    MatchRow{"blanksAroundModifiers", "/X/ \t i \r", kNoOptions, "x", true},
                    MatchRow{"harmlessModifiers", "/x/giioi", kNoOptions, "X", true},
                    MatchRow{"nulByteInPattern", std::string("/a\0b/", 5), kNoOptions,
                             std::string("a\0b", 3), true}),
    [](const auto &row) { return std::string(row.param.name); });

INSTANTIATE_TEST_SUITE_P(
    LineEndsAndBytes, ExpressionMatch,
    testing::Values(MatchRow{"dollarBeforeCrLf", "/^abc$/", kAnyLineEnd, "abc\r\n", true},
                    MatchRow{"dollarBeforeLfOnly", "/^abc$/", kNoOptions, "abc\r\n", false},
                    MatchRow{"crIsNoLineEnd", "/a.b/", kNoOptions, "a\rb", true},
                    MatchRow{"crIsLineEnd", "/a.b/", kAnyLineEnd, "a\rb", false},
                    MatchRow{"multiline", "/^b$/m", kAnyLineEnd, "a\rb\rc", true},
                    MatchRow{"dotAll", "/a.b/", kDotMatchesAll, "a\nb", true},
                    MatchRow{"dotStopsAtLf", "/a.b/", kNoOptions, "a\nb", false},
                    MatchRow{"ignoreCaseWord", "abc", kIgnoreCase, "xABC", true},
                    MatchRow{"bytesAreNotUtf", "/^.$/", kNoOptions, "\xC3\xA9", false},
                    MatchRow{"utfByLetter", "/^.$/u", kNoOptions, "\xC3\xA9", true},
                    MatchRow{"badByteHidesNothing", "/\\x{e9}x/u", kNoOptions, "\xFF\xC3\xA9x",
                             true},
                    MatchRow{"rawByte", "/\\xff$/", kNoOptions, "ab\xFF", true}),
    [](const auto &row) { return std::string(row.param.name); });

TEST(Expression, RefusesBadTexts) {
    for (const char *text : {"/abc", "/", "/abc\\/", "/a/iz", "/a/i m", "/a(/", "a(", "(*UTF)a",
                             "/(*UCP)a/", "/[b-a]/"}) {
        try {
            const Expression expression(text, kNoOptions, true);
            ADD_FAILURE() << "must be refused: " << text;
        } catch (const Exception &failure) {
            EXPECT_EQ(failure.code(), Exception::kGeneral) << text;
            ASSERT_EQ(failure.parameters().size(), 2U) << text;
            EXPECT_EQ(failure.parameters()[1], text);
        }
    }
    EXPECT_THROW(Expression("a", 2, true), Exception);
}

TEST(Expression, EmptyTextIsNotCompiled) {
    for (const Expression &expression : {Expression(), Expression("", kDotMatchesAll, true)}) {
        EXPECT_TRUE(expression.isNull());
        bool failed = true;
        EXPECT_FALSE(expression(std::string(), &failed));
        EXPECT_FALSE(failed);
    }
    EXPECT_THROW(Expression()->matches(Buffer(), 0, nullptr), Exception);
}

TEST(Expression, StartsAtOffsetAndSeesWhatIsBefore) {
    const Expression expression("(?<=a)b", kNoOptions, true);
    const Buffer subject("abcab", 5, true);
    bool failed = true;
    EXPECT_TRUE(expression->matches(subject, 1, &failed));
    EXPECT_TRUE(expression->matches(subject, 4, &failed));
    EXPECT_FALSE(expression->matches(subject, 5, &failed));
    EXPECT_FALSE(failed);
    EXPECT_FALSE(expression->matches(subject, 6, &failed));
    EXPECT_TRUE(failed);
    EXPECT_TRUE(Expression("//", kNoOptions, true)(Buffer(nullptr, 0, true), &failed));
    EXPECT_FALSE(failed);
    for (const bool jit : {true, false}) {
        const Expression same("(?<=a)b", kNoOptions, jit);
        EXPECT_TRUE(same->matches(subject.data(), 5, 4, &failed));
        EXPECT_FALSE(same->matches(subject.data(), 3, 2, &failed));
        EXPECT_FALSE(failed);
        EXPECT_FALSE(same->matches(nullptr, 0, 1, &failed));
        EXPECT_TRUE(failed);
    }
}

TEST(Expression, RunawayPatternFailsInsteadOfStalling) {
    const Expression expression("/^(a+)+$/", kNoOptions, true);
    bool failed = false;
    EXPECT_FALSE(expression(std::string(2000, 'a') + "!", &failed));
    EXPECT_TRUE(failed);
    EXPECT_TRUE(expression(std::string(20, 'a'), &failed));
    EXPECT_FALSE(failed);
}

TEST(Expression, DeepBacktrackingMatches) {
    bool failed = true;
    EXPECT_TRUE(
        Expression("/^(?:(.)|x)*y$/", kNoOptions, true)(std::string(2047, 'z') + "y", &failed));
    EXPECT_FALSE(failed);
}

TEST(Expression, CopiesMatchOnManyThreads) {
    const Expression expression("/(\\w+)@example\\.org/i", kNoOptions, true);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([expression] {
            for (int round = 0; round < 500; ++round) {
                EXPECT_TRUE(expression(std::string("mail joe@EXAMPLE.org now"), nullptr));
                EXPECT_FALSE(expression(std::string("mail joe@example.com now"), nullptr));
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
}

} // namespace
} // namespace Corvane::Regex
