#include <cstddef>
#include <cstdint>
#include <string>

#include "Require.h"
#include "host/parser/Charset.h"
#include "host/parser/html/HtmlReader.h"
#include "host/parser/html/Links.h"

namespace {

using namespace Corvane;

Html::SentAndSeen s_read(const std::string &html, UriCollector &uris, const MailLimits &limits,
                         MailLimitSet &hits) {
    std::size_t textBytesLeft = limits.value(MailLimit::HtmlBytes);
    Html::HtmlReader reader(limits, hits, uris, textBytesLeft);
    reader.feed(html);
    return reader.take();
}

} // namespace

// HTML with its style sheets to text and links. The first byte makes the limits small.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const char *bytes = reinterpret_cast<const char *>(data) + 1;
    const std::string html = sanitizeUtf8(bytes, size - 1);
    MailLimits limits;
    if (data[0] % 4U == 0) {
        limits.value(MailLimit::TextBytes, 1U + data[0]);
        limits.value(MailLimit::HtmlTagBytes, 1U + data[0]);
        limits.value(MailLimit::HtmlBytes, 4U * data[0]);
        limits.value(MailLimit::Uris, 4);
    }
    MailLimitSet hits;
    UriCollector uris(limits, hits);
    const Html::SentAndSeen text = s_read(html, uris, limits, hits);
    require(text.differs || text.sent.empty(), "a text that is the same is not there twice");
    // One that is longer may be cut inside a character: whoever bounds it cuts it again.
    for (const std::string &one : {text.seen, text.sent}) {
        if (one.size() <= limits.value(MailLimit::TextBytes)) {
            requireUtf8(one, "the text is UTF-8");
        }
    }
    const std::string uri = html.substr(0, html.find('\n'));
    const std::string followed = Html::followedUri(uri);
    require(Html::followedUri(followed) == followed, "a link that was followed stays the same");
    Html::Base(followed).resolved(html);
    return 0;
}
