#ifndef CORVANE_DAEMON_LIVE_H
#define CORVANE_DAEMON_LIVE_H

// What the daemon works with at the moment: a configuration and the rules that it names, which are
// replaced together and never changed.
//
// Threads: any, at once. A message keeps what it has taken to its end.

#include <cstddef>
#include <memory>
#include <mutex>
#include <utility>

#include "Config.h"
#include "corvane/RuleSet.h"

namespace Corvane::Milter {

struct Setup {
    Config config;
    corvane::RuleSet rules;
    // On trial; empty where there is none.
    corvane::RuleSet shadow;
    // Of the files that the rules were made of, and of memory that they took, in bytes.
    std::size_t fileBytes = 0;
    std::size_t memoryBytes = 0;
};

using SetupRef = std::shared_ptr<const Setup>;

class Live {
public:
    explicit Live(SetupRef first) : current_(std::move(first)) {}

    SetupRef current() const {
        const std::lock_guard<std::mutex> lock(guard_);
        return current_;
    }

    void replace(SetupRef next) {
        // Swapped, so that the old rules are freed behind the lock, which takes a while.
        const std::lock_guard<std::mutex> lock(guard_);
        current_.swap(next);
    }

private:
    mutable std::mutex guard_;
    SetupRef current_;
};

} // namespace Corvane::Milter

#endif
