#ifndef CORVANE_CLI_PATTERNLINT_H
#define CORVANE_CLI_PATTERNLINT_H

// Finds patterns that compile and yet do not do what they are for: they match everything, or
// nothing that their kind of rule is tried on, or take far more work than they need.
//
//     PatternLint(rules, findings).check();
//
// Threads: one thread.

#include <cstddef>
#include <string>
#include <vector>

#include "Finding.h"
#include "LintedRule.h"

namespace Corvane::Cli {

class PatternLint {
public:
    // Both are borrowed. The rules are those that were filed, with their scores.
    PatternLint(const std::vector<LintedRule> &rules, std::vector<Finding> &findings);

    // Appends what is found to the findings.
    void check();

private:
    // An expression as it was compiled, and the column that it begins at.
    struct Pattern {
        const LintedRule *rule;
        std::string text;
        unsigned int options;
        unsigned int column;
        bool isPositive;
    };

    static Pattern patternOf(const LintedRule &rule);
    void checkMatches(const Pattern &pattern);
    void checkForm(const Pattern &pattern);
    void checkSearch(const Pattern &pattern, bool isUnderstood);
    void add(const Pattern &pattern, std::size_t offset, const std::string &code,
             const std::string &text, const std::string &remedy);

    const std::vector<LintedRule> &rules_;
    std::vector<Finding> &findings_;
};

} // namespace Corvane::Cli

#endif
