#ifndef CORVANE_CLI_SETLINT_H
#define CORVANE_CLI_SETLINT_H

// Finds what is wrong between the lines of a rule set: rules and scores that do not go together,
// sub-rules that nothing uses, rules that no message of a language is tried on.
//
//     SetLint(rules, scores, findings).check();
//
// Threads: one thread.

#include <string>
#include <vector>

#include "Finding.h"
#include "LintedRule.h"

namespace Corvane::Cli {

// A score line that was taken, in the order of reading.
struct LintedScore {
    std::string name;
    Heuristic::RulePlace place;
};

class SetLint {
public:
    // All are borrowed. The rules are those that were filed, with their scores.
    SetLint(const std::vector<LintedRule> &rules, const std::vector<LintedScore> &scores,
            std::vector<Finding> &findings);

    // Appends what is found to the findings.
    void check();

private:
    void checkScores();
    void checkRepeatedScore(const LintedScore &score, const LintedScore &later);
    void checkActivity(const LintedRule &rule, bool hasScore);
    void checkSubRule(const LintedRule &rule, bool hasScore);
    void checkKinds();
    void checkSections();
    void add(const Heuristic::RulePlace &place, Level level, const std::string &code,
             const std::string &text, const std::string &remedy);

    const std::vector<LintedRule> &rules_;
    const std::vector<LintedScore> &scores_;
    std::vector<Finding> &findings_;
};

} // namespace Corvane::Cli

#endif
