#ifndef CORVANE_SRC_HOST_PARSER_HTML_DECLARATIONS_H
#define CORVANE_SRC_HOST_PARSER_HTML_DECLARATIONS_H

// What styles declare about whether a text can be seen, and where its lines end.
//
//     Declarations declared;
//     declareStyle("display: none; color: #fff", [&](Property property, Value value, bool important)
//                  { declared.set(property, value, priority); });
//
// Threads: plain values and pure functions.

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string_view>
#include <vector>

#include "host/parser/html/Colours.h"

namespace Corvane::Html {

enum class Property : std::uint8_t {
    Display,
    Visibility,
    FontSize,
    Opacity,
    Colour,
    Background,
    BackgroundImage,
    Width,
    MaxWidth,
    MinWidth,
    Height,
    MaxHeight,
    MinHeight,
    OverflowX,
    OverflowY,
    PaddingTop,
    PaddingRight,
    PaddingBottom,
    PaddingLeft,
    Paint, // shadows and strokes, which show what its colour hides
    WhiteSpace,
    Float,
    Position,
    Count
};

constexpr std::size_t kProperties = static_cast<std::size_t>(Property::Count);

// The values that are told apart, of all properties.
enum class Keyword : std::uint8_t {
    Unset, // nothing declared
    Inherit,
    Initial,
    Other, // a valid value that is none of those below
    None,
    Zero,
    Relative, // a size that depends on the parent's
    Inline,
    Block, // also whatever else stands on lines of its own
    InlineBlock,
    Cell,
    TablePart,
    Hidden,
    Visible,
    Preserved, // white space is kept
    LineEnds,  // line ends are kept
    OutOfFlow, // leaves its place, and what would clip it
    Colour
};

struct Value {
    Keyword keyword = Keyword::Unset;
    Colour colour{};
};

// The value of each property, with what it has to outdo. Fields of one array only: there are many.
class Declarations {
public:
    // A value replaces one of the same or a lower priority.
    void set(Property property, const Value &value, std::uint64_t priority);

    const Value &operator[](Property property) const {
        return values_[static_cast<std::size_t>(property)];
    }
    bool isEmpty() const { return isEmpty_; }

private:
    std::array<Value, kProperties> values_{};
    std::array<std::uint64_t, kProperties> priorities_{};
    bool isEmpty_ = true;
};

struct Declaration {
    Property property;
    Value value;
    bool isImportant;
};

// Adds what one declaration, such as "display: none", comes to; nothing where it is invalid or of
// no concern. It must hold no comment.
void declare(std::string_view declaration, std::vector<Declaration> &out);

// Adds all declarations of a style attribute.
void declareStyle(std::string_view style, std::vector<Declaration> &out);

} // namespace Corvane::Html

#endif
