#ifndef CORVANE_CORPUS_PAGE_H
#define CORVANE_CORPUS_PAGE_H

// Reports and differences as pages for browsers.
//
// Threads: free functions without state.

#include <string>

namespace Corvane::Corpus {

// One page that shows the object, as toJson() (StatisticsJson.h) gives it. It needs nothing besides:
// no network, no other file.
std::string pageOf(const std::string &json);

// Writes a file as a whole: under another name, and then in the place of what may be there. Throws
// CorpusError where that fails, when nothing has changed.
void writeWhole(const std::string &path, const std::string &content);

} // namespace Corvane::Corpus

#endif
