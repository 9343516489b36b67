#include "host/parser/Logger.h"

#include <array>
#include <cstdarg>
#include <cstdio>

#include <syslog.h>

namespace Corvane {

namespace {

constexpr char kFieldSeparator = '\x01';

// Records that are not mere warnings about a rule or a message.
constexpr unsigned int kIdRulesLoaded = 0x300002C;
constexpr unsigned int kIdNotReady = 0x300002D;
constexpr unsigned int kIdLoadFailed = 0x300002E;

// The priority comes from the identifier: the level is 0 for every record, which syslog would take
// for an emergency.
int s_priority(unsigned int id) {
    switch (id) {
    case kIdRulesLoaded:
        return LOG_INFO;
    case kIdNotReady:
    case kIdLoadFailed:
        return LOG_ERR;
    default:
        return LOG_WARNING;
    }
}

void s_syslog(unsigned int id, int /*level*/, const std::string &text) {
    syslog(LOG_MAIL | s_priority(id), "%07X %s", id, Logger::printable(text).c_str());
}

// A format that cannot be expanded is better logged as it stands than lost.
__attribute__((format(printf, 1, 0))) std::string s_format(const char *format, va_list arguments) {
    constexpr std::size_t kUsualLength = 512;
    std::array<char, kUsualLength> usual{};
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(usual.data(), usual.size(), format, arguments);
    std::string text;
    if (length < 0) {
        text = format;
    } else if (static_cast<std::size_t>(length) < usual.size()) {
        text.assign(usual.data(), static_cast<std::size_t>(length));
    } else {
        text.resize(static_cast<std::size_t>(length));
        std::vsnprintf(text.data(), text.size() + 1, format, again);
    }
    va_end(again);
    return text;
}

// Made as the library is loaded, and so destroyed, with the sink, after what programs keep in static
// objects of their own.
[[maybe_unused]] const Logger &s_log = Logger::instance(false);

} // namespace

Logger &Logger::instance(bool /*unused*/) {
    static Logger s_logger;
    return s_logger;
}

Logger::Logger() : sink_(std::make_shared<const Sink>(s_syslog)) {}

Logger::~Logger() = default;

void Logger::log(unsigned int id, int level, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const std::string text = s_format(format, arguments);
    va_end(arguments);

    std::shared_ptr<const Sink> sink;
    {
        Synchronized lock(mutex_);
        sink = sink_;
    }
    try {
        (*sink)(id, level, text);
    } catch (...) {
        // The sink is the embedder's; its failure must not become the failure of a load or a scan.
        (void)0;
    }
}

Logger::Sink Logger::sink(Sink replacement) {
    const bool restore = !replacement;
    auto fresh = std::make_shared<const Sink>(restore ? Sink(s_syslog) : std::move(replacement));
    {
        Synchronized lock(mutex_);
        sink_.swap(fresh);
    }
    using Plain = void (*)(unsigned int, int, const std::string &);
    const Plain *plain = fresh->target<Plain>();
    return plain != nullptr && *plain == s_syslog ? Sink() : *fresh;
}

std::string Logger::printable(const std::string &text) {
    constexpr unsigned char kFirstPrintable = 0x20;
    constexpr unsigned char kDelete = 0x7F;
    constexpr const char *kDigits = "0123456789abcdef";
    std::string line;
    line.reserve(text.size());
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == kFieldSeparator) {
            line += ' ';
        } else if (byte < kFirstPrintable || byte == kDelete) {
            line += {'\\', 'x', kDigits[byte >> 4U], kDigits[byte & 0xFU]};
        } else {
            line += c;
        }
    }
    return line;
}

} // namespace Corvane
