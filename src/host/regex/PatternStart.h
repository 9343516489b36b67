#ifndef CORVANE_SRC_HOST_REGEX_PATTERNSTART_H
#define CORVANE_SRC_HOST_REGEX_PATTERNSTART_H

// What the text of a pattern says to the engine itself, rather than about the texts that match.

#include <cstddef>
#include <string>

namespace Corvane::Regex {

// The options that a pattern may begin with: (*NOTEMPTY), (*LIMIT_MATCH=100), (*CRLF) and so on.
struct StartOptions {
    // Where the pattern proper begins.
    std::size_t end = 0;
    // The options without (*NOTEMPTY_ATSTART), and whether that was among them.
    std::string others;
    bool notEmptyAtStart = false;
    // Whether it matters if a match is empty.
    bool mindsEmpty = false;
};

StartOptions readStartOptions(const std::string &pattern);

// Whether the pattern may hold a look-around that is not atomic. Where it seems to hold one in a
// class, a quotation or a comment, the answer is also true.
bool mayHoldNonAtomicLookaround(const std::string &pattern);

// Whether behind its options the pattern may tell the engine where to go on: (*SKIP), (*COMMIT) and the
// like. Where it seems to do so in a class, a quotation or a comment, the answer is also true.
bool mayHoldVerb(const std::string &pattern);

// The pattern with each \G, where the try starts, made a \A, where the text starts. For a try from the
// beginning of the text they are the same.
std::string startingAtText(const std::string &pattern);

// The pattern with each \K, from where on the match counts, made a \E, which is nothing. Where an empty
// match is as good as another one, they match the same texts.
std::string withoutResets(const std::string &pattern);

// The pattern with a callback at the beginning of each look-ahead.
struct LookaheadCalls {
    std::string pattern;
    // Whether any of these has a repetition without bound, so that it may read all of a text.
    bool isUnbounded = false;
    // False where the pattern is as it was, since it cannot be told what is a look-ahead: in extended
    // patterns that may hold comments.
    bool isSure = true;
};

LookaheadCalls callsInLookaheads(const std::string &pattern, bool isExtended);

} // namespace Corvane::Regex

#endif
