#ifndef CORVANE_CLI_TEXTS_H
#define CORVANE_CLI_TEXTS_H

// corvane text: shows what of a message the rules of each kind are tried on.
//
// Threads: one thread.

#include <ostream>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

namespace Corvane::Cli {

struct TextsArguments {
    std::vector<std::string> messages;
    // Missing where the option was not given.
    std::vector<std::string> sender;
    bool json = false;
};

// Declares the subcommand and its options, which parsing fills; arguments must outlive the
// application object.
void addTextCommand(CLI::App &app, TextsArguments &arguments);

// Writes the texts to out and what went wrong to err, and answers the exit status: 0, or 2 where
// a message could not be read.
int runText(const TextsArguments &arguments, std::ostream &out, std::ostream &err);

} // namespace Corvane::Cli

#endif
