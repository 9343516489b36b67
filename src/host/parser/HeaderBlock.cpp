#include "host/parser/HeaderBlock.h"

#include <algorithm>
#include <cstdint>

#include "host/parser/Budget.h"
#include "host/parser/ByteScan.h"
#include "host/parser/ByteSet.h"

namespace Corvane {

namespace {

constexpr std::size_t kNone = std::string_view::npos;
constexpr ByteSet kBlanks = byteSet(" \t");

// How many bytes the name of a header has, if one stands in front.
std::size_t s_nameBytes(std::string_view line) {
    constexpr char kDelete = 0x7F;
    std::size_t at = 0;
#ifdef __SSE2__
    for (; at + kBlockBytes <= line.size(); at += kBlockBytes) {
        const ByteBlock block(line.data() + at);
        if (const unsigned int ends = block.below('!') | block.anyOf<':', kDelete>()) {
            return at + static_cast<std::size_t>(std::countr_zero(ends));
        }
    }
#endif
    while (at < line.size() && line[at] > ' ' && line[at] != kDelete && line[at] != ':') {
        ++at;
    }
    return at;
}

bool s_isContinuation(std::string_view line) {
    return line.front() == ' ' || line.front() == '\t';
}

// Length of the header name in front of a colon, without the blanks that some write before the
// colon; 0 where the line starts no header.
std::size_t s_nameLength(std::string_view line) {
    const std::size_t length = s_nameBytes(line);
    const std::size_t colon = findNotIn(kBlanks, line, length);
    return colon < line.size() && line[colon] == ':' ? length : 0;
}

bool s_isBlank(std::string_view line) {
    return findNotIn(kBlanks, line) == line.size();
}

// Moves on to the next header where one follows within a few lines and before an empty one. More
// lines than that are rather a body without an empty line before it.
bool s_skipStrayLines(LineReader &lines, const IsHeaderEnd &isEnd) {
    constexpr int kMaxStrayLines = 8;
    LineReader ahead = lines;
    std::string_view line;
    std::size_t start = ahead.offset();
    for (int count = 0; count <= kMaxStrayLines && ahead.next(line) && !line.empty(); ++count) {
        if (isEnd(line)) {
            return false;
        }
        if (s_nameLength(line) != 0) {
            lines.offset(start);
            return true;
        }
        start = ahead.offset();
    }
    return false;
}

// Whether the next line starts or continues a header.
bool s_startsHeader(LineReader lines) {
    std::string_view line;
    return lines.next(line) && !line.empty() && (s_isContinuation(line) || s_nameLength(line) != 0);
}

} // namespace

LineReader::LineReader(std::string_view bytes)
    : LineReader(bytes, bytes.find('\n') == kNone ? '\r' : '\n') {}

LineReader::LineReader(std::string_view bytes, char lineEnd)
    : bytes_(bytes), offset_(0), lineEnd_(lineEnd) {}

LineReader LineReader::over(std::string_view bytes) const {
    return {bytes, lineEnd_};
}

bool LineReader::next(std::string_view &line) {
    if (offset_ >= bytes_.size()) {
        return false;
    }
    const std::size_t found = bytes_.find(lineEnd_, offset_);
    line = bytes_.substr(offset_, found - offset_);
    offset_ = found == kNone ? bytes_.size() : found + 1;
    if (found != kNone && lineEnd_ == '\n' && !line.empty() && line.back() == '\r') {
        line.remove_suffix(1);
    }
    return true;
}

void LineReader::skipToDashes() {
    constexpr std::string_view kDashes = "--";
    if (bytes_.substr(offset_).starts_with(kDashes)) {
        return;
    }
    const std::size_t size = bytes_.size();
    std::size_t at = offset_;
#ifdef __SSE2__
    for (; at + kDashes.size() + kBlockBytes <= size; at += kBlockBytes) {
        const char *const from = bytes_.data() + at;
        const unsigned int second = ByteBlock(from + 2).anyOf<'-'>();
        if ((ByteBlock(from).anyOf<'\n', '\r'>() & ByteBlock(from + 1).anyOf<'-'>() & second) !=
            0) {
            break;
        }
    }
#endif
    while (at < size && (bytes_[at] != lineEnd_ || !bytes_.substr(at + 1).starts_with(kDashes))) {
        ++at;
    }
    offset_ = std::min(at + 1, size);
}

std::size_t LineReader::endBefore(std::size_t start, std::size_t from) const {
    std::size_t end = start;
    if (end > from && bytes_[end - 1] == lineEnd_) {
        --end;
        if (end > from && bytes_[end - 1] == '\r' && lineEnd_ == '\n') {
            --end;
        }
    }
    return std::max(end, from);
}

void skipEnvelope(LineReader &lines) {
    constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
    constexpr std::string_view kMark = "From ";
    constexpr std::string_view kQuotedMark = ">From ";
    if (lines.bytes().starts_with(kByteOrderMark)) {
        lines.offset(kByteOrderMark.size());
    }
    LineReader behind = lines;
    std::string_view line;
    behind.next(line);
    // A text may begin with the same word.
    if ((line.starts_with(kMark) || line.starts_with(kQuotedMark)) && s_startsHeader(behind)) {
        lines = behind;
    }
}

std::string ReceivedHeader::unfolded(std::size_t maxBytes) const {
    std::string text;
    LineReader lines = value.over(value.bytes());
    std::string_view line;
    while (text.size() <= maxBytes && lines.next(line)) {
        if (text.empty()) {
            line.remove_prefix(findNotIn(kBlanks, line));
            text.reserve(std::min(maxBytes + 1, value.bytes().size()));
        }
        text.append(line, 0, maxBytes + 1 - text.size());
    }
    return text;
}

namespace {

// The header that is being read, by where it stands.
class Current {
public:
    Current(const LineReader &lines, const OnHeader &onHeader)
        : lines_(lines), onHeader_(onHeader) {}

    bool isEmpty() const { return nameLength_ == 0; }

    void start(std::size_t start, std::size_t nameLength, std::size_t end) {
        finish();
        start_ = start;
        nameLength_ = nameLength;
        end_ = end;
    }

    // The header goes on to end.
    void extend(std::size_t end) { end_ = end; }

    void finish() {
        if (nameLength_ == 0) {
            return;
        }
        const std::string_view whole = lines_.bytes().substr(start_, end_ - start_);
        const std::size_t colon = whole.find(':', nameLength_);
        onHeader_({whole.substr(0, nameLength_), lines_.over(whole.substr(colon + 1))});
        nameLength_ = 0;
    }

private:
    const LineReader lines_;
    const OnHeader &onHeader_;
    std::size_t start_ = 0;
    std::size_t nameLength_ = 0;
    std::size_t end_ = 0;
};

} // namespace

void readHeaderBlock(LineReader &lines, const IsHeaderEnd &isEnd, const OnHeader &onHeader) {
    // What a line takes besides its bytes, in units of work of a budget.
    constexpr std::uint64_t kLineWork = 64;
    Current header(lines, onHeader);
    std::string_view line;
    for (std::size_t start = lines.offset(); lines.next(line) && !line.empty();
         start = lines.offset()) {
        Budget::spend(line.size() + kLineWork);
        if (isEnd(line)) {
            lines.offset(start);
            break;
        }
        const std::size_t name = s_nameLength(line);
        const bool continues = s_isContinuation(line) && !header.isEmpty();
        if (continues && s_isBlank(line) && !s_startsHeader(lines)) {
            break;
        }
        if (continues) {
            header.extend(start + line.size());
        } else if (name != 0) {
            header.start(start, name, start + line.size());
        } else {
            lines.offset(start);
            if (header.isEmpty() || !s_skipStrayLines(lines, isEnd)) {
                break;
            }
        }
    }
    header.finish();
}

} // namespace Corvane
