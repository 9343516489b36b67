#ifndef CORVANE_SRC_CORVANE_LOADEDRULES_H
#define CORVANE_SRC_CORVANE_LOADEDRULES_H

// What the copies of a RuleSet share. Never changes once it is made.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "corvane/RuleSet.h"
#include "heuristic/Scanner.h"

namespace corvane {

struct LoadedRules {
    Corvane::Heuristic::Scanner scanner;
    RuleCounts counts;
    // In the order of their ordinals, which have gaps.
    std::vector<Rule> rules;
    std::vector<std::uint32_t> ordinals;
    // What a verdict tells of a rule that the rule itself does not know, by ordinal; the texts are
    // numbers of entries below. Small, because the memory of a rule that trips is far from any cache.
    struct Origin {
        std::uint32_t file = 0;
        std::uint32_t line = 0;
        std::uint32_t description = 0;
    };
    std::vector<Origin> origins;
    // The first entry of either is "".
    std::vector<std::string> files;
    std::vector<std::string> descriptions;
    std::vector<Problem> problems;
    std::vector<std::string_view> languages;
    std::string version;
    std::string generation;
};

// What a rule adds to a total.
float scoreOf(const Corvane::Heuristic::Rule &rule);

// The name of a language's section; lives for ever.
std::string_view languageName(Corvane::Heuristic::langID language);

} // namespace corvane

#endif
