#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "Require.h"
#include "host/parser/Charset.h"
#include "host/parser/InvisibleText.h"

// The charset's name is the first line, whose first byte says how long the pieces are; the text is
// what follows.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    using namespace Corvane;
    if (size == 0) {
        return 0;
    }
    const std::size_t step = data[0] % 16 + std::size_t{1};
    const std::string_view rest(reinterpret_cast<const char *>(data) + 1, size - 1);
    const std::size_t line = std::min(rest.find('\n'), rest.size());
    const std::string charset(rest.substr(0, line));
    const std::string_view text = rest.substr(std::min(line + 1, rest.size()));

    std::string whole = decodeText(text.data(), text.size(), charset);
    requireUtf8(whole, "decoded text is UTF-8");
    TextDecoder decoder(charset, text);
    std::string pieces;
    for (std::size_t at = 0; at < text.size(); at += step) {
        decoder.decode(text.substr(at, step), pieces);
    }
    decoder.finish(pieces);
    require(pieces == whole, "pieces decode like the whole");

    const std::size_t before = whole.size();
    const std::size_t dropped = dropInvisible(whole);
    requireUtf8(whole, "what is seen is UTF-8");
    require(whole.size() + dropped <= before, "dropped characters are gone");
    if (const auto converted = convertToUtf8(text.data(), text.size(), charset)) {
        requireUtf8(*converted, "converted text is UTF-8");
    }
    return 0;
}
