#include "host/parser/Utf8.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace Corvane {

namespace {

constexpr unsigned char kFirstNonAscii = 0x80;

template <class Otherwise>
std::string s_validOr(const char *data, std::size_t length, Otherwise otherwise) {
    std::string out;
    out.reserve(length);
    std::size_t done = 0;
    for (std::size_t at = 0; at < length;) {
        at += asciiLength(data + at, length - at);
        const std::size_t valid = utf8SequenceLength(data + at, length - at);
        if (valid == 0 && at < length) {
            out.append(data + done, at - done);
            otherwise(out, static_cast<unsigned char>(data[at]));
            done = at + 1;
        }
        at += std::max<std::size_t>(valid, 1);
    }
    return out.append(data + done, length - done);
}

// Bytes that the lead byte of a sequence announces; 0 where it cannot lead one.
std::size_t s_announcedLength(unsigned char lead) {
    constexpr unsigned char kFirstLead = 0xC2;
    constexpr unsigned char kFirstLeadOfThree = 0xE0;
    constexpr unsigned char kFirstLeadOfFour = 0xF0;
    constexpr unsigned char kLastLead = 0xF4;
    constexpr std::size_t kThree = 3;
    constexpr std::size_t kFour = 4;
    if (lead < kFirstNonAscii) {
        return 1;
    }
    if (lead < kFirstLead || lead > kLastLead) {
        return 0;
    }
    return lead < kFirstLeadOfThree ? 2 : lead < kFirstLeadOfFour ? kThree : kFour;
}

// What the second byte may be after a lead byte that also begins overlong forms, surrogates, or
// code points beyond the last.
bool s_isSecondByte(unsigned char lead, unsigned char second) {
    switch (lead) {
    case 0xE0:
        return second >= 0xA0;
    case 0xED:
        return second < 0xA0;
    case 0xF0:
        return second >= 0x90;
    case 0xF4:
        return second < 0x90;
    default:
        return true;
    }
}

} // namespace

void appendUtf8(std::string &out, char32_t codePoint) {
    constexpr char32_t kFirstOfTwo = 0x80;
    constexpr char32_t kFirstOfThree = 0x800;
    constexpr char32_t kFirstOfFour = 0x10000;
    constexpr char32_t kLast = 0x10FFFF;
    constexpr unsigned kTrailBits = 6;
    if (codePoint > kLast || (codePoint >= 0xD800 && codePoint <= 0xDFFF)) {
        codePoint = kReplacementCharacter;
    }
    const auto trail = [codePoint](unsigned index) {
        return static_cast<char>(0x80 | ((codePoint >> (index * kTrailBits)) & 0x3F));
    };
    if (codePoint < kFirstOfTwo) {
        out += static_cast<char>(codePoint);
    } else if (codePoint < kFirstOfThree) {
        out += static_cast<char>(0xC0 | (codePoint >> kTrailBits));
        out += trail(0);
    } else if (codePoint < kFirstOfFour) {
        out += static_cast<char>(0xE0 | (codePoint >> (2 * kTrailBits)));
        out += {trail(1), trail(0)};
    } else {
        out += static_cast<char>(0xF0 | (codePoint >> (3 * kTrailBits)));
        out += {trail(2), trail(1), trail(0)};
    }
}

void appendWindows1252(std::string &out, unsigned char byte) {
    constexpr unsigned char kFirstLatin1 = 0xA0;
    static constexpr char16_t kC1[kFirstLatin1 - kFirstNonAscii] = {
        0x20AC, 0xFFFD, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
        0x2039, 0x0152, 0xFFFD, 0x017D, 0xFFFD, 0xFFFD, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
        0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0xFFFD, 0x017E, 0x0178};
    const bool remapped = byte >= kFirstNonAscii && byte < kFirstLatin1;
    appendUtf8(out, remapped ? kC1[byte - kFirstNonAscii] : byte);
}

std::size_t utf8SequenceLength(const char *text, std::size_t available) {
    const auto byteAt = [text](std::size_t at) { return static_cast<unsigned char>(text[at]); };
    const std::size_t length = available > 0 ? s_announcedLength(byteAt(0)) : 0;
    if (length > available || (length > 1 && !s_isSecondByte(byteAt(0), byteAt(1)))) {
        return 0;
    }
    for (std::size_t at = 1; at < length; ++at) {
        if ((byteAt(at) & 0xC0U) != 0x80U) {
            return 0;
        }
    }
    return length;
}

char32_t utf8CodePoint(const char *sequence, std::size_t length) {
    constexpr unsigned int kLeadBits = 7;
    constexpr unsigned int kTrailBits = 6;
    if (length == 1) {
        return static_cast<unsigned char>(*sequence);
    }
    const unsigned int leadMask = (1U << (kLeadBits - static_cast<unsigned int>(length))) - 1U;
    char32_t c = static_cast<unsigned char>(*sequence) & leadMask;
    for (std::size_t at = 1; at < length; ++at) {
        c = c << kTrailBits | (static_cast<unsigned char>(sequence[at]) & 0x3FU);
    }
    return c;
}

std::size_t utf8WholeLength(const char *data, std::size_t length) {
    constexpr std::size_t kLongestFront = 3;
    for (std::size_t back = 1; back <= std::min(kLongestFront, length); ++back) {
        const auto byte = static_cast<unsigned char>(data[length - back]);
        if ((byte & 0xC0U) != 0x80U) {
            return s_announcedLength(byte) > back ? length - back : length;
        }
    }
    return length;
}

std::size_t asciiLength(const char *data, std::size_t length) {
    constexpr std::uint64_t kHighBits = 0x8080808080808080;
    std::size_t at = 0;
    for (std::uint64_t bytes = 0; at + sizeof bytes <= length; at += sizeof bytes) {
        std::memcpy(&bytes, data + at, sizeof bytes);
        if ((bytes & kHighBits) != 0) {
            break;
        }
    }
    while (at < length && static_cast<unsigned char>(data[at]) < kFirstNonAscii) {
        ++at;
    }
    return at;
}

bool isValidUtf8(const char *data, std::size_t length) {
    for (std::size_t at = 0; at < length;) {
        const std::size_t valid = utf8SequenceLength(data + at, length - at);
        if (valid == 0) {
            return false;
        }
        at += valid;
    }
    return true;
}

std::string sanitizeUtf8(const char *data, std::size_t length) {
    return s_validOr(data, length, [](std::string &out, unsigned char) {
        appendUtf8(out, kReplacementCharacter);
    });
}

std::string repairUtf8(const char *data, std::size_t length) {
    return s_validOr(data, length, appendWindows1252);
}

} // namespace Corvane
