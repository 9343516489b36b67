#include "host/parser/MimePart.h"

namespace Corvane {

MPartAttribute::MPartAttribute() = default;
MPartAttribute::MPartAttribute(const MPartAttribute &) = default;
MPartAttribute &MPartAttribute::operator=(const MPartAttribute &) = default;
MPartAttribute::~MPartAttribute() = default;

MPartText::MPartText(const std::string &charset, const Buffer &text, unsigned int flags)
    : charset_(charset), text_(text), flags_(flags) {}

MPartText::~MPartText() = default;

MimePart::MimePart() = default;
MimePart::MimePart(const MimePart &) = default;
MimePart &MimePart::operator=(const MimePart &) = default;
MimePart::~MimePart() = default;

void MimePart::attr(MPartAttribute::Type type, const Ref<MPartAttribute> &attribute) {
    if (attribute.isNull()) {
        attributes_.erase(type);
    } else {
        attributes_[type] = attribute;
    }
}

const MPartAttribute *MimePart::findAttr(MPartAttribute::Type type) const {
    const auto found = attributes_.find(type);
    return found == attributes_.end() ? nullptr : found->second.operator->();
}

} // namespace Corvane
