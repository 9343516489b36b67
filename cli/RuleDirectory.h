#ifndef CORVANE_CLI_RULEDIRECTORY_H
#define CORVANE_CLI_RULEDIRECTORY_H

// Loads the rule files of a directory.
//
// Threads: one thread.

#include <string>

#include "LogSummary.h"
#include "heuristic/Rule.h"

namespace Corvane::Cli {

// Reads every file "*.cf" of the directory, in the byte order of their names, into the container
// and gives the rules their scores; answers the number of rules. What is wrong with single rules
// goes to the log. Throws code 4, with directory or file and the remedy, where there is no such
// directory, a file cannot be read, or no rule has come out of it all.
unsigned int loadRuleDirectory(const std::string &directory, Heuristic::RuleContainer &rules,
                               LogSummary &log);

} // namespace Corvane::Cli

#endif
