#ifndef CORVANE_HOST_REGEX_WORKBUDGET_H
#define CORVANE_HOST_REGEX_WORKBUDGET_H

// What it may cost to prepare expressions for fast scans: time in counted steps, so that it depends on no clock and every
// machine comes to the same result, and memory in bytes. What there is no budget for is not prepared, and the expression
// is matched as it is.
//
//     WorkBudget budget(kPatternSteps * rules, kPatternBytes * rules);
//     for (...) {
//         required = requiredLiterals(text, options, kind, budget);   // until it is spent, then nothing
//     }
//
// Threads: one at a time.

#include <cstddef>
#include <cstdint>

namespace Corvane::Regex {

class WorkBudget {
public:
    // A step takes about a nanosecond.
    explicit WorkBudget(std::uint64_t steps = 0, std::uint64_t bytes = 0)
        : steps_(steps), bytes_(bytes) {}

    void add(std::uint64_t steps, std::uint64_t bytes) {
        steps_ += steps;
        bytes_ += bytes;
    }

    std::uint64_t steps() const { return steps_; }
    std::uint64_t bytes() const { return bytes_; }

    // Takes so many; where there are fewer, all that are left, and answers false.
    bool takeSteps(std::uint64_t steps) { return take(steps_, steps); }
    bool takeBytes(std::uint64_t bytes) { return take(bytes_, bytes); }

private:
    static bool take(std::uint64_t &left, std::uint64_t wanted) {
        const bool suffices = wanted <= left;
        left = suffices ? left - wanted : 0;
        return suffices;
    }

    std::uint64_t steps_;
    std::uint64_t bytes_;
};

} // namespace Corvane::Regex

#endif
