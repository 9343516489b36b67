#ifndef CORVANE_SRC_CORVANE_METATREE_H
#define CORVANE_SRC_CORVANE_METATREE_H

// The expression of a meta rule as a tree, with what its parts count for.
//
// Threads: free functions without state.

#include <vector>

#include "corvane/Explanation.h"
#include "heuristic/MetaRule.h"
#include "heuristic/Rule.h"

namespace corvane {

// matches: the rules that had tripped when the rule was tried. Throws Corvane::Exception where the
// expression has no value.
std::vector<MetaStep> metaTree(const Corvane::Heuristic::MetaRule &rule,
                               const Corvane::Heuristic::RefMatches &matches);

} // namespace corvane

#endif
