#include "heuristic/ScanTexts.h"

#include <algorithm>

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

// One piece is held back, since the last one tells what is not read.
void s_takePieces(Source source, Rule::Type kind, const Buffer &body, const ScanTexts::Take &take) {
    ScannedText text;
    text.source = source;
    text.kind = kind;
    text.number = 1;
    text.piece = 0;
    unsigned int lineStart = 0;
    const unsigned int end = cutIntoPieces(body, kind == Rule::RawBody, [&](const Piece &piece) {
        if (text.piece > 0) {
            take(text);
        }
        const unsigned char *line = body.data() + lineStart;
        const auto ends = static_cast<std::size_t>(
            std::count(line, body.data() + piece.start, static_cast<unsigned char>('\n')));
        text.number += ends;
        text.piece = ends > 0 ? 1 : text.piece + 1;
        lineStart = piece.start;
        text.offset = piece.start;
        text.text = Buffer(body.data() + piece.start, piece.length, true);
        return false;
    });
    if (text.piece > 0) {
        text.unread = body.length() - end;
        take(text);
    }
}

} // namespace

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
        s_takePieces(Source::Subject, Rule::Body, headerValueDecode(subject.value()), take);
    }
    if (const MPartText *text = partText(part, MPartAttribute::Text)) {
        s_takePieces(Source::Text, Rule::Body, text->text(), take);
    }
    if (const MPartText *text = partText(part, MPartAttribute::RawText)) {
        s_takePieces(Source::RawBody, Rule::RawBody, text->text(), take);
    }
    const MPartText *second = partText(part, MPartAttribute::AltText);
    if (second != nullptr && (second->flags() & MPartText::kDiffers) != 0) {
        s_takePieces(Source::SecondText, Rule::Body, second->text(), take);
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
