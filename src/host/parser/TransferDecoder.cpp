#include "host/parser/TransferDecoder.h"

#include <algorithm>
#include <array>

namespace Corvane {

namespace {

constexpr unsigned int kDigitBits = 6;
constexpr unsigned int kByteBits = 8;
constexpr std::size_t kNone = std::string_view::npos;

// What each byte stands for as a digit, or -1.
using Digits = std::array<signed char, 256>;

constexpr Digits s_digits(std::string_view digits) {
    Digits values{};
    values.fill(-1);
    for (std::size_t i = 0; i < digits.size(); ++i) {
        values[static_cast<unsigned char>(digits[i])] = static_cast<signed char>(i);
    }
    return values;
}

constexpr Digits kBase64 =
    s_digits("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/");

constexpr Digits s_hexDigits() {
    Digits values = s_digits("0123456789ABCDEF");
    constexpr std::string_view kLower = "abcdef";
    constexpr int kTen = 10;
    for (std::size_t i = 0; i < kLower.size(); ++i) {
        values[static_cast<unsigned char>(kLower[i])] = static_cast<signed char>(kTen + i);
    }
    return values;
}

constexpr Digits kHex = s_hexDigits();

int s_digit(const Digits &digits, char byte) {
    return digits[static_cast<unsigned char>(byte)];
}

// Decodes whole groups of four digits up to the first that holds anything else; how many bytes
// they were.
std::size_t s_decodeGroups(std::string_view encoded, std::string &out) {
    constexpr std::size_t kGroup = 4;
    constexpr std::size_t kBytes = 3;
    std::array<char, 3 * 1024> decoded;
    std::size_t length = 0;
    std::size_t at = 0;
    for (; at + kGroup <= encoded.size(); at += kGroup) {
        const int first = s_digit(kBase64, encoded[at]);
        const int second = s_digit(kBase64, encoded[at + 1]);
        const int third = s_digit(kBase64, encoded[at + 2]);
        const int fourth = s_digit(kBase64, encoded[at + 3]);
        if ((first | second | third | fourth) < 0) {
            break;
        }
        const auto bits =
            static_cast<unsigned int>(first << 18 | second << 12 | third << 6 | fourth);
        decoded[length] = static_cast<char>(bits >> 16 & 0xFFU);
        decoded[length + 1] = static_cast<char>(bits >> 8 & 0xFFU);
        decoded[length + 2] = static_cast<char>(bits & 0xFFU);
        length += kBytes;
        if (length == decoded.size()) {
            out.append(decoded.data(), length);
            length = 0;
        }
    }
    out.append(decoded.data(), length);
    return at;
}

// The lines after "begin MODE NAME"; everything where there is no such line.
std::string_view s_uuencodedLines(std::string_view encoded) {
    constexpr std::string_view kBegin = "begin ";
    std::size_t begin = 0;
    if (!encoded.starts_with(kBegin)) {
        begin = encoded.find("\nbegin ");
        if (begin == kNone) {
            return encoded;
        }
        ++begin;
    }
    const std::size_t lineEnd = encoded.find('\n', begin);
    return lineEnd == kNone ? std::string_view() : encoded.substr(lineEnd + 1);
}

// How many bytes the soft line break takes that begins with the equals sign at the front: with the
// blanks behind it, and the line end. 0 where it is none.
std::size_t s_softBreakLength(std::string_view text) {
    const std::size_t end = text.find_first_not_of(" \t", 1);
    if (end == kNone) {
        return text.size();
    }
    if (text[end] == '\n') {
        return end + 1;
    }
    return text[end] != '\r' ? 0 : text.substr(end, 2) == "\r\n" ? end + 2 : end + 1;
}

std::string_view s_cutAtLineEnd(std::string_view bytes, std::size_t maxBytes) {
    const std::string_view cut = bytes.substr(0, maxBytes);
    const std::size_t lineEnd = cut.rfind('\n');
    return lineEnd == kNone ? cut : cut.substr(0, lineEnd + 1);
}

} // namespace

TransferDecoder::TransferDecoder(std::string_view encoded, TransferEncoding encoding)
    : rest_(encoding == TransferEncoding::Uuencode ? s_uuencodedLines(encoded) : encoded),
      encoding_(encoding) {}

bool TransferDecoder::next(std::string &out) {
    const std::size_t end = out.size() + kPieceBytes;
    const bool isLeft = !rest_.empty();
    while (!rest_.empty() && out.size() < end) {
        switch (encoding_) {
        case TransferEncoding::None:
            out.append(rest_.substr(0, kPieceBytes));
            rest_.remove_prefix(std::min(kPieceBytes, rest_.size()));
            break;
        case TransferEncoding::Base64:
            nextOfBase64(out);
            break;
        case TransferEncoding::QuotedPrintable:
            nextOfQuotedPrintable(out);
            break;
        case TransferEncoding::Uuencode:
            nextLineOfUuencode(out);
            break;
        }
    }
    return isLeft;
}

bool TransferDecoder::next(std::string_view &piece, std::string &storage) {
    if (encoding_ == TransferEncoding::None) {
        piece = rest_.substr(0, kPieceBytes);
        rest_.remove_prefix(piece.size());
        return !piece.empty();
    }
    storage.clear();
    const bool isLeft = next(storage);
    piece = storage;
    return isLeft;
}

// Padding drops what does not make a byte; digits behind it begin anew.
void TransferDecoder::nextOfBase64(std::string &out) {
    const std::string_view step = rest_.substr(0, kPieceBytes);
    rest_.remove_prefix(step.size());
    out.reserve(out.size() + step.size());
    std::size_t at = 0;
    while (at < step.size()) {
        at += heldBits_ == 0 ? s_decodeGroups(step.substr(at), out) : 0;
        if (at == step.size()) {
            break;
        }
        const char byte = step[at++];
        const int digit = s_digit(kBase64, byte);
        if (digit >= 0) {
            held_ = held_ << kDigitBits | static_cast<unsigned int>(digit);
            heldBits_ += kDigitBits;
            if (heldBits_ >= kByteBits) {
                heldBits_ -= kByteBits;
                out += static_cast<char>(held_ >> heldBits_ & 0xFFU);
            }
        } else if (byte == '=') {
            heldBits_ = 0;
        }
    }
}

void TransferDecoder::nextOfQuotedPrintable(std::string &out) {
    constexpr std::size_t kEscapeBytes = 3;
    constexpr unsigned int kHexBits = 4;
    std::string_view plain = rest_.substr(0, kPieceBytes);
    plain = plain.substr(0, plain.find('='));
    out.append(plain);
    rest_.remove_prefix(plain.size());
    if (rest_.empty() || rest_.front() != '=') {
        return;
    }
    const int high = rest_.size() < kEscapeBytes ? -1 : s_digit(kHex, rest_[1]);
    const int low = rest_.size() < kEscapeBytes ? -1 : s_digit(kHex, rest_[2]);
    if (high >= 0 && low >= 0) {
        out += static_cast<char>(static_cast<unsigned int>(high) << kHexBits |
                                 static_cast<unsigned int>(low));
        rest_.remove_prefix(kEscapeBytes);
        return;
    }
    const std::size_t soft = s_softBreakLength(rest_);
    out.append(soft == 0 ? "=" : "");
    rest_.remove_prefix(std::max<std::size_t>(soft, 1));
}

// A line begins with the number of its bytes.
void TransferDecoder::nextLineOfUuencode(std::string &out) {
    constexpr unsigned int kDigitMask = 0x3F;
    const auto digit = [](char byte) {
        return (static_cast<unsigned char>(byte) - static_cast<unsigned int>(' ')) & kDigitMask;
    };
    std::string_view line = rest_.substr(0, rest_.find('\n'));
    rest_.remove_prefix(std::min(line.size() + 1, rest_.size()));
    if (line == "end" || line == "end\r") {
        rest_ = {};
        return;
    }
    if (line.empty()) {
        return;
    }
    std::size_t left = digit(line.front());
    held_ = 0;
    heldBits_ = 0;
    for (std::size_t at = 1; at < line.size() && left > 0 && line[at] != '\r'; ++at) {
        held_ = held_ << kDigitBits | digit(line[at]);
        heldBits_ += kDigitBits;
        if (heldBits_ >= kByteBits) {
            heldBits_ -= kByteBits;
            out += static_cast<char>(held_ >> heldBits_ & 0xFFU);
            --left;
        }
    }
}

DecodedContent decodeTransfer(std::string_view encoded, TransferEncoding encoding,
                              std::size_t maxBytes, std::string &storage) {
    if (encoding == TransferEncoding::None) {
        const bool isCut = encoded.size() > maxBytes;
        return {isCut ? s_cutAtLineEnd(encoded, maxBytes) : encoded, isCut};
    }
    storage.clear();
    TransferDecoder decoder(encoded, encoding);
    while (storage.size() <= maxBytes && decoder.next(storage)) {
    }
    const bool isCut = storage.size() > maxBytes;
    return {isCut ? s_cutAtLineEnd(storage, maxBytes) : std::string_view(storage), isCut};
}

} // namespace Corvane
