#ifndef CORVANE_CORPUS_PAGEPARTS_H
#define CORVANE_CORPUS_PAGEPARTS_H

// The files of page/, which the build makes texts of.
//
// Threads: constants.

namespace Corvane::Corpus {

extern const char *const kPage;
extern const char *const kPageStyle;
extern const char *const kPageScript;

} // namespace Corvane::Corpus

#endif
