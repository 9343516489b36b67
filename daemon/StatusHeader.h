#ifndef CORVANE_DAEMON_STATUSHEADER_H
#define CORVANE_DAEMON_STATUSHEADER_H

// The headers that tell a message's verdict:
//
//     X-Corvane-Status: hit; score=8; threshold=5; rules=EN_CLAIM_PRIZE,EN_PRIZE_WON;
//             generation=5e8f0c2a44d1b790; engine=0.1.0+c01dc0ffee15dead; id=4XqB7
//     X-Corvane-Report: EN_CLAIM_PRIZE 2 Wants a prize to be claimed;
//             EN_PRIZE_WON 2 Tells of a prize
//
// Folds stand where a blank could; no line is longer than 998 bytes. Names are ASCII, with \xNN for
// all other bytes, blanks, and what separates them.
//
// Threads: free functions without state.

#include <string>
#include <string_view>

#include "Scoring.h"

namespace Corvane::Milter {

// Behind the prefix.
constexpr std::string_view kStatusName = "Status";
constexpr std::string_view kReportName = "Report";

// The rules in a status header: so many, and so many bytes of them; "+7" stands for seven more.
constexpr std::size_t kMostStatusRules = 50;
constexpr std::size_t kMostStatusBytes = 4096;

// The value, with lines ending in LF and without a blank in front. id: what names the message
// elsewhere; "" for none.
std::string statusValue(const Scored &scored, const Setup &setup, const std::string &id);

// One line for each rule that tripped, with its score and description; "none" without.
std::string reportValue(const Scored &scored);

} // namespace Corvane::Milter

#endif
