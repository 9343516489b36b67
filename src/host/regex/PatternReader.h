#ifndef CORVANE_SRC_HOST_REGEX_PATTERNREADER_H
#define CORVANE_SRC_HOST_REGEX_PATTERNREADER_H

// A position in the text of a pattern, and the readers of single characters. What is not understood
// puts the reader at the end, so that every loop over the text ends, and sets failed().
//
// A text must outlive its reader.

#include <cstddef>
#include <cstdint>
#include <string>

namespace Corvane::Regex {

class PatternReader {
public:
    PatternReader(const std::string &text, bool utf) : text_(text), utf_(utf) {}

    bool utf() const { return utf_; }
    bool failed() const { return failed_; }
    void fail();

    bool atEnd() const { return at_ >= text_.size(); }
    std::size_t position() const { return at_; }
    void position(std::size_t at) { at_ = at; }

    // The byte at the position or further on; a zero byte behind the end.
    char peek(std::size_t further = 0) const;
    bool endsWithin(std::size_t further) const { return at_ + further >= text_.size(); }
    bool looksAt(const char *expected) const;

    // Moves behind expected where the text goes on with it.
    bool take(const char *expected);

    // The next byte. Fails, answering a zero byte, at the end.
    char next();

    // Moves behind the next such byte and answers what stands before it; fails where there is none.
    std::string takeThrough(char end);

    // One literal character: a byte, or a code point. Fails at the end and on bad UTF-8.
    std::uint32_t character();

    // The character of an escape whose backslash has been read: \n, \x41, \., \012 and the like.
    // Fails on every escape that stands for something else.
    std::uint32_t escapedCharacter();

    // Up to three octal digits.
    std::uint32_t octal();

    // U+hhh} behind \N{.
    std::uint32_t namedCodePoint();

private:
    std::uint32_t hexEscape();
    std::uint32_t digitsThroughBrace(unsigned int base);
    std::uint32_t checked(std::uint32_t code);

    const std::string &text_;
    std::size_t at_ = 0;
    bool utf_;
    bool failed_ = false;
};

// The bytes of a code point in UTF-8.
std::string utf8Of(std::uint32_t code);

} // namespace Corvane::Regex

#endif
