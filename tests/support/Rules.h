#ifndef CORVANE_TESTS_SUPPORT_RULES_H
#define CORVANE_TESTS_SUPPORT_RULES_H

// Short ways to make rules and to see which ones a match set holds.

#include <string>
#include <vector>

#include "heuristic/Rule.h"

namespace Corvane::Heuristic {

// A rule with a definition and, unless it is empty, a score; value() may throw.
inline RefRule makeRule(Rule::Type kind, const std::string &name, const std::string &definition,
                        const std::string &score = "1.0", unsigned int ordinal = 0) {
    RefRule rule(kind, name);
    rule->value(definition);
    rule->ordinal(ordinal);
    if (!score.empty()) {
        rule->score(RefScore(score));
    }
    return rule;
}

template <class Rules>
std::vector<std::string> namesOf(const Rules &rules) {
    std::vector<std::string> names;
    for (const RefRule &rule : rules) {
        names.push_back(rule.isNull() ? "(null)" : rule->name());
    }
    return names;
}

inline Buffer viewOf(const std::string &text) {
    return {text.data(), static_cast<unsigned int>(text.size()), true};
}

using Names = std::vector<std::string>;

} // namespace Corvane::Heuristic

#endif
