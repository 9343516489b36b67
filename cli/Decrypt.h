#ifndef CORVANE_CLI_DECRYPT_H
#define CORVANE_CLI_DECRYPT_H

// corvane decrypt: writes a plain copy of an encrypted rule set.
//
// Threads: one thread.

#include <ostream>

#include <CLI/CLI.hpp>

#include "RuleSetCopy.h"

namespace Corvane::Cli {

// Declares the subcommand and its arguments, which parsing fills; options must outlive the
// application object.
void addDecryptCommand(CLI::App &app, RuleSetCopyOptions &options);

// Writes the copy, says on out what was done and on err what went wrong, and answers the exit
// status.
int runDecrypt(const RuleSetCopyOptions &options, std::ostream &out, std::ostream &err);

} // namespace Corvane::Cli

#endif
