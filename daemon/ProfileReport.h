#ifndef CORVANE_DAEMON_PROFILEREPORT_H
#define CORVANE_DAEMON_PROFILEREPORT_H

// What a profile tells, for people and for programs.
//
// Threads: free functions without state, and values.

#include <cstddef>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

#include "Profiler.h"

namespace Corvane::Milter {

// By what the rules are sorted, the most expensive first; where they are equal, by time and then by
// name.
enum class ProfileOrder { Time, Tries, Bytes, Matches, StepLimited };

// Such as "step-limited"; nothing for any other word.
std::optional<ProfileOrder> profileOrderOf(std::string_view word);

// The rules that were tried or tripped, as many as wanted, with what they have in common.
struct ProfileQuery {
    ProfileOrder order = ProfileOrder::Time;
    std::size_t top = std::numeric_limits<std::size_t>::max();
};

// A JSON object, or a table, without a profile one without rules; each with a line end. Names are
// escaped.
std::string profileJson(const Profiler::View &view, const ProfileQuery &query);
std::string profileText(const Profiler::View &view, const ProfileQuery &query);

} // namespace Corvane::Milter

#endif
