#ifndef CORVANE_CLI_SCAN_H
#define CORVANE_CLI_SCAN_H

// corvane scan: loads the rules of a directory and scores messages with them.
//
// Threads: one thread.

#include <ostream>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

namespace Corvane::Cli {

struct ScanOptions {
    static constexpr float kUsualThreshold = 5.0F;

    std::string rules;
    std::vector<std::string> messages;
    float threshold = kUsualThreshold;
};

// Declares the subcommand and its options, which parsing fills; options must outlive the
// application object.
void addScanCommand(CLI::App &app, ScanOptions &options);

// Scans every message, writes the results to out and what went wrong to err, and answers the exit
// status.
int runScan(const ScanOptions &options, std::ostream &out, std::ostream &err);

} // namespace Corvane::Cli

#endif
