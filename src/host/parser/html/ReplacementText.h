#ifndef CORVANE_SRC_HOST_PARSER_HTML_REPLACEMENTTEXT_H
#define CORVANE_SRC_HOST_PARSER_HTML_REPLACEMENTTEXT_H

// U+FFFD as text: what stands for a NUL and for references to no character.

#include <string_view>

namespace Corvane::Html {

constexpr std::string_view kReplacementText = "\xEF\xBF\xBD";

} // namespace Corvane::Html

#endif
