#include "host/parser/HeaderBlock.h"

#include <algorithm>
#include <string>
#include <utility>

#include "host/parser/Text.h"

namespace Corvane {

namespace {

constexpr std::size_t kNone = std::string_view::npos;

bool s_isContinuation(std::string_view line) {
    return line.front() == ' ' || line.front() == '\t';
}

// Length of the header name in front of a colon, without the blanks that some write before the
// colon; 0 where the line starts no header.
std::size_t s_nameLength(std::string_view line) {
    const auto end = std::find_if(line.begin(), line.end(), [](char c) {
        constexpr char kDelete = 0x7F;
        return c <= ' ' || c >= kDelete || c == ':';
    });
    const auto length = static_cast<std::size_t>(end - line.begin());
    const std::size_t colon = line.find_first_not_of(" \t", length);
    return colon != kNone && line[colon] == ':' ? length : 0;
}

bool s_isBlank(std::string_view line) {
    return line.find_first_not_of(" \t") == kNone;
}

// Moves on to the next header where one follows within a few lines and before an empty one. More
// lines than that are rather a body without an empty line before it.
bool s_skipStrayLines(LineReader &lines, const HeaderBlockReader::IsEnd &isEnd) {
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

} // namespace

bool startsHeader(LineReader lines) {
    std::string_view line;
    return lines.next(line) && !line.empty() && (s_isContinuation(line) || s_nameLength(line) != 0);
}

LineReader::LineReader(std::string_view bytes)
    : bytes_(bytes), offset_(0), lineEnd_(bytes.find('\n') == kNone ? '\r' : '\n') {}

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

// Puts lines together to headers.
class HeaderBlockReader::Builder {
public:
    Builder(const MailLimits &limits, MailLimitSet &hits, const OnValue &onValue)
        : limits_(limits), hits_(hits), onValue_(onValue) {}

    bool isEmpty() const { return name_.empty(); }

    void start(std::string_view line, std::size_t nameLength) {
        finish();
        name_ = line.substr(0, nameLength);
        const std::size_t colon = line.find(':', nameLength);
        append(colon == kNone ? std::string_view() : line.substr(colon + 1));
    }

    void append(std::string_view text) {
        if (value_.empty()) {
            text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
        }
        value_.append(text);
    }

    HeaderContainer take() {
        finish();
        return std::move(headers_);
    }

private:
    void finish() {
        if (name_.empty()) {
            return;
        }
        if (count_ == limits_.value(MailLimit::Headers)) {
            hits_.insert(MailLimit::Headers);
        } else {
            ++count_;
            if (onValue_) {
                onValue_(value_);
            }
            if (value_.size() > limits_.value(MailLimit::HeaderValueBytes)) {
                hits_.insert(MailLimit::HeaderValueBytes);
                value_.resize(limits_.value(MailLimit::HeaderValueBytes));
            }
            headers_.append(Header(name_, value_));
        }
        value_.clear();
    }

    const MailLimits &limits_;
    MailLimitSet &hits_;
    const OnValue &onValue_;
    HeaderContainer headers_;
    unsigned int count_ = 0;
    std::string name_;
    std::string value_;
};

HeaderBlockReader::HeaderBlockReader(const MailLimits &limits, MailLimitSet &hits)
    : limits_(limits), hits_(hits), bytesLeft_(limits.value(MailLimit::HeaderBytes)) {}

// What the limit leaves of a line that takes lineBytes with its end.
std::string_view HeaderBlockReader::withinBudget(std::string_view line, std::size_t lineBytes) {
    if (lineBytes > bytesLeft_) {
        hits_.insert(MailLimit::HeaderBytes);
        line = line.substr(0, bytesLeft_);
    }
    bytesLeft_ -= std::min(lineBytes, bytesLeft_);
    return line;
}

HeaderContainer HeaderBlockReader::read(LineReader &lines, const IsEnd &isEnd,
                                        const OnValue &onValue) {
    Builder builder(limits_, hits_, onValue);
    std::string_view line;
    for (std::size_t start = lines.offset(); lines.next(line) && !line.empty();
         start = lines.offset()) {
        if (isEnd(line)) {
            lines.offset(start);
            break;
        }
        const std::size_t name = s_nameLength(line);
        const bool continues = s_isContinuation(line) && !builder.isEmpty();
        if (continues && s_isBlank(line) && !startsHeader(lines)) {
            break;
        }
        if (name == 0 && !continues) {
            lines.offset(start);
            if (builder.isEmpty() || !s_skipStrayLines(lines, isEnd)) {
                break;
            }
            continue;
        }
        const std::string_view kept = withinBudget(line, lines.offset() - start);
        if (continues) {
            builder.append(kept);
        } else if (kept.size() >= name) {
            builder.start(kept, name);
        }
    }
    return builder.take();
}

} // namespace Corvane
