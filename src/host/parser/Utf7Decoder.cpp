#include <cstdint>

#include "host/parser/ByteDecoder.h"
#include "host/parser/Utf8.h"

namespace Corvane {

namespace {

constexpr unsigned int kDigitBits = 6;
constexpr unsigned int kUnitBits = 16;

int s_digit(char c) {
    constexpr std::string_view kDigits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const std::size_t found = kDigits.find(c);
    return c == '\0' || found == std::string_view::npos ? -1 : static_cast<int>(found);
}

class Utf7Decoder : public ByteDecoder {
public:
    void decode(std::string_view bytes, std::string &out) override {
        for (const char c : bytes) {
            const int digit = isShifted_ ? s_digit(c) : -1;
            if (digit >= 0) {
                takeDigit(static_cast<unsigned int>(digit), out);
                continue;
            }
            const bool wasShifted = isShifted_;
            endShift(out);
            if (!wasShifted || c != '-') {
                takePlain(c, out);
            }
        }
    }

    void finish(std::string &out) override { endShift(out); }

private:
    void takePlain(char c, std::string &out) {
        if (c == '+') {
            isShifted_ = true;
            isEmpty_ = true;
        } else if (asciiLength(&c, 1) == 1) {
            out += c;
        } else {
            appendUtf8(out, kReplacementCharacter);
        }
    }

    void takeDigit(unsigned int digit, std::string &out) {
        isEmpty_ = false;
        held_ = held_ << kDigitBits | digit;
        heldBits_ += kDigitBits;
        if (heldBits_ >= kUnitBits) {
            heldBits_ -= kUnitBits;
            takeUnit(held_ >> heldBits_ & 0xFFFFU, out);
        }
    }

    // A unit of UTF-16.
    void takeUnit(char32_t unit, std::string &out) {
        constexpr char32_t kFirstHigh = 0xD800;
        constexpr char32_t kFirstLow = 0xDC00;
        constexpr char32_t kBehindLow = 0xE000;
        constexpr char32_t kFirstOfPairs = 0x10000;
        constexpr unsigned int kHalfBits = 10;
        const bool isLow = unit >= kFirstLow && unit < kBehindLow;
        if (high_ != 0 && isLow) {
            appendUtf8(out, kFirstOfPairs + ((high_ - kFirstHigh) << kHalfBits) + unit - kFirstLow);
            high_ = 0;
            return;
        }
        dropHigh(out);
        if (unit >= kFirstHigh && unit < kFirstLow) {
            high_ = unit;
        } else {
            appendUtf8(out, unit);
        }
    }

    void dropHigh(std::string &out) {
        if (high_ != 0) {
            appendUtf8(out, kReplacementCharacter);
        }
        high_ = 0;
    }

    // A shift without digits is a plus sign.
    void endShift(std::string &out) {
        if (!isShifted_) {
            return;
        }
        const bool isCut = heldBits_ >= kDigitBits || (held_ & ((1U << heldBits_) - 1U)) != 0;
        if (isEmpty_) {
            out += '+';
        } else if (isCut && high_ == 0) {
            appendUtf8(out, kReplacementCharacter);
        }
        dropHigh(out);
        isShifted_ = false;
        held_ = 0;
        heldBits_ = 0;
    }

    bool isShifted_ = false;
    bool isEmpty_ = true;
    std::uint32_t held_ = 0;
    unsigned int heldBits_ = 0;
    // A first half of a pair that waits for its second; 0 for none.
    char32_t high_ = 0;
};

} // namespace

std::unique_ptr<ByteDecoder> makeUtf7Decoder() {
    return std::make_unique<Utf7Decoder>();
}

} // namespace Corvane
