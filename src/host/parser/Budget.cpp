#include "host/parser/Budget.h"

#include <algorithm>

#include <time.h>

namespace Corvane {

namespace {

thread_local Budget *s_current = nullptr;

// More than any scan takes, and far from what a sum of times might overflow at.
constexpr std::int64_t kMaxNanos = std::int64_t{1} << 60U;

std::int64_t s_read(clockid_t clock) {
    constexpr std::int64_t kNanosPerSecond = 1000000000;
    struct timespec now {};
    ::clock_gettime(clock, &now);
    return std::int64_t{now.tv_sec} * kNanosPerSecond + now.tv_nsec;
}

} // namespace

Budget::Budget(std::chrono::nanoseconds processorTime)
    : limit_(std::clamp<std::int64_t>(processorTime.count(), 0, kMaxNanos)) {}

Budget::~Budget() = default;

Budget *Budget::ofThisThread() noexcept {
    return s_current;
}

Budget::Use::Use(Budget &budget) : budget_(budget), former_(s_current) {
    budget_.start();
    s_current = &budget_;
}

Budget::Use::~Use() {
    s_current = former_;
    budget_.stop();
}

// Asking for the thread's time costs half a microsecond, which only a budget that can end is worth.
void Budget::start() {
    if (uses_++ == 0 && hasEnd()) {
        started_ = s_read(CLOCK_THREAD_CPUTIME_ID);
        cannotEndBefore_ = s_read(CLOCK_MONOTONIC) + (limit_ - usedBefore_);
    }
}

// The last user's time counts, but only a look ends the budget: what was done is done.
void Budget::stop() {
    if (--uses_ == 0 && hasEnd()) {
        used_ = usedBefore_ + (s_read(CLOCK_THREAD_CPUTIME_ID) - started_);
        usedBefore_ = used_;
    }
}

bool Budget::look() {
    work_ = 0;
    if (hasEnd() && !ended() && uses_ > 0) {
        endIfUsedBy(s_read(CLOCK_MONOTONIC), 0);
    }
    return ended();
}

bool Budget::affords(std::chrono::nanoseconds time) {
    constexpr std::int64_t kOverrun = std::chrono::nanoseconds(kMaxOverrun).count();
    if (hasEnd() && !ended() && uses_ > 0) {
        endIfUsedBy(s_read(CLOCK_MONOTONIC), std::max<std::int64_t>(time.count() - kOverrun, 0));
    }
    return !ended();
}

// Ends the budget where it is used up so many nanoseconds behind now, by the clock of the wall.
void Budget::endIfUsedBy(std::int64_t now, std::int64_t nanos) {
    if (now + nanos < cannotEndBefore_) {
        return;
    }
    used_ = usedBefore_ + (s_read(CLOCK_THREAD_CPUTIME_ID) - started_);
    cannotEndBefore_ = now + (limit_ - used_);
    if (used_ + nanos >= limit_) {
        end();
    }
}

void Budget::addStepLimitedRule(const std::string &name) {
    const auto known = std::find(stepLimitedRules_.begin(), stepLimitedRules_.end(), name);
    if (known == stepLimitedRules_.end() && stepLimitedRules_.size() < kMaxNamedRules) {
        stepLimitedRules_.push_back(name);
    }
}

} // namespace Corvane
