#ifndef CORVANE_SRC_HOST_PARSER_HTML_CSSTEXT_H
#define CORVANE_SRC_HOST_PARSER_HTML_CSSTEXT_H

// The small pieces of CSS: words, numbers, escapes.
//
// Threads: pure functions.

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Corvane::Html {

struct CssNumber {
    double value;
    std::string_view unit; // "%", "px", ... in the case it has; empty where there is none
};

// A number with its unit, if the whole text is one.
std::optional<CssNumber> cssNumber(std::string_view text);

// The text without blanks around it.
std::string_view cssTrimmed(std::string_view text);

// ASCII letters to lower case.
std::string cssLower(std::string_view text);

// Whether a byte may stand in a name.
bool isCssNameByte(char c);

// Whether a byte may begin one.
bool isCssNameStart(char c);

// Takes a name from the front, escapes decoded; empty where there is none.
std::string takeCssName(std::string_view &text);

// Escapes outside of strings decoded, as long as what they stand for is part of a name.
std::string cssUnescaped(std::string_view text);

// The text with a blank for each comment.
std::string cssWithoutComments(std::string_view text);

// The words of a value: what stands between blanks and commas outside of brackets and quotes; a '/'
// is a word.
std::vector<std::string_view> cssWords(std::string_view value);

// Calls found for the URI of each url() and of each string behind @import in a text without
// comments.
void forEachCssUri(std::string_view text, const std::function<void(std::string_view)> &found);

} // namespace Corvane::Html

#endif
