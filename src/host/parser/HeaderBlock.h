#ifndef CORVANE_SRC_HOST_PARSER_HEADERBLOCK_H
#define CORVANE_SRC_HOST_PARSER_HEADERBLOCK_H

// Header blocks of a message and its parts, read line by line and tolerant of what mail software
// writes against the rules.
//
// Threads: one thread at a time.

#include <cstddef>
#include <functional>
#include <string_view>

#include "host/parser/Header.h"
#include "host/parser/MailLimits.h"

namespace Corvane {

// Walks over lines that end in LF or CR LF; in CR where the text holds no LF at all. Cheap to copy,
// to look ahead. The bytes belong to the caller.
class LineReader {
public:
    explicit LineReader(std::string_view bytes);

    // Gives the next line without its end, false at the end of the bytes.
    bool next(std::string_view &line);

    // Where the next line starts, and a way back there.
    std::size_t offset() const { return offset_; }
    void offset(std::size_t offset) { offset_ = offset; }

    // Where the line before the one at start ends, without its line end; at least from.
    std::size_t endBefore(std::size_t start, std::size_t from) const;

private:
    std::string_view bytes_;
    std::size_t offset_;
    char lineEnd_;
};

// Whether the next line starts or continues a header.
bool startsHeader(LineReader lines);

class HeaderBlockReader {
public:
    // Notes the limits it runs into in hits. Both must outlive the reader. The bytes of all blocks
    // that are read count together.
    HeaderBlockReader(const MailLimits &limits, MailLimitSet &hits);

    using IsEnd = std::function<bool(std::string_view line)>;
    using OnValue = std::function<void(std::string_view value)>;

    // Reads the block at lines, values unfolded, and leaves lines at the body: behind an empty
    // line, or at a line that isEnd accepts, or at one that belongs to no header where none follows
    // soon. Such lines between headers are passed over. onValue, where it is given, sees each value
    // before it is cut to its limit.
    HeaderContainer read(LineReader &lines, const IsEnd &isEnd, const OnValue &onValue = {});

private:
    class Builder;

    std::string_view withinBudget(std::string_view line, std::size_t lineBytes);

    const MailLimits &limits_;
    MailLimitSet &hits_;
    std::size_t bytesLeft_;
};

} // namespace Corvane

#endif
