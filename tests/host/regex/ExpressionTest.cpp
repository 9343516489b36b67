#include "host/regex/Expression.h"

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "host/parser/Budget.h"

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

// What a pattern begins with, and what machine code alone would overlook.
INSTANTIATE_TEST_SUITE_P(
    StartOptions, ExpressionMatch,
    testing::Values(MatchRow{"notEmpty", "/(*NOTEMPTY)a*/", kNoOptions, "bbb", false},
                    MatchRow{"notEmptyFindsMore", "/(*NOTEMPTY)a*/", kNoOptions, "bba", true},
                    MatchRow{"notEmptyAtStart", "/(*NOTEMPTY_ATSTART)a*$/", kNoOptions, "", false},
                    MatchRow{"notEmptyOnlyAtStart", "/(*NOTEMPTY_ATSTART)a*$/", kNoOptions, "b",
                             true},
                    MatchRow{"twoOptions", "/(*CRLF)(*NOTEMPTY)a*/", kNoOptions, "b", false},
                    MatchRow{"newline", "/(*CR)^b$/m", kNoOptions, "a\rb\rc", true},
                    MatchRow{"noMachineCode", "/(*NO_JIT)ab/", kNoOptions, "ab", true},
                    MatchRow{"dotWithoutLineEnd", "/(*ANYCRLF)a.b/", kNoOptions, "a\rb", false}),
    [](const auto &row) { return std::string(row.param.name); });

// Machine code for UTF-8 that is ready for broken characters gets these wrong.
INSTANTIATE_TEST_SUITE_P(
    BrokenUtf8, ExpressionMatch,
    testing::Values(MatchRow{"notSpace", "/\\S/u", kNoOptions, "\xC3\xA9", true},
                    MatchRow{"notSpaceBehind", "/\\S/u", kNoOptions, "\xFF\xC3\xA9", true},
                    MatchRow{"lineStartBehind", "/^b/mu", kNoOptions, "a\n\xF0\nb", true},
                    MatchRow{"dotsBehind", "/.*?[!?.]/u", kNoOptions, "\xE0\x80\x80\xC3\xA9.",
                             true},
                    MatchRow{"boundaryAtTail", "/a\\b$/u", kNoOptions, "a\xE2\x82", false},
                    MatchRow{"surrogate", "/^.$/u", kNoOptions, "\xED\xA0\x80", false},
                    MatchRow{"tooLong", "/^.$/u", kNoOptions, "\xC0\xAF", false},
                    MatchRow{"noLineEnd", "/^J/mu", kAnyLineEnd, "a\xC0J", false},
                    MatchRow{"noLineEndBefore", "/^b/mu", kAnyLineEnd, "a\n\x80\x62", false},
                    MatchRow{"beyondUnicode", "/^.$/u", kNoOptions, "\xF4\x90\x80\x80", false},
                    MatchRow{"last", "/^.$/u", kNoOptions, "\xF4\x8F\xBF\xBF", true}),
    [](const auto &row) { return std::string(row.param.name); });

// An own limit on steps, depth or memory counts what the interpreter counts.
TEST(Expression, LimitsOfThePatternAreTheSameWithMachineCode) {
    const std::string subject = std::string(40, 'a') + "!";
    for (const char *text : {"/(*LIMIT_MATCH=3)^(?:a|b)*c/", "/(*LIMIT_DEPTH=2)^(?:a|b)*$/",
                             "/(*LIMIT_HEAP=0)^(?:(a)|b)*$/", "/(*LIMIT_MATCH=9000)^(?:a|b)*!/"}) {
        bool failedCompiled = false;
        bool failedInterpreted = false;
        const bool compiled = Expression(text, kNoOptions, true)(subject, &failedCompiled);
        EXPECT_EQ(compiled, Expression(text, kNoOptions, false)(subject, &failedInterpreted))
            << text;
        EXPECT_EQ(failedCompiled, failedInterpreted) << text;
    }
}

// Machine code does not count the steps within these: the first never ended there.
TEST(Expression, NonAtomicLookaroundIsBounded) {
    for (const char *text :
         {"/a?(?*~~(?:|zq)){70}j/", "/a?(*napla:~~(?:|zq)){70}j/",
          "/a?(*non_atomic_positive_lookahead:~~(?:|zq)){70}j/", "/(?:a(?<*a)|~(?<*~|a~)){9}j/",
          "/(?:a(*naplb:a)|~){9}j/", "/(?:a(*non_atomic_positive_lookbehind:a)|~){9}j/"}) {
        for (const bool jit : {true, false}) {
            const Expression expression(text, kNoOptions, jit);
            EXPECT_FALSE(expression(std::string("a~~zqz_zqj"), nullptr)) << text;
        }
    }
}

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

// What the engine takes for a character before the last one would end behind the text, and could be
// a line end there.
TEST(Expression, BytesBehindTheTextHaveNoPart) {
    for (const char *text : {"\xF0@", "a\n\xF0@", "\xC0", "\xFC@", "\xE0", "a\xE2\x82"}) {
        for (const char *behind : {"@J", "J", "@@@@J", "\x8A", "aa"}) {
            for (const char *pattern : {"/^@/mu", "/@$/mu", "/\\b$/u", "/^./mu", "/.$/mu"}) {
                const std::string longer = std::string(text) + behind;
                const auto *bytes = reinterpret_cast<const unsigned char *>(longer.data());
                const std::size_t length = std::string(text).size();
                const Expression expression(pattern, kAnyLineEnd, true);
                EXPECT_EQ(expression->matches(bytes, length, 0, nullptr),
                          expression(std::string(text), nullptr))
                    << pattern << " on " << testing::PrintToString(text);
            }
        }
    }
}

// Where it looks for a line start, the engine goes back over bytes that go on with a character.
TEST(Expression, BytesBeforeTheTextHaveNoPart) {
    const Expression expression("/^x/mu", kAnyLineEnd, true);
    for (const char *before : {"a", "\n", "\n\x80", "\xC0"}) {
        for (const std::string text : {"\x80x", "\x8Ax", "\x80\x80x"}) {
            const std::string longer = before + text;
            const auto *end =
                reinterpret_cast<const unsigned char *>(longer.data()) + longer.size();
            EXPECT_FALSE(expression->matches(end - text.size(), text.size(), 0, nullptr))
                << testing::PrintToString(longer);
        }
    }
}

// Machine code finds where this may begin by its second character, and used to begin at the LF.
TEST(Expression, NothingBeginsAtTheLfOfALineEnd) {
    for (const std::size_t before : {0U, 100U, 20000U}) {
        const std::string text = std::string(before, 'b') + "\r\nviagra";
        for (const bool jit : {true, false}) {
            const Expression expression("/\\sviagra/", kAnyLineEnd, jit);
            EXPECT_FALSE(expression(text, nullptr)) << before << jit;
            EXPECT_TRUE(expression(text + "\nviagra", nullptr)) << before << jit;
            Budget budget(std::chrono::hours(1));
            const Budget::Use use(budget);
            EXPECT_FALSE(expression(text, nullptr)) << before << jit;
        }
    }
}

TEST(Expression, StartsWithinACharacter) {
    const std::string subject = "\xC3\xA9x";
    for (const bool jit : {true, false}) {
        const Expression expression("/^.|x/u", kNoOptions, jit);
        bool failed = true;
        EXPECT_TRUE(expression->matches(Buffer(subject.data(), 3, true), 1, &failed));
        EXPECT_FALSE(failed);
        EXPECT_FALSE(Expression("/\\x{e9}/u", kNoOptions, jit)
                         ->matches(Buffer(subject.data(), 3, true), 1, nullptr));
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
