#ifndef CORVANE_SRC_HOST_REGEX_DEFINITION_H
#define CORVANE_SRC_HOST_REGEX_DEFINITION_H

// The text of an expression and its option word, taken apart: what the compiler of expressions and
// the search for required literals both start from.

#include <string>

namespace Corvane::Regex {

struct Definition {
    std::string pattern;
    bool ignoreCase = false;
    bool multiline = false;
    bool dotMatchesAll = false;
    bool extended = false;
    bool utf = false;
    bool anyLineEnd = false; // CR, LF and CRLF end a line; otherwise LF alone
};

// text must not be empty. Throws code 4 for a slash form without its closing slash, an unknown
// modifier and an unknown option word.
Definition parseDefinition(const std::string &text, unsigned int options);

// Throws code 4 with the reason and the beginning of the text.
[[noreturn]] void refuseExpression(const std::string &reason, const std::string &text,
                                   unsigned int line);

} // namespace Corvane::Regex

#endif
