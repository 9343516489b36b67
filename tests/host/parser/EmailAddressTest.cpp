#include "host/parser/EmailAddress.h"

#include <string>

#include <gtest/gtest.h>

namespace Corvane {
namespace {

struct AddressRow {
    const char *name;
    std::string text;
    const char *displayName;
    const char *address;
};

void PrintTo(const AddressRow &row, std::ostream *out) {
    *out << row.name;
}

class Addresses : public testing::TestWithParam<AddressRow> {};

TEST_P(Addresses, Parse) {
    const EmailAddress parsed = EmailAddress::rfc5322Parse(GetParam().text, true);
    EXPECT_EQ(parsed.displayName(), GetParam().displayName);
    EXPECT_EQ(parsed.address(), GetParam().address);
    EXPECT_EQ(parsed.isNull(), parsed.address().empty());
}

INSTANTIATE_TEST_SUITE_P(
    Plain, Addresses,
    testing::Values(AddressRow{"empty", "", "", ""}, AddressRow{"emptyAngle", "Joe <>", "", ""},
                    AddressRow{"wordBeforeAddress", "Joe a@b", "", ""},
                    AddressRow{"blankInLocalPart", "a b@c", "", ""},
                    AddressRow{"ats", "@@@", "", ""}, AddressRow{"semicolons", ";;;", "", ""},
                    AddressRow{"words", "no address here", "", ""},
                    AddressRow{"localPart", "root", "", "root"},
                    AddressRow{"openAngle", "Joe <A@B", "Joe", "A@B"},
                    AddressRow{"nameInComment", "a@b (Joe (x))", "Joe (x)", "a@b"},
                    AddressRow{"twoAts", "a@b@c", "", "a@b"},
                    AddressRow{"firstOfList", "a@b, c@d", "", "a@b"},
                    AddressRow{"firstOfGroup", "g: x: a@b;;, c@d", "", "a@b"},
                    AddressRow{"emptyGroup", "undisclosed-recipients:;", "", ""},
                    AddressRow{"afterEmptyGroup", "g:;, a@b", "", "a@b"},
                    AddressRow{"commaInName", "Joe, Inc. <a@b>", "Joe, Inc.", "a@b"},
                    AddressRow{"bracketsInName", "Joe [US] <a@b>", "Joe [US]", "a@b"},
                    AddressRow{"bracketedDomain", "a@[192.0.2.1]", "", "a@[192.0.2.1]"},
                    AddressRow{"nul", std::string("Joe\0X <a@b>", 11), "Joe X", "a@b"}),
    [](const auto &row) { return std::string(row.param.name); });

INSTANTIATE_TEST_SUITE_P(
    Encoded, Addresses,
    testing::Values(
        AddressRow{"windowsBytes", "Caf\xE9 \x80 <a@b>", "Café €", "a@b"},
        AddressRow{"bytesInQuotes", "\"Caf\xE9, é\" <a@b>", "Café, é", "a@b"},
        AddressRow{"glued", "=?utf-8?Q?_x_?=<a@b>", "x", "a@b"},
        AddressRow{"inQuotes", "\"x =?koi8-r?B?8A==?= \\\"y\\\"\" <a@b>", "x П \"y\"", "a@b"},
        AddressRow{"inComment", "a@b (=?utf-8?Q?J=C3=A9_(x)?=)", "Jé (x)", "a@b"},
        AddressRow{"splitCharacter", "=?utf-8?B?44G=?= =?utf-8?B?gg==?= <a@b>", "あ", "a@b"},
        AddressRow{"specials", "=?utf-8?Q?a\"b, <c?= <a@b>", "a\"b, <c", "a@b"},
        AddressRow{"decodedOnce", "=?utf-8?Q?=3D=3Fx=3FQ=3Fy=3F=3D?= <a@b>", "=?x?Q?y?=", "a@b"},
        AddressRow{"unknownCharset", "=?bogus?Q?x?= <a@b>", "=?bogus?Q?x?=", "a@b"},
        AddressRow{"nameAndAddress", "=?utf-8?Q?Joe_=3Ca=40b=3E?=", "Joe", "a@b"},
        AddressRow{"inAngle", "Joe <=?utf-8?Q?a=40b?=>", "Joe", "a@b"},
        AddressRow{"wordsOnly", "=?utf-8?Q?Free_spins!?=", "", ""},
        AddressRow{"wordOfUnknownCharset", "=?bogus?Q?a=40b?=", "", ""}),
    [](const auto &row) { return std::string(row.param.name); });

TEST(EmailAddress, StrictParsingRefusesWhatLenientAccepts) {
    for (const char *text :
         {"Joe [US] <a@b>", "Joe <a@b", "a@b>", "\"Joe <a@b>", "a@b (Joe", "a@b (Joe))"}) {
        EXPECT_TRUE(EmailAddress::rfc5322Parse(text, false).isNull()) << text;
        EXPECT_EQ(EmailAddress::rfc5322Parse(text, true).address(), "a@b") << text;
    }
    EXPECT_EQ(EmailAddress::rfc5322Parse("\"Joe\" (\\() <a@b>", false).asString(), "Joe <a@b>");
}

TEST(EmailAddress, RendersWhatParsesBack) {
    EXPECT_EQ(EmailAddress().asString(), "");
    EXPECT_EQ(EmailAddress("", "a@b").asString(), "a@b");
    EXPECT_EQ(EmailAddress("Jé Doe", "a@b").asString(), "Jé Doe <a@b>");
    EXPECT_EQ(EmailAddress("J. \"Q\\\"", "a@b").asString(), "\"J. \\\"Q\\\\\\\"\" <a@b>");
    for (const char *name : {"Doe, Joe", "a@b", "x\ty", "[work]", "a:b;", "(c)"}) {
        const std::string text = EmailAddress(name, "a@b").asString();
        EXPECT_EQ(EmailAddress::rfc5322Parse(text, false).displayName(), name);
    }
    EXPECT_TRUE(EmailAddress("Joe", "").isNull());
    EXPECT_EQ(EmailAddress("Joe", "").displayName(), "");
}

std::string times(unsigned int count, const std::string &piece) {
    std::string text;
    for (unsigned int i = 0; i < count; ++i) {
        text += piece;
    }
    return text;
}

TEST(EmailAddress, LooksOnlyAtTheFront) {
    const std::string address = "<a@b>";
    const auto room = EmailAddress::kMaxTextBytes - static_cast<unsigned int>(address.size());
    EXPECT_EQ(EmailAddress::rfc5322Parse(times(room, " ") + address, true).address(), "a@b");
    EXPECT_EQ(EmailAddress::rfc5322Parse(times(room + 5, " ") + address, true).address(), "");
    const unsigned int colons = EmailAddress::kMaxColons;
    EXPECT_EQ(EmailAddress::rfc5322Parse(times(colons, "g:") + address, true).address(), "a@b");
    EXPECT_TRUE(EmailAddress::rfc5322Parse(times(colons + 1, "g:") + address, true).isNull());
}

TEST(EmailAddress, HostileTextsDoNoHarm) {
    for (const std::string piece :
         {"g:", "(", "<", "\"", "\\", "[", "@", "a@b,", "=?utf-8?q?", "g:a;,", "a@[](", "b@c>",
          "=?utf-8?q?a?= ", "<@a,", "a ", "\xE9", "\"=?utf-8?q?\"?="}) {
        const EmailAddress parsed = EmailAddress::rfc5322Parse(times(200000, piece), true);
        EXPECT_LE(parsed.address().size(), 3 * EmailAddress::kMaxTextBytes) << piece;
    }
}

} // namespace
} // namespace Corvane
