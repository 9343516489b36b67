#ifndef CORVANE_HEURISTIC_RULEPROFILE_H
#define CORVANE_HEURISTIC_RULEPROFILE_H

// What each rule of a set costs: how often its expression is tried, on how much text, for how long.
//
//     RuleProfile profile(ordinals, RuleProfile::Times::Measured);
//     {
//         const Budget::Use budgeted(budget);
//         const RuleProfile::Use profiled(profile);
//         scanner.process(matches, message, sender, 0, false);
//     }
//     profile.cost(rule->ordinal()).tries
//
// Only scans of a thread that uses a budget (Budget.h) are counted. What is searched for all rules at once, their
// literals, is nobody's cost. A scan that is not profiled pays for a look at a pointer where it is about to try
// something.
//
// Threads: any number may use one profile at once, and read it meanwhile.

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "heuristic/Export.h"

namespace Corvane::Heuristic {

class CORVANE_HEURISTIC_API RuleProfile {
public:
    struct Cost {
        // Of the rule's expression, or for a meta rule its evaluations; and the bytes of the texts tried.
        std::uint64_t tries = 0;
        std::uint64_t bytes = 0;
        // Tries that were given up because they needed too many steps.
        std::uint64_t stepLimited = 0;
        // With the tests that come before a try, and a look at the clock of some 20 ns for each. Of what rules with
        // the same expression have together, each has its part.
        std::chrono::nanoseconds time{0};
    };

    // Whether the clock is read for each try; without, only what is the same in every run is counted.
    enum class Times { Measured, LeftOut };

    // For rules of ordinals below that; others are not counted.
    RuleProfile(std::size_t ordinals, Times times);
    RuleProfile(const RuleProfile &) = delete;
    RuleProfile &operator=(const RuleProfile &) = delete;
    ~RuleProfile();

    // What a rule has cost so far; nothing for an ordinal that is not counted.
    Cost cost(unsigned int ordinal) const;

    // Adds to that.
    void add(unsigned int ordinal, const Cost &cost);

    // Makes a profile, which must outlive it, that of the scans of the constructing thread while it lives; the former
    // one, if there was any, is the thread's again afterwards. To be destroyed by that thread, in reverse order.
    class CORVANE_HEURISTIC_API Use {
    public:
        explicit Use(RuleProfile &profile);
        Use(const Use &) = delete;
        Use &operator=(const Use &) = delete;
        ~Use();

    private:
        RuleProfile *former_;
    };

    // The profile that the calling thread uses; null where it uses none.
    static RuleProfile *ofThisThread() noexcept;

    // What the calling thread does from its construction on, to be charged to rules once. Does nothing without a
    // profile.
    class CORVANE_HEURISTIC_API Charge {
    public:
        // The calling thread's profile, or null.
        explicit Charge(RuleProfile *profile) : profile_(profile) {
            if (profile_ != nullptr) {
                begin();
            }
        }

        bool isOn() const { return profile_ != nullptr; }

        // To a rule by its ordinal: its tries, or one evaluation.
        void to(unsigned int ordinal) const {
            if (profile_ != nullptr) {
                profile_->add(ordinal, taken());
            }
        }
        void toEvaluated(unsigned int ordinal) const {
            if (profile_ != nullptr) {
                addEvaluation(ordinal);
            }
        }

        // To rules that have it in common: each has made the tries, and shares the time.
        void to(const std::vector<unsigned int> &ordinals) const;

    private:
        void begin();
        Cost taken() const;
        void addEvaluation(unsigned int ordinal) const;

        RuleProfile *profile_;
        // When it began: of the budget, and the clock.
        Cost begun_;
    };

private:
    struct Counters {
        std::atomic<std::uint64_t> tries{0};
        std::atomic<std::uint64_t> bytes{0};
        std::atomic<std::uint64_t> stepLimited{0};
        std::atomic<std::uint64_t> nanos{0};
    };

    std::size_t ordinals_;
    std::unique_ptr<Counters[]> counters_;
    bool isTimed_;
};

} // namespace Corvane::Heuristic

#endif
