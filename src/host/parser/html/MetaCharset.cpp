#include "host/parser/html/MetaCharset.h"

#include <algorithm>

#include "host/parser/Text.h"

namespace Corvane::Html {

namespace {

// How far from the start a <meta> is looked for.
constexpr std::size_t kMetaSearchBytes = 4096;

} // namespace

std::string metaCharset(std::string_view html) {
    std::string head;
    copyStringToLower(html.data(), head, 0, std::min(html.size(), kMetaSearchBytes));
    constexpr std::string_view kKey = "charset";
    constexpr const char *kBlanksAndQuotes = " \t\r\n\"'";
    std::size_t meta = head.find("<meta");
    for (; meta != std::string::npos; meta = head.find("<meta", meta + 1)) {
        const std::string tag = head.substr(meta, head.find('>', meta) - meta);
        const std::size_t key = tag.find(kKey);
        if (key == std::string::npos) {
            continue;
        }
        const std::size_t equals = tag.find_first_not_of(kBlanksAndQuotes, key + kKey.size());
        if (equals == std::string::npos || tag[equals] != '=') {
            continue;
        }
        const std::size_t name = tag.find_first_not_of(kBlanksAndQuotes, equals + 1);
        if (name != std::string::npos) {
            return tag.substr(name, tag.find_first_of(" \t\r\n\"';/>", name) - name);
        }
    }
    return {};
}

} // namespace Corvane::Html
