#include "host/regex/GuardedTry.h"

#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "host/regex/Expression.h"
#include "host/regex/PatternStart.h"
#include "host/regex/Utf8Text.h"

namespace Corvane::Regex {
namespace {

using Characters = EngineCode::Characters;
using Hold = EngineCode::Hold;

const unsigned char *s_bytes(const std::string &text) {
    return reinterpret_cast<const unsigned char *>(text.data());
}

// The outcome with all steps at once.
Outcome s_whole(const Definition &definition, Characters characters, bool jit,
                const std::string &text) {
    const ReadableText readable(s_bytes(text), text.size());
    return EngineCode(definition, definition.pattern, characters, Hold::No, jit)
        .run({readable.data(), text.size(), 0, kMatchLimitSteps});
}

Outcome s_guarded(const Definition &definition, Characters characters, bool jit,
                  const std::string &text, std::uint32_t firstSteps) {
    Budget budget(std::chrono::hours(1));
    const Budget::Use use(budget);
    const ReadableText readable(s_bytes(text), text.size());
    const EngineCode code(definition, definition.pattern, characters, Hold::Watcher, jit);
    return GuardedTry(code, readable.data(), text.size(), budget, firstSteps).run();
}

Outcome s_guardedByRanges(const Definition &definition, Characters characters,
                          const std::string &text, std::size_t bytes) {
    Budget budget(std::chrono::hours(1));
    const Budget::Use use(budget);
    const EngineCode code(definition, definition.pattern, characters, Hold::Watcher, true);
    const EngineCode ranged(definition, definition.pattern, characters, Hold::LastStart, true);
    GuardedTry guarded(code, s_bytes(text), text.size(), budget, 1);
    guarded.rangesForTest([&ranged]() -> const EngineCode & { return ranged; }, bytes);
    return guarded.run();
}

void s_expectSame(const std::string &expression, const std::string &text) {
    const Definition definition = parseDefinition(expression, kNoOptions);
    const bool isUtf = isUtf8(s_bytes(text), text.size());
    const Characters characters = !definition.utf ? Characters::Bytes
                                  : isUtf         ? Characters::ValidUtf8
                                                  : Characters::BrokenUtf8;
    for (const bool jit : {true, false}) {
        const Outcome expected = s_whole(definition, characters, jit, text);
        for (const std::uint32_t steps : {1U, 7U, 300U, kMatchLimitSteps}) {
            EXPECT_EQ(s_guarded(definition, characters, jit, text, steps), expected)
                << expression << (jit ? " jit " : " interpreted ") << steps << " on " << text;
        }
    }
    if (mayHoldVerb(definition.pattern) || characters == Characters::BrokenUtf8) {
        return;
    }
    for (const std::size_t bytes : {1U, 5U, 1000U}) {
        EXPECT_EQ(s_guardedByRanges(definition, characters, text, bytes),
                  s_whole(definition, characters, true, text))
            << expression << " by ranges of " << bytes << " on " << text;
    }
}

TEST(GuardedTry, FindsWhatOneRunFinds) {
    const std::string xs(40, 'x');
    const struct {
        const char *expression;
        std::string text;
    } rows[] = {
        // The limit on steps is met at the first position, at a later one, and not at all.
        {"/(?:x|xx)*y(?!z)/", xs + "yz"},
        {"/(?:x|xx)*y(?!z)/", "xyz " + xs + "yz"},
        {"/(?:x|xx)*y(?!z)/", "xxxxxxxxxxyz xxxxyz xxxxxxxxy"},
        {"/x.*y.*z(?!w)/", "xyxyxyxyzwxyxyzwxyz"},
        // What a resumed run must not take for the start, and must still see before it.
        {"/\\G(?:x|xx)*y(?!z)|b/", "xxxxxxxxxxyz b"},
        {"/\\G(?:x|xx)*y(?!z)/", "xxxxxxxxxxyz xy"},
        {"/(*ANYCRLF)^$|(?<=\r)\n/m", "a\r\nb\r\nc"},
        {"/(?<=q)(?:x|xx)*y(?!z)|(?<=yz) b/", "qxxxxxxxxxxyz b"},
        {"/^(?:x|xx)*y(?!z)|^b/", "xxxxxxxxxxyz b"},
        {"/^(?:x|xx)*y(?!z)|^b/m", "xxxxxxxxxxyz\nb"},
        // What decides where the next run starts.
        {"/(?:x|xx)*y(?!z)(*SKIP)q|x+(*SKIP)z|xy/", "xxxxxxxxxxy xxxxy"},
        {"/(*COMMIT)(?:x|xx)*y(?!z)/", "xxxxxxxxxxyz xy"},
        {"/(?:x|xx)*y(*COMMIT)(?!z)|xy/", "xxxxxxxxxxyz xy"},
        {"/[^y]*(*PRUNE)^^|(x|y)/m", "z\xFFy\xC3\xA9xxxxxxy"},
        {"/x+?(?:x*y?)*(*PRUNE)x+?|x+?/s", "xxxxz\xC3 xxxxxx"},
        {"/(*NOTEMPTY_ATSTART)(?:(?:x|xx)*y(?!z)|)/", "xxxxxxxxxxyz"},
        {"/(*NOTEMPTY_ATSTART)(?:a|(?:x|xx)*y(?!z)|)$/", ""},
        {"/(*NOTEMPTY)(*ANYCRLF)(?:x|xx)*y(?!z)/", "\r\nxxxxxxxxxxyz\r\nxy"},
        {"/(*LIMIT_MATCH=50)(?:x|xx)*y(?!z)/", "xxxxxxxxxxyz xy"},
        // Callbacks that are not the guard's, and calls of the pattern as a whole.
        {"/(?C)x(?C7)(?:x|xx)*y(?!z)/", "xxxxxxxxxxyz xxy"},
        {"/x(?:x|xx)*y(?!z)|\\((?R)?\\)/", "xxxxxxxxxxyz ((()))"},
        {"/x\\K(?R)?(?:x|xx)*y(?!z)/", xs + "yz b"},
        {"/(?:(?=.*y)x|(?!.*q)x)*y(?!z)/", "xxxxxxxxyz qxxxxy"},
        {"/(?:(?=.*y)x|(?!.*q)x)* # (?=\n y(?!z)/x", "xxxxxxxxyz qxxxxy"},
        {"/[(?=](?#(?=)\\Q(?=\\E(?!.*z)x/", "((?=xz (?(?=x"},
        {"/\\B$/u", "\xE2\x82\xF6/u\n\xA9"},
        {"/(?:a|aa)*(?!.)$|(?<=b)$/u", "aaaaaab\xFF"
                                       "aaaaaa\xFF\xFF"
                                       "b"},
        {"/(?:é|éé)*y(?!z)/u", "éééééééyz éy"},
        {"/(?:é|éé)*y(?!z)/u", "\xFF"
                               "ééééééééyz\xC3 ééy"},
    };
    for (const auto &row : rows) {
        s_expectSame(row.expression, row.text);
    }
}

std::string s_pick(std::mt19937 &random, const std::vector<const char *> &parts,
                   unsigned int most) {
    std::string text;
    for (auto count = random() % most + 1; count > 0; --count) {
        text += parts[random() % parts.size()];
    }
    return text;
}

TEST(GuardedTry, FindsWhatOneRunFindsOfRandomPatterns) {
    std::mt19937 random(20240611);
    const std::vector<const char *> items = {
        "(?:x|xx)*", "x*", ".*",      "y",     "(?!z)",   "x+?",      "(?:x*y?)*",
        "\\b",       "^",  "|",       "(x|y)", "[^y]*",   "(?>x*)",   "(?<=x)",
        "\\G",       "$",  "(*SKIP)", "z?",    "(?=.*z)", "(*PRUNE)", "(?<!y)x{2,}"};
    const std::vector<const char *> pieces = {"x", "xx", "xxxxxx", "y",        "z",   "yz",
                                              " ", "\n", "é",      "\xE2\x82", "\xFF"};
    const char *modifiers[] = {"/", "/m", "/s", "/u"};
    for (int round = 0; round < 1500; ++round) {
        // One after the other: the order within an expression is the compiler's.
        std::string expression = "/" + s_pick(random, items, 6);
        expression += modifiers[random() % 4];
        s_expectSame(expression, s_pick(random, pieces, 12));
    }
}

// Many steps from each position; long ones from each; and long ones in a loop at a single position, of which the
// interpreter has too many.
TEST(GuardedTry, IsEndedByTheBudget) {
    std::string text;
    while (text.size() < (1U << 20U)) {
        text += "xxxxxxxxxxxxxxxxyz";
    }
    const struct {
        const char *expression;
        bool jit;
    } rows[] = {{"/(?:x|xx)*y(?!z)/", true},
                {"/(?:x|xx)*y(?!z)/", false},
                {"/x[^y]*y[^w]*w(?!.)/", true},
                {"/x[^y]*y[^w]*w(?!.)/", false},
                {"/^(?:(?!.*Q).)*q/", true}};
    for (const auto &row : rows) {
        Budget budget(std::chrono::milliseconds(5));
        const Budget::Use use(budget);
        EXPECT_FALSE(Expression(row.expression, kNoOptions, row.jit)(text + "wq", nullptr));
        EXPECT_TRUE(budget.ended()) << row.expression;
    }
}

// What is put into a pattern so that it can be held up makes it larger.
TEST(GuardedTry, PatternsThatAreNearlyTooLargeAreTriedAllTheSame) {
    std::string pattern;
    for (unsigned int part = 0; part < 5400; ++part) {
        pattern += "(?=a)";
    }
    const Expression expression("/" + pattern + "/", kNoOptions, true);
    Budget budget(std::chrono::hours(1));
    const Budget::Use use(budget);
    EXPECT_TRUE(expression(std::string(10000, 'b') + 'a', nullptr));
    EXPECT_FALSE(expression(std::string(10000, 'b'), nullptr));
}

// Without ranges each x would be a start from which all is read: for half a minute.
TEST(GuardedTry, KeepsWhatMachineCodeNotes) {
    std::string text;
    while (text.size() < (200U << 10U)) {
        text += "xa";
    }
    Budget budget(std::chrono::seconds(20));
    const Budget::Use use(budget);
    EXPECT_FALSE(Expression("/x.*y(?!z)/", kNoOptions, true)(text + "yz", nullptr));
    EXPECT_FALSE(budget.ended());
}

} // namespace
} // namespace Corvane::Regex
