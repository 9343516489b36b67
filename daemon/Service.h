#ifndef CORVANE_DAEMON_SERVICE_H
#define CORVANE_DAEMON_SERVICE_H

// The daemon from its start to its end.
//
// Threads: the main one.

#include <string>

namespace Corvane::Milter {

// Serves until it is told to stop, and answers the exit status: 0, or 78 where configuration or
// rules cannot be loaded, 1 where the socket cannot be bound. What goes wrong is logged. program is
// how the process was started, for a restart.
int serve(const std::string &program, const std::string &configFile);

// Checks the configuration and the rules that it names, says what is wrong on standard error, and
// answers 0 or 78.
int check(const std::string &configFile);

} // namespace Corvane::Milter

#endif
