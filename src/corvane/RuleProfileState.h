#ifndef CORVANE_SRC_CORVANE_RULEPROFILESTATE_H
#define CORVANE_SRC_CORVANE_RULEPROFILESTATE_H

// What a RuleProfile is made of, for the scans that fill it.
//
// Threads: any number at once.

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "corvane/LoadedRules.h"
#include "corvane/RuleProfile.h"
#include "corvane/Verdict.h"
#include "heuristic/RuleProfile.h"

namespace corvane {

struct RuleProfile::State {
    State(const RuleSet &set, std::shared_ptr<const LoadedRules> itsRules, Times times)
        : rules(set), loaded(std::move(itsRules)),
          costs(loaded->origins.size(), times == Times::Measured
                                            ? Corvane::Heuristic::RuleProfile::Times::Measured
                                            : Corvane::Heuristic::RuleProfile::Times::LeftOut),
          matches(loaded->origins.size()) {}

    void tripped(unsigned int ordinal) { matches[ordinal].fetch_add(1, std::memory_order_relaxed); }

    void scanned(const Verdict &verdict) {
        messages.fetch_add(1, std::memory_order_relaxed);
        add(readingNanos, verdict.readingTime());
        add(scanningNanos, verdict.scanningTime());
    }

    static void add(std::atomic<std::int64_t> &sum, std::chrono::nanoseconds more) {
        sum.fetch_add(more.count(), std::memory_order_relaxed);
    }

    RuleSet rules;
    std::shared_ptr<const LoadedRules> loaded;
    // Both by ordinal.
    Corvane::Heuristic::RuleProfile costs;
    std::vector<std::atomic<std::uint64_t>> matches;
    std::atomic<std::uint64_t> messages{0};
    std::atomic<std::int64_t> readingNanos{0};
    std::atomic<std::int64_t> scanningNanos{0};
};

} // namespace corvane

#endif
