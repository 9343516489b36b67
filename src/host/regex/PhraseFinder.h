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

// What bounds the steps of the engine in a branch, where each repetition is of one set of characters and ends in one place
// only: it may still go back through what a repetition took, once for each byte.
struct PhraseEffort {
    // Whether that is so.
    bool isKnown = true;
    std::size_t items = 0;    // and groups
    std::size_t optional = 0; // of the items, those that may be missing
    // The most bytes that all repetitions may take; PatternNode::kUnlimited for any number.
    std::size_t repeated = 0;
    // The sets of the single characters before the first repetition: where the text holds other ones, none begins.
    std::vector<ByteSet> start;
};

// A literal to look for, and what stands around it.
struct AnchoredPhrase {
    Piece anchor;
    Phrase phrase;
    PhraseEffort effort;
};

// The phrase that each match of the branch is, with assertions left out; nothing where the branch is more than a sequence
// of characters and repeated characters, where a repetition could end in more than one place, where no part of it is
// worth looking for, or where the budget does not suffice.
std::optional<AnchoredPhrase> findPhrase(const PatternNode &branch, TextKind kind,
                                         WorkBudget &budget);

} // namespace Corvane::Regex

#endif
