#include <cstddef>
#include <cstdint>
#include <string>

#include "Require.h"
#include "host/parser/EmailAddress.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::string text(reinterpret_cast<const char *>(data), size);
    const auto address = Corvane::EmailAddress::rfc5322Parse(text, true);
    Corvane::require(address.isNull() == address.address().empty(), "only a null address is empty");
    Corvane::requireUtf8(address.displayName(), "the display name is UTF-8");
    Corvane::require(address.isNull() || !address.asString().empty(), "an address has a text");
    return 0;
}
