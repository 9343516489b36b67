#include "Text.h"

#include <algorithm>
#include <array>
#include <system_error>

namespace Corvane::Milter {

namespace {

constexpr unsigned char kFirstPrintable = 0x20;
constexpr unsigned char kDelete = 0x7F;

unsigned char s_byte(std::string_view text, std::size_t at) {
    return static_cast<unsigned char>(text[at]);
}

struct Form {
    unsigned char mask;
    unsigned char lead;
    std::size_t length;
    // What takes fewer bytes is not written in this form.
    std::uint32_t least;
};

constexpr std::array<Form, 3> kForms = {
    {{0xE0, 0xC0, 2, 0x80}, {0xF0, 0xE0, 3, 0x800}, {0xF8, 0xF0, 4, 0x10000}}};

// Surrogates, what is beyond the last character, the second set of control characters, and the two
// characters that some programs take for the end of a line.
bool s_isRefused(std::uint32_t character) {
    constexpr std::uint32_t kControlsEnd = 0xA0;
    constexpr std::uint32_t kLineSeparator = 0x2028;
    constexpr std::uint32_t kSurrogates = 0xD800;
    constexpr std::uint32_t kSurrogatesEnd = 0xE000;
    constexpr std::uint32_t kLast = 0x10FFFF;
    return character < kControlsEnd || character == kLineSeparator ||
           character == kLineSeparator + 1 ||
           (character >= kSurrogates && character < kSurrogatesEnd) || character > kLast;
}

// How many bytes the character takes that begins there and may be shown; 0 where there is none.
std::size_t s_characterAt(std::string_view text, std::size_t at) {
    constexpr unsigned int kBitsOfFollower = 6;
    constexpr unsigned char kFollowerMask = 0xC0;
    constexpr unsigned char kFollower = 0x80;
    for (const Form &form : kForms) {
        if ((s_byte(text, at) & form.mask) != form.lead || text.size() - at < form.length) {
            continue;
        }
        std::uint32_t value = s_byte(text, at) & static_cast<unsigned char>(~form.mask);
        for (std::size_t next = at + 1; next < at + form.length; ++next) {
            if ((s_byte(text, next) & kFollowerMask) != kFollower) {
                return 0;
            }
            value = (value << kBitsOfFollower) |
                    (s_byte(text, next) & static_cast<unsigned char>(~kFollowerMask));
        }
        return value < form.least || s_isRefused(value) ? 0 : form.length;
    }
    return 0;
}

bool s_isPlain(unsigned char byte, std::string_view specials) {
    return byte >= kFirstPrintable && byte < kDelete && byte != '\\' &&
           specials.find(static_cast<char>(byte)) == std::string_view::npos;
}

std::string s_hexadecimal(unsigned char byte) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    constexpr unsigned int kBase = 16;
    return {'\\', 'x', kDigits[byte / kBase], kDigits[byte % kBase]};
}

char s_lower(char letter) {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

} // namespace

std::string escaped(std::string_view text, Charset charset, std::string_view specials,
                    std::size_t most) {
    constexpr std::string_view kCut = "...";
    std::string result;
    for (std::size_t at = 0; at < text.size();) {
        std::string next;
        std::size_t length = 1;
        if (s_isPlain(s_byte(text, at), specials)) {
            next = text[at];
        } else {
            const std::size_t whole = charset == Charset::Utf8 ? s_characterAt(text, at) : 0;
            length = std::max<std::size_t>(whole, 1);
            next =
                whole > 0 ? std::string(text.substr(at, whole)) : s_hexadecimal(s_byte(text, at));
        }
        if (result.size() + next.size() > most) {
            return result.append(kCut);
        }
        result += next;
        at += length;
    }
    return result;
}

std::string lowercase(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(), s_lower);
    return result;
}

bool equalsIgnoringCase(std::string_view left, std::string_view right) {
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [](char one, char other) { return s_lower(one) == s_lower(other); });
}

std::string systemReason(int error) {
    return std::generic_category().message(error);
}

} // namespace Corvane::Milter
