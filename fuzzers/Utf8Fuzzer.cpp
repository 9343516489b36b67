#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "Require.h"
#include "host/parser/Charset.h"
#include "host/parser/HeaderText.h"

namespace {

using namespace Corvane;

// The first byte chooses the room, so that cuts fall into every place of a character.
void s_repair(const std::string &text, int room) {
    // Allocated to the byte, so that a write beyond the room is seen.
    std::vector<char> out(static_cast<std::size_t>(room));
    tessel_to_utf8(text.c_str(), out.data(), room, 0);
    if (room > 0) {
        const void *end = std::memchr(out.data(), '\0', out.size());
        require(end != nullptr, "the text ends within its room");
        requireUtf8(out.data(), "the repaired text is UTF-8");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::string rest(reinterpret_cast<const char *>(data) + 1, size - 1);
    s_repair(rest, data[0]);

    // The charset's name is the first line of the rest, the text what follows.
    const std::size_t line = std::min(rest.find('\n'), rest.size());
    const std::string text = rest.substr(std::min(line + 1, rest.size()));
    requireUtf8(decodeText(text.data(), text.size(), rest.substr(0, line)),
                "converted text is UTF-8");
    return 0;
}
