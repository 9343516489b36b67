#ifndef CORVANE_CLI_ENCRYPT_H
#define CORVANE_CLI_ENCRYPT_H

// corvane encrypt: writes an encrypted copy of a plain rule set.
//
// Threads: one thread.

#include <ostream>

#include <CLI/CLI.hpp>

#include "RuleSetCopy.h"

namespace Corvane::Cli {

// Declares the subcommand and its arguments, which parsing fills; options must outlive the
// application object.
void addEncryptCommand(CLI::App &app, RuleSetCopyOptions &options);

// Writes the copy, says on out what was done and on err what went wrong, and answers the exit
// status.
int runEncrypt(const RuleSetCopyOptions &options, std::ostream &out, std::ostream &err);

} // namespace Corvane::Cli

#endif
