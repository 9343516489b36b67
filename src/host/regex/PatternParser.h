#ifndef CORVANE_SRC_HOST_REGEX_PATTERNPARSER_H
#define CORVANE_SRC_HOST_REGEX_PATTERNPARSER_H

// Reads the syntax of patterns into a tree that says which bytes matches consist of.
//
// The tree may match more than the pattern does (most assertions become nothing, back-references become
// anything), never less: whatever all matches of the tree contain, all matches of the pattern
// contain too.

#include <bit>
#include <bitset>
#include <cstddef>
#include <limits>
#include <optional>
#include <vector>

#include "host/regex/Definition.h"

namespace Corvane::Regex {

using ByteSet = std::bitset<256>;

// The bytes above 127: those of the UTF-8 sequences that have several.
inline const ByteSet &highBytes() {
    static const ByteSet s_set = ~ByteSet() << 128;
    return s_set;
}

// Calls visit with each byte of the set, in ascending order.
template <class Visit>
void forEachByte(const ByteSet &set, Visit visit) {
    constexpr std::size_t kWordBits = 64;
    constexpr ByteSet kWord(~0ULL);
    for (std::size_t start = 0; start < set.size(); start += kWordBits) {
        unsigned long long bits = (set >> start & kWord).to_ullong();
        for (; bits != 0; bits &= bits - 1) {
            visit(start + static_cast<std::size_t>(std::countr_zero(bits)));
        }
    }
}

struct PatternNode {
    enum class Kind {
        Empty,       // matches nothing, everywhere
        Start,       // matches nothing, at the start of the subject
        End,         // matches nothing, at its end or before a line end there
        Set,         // one of bytes, or with wide any UTF-8 sequence of several bytes
        Sequence,    // children one after another
        Alternation, // one of the children
        Repeat,      // the only child least to most times
        Ahead        // the only child stands here, but is not part of the match
    };
    static constexpr std::size_t kUnlimited = std::numeric_limits<std::size_t>::max();

    Kind kind = Kind::Empty;
    bool wide = false;
    ByteSet bytes;
    std::size_t least = 1;
    std::size_t most = 1;
    std::vector<PatternNode> children;
};

// Whether the node is known to match no byte.
inline bool isZeroWidth(const PatternNode &node) {
    return node.kind == PatternNode::Kind::Empty || node.kind == PatternNode::Kind::Start ||
           node.kind == PatternNode::Kind::End;
}

struct ParsedPattern {
    PatternNode root;
    // Whether the tree matches exactly what the pattern matches.
    bool exact = true;
    // Whether no repetition takes as few as it can.
    bool greedy = true;
    // Where the first class begins that is written with bytes above 127, outside of UTF-8.
    std::optional<std::size_t> byteClass;
};

// Nothing where the pattern holds what is not understood. A pattern that does not compile may give
// anything.
std::optional<ParsedPattern> parsePattern(const Definition &definition);

} // namespace Corvane::Regex

#endif
