#ifndef CORVANE_CLI_CORPUSREPORT_H
#define CORVANE_CLI_CORPUSREPORT_H

// corvane corpus report and corvane corpus diff: what results say.
//
// Threads: one thread.

#include <cstddef>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

namespace Corvane::Cli {

struct CorpusShowArguments {
    static constexpr std::size_t kUsualTop = 20;

    // One, or two for a difference.
    std::string result;
    std::string other;
    // Classes whose messages are to be over; without any those whose names say so.
    std::vector<std::string> over;
    std::size_t top = kUsualTop;
    bool json = false;
    // The file that a page for browsers goes to; "" for none.
    std::string html;
    // Of a difference: from how many on its status is 1.
    std::optional<std::size_t> maxNewFalsePositives;
    std::optional<std::size_t> maxMissed;
};

// Declare the subcommands of corpus and their options, which parsing fills; arguments must outlive
// the application object.
void addCorpusReportCommand(CLI::App &corpus, CorpusShowArguments &arguments);
void addCorpusDiffCommand(CLI::App &corpus, CorpusShowArguments &arguments);

// Write what there is to tell to out, and answer the exit status: 0, or 1 for a difference that is
// larger than was allowed. Throw where a result cannot be read.
int runCorpusReport(const CorpusShowArguments &arguments, std::ostream &out);
int runCorpusDiff(const CorpusShowArguments &arguments, std::ostream &out);

} // namespace Corvane::Cli

#endif
