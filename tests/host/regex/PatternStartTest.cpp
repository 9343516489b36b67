#include "host/regex/PatternStart.h"

#include <string>

#include <gtest/gtest.h>

#include "host/regex/Literals.h"

namespace Corvane::Regex {
namespace {

struct StartRow {
    const char *pattern;
    std::size_t end;
    const char *others;
    bool notEmptyAtStart;
};

TEST(PatternStart, ReadsOptionsUpToThePatternProper) {
    const StartRow rows[] = {
        {"", 0, "", false},
        {"a(*CRLF)", 0, "", false},
        {"(*CRLF)a", 7, "(*CRLF)", false},
        {"(*LIMIT_MATCH=10)(*BSR_ANYCRLF)(*ANY)x", 37, "(*LIMIT_MATCH=10)(*BSR_ANYCRLF)(*ANY)",
         false},
        {"(*NOTEMPTY_ATSTART)(*NOTEMPTY)x", 30, "(*NOTEMPTY)", true},
        {"(*COMMIT)x", 0, "", false},
        {"(*CR)(*SKIP)x", 5, "(*CR)", false},
        {"(*MARK:A)x", 0, "", false},
        {"(*:A)x", 0, "", false},
        {"(*pla:x)", 0, "", false},
        {"(*CR", 0, "", false},
        {"(*)x", 0, "", false},
    };
    for (const StartRow &row : rows) {
        const StartOptions options = readStartOptions(row.pattern);
        EXPECT_EQ(options.end, row.end) << row.pattern;
        EXPECT_EQ(options.others, row.others) << row.pattern;
        EXPECT_EQ(options.notEmptyAtStart, row.notEmptyAtStart) << row.pattern;
    }
}

TEST(PatternStart, PutsTheStartOfTheTextForThatOfTheTry) {
    const char *rows[][2] = {
        {R"(\Ga|b\G)", R"(\Aa|b\A)"}, {R"(\\Ga)", R"(\\Ga)"},
        {R"(\\\Ga)", R"(\\\Aa)"},     {R"(\Q\G\E\G)", R"(\Q\G\E\A)"},
        {R"(\Q\\E\G)", R"(\Q\\E\A)"}, {R"(\c\G\G)", R"(\c\G\A)"},
        {R"([\]]\G)", R"([\]]\A)"},   {"\\", "\\"},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(startingAtText(row[0]), row[1]);
    }
    EXPECT_EQ(withoutResets(R"(a\Kb\\K\Q\K\E\K)"), R"(a\Eb\\K\Q\K\E\E)");
}

TEST(PatternStart, CallsAtTheBeginningOfLookaheads) {
    const struct {
        const char *pattern;
        bool isExtended;
        const char *expected;
        bool isUnbounded;
    } rows[] = {
        {"a(?=b)c", false, "a(?=(?C)b)c", false},
        {"(?:(?!.*b).)*", false, "(?:(?!(?C).*b).)*", true},
        {"(?=(a+)b)c", false, "(?=(?C)(a+)b)c", true},
        {"(?=a)b+", false, "(?=(?C)a)b+", false},
        {"(*nla:a*)b", false, "(*nla:(?C)a*)b", true},
        {"[(?=]*[]](?=b)", false, "[(?=]*[]](?=(?C)b)", false},
        {"[^](?=][[:alpha:](?=]x", false, "[^](?=][[:alpha:](?=]x", false},
        {"[\\](?=]", false, "[\\](?=]", false},
        {"\\(?=b", false, "\\(?=b", false},
        {"\\Q(?=\\E(?=b)", false, "\\Q(?=\\E(?=(?C)b)", false},
        {"(?#(?=)(?=b)", false, "(?#(?=)(?=(?C)b)", false},
        {"(?(?=a)b|c)", false, "(?(?=(?C)a)b|c)", false},
        {"(?=a) # [", true, "(?=a) # [", false},
        {"(?ix)(?=a) # [", false, "(?ix)(?=a) # [", false},
        {"(?=a)#", false, "(?=(?C)a)#", false},
        {"(?=", false, "(?=(?C)", false},
        {"[(?=", false, "[(?=", false},
    };
    for (const auto &row : rows) {
        const LookaheadCalls calls = callsInLookaheads(row.pattern, row.isExtended);
        EXPECT_EQ(calls.pattern, row.expected);
        EXPECT_EQ(calls.isUnbounded, row.isUnbounded) << row.pattern;
    }
}

// They may change what ends a line, or that nothing at all is a match.
TEST(PatternStart, NothingIsRequiredOfMatchesBehindOptions) {
    for (const char *text :
         {"/(*NOTEMPTY)free offer/", "/(*CR)^free offer$/m", "/(*NUL)free.offer/",
          "/(*LIMIT_MATCH=1)free offer/", "/(*UTF)free offer/u", "/(*NO_START_OPT)free offer/",
          "/(*napla:free offer)f/"}) {
        const RequiredLiterals required = requiredLiterals(text, 0, TextKind::Text);
        EXPECT_TRUE(required.alternatives.empty()) << text;
        EXPECT_TRUE(required.squeezed.empty()) << text;
        EXPECT_TRUE(required.byteSets.empty()) << text;
        EXPECT_EQ(required.minimumLength, 0U) << text;
    }
}

} // namespace
} // namespace Corvane::Regex
