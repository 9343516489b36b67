#ifndef CORVANE_SRC_HOST_PARSER_HTML_ATTRIBUTES_H
#define CORVANE_SRC_HOST_PARSER_HTML_ATTRIBUTES_H

// The attributes that the reader of a document looks at.
//
// Threads: an immutable table; a set of values belongs to one thread.

#include <array>
#include <cstddef>
#include <cstdint>
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

    bool has(AttributeId id) const { return (present_ >> static_cast<unsigned int>(id) & 1U) != 0; }

    // Whether there is one of those up to Href.
    bool hasLink() const {
        return (present_ &
                ((std::uint32_t{2} << static_cast<unsigned int>(AttributeId::Href)) - 1)) != 0;
    }

    // Empty where there is none.
    std::string_view operator[](AttributeId id) const {
        const Value &value = values_[static_cast<std::size_t>(id)];
        return has(id) ? std::string_view(value.data, value.length) : std::string_view();
    }

private:
    static constexpr std::size_t kCount = static_cast<std::size_t>(AttributeId::Count);

    // A struct without a constructor: values of attributes that are not there are never looked at.
    struct Value {
        const char *data;
        std::size_t length;
    };

    std::uint32_t present_ = 0; // a bit for each
    std::array<Value, kCount> values_;

    static_assert(kCount <= 32);
};

} // namespace Corvane::Html

#endif
