#include "corvane/RuleSetHolder.h"

#include <exception>
#include <mutex>
#include <new>
#include <utility>

namespace corvane {

struct RuleSetHolder::State {
    explicit State(const RuleSet &first) : current(first) {}

    // Held while a set is loaded and put in place.
    std::mutex reloading;
    // Guards current, for as long as a pointer is copied.
    std::mutex guard;
    RuleSet current;
};

RuleSetHolder::RuleSetHolder(const RuleSet &first) : state_(std::make_unique<State>(first)) {}

RuleSetHolder::~RuleSetHolder() = default;

RuleSet RuleSetHolder::current() const noexcept {
    const std::lock_guard<std::mutex> lock(state_->guard);
    return state_->current;
}

RuleSetHolder::Reload RuleSetHolder::reload(const std::string &directory) {
    return reload(std::vector<std::string>{directory});
}

RuleSetHolder::Reload RuleSetHolder::reload(const std::vector<std::string> &directories) {
    return reload([&directories] { return RuleSet::load(directories); });
}

RuleSetHolder::Reload RuleSetHolder::reload(const std::function<RuleSet()> &load) {
    const std::lock_guard<std::mutex> one(state_->reloading);
    const RuleSet old = current();
    Reload reload{Outcome::Replaced, {}, old, old};
    try {
        reload.current = load();
    } catch (const std::bad_alloc &) {
        throw;
    } catch (const std::exception &failure) {
        reload.outcome = Outcome::KeptFailed;
        reload.reason = failure.what();
        return reload;
    }
    if (reload.current.empty() && !old.empty()) {
        reload.outcome = Outcome::KeptEmpty;
        reload.reason = "the new rule set has no rules";
        reload.current = old;
        return reload;
    }
    // The old set leaves with its last user, outside the lock: that frees thousands of rules.
    RuleSet fresh = reload.current;
    const std::lock_guard<std::mutex> lock(state_->guard);
    std::swap(state_->current, fresh);
    return reload;
}

} // namespace corvane
