#ifndef CORVANE_SRC_HOST_PARSER_MIMESTRUCTURE_H
#define CORVANE_SRC_HOST_PARSER_MIMESTRUCTURE_H

// The parts of a message as flat tables, found in one pass over its lines.
//
// A tree builder makes objects for as many parts as a hostile message holds before anyone can count
// them. To stop it in time one must find the same boundaries that it finds, and where the two
// disagree a message can hide text. So the boundaries are found here, once, and what nobody reads
// is forgotten as it is found: empty parts, pictures and attachments cost nothing and hide nothing.
//
//     MimeStructure structure(content, lines, limits, hits);
//     for (auto table = structure.next(); !table.empty(); table = structure.next()) { ... }
//
// Threads: one thread at a time.

#include <cstddef>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "host/parser/HeaderBlock.h"
#include "host/parser/KeyedHash.h"
#include "host/parser/MailLimits.h"
#include "host/parser/MimeContent.h"

namespace Corvane {

struct MimeEntity {
    // The entity's own place in the table where there is no parent.
    std::size_t parent;
    MimeContent content;
    // The encoded content between the headers and the next boundary, a part of the message's bytes.
    std::string_view bytes;
    // Has parts, which follow in the table.
    bool isMultipart;
};

class MimeStructure {
public:
    // Of the message over whose bytes lines walks, and whose headers, which say what content is,
    // have been read. Limits it runs into are noted in hits. Everything is borrowed.
    MimeStructure(MimeContent content, const LineReader &lines, const MailLimits &limits,
                  MailLimitSet &hits);

    // The next table: the message itself, or the multiparts around what follows, and then parts
    // that hold text or a message. It is the only one unless the message has more of them than the
    // limit on parts says, and empty when there is nothing left or the thread's budget has ended.
    //
    // A multipart without a boundary, or without a part, is a text of its own. The parts of one
    // that is nested too deep stand as though they were those of the innermost one that is not. All
    // tables together take time linear in the message.
    std::vector<MimeEntity> next();

private:
    // A multipart whose parts are being read.
    struct Open {
        std::size_t entity;
        std::size_t start;
        std::vector<std::string> boundaries;
    };
    enum class Kind { Text, Part, End };
    // What a line is, and the place of its multipart in open_.
    struct Line {
        Kind kind;
        std::size_t level;
    };
    // By a boundary, which is the text of one that is open; innermost multipart last.
    using Levels = std::unordered_map<std::string_view, std::vector<std::size_t>, KeyedHash>;

    Line lineKind(std::string_view line) const;
    std::size_t levelOf(std::string_view boundary) const;
    std::size_t parentAt(std::size_t level) const;
    std::vector<MimeEntity> takeTable();
    std::size_t skipText();
    void readLines();
    void addEntity(MimeContent described, std::size_t parent);
    void addPart(std::size_t level);
    void open(std::size_t place);
    std::size_t replaceInnermost(std::size_t place);
    void closeInnermost();
    void endCurrent(std::size_t end);
    void endMultiparts(std::size_t level, std::size_t end);
    void keepOrForgetLast();

    LineReader lines_;
    const MailLimits &limits_;
    MailLimitSet &hits_;
    std::vector<MimeEntity> entities_;
    std::vector<Open> open_;
    Levels levels_;
    std::size_t longestBoundary_ = 0;
    // Where the content of the last entity starts, and whether it is still being read: not so
    // behind the end of a multipart.
    std::size_t start_;
    bool isReading_ = false;
    // Of the table: the parts that hold text, and those that are blank.
    std::size_t texts_ = 0;
    std::size_t blanks_ = 0;
    // The level of a part whose boundary was read already; kNoLevel where there is none.
    std::size_t pending_;
    bool isDone_ = false;
};

} // namespace Corvane

#endif
