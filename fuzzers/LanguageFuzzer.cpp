#include <cstddef>
#include <cstdint>

#include "Require.h"
#include "host/parser/Utf2lang.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    Corvane::Utf2lang detector;
    detector.proc(reinterpret_cast<const char *>(data), size);
    const int eastern =
        (detector.chinese ? 1 : 0) + (detector.japanese ? 1 : 0) + (detector.korean ? 1 : 0);
    Corvane::require(eastern <= 1, "the eastern languages exclude each other");
    return 0;
}
