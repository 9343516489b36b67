#ifndef CORVANE_SRC_HOST_REGEX_PHRASEFINDER_H
#define CORVANE_SRC_HOST_REGEX_PHRASEFINDER_H

// Takes patterns that are words and gaps ("cheap\s{1,4}watches", or a list of such) apart into a literal each and the
// steps that lead away from it.

#include <optional>
#include <vector>

#include "host/regex/LiteralFacts.h"
#include "host/regex/Literals.h"
#include "host/regex/PatternParser.h"

namespace Corvane::Regex {

// A literal to look for, and what stands around it.
struct AnchoredPhrase {
    Piece anchor;
    Phrase phrase;
    std::size_t items = 0; // characters of the pattern, each with its repetition
};

// The phrase that each match of the branch is, with assertions left out; nothing where the branch is more than a sequence
// of characters and repeated characters, where a repetition could end in more than one place, or where no part of it is
// worth looking for.
std::optional<AnchoredPhrase> findPhrase(const PatternNode &branch, TextKind kind);

} // namespace Corvane::Regex

#endif
