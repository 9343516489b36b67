#include "host/parser/MimeStructure.h"

#include <cstdint>
#include <string>
#include <utility>

#include "host/parser/Budget.h"

namespace Corvane {

namespace {

constexpr std::string_view kDashes = "--";

// What a line takes besides its bytes, in units of work of a budget.
constexpr std::uint64_t kLineWork = 32;

bool s_isBlank(std::string_view text) {
    return text.find_first_not_of(" \t\r") == std::string_view::npos;
}

class StructureReader {
public:
    StructureReader(std::string_view message, const LineReader &lines, HeaderBlockReader &blocks,
                    const MailLimits &limits, MailLimitSet &hits)
        : message_(message), lines_(lines), blocks_(blocks), limits_(limits), hits_(hits) {}

    std::vector<MimeEntity> read(const HeaderContainer &headers);

private:
    // A multipart whose parts are being read.
    struct Open {
        std::size_t entity;
        std::string delimiter;
    };
    enum class Kind { Text, Part, End };
    // What a line is, and the place of its multipart in open_.
    struct Line {
        Kind kind;
        std::size_t level;
    };

    Line lineKind(std::string_view line) const;
    void addEntity(const HeaderContainer &headers, std::size_t parent);
    void addPart(std::size_t level);
    void endCurrent(std::size_t end);
    void endMultiparts(std::size_t level, std::size_t end);

    std::string_view message_;
    LineReader lines_;
    HeaderBlockReader &blocks_;
    const MailLimits &limits_;
    MailLimitSet &hits_;
    std::vector<MimeEntity> entities_;
    std::vector<Open> open_;
    // Where the content of each entity starts, by its place in the table.
    std::vector<std::size_t> starts_;
    // Whether the last entity's content is still being read: not so behind the end of a multipart.
    bool reading_ = false;
};

// Innermost multipart first; the boundary must be the whole line, but for white space.
StructureReader::Line StructureReader::lineKind(std::string_view line) const {
    if (line.substr(0, kDashes.size()) != kDashes) {
        return {Kind::Text, 0};
    }
    for (std::size_t level = open_.size(); level-- > 0;) {
        const std::string &delimiter = open_[level].delimiter;
        if (line.substr(0, delimiter.size()) != delimiter) {
            continue;
        }
        const std::string_view rest = line.substr(delimiter.size());
        if (s_isBlank(rest)) {
            return {Kind::Part, level};
        }
        if (rest.substr(0, kDashes.size()) == kDashes && s_isBlank(rest.substr(kDashes.size()))) {
            return {Kind::End, level};
        }
    }
    return {Kind::Text, 0};
}

void StructureReader::addEntity(const HeaderContainer &headers, std::size_t parent) {
    const std::size_t place = entities_.size();
    entities_.push_back({parent, mimeContentOf(headers), std::string_view(), false});
    starts_.push_back(lines_.offset());
    reading_ = true;
    MimeEntity &entity = entities_.back();
    const bool inDigest = place != parent && entities_[parent].content.subtype == "digest";
    if (inDigest && headers.find("Content-Type").isNull()) {
        entity.content.type = "message";
        entity.content.subtype = "rfc822";
    }
    if (entity.content.type != "multipart" || entity.content.boundary.empty()) {
        return;
    }
    if (open_.size() == limits_.value(MailLimit::NestingDepth)) {
        hits_.insert(MailLimit::NestingDepth);
        entity.content.isAttachment = true;
        return;
    }
    open_.push_back({place, std::string(kDashes) + entity.content.boundary});
}

void StructureReader::addPart(std::size_t level) {
    const std::size_t parent = open_[level].entity;
    const HeaderContainer headers = blocks_.read(
        lines_, [this](std::string_view line) { return lineKind(line).kind != Kind::Text; });
    addEntity(headers, parent);
}

void StructureReader::endCurrent(std::size_t end) {
    if (reading_) {
        const std::size_t start = starts_.back();
        entities_.back().bytes = message_.substr(start, end - start);
        reading_ = false;
    }
}

// Closes the multiparts from a level on; one that had no part keeps its text up to here.
void StructureReader::endMultiparts(std::size_t level, std::size_t end) {
    while (open_.size() > level) {
        const std::size_t start = starts_[open_.back().entity];
        entities_[open_.back().entity].bytes = message_.substr(start, end - start);
        open_.pop_back();
    }
}

std::vector<MimeEntity> StructureReader::read(const HeaderContainer &headers) {
    addEntity(headers, 0);
    std::string_view line;
    for (std::size_t start = lines_.offset();
         !open_.empty() && lines_.next(line) && !Budget::spend(line.size() + kLineWork);
         start = lines_.offset()) {
        const Line found = lineKind(line);
        if (found.kind == Kind::Text) {
            continue;
        }
        const std::size_t end = lines_.endBefore(start, reading_ ? starts_.back() : 0);
        endCurrent(end);
        endMultiparts(found.kind == Kind::Part ? found.level + 1 : found.level, end);
        if (found.kind == Kind::End) {
            continue;
        }
        entities_[open_[found.level].entity].isMultipart = true;
        if (entities_.size() == limits_.value(MailLimit::Parts)) {
            hits_.insert(MailLimit::Parts);
            break;
        }
        addPart(found.level);
    }
    endCurrent(message_.size());
    endMultiparts(0, message_.size());
    return std::move(entities_);
}

} // namespace

std::vector<MimeEntity> mimeStructureOf(const HeaderContainer &headers, std::string_view message,
                                        LineReader lines, HeaderBlockReader &blocks,
                                        const MailLimits &limits, MailLimitSet &hits) {
    StructureReader reader(message, lines, blocks, limits, hits);
    std::vector<MimeEntity> entities = reader.read(headers);
    for (MimeEntity &entity : entities) {
        if (entity.content.type == "multipart" && !entity.isMultipart) {
            entity.content.type = "text";
            entity.content.subtype = "plain";
        }
    }
    return entities;
}

} // namespace Corvane
