#include "host/parser/html/InlineStyles.h"

#include <functional>

#include "host/parser/html/CssText.h"

namespace Corvane::Html {

namespace {

void s_read(std::string_view style, std::vector<Declaration> &out) {
    // Most declare a few things; a vector that grows by one is slow to begin with.
    constexpr std::size_t kUsual = 8;
    out.clear();
    out.reserve(kUsual);
    if (style.find("/*") == std::string_view::npos) {
        declareStyle(style, out);
    } else {
        declareStyle(cssWithoutComments(style), out);
    }
}

} // namespace

const std::vector<Declaration> &InlineStyles::declarationsOf(std::string_view style) {
    if (style.size() > kMaxKnownBytes) {
        s_read(style, declarations_);
        return declarations_;
    }
    known_.resize(kSlots);
    // An empty slot knows the empty style, which declares nothing.
    Known &known = known_[std::hash<std::string_view>()(style) % kSlots];
    if (known.style != style) {
        // Should reading it fail, the slot knows nothing.
        known.style.clear();
        known.declarations.clear();
        s_read(style, known.declarations);
        known.style = style;
    }
    return known.declarations;
}

} // namespace Corvane::Html
