#ifndef CORVANE_CORPUS_EXPORT_H
#define CORVANE_CORPUS_EXPORT_H

// A result as text that programs and people can compare.
//
// Threads: a free function without state.

#include <ostream>

#include "Result.h"

namespace Corvane::Corpus {

// Writes JSON objects, one a line: the settings, the rules, and the messages sorted by class, path and
// number. The lines are the same for every way to come to the result: by threads, shards, or in
// several goes. With times, which no two runs have the same, they are in them too.
void exportResult(Result &result, std::ostream &out, bool times);

} // namespace Corvane::Corpus

#endif
