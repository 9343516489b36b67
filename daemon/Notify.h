#ifndef CORVANE_DAEMON_NOTIFY_H
#define CORVANE_DAEMON_NOTIFY_H

// What the service manager is told; nothing where none has started the process.
//
// Threads: any.

#include <chrono>
#include <string>

namespace Corvane::Milter {

// state as sd_notify(3) has it, such as "READY=1".
void notifyManager(const std::string &state);

// How often the manager wants a sign of life; 0 where it wants none.
std::chrono::microseconds watchdogInterval();

// Since the machine was started, in microseconds, as the manager wants it with "RELOADING=1".
std::string monotonicMicros();

} // namespace Corvane::Milter

#endif
