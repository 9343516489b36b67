#include "host/parser/EncodedWord.h"

#include <array>

#include "host/parser/Text.h"

namespace Corvane {

namespace {

constexpr std::string_view kBegin = "=?";

// Whether a byte may stand in the name of a charset or language.
bool s_isTokenByte(char byte) {
    return byte > ' ' && byte <= '~' && byte != '?' && byte != '=';
}

// Where the encoded text that starts at from ends: the place of its "?=". Npos where another "=?"
// comes first, which bounds the search, or where there is none.
std::size_t s_endOfText(std::string_view text, std::size_t from) {
    for (std::size_t at = text.find('?', from); at != text.npos; at = text.find('?', at + 1)) {
        if (at + 1 < text.size() && text[at + 1] == '=') {
            return at;
        }
        if (at > from && text[at - 1] == '=') {
            break;
        }
    }
    return text.npos;
}

std::optional<EncodedWord> s_wordAt(std::string_view text, std::size_t begin) {
    const std::size_t name = begin + kBegin.size();
    std::size_t at = name;
    while (at < text.size() && s_isTokenByte(text[at])) {
        ++at;
    }
    constexpr std::size_t kEncodingBytes = 3;
    const std::string_view encoding = text.substr(at, kEncodingBytes);
    if (encoding.size() < kEncodingBytes || encoding.front() != '?' || encoding.back() != '?') {
        return std::nullopt;
    }
    const std::string_view token = text.substr(name, at - name);
    const std::string_view charset = token.substr(0, token.find('*'));
    const char letter = toLowerAscii(encoding[1]);
    if (charset.empty() || (letter != 'b' && letter != 'q')) {
        return std::nullopt;
    }
    at += kEncodingBytes;
    const std::size_t end = s_endOfText(text, at);
    if (end == text.npos) {
        return std::nullopt;
    }
    return EncodedWord{begin, end + kBegin.size(), charset, letter, text.substr(at, end - at)};
}

// The value of each byte as a digit, or -1.
class Digits {
public:
    constexpr explicit Digits(std::string_view digits) {
        values_.fill(-1);
        for (std::size_t i = 0; i < digits.size(); ++i) {
            values_[static_cast<unsigned char>(digits[i])] = static_cast<signed char>(i);
        }
    }
    int of(char byte) const { return values_[static_cast<unsigned char>(byte)]; }

private:
    std::array<signed char, 256> values_{};
};

std::optional<std::string> s_fromBase64(std::string_view text) {
    static constexpr Digits kDigits(
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/");
    constexpr unsigned kDigitBits = 6;
    constexpr unsigned kByteBits = 8;
    text = text.substr(0, text.find_last_not_of('=') + 1);
    // Of the digits, with some room to spare.
    std::string bytes(text.size(), '\0');
    std::size_t size = 0;
    unsigned held = 0;
    unsigned heldBits = 0;
    for (const char byte : text) {
        const int digit = kDigits.of(byte);
        if (digit < 0) {
            return std::nullopt;
        }
        held = held << kDigitBits | static_cast<unsigned>(digit);
        heldBits += kDigitBits;
        if (heldBits >= kByteBits) {
            heldBits -= kByteBits;
            bytes[size++] = static_cast<char>(held >> heldBits & 0xFFU);
        }
    }
    bytes.resize(size);
    return bytes;
}

std::optional<std::string> s_fromQ(std::string_view text) {
    static constexpr Digits kDigits("0123456789abcdef");
    constexpr int kBase = 16;
    constexpr std::size_t kEscapeBytes = 3;
    std::string bytes;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] != '=') {
            bytes += text[at] == '_' ? ' ' : text[at];
            continue;
        }
        const std::string_view escape = text.substr(at, kEscapeBytes);
        if (escape.size() < kEscapeBytes) {
            return std::nullopt;
        }
        const int high = kDigits.of(toLowerAscii(escape[1]));
        const int low = kDigits.of(toLowerAscii(escape[2]));
        if (high < 0 || low < 0) {
            return std::nullopt;
        }
        bytes += static_cast<char>(high * kBase + low);
        at += kEscapeBytes - 1;
    }
    return bytes;
}

} // namespace

std::optional<EncodedWord> findEncodedWord(std::string_view text, std::size_t from) {
    for (std::size_t at = text.find(kBegin, from); at != text.npos;
         at = text.find(kBegin, at + kBegin.size())) {
        if (std::optional<EncodedWord> word = s_wordAt(text, at)) {
            return word;
        }
    }
    return std::nullopt;
}

std::optional<std::string> encodedWordBytes(const EncodedWord &word) {
    return word.encoding == 'b' ? s_fromBase64(word.text) : s_fromQ(word.text);
}

} // namespace Corvane
