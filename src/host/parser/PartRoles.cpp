#include "host/parser/PartRoles.h"

#include <algorithm>
#include <string>
#include <string_view>

#include "host/parser/TextTypes.h"

namespace Corvane {

namespace {

constexpr std::size_t kNoBranch = std::string::npos;

// "html", "htm" and what is built on them, such as "x-amp-html".
bool s_isHtmlType(std::string_view subtype) {
    return subtype.ends_with("html") || subtype.ends_with("htm");
}

// A type that is none leaves it to the bytes; the front of them tells.
bool s_isGuessedHtml(const MimeEntity &entity) {
    if (!entity.content.isGuessed) {
        return false;
    }
    std::string front;
    TransferDecoder(entity.bytes, entity.content.encoding).next(front);
    return looksLikeHtml(front);
}

bool s_isMessageType(std::string_view subtype) {
    return subtype == "rfc822" || subtype == "global" || subtype == "news";
}

// The role of a part by itself.
PartRole s_roleOf(const MimeEntity &entity) {
    const MimeContent &content = entity.content;
    if (content.isAttachment || entity.isMultipart) {
        return PartRole::None;
    }
    if (content.type == "message") {
        return s_isMessageType(content.subtype) ? PartRole::Message : PartRole::None;
    }
    if (content.type != "text") {
        return PartRole::None;
    }
    if (s_isHtmlType(content.subtype) || s_isGuessedHtml(entity)) {
        return PartRole::Html;
    }
    return content.subtype == "plain" ? PartRole::Plain : PartRole::Other;
}

} // namespace

PartRoles::PartRoles(const std::vector<MimeEntity> &table)
    : branches_(table.size(), Branches{kNoBranch, kNoBranch, false}) {
    for (const MimeEntity &entity : table) {
        roles_.push_back(s_roleOf(entity));
    }
    for (std::size_t place = 0; place < table.size(); ++place) {
        noteBranches(table, place);
    }
    for (std::size_t place = 0; place < table.size(); ++place) {
        roles_[place] = settled(table, place);
    }
}

void PartRoles::noteBranches(const std::vector<MimeEntity> &table, std::size_t place) {
    const PartRole role = roles_[place];
    for (std::size_t branch = place; branch != table[branch].parent;
         branch = table[branch].parent) {
        Branches &around = branches_[table[branch].parent];
        around.last = branch;
        around.isReadable = around.isReadable || role == PartRole::Plain || role == PartRole::Html;
        if (role == PartRole::Plain && around.plain == kNoBranch) {
            around.plain = branch;
        }
    }
}

// HTML is an alternative where a multipart/alternative around it offers a plain text in another
// branch. A text of another type is read where it is the only one or the last, which is the one
// that its author prefers.
PartRole PartRoles::settled(const std::vector<MimeEntity> &table, std::size_t place) const {
    const PartRole role = roles_[place];
    if (role != PartRole::Html && role != PartRole::Other) {
        return role;
    }
    for (std::size_t branch = place; branch != table[branch].parent;
         branch = table[branch].parent) {
        const std::size_t parent = table[branch].parent;
        const Branches &around = branches_[parent];
        if (table[parent].content.subtype != "alternative") {
            continue;
        }
        if (role == PartRole::Html && around.plain != kNoBranch && around.plain != branch) {
            return PartRole::Alternative;
        }
        if (role == PartRole::Other && around.isReadable && around.last != branch) {
            return PartRole::None;
        }
    }
    return role;
}

std::size_t PartRoles::firstText() const {
    for (const PartRole role : {PartRole::Plain, PartRole::Html, PartRole::Other}) {
        const auto first = std::find(roles_.begin(), roles_.end(), role);
        if (first != roles_.end()) {
            return static_cast<std::size_t>(first - roles_.begin());
        }
    }
    return roles_.size();
}

} // namespace Corvane
