#include "host/parser/MailText.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "host/parser/Budget.h"
#include "host/parser/Charset.h"
#include "host/parser/Exception.h"
#include "host/parser/HeaderText.h"
#include "host/parser/InvisibleText.h"
#include "host/parser/PartRoles.h"
#include "host/parser/Text.h"
#include "host/parser/TextTypes.h"
#include "host/parser/TransferDecoder.h"
#include "host/parser/html/HtmlReader.h"
#include "host/parser/html/MetaCharset.h"

namespace Corvane {

namespace {

// Length of the text's front that is at most length bytes and ends between two characters.
std::size_t s_characterEnd(const std::string &text, std::size_t length) {
    constexpr unsigned char kContinuationMask = 0xC0;
    constexpr unsigned char kContinuation = 0x80;
    constexpr std::size_t kLongestTail = 3;
    std::size_t end = length;
    while (end > 0 && length - end < kLongestTail &&
           (static_cast<unsigned char>(text[end]) & kContinuationMask) == kContinuation) {
        --end;
    }
    return end;
}

Buffer s_bufferOf(const std::string &text) {
    return {text.data(), static_cast<unsigned int>(text.size()), false};
}

Ref<MPartAttribute> s_textAttribute(const std::string &charset, const std::string &text,
                                    unsigned int flags) {
    return Ref<MPartAttribute>(new MPartText(charset, s_bufferOf(text), flags));
}

// The value of a header with its encoded words decoded, as far as a header's value is believed.
std::string s_decodedHeader(const ReceivedHeader &header, const MailLimits &limits,
                            MailLimitSet &hits) {
    const std::size_t maxBytes = limits.value(MailLimit::HeaderValueBytes);
    std::string value = header.unfolded(maxBytes);
    if (value.size() > maxBytes) {
        hits.insert(MailLimit::HeaderValueBytes);
        value.resize(maxBytes);
    }
    try {
        return stringDecodeRfc2047(value).asString();
    } catch (const Exception &) {
        // None of its words can be decoded: it is shown as it stands.
        return repairUtf8(value.data(), value.size());
    }
}

// Of blank lines in a row one stays: nobody reads those, and they must not push out what is read.
// A little more than maxBytes of what is left is enough.
std::string s_withoutBlankLines(std::string_view text, std::size_t maxBytes) {
    std::string kept;
    bool isBehindBlank = false;
    while (!text.empty() && kept.size() <= maxBytes) {
        const std::string_view line = text.substr(0, text.find('\n'));
        const bool isBlank = line.find_first_not_of(" \t\r") == std::string_view::npos;
        const std::size_t length = std::min(line.size() + 1, text.size());
        if (!isBlank || !isBehindBlank) {
            kept.append(text.substr(0, std::min(length, maxBytes + 1)));
        }
        isBehindBlank = isBlank;
        text.remove_prefix(length);
    }
    return kept;
}

// Appends on a new line, up to one byte more than maxBytes.
void s_appendLines(std::string &text, std::string_view piece, std::size_t maxBytes) {
    if (text.size() > maxBytes || piece.empty()) {
        return;
    }
    if (!text.empty() && text.back() != '\n') {
        text += '\n';
    }
    if (text.size() + piece.size() <= maxBytes) {
        text.append(piece);
    } else {
        text.append(s_withoutBlankLines(piece, maxBytes), 0, maxBytes + 1);
    }
}

} // namespace

void boundText(std::string &text, const MailLimits &limits, MailLimit limit, MailLimitSet &hits) {
    if (text.empty()) {
        return;
    }
    const std::size_t maxBytes = limits.value(limit);
    const bool ends = text.back() == '\n';
    if (text.size() + (ends ? 0 : 1) <= maxBytes) {
        text.append(ends ? "" : "\n");
        return;
    }
    hits.insert(limit);
    const std::size_t lineEnd = text.rfind('\n', maxBytes - 1);
    if (lineEnd != std::string::npos && lineEnd >= maxBytes / 2) {
        text.resize(lineEnd + 1);
    } else {
        text.resize(s_characterEnd(text, maxBytes - 1));
        text += '\n';
    }
}

MailText::MailText(const MailLimits &limits, MailLimitSet &hits, UriCollector &uris)
    : limits_(limits), hits_(hits), uris_(uris),
      plainBytesLeft_(limits.value(MailLimit::DecodedBytes)),
      htmlBytesLeft_(limits.value(MailLimit::HtmlBytes)),
      messageBytesLeft_(limits.value(MailLimit::DecodedBytes)) {}

void MailText::take(MimeStructure &structure) {
    bool isFirst = true;
    for (auto table = structure.next(); !table.empty(); table = structure.next()) {
        takeTable(table, isFirst);
        isFirst = false;
    }
}

// The first text stands in front of the others.
void MailText::takeTable(const std::vector<MimeEntity> &table, bool isFirst) {
    const PartRoles roles(table);
    const std::size_t first = isFirst ? roles.firstText() : table.size();
    if (first < table.size()) {
        takePart(table[first], roles.at(first) == PartRole::Html, text_);
    }
    for (std::size_t place = 0; place < table.size(); ++place) {
        const PartRole role = roles.at(place);
        if (role == PartRole::Message) {
            takeMessage(table[place]);
        } else if (role == PartRole::Alternative) {
            takePart(table[place], true, alternative_);
        } else if (role != PartRole::None && place != first) {
            takePart(table[place], role == PartRole::Html, text_);
        }
    }
}

// Parts are decoded for their URIs even where the text is full already.
void MailText::takePart(const MimeEntity &entity, bool isHtml, Growing &text) {
    // Some hundred nanoseconds a byte, for the worst of HTML.
    constexpr std::uint64_t kByteWork = 64;
    if (!text.hasPart) {
        text.hasPart = true;
        text.charset = entity.content.charset;
    }
    if (Budget::isOver()) {
        return;
    }
    append(text, isHtml ? renderedHtml(entity) : plainText(entity));
    Budget::spend(entity.bytes.size() * kByteWork);
}

void MailText::takeMessage(const MimeEntity &entity) {
    // Bounds the stack, whatever the limit is set to.
    constexpr unsigned int kMaxOpenMessages = 256;
    if (depth_ == std::min(limits_.value(MailLimit::NestingDepth), kMaxOpenMessages)) {
        hits_.insert(MailLimit::NestingDepth);
        return;
    }
    ++depth_;
    if (entity.content.encoding == TransferEncoding::None) {
        takeInner(entity.bytes);
    } else {
        std::string storage;
        takeInner(decoded(entity, MailLimit::DecodedBytes, messageBytesLeft_, storage).bytes);
    }
    --depth_;
}

// A message in a message shows its Subject and its text.
void MailText::takeInner(std::string_view message) {
    LineReader lines(message);
    skipEnvelope(lines);
    MimeContentReader content;
    SeenText subject;
    readHeaderBlock(
        lines, [](std::string_view) { return false; },
        [&](const ReceivedHeader &header) {
            content.take(header);
            if (subject.seen.empty() && equalIgnoringCase(std::string(header.name), "Subject")) {
                subject.seen = s_decodedHeader(header, limits_, hits_);
            }
        });
    uris_.scan(UriContainer::kText, subject.seen, TextEnd::Whole);
    append(text_, subject);
    MimeStructure structure(content.content(), lines, limits_, hits_);
    take(structure);
}

// Adds on a new line as much of a piece as the limit on texts can need.
void MailText::append(Growing &text, const SeenText &piece) {
    const std::size_t maxBytes = limits_.value(MailLimit::TextBytes);
    SeenText &whole = text.text;
    if (piece.differs && !whole.differs) {
        whole.sent = whole.seen;
        whole.differs = true;
    }
    s_appendLines(whole.seen, piece.seen, maxBytes);
    if (whole.differs) {
        s_appendLines(whole.sent, piece.differs ? piece.sent : piece.seen, maxBytes);
    }
}

void MailText::addTo(MimePart &part) {
    const bool isSecondFree = !alternative_.hasPart;
    Growing &second = isSecondFree ? text_ : alternative_;
    std::string &secondText = isSecondFree ? text_.text.sent : alternative_.text.seen;
    boundText(text_.text.seen, limits_, MailLimit::TextBytes, hits_);
    boundText(secondText, limits_, MailLimit::TextBytes, hits_);
    if (text_.hasPart || !text_.text.seen.empty()) {
        part.attr(MPartAttribute::Text, s_textAttribute(text_.charset, text_.text.seen, 0));
    }
    if (!isSecondFree || text_.text.differs) {
        part.attr(MPartAttribute::AltText,
                  s_textAttribute(second.charset, secondText, MPartText::kDiffers));
    }
}

// Decodes as much as is left of the limit that all parts share.
DecodedContent MailText::decoded(const MimeEntity &entity, MailLimit limit, std::size_t &left,
                                 std::string &storage) {
    const DecodedContent content =
        decodeTransfer(entity.bytes, entity.content.encoding, left, storage);
    if (content.isCut) {
        hits_.insert(limit);
    }
    left = content.isCut ? 0 : left - content.bytes.size();
    return content;
}

// Keeps no more of the text as it was sent than anyone will see.
SeenText MailText::seen(std::string text) {
    if (!mayHoldInvisible(text)) {
        return {std::move(text), {}, false};
    }
    std::string sent(text, 0, limits_.value(MailLimit::TextBytes) + std::size_t{1});
    SeenText piece;
    const std::size_t dropped = dropInvisible(text);
    disguise_.invisibleCharacters += dropped;
    piece.differs = dropped > 0 && text.compare(0, sent.size(), sent) != 0;
    piece.seen = std::move(text);
    piece.sent = piece.differs ? std::move(sent) : std::string();
    return piece;
}

SeenText MailText::plainText(const MimeEntity &entity) {
    std::string storage;
    const DecodedContent content =
        decoded(entity, MailLimit::DecodedBytes, plainBytesLeft_, storage);
    std::string text =
        decodeText(content.bytes.data(), content.bytes.size(), entity.content.charset);
    if (text.find('\n') == std::string::npos) {
        std::replace(text.begin(), text.end(), '\r', '\n');
    }
    const std::string &subtype = entity.content.subtype;
    if (subtype == "enriched") {
        text = enrichedText(text);
    } else if (subtype == "richtext") {
        text = richText(text);
    } else if (subtype == "calendar") {
        text = unfoldedCalendar(text);
    }
    SeenText piece = seen(std::move(text));
    uris_.scan(UriContainer::kText, piece.seen, content.isCut ? TextEnd::Cut : TextEnd::Whole);
    if (subtype == "calendar") {
        piece.seen = calendarText(piece.seen);
        piece.sent = calendarText(piece.sent);
    }
    return piece;
}

// Read in pieces: HTML may be as long as a message, and most of it is no text.
SeenText MailText::renderedHtml(const MimeEntity &entity) {
    constexpr std::string_view kUnicode = "utf";
    TransferDecoder transfer(entity.bytes, entity.content.encoding);
    std::string storage;
    std::string_view bytes;
    bool isMore = transfer.next(bytes, storage);
    std::string charset = entity.content.charset;
    if (charset.empty()) {
        // HTML that could name its charset in ASCII is not in UTF-16, whatever it says.
        charset = Html::metaCharset(bytes);
        charset = charset.compare(0, kUnicode.size(), kUnicode) == 0 ? "utf-8" : charset;
    }
    TextDecoder decoder(charset, bytes);
    Html::HtmlReader reader(limits_, hits_, uris_, htmlBytesLeft_);
    std::string html;
    for (; isMore && !Budget::isOver(); isMore = transfer.next(bytes, storage)) {
        decoder.decode(bytes, html);
        reader.feed(html);
        html.clear();
    }
    decoder.finish(html);
    reader.feed(html);
    Html::SentAndSeen text = reader.take();
    disguise_.hiddenTextBytes += text.hiddenBytes;
    disguise_.invisibleCharacters += text.invisibleCharacters;
    return {std::move(text.seen), std::move(text.sent), text.differs};
}

} // namespace Corvane
