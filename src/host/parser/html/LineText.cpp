#include "host/parser/html/LineText.h"

#include <algorithm>
#include <utility>

#include "host/parser/ByteScan.h"
#include "host/parser/InvisibleText.h"
#include "host/parser/html/CharacterClasses.h"

namespace Corvane::Html {

namespace {

// What may be white space, or NUL, which is left out.
constexpr ByteSet kWordStops = byteSet(std::string_view(" \t\n\v\f\r\0\xC2\xE1\xE2\xE3", 11));

constexpr ByteSet kAsciiBlanks = byteSet(" \t\n\v\f\r");

// Length of the white-space character in front, 0 where there is none; the blanks of Unicode and
// the separators of lines are such.
std::size_t s_blankLength(std::string_view text) {
    constexpr std::size_t kLong = 3;
    const auto byteAt = [text](std::size_t place) {
        return place < text.size() ? static_cast<unsigned char>(text[place]) : 0U;
    };
    switch (byteAt(0)) {
    case 0xC2:
        return byteAt(1) == 0xA0 ? 2 : 0;
    case 0xE1:
        return byteAt(1) == 0x9A && byteAt(2) == 0x80 ? kLong : 0;
    case 0xE2:
        if (byteAt(1) == 0x80) {
            const bool isBlank =
                byteAt(2) <= 0x8A || byteAt(2) == 0xA8 || byteAt(2) == 0xA9 || byteAt(2) == 0xAF;
            return isBlank && byteAt(2) != 0 ? kLong : 0;
        }
        return byteAt(1) == 0x81 && byteAt(2) == 0x9F ? kLong : 0;
    case 0xE3:
        return byteAt(1) == 0x80 && byteAt(2) == 0x80 ? kLong : 0;
    default:
        return isIn(kWordStops, text.front()) ? 1 : 0;
    }
}

#ifdef __SSE2__
// A bit for each byte of the block that is one of kWordStops.
unsigned int s_wordStops(const char *from) {
    return ByteBlock(from)
        .anyOf<' ', '\t', '\n', '\v', '\f', '\r', '\0', '\xC2', '\xE1', '\xE2', '\xE3'>();
}
#endif

// Length of the front that stays as it is: words, each but the last with one blank behind it.
std::size_t s_plainLength(std::string_view text) {
    if (text.empty() || isIn(kWordStops, text.front())) {
        return 0;
    }
    std::size_t at = 1;
#ifdef __SSE2__
    while (at + kBlockBytes < text.size()) {
        const unsigned int stops = s_wordStops(text.data() + at);
        const unsigned int nextStops = s_wordStops(text.data() + at + 1);
        const unsigned int blanks = ByteBlock(text.data() + at).anyOf<' '>();
        const unsigned int found = stops & ~(blanks & ~nextStops);
        if (found != 0) {
            return at + static_cast<std::size_t>(std::countr_zero(found));
        }
        at += kBlockBytes;
    }
#endif
    const auto isBetweenWords = [text](std::size_t place) {
        return text[place] == ' ' && place + 1 < text.size() && !isIn(kWordStops, text[place + 1]);
    };
    while (at < text.size() && (!isIn(kWordStops, text[at]) || isBetweenWords(at))) {
        ++at;
    }
    return at;
}

// Of blanks in a row one stays, none at the ends.
std::string s_collapsed(std::string_view line) {
    std::string collapsed;
    for (const char c : line) {
        const bool isRepeat = c == ' ' && (collapsed.empty() || collapsed.back() == ' ');
        collapsed.append(isRepeat ? 0 : 1, c);
    }
    if (!collapsed.empty() && collapsed.back() == ' ') {
        collapsed.pop_back();
    }
    return collapsed;
}

} // namespace

LineText::LineText(std::size_t maxBytes, std::function<void(std::string_view)> onLine)
    : maxBytes_(maxBytes), onLine_(std::move(onLine)) {}

void LineText::appendWords(Lines &lines, std::string_view text) const {
    while (!text.empty()) {
        if (const std::size_t blanks = findNotIn(kAsciiBlanks, text); blanks != 0) {
            lines.blank = true;
            text.remove_prefix(blanks);
            continue;
        }
        const std::size_t length = s_plainLength(text);
        if (length != 0) {
            if (lines.blank && (!lines.line.empty() || lines.midLine)) {
                lines.line += ' ';
            }
            lines.blank = false;
            lines.line.append(text.substr(0, length));
            text.remove_prefix(length);
            continue;
        }
        const std::size_t blank = s_blankLength(text);
        if (blank == 0) {
            // A letter that begins like a blank.
            if (lines.blank && (!lines.line.empty() || lines.midLine)) {
                lines.line += ' ';
            }
            lines.blank = false;
            lines.line += text.front();
            text.remove_prefix(1);
            continue;
        }
        lines.blank = lines.blank || text.front() != '\0';
        text.remove_prefix(blank);
    }
}

// From here on the text as sent is followed for itself.
void LineText::differ() {
    if (!differs_) {
        differs_ = true;
        sent_ = seen_;
    }
}

void LineText::append(Sight sight, std::string_view text, bool keepLines) {
    while (keepLines && !text.empty()) {
        const std::size_t end = text.find('\n');
        append(sight, text.substr(0, end), false);
        if (end == std::string_view::npos) {
            return;
        }
        breakLine();
        text.remove_prefix(end + 1);
    }
    Lines &lines = sight == Sight::Seen ? seen_ : hidden_;
    if (sight == Sight::Hidden && !differs_ &&
        std::all_of(text.begin(), text.end(), [](char c) { return isIn(kWordStops, c); })) {
        blank(sight);
        return;
    }
    if (sight == Sight::Hidden) {
        differ();
    } else if (!hidden_.line.empty()) {
        // Between hidden words something is seen.
        hidden_.blank = true;
    }
    const bool isFollowed = differs_;
    appendWords(lines, text);
    if (isFollowed) {
        appendWords(sent_, text);
    }
    holdBack(lines, false);
    if (differs_) {
        holdBack(sent_, true);
    }
}

void LineText::blank(Sight sight) {
    (sight == Sight::Seen ? seen_ : hidden_).blank = true;
    sent_.blank = true;
}

// Passes on what is held of a line that grows too long, up to its last blank.
void LineText::holdBack(Lines &lines, bool isSent) {
    if (lines.line.size() <= kMaxHeldLineBytes) {
        return;
    }
    // The whole line has to be in the text as sent before it is cut here.
    std::string kept = lines.line;
    if (!isSent && dropInvisible(kept) > 0) {
        differ();
    }
    const std::size_t blank = lines.line.rfind(' ');
    std::string rest;
    if (blank != std::string::npos && blank != 0) {
        rest = lines.line.substr(blank);
        lines.line.resize(blank);
    }
    flush(lines, isSent, false);
    lines.line = std::move(rest);
}

void LineText::keep(Lines &lines, std::string_view line, bool endsLine) const {
    if (lines.text.size() <= maxBytes_) {
        lines.text.append(line.substr(0, maxBytes_ + 1 - lines.text.size()));
    }
    lines.midLine = !endsLine;
    if (endsLine && lines.text.size() <= maxBytes_) {
        lines.text += '\n';
    }
}

void LineText::flush(Lines &lines, bool isSent, bool endsLine) {
    if (lines.line.empty() && (!lines.midLine || !endsLine)) {
        return;
    }
    if (isSent) {
        keep(lines, lines.line, endsLine);
        lines.line.clear();
        return;
    }
    const std::size_t before = lines.line.size();
    const bool isHidden = &lines == &hidden_;
    if (!mayHoldInvisible(lines.line)) {
        hiddenBytes_ += isHidden ? before : 0;
        onLine_(lines.line);
        keep(lines, lines.line, endsLine);
        lines.line.clear();
        return;
    }
    std::string kept = lines.line;
    const std::size_t dropped = dropInvisible(kept);
    if (dropped > 0) {
        invisibleCharacters_ += dropped;
        // Before this line is kept the text as sent is the same as the text seen.
        differ();
        const bool ledByBlank = lines.midLine && !kept.empty() && kept.front() == ' ';
        kept = s_collapsed(kept);
        kept.insert(0, ledByBlank ? 1 : 0, ' ');
    }
    hiddenBytes_ += isHidden ? before : 0;
    onLine_(kept);
    if (!kept.empty() || lines.midLine) {
        keep(lines, kept, endsLine);
    }
    lines.line.clear();
}

void LineText::breakLine() {
    for (Lines *lines : {&seen_, &hidden_}) {
        flush(*lines, false, true);
        lines->blank = false;
    }
    if (differs_) {
        flush(sent_, true, true);
        sent_.blank = false;
    }
}

void LineText::aside(std::string_view text) {
    Lines lines;
    appendWords(lines, text);
    if (lines.line.empty()) {
        return;
    }
    onLine_(lines.line);
    if (asides_.size() <= maxBytes_) {
        asides_ += lines.line.substr(0, maxBytes_) + '\n';
    }
}

SentAndSeen LineText::take() {
    breakLine();
    SentAndSeen taken;
    taken.seen = std::move(seen_.text) + asides_ + hidden_.text;
    taken.sent = std::move(sent_.text) + asides_;
    taken.differs = differs_ && taken.sent != taken.seen;
    if (!taken.differs) {
        taken.sent.clear();
    }
    taken.hiddenBytes = hiddenBytes_;
    taken.invisibleCharacters = invisibleCharacters_;
    return taken;
}

} // namespace Corvane::Html
