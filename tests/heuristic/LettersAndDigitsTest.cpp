#include "heuristic/LettersAndDigits.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace Corvane::Heuristic {
namespace {

using Copy = unsigned char *(*)(const unsigned char *, std::size_t, unsigned char *);

std::string s_copied(Copy copy, const std::string &text) {
    std::vector<unsigned char> out(text.size() + kCopyRoomBytes);
    const auto *bytes = reinterpret_cast<const unsigned char *>(text.data());
    const unsigned char *end = copy(bytes, text.size(), out.data());
    return std::string(out.data(), out.data() + (end - out.data()));
}

std::string s_expected(const std::string &text) {
    std::string expected;
    std::copy_if(text.begin(), text.end(), std::back_inserter(expected), [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
    });
    return expected;
}

TEST(LettersAndDigits, AreTheSameEitherWay) {
    // All bytes, wanted and unwanted ones in turn, so that texts of every length begin and end with each kind.
    constexpr std::size_t kStride = 37;
    std::string all;
    for (std::size_t byte = 0; byte < 512; ++byte) {
        all += static_cast<char>(byte * kStride % 256);
    }
    for (std::size_t length = 0; length <= 200; ++length) {
        const std::string text = all.substr(length * kStride % 256, length);
        ASSERT_EQ(text.size(), length);
        ASSERT_EQ(s_copied(copyLettersAndDigits, text), s_expected(text)) << length;
        ASSERT_EQ(s_copied(copyLettersAndDigitsBytewise, text), s_expected(text)) << length;
    }
}

} // namespace
} // namespace Corvane::Heuristic
