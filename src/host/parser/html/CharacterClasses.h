#ifndef CORVANE_SRC_HOST_PARSER_HTML_CHARACTERCLASSES_H
#define CORVANE_SRC_HOST_PARSER_HTML_CHARACTERCLASSES_H

// Characters as HTML and CSS tell them apart. All of ASCII; other bytes belong to no class.
//
// Threads: pure functions.

#include "host/parser/ByteSet.h"

namespace Corvane::Html {

// Line ends arrive as LF alone.
constexpr bool isBlank(char c) {
    return c == ' ' || c == '\n' || c == '\t' || c == '\f';
}

constexpr bool isUpper(char c) {
    return c >= 'A' && c <= 'Z';
}

constexpr bool isLetter(char c) {
    return isUpper(c) || (c >= 'a' && c <= 'z');
}

constexpr bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

constexpr bool isAlphanumeric(char c) {
    return isLetter(c) || isDigit(c);
}

// The value of a hexadecimal digit, -1 for anything else.
constexpr int hexValue(char c) {
    constexpr int kTen = 10;
    if (isDigit(c)) {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + kTen;
    }
    return c >= 'A' && c <= 'F' ? c - 'A' + kTen : -1;
}

} // namespace Corvane::Html

#endif
