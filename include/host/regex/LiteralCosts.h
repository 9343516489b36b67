#ifndef CORVANE_HOST_REGEX_LITERALCOSTS_H
#define CORVANE_HOST_REGEX_LITERALCOSTS_H

// What it will cost to make a LiteralMatcher, in steps of a WorkBudget, told literal by literal before any work is done.
//
//     LiteralCosts costs;
//     if (budget.steps() >= costs.of(more)) {
//         budget.takeSteps(costs.add(more));
//         literals.insert(literals.end(), more.begin(), more.end());
//     }
//
// Threads: one at a time.

#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <vector>

#include "host/regex/Export.h"
#include "host/regex/Literals.h"

namespace Corvane::Regex {

class CORVANE_REGEX_API LiteralCosts {
public:
    LiteralCosts();
    ~LiteralCosts();

    // What a matcher costs more with these literals besides those that were added; roughly, where some of them are equal.
    std::uint64_t of(const std::vector<Literal> &literals) const;

    // Adds them, and answers the same.
    std::uint64_t add(const std::vector<Literal> &literals);

private:
    std::size_t count_ = 0;
    // How many literals have the same last bytes, whatever their case.
    std::unordered_map<std::uint64_t, std::uint32_t> tails_;
};

} // namespace Corvane::Regex

#endif
