#ifndef CORVANE_SRC_HOST_PARSER_BYTESCAN_H
#define CORVANE_SRC_HOST_PARSER_BYTESCAN_H

// Finds the first of a few bytes in a text, sixteen bytes in one step where the processor can. Runs
// of text are short, and a loop over single bytes is foreseen wrong at the end of each.
//
// Threads: pure functions.

#include <algorithm>
#include <bit>
#include <cstddef>
#include <string_view>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace Corvane {

#ifdef __SSE2__
constexpr std::size_t kBlockBytes = sizeof(__m128i);

// Sixteen bytes of a text.
class ByteBlock {
public:
    // Reads kBlockBytes.
    explicit ByteBlock(const char *from)
        : bytes_(_mm_loadu_si128(reinterpret_cast<const __m128i *>(from))) {}

    // A bit for each byte that is one of those.
    template <char... kBytes>
    unsigned int anyOf() const {
        return mask((_mm_cmpeq_epi8(bytes_, _mm_set1_epi8(kBytes)) | ...));
    }

    // A bit for each byte that is smaller; bytes beyond ASCII are smaller than all of ASCII.
    unsigned int below(char limit) const {
        return mask(_mm_cmplt_epi8(bytes_, _mm_set1_epi8(limit)));
    }

private:
    static unsigned int mask(__m128i bytes) {
        return static_cast<unsigned int>(_mm_movemask_epi8(bytes));
    }

    __m128i bytes_;
};
#endif

// The place of the first byte from there on that is one of those, the length of the text where none
// is.
template <char... kBytes>
std::size_t findFirst(std::string_view text, std::size_t from = 0) {
    std::size_t at = std::min(from, text.size());
#ifdef __SSE2__
    for (; at + kBlockBytes <= text.size(); at += kBlockBytes) {
        if (const unsigned int found = ByteBlock(text.data() + at).anyOf<kBytes...>()) {
            return at + static_cast<std::size_t>(std::countr_zero(found));
        }
    }
#endif
    const auto isOne = [](char byte) { return ((byte == kBytes) || ...); };
    while (at < text.size() && !isOne(text[at])) {
        ++at;
    }
    return at;
}

using ByteSearch = std::size_t (*)(std::string_view text, std::size_t from);

} // namespace Corvane

#endif
