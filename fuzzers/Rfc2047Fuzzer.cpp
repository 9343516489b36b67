#include <cstddef>
#include <cstdint>
#include <string>

#include "Require.h"
#include "host/parser/Exception.h"
#include "host/parser/HeaderText.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::string text(reinterpret_cast<const char *>(data), size);
    try {
        Corvane::requireUtf8(Corvane::stringDecodeRfc2047(text).asString(),
                             "decoded text is UTF-8");
    } catch (const Corvane::Exception &failure) {
        Corvane::require(failure.code() == Corvane::Exception::kGeneral, "failures have code 4");
    }
    return 0;
}
