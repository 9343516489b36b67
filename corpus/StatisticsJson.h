#ifndef CORVANE_CORPUS_STATISTICSJSON_H
#define CORVANE_CORPUS_STATISTICSJSON_H

// Statistics and differences as JSON, for programs and for the pages that show them.
//
// Threads: free functions without state.

#include <string>

#include "Difference.h"
#include "Result.h"
#include "Statistics.h"

namespace Corvane::Corpus {

// One object, in one line.
std::string toJson(Result &result, const Statistics &statistics);
std::string toJson(Result &before, Result &after, const Difference &difference);

} // namespace Corvane::Corpus

#endif
