#include "host/parser/MimeStructure.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "host/parser/Budget.h"

namespace Corvane {

namespace {

constexpr std::string_view kDashes = "--";
constexpr std::size_t kNoLevel = std::string::npos;

// What a line takes besides its bytes, in units of work of a budget.
constexpr std::uint64_t kLineWork = 32;

// Multiparts that are open at once. Of deeper ones only the innermost is known, so that its parts
// are found.
constexpr std::size_t kMaxOpenMultiparts = 256;

// Whether anyone may read the part: attachments are left alone.
bool s_isReadable(const MimeContent &content) {
    return !content.isAttachment && (content.type == "text" || content.type == "message");
}

bool s_isEmpty(std::string_view bytes) {
    return bytes.find_first_not_of(" \t\r\n") == std::string_view::npos;
}

} // namespace

MimeStructure::MimeStructure(MimeContent content, const LineReader &lines, const MailLimits &limits,
                             MailLimitSet &hits)
    : lines_(lines), limits_(limits), hits_(hits), start_(lines.offset()), pending_(kNoLevel) {
    addEntity(std::move(content), 0);
}

// The boundary must be the whole line behind the dashes, but for blanks. Innermost multipart first.
MimeStructure::Line MimeStructure::lineKind(std::string_view line) const {
    if (!line.starts_with(kDashes) || open_.empty()) {
        return {Kind::Text, 0};
    }
    line.remove_prefix(kDashes.size());
    line = line.substr(0, line.find_last_not_of(" \t\r") + 1);
    if (line.size() > longestBoundary_ + kDashes.size()) {
        return {Kind::Text, 0};
    }
    const std::size_t part = levelOf(line);
    const std::size_t end =
        line.ends_with(kDashes) ? levelOf(line.substr(0, line.size() - kDashes.size())) : kNoLevel;
    if (end != kNoLevel && (part == kNoLevel || end > part)) {
        return {Kind::End, end};
    }
    return part != kNoLevel ? Line{Kind::Part, part} : Line{Kind::Text, 0};
}

std::size_t MimeStructure::levelOf(std::string_view boundary) const {
    const auto found = levels_.find(boundary);
    return found == levels_.end() ? kNoLevel : found->second.back();
}

// The entity that parts at a level of open_ belong to.
std::size_t MimeStructure::parentAt(std::size_t level) const {
    const std::size_t deepest = limits_.value(MailLimit::NestingDepth) - std::size_t{1};
    return open_[std::min(level, deepest)].entity;
}

void MimeStructure::addEntity(MimeContent described, std::size_t parent) {
    const std::size_t place = entities_.size();
    entities_.push_back({parent, std::move(described), std::string_view(), false});
    start_ = lines_.offset();
    isReading_ = true;
    MimeContent &content = entities_.back().content;
    if (content.isCut) {
        hits_.insert(MailLimit::HeaderValueBytes);
    }
    if (place != parent && entities_[parent].content.subtype == "digest" && !content.isTyped) {
        content.type = "message";
        content.subtype = "rfc822";
    }
    if (content.type == "multipart" && !content.boundaries.empty()) {
        open(place);
    } else if (content.type == "multipart") {
        content.type = "text";
        content.subtype = "plain";
    }
}

void MimeStructure::open(std::size_t place) {
    if (open_.size() >= limits_.value(MailLimit::NestingDepth)) {
        hits_.insert(MailLimit::NestingDepth);
    }
    if (open_.size() == kMaxOpenMultiparts) {
        place = replaceInnermost(place);
    }
    open_.push_back({place, start_, std::move(entities_[place].content.boundaries)});
    for (const std::string &boundary : open_.back().boundaries) {
        levels_[boundary].push_back(open_.size() - 1);
        longestBoundary_ = std::max(longestBoundary_, boundary.size());
    }
}

// Closes the innermost multipart, of which the one at place, the last entity, is a part. Takes it
// out of the table where nothing stands between both, and answers the new place.
std::size_t MimeStructure::replaceInnermost(std::size_t place) {
    const std::size_t former = open_.back().entity;
    closeInnermost();
    if (former + 1 < place) {
        return place;
    }
    entities_[former] = std::move(entities_[place]);
    entities_.pop_back();
    return former;
}

void MimeStructure::closeInnermost() {
    for (const std::string &boundary : open_.back().boundaries) {
        std::vector<std::size_t> &levels = levels_[boundary];
        levels.pop_back();
        if (levels.empty()) {
            levels_.erase(boundary);
        }
    }
    open_.pop_back();
}

void MimeStructure::addPart(std::size_t level) {
    const std::size_t parent = parentAt(level);
    MimeContentReader content;
    readHeaderBlock(
        lines_, [this](std::string_view line) { return lineKind(line).kind != Kind::Text; },
        [&content](const ReceivedHeader &header) { content.take(header); });
    addEntity(content.content(), parent);
}

void MimeStructure::endCurrent(std::size_t end) {
    if (isReading_) {
        isReading_ = false;
        entities_.back().bytes = lines_.bytes().substr(start_, end - start_);
        if (open_.empty() || open_.back().entity != entities_.size() - 1) {
            keepOrForgetLast();
        }
    }
}

// The message itself is always kept. Of blank parts as many are as of others: the first one may
// name the charset.
void MimeStructure::keepOrForgetLast() {
    const MimeEntity &entity = entities_.back();
    const bool isText = s_isReadable(entity.content) && !s_isEmpty(entity.bytes);
    const bool isBlank = s_isReadable(entity.content) && !isText;
    texts_ += isText ? 1 : 0;
    blanks_ += isBlank ? 1 : 0;
    const bool isKept = isText || (isBlank && blanks_ <= limits_.value(MailLimit::Parts));
    if (!isKept && entities_.size() > 1) {
        entities_.pop_back();
    }
}

// Closes the multiparts from a level on; one that had no part is a text up to here.
void MimeStructure::endMultiparts(std::size_t level, std::size_t end) {
    while (open_.size() > level) {
        const std::size_t place = open_.back().entity;
        const bool isLast = place == entities_.size() - 1;
        const std::size_t start = open_.back().start;
        closeInnermost();
        MimeEntity &entity = entities_[place];
        entity.bytes = lines_.bytes().substr(start, end - start);
        if (!entity.isMultipart) {
            entity.content.type = "text";
            entity.content.subtype = "plain";
        }
        if (isLast) {
            keepOrForgetLast();
        }
    }
}

// The multiparts that are open begin the next table. Their places change.
std::vector<MimeEntity> MimeStructure::takeTable() {
    std::vector<MimeEntity> next;
    for (Open &open : open_) {
        next.push_back(entities_[open.entity]);
        open.entity = next.size() - 1;
        next.back().parent = next.size() == 1 ? 0 : parentAt(next.size() - 2);
    }
    texts_ = 0;
    blanks_ = 0;
    return std::exchange(entities_, std::move(next));
}

// Passes over lines that are no boundary; where the next one starts.
std::size_t MimeStructure::skipText() {
    const std::size_t from = lines_.offset();
    lines_.skipToDashes();
    Budget::spend(lines_.offset() - from);
    return lines_.offset();
}

void MimeStructure::readLines() {
    std::string_view line;
    for (std::size_t start = lines_.offset();
         !open_.empty() && lines_.next(line) && !Budget::spend(line.size() + kLineWork);
         start = skipText()) {
        const Line found = lineKind(line);
        if (found.kind == Kind::Text) {
            continue;
        }
        const std::size_t end = lines_.endBefore(start, isReading_ ? start_ : 0);
        endCurrent(end);
        endMultiparts(found.kind == Kind::Part ? found.level + 1 : found.level, end);
        if (found.kind == Kind::End) {
            continue;
        }
        entities_[open_[found.level].entity].isMultipart = true;
        if (texts_ >= limits_.value(MailLimit::Parts)) {
            pending_ = found.level;
            return;
        }
        addPart(found.level);
    }
    isDone_ = true;
    endCurrent(lines_.bytes().size());
    endMultiparts(0, lines_.bytes().size());
}

std::vector<MimeEntity> MimeStructure::next() {
    if (isDone_) {
        return {};
    }
    const bool isFurther = pending_ != kNoLevel;
    if (isFurther) {
        addPart(std::exchange(pending_, kNoLevel));
    }
    readLines();
    if (isFurther && texts_ > 0) {
        hits_.insert(MailLimit::Parts);
    }
    return takeTable();
}

} // namespace Corvane
