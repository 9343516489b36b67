#include "MessageSource.h"

#include <algorithm>
#include <new>

#include "Failure.h"
#include "MailboxMark.h"

namespace Corvane::Cli {

namespace {

bool s_beginsMessage(InputFile &file) {
    // Most lines are told by their first bytes.
    if (file.ahead(kMarkStart.size()).substr(0, kMarkStart.size()) != kMarkStart) {
        return false;
    }
    const std::string_view ahead = file.ahead(kMaxMarkBytes).substr(0, kMaxMarkBytes);
    const std::size_t end = ahead.find('\n');
    const bool isWhole = end != std::string_view::npos || ahead.size() < kMaxMarkBytes;
    return isWhole && isMailboxMark(ahead.substr(0, end));
}

// The empty line that comes next, "" where another one does.
std::string s_emptyLine(InputFile &file) {
    for (const std::string_view end : {"\n", "\r\n"}) {
        if (file.ahead(end.size()).substr(0, end.size()) == end) {
            return std::string(end);
        }
    }
    return {};
}

// What is wrong with a message as a whole; "" where nothing is.
std::string s_fault(const std::string &label, const std::string &bytes) {
    const std::string called = label == kStandardInput ? "standard input" : "'" + label + "'";
    if (bytes.empty()) {
        return called + " is empty; a message has at least a header";
    }
    if (bytes.find_first_not_of('\0') == std::string::npos) {
        return called + " is no message: it holds nothing but NUL bytes";
    }
    return {};
}

} // namespace

std::string MessageSource::label(const std::string &file, std::size_t index) {
    return index == 0 ? file : file + " #" + std::to_string(index);
}

MessageSource::MessageSource(const std::vector<std::string> &arguments,
                             const std::vector<std::string> &include, unsigned int maxBytes)
    : files_(arguments, include), maxBytes_(maxBytes) {}

std::optional<RawMessage> MessageSource::next() {
    std::optional<RawMessage> message;
    while (!message.has_value() && !isAtEnd_) {
        message = readNext();
    }
    return message;
}

// None at the end, and where the message is not wanted.
std::optional<RawMessage> MessageSource::readNext() {
    std::string file;
    std::optional<RawMessage> message;
    try {
        if (open_ == nullptr) {
            index_ = 0;
            isAtEnd_ = !files_.next(file);
            if (isAtEnd_) {
                return {};
            }
            open_ = std::make_unique<InputFile>(file);
        }
        message = s_beginsMessage(*open_) ? readFromMbox() : read(open_->name());
        if (message.has_value()) {
            message->failure = s_fault(label(message->file, message->index), message->bytes);
        }
    } catch (const Exception &failure) {
        message = failed(file, readable(failure));
    } catch (const std::bad_alloc &) {
        message = failed(file, {});
        message->failure = "cannot read '" + message->file + "': " + kOutOfMemory;
    }
    return message;
}

bool MessageSource::isWanted(const std::string &file, std::size_t index) const {
    return !wanted_ || wanted_(file, index);
}

RawMessage MessageSource::failed(const std::string &file, const std::string &reason) {
    RawMessage message{open_ == nullptr ? file : open_->name(), index_, {}, reason};
    open_.reset();
    return message;
}

std::optional<RawMessage> MessageSource::read(const std::string &name) {
    RawMessage message{name, 0, {}, {}};
    if (!isWanted(name, 0)) {
        open_.reset();
        return {};
    }
    while (message.bytes.size() <= maxBytes_) {
        const std::string_view bytes = open_->ahead(1);
        if (bytes.empty()) {
            break;
        }
        keep(message.bytes, bytes);
        open_->take(bytes.size());
    }
    open_.reset();
    return message;
}

std::optional<RawMessage> MessageSource::readFromMbox() {
    RawMessage message{open_->name(), ++index_, {}, {}};
    const bool isKept = isWanted(message.file, message.index);
    readLine(nullptr);
    // An empty line is the message's own only once another line than a mark follows.
    std::string gap;
    while (!open_->ahead(1).empty()) {
        if (!gap.empty() && s_beginsMessage(*open_)) {
            return isKept ? std::make_optional(std::move(message)) : std::nullopt;
        }
        keep(message.bytes, gap);
        gap = s_emptyLine(*open_);
        if (gap.empty()) {
            readLine(isKept ? &message.bytes : nullptr);
        } else {
            open_->take(gap.size());
        }
    }
    open_.reset();
    return isKept ? std::make_optional(std::move(message)) : std::nullopt;
}

// A line may be as long as the file: it is moved in pieces.
void MessageSource::readLine(std::string *line) {
    bool ended = false;
    while (!ended) {
        const std::string_view bytes = open_->ahead(1);
        const std::size_t end = std::min(bytes.find('\n'), bytes.size() - 1);
        ended = bytes.empty() || bytes[end] == '\n';
        const std::size_t count = bytes.empty() ? 0 : end + 1;
        if (line != nullptr) {
            keep(*line, bytes.substr(0, count));
        }
        open_->take(count);
    }
}

void MessageSource::keep(std::string &bytes, std::string_view more) const {
    bytes.append(more.substr(0, maxBytes_ + 1 - std::min(bytes.size(), maxBytes_ + 1)));
}

} // namespace Corvane::Cli
