#ifndef CORVANE_CLI_RULELOAD_H
#define CORVANE_CLI_RULELOAD_H

// Loads rule sets for the command, and says what is wrong with them.
//
// Threads: one thread.

#include <cstddef>
#include <limits>
#include <ostream>
#include <string>
#include <vector>

#include "CommonOptions.h"
#include "corvane/RuleSet.h"

namespace Corvane::Cli {

// The rules of the directories, encrypted or plain, as corvane::RuleSet::load has them. Throws code
// 4, with the directory or file and the remedy, where that fails or no rule has come out of it.
// What is wrong with single rules goes to err then, since nobody can ask the set for it.
corvane::RuleSet loadRules(const std::vector<std::string> &directories, std::ostream &err);

// The rules of the set among the saved ones whose generation begins so. Throws code 4 where there is
// no such set, or more than one, and where it is not what it was when it was saved.
corvane::RuleSet loadSavedRules(const std::string &sets, const std::string &beginning);

// One of the two, as the options say.
corvane::RuleSet loadGivenRules(const RuleArguments &arguments, std::ostream &err);

// How many problems are shown unless more are asked for.
constexpr std::size_t kMostProblems = 100;

// Writes a line for each problem of the set, as compilers do; beyond most their number.
void showProblems(const corvane::RuleSet &rules, std::ostream &err,
                  std::size_t most = kMostProblems);

} // namespace Corvane::Cli

#endif
