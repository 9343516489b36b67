#ifndef CORVANE_CORPUS_MERGE_H
#define CORVANE_CORPUS_MERGE_H

// Makes one result of those of several shards.
//
// Threads: a free function without state.

#include <string>
#include <vector>

namespace Corvane::Corpus {

// Writes the result out with the messages of all inputs, of which there must be one at least; what
// several have counts once. In which order and in how many steps results are merged does not matter.
// Throws CorpusError, and leaves nothing behind, where out is there, an input is no complete result,
// or two of them are not of one corpus, one rule set, one engine, and the same settings.
void merge(const std::string &out, const std::vector<std::string> &inputs);

} // namespace Corvane::Corpus

#endif
