#include "host/parser/html/Tokenizer.h"

#include <array>

#include "host/parser/Charset.h"
#include "host/parser/html/CharacterClasses.h"

namespace Corvane::Html {

namespace {

constexpr std::uint32_t kBeyondUnicode = 0x110000;

// References to C1 controls mean what windows-1252 has in their place, where it has something.
std::uint32_t s_characterFor(std::uint32_t code) {
    constexpr std::uint32_t kFirstControl = 0x80;
    constexpr std::array<std::uint16_t, 32> kWindows1252{
        0x20AC, 0x81,   0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
        0x2039, 0x0152, 0x8D,   0x017D, 0x8F,   0x90,   0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
        0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x9D,   0x017E, 0x0178};
    if (code >= kFirstControl && code < kFirstControl + kWindows1252.size()) {
        return kWindows1252[code - kFirstControl];
    }
    return code == 0 ? kReplacementCharacter : code;
}

} // namespace

void Tokenizer::startReference(State from) {
    returnTo_ = from;
    pending_.assign(1, '&');
    to(State::Reference);
}

// Text that stands for a reference, or characters that turned out to be none.
void Tokenizer::flushReference(std::string_view text) {
    const bool inValue = returnTo_ >= State::ValueDoubleQuoted && returnTo_ <= State::ValueUnquoted;
    if (inValue) {
        appendValue(text);
    } else {
        emit(text);
    }
    to(returnTo_);
}

void Tokenizer::reference() {
    if (isAlphanumeric(*next_)) {
        search_ = ReferenceSearch();
        to(State::NamedReference);
    } else if (*next_ == '#') {
        ++next_;
        pending_ += '#';
        code_ = 0;
        to(State::NumericReference);
    } else {
        flushReference(pending_);
    }
}

void Tokenizer::namedReference() {
    while (!atEnd() && search_.take(*next_)) {
        pending_ += *next_++;
    }
    if (!atEnd()) {
        endNamedReference(*next_);
    }
}

// In attributes an old name without its semicolon counts only where no letter, digit or '=' follows
// it: it is a parameter in a URI more often. next is the character behind what was taken, NUL at
// the end.
void Tokenizer::endNamedReference(char next) {
    const Html::NamedReference longest = search_.longest();
    const std::string taken = pending_;
    const std::string_view rest = std::string_view(taken).substr(1 + longest.name.size());
    const char follows = rest.empty() ? next : rest.front();
    const bool inText = returnTo_ == State::Data || returnTo_ == State::Rcdata;
    const bool isWord = !inText && !longest.name.empty() && longest.name.back() != ';' &&
                        (follows == '=' || isAlphanumeric(follows));
    if (longest.name.empty() || isWord) {
        flushReference(taken);
        return;
    }
    flushReference(longest.text);
    flushReference(rest);
}

void Tokenizer::numericReference() {
    if (*next_ == 'x' || *next_ == 'X') {
        pending_ += *next_++;
        to(State::HexStart);
    } else if (isDigit(*next_)) {
        to(State::Digits);
    } else {
        flushReference(pending_);
    }
}

void Tokenizer::hexStart() {
    if (hexValue(*next_) >= 0) {
        to(State::HexDigits);
    } else {
        flushReference(pending_);
    }
}

void Tokenizer::hexDigits() {
    constexpr std::uint32_t kBase = 16;
    for (; !atEnd() && hexValue(*next_) >= 0; ++next_) {
        code_ = code_ * kBase + static_cast<std::uint32_t>(hexValue(*next_));
        code_ = code_ < kBeyondUnicode ? code_ : kBeyondUnicode;
    }
    if (!atEnd()) {
        next_ += *next_ == ';' ? 1 : 0;
        endNumericReference();
    }
}

void Tokenizer::digits() {
    constexpr std::uint32_t kBase = 10;
    for (; !atEnd() && isDigit(*next_); ++next_) {
        code_ = code_ * kBase + static_cast<std::uint32_t>(*next_ - '0');
        code_ = code_ < kBeyondUnicode ? code_ : kBeyondUnicode;
    }
    if (!atEnd()) {
        next_ += *next_ == ';' ? 1 : 0;
        endNumericReference();
    }
}

void Tokenizer::endNumericReference() {
    std::string text;
    appendUtf8(text, s_characterFor(code_));
    flushReference(text);
}

void Tokenizer::finishReference() {
    switch (state_) {
    case State::NamedReference:
        endNamedReference('\0');
        break;
    case State::HexDigits:
    case State::Digits:
        endNumericReference();
        break;
    case State::Reference:
    case State::NumericReference:
    case State::HexStart:
        flushReference(pending_);
        break;
    default:
        break;
    }
}

} // namespace Corvane::Html
