#ifndef CORVANE_SRC_HOST_REGEX_DETERMINIZER_H
#define CORVANE_SRC_HOST_REGEX_DETERMINIZER_H

// Makes a deterministic automaton of a pattern's steps, one that looks for a match anywhere in a
// text.

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "host/regex/Literals.h"
#include "host/regex/PatternSteps.h"

namespace Corvane::Regex {

// At which share of all places of a text a match may begin, as far as the two rarest of its first
// bytes tell; 1 where it begins at the start of the text.
double beginnings(const PatternSteps &steps, TextKind kind);

constexpr std::size_t kUsualBytes = 64;

struct DeterministicAutomaton {
    // State 0 accepts, whatever follows.
    using State = std::uint16_t;
    static constexpr State kAccepts = 0;

    // Bytes of one class are not told apart.
    std::array<std::uint8_t, 256> classes{};
    std::size_t classCount = 0;
    // By state, and by class, the next state; behind the last class what the end of the text leads
    // to, which is state 0 or the same one.
    std::vector<std::vector<State>> next;
    State start = kAccepts;
    // The state, if there is one, from which no other is reached.
    std::optional<State> dead;
    // Of texts of kUsualBytes bytes, as a coarse guess: which share is accepted, and how many bytes
    // are read until nothing that follows matters.
    double acceptance = 1;
    double bytesRead = kUsualBytes;
};

// What an automaton may have; next has so many cells at most.
struct AutomatonLimits {
    std::size_t states;
    std::size_t cells;
};

// Of more states those that are the least likely to be met in such text are taken for state 0.
// Nothing where every text would be accepted, or where the budget does not suffice.
std::optional<DeterministicAutomaton> determinize(const PatternSteps &steps, TextKind kind,
                                                  const AutomatonLimits &limits,
                                                  WorkBudget &budget);

// What each cell costs at least, in steps.
constexpr std::uint64_t kCellSteps = 192;

} // namespace Corvane::Regex

#endif
