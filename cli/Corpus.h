#ifndef CORVANE_CLI_CORPUS_H
#define CORVANE_CLI_CORPUS_H

// corvane corpus: what rules make of many labelled messages.
//
// Threads: one thread.

#include <ostream>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "CorpusReport.h"
#include "CorpusRun.h"
#include "CorpusTune.h"

namespace Corvane::Cli {

struct CorpusExportArguments {
    std::string result;
    bool times = false;
};

struct CorpusMergeArguments {
    std::string output;
    std::vector<std::string> results;
};

struct CorpusArguments {
    CorpusRunArguments run;
    CorpusExportArguments exported;
    CorpusMergeArguments merged;
    CorpusShowArguments report;
    CorpusShowArguments diff;
    CorpusTuneArguments tune;
};

// Declares the subcommand with its own ones and their options, which parsing fills; arguments must
// outlive the application object.
void addCorpusCommand(CLI::App &app, CorpusArguments &arguments);

// Runs the subcommand of that name, writes what it has to say to out and what went wrong to err, and
// answers the exit status.
int runCorpus(const std::string &name, const CorpusArguments &arguments, std::ostream &out,
              std::ostream &err);

} // namespace Corvane::Cli

#endif
