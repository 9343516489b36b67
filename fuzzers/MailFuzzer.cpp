#include <cstddef>
#include <cstdint>

#include "Require.h"
#include "host/parser/MailReader.h"
#include "host/parser/MessageHeaders.h"
#include "host/parser/MimePart.h"

namespace {

using namespace Corvane;

const Buffer *s_text(const MimePart &part, MPartAttribute::Type type) {
    const auto *text = dynamic_cast<const MPartText *>(part.findAttr(type));
    return text == nullptr ? nullptr : &text->text();
}

void s_requireBounded(const Buffer *text, const MailLimits &limits, MailLimit limit) {
    if (text == nullptr || text->isEmpty()) {
        return;
    }
    require(text->length() <= limits.value(limit), "a text stays within its limit");
    const unsigned char last = text->at(text->length() - 1);
    require(last == '\n' || last == '\r', "a text ends in a line end");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const MailLimits limits;
    const Mail mail = MailReader(limits).read(data, static_cast<unsigned int>(size));
    const MimePart *part = mail.properties()->part().operator->();
    if (part == nullptr) {
        return 0;
    }
    for (const auto type : {MPartAttribute::Text, MPartAttribute::AltText}) {
        const Buffer *text = s_text(*part, type);
        s_requireBounded(text, limits, MailLimit::TextBytes);
        requireUtf8(text == nullptr ? std::string() : text->asString(), "texts are UTF-8");
    }
    s_requireBounded(s_text(*part, MPartAttribute::RawText), limits, MailLimit::RawBodyBytes);
    require(mail.properties()->headers()->size() <=
                limits.value(MailLimit::Headers) + MessageHeaders::kMostBesides,
            "headers are bounded");
    return 0;
}
