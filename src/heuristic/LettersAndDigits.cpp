#include "heuristic/LettersAndDigits.h"

#include <array>
#include <utility>

#if defined(__x86_64__) && defined(__GNUC__)
#define CORVANE_HAS_COMPRESS 1
#include <immintrin.h>
#endif

namespace Corvane::Heuristic {

namespace {

constexpr auto s_isLetterOrDigit = [] {
    std::array<unsigned char, 256> table{};
    for (const auto &[first, last] : {std::pair('0', '9'), {'A', 'Z'}, {'a', 'z'}}) {
        for (char byte = first; byte <= last; ++byte) {
            table[static_cast<unsigned char>(byte)] = 1;
        }
    }
    return table;
}();

#ifdef CORVANE_HAS_COMPRESS

constexpr std::size_t kBlockBytes = 64;
static_assert(kBlockBytes <= kCopyRoomBytes);

// Whether the bytes are from first on, so many in a row.
__attribute__((target("avx512bw"))) __mmask64 s_areInRange(__m512i bytes, char first, char count) {
    return _mm512_cmplt_epu8_mask(_mm512_sub_epi8(bytes, _mm512_set1_epi8(first)),
                                  _mm512_set1_epi8(count));
}

__attribute__((target("avx512bw,avx512vbmi2"))) unsigned char *
s_copyBlockwise(const unsigned char *text, std::size_t length, unsigned char *out) {
    constexpr char kCaseBit = 0x20;
    constexpr char kLetters = 26;
    constexpr char kDigits = 10;
    for (std::size_t at = 0; at < length; at += kBlockBytes) {
        const std::size_t left = length - at;
        const __mmask64 inText = left >= kBlockBytes ? ~__mmask64{0} : (__mmask64{1} << left) - 1;
        const __m512i bytes = _mm512_maskz_loadu_epi8(inText, text + at);
        const __m512i lower = _mm512_or_si512(bytes, _mm512_set1_epi8(kCaseBit));
        const __mmask64 wanted =
            s_areInRange(lower, 'a', kLetters) | s_areInRange(bytes, '0', kDigits);
        _mm512_storeu_si512(out, _mm512_maskz_compress_epi8(wanted, bytes));
        out += __builtin_popcountll(wanted);
    }
    return out;
}

bool s_canCopyBlockwise() {
    static const bool s_can =
        __builtin_cpu_supports("avx512bw") != 0 && __builtin_cpu_supports("avx512vbmi2") != 0;
    return s_can;
}

#endif

} // namespace

unsigned char *copyLettersAndDigitsBytewise(const unsigned char *text, std::size_t length,
                                            unsigned char *out) {
    for (std::size_t at = 0; at < length; ++at) {
        *out = text[at];
        out += s_isLetterOrDigit[text[at]];
    }
    return out;
}

unsigned char *copyLettersAndDigits(const unsigned char *text, std::size_t length,
                                    unsigned char *out) {
#ifdef CORVANE_HAS_COMPRESS
    if (s_canCopyBlockwise()) {
        return s_copyBlockwise(text, length, out);
    }
#endif
    return copyLettersAndDigitsBytewise(text, length, out);
}

} // namespace Corvane::Heuristic
