#ifndef CORVANE_CLI_PROGRESS_H
#define CORVANE_CLI_PROGRESS_H

// A line on a terminal that says how far a long scan is.
//
// Threads: one thread.

#include <chrono>
#include <functional>
#include <optional>
#include <ostream>

#include "Report.h"

namespace Corvane::Cli {

class Progress {
public:
    using Time = std::chrono::steady_clock::time_point;
    using Clock = std::function<Time()>;

    // How long a scan is silent, and how often the line is renewed after that.
    static constexpr std::chrono::milliseconds kSilence{1000};
    static constexpr std::chrono::milliseconds kInterval{200};

    enum class Mode { Off, On };

    // out is a terminal, or anything with Mode::Off. now is for tests.
    Progress(std::ostream &out, Mode mode, Clock now = std::chrono::steady_clock::now);
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    // Takes the line away.
    ~Progress();

    // Renews the line where it is time to. share, of what there is to do, is done where it is known,
    // and from that the time that is left.
    void step(const Totals &totals, std::optional<double> share = {});

    // Takes the line away until the next step that renews it; to be called before anything else is
    // written to the terminal.
    void clear();

private:
    std::ostream &out_;
    Mode mode_;
    Clock now_;
    Time start_;
    Time next_;
    bool shown_ = false;
};

} // namespace Corvane::Cli

#endif
