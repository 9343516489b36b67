#ifndef CORVANE_DAEMON_LOG_H
#define CORVANE_DAEMON_LOG_H

// The log: one line for each event to standard error, as logfmt or JSON.
//
//     log.write(LogLine(LogLevel::Info, "message").add("id", id).add("score", score));
//
// Values are whatever clients and messages hold; see escaped() for what becomes of them.
//
// Threads: any, at once; the lines are written by a thread of the log's, and nobody waits for it.

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Config.h"
#include "LogWriter.h"

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
    // With commas between them. Those that do not fit into kMostBytes are left out: "+N" at the end
    // is how many. In the names commas and plus signs are escaped as well.
    LogLine &addNames(const char *key, const std::vector<std::string_view> &names);
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
    // Standard error, unless another file is given, which stays the caller's. To be made once the
    // signals are blocked that no thread shall take.
    explicit Log(int file = 2);

    void configure(LogFormat format, LogLevel level) {
        format_ = format;
        level_ = level;
    }
    LogLevel level() const { return level_; }
    void level(LogLevel level) { level_ = level; }

    // Lines of a level beyond the one that is set are dropped; so is what cannot be written. Where
    // more waits to be written than LogWriter keeps, lines are left out, and one says how many.
    void write(const LogLine &line) const;

    // How many those are so far.
    std::uint64_t dropped() const { return writer_.dropped(); }

    // Waits until what was written so far has come out, but not for long.
    void flush() const { writer_.flush(); }

private:
    std::atomic<LogFormat> format_{LogFormat::Logfmt};
    std::atomic<LogLevel> level_{LogLevel::Info};
    mutable LogWriter writer_;
};

} // namespace Corvane::Milter

#endif
