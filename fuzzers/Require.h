#ifndef CORVANE_FUZZERS_REQUIRE_H
#define CORVANE_FUZZERS_REQUIRE_H

// What a fuzz target checks of a result. A broken promise ends the process, which the fuzzer
// reports as a crash.

#include <cstdio>
#include <cstdlib>
#include <string>

#include "host/parser/Charset.h"

namespace Corvane {

inline void require(bool kept, const char *promise) {
    if (!kept) {
        std::fprintf(stderr, "broken promise: %s\n", promise);
        std::abort();
    }
}

inline void requireUtf8(const std::string &text, const char *promise) {
    require(isValidUtf8(text.data(), text.size()), promise);
}

} // namespace Corvane

#endif
