#include "host/parser/HeaderText.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <string_view>

#include "host/parser/Charset.h"
#include "host/parser/EncodedWord.h"
#include "host/parser/Exception.h"
#include "host/parser/Text.h"

namespace Corvane {

namespace {

bool s_isWhiteSpace(std::string_view text) {
    return std::all_of(text.begin(), text.end(),
                       [](char c) { return isWhiteSpace(static_cast<unsigned char>(c)); });
}

// Collects the decoded text. Bytes of adjacent words wait until it is known that no further word of
// their charset follows.
class Decoding {
public:
    explicit Decoding(std::string_view text) : text_(text) {}

    // Takes the next word, with the text before it; the words come in order.
    void word(const EncodedWord &word) {
        std::optional<std::string> bytes = encodedWordBytes(word);
        std::string charset(word.charset);
        const bool isSame = decoded_ && equalIgnoringCase(charset, charset_);
        if (!bytes || (!isSame && !isKnownCharset(charset))) {
            return;
        }
        const std::string_view gap = text_.substr(done_, word.begin - done_);
        const bool adjacent = decoded_ && s_isWhiteSpace(gap);
        if (!adjacent || !isSame) {
            convertBytes();
        }
        if (!adjacent) {
            out_ += repairUtf8(gap.data(), gap.size());
        }
        bytes_ += *bytes;
        charset_ = std::move(charset);
        done_ = word.end;
        decoded_ = true;
    }

    // Takes the text after the last word and answers everything.
    std::string finish() {
        convertBytes();
        const std::string_view rest = text_.substr(done_);
        return std::move(out_ += repairUtf8(rest.data(), rest.size()));
    }

    // Whether any word could be decoded.
    bool decoded() const { return decoded_; }

private:
    void convertBytes() {
        out_ += convertToUtf8(bytes_.data(), bytes_.size(), charset_).value_or(std::string());
        bytes_.clear();
    }

    std::string_view text_;
    std::size_t done_ = 0;
    bool decoded_ = false;
    std::string out_;
    std::string bytes_;
    std::string charset_;
};

Exception s_nothingDecoded() {
    Exception failure("stringDecodeRfc2047", Exception::kGeneral, "HeaderText", __LINE__);
    failure.stringParameter("No encoded word could be decoded");
    return failure;
}

} // namespace

Buffer stringDecodeRfc2047(const std::string &text) {
    Decoding decoding(text);
    std::optional<EncodedWord> word = findEncodedWord(text, 0);
    const bool holdsWords = word.has_value();
    for (; word; word = findEncodedWord(text, word->end)) {
        decoding.word(*word);
    }
    if (holdsWords && !decoding.decoded()) {
        throw s_nothingDecoded();
    }
    const std::string decoded = decoding.finish();
    return {decoded.data(), static_cast<unsigned int>(decoded.size()), false};
}

void tessel_to_utf8(const char *in, char *out, int outSize, int) {
    if (outSize < 1) {
        return;
    }
    const std::string text = in != nullptr ? repairUtf8(in, std::strlen(in)) : std::string();
    const auto room = static_cast<std::size_t>(outSize) - 1;
    std::size_t length = std::min(text.size(), room);
    while (length < text.size() && (static_cast<unsigned char>(text[length]) & 0xC0U) == 0x80U) {
        --length;
    }
    std::memcpy(out, text.data(), length);
    out[length] = '\0';
}

} // namespace Corvane
