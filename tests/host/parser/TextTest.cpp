#include "host/parser/Text.h"

#include <string>

#include <gtest/gtest.h>

namespace Corvane {
namespace {

TEST(Text, TrimsEveryKindOfWhiteSpace) {
    std::string text = " \t\n\v\f\ra\xA0 b \t\n\v\f\r";
    stringLeftTrim(text);
    stringRightTrim(text);
    EXPECT_EQ(text, "a\xA0 b");
    for (std::string blank : {"", " ", "\r\n\t"}) {
        std::string other = blank;
        stringLeftTrim(blank);
        stringRightTrim(other);
        EXPECT_EQ(blank + other, "");
    }
}

TEST(Text, FindsFromAnyOffset) {
    const std::string text = "ab  cd";
    EXPECT_EQ(stringFindWhiteSpace(text, 0), 2U);
    EXPECT_EQ(stringFindNonWhiteSpace(text, 2), 4U);
    EXPECT_EQ(stringFindWhiteSpace(text, 4), std::string::npos);
    EXPECT_EQ(stringFindWhiteSpace(text, 6), std::string::npos);
    EXPECT_EQ(stringFindNonWhiteSpace(text, 7), std::string::npos);
}

TEST(Text, LowersAsciiLettersOnly) {
    std::string lowered = "something longer than the copy";
    const std::string source("xBO\0Dy\xC4!", 8);
    copyStringToLower(source.data(), lowered, 1, 6);
    EXPECT_EQ(lowered, std::string("bo\0dy\xC4", 6));
    EXPECT_TRUE(equalIgnoringCase("SUBject", "subJECT"));
    EXPECT_FALSE(equalIgnoringCase("\xC4", "\xE4"));
    EXPECT_FALSE(equalIgnoringCase("ab", "abc"));
}

} // namespace
} // namespace Corvane
