#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "Require.h"
#include "host/parser/MimeStructure.h"
#include "host/parser/TransferDecoder.h"

namespace {

using namespace Corvane;

void s_requireSane(const std::vector<MimeEntity> &table, std::string_view message,
                   const MailLimits &limits) {
    std::size_t texts = 0;
    for (std::size_t place = 0; place < table.size(); ++place) {
        const MimeEntity &entity = table[place];
        require(entity.parent < place || place == 0, "a part stands behind what it is part of");
        require(place == 0 || table[entity.parent].isMultipart, "only multiparts have parts");
        const std::less_equal<> notBehind;
        require(entity.bytes.empty() || (notBehind(message.data(), entity.bytes.data()) &&
                                         notBehind(entity.bytes.data() + entity.bytes.size(),
                                                   message.data() + message.size())),
                "content lies in the message");
        texts += entity.isMultipart || entity.content.isAttachment ? 0 : 1;
    }
    // As many blank ones are kept as others; the message itself always is.
    require(texts <= 2 * std::size_t{limits.value(MailLimit::Parts)} + 1, "parts are bounded");
}

} // namespace

// The first two bytes set the limits.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    if (size < 2) {
        return 0;
    }
    MailLimits limits;
    limits.value(MailLimit::Parts, data[0]);
    limits.value(MailLimit::NestingDepth, data[1]);
    const std::string_view message(reinterpret_cast<const char *>(data) + 2, size - 2);
    LineReader lines(message);
    skipEnvelope(lines);
    MimeContentReader content;
    readHeaderBlock(
        lines, [](std::string_view) { return false; },
        [&content](const ReceivedHeader &header) { content.take(header); });
    MailLimitSet hits;
    MimeStructure structure(content.content(), lines, limits, hits);
    for (auto table = structure.next(); !table.empty(); table = structure.next()) {
        s_requireSane(table, message, limits);
        for (const MimeEntity &entity : table) {
            std::string whole;
            TransferDecoder decoder(entity.bytes, entity.content.encoding);
            while (decoder.next(whole)) {
            }
            require(whole.size() <= entity.bytes.size(), "decoding does not lengthen");
        }
    }
    return 0;
}
