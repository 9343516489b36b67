#include "corvane/RuleProfile.h"

#include <stdexcept>

#include "corvane/RuleProfileState.h"
#include "corvane/RuleSet.h"

namespace corvane {

RuleProfile::RuleProfile(const RuleSet &rules, Times times)
    : state_(std::make_unique<State>(rules, rules.loaded_, times)) {}

RuleProfile::RuleProfile(RuleProfile &&other) noexcept = default;
RuleProfile &RuleProfile::operator=(RuleProfile &&other) noexcept = default;
RuleProfile::~RuleProfile() = default;

const RuleSet &RuleProfile::rules() const noexcept {
    return state_->rules;
}

std::vector<RuleCost> RuleProfile::costs() const {
    std::vector<RuleCost> costs;
    costs.reserve(state_->loaded->ordinals.size());
    for (const std::uint32_t ordinal : state_->loaded->ordinals) {
        const auto cost = state_->costs.cost(ordinal);
        costs.push_back({cost.tries, cost.bytes,
                         state_->matches[ordinal].load(std::memory_order_relaxed), cost.stepLimited,
                         cost.time});
    }
    return costs;
}

std::uint64_t RuleProfile::messages() const noexcept {
    return state_->messages.load(std::memory_order_relaxed);
}

std::chrono::nanoseconds RuleProfile::readingTime() const noexcept {
    return std::chrono::nanoseconds(state_->readingNanos.load(std::memory_order_relaxed));
}

std::chrono::nanoseconds RuleProfile::scanningTime() const noexcept {
    return std::chrono::nanoseconds(state_->scanningNanos.load(std::memory_order_relaxed));
}

// The same rules, loaded in the same order, have the same ordinals.
bool RuleProfile::isOf(const LoadedRules &rules) const {
    const LoadedRules &own = *state_->loaded;
    return &own == &rules || (own.generation == rules.generation && own.ordinals == rules.ordinals);
}

void RuleProfile::add(const RuleProfile &other) {
    if (!isOf(*other.state_->loaded)) {
        throw std::invalid_argument("a profile of another rule set; add those of one set only");
    }
    for (const std::uint32_t ordinal : state_->loaded->ordinals) {
        state_->costs.add(ordinal, other.state_->costs.cost(ordinal));
        state_->matches[ordinal].fetch_add(
            other.state_->matches[ordinal].load(std::memory_order_relaxed),
            std::memory_order_relaxed);
    }
    state_->messages.fetch_add(other.messages(), std::memory_order_relaxed);
    State::add(state_->readingNanos, other.readingTime());
    State::add(state_->scanningNanos, other.scanningTime());
}

} // namespace corvane
