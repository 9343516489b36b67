#ifndef CORVANE_CLI_SCAN_H
#define CORVANE_CLI_SCAN_H

// corvane scan: loads the rule set of a directory and scores messages with it.
//
// Threads: one thread; it starts those that it is told to.

#include <ostream>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

namespace Corvane::Cli {

struct ScanOptions {
    static constexpr float kUsualThreshold = 5.0F;
    static constexpr unsigned int kMaxWorkers = 64;

    std::string rules;
    std::vector<std::string> messages;
    // Missing where the option was not given.
    std::vector<std::string> sender;
    unsigned int percent = 0;
    float threshold = kUsualThreshold;
    bool stop = false;
    bool verbose = false;
    bool json = false;
    unsigned int workers = 1;
};

// Declares the subcommand and its options, which parsing fills; options must outlive the
// application object.
void addScanCommand(CLI::App &app, ScanOptions &options);

// Scans every message, writes the results to out and what went wrong to err, and answers the exit
// status. out must not be std::cout: with verbose the libraries write their trace to it, which is
// sent to the buffer of std::cerr then.
int runScan(const ScanOptions &options, std::ostream &out, std::ostream &err);

} // namespace Corvane::Cli

#endif
