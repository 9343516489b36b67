#ifndef CORVANE_SRC_HOST_PARSER_HTML_ELEMENTS_H
#define CORVANE_SRC_HOST_PARSER_HTML_ELEMENTS_H

// The elements of HTML that mean something to the reader of a text.
//
// Threads: an immutable table.

#include <cstdint>
#include <string_view>

#include "host/parser/html/Tokenizer.h"

namespace Corvane::Html {

// What an element is, in bits.
namespace Trait {
constexpr std::uint32_t kBlock = 1U;            // stands on lines of its own
constexpr std::uint32_t kVoid = 1U << 1U;       // has no content and no end tag
constexpr std::uint32_t kFormatting = 1U << 2U; // reopens where a block inside it ends
constexpr std::uint32_t kSpecial = 1U << 3U; // end tags of inline elements do not reach across it
constexpr std::uint32_t kScope = 1U << 4U;   // end tags of blocks do not reach across it
constexpr std::uint32_t kClosesP = 1U << 5U; // ends a paragraph
constexpr std::uint32_t kHeading = 1U << 6U;
constexpr std::uint32_t kCell = 1U << 7U;
constexpr std::uint32_t kTablePart =
    1U << 8U; // table, its groups and rows: text in it goes before the table
constexpr std::uint32_t kRowGroup = 1U << 9U;
constexpr std::uint32_t kNotShown = 1U << 10U;      // no program shows its content in its place
constexpr std::uint32_t kControl = 1U << 11U;       // has colours of its own
constexpr std::uint32_t kLeavesForeign = 1U << 12U; // ends SVG and MathML
constexpr std::uint32_t kFrame = 1U << 13U;         // html, head, body: opened once, never closed
constexpr std::uint32_t kPreformatted = 1U << 14U;
} // namespace Trait

enum class ElementId : std::uint8_t {
    Other, // an element of any name that is not listed
    Listed,
    A,
    Base,
    Body,
    Br,
    Button,
    Dd,
    Dt,
    Font,
    ForeignObject,
    Img,
    Input,
    Li,
    Link,
    List,
    Mark,
    Math,
    Meta,
    Option,
    P,
    Script,
    Select,
    Style,
    Svg,
    Table,
    Td,
    Template,
    Textarea,
    Title,
    Tr,
    Xml
};

struct Element {
    std::string_view name; // in lower case; empty for an element that is not listed
    ElementId id = ElementId::Other;
    std::uint32_t traits = 0;
    TextKind text = TextKind::Data; // how its content is read

    bool is(std::uint32_t trait) const { return (traits & trait) != 0; }
};

// The element of a name in lower case; an element without a name where it is not listed. Lives for
// ever.
const Element &elementOf(std::string_view name);

// A number for a name, another in each process; different names have different ones as good as
// always, whoever chose them.
std::uint32_t nameHash(std::string_view name);

// A number for a name that is looked up in a fixed table, always the same.
std::uint32_t tableHash(std::string_view name);

} // namespace Corvane::Html

#endif
