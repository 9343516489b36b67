#include "host/parser/Utf2lang.h"

#include <cstddef>
#include <cstdint>

#include <glib.h>

#include "host/parser/Charset.h"
#include "host/parser/Text.h"

namespace Corvane {

namespace {

// Letters seen, by script.
struct Letters {
    std::uint64_t han = 0;
    std::uint64_t kana = 0;
    std::uint64_t hangul = 0;
    std::uint64_t cyrillic = 0;
    std::uint64_t other = 0;
};

void s_count(Letters &letters, gunichar character) {
    if (!g_unichar_isalpha(character)) {
        return;
    }
    switch (g_unichar_get_script(character)) {
    case G_UNICODE_SCRIPT_HAN:
        ++letters.han;
        break;
    case G_UNICODE_SCRIPT_HIRAGANA:
    case G_UNICODE_SCRIPT_KATAKANA:
        ++letters.kana;
        break;
    case G_UNICODE_SCRIPT_HANGUL:
        ++letters.hangul;
        break;
    case G_UNICODE_SCRIPT_CYRILLIC:
        ++letters.cyrillic;
        break;
    default:
        ++letters.other;
    }
}

constexpr unsigned char kFirstBeyondAscii = 0x80;

Letters s_countAll(const char *text, unsigned long length) {
    Letters letters;
    for (unsigned long at = 0; at < length;) {
        const char byte = text[at];
        if (static_cast<unsigned char>(byte) < kFirstBeyondAscii) {
            const char lower = toLowerAscii(byte);
            letters.other += lower >= 'a' && lower <= 'z' ? 1U : 0U;
            ++at;
            continue;
        }
        const std::size_t bytes = utf8SequenceLength(text + at, length - at);
        if (bytes > 0) {
            s_count(letters, g_utf8_get_char(text + at));
        }
        at += bytes > 0 ? bytes : 1;
    }
    return letters;
}

enum class EastAsian { Chinese, Japanese, Korean };

// Which one a text in Han, kana and Hangul is in. Hangul that outnumbers the rest decides before
// kana does: a single ornamental kana is a large share of the few other characters there.
EastAsian s_eastAsian(const Letters &letters) {
    constexpr std::uint64_t kKanaShare = 8;
    const std::uint64_t hanAndKana = letters.han + letters.kana;
    if (letters.hangul > hanAndKana) {
        return EastAsian::Korean;
    }
    if (letters.kana * kKanaShare >= hanAndKana) {
        return EastAsian::Japanese;
    }
    return letters.hangul >= letters.han ? EastAsian::Korean : EastAsian::Chinese;
}

} // namespace

Utf2lang::Utf2lang() : chinese(false), japanese(false), korean(false), russian(false) {}

void Utf2lang::proc(const char *text, unsigned long length) {
    constexpr std::uint64_t kEastAsianWeight = 3;
    constexpr std::uint64_t kLanguageShare = 4;
    if (asciiLength(text, length) == length) {
        chinese = japanese = korean = russian = false;
        return;
    }
    const Letters letters = s_countAll(text, length);
    const std::uint64_t eastAsian =
        kEastAsianWeight * (letters.han + letters.kana + letters.hangul);
    const std::uint64_t total = eastAsian + letters.cyrillic + letters.other;
    const bool isEastAsian = eastAsian > 0 && eastAsian * kLanguageShare >= total;
    const EastAsian which = s_eastAsian(letters);
    chinese = isEastAsian && which == EastAsian::Chinese;
    japanese = isEastAsian && which == EastAsian::Japanese;
    korean = isEastAsian && which == EastAsian::Korean;
    russian = letters.cyrillic > 0 && letters.cyrillic * kLanguageShare >= total;
}

} // namespace Corvane
