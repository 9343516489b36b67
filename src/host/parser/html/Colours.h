#ifndef CORVANE_SRC_HOST_PARSER_HTML_COLOURS_H
#define CORVANE_SRC_HOST_PARSER_HTML_COLOURS_H

// Colours as style sheets and as attributes name them.
//
// Threads: pure functions.

#include <cstdint>
#include <optional>
#include <string_view>

namespace Corvane::Html {

enum class ColourKind : std::uint8_t {
    Unknown, // a colour, but not one that can be told from here
    Known,
    Transparent
};

struct Colour {
    ColourKind kind = ColourKind::Unknown;
    std::uint32_t rgb = 0; // 0xRRGGBB

    bool operator==(const Colour &) const = default;
};

// A value of CSS in lower case; nothing where it is no colour.
std::optional<Colour> cssColour(std::string_view lower);

// The value of an attribute such as bgcolor, in any case; nothing where it means none.
std::optional<Colour> attributeColour(std::string_view value);

} // namespace Corvane::Html

#endif
