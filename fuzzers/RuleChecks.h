#ifndef CORVANE_FUZZERS_RULECHECKS_H
#define CORVANE_FUZZERS_RULECHECKS_H

// What the fuzz targets that work with rules share.

#include <cfloat>
#include <cmath>
#include <string>

#include "Require.h"
#include "heuristic/Rule.h"
#include "host/parser/Logger.h"

namespace Corvane::Heuristic {

// Keeps the log away from syslog.
inline void silenceLog() {
    Logger::instance(false).sink([](unsigned int, int, const std::string &) {});
}

// Whether the match set is in name order and its score the sum of its rules' scores. Sums near the
// end of the range of float say nothing: they depend on the order. Clears the tripped state.
inline void requireScore(const RefMatches &matches) {
    constexpr double kLargestSum = 1e30;
    double sum = 0.0;
    double size = 0.0;
    std::string last;
    for (const RefRule &rule : *matches) {
        require(last.empty() || last < rule->name(), "tripped rules stand in name order");
        last = rule->name();
        if (!rule->metasubrule()) {
            sum += rule->score()->value();
            size += std::fabs(rule->score()->value());
        }
    }
    if (size < kLargestSum) {
        const double tolerance = size * FLT_EPSILON * static_cast<double>(matches->size());
        require(std::fabs(matches.score(false) - sum) <= tolerance, "the total is the sum");
        require(std::fabs(matches.score(true) - sum) <= tolerance, "the sum anew is the sum");
    }
}

} // namespace Corvane::Heuristic

#endif
