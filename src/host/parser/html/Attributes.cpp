#include "host/parser/html/Attributes.h"

#include <algorithm>
#include <iterator>
#include <vector>

#include "host/parser/html/Elements.h"

namespace Corvane::Html {

namespace {

struct Name {
    std::string_view name;
    AttributeId id;
};

constexpr Name kNames[] = {
    {"action", AttributeId::Action},
    {"alt", AttributeId::Alt},
    {"background", AttributeId::Background},
    {"bgcolor", AttributeId::BgColor},
    {"class", AttributeId::Class},
    {"color", AttributeId::Color},
    {"content", AttributeId::Content},
    {"data", AttributeId::Data},
    {"dynsrc", AttributeId::DynSrc},
    {"face", AttributeId::Face},
    {"formaction", AttributeId::FormAction},
    {"height", AttributeId::Height},
    {"hidden", AttributeId::Hidden},
    {"href", AttributeId::Href},
    {"http-equiv", AttributeId::HttpEquiv},
    {"id", AttributeId::Id},
    {"imagesrcset", AttributeId::ImageSrcSet},
    {"lowsrc", AttributeId::LowSrc},
    {"media", AttributeId::Media},
    {"o:href", AttributeId::OfficeHref},
    {"poster", AttributeId::Poster},
    {"size", AttributeId::Size},
    {"src", AttributeId::Src},
    {"srcset", AttributeId::SrcSet},
    {"style", AttributeId::Style},
    {"text", AttributeId::Text},
    {"title", AttributeId::Title},
    {"type", AttributeId::Type},
    {"value", AttributeId::ValueText},
    {"width", AttributeId::Width},
    {"xlink:href", AttributeId::XlinkHref},
};

constexpr std::size_t kSlots = 128;

std::vector<const Name *> s_index() {
    std::vector<const Name *> slots(kSlots, nullptr);
    for (const Name &name : kNames) {
        std::size_t slot = tableHash(name.name) % kSlots;
        while (slots[slot] != nullptr) {
            slot = (slot + 1) % kSlots;
        }
        slots[slot] = &name;
    }
    return slots;
}

} // namespace

int attributeIdOf(std::string_view name) {
    static const std::vector<const Name *> s_slots = s_index();
    for (std::size_t slot = tableHash(name) % kSlots; s_slots[slot] != nullptr;
         slot = (slot + 1) % kSlots) {
        if (s_slots[slot]->name == name) {
            return static_cast<int>(s_slots[slot]->id);
        }
    }
    return kUnwanted;
}

Attributes::Attributes(const Tag &tag) {
    for (const Attribute &attribute : tag.attributes) {
        const auto place = static_cast<std::size_t>(attribute.id);
        values_[place] = {attribute.value.data(), attribute.value.size()};
        present_ |= std::uint32_t{1} << place;
    }
}

} // namespace Corvane::Html
