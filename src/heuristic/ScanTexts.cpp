#include "heuristic/ScanTexts.h"

#include <algorithm>
#include <array>

#include "heuristic/HeaderPass.h"
#include "heuristic/PartText.h"
#include "heuristic/Pieces.h"
#include "host/parser/Uri.h"

namespace Corvane::Heuristic {

namespace {

using Source = ScannedText::Source;

constexpr const char *kSubject = "Subject";

void s_takeForms(Source source, std::size_t number, const Header &header,
                 const ScanTexts::Take &take) {
    const HeaderRuleParameter parameter(header);
    for (const HeaderForm form : {HeaderForm::Value, HeaderForm::Raw, HeaderForm::Addr,
                                  HeaderForm::Name, HeaderForm::All}) {
        ScannedText text;
        text.source = source;
        text.kind = Rule::Header;
        text.number = number;
        text.header = header.type();
        text.form = form;
        text.text = parameter.form(form);
        take(text);
    }
}

// One piece is held back, since the last one tells what is not read. first: the line and the offset that the body begins
// with; the last one is answered.
ScannedText s_takePieces(const ScannedText &first, const Buffer &body,
                         const ScanTexts::Take &take) {
    ScannedText text = first;
    text.piece = 0;
    unsigned int lineStart = 0;
    const unsigned int end =
        cutIntoPieces(body, first.kind == Rule::RawBody, [&](const Piece &piece) {
            if (text.piece > 0) {
                take(text);
            }
            const unsigned char *line = body.data() + lineStart;
            const auto ends = static_cast<std::size_t>(
                std::count(line, body.data() + piece.start, static_cast<unsigned char>('\n')));
            text.number += ends;
            text.piece = ends > 0 ? 1 : text.piece + 1;
            lineStart = piece.start;
            text.offset = first.offset + piece.start;
            text.text = Buffer(body.data() + piece.start, piece.length, true);
            return false;
        });
    if (text.piece > 0) {
        text.unread = Buffer(body.data() + end, body.length() - end, true);
        take(text);
    }
    return text;
}

void s_takeBody(Source source, Rule::Type kind, const Buffer &body, const ScanTexts::Take &take) {
    ScannedText first;
    first.source = source;
    first.kind = kind;
    first.number = 1;
    (void)s_takePieces(first, body, take);
}

} // namespace

std::string_view sourceName(Source source) {
    constexpr std::array<std::string_view, 9> kNames = {
        "line", "sender", "header", "subject", "text", "raw-body", "second", "uri", "whole-header"};
    return kNames.at(static_cast<std::size_t>(source));
}

std::string_view formName(HeaderForm form) {
    constexpr std::array<std::string_view, 5> kNames = {"value", "raw", "addr", "name", "all"};
    return kNames.at(static_cast<std::size_t>(form));
}

std::string uriSourceName(unsigned int uriSource) {
    constexpr std::array<const char *, 3> kNames = {"header", "text", "html"};
    return uriSource < kNames.size() ? kNames.at(uriSource) : std::to_string(uriSource);
}

void ScanTexts::eachUnread(const ScannedText &last, const Take &take) {
    ScannedText text = last;
    while (text.unread.length() > 0) {
        const Buffer body = text.unread;
        const unsigned char *before = text.text.data();
        text.number += static_cast<std::size_t>(
            std::count(before, body.data(), static_cast<unsigned char>('\n')));
        text.offset += static_cast<std::size_t>(body.data() - before);
        text.unread = Buffer();
        text = s_takePieces(text, body, take);
        if (text.piece == 0) {
            return;
        }
    }
}

void ScanTexts::each(const Take &take) const {
    lines(take);
    headers(take);
    bodies(take);
    uris(take);
    wholeHeaders(take);
}

void ScanTexts::lines(const Take &take) const {
    ScannedText text;
    for (std::size_t end = message_.find('\n'); end != std::string_view::npos;
         end = message_.find('\n', text.offset)) {
        const std::size_t length = end + 1 - text.offset;
        ++text.number;
        text.text = Buffer(message_.data() + text.offset, static_cast<unsigned int>(length), true);
        take(text);
        text.offset = end + 1;
    }
}

void ScanTexts::headers(const Take &take) const {
    if (!sender_.isNull()) {
        s_takeForms(Source::Sender, 1, Header(HeaderCheck::kSenderName, sender_.asString()), take);
    }
    std::size_t number = 0;
    for (const Header &header : *mail_.properties()->headers()) {
        s_takeForms(Source::Header, ++number, headerFor(header, HeaderValues::InUtf8), take);
    }
}

void ScanTexts::bodies(const Take &take) const {
    const MimePart *part = mail_.properties()->part().operator->();
    if (part == nullptr) {
        return;
    }
    const Header subject = mail_.properties()->headers().find(kSubject);
    if (!subject.isNull()) {
        s_takeBody(Source::Subject, Rule::Body, headerValueDecode(subject.value()), take);
    }
    if (const MPartText *text = partText(part, MPartAttribute::Text)) {
        s_takeBody(Source::Text, Rule::Body, text->text(), take);
    }
    if (const MPartText *text = partText(part, MPartAttribute::RawText)) {
        s_takeBody(Source::RawBody, Rule::RawBody, text->text(), take);
    }
    const MPartText *second = partText(part, MPartAttribute::AltText);
    if (second != nullptr && (second->flags() & MPartText::kDiffers) != 0) {
        s_takeBody(Source::SecondText, Rule::Body, second->text(), take);
    }
}

void ScanTexts::uris(const Take &take) const {
    const MimePart *part = mail_.properties()->part().operator->();
    const auto *uris =
        part == nullptr ? nullptr
                        : dynamic_cast<const UriContainer *>(part->findAttr(MPartAttribute::Uris));
    if (uris == nullptr) {
        return;
    }
    ScannedText text;
    text.source = Source::Uri;
    text.kind = Rule::Uri;
    for (const auto &[source, found] : uris->sourced()) {
        text.uriSource = source;
        text.number = 0;
        for (const Corvane::Uri &uri : found) {
            ++text.number;
            if (!uri.isNull()) {
                const std::string &whole = uri.asString();
                text.text = Buffer(whole.data(), static_cast<unsigned int>(whole.size()), true);
                take(text);
            }
        }
    }
}

void ScanTexts::wholeHeaders(const Take &take) const {
    ScannedText text;
    text.source = Source::WholeHeader;
    for (const Header &header : *mail_.properties()->headers()) {
        const std::string whole = header.asString();
        ++text.number;
        text.header = header.type();
        text.text = Buffer(whole.data(), static_cast<unsigned int>(whole.size()), true);
        take(text);
    }
}

} // namespace Corvane::Heuristic
