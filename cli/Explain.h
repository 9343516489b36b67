#ifndef CORVANE_CLI_EXPLAIN_H
#define CORVANE_CLI_EXPLAIN_H

// corvane explain: shows where rules tripped on a message, and why others did not.
//
// Threads: one thread.

#include <ostream>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "CommonOptions.h"
#include "corvane/ScanOptions.h"

namespace Corvane::Cli {

struct ExplainArguments : RuleArguments, MessageArguments {
    // Names of the rules that are asked for.
    std::vector<std::string> names;
    double budgetSeconds = kUsualBudgetSeconds;
    bool json = false;
    // What the other options say; runExplain adds sender and budget.
    corvane::ScanOptions scan;
};

// Declares the subcommand and its options, which parsing fills; arguments must outlive the
// application object.
void addExplainCommand(CLI::App &app, ExplainArguments &arguments);

// Writes the explanations to out and what went wrong to err, and answers the exit status, which is
// that of a scan.
int runExplain(const ExplainArguments &arguments, std::ostream &out, std::ostream &err);

} // namespace Corvane::Cli

#endif
