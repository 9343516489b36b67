#include "host/parser/InvisibleText.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "host/parser/ByteScan.h"
#include "host/parser/Utf8.h"

namespace Corvane {

namespace {

struct Range {
    char32_t first;
    char32_t last;
};

// What Unicode lets a program ignore that shows text, but for the fillers of Hangul, which are as
// wide as a letter. In order.
constexpr Range kInvisible[] = {
    {0x00AD, 0x00AD},   {0x034F, 0x034F},   {0x061C, 0x061C},   {0x17B4, 0x17B5}, {0x180B, 0x180F},
    {0x200B, 0x200F},   {0x202A, 0x202E},   {0x2060, 0x206F},   {0xFE00, 0xFE0F}, {0xFEFF, 0xFEFF},
    {0x1BCA0, 0x1BCA3}, {0x1D173, 0x1D17A}, {0xE0000, 0xE0FFF},
};

// Scripts whose letters change their form beside a joiner: Arabic, Syriac, Thaana, N'Ko, Mandaic,
// those of India, Sinhala, Tibetan, Myanmar, Khmer, Mongolian, and the forms of Arabic.
constexpr Range kJoining[] = {
    {0x0620, 0x08FF}, {0x0900, 0x0DFF}, {0x0F00, 0x109F}, {0x1780, 0x18AF},
    {0xA840, 0xA87F}, {0xA8E0, 0xA8FF}, {0xFB50, 0xFDFF}, {0xFE70, 0xFEFC},
};

template <std::size_t size>
bool s_isIn(const Range (&ranges)[size], char32_t c) {
    const auto *const found = std::find_if(std::begin(ranges), std::end(ranges),
                                           [c](const Range &range) { return c <= range.last; });
    return found != std::end(ranges) && c >= found->first;
}

bool s_isJoiner(char32_t c) {
    constexpr char32_t kNonJoiner = 0x200C;
    constexpr char32_t kJoiner = 0x200D;
    return c == kNonJoiner || c == kJoiner;
}

// Moves what is kept of a text to its front.
class Sieve {
public:
    explicit Sieve(std::string &text) : text_(text) {}

    std::size_t run() {
        while (from_ < text_.size()) {
            takeAscii();
            takeOther();
        }
        dropJoiners();
        text_.resize(to_);
        return dropped_;
    }

private:
    void takeAscii() {
        const std::size_t length = asciiLength(text_.data() + from_, text_.size() - from_);
        if (length != 0) {
            dropJoiners();
            joins_ = false;
            keep(length);
        }
    }

    void takeOther() {
        const std::size_t left = text_.size() - from_;
        const std::size_t length = left == 0 ? 0 : utf8SequenceLength(text_.data() + from_, left);
        if (length == 0) {
            dropJoiners();
            joins_ = false;
            keep(std::min<std::size_t>(left, 1));
            return;
        }
        const char32_t c = utf8CodePoint(text_.data() + from_, length);
        if (s_isJoiner(c) && joins_) {
            // Whether they stay is for the next character to say.
            keep(length);
            joinerBytes_ += length;
            ++joiners_;
        } else if (s_isIn(kInvisible, c)) {
            from_ += length;
            ++dropped_;
        } else {
            joins_ = s_isIn(kJoining, c);
            if (!joins_) {
                dropJoiners();
            }
            joinerBytes_ = 0;
            joiners_ = 0;
            keep(length);
        }
    }

    void keep(std::size_t length) {
        if (to_ != from_) {
            std::memmove(text_.data() + to_, text_.data() + from_, length);
        }
        from_ += length;
        to_ += length;
    }

    // Takes back the joiners at the end of what is kept.
    void dropJoiners() {
        to_ -= joinerBytes_;
        dropped_ += joiners_;
        joinerBytes_ = 0;
        joiners_ = 0;
    }

    std::string &text_;
    std::size_t from_ = 0;
    std::size_t to_ = 0;
    std::size_t dropped_ = 0;
    // Whether the last visible character is one that joiners may follow, and those that do.
    bool joins_ = false;
    std::size_t joiners_ = 0;
    std::size_t joinerBytes_ = 0;
};

} // namespace

// The first two bytes of each of them are among these; so are those of dashes and quotes.
bool mayHoldInvisible(std::string_view text) {
    constexpr ByteSearch kLead =
        findFirst<'\xC2', '\xCD', '\xD8', '\xE1', '\xE2', '\xEF', '\xF0', '\xF3'>;
    constexpr std::string_view kBegins[] = {"\xC2\xAD", "\xCD\x8F", "\xD8\x9C", "\xE1\x9E",
                                            "\xE1\xA0", "\xE2\x80", "\xE2\x81", "\xEF\xB8",
                                            "\xEF\xBB", "\xF0\x9B", "\xF0\x9D", "\xF3\xA0"};
    for (std::size_t at = kLead(text, 0); at < text.size(); at = kLead(text, at + 1)) {
        const std::string_view begin = text.substr(at, 2);
        if (std::find(std::begin(kBegins), std::end(kBegins), begin) != std::end(kBegins)) {
            return true;
        }
    }
    return false;
}

std::size_t dropInvisible(std::string &text) {
    return mayHoldInvisible(text) ? Sieve(text).run() : 0;
}

} // namespace Corvane
