#include "host/parser/Charset.h"

#include <string>

#include <gtest/gtest.h>

namespace Corvane {
namespace {

struct CharsetCase {
    const char *name;
    std::string charset;
    std::string bytes;
    const char *expected;
};

void PrintTo(const CharsetCase &row, std::ostream *out) {
    *out << row.name;
}

class DecodeText : public testing::TestWithParam<CharsetCase> {};

TEST_P(DecodeText, GivesUtf8) {
    const CharsetCase &row = GetParam();
    EXPECT_EQ(decodeText(row.bytes.data(), row.bytes.size(), row.charset), row.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, DecodeText,
    testing::Values(CharsetCase{"latin1AsWindows", "ISO-8859-1", "caf\xE9 \x80", "café €"},
                    CharsetCase{"underscoreName", "iso_8859-2", "\xB1", "ą"},
                    CharsetCase{"shortWindowsName", "win-1251", "\xCF\xF0", "Пр"},
                    CharsetCase{"xPrefix", "X-SJIS", "\x82\xA0\x87\x40", "あ①"},
                    CharsetCase{"csPrefix", "csKOI8R", "\xF0", "П"},
                    CharsetCase{"gb2312AsSuperset", "gb2312", "\xD6\xD0\x81\x40", "中丂"},
                    CharsetCase{"koreanAlias", "ks_c_5601-1987", "\xB0\xA1\x81\x41", "가갂"},
                    CharsetCase{"big5", "Big5", "\xA4\xA4", "中"},
                    CharsetCase{"thai", "TIS-620", "\xA1", "ก"},
                    CharsetCase{"utf7", "unicode-1-1-utf-7", "Hi +Jjo-!", "Hi ☺!"},
                    CharsetCase{"utf16Mark", "utf-16", std::string("\xFF\xFE\x2D\x4E", 4), "中"},
                    CharsetCase{"statefulJapanese", "iso-2022-jp", "\x1B$B$\"\x1B(B!", "あ!"},
                    CharsetCase{"statefulKorean", "iso-2022-kr",
                                "\x1B$)C\x0E"
                                "0!\x0F.",
                                "가."},
                    CharsetCase{"heldBackUntilTheEnd", "windows-1258", "a\xCC", "à"},
                    CharsetCase{"badByteInside", "euc-jp",
                                "\xA4\xFF"
                                "a",
                                "\uFFFD\uFFFDa"},
                    CharsetCase{"cutCharacter", "utf-8", "a\xE3\x81", "a\uFFFD\uFFFD"},
                    CharsetCase{"cutDoubleByte", "big5", "a\xA4", "a\uFFFD"},
                    CharsetCase{"cutUnit", "utf-16le", std::string("a\0b", 3), "a\uFFFD"},
                    CharsetCase{"asciiWithUtf8", "us-ascii", "é", "é"},
                    CharsetCase{"asciiWith8Bit", "us-ascii", "\xE9 é", "é Ã©"},
                    CharsetCase{"unknownAsUtf8", "x-nonsense", "é", "é"},
                    CharsetCase{"emptyAsWindows", "", "\x93\x81\x94", "“\uFFFD”"},
                    CharsetCase{"iconvSuffix", "koi8-r//TRANSLIT", "\xF0", "ð"},
                    CharsetCase{"controlInName", "koi8-r\n", "\xF0", "ð"},
                    CharsetCase{"nulInName", std::string("koi8-r\0", 7), "\xF0", "ð"},
                    CharsetCase{"endlessName", std::string(1 << 20, '-') + "koi8-r", "\xF0", "ð"},
                    CharsetCase{"byteOrderMark", "utf-8",
                                "\xEF\xBB\xBF"
                                "a",
                                "a"}),
    [](const auto &row) { return std::string(row.param.name); });

TEST(Charset, KnowsWhichNamesItKnows) {
    EXPECT_EQ(convertToUtf8("\xE9", 1, "us-ascii"), "\uFFFD");
    EXPECT_EQ(convertToUtf8("", 0, "UTF8"), "");
    for (const char *name : {"", "-", "x-", "x-unknown", "ebcdic-us", "utf-8//IGNORE", "utf-8 "}) {
        EXPECT_FALSE(convertToUtf8("a", 1, name)) << name;
    }
}

// Each name in the table must be one that iconv has, else its aliases would be unknown in silence.
TEST(Charset, EveryKindIsConvertible) {
    for (const char *name :
         {"iso-8859-3",   "iso-8859-4",   "iso-8859-5",  "iso-8859-6-i", "iso-8859-7",
          "iso-8859-8-e", "iso-8859-9",   "iso-8859-10", "iso-8859-11",  "iso-8859-13",
          "iso-8859-14",  "iso-8859-15",  "iso-8859-16", "utf-16be",     "utf-32",
          "utf-32le",     "utf-32be",     "euc-tw",      "iso-2022-cn",  "johab",
          "koi8-u",       "koi8-ru",      "koi8-t",      "macintosh",    "x-mac-cyrillic",
          "viscii",       "tcvn",         "armscii-8",   "georgian-ps",  "hp-roman8",
          "ptcp154",      "rk1048",       "windows-874", "cp1250",       "windows-1253",
          "cp1254",       "windows-1255", "cp1256",      "windows-1257", "ibm437",
          "cp737",        "cp775",        "cp850",       "cp852",        "cp855",
          "cp857",        "cp858",        "cp860",       "cp861",        "cp862",
          "cp863",        "cp864",        "cp865",       "cp866",        "cp869"}) {
        EXPECT_TRUE(convertToUtf8("", 0, name)) << name;
    }
}

TEST(Charset, AppendsOnlyRealCharacters) {
    std::string text;
    for (const char32_t c : {0x24U, 0xA3U, 0x20ACU, 0x10348U, 0xD800U, 0x110000U}) {
        appendUtf8(text, c);
    }
    EXPECT_EQ(text, "$£€𐍈\uFFFD\uFFFD");
    EXPECT_TRUE(isValidUtf8(text.data(), text.size()));
}

TEST(Charset, RefusesFormsThatAreNoUtf8) {
    EXPECT_TRUE(isValidUtf8("\0\xED\x9F\xBF\xF4\x8F\xBF\xBF", 8));
    for (const std::string bad :
         {"\x80", "\xC0\x80", "\xC1\xBF", "\xE0\x9F\xBF", "\xED\xA0\x80", "\xF0\x8F\xBF\xBF",
          "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xC3", "\xC3\x28", "\xF0\x9F\x98"}) {
        EXPECT_FALSE(isValidUtf8(bad.data(), bad.size()));
    }
    EXPECT_EQ(sanitizeUtf8("a\xC3(\xE9é", 6), "a\uFFFD(\uFFFDé");
}

// Longer than any internal chunk, with bad bytes on every side of its borders.
TEST(Charset, LongTextsConvertWhole) {
    std::string bytes;
    std::string expected;
    for (int i = 0; i < 20000; ++i) {
        bytes += i % 7 == 0 ? "\xFF" : "\xA4\xA4";
        expected += i % 7 == 0 ? "\uFFFD" : "中";
    }
    EXPECT_EQ(convertToUtf8(bytes.data(), bytes.size(), "big5"), expected);
}

} // namespace
} // namespace Corvane
