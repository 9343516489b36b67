#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Require.h"
#include "host/parser/MailLimits.h"
#include "host/parser/html/CssText.h"
#include "host/parser/html/StyleSheet.h"

namespace {

using namespace Corvane;
using namespace Corvane::Html;

// What a sheet comes to.
struct Read {
    std::vector<std::string> uris;
    std::vector<Keyword> keywords;

    bool operator==(const Read &) const = default;
};

ElementFacts s_facts(std::string_view name, std::string_view className, std::string_view id) {
    ElementFacts facts;
    facts.name = nameHash(name);
    facts.classes.push_back(nameHash(className));
    facts.id = nameHash(id);
    return facts;
}

OpenElement s_open(std::string_view name, std::string_view className) {
    OpenElement open;
    open.element = &elementOf(name);
    open.facts = s_facts(name, className, "o");
    return open;
}

Read s_read(std::string_view css, std::size_t pieceBytes) {
    Read read;
    StyleSheet sheet(kMaxStyleRules,
                     [&read](std::string_view uri) { read.uris.emplace_back(uri); });
    sheet.begin(StyleUse::Applied);
    for (; !css.empty(); css.remove_prefix(std::min(pieceBytes, css.size()))) {
        sheet.feed(css.substr(0, pieceBytes));
    }
    sheet.end();
    std::array<OpenElement, 3> open{s_open("div", "a"), s_open("p", "b"), s_open("i", "a")};
    std::vector<OpenPlace> around;
    for (OpenElement &one : open) {
        around.push_back({one.element, &one, one.facts.name, one.element->traits, 0});
    }
    for (const char *name : {"p", "b", "div"}) {
        Declarations declared;
        sheet.declare(s_facts(name, "a", "i"), around, declared);
        for (std::size_t property = 0; property < kProperties; ++property) {
            read.keywords.push_back(declared[static_cast<Property>(property)].keyword);
        }
    }
    return read;
}

} // namespace

// Style sheets, whole and in pieces, and style attributes. The first byte says how long the pieces
// are.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::string_view css(reinterpret_cast<const char *>(data) + 1, size - 1);
    const std::size_t pieceBytes = 1 + data[0] % 16U;
    require(s_read(css, size) == s_read(css, pieceBytes), "pieces do not change a sheet");

    std::vector<Declaration> declarations;
    declareStyle(cssWithoutComments(css), declarations);
    for (const Declaration &one : declarations) {
        require(one.property < Property::Count, "a declaration is of a property");
    }
    for (const std::string_view word : cssWords(css)) {
        require(!word.empty() && word.data() >= css.data(), "words stand in the value");
    }
    selectorsOf(css);
    attributeColour(css);
    return 0;
}
