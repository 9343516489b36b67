#ifndef CORVANE_DAEMON_LOGWRITER_H
#define CORVANE_DAEMON_LOGWRITER_H

// Writes the lines of the log on a thread of its own, so that a reader of the log which stands still
// stops nobody: what does not fit into the memory for waiting lines is left out and counted.
//
// Threads: any, at once.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace Corvane::Milter {

class LogWriter {
public:
    // The lines that wait take no more bytes than this, and a destructor waits no longer for them to
    // be written.
    static constexpr std::size_t kMostBytes = 4U << 20U;
    static constexpr std::chrono::seconds kFarewell{2};

    // file stays the caller's, and open for kFarewell more if nobody reads from it. notice: the line
    // that stands where so many were left out.
    LogWriter(int file, std::function<std::string(std::uint64_t)> notice);
    LogWriter(const LogWriter &) = delete;
    LogWriter &operator=(const LogWriter &) = delete;
    ~LogWriter();

    // Never waits. The line has its end.
    void write(std::string line);

    // Waits until all lines are written that wait, but no longer than kFarewell.
    void flush();

    // Lines that were left out so far.
    std::uint64_t dropped() const;

private:
    struct Queue;

    static void work(const std::shared_ptr<Queue> &queue);

    // The thread's as well, which may be stuck in a write when this object goes.
    std::shared_ptr<Queue> queue_;
};

} // namespace Corvane::Milter

#endif
