#ifndef CORVANE_SRC_HOST_REGEX_UTF8TEXT_H
#define CORVANE_SRC_HOST_REGEX_UTF8TEXT_H

#include <cstddef>
#include <vector>

namespace Corvane::Regex {

// Whether the text consists of whole characters in UTF-8: none longer than it need be, none beyond
// U+10FFFF, no surrogate. data may be null where length is 0.
bool isUtf8(const unsigned char *data, std::size_t length);

// Whether the offset lies behind the first byte of a character of such a text.
inline bool isWithinCharacter(const unsigned char *data, std::size_t length, std::size_t offset) {
    constexpr unsigned int kMark = 0xC0;
    constexpr unsigned int kFurther = 0x80;
    return offset < length && (data[offset] & kMark) == kFurther;
}

// Whether a whole character begins at the offset.
bool beginsCharacter(const unsigned char *data, std::size_t length, std::size_t offset);

// A text that is no UTF-8, for the engine: looking for a line end, that reads back from a whole
// character to what it takes for the one before, and then all bytes of that, so that it may read before
// the text and behind it and find line ends in bytes that are none. This is a copy with 0xFF for each
// byte that belongs to no character, and zero bytes behind it.
class ReadableText {
public:
    // data must not be null.
    ReadableText(const unsigned char *data, std::size_t length);

    const unsigned char *data() const { return bytes_.data(); }

private:
    std::vector<unsigned char> bytes_;
};

} // namespace Corvane::Regex

#endif
