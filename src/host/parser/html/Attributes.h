#ifndef CORVANE_SRC_HOST_PARSER_HTML_ATTRIBUTES_H
#define CORVANE_SRC_HOST_PARSER_HTML_ATTRIBUTES_H

// The attributes that the reader of a document looks at.
//
// Threads: an immutable table; a set of values belongs to one thread.

#include <array>
#include <cstddef>
#include <string_view>

#include "host/parser/html/Tokenizer.h"

namespace Corvane::Html {

enum class AttributeId : int {
    // Links, up to Href.
    Action,
    Background,
    Data,
    DynSrc,
    FormAction,
    LowSrc,
    OfficeHref,
    Poster,
    Src,
    XlinkHref,
    Href,
    Alt,
    BgColor,
    Class,
    Color,
    Content,
    Face,
    Height,
    Hidden,
    HttpEquiv,
    Id,
    ImageSrcSet,
    Media,
    Size,
    SrcSet,
    Style,
    Text,
    Title,
    Type,
    ValueText,
    Width,
    Count
};

// The number of an attribute, or kUnwanted for one that nobody asks for.
int attributeIdOf(std::string_view name);

// The attributes of one tag by their names.
class Attributes {
public:
    explicit Attributes(const Tag &tag);

    bool has(AttributeId id) const { return present_[static_cast<std::size_t>(id)]; }

    // Empty where there is none.
    std::string_view operator[](AttributeId id) const {
        return values_[static_cast<std::size_t>(id)];
    }

private:
    static constexpr std::size_t kCount = static_cast<std::size_t>(AttributeId::Count);

    std::array<std::string_view, kCount> values_{};
    std::array<bool, kCount> present_{};
};

} // namespace Corvane::Html

#endif
