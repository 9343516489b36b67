#ifndef CORVANE_SRC_HOST_PARSER_HEADERBLOCK_H
#define CORVANE_SRC_HOST_PARSER_HEADERBLOCK_H

// Header blocks of a message and its parts, read line by line and tolerant of what mail software
// writes against the rules. Headers are given as they stand in the message, so that a block costs
// no memory, however long it is and whatever it holds; who needs a header takes a copy of as much
// as he believes.
//
// Threads: one thread at a time.

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

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

    // Moves on to the next line that begins with "--", if this one does not, or to the end.
    void skipToDashes();

    // Where the line before the one at start ends, without its line end; at least from.
    std::size_t endBefore(std::size_t start, std::size_t from) const;

    // Walks over other bytes, which end their lines like these.
    LineReader over(std::string_view bytes) const;

    std::string_view bytes() const { return bytes_; }

private:
    LineReader(std::string_view bytes, char lineEnd);

    std::string_view bytes_;
    std::size_t offset_;
    char lineEnd_;
};

// Passes over what may stand before the first header of a message: a byte order mark, and the line
// that marks the start of a message in a mailbox file.
void skipEnvelope(LineReader &lines);

// A header as it stands in the message.
struct ReceivedHeader {
    std::string_view name;
    // Everything behind the colon, with the line ends of a folded value but the last.
    LineReader value;

    // The value unfolded, without the blanks in front of it; at most maxBytes of it, and one byte
    // more where there is more.
    std::string unfolded(std::size_t maxBytes) const;
};

using IsHeaderEnd = std::function<bool(std::string_view line)>;
using OnHeader = std::function<void(const ReceivedHeader &header)>;

// Gives each header of the block at lines to onHeader, and leaves lines at the body: behind an
// empty line, or at a line that isEnd accepts, or at one that belongs to no header where none
// follows soon. Such lines between headers are passed over. Takes time linear in the block.
void readHeaderBlock(LineReader &lines, const IsHeaderEnd &isEnd, const OnHeader &onHeader);

} // namespace Corvane

#endif
