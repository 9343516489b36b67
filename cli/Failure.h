#ifndef CORVANE_CLI_FAILURE_H
#define CORVANE_CLI_FAILURE_H

// How the command makes and shows failures: sentences for whoever typed it, with the remedy.
//
// Threads: free functions without state.

#include <ostream>
#include <string>

#include "host/parser/Exception.h"

namespace Corvane::Cli {

// Throws code 4 with the sentence as message and no source file.
[[noreturn]] void refuse(const std::string &sentence);

// What the system says of an error number.
std::string systemReason(int error);

// Flushes what was just written to standard output. Answers why it could not be, as an error number
// of the system's; 0 where it could.
int flushed(std::ostream &out);

// What to say where memory ran out, behind what could not be done.
constexpr const char *kOutOfMemory = "out of memory; let it have more, or scan on fewer threads";

// One printable line for a user: the command's own failures are sentences already, those of the
// libraries need their details.
std::string readable(const Exception &failure);

} // namespace Corvane::Cli

#endif
