#include "host/regex/PatternReader.h"

#include <cstring>

namespace Corvane::Regex {

namespace {

constexpr std::uint32_t kLastByte = 0xFF;
constexpr std::uint32_t kLastCodePoint = 0x10FFFF;
constexpr unsigned int kOctal = 8;
constexpr unsigned int kHexadecimal = 16;
constexpr unsigned int kContinuationBits = 6;
constexpr std::uint32_t kContinuationMask = 0x3F;
constexpr unsigned int kNoDigit = 99;

unsigned int s_digit(char c) {
    if (c >= '0' && c <= '9') {
        return static_cast<unsigned int>(c - '0');
    }
    const char lower = static_cast<char>(c | ('a' - 'A'));
    return lower >= 'a' && lower <= 'f' ? static_cast<unsigned int>(lower - 'a') + 10 : kNoDigit;
}

// How many bytes the sequence has that begins with lead; 0 for what begins none.
unsigned int s_sequenceLength(unsigned char lead) {
    if (lead < 0x80) {
        return 1;
    }
    if (lead < 0xC2 || lead > 0xF4) {
        return 0;
    }
    return lead < 0xE0 ? 2 : (lead < 0xF0 ? 3 : 4);
}

} // namespace

void PatternReader::fail() {
    failed_ = true;
    at_ = text_.size();
}

char PatternReader::peek(std::size_t further) const {
    return at_ + further < text_.size() ? text_[at_ + further] : '\0';
}

bool PatternReader::looksAt(const char *expected) const {
    return text_.compare(at_, std::strlen(expected), expected) == 0;
}

bool PatternReader::take(const char *expected) {
    if (!looksAt(expected)) {
        return false;
    }
    at_ += std::strlen(expected);
    return true;
}

char PatternReader::next() {
    if (atEnd()) {
        fail();
        return '\0';
    }
    return text_[at_++];
}

std::string PatternReader::takeThrough(char end) {
    const std::size_t found = text_.find(end, at_);
    if (found == std::string::npos) {
        fail();
        return {};
    }
    const std::string taken = text_.substr(at_, found - at_);
    at_ = found + 1;
    return taken;
}

std::uint32_t PatternReader::character() {
    const auto lead = static_cast<unsigned char>(next());
    if (!utf_ || lead < 0x80) {
        return lead;
    }
    const unsigned int length = s_sequenceLength(lead);
    std::uint32_t code = length == 0 ? 0 : lead & (kLastByte >> (length + 1));
    for (unsigned int left = length; left > 1; --left) {
        const auto byte = static_cast<unsigned char>(next());
        if ((byte & ~kContinuationMask) != 0x80) {
            fail();
        }
        code = (code << kContinuationBits) | (byte & kContinuationMask);
    }
    if (length == 0) {
        fail();
    }
    return code;
}

std::uint32_t PatternReader::checked(std::uint32_t code) {
    if (code > (utf_ ? kLastCodePoint : kLastByte)) {
        fail();
    }
    return code;
}

std::uint32_t PatternReader::octal() {
    std::uint32_t code = 0;
    for (int digits = 0; digits < 3 && s_digit(peek()) < kOctal; ++digits) {
        code = code * kOctal + s_digit(next());
    }
    return checked(code);
}

std::uint32_t PatternReader::digitsThroughBrace(unsigned int base) {
    std::uint32_t code = 0;
    unsigned int digits = 0;
    for (; s_digit(peek()) < base && code <= kLastCodePoint; ++digits) {
        code = code * base + s_digit(next());
    }
    if (digits == 0 || !take("}")) {
        fail();
    }
    return checked(code);
}

std::uint32_t PatternReader::namedCodePoint() {
    if (!utf_ || !take("U+")) {
        fail();
        return 0;
    }
    return digitsThroughBrace(kHexadecimal);
}

std::uint32_t PatternReader::hexEscape() {
    if (take("{")) {
        return digitsThroughBrace(kHexadecimal);
    }
    std::uint32_t code = 0;
    for (int digits = 0; digits < 2 && s_digit(peek()) < kHexadecimal; ++digits) {
        code = code * kHexadecimal + s_digit(next());
    }
    return code;
}

std::uint32_t PatternReader::escapedCharacter() {
    constexpr unsigned char kControlBit = 0x40;
    if (peek() == '0') {
        return octal();
    }
    if (static_cast<unsigned char>(peek()) >= 0x80) {
        return character();
    }
    const char letter = next();
    switch (letter) {
    case 'a':
        return '\a';
    case 'e':
        return '\x1b';
    case 'f':
        return '\f';
    case 'n':
        return '\n';
    case 'r':
        return '\r';
    case 't':
        return '\t';
    case 'x':
        return hexEscape();
    default:
        break;
    }
    if (letter == 'o' && take("{")) {
        return digitsThroughBrace(kOctal);
    }
    if (letter == 'c' && peek() >= ' ' && peek() <= '~') {
        const char named = next();
        const bool lower = named >= 'a' && named <= 'z';
        return static_cast<unsigned char>((lower ? named - 'a' + 'A' : named) ^ kControlBit);
    }
    const bool alphanumeric = (letter >= '0' && letter <= '9') ||
                              (letter >= 'A' && letter <= 'Z') || (letter >= 'a' && letter <= 'z');
    if (alphanumeric) {
        fail();
    }
    return static_cast<unsigned char>(letter);
}

std::string utf8Of(std::uint32_t code) {
    if (code < 0x80) {
        return std::string(1, static_cast<char>(code));
    }
    std::string bytes;
    std::uint32_t lead = code < 0x800 ? 0xC0 : (code < 0x10000 ? 0xE0 : 0xF0);
    const unsigned int further = code < 0x800 ? 1 : (code < 0x10000 ? 2 : 3);
    bytes += static_cast<char>(lead | (code >> (kContinuationBits * further)));
    for (unsigned int left = further; left > 0; --left) {
        const std::uint32_t bits = code >> (kContinuationBits * (left - 1));
        bytes += static_cast<char>(0x80 | (bits & kContinuationMask));
    }
    return bytes;
}

} // namespace Corvane::Regex
