#include "host/parser/MessageProperties.h"

namespace Corvane {

MessageProperties::MessageProperties(const RefHeaderList &headers, const Ref<MimePart> &part)
    : headers_(headers), part_(part) {}

MessageProperties::~MessageProperties() = default;

RefMessageProperties::RefMessageProperties() = default;

RefMessageProperties::RefMessageProperties(MessageProperties *fresh)
    : Ref<MessageProperties>(fresh) {}

RefMessageProperties RefMessageProperties::create(const RefHeaderList &headers,
                                                  const Ref<MimePart> &part) {
    return RefMessageProperties(new MessageProperties(headers, part));
}

} // namespace Corvane
