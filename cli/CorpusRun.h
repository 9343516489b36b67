#ifndef CORVANE_CLI_CORPUSRUN_H
#define CORVANE_CLI_CORPUSRUN_H

// corvane corpus run: scans labelled messages, and keeps what came of each in a result.
//
// Threads: one thread; it starts those that it is told to.

#include <ostream>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "CommonOptions.h"
#include "corvane/ScanOptions.h"

namespace Corvane::Cli {

struct CorpusRunArguments : RuleArguments {
    std::string directory;
    std::vector<std::string> classes;
    std::vector<std::string> include;
    std::string result;
    std::string shard = "1/1";
    unsigned int workers = 1;
    corvane::ScanOptions scan;
};

// Declares the subcommand of corpus and its options, which parsing fills; arguments must outlive the
// application object.
void addCorpusRunCommand(CLI::App &corpus, CorpusRunArguments &arguments);

// Writes the result to its file, a line on it to out and what went wrong to err, and answers the exit
// status: 0, also where single messages could not be read. Throws where there is no result.
int runCorpusRun(const CorpusRunArguments &arguments, std::ostream &out, std::ostream &err);

} // namespace Corvane::Cli

#endif
