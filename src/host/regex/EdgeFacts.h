#ifndef CORVANE_SRC_HOST_REGEX_EDGEFACTS_H
#define CORVANE_SRC_HOST_REGEX_EDGEFACTS_H

// What patterns that are bound to the start or the end of the subject say about it.

#include <optional>

#include "host/regex/PatternParser.h"

namespace Corvane::Regex {

struct EdgeFacts {
    // The subject begins with one of these.
    std::optional<ByteSet> firstBytes;
    // The subject has no more bytes than this.
    std::size_t maximumLength = PatternNode::kUnlimited;
};

// Of a pattern that is not in UTF-8: the engine takes the valid parts of such a subject for subjects of their own.
EdgeFacts findEdgeFacts(const PatternNode &root);

// Whether a match may begin with that byte, or be empty.
bool mayBeginWith(const PatternNode &root, unsigned char byte);

} // namespace Corvane::Regex

#endif
