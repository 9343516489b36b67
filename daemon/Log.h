#ifndef CORVANE_DAEMON_LOG_H
#define CORVANE_DAEMON_LOG_H

// The log: one line for each event to standard error, as logfmt or JSON.
//
//     log.write(LogLine(LogLevel::Info, "message").add("id", id).add("score", score));
//
// Values are whatever clients and messages hold; see escaped() for what becomes of them.
//
// Threads: any, at once; a line is written in one piece.

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Config.h"

namespace Corvane::Milter {

class LogLine {
public:
    // event: what has happened, in one word of the daemon's own.
    LogLine(LogLevel level, std::string_view event);

    // Longer texts than this, in bytes as they are shown, are cut.
    static constexpr std::size_t kMostBytes = 2048;

    // Keys are the daemon's own.
    LogLine &add(const char *key, std::string_view text, std::size_t most = kMostBytes);
    // The text is taken to be escaped already, quotes included.
    LogLine &addEscaped(const char *key, std::string text);
    LogLine &add(const char *key, std::uint64_t number);
    LogLine &add(const char *key, float number);
    // With three decimals, in milliseconds.
    LogLine &addMillis(const char *key, double millis);

    LogLevel level() const { return level_; }
    std::string rendered(LogFormat format) const;

private:
    struct Field {
        const char *key;
        std::string value;
        bool isText;
    };

    LogLevel level_;
    std::vector<Field> fields_;
};

class Log {
public:
    // Standard error, unless another file is given, which stays the caller's.
    explicit Log(int file = 2) : file_(file) {}

    void configure(LogFormat format, LogLevel level) {
        format_ = format;
        level_ = level;
    }
    LogLevel level() const { return level_; }
    void level(LogLevel level) { level_ = level; }

    // Lines of a level beyond the one that is set are dropped; so is what cannot be written.
    void write(const LogLine &line) const;

private:
    int file_;
    std::atomic<LogFormat> format_{LogFormat::Logfmt};
    std::atomic<LogLevel> level_{LogLevel::Info};
};

} // namespace Corvane::Milter

#endif
