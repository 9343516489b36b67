#ifndef CORVANE_CLI_RULEDIRECTORY_H
#define CORVANE_CLI_RULEDIRECTORY_H

// Loads the rule set of a directory.
//
// Threads: one thread.

#include <string>

#include "LogSummary.h"
#include "heuristic/Scanner.h"

namespace Corvane::Cli {

// A scanner with the rules of the directory, encrypted or plain. What is wrong with single rules
// goes to the log. Throws code 4, with directory or file and the remedy, where there is no such
// directory, a file cannot be read or decrypted, or no rule has come out of it all.
Heuristic::Scanner loadRules(const std::string &directory, LogSummary &log);

} // namespace Corvane::Cli

#endif
