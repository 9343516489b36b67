#ifndef CORVANE_SRC_HOST_PARSER_UTF8_H
#define CORVANE_SRC_HOST_PARSER_UTF8_H

// UTF-8, byte by byte. Nothing here throws for any input, and all of it takes time linear in it.
//
// Threads: free functions; any number of threads at once.

#include <cstddef>
#include <string>

namespace Corvane {

constexpr char32_t kReplacementCharacter = 0xFFFD;

// Appends a code point; the replacement character where it is a surrogate or beyond U+10FFFF.
void appendUtf8(std::string &out, char32_t codePoint);

// Appends what a windows-1252 byte stands for; its five unassigned bytes give the replacement
// character.
void appendWindows1252(std::string &out, unsigned char byte);

// Bytes of the valid UTF-8 sequence that starts at text, of which available bytes exist; 0 where
// there is none. Overlong forms and surrogates are not valid, NUL is.
std::size_t utf8SequenceLength(const char *text, std::size_t available);

// The code point of a valid sequence.
char32_t utf8CodePoint(const char *sequence, std::size_t length);

// Length of the text without the front of a sequence that is cut off at its end.
std::size_t utf8WholeLength(const char *data, std::size_t length);

// How many ASCII bytes the text begins with.
std::size_t asciiLength(const char *data, std::size_t length);

bool isValidUtf8(const char *data, std::size_t length);

// The valid sequences, and the replacement character for each other byte.
std::string sanitizeUtf8(const char *data, std::size_t length);

// The same with what each other byte stands for in windows-1252.
std::string repairUtf8(const char *data, std::size_t length);

} // namespace Corvane

#endif
