#ifndef CORVANE_RULEPROFILE_H
#define CORVANE_RULEPROFILE_H

// What each rule of a set costs, over the messages that are scanned with a profile:
//
//     corvane::RuleProfile profile(rules);
//     const corvane::Verdict verdict = rules.scan(bytes, options, profile);
//     const std::vector<corvane::RuleCost> costs = profile.costs();
//     costs[0].tries // of rules.rules()[0]
//
// What all rules have in common is no single one's cost: reading the message, and the search for
// the literals of all rules at once, which spares most of them a try. Nor does a scan without a
// profile pay for this.
//
// Threads: any number may scan with one profile at once, and ask it meanwhile, when a message may be
// in it in part. Scans of many threads are faster with a profile each, added up at the end.

#include <chrono>
#include <cstdint>
#include <memory>
#include <vector>

#include "corvane/Export.h"

namespace corvane {

class RuleSet;
struct LoadedRules;

struct RuleCost {
    // How often the rule's pattern was tried on a text, or its expression evaluated, and the bytes of
    // those texts.
    std::uint64_t tries = 0;
    std::uint64_t bytes = 0;
    // The messages in which it tripped.
    std::uint64_t matches = 0;
    // Tries that were given up since they took too many steps.
    std::uint64_t stepLimited = 0;
    // What tries took, with the tests before them. Rules with the same pattern have their part each.
    std::chrono::nanoseconds time{0};
};

class CORVANE_API RuleProfile {
public:
    // Whether the clock is read for each try, which makes a scan slower by about a fifth. What is
    // counted besides is the same in every run, budgets apart.
    enum class Times { Measured, LeftOut };

    // Keeps a copy of the set. It serves for others with the same rules too, such as the same files
    // loaded anew. Throws std::bad_alloc.
    explicit RuleProfile(const RuleSet &rules, Times times = Times::Measured);
    RuleProfile(RuleProfile &&other) noexcept;
    RuleProfile &operator=(RuleProfile &&other) noexcept;
    ~RuleProfile();

    // The set, good as long as the profile.
    const RuleSet &rules() const noexcept;

    // Of each rule, in the order of RuleSet::rules().
    std::vector<RuleCost> costs() const;

    // How many messages were scanned, and the time it took: to read them, and to try the rules, what
    // they have in common included.
    std::uint64_t messages() const noexcept;
    std::chrono::nanoseconds readingTime() const noexcept;
    std::chrono::nanoseconds scanningTime() const noexcept;

    // Adds what another one of the same set has. Throws std::invalid_argument for one of another set.
    void add(const RuleProfile &other);

private:
    friend class MessageScan;
    friend class RuleSet;

    bool isOf(const LoadedRules &rules) const;

    struct State;
    std::unique_ptr<State> state_;
};

} // namespace corvane

#endif
