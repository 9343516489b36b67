#ifndef CORVANE_CLI_STOPSIGNALS_H
#define CORVANE_CLI_STOPSIGNALS_H

// Lets work that must clean up behind itself stop at a point of its own choice, instead of being
// ended by INT, TERM or HUP wherever it is:
//
//     const StopSignals signals;
//     ... // make something
//     if (signals.haveCome()) { ... } // remove it
//
// Threads: the signals belong to the process, so there is one object at a time.

#include <array>

#include <signal.h>

namespace Corvane::Cli {

class StopSignals {
public:
    // Takes the three signals over; one that is ignored, as under nohup, stays so.
    StopSignals();
    StopSignals(const StopSignals &) = delete;
    StopSignals &operator=(const StopSignals &) = delete;

    // Gives them back.
    ~StopSignals();

    bool haveCome() const;

private:
    static constexpr std::array<int, 3> kSignals = {SIGINT, SIGTERM, SIGHUP};

    std::array<struct sigaction, kSignals.size()> former_{};
};

} // namespace Corvane::Cli

#endif
