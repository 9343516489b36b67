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

} // namespace Corvane::Regex

#endif
