#ifndef CORVANE_HOST_PARSER_TEXT_H
#define CORVANE_HOST_PARSER_TEXT_H

// Small string helpers. Bytes are taken as unsigned, and nothing depends on the locale: white space
// is blank, \t \n \v \f \r, and only the letters A to Z have a lower case.
//
// Threads: free functions without state.

#include <cstddef>
#include <string>

#include "host/parser/Export.h"

namespace Corvane {

constexpr bool isWhiteSpace(unsigned char byte) {
    return byte == ' ' || (byte >= '\t' && byte <= '\r');
}

constexpr char toLowerAscii(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// Strip white space from the front, and from the end, in place; an all-blank text becomes empty.
CORVANE_PARSER_API void stringLeftTrim(std::string &text);
CORVANE_PARSER_API void stringRightTrim(std::string &text);

// Index of the first white-space (non-white-space) character at or after from, or npos; npos too
// where from is at or past the end.
CORVANE_PARSER_API std::size_t stringFindWhiteSpace(const std::string &text, std::size_t from);
CORVANE_PARSER_API std::size_t stringFindNonWhiteSpace(const std::string &text, std::size_t from);

// Makes dst the count characters from src + from, in lower case. They must exist; NUL bytes count
// like any other.
CORVANE_PARSER_API void copyStringToLower(const char *src, std::string &dst, unsigned long from,
                                          unsigned long count);

// Whether two texts are equal but for the case of ASCII letters.
CORVANE_PARSER_API bool equalIgnoringCase(const std::string &left, const std::string &right);

} // namespace Corvane

#endif
