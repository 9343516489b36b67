#ifndef CORVANE_CLI_COMMONOPTIONS_H
#define CORVANE_CLI_COMMONOPTIONS_H

// The options that several subcommands have: each declares them here, so that they are the same
// everywhere. Parsing fills the arguments, which must outlive the application object.
//
// Threads: free functions without state.

#include <chrono>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "corvane/ScanOptions.h"

namespace Corvane::Cli {

constexpr unsigned int kMaxWorkers = 64;
constexpr double kUsualBudgetSeconds = 2.0;

// Where rules come from.
struct RuleArguments {
    std::vector<std::string> rules;
    // Instead of them: a set that the daemon has saved, by the beginning of its generation.
    std::string set;
    std::string sets = "/var/lib/corvane/sets";
};

struct MessageArguments {
    std::vector<std::string> messages;
    std::vector<std::string> include;
    // Missing where the option was not given.
    std::vector<std::string> sender;
};

// Declares --rules, --set and --sets. One source is required; the group is answered for commands
// that have others.
CLI::Option_group *addRuleSources(CLI::App &app, RuleArguments &arguments);

// --percent, --threshold and --stop.
void addVerdictOptions(CLI::App &app, corvane::ScanOptions &options);

CLI::Option *addBudgetOption(CLI::App &app, double &seconds);

// As a scan takes it; rounded up, since none at all would be no bound.
std::chrono::nanoseconds budgetOf(double seconds);

// --sender, --include and the messages.
void addMessageOptions(CLI::App &app, MessageArguments &arguments);

void addIncludeOption(CLI::App &app, std::vector<std::string> &include);

// -j
void addWorkersOption(CLI::App &app, unsigned int &workers);

} // namespace Corvane::Cli

#endif
