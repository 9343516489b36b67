#ifndef CORVANE_DAEMON_METRICS_H
#define CORVANE_DAEMON_METRICS_H

// What the daemon counts, in the text format that Prometheus scrapes. docs/operating.md has the list.
//
// Threads: any, at once.

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "Scoring.h"

namespace Corvane::Milter {

class Metrics {
public:
    Metrics();
    Metrics(const Metrics &) = delete;
    Metrics &operator=(const Metrics &) = delete;
    ~Metrics();

    // A message has come whole; what is received and never scored shows as the difference.
    void received();

    // What became of it. action: the configuration's word, or "tempfail"; took: since its sender
    // was told.
    void scored(const Scored &scored, std::string_view action, std::chrono::nanoseconds took);

    // What was scored, but the mail server could not be told of: it is put off.
    void putOff();

    // A connection beyond those that there may be.
    void refused();

    // What a set on trial made of a message: "same", "clean_to_hit", "hit_to_clean", or why there is
    // nothing to compare.
    void shadowed(std::string_view result);

    // result: as Reloader names it.
    void reloaded(std::string_view result);

    // The rules in place, from the start and with each reload. Counts of rules that are not among
    // them end.
    void generation(const corvane::RuleSet &rules);

    struct Moment {
        unsigned int sessions = 0;
        unsigned int messages = 0;
        // Lines of the log that were left out, so far.
        std::uint64_t droppedLines = 0;
    };

    // All of it in the text format, with what can only be told of a moment.
    std::string text(const Moment &now);

private:
    struct Families;

    std::unique_ptr<Families> families_;
};

// The memory of the process that is resident, in bytes; 0 where the system does not tell.
std::size_t residentBytes();

} // namespace Corvane::Milter

#endif
