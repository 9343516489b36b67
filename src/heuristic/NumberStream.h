#ifndef CORVANE_HEURISTIC_NUMBERSTREAM_H
#define CORVANE_HEURISTIC_NUMBERSTREAM_H

// Reads the numbers of rule files, which have decimal points whatever the locale of the embedding
// program. Where memory runs out it throws: a stream as it comes takes that for the end of the
// numbers, and a score would be 0.
//
// Threads: one.

#include <locale>
#include <sstream>
#include <string>

namespace Corvane::Heuristic {

class NumberStream : public std::istringstream {
public:
    explicit NumberStream(const std::string &text) : std::istringstream(text) {
        imbue(std::locale::classic());
        exceptions(std::ios_base::badbit);
    }
};

} // namespace Corvane::Heuristic

#endif
