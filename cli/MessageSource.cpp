#include "MessageSource.h"

#include <algorithm>

#include "Failure.h"

namespace Corvane::Cli {

namespace {

constexpr std::string_view kSeparator = "From ";

bool s_beginsMessage(InputFile &file) {
    const std::string_view ahead = file.ahead(kSeparator.size());
    return ahead.substr(0, kSeparator.size()) == kSeparator;
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
std::string s_fault(const std::string &label, const Buffer &bytes) {
    const std::string called = label == kStandardInput ? "standard input" : "'" + label + "'";
    if (bytes.isEmpty()) {
        return called + " is empty; a message has at least a header";
    }
    const unsigned char *end = bytes.data() + bytes.length();
    if (std::all_of(bytes.data(), end, [](unsigned char byte) { return byte == 0; })) {
        return called + " is no message: it holds nothing but NUL bytes";
    }
    return {};
}

} // namespace

std::string MessageSource::label(const std::string &file, std::size_t index) {
    return index == 0 ? file : file + " #" + std::to_string(index);
}

MessageSource::MessageSource(const std::vector<std::string> &arguments, unsigned int maxBytes)
    : files_(arguments), maxBytes_(maxBytes) {}

std::optional<RawMessage> MessageSource::next() {
    RawMessage message;
    try {
        if (open_ == nullptr) {
            index_ = 0;
            if (!files_.next(message.file)) {
                return {};
            }
            open_ = std::make_unique<InputFile>(message.file);
        }
        message = s_beginsMessage(*open_) ? readFromMbox() : read(open_->name());
        message.failure = s_fault(label(message.file, message.index), message.bytes);
    } catch (const Exception &failure) {
        message.failure = readable(failure);
        message.file = open_ == nullptr ? message.file : open_->name();
        message.index = index_;
        open_.reset();
    }
    return message;
}

RawMessage MessageSource::read(const std::string &name) {
    RawMessage message{name, 0, {}, {}};
    while (message.bytes.length() <= maxBytes_) {
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

RawMessage MessageSource::readFromMbox() {
    RawMessage message{open_->name(), ++index_, {}, {}};
    readLine(nullptr);
    // An empty line is the message's own only once another line than a separator follows.
    std::string gap;
    while (!open_->ahead(1).empty()) {
        if (!gap.empty() && s_beginsMessage(*open_)) {
            return message;
        }
        keep(message.bytes, gap);
        gap = s_emptyLine(*open_);
        if (gap.empty()) {
            readLine(&message.bytes);
        } else {
            open_->take(gap.size());
        }
    }
    open_.reset();
    return message;
}

// A line may be as long as the file: it is moved in pieces.
void MessageSource::readLine(Buffer *line) {
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

void MessageSource::keep(Buffer &bytes, std::string_view more) const {
    const std::size_t room = maxBytes_ + 1 - std::min<std::size_t>(bytes.length(), maxBytes_ + 1);
    const std::size_t count = std::min(room, more.size());
    bytes.append(reinterpret_cast<const unsigned char *>(more.data()),
                 static_cast<unsigned int>(count));
}

} // namespace Corvane::Cli
