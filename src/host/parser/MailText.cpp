#include "host/parser/MailText.h"

#include <algorithm>
#include <cstdint>

#include "host/parser/Budget.h"
#include "host/parser/Charset.h"
#include "host/parser/HtmlText.h"
#include "host/parser/Text.h"

namespace Corvane {

namespace {

constexpr std::size_t kNoBranch = std::string::npos;

// "html", "htm" and what is built on them, such as "x-amp-html".
bool s_isHtml(const std::string &subtype) {
    const auto endsIn = [&subtype](std::string_view tail) {
        return subtype.size() >= tail.size() &&
               subtype.compare(subtype.size() - tail.size(), tail.size(), tail) == 0;
    };
    return endsIn("html") || endsIn("htm");
}

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

MailText::MailText(const std::vector<MimeEntity> &entities, const MailLimits &limits,
                   MailLimitSet &hits, UriCollector &uris)
    : entities_(entities), limits_(limits), hits_(hits), uris_(uris),
      roles_(entities.size(), Role::None), plainBranch_(entities.size(), kNoBranch),
      plainBytesLeft_(limits.value(MailLimit::DecodedBytes)),
      htmlBytesLeft_(limits.value(MailLimit::HtmlBytes)) {}

// Other kinds of text are read as plain text, unless they are one of several alternatives: then
// they are calendar entries and the like.
void MailText::assignRoles() {
    for (std::size_t place = 0; place < entities_.size(); ++place) {
        const MimeContent &content = entities_[place].content;
        if (content.type != "text" || content.isAttachment || entities_[place].isMultipart) {
            continue;
        }
        const std::string &parentType = entities_[entities_[place].parent].content.subtype;
        if (s_isHtml(content.subtype)) {
            roles_[place] = Role::Html;
        } else if (content.subtype == "plain") {
            roles_[place] = Role::Plain;
        } else if (parentType != "alternative") {
            roles_[place] = Role::Other;
        }
        if (content.subtype != "plain") {
            continue;
        }
        for (std::size_t branch = place; branch != entities_[branch].parent;
             branch = entities_[branch].parent) {
            std::size_t &plain = plainBranch_[entities_[branch].parent];
            plain = plain == kNoBranch ? branch : plain;
        }
    }
    for (std::size_t place = 0; place < entities_.size(); ++place) {
        if (roles_[place] == Role::Html && isAlternativeHtml(place)) {
            roles_[place] = Role::Alternative;
        }
    }
}

// Whether a multipart/alternative around the part offers a plain text in another branch.
bool MailText::isAlternativeHtml(std::size_t place) const {
    for (std::size_t branch = place; branch != entities_[branch].parent;
         branch = entities_[branch].parent) {
        const std::size_t parent = entities_[branch].parent;
        if (entities_[parent].content.subtype == "alternative" &&
            plainBranch_[parent] != kNoBranch && plainBranch_[parent] != branch) {
            return true;
        }
    }
    return false;
}

// The first plain text, lacking one the first HTML, lacking that the first text of another kind;
// entities_.size() where there is none.
std::size_t MailText::firstText() const {
    for (const Role role : {Role::Plain, Role::Html, Role::Other}) {
        const auto first = std::find(roles_.begin(), roles_.end(), role);
        if (first != roles_.end()) {
            return static_cast<std::size_t>(first - roles_.begin());
        }
    }
    return entities_.size();
}

void MailText::addTo(MimePart &part) {
    assignRoles();
    const std::size_t first = firstText();
    std::string text;
    std::string alternative;
    std::size_t firstAlternative = entities_.size();
    if (first < entities_.size()) {
        append(text, first);
    }
    for (std::size_t place = 0; place < entities_.size(); ++place) {
        if (roles_[place] == Role::Alternative) {
            firstAlternative = std::min(firstAlternative, place);
            append(alternative, place);
        } else if (roles_[place] != Role::None && place != first) {
            append(text, place);
        }
    }
    boundText(text, limits_, MailLimit::TextBytes, hits_);
    boundText(alternative, limits_, MailLimit::TextBytes, hits_);
    if (first < entities_.size()) {
        part.attr(MPartAttribute::Text, s_textAttribute(entities_[first].content.charset, text, 0));
    }
    if (firstAlternative < entities_.size()) {
        part.attr(MPartAttribute::AltText,
                  s_textAttribute(entities_[firstAlternative].content.charset, alternative,
                                  MPartText::kDiffers));
    }
}

// Parts are decoded for their URIs even where the text is full already.
void MailText::append(std::string &text, std::size_t place) {
    // Some hundred nanoseconds a byte, for the worst of HTML.
    constexpr std::uint64_t kByteWork = 64;
    const MimeEntity &entity = entities_[place];
    if (Budget::isOver()) {
        return;
    }
    const bool isHtml = roles_[place] == Role::Html || roles_[place] == Role::Alternative;
    std::string piece = isHtml ? renderedHtml(entity) : plainText(entity);
    Budget::spend(entity.bytes.size() * kByteWork);
    if (text.empty()) {
        text = std::move(piece);
        return;
    }
    const std::size_t maxBytes = limits_.value(MailLimit::TextBytes);
    if (text.size() > maxBytes || piece.empty()) {
        return;
    }
    if (text.back() != '\n') {
        text += '\n';
    }
    text.append(piece, 0, maxBytes + 1);
}

// Decodes as much as is left of the limit that all parts share.
DecodedContent MailText::decoded(const MimeEntity &entity, MailLimit limit, std::string &storage) {
    std::size_t &left = limit == MailLimit::HtmlBytes ? htmlBytesLeft_ : plainBytesLeft_;
    const DecodedContent content =
        decodeTransfer(entity.bytes, entity.content.encoding, left, storage);
    if (content.isCut) {
        hits_.insert(limit);
    }
    left = content.isCut ? 0 : left - content.bytes.size();
    return content;
}

std::string MailText::plainText(const MimeEntity &entity) {
    std::string storage;
    const DecodedContent content = decoded(entity, MailLimit::DecodedBytes, storage);
    std::string text =
        decodeText(content.bytes.data(), content.bytes.size(), entity.content.charset);
    if (text.find('\n') == std::string::npos) {
        std::replace(text.begin(), text.end(), '\r', '\n');
    }
    uris_.scan(UriContainer::kText, text, content.isCut ? TextEnd::Cut : TextEnd::Whole);
    return text;
}

std::string MailText::renderedHtml(const MimeEntity &entity) {
    std::string storage;
    constexpr std::string_view kUnicode = "utf";
    const DecodedContent content = decoded(entity, MailLimit::HtmlBytes, storage);
    const std::string_view bytes = content.bytes;
    std::string charset = entity.content.charset;
    if (charset.empty()) {
        // HTML that could name its charset in ASCII is not in UTF-16, whatever it says.
        charset = htmlMetaCharset(bytes);
        charset = charset.compare(0, kUnicode.size(), kUnicode) == 0 ? "utf-8" : charset;
    }
    const std::string html = decodeText(bytes.data(), bytes.size(), charset);
    std::string text = htmlToText(html, limits_, hits_, uris_);
    uris_.scan(UriContainer::kHtml, text, content.isCut ? TextEnd::Cut : TextEnd::Whole);
    return text;
}

} // namespace Corvane
