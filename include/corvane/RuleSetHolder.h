#ifndef CORVANE_RULESETHOLDER_H
#define CORVANE_RULESETHOLDER_H

// The rule set that a program scans with, which may be reloaded beside running scans:
//
//     corvane::RuleSetHolder holder(corvane::RuleSet::load(directory));
//     holder.current().scan(bytes, options);        // on any thread, anew for each message
//     const auto reload = holder.reload(directory); // on another
//     if (!reload.replaced()) { log(reload.reason); }
//
// Threads: any, at once. A scan goes on with the set it has taken. Reloads run one at a time, so
// that of two the later to begin is the one that stays; they hold no lock that current() waits for.

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "corvane/Export.h"
#include "corvane/RuleSet.h"

namespace corvane {

class CORVANE_API RuleSetHolder {
public:
    enum class Outcome {
        Replaced,   // the new set is in place
        KeptFailed, // the new one could not be loaded; the old one stays
        KeptEmpty   // the new one has no rules, but the old one has; that stays
    };

    struct Reload {
        Outcome outcome = Outcome::Replaced;
        // Why the old set was kept, in words for a log; "" where it was replaced.
        std::string reason;
        // The set in place when the reload was done, and the one before; the same where that was
        // kept.
        RuleSet current;
        RuleSet former;

        bool replaced() const noexcept { return outcome == Outcome::Replaced; }
        // Whether the set in place has other rules than the one before.
        bool changed() const noexcept { return current.generation() != former.generation(); }
    };

    explicit RuleSetHolder(const RuleSet &first = RuleSet());
    RuleSetHolder(const RuleSetHolder &) = delete;
    RuleSetHolder &operator=(const RuleSetHolder &) = delete;
    ~RuleSetHolder();

    // The set in place. Take it anew for each message, or each batch: it holds on to the set as
    // long as it lives.
    RuleSet current() const noexcept;

    // Loads a set as RuleSet::load does, or by a function, and puts it in place. Throws nothing but
    // std::bad_alloc: what the load throws is answered.
    Reload reload(const std::string &directory);
    Reload reload(const std::vector<std::string> &directories);
    Reload reload(const std::function<RuleSet()> &load);

private:
    struct State;

    std::unique_ptr<State> state_;
};

} // namespace corvane

#endif
