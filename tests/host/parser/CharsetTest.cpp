#include "host/parser/Charset.h"

#include <iterator>
#include <string>
#include <string_view>

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
                                "\uFFFDa"},
                    CharsetCase{"cutCharacter", "utf-8", "a\xE3\x81", "a\uFFFD\uFFFD"},
                    CharsetCase{"cutDoubleByte", "big5", "a\xA4", "a\uFFFD"},
                    CharsetCase{"cutUnit", "utf-16le", std::string("a\0b", 3), "a\uFFFD"},
                    CharsetCase{"asciiWithUtf8", "us-ascii", "é", "é"},
                    CharsetCase{"asciiWith8Bit", "us-ascii", "\xE9 é", "é Ã©"},
                    CharsetCase{"unknownAsUtf8", "x-nonsense", "é", "é"},
                    CharsetCase{"emptyAsWindows", "", "\x93\x81\x94", "“\u0081”"},
                    CharsetCase{"iconvSuffix", "koi8-r//TRANSLIT", "\xF0", "ð"},
                    CharsetCase{"controlInName", "koi8-r\n", "\xF0", "ð"},
                    CharsetCase{"nulInName", std::string("koi8-r\0", 7), "\xF0", "ð"},
                    CharsetCase{"endlessName", std::string(1 << 20, '-') + "koi8-r", "\xF0", "ð"},
                    CharsetCase{"byteOrderMark", "utf-8",
                                "\xEF\xBB\xBF"
                                "a",
                                "a"}),
    [](const auto &row) { return std::string(row.param.name); });

// What is malformed or left open in a line does not reach the next word or line.
INSTANTIATE_TEST_SUITE_P(
    Damage, DecodeText,
    testing::Values(
        CharsetCase{"utf7Malformed", "utf-7", "+/-one +AGE-two +A three +2AA-four",
                    "\uFFFDone atwo \uFFFD three \uFFFDfour"},
        CharsetCase{"utf7Plus", "utf-7", "1 + 1+- 2 +\n+", "1 + 1+ 2 +\n+"},
        CharsetCase{"utf7Pair", "utf-7", "+JjrYNdyz a+2DUAYQ-", "☺𝒳 a\uFFFDa"},
        CharsetCase{"japaneseOpenLine", "iso-2022-jp", "\x1B$BF|K\x5C\nwords\x1B$BF\n|\x1B(B",
                    "日本\nwords\uFFFD\n|"},
        CharsetCase{"koreanOpenLine", "iso-2022-kr",
                    "\x1B$)C\n\x0EGQ1[\nwords\n\x0E"
                    "8;\x0F",
                    "\n한글\nwords\n말"},
        CharsetCase{"koreanWithoutDesignation", "iso-2022-kr", "\x0EGQ\x0F", "한"},
        CharsetCase{"chineseOpenLine", "iso-2022-cn", "\x1B$)A\x0EVP\nwords\x1B$)G\x0EH!",
                    "中\nwords年"},
        CharsetCase{"noEscapeSequence", "iso-2022-jp", "\x1B$zab\x1B", "\uFFFD$zab\uFFFD"},
        CharsetCase{"eightBitInShifts", "iso-2022-jp",
                    "\x1B$BF\xFF"
                    "F|\x1B(Ba",
                    "\uFFFD\uFFFD日a"},
        CharsetCase{"hzOpenLine", "hz-gb-2312", "~{VPND~}~~a~\n~{WV\nwords~{V\n~",
                    "中文~a字\nwords\uFFFD\n\uFFFD"},
        CharsetCase{"badTrail", "gb2312", "\xD6 words \xD6\xFF\xD6\xD0", "\uFFFD words \uFFFD中"},
        CharsetCase{"shiftJisTrail", "shift_jis", "\x82\n\x82\xA0", "\uFFFD\nあ"}),
    [](const auto &row) { return std::string(row.param.name); });

INSTANTIATE_TEST_SUITE_P(
    Sets, DecodeText,
    testing::Values(
        CharsetCase{"jp2", "iso-2022-jp-2",
                    "\x1B$BF|K\x5C\x1B$(D*#\x1B$(C\x22"
                    "fGQ\x1B$AVP\x1B(B\x1B.A\x1BNi",
                    "日本Ä€한中é"},
        CharsetCase{"jp3", "iso-2022-jp-3", "\x1B$(O$w.\x22\x1B(B", "か゚𠀋"},
        CharsetCase{"vendorCharacter", "iso-2022-jp", "\x1B$B|b-!\x1B(B", "髙①"},
        CharsetCase{"eucJp", "euc-jp", "\xFC\xE2\xC6\xFC\x8E\xB1\x8F\xB0\xA1 \x8F\xB0\n\xFF",
                    "髙日ｱ丂 \uFFFD\n\uFFFD"},
        CharsetCase{"katakana", "iso-2022-jp", "\x1B(I6E\x1B(J\\~", "ｶﾅ¥‾"},
        CharsetCase{"cnsBySingleShift", "iso-2022-cn", "\x1B$*H\x1BN!!a", "乂a"},
        CharsetCase{"windowsControls", "iso-8859-1", "\x81\x8D\x9D", "\u0081\u008D\u009D"},
        CharsetCase{"hebrewPoint", "windows-1255", "\xCA\xD9", "\u05BA\uFFFD"},
        CharsetCase{"ukrainian", "koi8-u", "\xAE\xBE", "ўЎ"},
        CharsetCase{"thaiOfWindows", "iso-8859-11", "\x80\xA1", "€ก"},
        CharsetCase{"utf16BigEndian", "utf-16be", std::string("\x4E\x2D", 2), "中"}),
    [](const auto &row) { return std::string(row.param.name); });

// A declared charset that plainly does not fit yields; one that may fit does not.
INSTANTIATE_TEST_SUITE_P(
    Doubts, DecodeText,
    testing::Values(
        CharsetCase{"latin", "iso-8859-1", "café", "café"},
        CharsetCase{"cyrillic", "koi8-r", "Да", "Да"},
        CharsetCase{"chinese", "gb2312", "赢取大奖 now", "赢取大奖 now"},
        CharsetCase{"japanese", "iso-2022-jp", "日本", "日本"},
        CharsetCase{"asciiIsNotWide", "utf-16", "You have won a car.", "You have won a car."},
        CharsetCase{"quoteAlone", "windows-1252", "CAF\xC9\x94", "CAFÉ”"},
        CharsetCase{"twoBytesThatAreBoth", "gbk", "\xC4\xA3", "模"},
        CharsetCase{"notAllOfIt", "windows-1251", "Да \xC4\xE0", "Р”Р° Да"},
        CharsetCase{"markOfUtf8", "koi8-r", "\xEF\xBB\xBFé", "é"},
        CharsetCase{"markOfUtf16", "utf-8", std::string("\xFE\xFF\x4E\x2D", 4), "中"},
        CharsetCase{"markOfUtf32", "utf-32", std::string("\xFF\xFE\0\0\x2D\x4E\0\0", 8), "中"}),
    [](const auto &row) { return std::string(row.param.name); });

// Names that the encoding standard has, one in each group that our table reaches in another way.
TEST(Charset, KnowsTheLabelsOfTheStandard) {
    for (const char *label : {"unicode-1-1-utf-8",
                              "x-unicode20utf8",
                              "866",
                              "csibm866",
                              "iso-ir-101",
                              "csisolatin2",
                              "iso_8859-3:1988",
                              "l4",
                              "iso_8859-5:1988",
                              "asmo-708",
                              "csiso88596e",
                              "ecma-114",
                              "elot_928",
                              "sun_eu_greek",
                              "csiso88598i",
                              "visual",
                              "iso-ir-157",
                              "csisolatin9",
                              "koi8_r",
                              "cskoi8r",
                              "csmacintosh",
                              "x-mac-roman",
                              "dos-874",
                              "x-cp1250",
                              "x-cp1251",
                              "ansi_x3.4-1968",
                              "cp819",
                              "ibm819",
                              "iso-ir-100",
                              "iso_8859-9:1989",
                              "iso-ir-148",
                              "x-mac-ukrainian",
                              "csiso58gb231280",
                              "gb_2312-80",
                              "x-gbk",
                              "x-x-big5",
                              "cn-big5",
                              "cseucpkdfmtjapanese",
                              "x-euc-jp",
                              "csiso2022jp",
                              "csshiftjis",
                              "ms_kanji",
                              "x-sjis",
                              "csksc56011987",
                              "ks_c_5601-1989",
                              "windows-949",
                              "csiso2022kr",
                              "iso-2022-cn-ext",
                              "hz-gb-2312",
                              "unicodefffe",
                              "csunicode",
                              "iso-10646-ucs-2",
                              "unicodefeff"}) {
        EXPECT_TRUE(isKnownCharset(label)) << label;
    }
}

// However a text is cut into pieces, it is the same in the end.
TEST(Charset, PiecesDecodeLikeTheWhole) {
    std::string bytes;
    for (unsigned int i = 0; i < 3000; ++i) {
        const unsigned int mixed = i * 2654435761U >> 11U;
        constexpr std::string_view kShifts[] = {"\x1B$B", "\x1B(B", "\x0E", "\x0F",
                                                "~{",     "~}",     "+"};
        if (mixed % 16 == 0) {
            bytes += kShifts[mixed / 16 % std::size(kShifts)];
        } else {
            bytes += static_cast<char>(mixed & 0xFFU);
        }
    }
    for (const char *charset : {"utf-8", "utf-7", "utf-16", "utf-32be", "koi8-r", "windows-1258",
                                "gb18030", "big5", "shift_jis", "euc-jp", "uhc", "iso-2022-jp",
                                "iso-2022-kr", "iso-2022-cn", "hz", "", "us-ascii"}) {
        const std::string whole = decodeText(bytes.data(), bytes.size(), charset);
        EXPECT_TRUE(isValidUtf8(whole.data(), whole.size()));
        for (const std::size_t step : {1U, 2U, 3U, 7U, 1000U}) {
            TextDecoder decoder(charset, bytes);
            std::string pieces;
            for (std::size_t at = 0; at < bytes.size(); at += step) {
                decoder.decode(std::string_view(bytes).substr(at, step), pieces);
            }
            decoder.finish(pieces);
            EXPECT_EQ(pieces, whole) << charset << ' ' << step;
        }
    }
}

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
