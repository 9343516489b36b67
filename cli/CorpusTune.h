#ifndef CORVANE_CLI_CORPUSTUNE_H
#define CORVANE_CLI_CORPUSTUNE_H

// corvane corpus tune: proposes scores for a rule set.
//
// Threads: one thread.

#include <ostream>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "corpus/Tune.h"

namespace Corvane::Cli {

struct CorpusTuneArguments {
    std::string result;
    std::string output;
    std::vector<std::string> over;
    // Each as NAME=LOW:HIGH.
    std::vector<std::string> bounds;
    bool json = false;
    Corpus::TuneOptions options;
};

// Declares the subcommand of corpus and its options, which parsing fills; arguments must outlive the
// application object.
void addCorpusTuneCommand(CLI::App &corpus, CorpusTuneArguments &arguments);

// Writes the scores to their file and what is expected of them to out, and answers the exit status.
// Throws where there are none, when no file is written.
int runCorpusTune(const CorpusTuneArguments &arguments, std::ostream &out);

} // namespace Corvane::Cli

#endif
