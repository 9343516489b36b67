#ifndef CORVANE_DAEMON_SCORING_H
#define CORVANE_DAEMON_SCORING_H

// What comes of scoring one message, and what is to be done with it.
//
// Threads: free functions without state, and values.

#include <chrono>
#include <string>
#include <string_view>

#include "Live.h"
#include "Profiler.h"
#include "Slots.h"
#include "corvane/MessageCollector.h"
#include "corvane/Verdict.h"

namespace Corvane::Milter {

// What a message's headers, log line and metrics say of it.
enum class Status { Clean, Hit, Error, Skipped };

// Such as "hit"; lives for ever.
std::string_view nameOf(Status status);
std::string_view nameOf(Action action);

// Why a message has no verdict.
enum class Cause {
    None,
    NoRules,  // the set in place is empty
    Busy,     // no scan could begin in time
    Budget,   // the scan ran out of time, undecided
    TooLarge, // the message is longer than what is read of it, undecided
    Internal  // memory ran out, or the like
};

// Such as "too_large", as the configuration calls it; "" for None.
std::string_view nameOf(Cause cause);

struct Scored {
    Status status = Status::Skipped;
    Cause cause = Cause::None;
    // As it is shown.
    float score = 0.0F;
    corvane::Verdict verdict;
    // Of an internal failure, for the log.
    std::string reason;
    // In line for a scan.
    std::chrono::nanoseconds waited{0};

    bool hasVerdict() const { return status == Status::Clean || status == Status::Hit; }
};

// Scans what was collected, as soon as a slot is free, for the profile where that wants it. Throws
// nothing.
Scored score(corvane::MessageCollector &message, const Setup &setup, Slots &slots,
             Profiler &profiler);

// What the configuration wants done.
struct Decision {
    Action action = Action::Tag;
    // Instead of the action: the client shall come again.
    bool tempFail = false;
    // Of a refusal.
    std::string text;
};

Decision decide(const Scored &scored, const Config &config);

} // namespace Corvane::Milter

#endif
