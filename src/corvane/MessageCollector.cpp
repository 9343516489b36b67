#include "corvane/MessageCollector.h"

#include <algorithm>
#include <utility>

namespace corvane {

namespace {

// A buffer that has grown beyond this is given back with its message.
constexpr std::size_t kKeptBytes = 1U << 20U;

} // namespace

MessageCollector::MessageCollector(ScanOptions options) : options_(std::move(options)) {}

void MessageCollector::header(std::string_view name, std::string_view value) {
    add(name);
    add(": ");
    add(value);
    add("\n");
}

void MessageCollector::rawHeader(std::string_view name, std::string_view behindColon) {
    add(name);
    add(":");
    add(behindColon);
    add("\n");
}

void MessageCollector::body(std::string_view bytes) {
    if (!inBody_) {
        inBody_ = true;
        add("\n");
    }
    add(bytes);
}

Verdict MessageCollector::finish(const RuleSet &rules) {
    return finishWith([&] { return rules.scan(bytes_, options_); });
}

Verdict MessageCollector::finish(const RuleSet &rules, RuleProfile &profile) {
    return finishWith([&] { return rules.scan(bytes_, options_, profile); });
}

template <class Scan>
Verdict MessageCollector::finishWith(const Scan &scan) {
    if (heldReturn_) {
        heldReturn_ = false;
        append("\r");
    }
    struct AtEnd {
        MessageCollector &collector;
        ~AtEnd() { collector.reset(); }
    };
    const AtEnd atEnd{*this};
    return scan();
}

void MessageCollector::reset() noexcept {
    if (bytes_.capacity() > kKeptBytes) {
        std::string().swap(bytes_);
    }
    bytes_.clear();
    dropped_ = 0;
    inBody_ = false;
    heldReturn_ = false;
}

void MessageCollector::reset(ScanOptions options) {
    reset();
    options_ = std::move(options);
}

// Appends bytes with LF for CR LF, which may be cut over two pieces.
void MessageCollector::add(std::string_view bytes) {
    if (bytes.empty()) {
        return;
    }
    if (heldReturn_) {
        heldReturn_ = false;
        if (bytes.front() != '\n') {
            append("\r");
        }
    }
    for (std::size_t at = 0; at < bytes.size();) {
        const std::size_t mark = std::min(bytes.find('\r', at), bytes.size());
        append(bytes.substr(at, mark - at));
        if (mark + 1 == bytes.size()) {
            heldReturn_ = true;
        } else if (mark < bytes.size() && bytes[mark + 1] != '\n') {
            append("\r");
        }
        at = mark + 1;
    }
}

void MessageCollector::append(std::string_view bytes) {
    const std::size_t most = std::size_t{std::max(options_.limits.messageBytes, 1U)} + 1;
    const std::size_t taken = std::min(bytes.size(), most - bytes_.size());
    dropped_ += bytes.size() - taken;
    const std::size_t needed = bytes_.size() + taken;
    if (needed > bytes_.capacity()) {
        bytes_.reserve(std::min(most, std::max(needed, 2 * bytes_.capacity())));
    }
    bytes_.append(bytes.substr(0, taken));
}

} // namespace corvane
