#include "host/parser/InvisibleText.h"

#include <string>

#include <gtest/gtest.h>

namespace Corvane {
namespace {

struct InvisibleRow {
    const char *name;
    std::string sent;
    std::string seen;
    std::size_t dropped;
};

void PrintTo(const InvisibleRow &row, std::ostream *out) {
    *out << row.name;
}

class DropInvisible : public testing::TestWithParam<InvisibleRow> {};

TEST_P(DropInvisible, LeavesWhatIsSeen) {
    std::string text = GetParam().sent;
    EXPECT_EQ(dropInvisible(text), GetParam().dropped);
    EXPECT_EQ(text, GetParam().seen);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, DropInvisible,
    testing::Values(
        InvisibleRow{"nothing", "", "", 0}, InvisibleRow{"ascii", "viagra\n", "viagra\n", 0},
        InvisibleRow{"zeroWidth", "v\u200Bi\u200Ca\u200Dg\u2060r\uFEFFa", "viagra", 5},
        InvisibleRow{"softHyphen", "\u00ADcas\u00ADino\u00AD", "casino", 3},
        InvisibleRow{"directions", "a\u200E\u202Eb\u2066c\u061C", "abc", 4},
        InvisibleRow{"selectorsAndTags", "\u2764\uFE0F x\U000E0041\U000E01EFy", "\u2764 xy", 3},
        InvisibleRow{"neighboursOfTheRanges", "\u00AC\u00AE\u200A\u2010\u202F\u205F\uFE10\uFDFF",
                     "\u00AC\u00AE\u200A\u2010\u202F\u205F\uFE10\uFDFF", 0},
        InvisibleRow{"blanksStay", "a\u00A0\u2003\u3000\u3164z", "a\u00A0\u2003\u3000\u3164z", 0},
        InvisibleRow{"persian", "\u0645\u06CC\u200C\u062E\u0648\u0627\u0647\u0645",
                     "\u0645\u06CC\u200C\u062E\u0648\u0627\u0647\u0645", 0},
        InvisibleRow{"conjunct", "\u0915\u094D\u200D\u0937", "\u0915\u094D\u200D\u0937", 0},
        InvisibleRow{"joinerAtTheEndOfAWord", "\u0915\u200D\u200C x \u0915\u200D",
                     "\u0915 x \u0915", 3},
        InvisibleRow{"joinerBetweenScripts", "\u0645\u200Cx\u200C\u0645\u200D\u4E2D",
                     "\u0645x\u0645\u4E2D", 3},
        InvisibleRow{"markBesideAJoiner", "\u0645\u200C\u200E\u0645", "\u0645\u200C\u0645", 1},
        InvisibleRow{"noUtf8", "a\xAD\xE2\x80z\xF3", "a\xAD\xE2\x80z\xF3", 0}),
    [](const auto &row) { return std::string(row.param.name); });

TEST(DropInvisible, TakesManyOutOfALongText) {
    std::string sent;
    std::string seen;
    for (int i = 0; i < 10000; ++i) {
        sent += i % 3 == 0 ? "\u200Bword " : "\u4E2D\u00AD";
        seen += i % 3 == 0 ? "word " : "\u4E2D";
    }
    EXPECT_EQ(dropInvisible(sent), 10000U);
    EXPECT_EQ(sent, seen);
}

} // namespace
} // namespace Corvane
