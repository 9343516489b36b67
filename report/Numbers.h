#ifndef CORVANE_REPORT_NUMBERS_H
#define CORVANE_REPORT_NUMBERS_H

// Scores and totals as every program of the system shows them.
//
// Threads: free functions without state.

#include <string>

#include "corvane/Verdict.h"

namespace Corvane::Reporting {

// The shortest decimal that stands for this float and no other.
std::string shortest(float value);

// The total of a verdict as it is shown: that of the scores as they are shown. A running total of
// floats picks up a last digit or two that no score has (96.535995 for 96.536); it is shown itself
// only where the other would lie on the wrong side of the threshold.
float shownTotal(const corvane::Verdict &verdict, float threshold);

} // namespace Corvane::Reporting

#endif
