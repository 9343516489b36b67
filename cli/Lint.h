#ifndef CORVANE_CLI_LINT_H
#define CORVANE_CLI_LINT_H

// corvane lint: says what is wrong with the files of a rule set, and where.
//
// Threads: one thread.

#include <istream>
#include <ostream>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

namespace Corvane::Cli {

struct LintArguments {
    std::vector<std::string> directories;
    // The path to name in what is found in the text of standard input; empty: directories are read.
    std::string standardInput;
    bool isStrict = false;
    bool isJson = false;
    bool isSarif = false;
    // A line for each place, also where the same is found in several of a file.
    bool isEach = false;
};

// Declares the subcommand and its arguments, which parsing fills; they must outlive the application
// object.
void addLintCommand(CLI::App &app, LintArguments &arguments);

// Writes what was found to out. Answers 0 where nothing is an error, 1 where something is (with
// isStrict a warning too), 2 where files cannot be read or there are none; err then says why.
int runLint(const LintArguments &arguments, std::istream &in, std::ostream &out, std::ostream &err);

} // namespace Corvane::Cli

#endif
