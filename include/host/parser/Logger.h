#ifndef CORVANE_HOST_PARSER_LOGGER_H
#define CORVANE_HOST_PARSER_LOGGER_H

// The log of the process. Every record has an identifier and a text; a program that embeds the
// libraries may take the records over with a sink of its own:
//
//     Logger::instance(false).sink(
//         [](unsigned int id, int level, const std::string &text) { ... });
//
// Without one, records go to syslog, facility mail.
//
// Threads: any number at once. The sink is called on the thread that logs, outside the lock, and
// may therefore run on several threads at the same time, and shortly after it was replaced.

#include <functional>
#include <memory>
#include <string>

#include "host/parser/Export.h"
#include "host/parser/Mutex.h"

namespace Corvane {

class CORVANE_PARSER_API Logger {
public:
    // Receives the record's identifier, its level (0 throughout this system) and its formatted
    // text, in which fields are separated by byte 1. What it throws is dropped.
    using Sink = std::function<void(unsigned int id, int level, const std::string &text)>;

    // The one log of the process, alive until its static objects are destroyed. The argument has no effect.
    static Logger &instance(bool);

    Logger(const Logger &) = delete;
    Logger &operator=(const Logger &) = delete;
    virtual ~Logger();

    // Formats a record of any length as printf does and hands it to the sink. Never throws for what
    // the sink does.
    virtual void log(unsigned int id, int level, const char *format, ...)
        __attribute__((format(printf, 4, 5)));

    // Replaces the sink; an empty function restores syslog. Answers the former one (empty: syslog).
    Sink sink(Sink replacement);

    // The text as one printable line: byte 1 becomes a blank, any other control byte is written as
    // \xNN.
    static std::string printable(const std::string &text);

private:
    Logger();

    Mutex mutex_;
    std::shared_ptr<const Sink> sink_ CORVANE_GUARDED_BY(mutex_);
};

} // namespace Corvane

#endif
