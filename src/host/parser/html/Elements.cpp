#include "host/parser/html/Elements.h"

#include <array>
#include <vector>

#include "host/parser/KeyedHash.h"

namespace Corvane::Html {

namespace {

using namespace Trait;

constexpr std::uint32_t kBlockTag = kBlock | kSpecial | kClosesP;
constexpr std::uint32_t kHeadingTag = kBlockTag | kHeading | kLeavesForeign;
constexpr std::uint32_t kFormattingTag = kFormatting | kLeavesForeign;
constexpr std::uint32_t kRowGroupTag = kBlock | kSpecial | kTablePart | kRowGroup;
constexpr std::uint32_t kCellTag = kSpecial | kScope | kCell;
constexpr std::uint32_t kVoidTag = kVoid | kSpecial;
constexpr auto kListed = ElementId::Listed;

constexpr Element kElements[] = {
    {"a", ElementId::A, kFormatting},
    {"address", kListed, kBlockTag},
    {"applet", kListed, kSpecial | kScope},
    {"area", kListed, kVoidTag},
    {"article", kListed, kBlockTag},
    {"aside", kListed, kBlockTag},
    {"b", kListed, kFormattingTag},
    {"base", ElementId::Base, kVoidTag},
    {"basefont", kListed, kVoidTag},
    {"bgsound", kListed, kVoidTag},
    {"big", kListed, kFormattingTag},
    {"blockquote", kListed, kBlockTag | kLeavesForeign},
    {"body", ElementId::Body, kBlock | kSpecial | kFrame | kLeavesForeign},
    {"br", ElementId::Br, kVoidTag | kLeavesForeign},
    {"button", ElementId::Button, kSpecial | kControl},
    {"caption", kListed, kBlock | kCellTag},
    {"center", kListed, kBlockTag | kLeavesForeign},
    {"code", kListed, kFormattingTag},
    {"col", kListed, kVoidTag},
    {"colgroup", kListed, kSpecial | kTablePart},
    {"datalist", kListed, kNotShown},
    {"dd", ElementId::Dd, kBlockTag | kLeavesForeign},
    {"details", kListed, kBlockTag},
    {"dialog", kListed, kBlockTag},
    {"dir", ElementId::List, kBlockTag},
    {"div", kListed, kBlockTag | kLeavesForeign},
    {"dl", kListed, kBlockTag | kLeavesForeign},
    {"dt", ElementId::Dt, kBlockTag | kLeavesForeign},
    {"em", kListed, kFormattingTag},
    {"embed", kListed, kVoidTag | kLeavesForeign},
    {"fieldset", kListed, kBlockTag},
    {"figcaption", kListed, kBlockTag},
    {"figure", kListed, kBlockTag},
    {"font", ElementId::Font, kFormatting},
    {"footer", kListed, kBlockTag},
    {"foreignobject", ElementId::ForeignObject, 0},
    {"form", kListed, kBlockTag},
    {"frame", kListed, kVoidTag},
    {"h1", kListed, kHeadingTag},
    {"h2", kListed, kHeadingTag},
    {"h3", kListed, kHeadingTag},
    {"h4", kListed, kHeadingTag},
    {"h5", kListed, kHeadingTag},
    {"h6", kListed, kHeadingTag},
    {"head", kListed, kBlock | kFrame | kLeavesForeign},
    {"header", kListed, kBlockTag},
    {"hgroup", kListed, kBlockTag},
    {"hr", kListed, kBlock | kVoidTag | kClosesP | kLeavesForeign},
    {"html", kListed, kBlock | kFrame},
    {"i", kListed, kFormattingTag},
    {"iframe", kListed, kSpecial | kNotShown, TextKind::Rawtext},
    {"image", ElementId::Img, kVoidTag},
    {"img", ElementId::Img, kVoidTag | kLeavesForeign},
    {"input", ElementId::Input, kVoidTag},
    {"keygen", kListed, kVoidTag},
    {"legend", kListed, kBlock},
    {"li", ElementId::Li, kBlockTag | kLeavesForeign},
    {"link", ElementId::Link, kVoidTag},
    {"listing", kListed, kBlockTag | kPreformatted | kLeavesForeign},
    {"main", kListed, kBlockTag},
    {"mark", ElementId::Mark, 0},
    {"marquee", kListed, kSpecial | kScope},
    {"math", ElementId::Math, 0},
    {"menu", ElementId::List, kBlockTag | kLeavesForeign},
    {"meta", ElementId::Meta, kVoidTag | kLeavesForeign},
    {"nav", kListed, kBlockTag},
    {"nobr", kListed, kFormattingTag},
    {"noembed", kListed, kSpecial | kNotShown, TextKind::Rawtext},
    {"noframes", kListed, kSpecial | kNotShown, TextKind::Rawtext},
    {"object", kListed, kSpecial | kScope},
    {"ol", ElementId::List, kBlockTag | kLeavesForeign},
    {"optgroup", kListed, kBlock},
    {"option", ElementId::Option, kBlock},
    {"p", ElementId::P, kBlockTag | kLeavesForeign},
    {"param", kListed, kVoidTag},
    {"plaintext", kListed, kBlockTag | kPreformatted, TextKind::Plaintext},
    {"pre", kListed, kBlockTag | kPreformatted | kLeavesForeign},
    {"ruby", kListed, kLeavesForeign},
    {"s", kListed, kFormattingTag},
    {"script", ElementId::Script, kSpecial, TextKind::Script},
    {"search", kListed, kBlockTag},
    {"section", kListed, kBlockTag},
    {"select", ElementId::Select, kBlock | kSpecial | kControl},
    {"small", kListed, kFormattingTag},
    {"source", kListed, kVoidTag},
    {"span", kListed, kLeavesForeign},
    {"strike", kListed, kFormattingTag},
    {"strong", kListed, kFormattingTag},
    {"style", ElementId::Style, kSpecial, TextKind::Rawtext},
    {"sub", kListed, kLeavesForeign},
    {"summary", kListed, kBlockTag},
    {"sup", kListed, kLeavesForeign},
    {"svg", ElementId::Svg, 0},
    {"table", ElementId::Table, kBlockTag | kScope | kTablePart | kLeavesForeign},
    {"tbody", kListed, kRowGroupTag},
    {"td", ElementId::Td, kCellTag},
    {"template", ElementId::Template, kSpecial | kScope | kNotShown},
    {"textarea", ElementId::Textarea, kBlock | kSpecial | kControl | kPreformatted,
     TextKind::Rcdata},
    {"tfoot", kListed, kRowGroupTag},
    {"th", ElementId::Td, kCellTag},
    {"thead", kListed, kRowGroupTag},
    {"title", ElementId::Title, kBlock | kSpecial, TextKind::Rcdata},
    {"tr", ElementId::Tr, kBlock | kSpecial | kTablePart},
    {"track", kListed, kVoidTag},
    {"tt", kListed, kFormattingTag},
    {"u", kListed, kFormattingTag},
    {"ul", ElementId::List, kBlockTag | kLeavesForeign},
    {"var", kListed, kLeavesForeign},
    {"wbr", kListed, kVoidTag},
    {"xml", ElementId::Xml, 0},
    {"xmp", kListed, kBlockTag | kPreformatted, TextKind::Rawtext},
};

// Open addressing over a power of two, a few times as large as the list.
constexpr std::size_t kSlots = 512;

std::vector<const Element *> s_index() {
    std::vector<const Element *> slots(kSlots, nullptr);
    for (const Element &element : kElements) {
        std::size_t slot = tableHash(element.name) % kSlots;
        while (slots[slot] != nullptr) {
            slot = (slot + 1) % kSlots;
        }
        slots[slot] = &element;
    }
    return slots;
}

} // namespace

std::uint32_t nameHash(std::string_view name) {
    return static_cast<std::uint32_t>(keyedHash(name));
}

std::uint32_t tableHash(std::string_view name) {
    constexpr std::uint32_t kBasis = 2166136261U;
    constexpr std::uint32_t kPrime = 16777619U;
    std::uint32_t hash = kBasis;
    for (const char c : name) {
        hash = (hash ^ static_cast<unsigned char>(c)) * kPrime;
    }
    // The low bits alone choose the slot.
    constexpr unsigned int kFold = 15;
    return hash ^ hash >> kFold;
}

const Element &elementOf(std::string_view name) {
    static const std::vector<const Element *> s_slots = s_index();
    static const Element s_other;
    for (std::size_t slot = tableHash(name) % kSlots; s_slots[slot] != nullptr;
         slot = (slot + 1) % kSlots) {
        if (s_slots[slot]->name == name) {
            return *s_slots[slot];
        }
    }
    return s_other;
}

} // namespace Corvane::Html
