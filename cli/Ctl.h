#ifndef CORVANE_CLI_CTL_H
#define CORVANE_CLI_CTL_H

// corvane ctl: asks something of a running corvane-milter.
//
// Threads: one thread.

#include <optional>
#include <ostream>
#include <string>

#include <CLI/CLI.hpp>

namespace Corvane::Cli {

struct CtlArguments {
    std::string socket = "/run/corvane/control.sock";
    std::string action;
    // Of the action "log".
    std::string level;
    // Of the action "profile".
    std::optional<unsigned int> every;
    std::string sort = "time";
    std::optional<unsigned int> top;
    bool isJson = false;
};

// Declares the subcommand and its options, which parsing fills; arguments must outlive the
// application object.
void addCtlCommand(CLI::App &app, CtlArguments &arguments);

// Sends the request, writes the answer to out and what went wrong to err. Answers 0 where the daemon
// did it, 1 where it would not, 2 where it cannot be reached.
int runCtl(const CtlArguments &arguments, std::ostream &out, std::ostream &err);

} // namespace Corvane::Cli

#endif
