#include "host/parser/HeaderText.h"

#include <array>
#include <string>

#include <gtest/gtest.h>

#include "host/parser/Exception.h"

namespace Corvane {
namespace {

struct HeaderTextRow {
    const char *name;
    const char *text;
    const char *expected;
};

void PrintTo(const HeaderTextRow &row, std::ostream *out) {
    *out << row.name;
}

class Rfc2047 : public testing::TestWithParam<HeaderTextRow> {};

TEST_P(Rfc2047, Decodes) {
    EXPECT_EQ(stringDecodeRfc2047(GetParam().text).asString(), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, Rfc2047,
    testing::Values(
        HeaderTextRow{"plain", "no = words ?= here", "no = words ?= here"},
        HeaderTextRow{"q", "=?UTF-8?Q?caf=C3=a9_=5F?=", "café _"},
        HeaderTextRow{"lowerCaseB", "=?koi8-r?b?8NLJ18XU?=", "Привет"},
        HeaderTextRow{"missingPadding", "=?utf-8?B?w6k?=|=?utf-8?B?w6l4?=", "é|éx"},
        HeaderTextRow{"excessPadding", "=?utf-8?B?YQ====?=", "a"},
        HeaderTextRow{"emptyText", "a =?utf-8?Q?\?= b", "a  b"},
        HeaderTextRow{"questionMarkInText", "=?utf-8?Q?what?\?=!", "what?!"},
        HeaderTextRow{"language", "=?utf-8*en-GB?Q?a?=", "a"},
        HeaderTextRow{"gluedToText", "(=?utf-8?Q?a?=b", "(ab"},
        HeaderTextRow{"gluedToEachOther", "=?utf-8?Q?a?==?utf-8?Q?b?=", "ab"},
        HeaderTextRow{"blanksInside", "=?utf-8?Q?a b?=", "a b"},
        HeaderTextRow{"spaceBetweenWords", "=?utf-8?Q?a?= \r\n\t=?koi8-r?Q?b?= c", "ab c"},
        HeaderTextRow{"splitCharacter", "=?utf-8?B?44G=?= =?UTF-8*ja?Q?=82?=", "あ"},
        HeaderTextRow{"splitAcrossText", "=?utf-8?Q?=C3?= - =?utf-8?Q?=A9?=", "\uFFFD - \uFFFD"},
        HeaderTextRow{"splitAcrossCharsets", "=?utf-8?Q?=C3?= =?koi8-r?Q?=F0?=", "\uFFFDП"},
        HeaderTextRow{"shiftStates",
                      "=?iso-2022-jp?B?GyRCJCI=?= =?iso-2022-jp?B?JCQbKEI=?=", "あい"},
        HeaderTextRow{"badBytes", "=?us-ascii?Q?=E9a?=", "\uFFFDa"},
        HeaderTextRow{"outsideWords", "=?utf-8?Q?a?= é \x80", "a é €"},
        HeaderTextRow{"unknownCharset",
                      "=?bogus?Q?a?= =?utf-8?Q?b?= =?bogus?Q?c?=", "=?bogus?Q?a?= b =?bogus?Q?c?="},
        HeaderTextRow{"badBase64", "=?utf-8?B?Y*==?= =?utf-8?Q?b?=", "=?utf-8?B?Y*==?= b"},
        HeaderTextRow{"badEscape", "=?utf-8?Q?=4?= =?utf-8?Q?=4g?= =?utf-8?Q?b?=",
                      "=?utf-8?Q?=4?= =?utf-8?Q?=4g?= b"},
        HeaderTextRow{"wordInsideBrokenOne", "=?utf-8?Q?a =?utf-8?Q?b?=", "=?utf-8?Q?a b"},
        HeaderTextRow{"blankInCharset", "=?utf 8?Q?a?=", "=?utf 8?Q?a?="},
        HeaderTextRow{"noCharset", "=??Q?a?= =?*en?Q?a?=", "=??Q?a?= =?*en?Q?a?="},
        HeaderTextRow{"otherEncoding", "=?utf-8?X?a?=", "=?utf-8?X?a?="},
        HeaderTextRow{"noEnd", "=?utf-8?Q?a", "=?utf-8?Q?a"},
        HeaderTextRow{"cutAfterEncoding", "=?utf-8?Q", "=?utf-8?Q"},
        HeaderTextRow{"onlyBegin", "=?", "=?"}),
    [](const auto &row) { return std::string(row.param.name); });

TEST(StringDecodeRfc2047, ThrowsWhereNoWordDecodes) {
    for (const char *text : {"=?bogus?Q?a?=", "a =?utf-8?Q?=ZZ?= =?koi8-r//IGNORE?B?YQ==?="}) {
        try {
            stringDecodeRfc2047(text);
            FAIL() << text;
        } catch (const Exception &failure) {
            EXPECT_EQ(failure.code(), Exception::kGeneral);
            EXPECT_EQ(failure.message(), "stringDecodeRfc2047");
        }
    }
}

// Each of these was built to make a scanner look again at what it has seen; a quadratic one takes
// minutes here.
TEST(StringDecodeRfc2047, HostileTextsTakeLinearTime) {
    constexpr int kRepeats = 400000;
    for (const std::string piece : {"=?", "=?utf-8?q?", "=?utf-8?q?a", "=?u", "?=", "=?=", "?",
                                    "=?utf-8?q?a?", "=?utf-8?b?a?= =?koi8-r?b?a?= "}) {
        std::string text;
        for (int i = 0; i < kRepeats; ++i) {
            text += piece;
        }
        EXPECT_LE(stringDecodeRfc2047(text).length(), text.size());
    }
}

std::string toUtf8(const char *in, int outSize) {
    std::array<char, 16> out;
    out.fill('#');
    tessel_to_utf8(in, out.data(), outSize, 0);
    return out.data()[0] == '#' ? "(untouched)" : out.data();
}

TEST(TesselToUtf8, RepairsBytesAndKeepsWords) {
    EXPECT_EQ(toUtf8("é\xE9\xC3\x93\x81", 16), "ééÓ\uFFFD");
    EXPECT_EQ(toUtf8("=?a?Q?b?=", 16), "=?a?Q?b?=");
}

TEST(TesselToUtf8, StopsBeforeTheCharacterThatDoesNotFit) {
    EXPECT_EQ(toUtf8("a€b", 6), "a€b");
    EXPECT_EQ(toUtf8("a€b", 5), "a€");
    EXPECT_EQ(toUtf8("a€b", 4), "a");
    EXPECT_EQ(toUtf8("a\x80", 3), "a");
    EXPECT_EQ(toUtf8("a", 1), "");
    EXPECT_EQ(toUtf8("a", 0), "(untouched)");
    EXPECT_EQ(toUtf8("a", -1), "(untouched)");
    EXPECT_EQ(toUtf8(nullptr, 4), "");
}

} // namespace
} // namespace Corvane
