#ifndef CORVANE_CLI_SCAN_H
#define CORVANE_CLI_SCAN_H

// corvane scan: loads a rule set and scores messages with it.
//
// Threads: one thread; it starts those that it is told to.

#include <ostream>
#include <string>

#include <CLI/CLI.hpp>

#include "CommonOptions.h"
#include "corvane/ScanOptions.h"

namespace Corvane::Cli {

struct ScanArguments : RuleArguments, MessageArguments {
    // Instead of rules: the control socket of a daemon, whose are taken.
    std::string via;
    double budgetSeconds = kUsualBudgetSeconds;
    bool strict = false;
    bool verbose = false;
    bool json = false;
    unsigned int workers = 1;
    // What the other options say; runScan adds sender, budget and trace.
    corvane::ScanOptions scan;
};

// Declares the subcommand and its options, which parsing fills; arguments must outlive the
// application object.
void addScanCommand(CLI::App &app, ScanArguments &arguments);

// Scans every message, writes the results to out and what went wrong to err, and answers the exit
// status. out must not be std::cout: with verbose the libraries write their trace to it, which is
// sent to the buffer of std::cerr then.
int runScan(const ScanArguments &arguments, std::ostream &out, std::ostream &err);

} // namespace Corvane::Cli

#endif
