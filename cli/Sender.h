#ifndef CORVANE_CLI_SENDER_H
#define CORVANE_CLI_SENDER_H

// The envelope sender that a command was given.
//
// Threads: free functions without state.

#include <optional>
#include <string>
#include <vector>

namespace Corvane::Cli {

// The last value of the option --sender; none where it was not given. "<>" and "" stand for the
// empty sender that bounces have. Refuses what is neither that nor an address.
std::optional<std::string> givenSender(const std::vector<std::string> &values);

} // namespace Corvane::Cli

#endif
