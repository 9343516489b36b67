#include "heuristic/RuleProfile.h"

#include "host/parser/Budget.h"

namespace Corvane::Heuristic {

namespace {

thread_local RuleProfile *s_current = nullptr;

// Most rules have no step limit, and without the clock no time: a sum that stays is not written.
void s_add(std::atomic<std::uint64_t> &sum, std::uint64_t more) {
    if (more != 0) {
        sum.fetch_add(more, std::memory_order_relaxed);
    }
}

// What has been done by now: the sums of the budget, and the clock's time.
RuleProfile::Cost s_now(bool isTimed) {
    RuleProfile::Cost now;
    if (const Budget *budget = Budget::ofThisThread()) {
        now.tries = budget->tries();
        now.bytes = budget->triedBytes();
        now.stepLimited = budget->stepLimited();
    }
    if (isTimed) {
        now.time = std::chrono::steady_clock::now().time_since_epoch();
    }
    return now;
}

} // namespace

RuleProfile::RuleProfile(std::size_t ordinals, Times times)
    : ordinals_(ordinals), counters_(std::make_unique<Counters[]>(ordinals)),
      isTimed_(times == Times::Measured) {}

RuleProfile::~RuleProfile() = default;

RuleProfile::Cost RuleProfile::cost(unsigned int ordinal) const {
    if (ordinal >= ordinals_) {
        return {};
    }
    const Counters &counters = counters_[ordinal];
    return {counters.tries.load(std::memory_order_relaxed),
            counters.bytes.load(std::memory_order_relaxed),
            counters.stepLimited.load(std::memory_order_relaxed),
            std::chrono::nanoseconds(counters.nanos.load(std::memory_order_relaxed))};
}

void RuleProfile::add(unsigned int ordinal, const Cost &cost) {
    if (ordinal >= ordinals_) {
        return;
    }
    Counters &counters = counters_[ordinal];
    s_add(counters.tries, cost.tries);
    s_add(counters.bytes, cost.bytes);
    s_add(counters.stepLimited, cost.stepLimited);
    s_add(counters.nanos, static_cast<std::uint64_t>(cost.time.count()));
}

RuleProfile *RuleProfile::ofThisThread() noexcept {
    return s_current;
}

RuleProfile::Use::Use(RuleProfile &profile) : former_(s_current) {
    s_current = &profile;
}

RuleProfile::Use::~Use() {
    s_current = former_;
}

void RuleProfile::Charge::begin() {
    begun_ = s_now(profile_->isTimed_);
}

RuleProfile::Cost RuleProfile::Charge::taken() const {
    const Cost now = s_now(profile_->isTimed_);
    return {now.tries - begun_.tries, now.bytes - begun_.bytes,
            now.stepLimited - begun_.stepLimited, now.time - begun_.time};
}

void RuleProfile::Charge::addEvaluation(unsigned int ordinal) const {
    Cost cost = taken();
    cost.tries = 1;
    profile_->add(ordinal, cost);
}

void RuleProfile::Charge::to(const std::vector<unsigned int> &ordinals) const {
    if (profile_ == nullptr || ordinals.empty()) {
        return;
    }
    Cost cost = taken();
    cost.time /= static_cast<std::int64_t>(ordinals.size());
    for (const unsigned int ordinal : ordinals) {
        profile_->add(ordinal, cost);
    }
}

} // namespace Corvane::Heuristic
