#include "host/regex/Utf8Text.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>

namespace Corvane::Regex {

namespace {

// What may follow a first byte: so many bytes, of which the first lies in a range of its own.
struct Sequence {
    std::size_t further;
    unsigned char lowest;
    unsigned char highest;
};

constexpr unsigned char kLowest = 0x80;
constexpr unsigned char kHighest = 0xBF;

// Stands in no character, follows no other byte in one, and makes no line end with what follows it:
// the engine, which knows the characters of up to six bytes that UTF-8 once had, takes it for the first
// of six.
constexpr unsigned char kBrokenByte = 0xFF;
constexpr std::size_t kMostFurther = 5;

bool s_sequence(unsigned char lead, Sequence &sequence) {
    if (lead < 0xC2 || lead > 0xF4) {
        return false;
    }
    sequence = {lead < 0xE0 ? 1U : (lead < 0xF0 ? 2U : 3U), kLowest, kHighest};
    switch (lead) {
    case 0xE0:
        sequence.lowest = 0xA0;
        break;
    case 0xED:
        sequence.highest = 0x9F;
        break;
    case 0xF0:
        sequence.lowest = 0x90;
        break;
    case 0xF4:
        sequence.highest = 0x8F;
        break;
    default:
        break;
    }
    return true;
}

// How many bytes at the start are ASCII, as far as whole words of them are.
std::size_t s_asciiWords(const unsigned char *data, std::size_t length) {
    constexpr std::uint64_t kHighBits = 0x8080808080808080;
    std::size_t at = 0;
    for (std::uint64_t word = 0; length - at >= sizeof word; at += sizeof word) {
        std::memcpy(&word, data + at, sizeof word);
        if ((word & kHighBits) != 0) {
            break;
        }
    }
    return at;
}

// How many bytes at the start are a whole character, or several of ASCII; 0 where none is.
std::size_t s_wholeCharacters(const unsigned char *data, std::size_t length) {
    if (data[0] < kLowest) {
        return std::max<std::size_t>(s_asciiWords(data, length), 1);
    }
    Sequence sequence{};
    if (!s_sequence(data[0], sequence) || length <= sequence.further || data[1] < sequence.lowest ||
        data[1] > sequence.highest) {
        return 0;
    }
    for (std::size_t further = 2; further <= sequence.further; ++further) {
        if (data[further] < kLowest || data[further] > kHighest) {
            return 0;
        }
    }
    return sequence.further + 1;
}

} // namespace

ReadableText::ReadableText(const unsigned char *data, std::size_t length) {
    bytes_.reserve(length + kMostFurther);
    bytes_.assign(data, data + length);
    for (std::size_t at = 0; at < length;) {
        const std::size_t whole = s_wholeCharacters(data + at, length - at);
        if (whole == 0) {
            bytes_[at] = kBrokenByte;
        }
        at += std::max<std::size_t>(whole, 1);
    }
    bytes_.resize(length + kMostFurther, 0);
}

bool beginsCharacter(const unsigned char *data, std::size_t length, std::size_t offset) {
    if (offset >= length) {
        return false;
    }
    const auto leading = static_cast<std::size_t>(std::countl_one(data[offset]));
    const std::size_t bytes = leading == 0 ? 1 : leading;
    return bytes <= length - offset && isUtf8(data + offset, bytes);
}

bool isUtf8(const unsigned char *data, std::size_t length) {
    for (std::size_t at = 0; at < length;) {
        const std::size_t whole = s_wholeCharacters(data + at, length - at);
        if (whole == 0) {
            return false;
        }
        at += whole;
    }
    return true;
}

} // namespace Corvane::Regex
