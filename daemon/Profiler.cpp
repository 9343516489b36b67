#include "Profiler.h"

#include <utility>

namespace Corvane::Milter {

void Profiler::start(const corvane::RuleSet &rules, unsigned int every) {
    // The old one is freed behind the lock, with the rules that it may be the last to keep.
    std::shared_ptr<corvane::RuleProfile> fresh =
        every == 0 ? nullptr : std::make_shared<corvane::RuleProfile>(rules);
    const std::lock_guard<std::mutex> lock(guard_);
    if (fresh != nullptr) {
        profile_.swap(fresh);
    }
    every_ = every;
}

void Profiler::follow(const corvane::RuleSet &rules) {
    std::shared_ptr<corvane::RuleProfile> old;
    const std::lock_guard<std::mutex> lock(guard_);
    if (every_ != 0 && profile_->rules().generation() != rules.generation()) {
        old = std::exchange(profile_, std::make_shared<corvane::RuleProfile>(rules));
    }
}

Profiler::View Profiler::view() const {
    const std::lock_guard<std::mutex> lock(guard_);
    return {every_, profile_};
}

// A message may still be scanned with rules that were replaced in the meantime.
std::shared_ptr<corvane::RuleProfile> Profiler::current(const corvane::RuleSet &rules) const {
    const std::lock_guard<std::mutex> lock(guard_);
    return profile_ != nullptr && profile_->rules().generation() == rules.generation() ? profile_
                                                                                       : nullptr;
}

} // namespace Corvane::Milter
