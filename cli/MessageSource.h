#ifndef CORVANE_CLI_MESSAGESOURCE_H
#define CORVANE_CLI_MESSAGESOURCE_H

// Where messages come from.
//
// Threads: free functions without state of their own.

#include <string>

#include "host/parser/Buffer.h"

namespace Corvane::Cli {

// The name that stands for standard input.
constexpr const char *kStandardInput = "-";

// Reads the message of that name: a file, or standard input. No more than maxBytes + 1 bytes are
// read, enough to tell that there are more than maxBytes. Throws code 4, with the name and the
// remedy, for a directory, for what cannot be read, and for what holds no message: nothing, or
// nothing but NUL bytes.
Buffer readMessage(const std::string &name, unsigned int maxBytes);

} // namespace Corvane::Cli

#endif
