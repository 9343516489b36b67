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
