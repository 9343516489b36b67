#ifndef CORVANE_CLI_EXITSTATUS_H
#define CORVANE_CLI_EXITSTATUS_H

// What the command's exit status says. A failure wins over a verdict.

namespace Corvane::Cli {

constexpr int kExitClean = 0;  // no message is over the threshold
constexpr int kExitOver = 1;   // at least one is
constexpr int kExitFailed = 2; // something could not be read, or the command line is wrong

} // namespace Corvane::Cli

#endif
