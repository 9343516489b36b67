#ifndef CORVANE_CLI_LINTEDRULE_H
#define CORVANE_CLI_LINTEDRULE_H

// A rule of a set that lint looks at as a whole, and where it was read.
//
// Threads: plain values over rules that one thread has loaded.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "heuristic/LoadObserver.h"
#include "heuristic/Rule.h"

namespace Corvane::Cli {

struct LintedRule {
    Heuristic::RefRule rule;
    Heuristic::RulePlace place;
    unsigned int definitionColumn = 0;
    // One bit for each language whose list holds the rule, and whether its section is that of ALL.
    std::uint8_t languages = 0;
    bool isForAll = false;
    // The expression of a meta rule has no value at all; the definition calls a built-in test.
    bool isMetaFault = false;
    bool isEval = false;
};

// The bits of all languages, and their names, divided by commas, in the order of their numbers.
constexpr std::uint8_t kAllLanguages = (1U << Heuristic::ALL) - 1U;
constexpr std::uint8_t kDefaultLanguage = 1U << Heuristic::DEFAULT;
std::string languageNames(std::uint8_t languages);

// A name of a rule set in quotes, its control bytes escaped.
std::string quoted(std::string_view text);

} // namespace Corvane::Cli

#endif
