#ifndef CORVANE_CLI_LOGSUMMARY_H
#define CORVANE_CLI_LOGSUMMARY_H

// Takes the log over while the command runs, counts equal records, and shows each kind once: a
// large rule set may log the same fault for a thousand rules. That a set was loaded is no news and
// is dropped.
//
// Threads: records may come from any thread.

#include <cstddef>
#include <map>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "host/parser/Logger.h"
#include "host/parser/Mutex.h"

namespace Corvane::Cli {

class LogSummary {
public:
    LogSummary();
    LogSummary(const LogSummary &) = delete;
    LogSummary &operator=(const LogSummary &) = delete;
    ~LogSummary();

    // Names the directory that rules are loaded from. Records that differ only in the file of this
    // directory, or in the line of it, that they name count as equal; the first place is kept.
    void rules(const std::string &directory);

    // Writes and forgets what has come in so far, a line for each kind of record in the order of
    // their first coming.
    void show(std::ostream &out);

private:
    struct Entry {
        unsigned int id;
        std::string text;
        std::string firstPlace;
        std::size_t count;
    };

    void take(unsigned int id, const std::string &record);

    Mutex mutex_;
    std::string directory_ CORVANE_GUARDED_BY(mutex_);
    std::vector<Entry> entries_ CORVANE_GUARDED_BY(mutex_);
    std::map<std::pair<unsigned int, std::string>, std::size_t> index_ CORVANE_GUARDED_BY(mutex_);
    Logger::Sink former_;
};

} // namespace Corvane::Cli

#endif
