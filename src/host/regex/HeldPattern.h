#ifndef CORVANE_SRC_HOST_REGEX_HELDPATTERN_H
#define CORVANE_SRC_HOST_REGEX_HELDPATTERN_H

// The form of a pattern whose runs can be held up, and begun behind the start of the text.

#include <string>

#include "host/regex/Definition.h"

namespace Corvane::Regex {

struct HeldPattern {
    // The pattern behind the options that it begins with. It calls back at the beginning of each
    // repeated group and each look-ahead: machine code counts no step for these, and each may read
    // all of the text. \G, where the try starts, is \A there, where the text starts: for a try from
    // the beginning of the text they are the same. \K, from where on the match counts, is left out
    // unless it matters whether a match is empty, since behind one the engine tells that place for
    // the one where it starts.
    std::string proper;
    // Whether what is repeated or looked ahead for has a repetition itself that takes as much as
    // there is, so that between two steps that it counts machine code may read the text as often as
    // it has bytes.
    bool rereads = false;
};

// The pattern must be one that compiles; otherwise what is answered does not either, or never matters.
HeldPattern heldPattern(const Definition &definition);

} // namespace Corvane::Regex

#endif
