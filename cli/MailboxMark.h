#ifndef CORVANE_CLI_MAILBOXMARK_H
#define CORVANE_CLI_MAILBOXMARK_H

// Tells the lines that begin the messages of an mbox from text that begins with "From ":
//
//     From joe@example.org Tue Sep  1 09:01:00 2026        a mark
//     From here on we take the train at 09:01.             text
//
// Threads: a free function without state.

#include <cstddef>
#include <string_view>

namespace Corvane::Cli {

// What every mark begins with, and the longest line that can be one, in bytes.
constexpr std::string_view kMarkStart = "From ";
constexpr std::size_t kMaxMarkBytes = 1024;

// Whether a line, with or without its end, is a mark: "From", at most one word or quoted name for
// the sender, then a date with day, month, time and year in any order. Seconds, weekday, time zones
// and a "remote from HOST" at the end may be there or not.
bool isMailboxMark(std::string_view line);

} // namespace Corvane::Cli

#endif
