#ifndef CORVANE_CLI_RULESETCOPY_H
#define CORVANE_CLI_RULESETCOPY_H

// Writes a rule set anew, encrypted or plain: what corvane encrypt and corvane decrypt have in
// common.
//
// Threads: one thread.

#include <ostream>
#include <string>

#include <CLI/CLI.hpp>

#include "RuleSetFiles.h"

namespace Corvane::Cli {

struct RuleSetCopyOptions {
    std::string from;
    std::string to;
};

// Declares the two directories of such a subcommand; options must outlive the application object.
void addRuleSetCopyOptions(CLI::App &command, RuleSetCopyOptions &options);

// Copies the rule set in options.from to options.to, which must not exist, with the rule files
// converted, score files and README as they are. The copy is made beside options.to, loaded, and
// renamed once it gives as many rules; on any failure, and where INT, TERM or HUP comes before that,
// nothing is left of it. Says on out what was done, on err what was left out or went wrong; answers
// the exit status, which is a failure too where out takes nothing. conversion must not be None.
int copyRuleSet(const RuleSetCopyOptions &options, Conversion conversion, std::ostream &out,
                std::ostream &err);

} // namespace Corvane::Cli

#endif
