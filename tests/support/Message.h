#ifndef CORVANE_TESTS_SUPPORT_MESSAGE_H
#define CORVANE_TESTS_SUPPORT_MESSAGE_H

// A message built by hand from what a test names.

#include <string>

#include "host/parser/MessageProperties.h"
#include "host/parser/Uri.h"

namespace Corvane {

class Message {
public:
    Message &header(const std::string &name, const std::string &value) {
        headers_->append(Header(name, value));
        return *this;
    }
    Message &text(const std::string &charset, const std::string &text) {
        return attribute(MPartAttribute::Text, charset, text, 0);
    }
    Message &raw(const std::string &text) {
        return attribute(MPartAttribute::RawText, "", text, 0);
    }
    Message &second(const std::string &text, unsigned int flags) {
        return attribute(MPartAttribute::AltText, "", text, flags);
    }
    Message &uri(const std::string &text) {
        const Ref<MPartAttribute> found(new UriContainer);
        dynamic_cast<UriContainer &>(*found).add(UriContainer::kText, Uri(text));
        return attribute(MPartAttribute::Uris, found);
    }
    Message &attribute(MPartAttribute::Type type, const Ref<MPartAttribute> &attribute) {
        part_->attr(type, attribute);
        return *this;
    }

    RefMessageProperties properties() const {
        return RefMessageProperties::create(headers_, part_);
    }
    const MimePart &part() const { return *part_; }
    const RefHeaderList &headers() const { return headers_; }

private:
    Message &attribute(MPartAttribute::Type type, const std::string &charset,
                       const std::string &text, unsigned int flags) {
        const Buffer bytes(text.data(), static_cast<unsigned int>(text.size()), false);
        return attribute(type, Ref<MPartAttribute>(new MPartText(charset, bytes, flags)));
    }

    RefHeaderList headers_{true};
    Ref<MimePart> part_{new MimePart};
};

} // namespace Corvane

#endif
