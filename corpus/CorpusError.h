#ifndef CORVANE_CORPUS_CORPUSERROR_H
#define CORVANE_CORPUS_CORPUSERROR_H

// What goes wrong with results of corpora: a sentence for whoever typed the command, with the remedy.

#include <stdexcept>

namespace Corvane::Corpus {

class CorpusError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

} // namespace Corvane::Corpus

#endif
