#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "Require.h"
#include "host/parser/html/Links.h"

namespace {

using namespace Corvane;

constexpr unsigned int kMostUris = 40;
constexpr unsigned int kLongestUri = 60;

// A line is a link, or a set of them, or what another tag or a text holds, by its first byte.
void s_take(Html::Links &links, std::string_view line) {
    if (line.empty()) {
        return;
    }
    const char kind = line.front();
    const UriSight sight = kind % 2 == 0 ? UriSight::Shown : UriSight::Hidden;
    line.remove_prefix(1);
    switch (kind) {
    case 's':
        links.addSet(line, sight);
        break;
    case 'r':
        links.addRefresh(line);
        break;
    case 'b':
        links.base(line);
        break;
    case 't':
        links.scan(line);
        break;
    default:
        links.add(line, sight);
        break;
    }
}

void s_requireBounded(const UriContainer &uris) {
    std::size_t count = 0;
    for (const auto &[source, list] : uris.sourced()) {
        for (const Uri &uri : list) {
            require(uri.asString().size() <= kLongestUri, "a link is bounded");
            ++count;
        }
    }
    require(count <= kMostUris, "links are bounded");
}

} // namespace

// Links of a document, one in each line.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char *>(data), size);
    MailLimits limits;
    limits.value(MailLimit::Uris, kMostUris);
    limits.value(MailLimit::UriBytes, kLongestUri);
    MailLimitSet hits;
    UriCollector uris(limits, hits);
    Html::Links links(uris);
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        s_take(links, text.substr(at, end - at));
        at = end + 1;
    }
    s_requireBounded(dynamic_cast<const UriContainer &>(*uris.attribute()));

    const std::size_t end = std::min(text.find('\n'), text.size());
    const std::string followed = Html::followedUri(text.substr(0, end));
    require(Html::followedUri(followed) == followed, "a link that was followed stays the same");
    const std::string base = Html::followedUri(text.substr(std::min(end + 1, text.size())));
    const std::string resolved = Html::Base(base).resolved(followed);
    require(Html::Base(base).resolved(resolved) == resolved || resolved == followed,
            "a resolved link needs no base");
    return 0;
}
