#ifndef CORVANE_HOST_REGEX_LITERALS_H
#define CORVANE_HOST_REGEX_LITERALS_H

// What every match of an expression must contain: literals that a scan for thousands of literals at
// once can look for, so that only few expressions are matched against a text.
//
//     RequiredLiterals required = requiredLiterals("/free.{0,9}offer/i", kAnyLineEnd, TextKind::Text);
//     // required.alternatives: "offer", ignoring case; required.second: "free", ignoring case
//
// Everything told here is necessary for a match: where a claim does not hold for a subject, the
// expression does not match it. (An expression that fails in a subject does not match it either.)
// A pattern that is not understood throughout gives no claim at all.
//
// "The subject" below is the part of it at or after the offset where matching starts, which is to be 0 where the pattern is
// bound to the start.
//
// Threads: free function without state; results are plain values.

#include <bitset>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "host/regex/Export.h"
#include "host/regex/WorkBudget.h"

namespace Corvane::Regex {

// Where the expression will be matched. It decides which literals are rare, and nothing else.
enum class TextKind { Text, RawText, Uri, HeaderText };

// Bytes to look for. Where ignoreCase is true, ASCII letters (no other bytes) stand for both cases
// and bytes holds them in lower case; a literal without letters is never marked so.
struct Literal {
    std::string bytes;
    bool ignoreCase = false;

    bool operator==(const Literal &other) const {
        return ignoreCase == other.ignoreCase && bytes == other.bytes;
    }
    bool operator!=(const Literal &other) const { return !(*this == other); }
};

// One of some bytes, a number of times.
struct PhraseStep {
    static constexpr std::uint32_t kUnlimited = 0xFFFFFFFF;

    std::bitset<256> bytes;
    std::uint32_t least = 1;
    std::uint32_t most = 1;
};

// What stands around a literal, as steps away from it: before goes to the left. Each step takes as many bytes as it can;
// no other number could lead to a match. PhraseTable tells whether a place in a text is of that kind.
struct Phrase {
    std::vector<PhraseStep> before;
    std::vector<PhraseStep> after;
};

// Upper bounds of what requiredLiterals gives.
constexpr std::size_t kMaxAlternatives = 256;
constexpr std::size_t kMaxSecond = 8;
constexpr std::size_t kMaxByteSets = 4;
// No pattern costs more, however much the budget allows. What is left to find out then is not known.
constexpr std::uint64_t kMaxPatternSteps = 32000000;

// No literal is empty or begins with a zero byte, and no list holds the same literal twice, but for companions, and for
// alternatives that have phrases.
struct RequiredLiterals {
    // The subject holds at least one of these. Empty where nothing worth looking for was found.
    std::vector<Literal> alternatives;

    // Empty, or for each of alternatives another literal that must occur as well: an alternative without it does not
    // count. One with empty bytes asks for nothing.
    std::vector<Literal> companions;

    // Empty, or for each of alternatives what stands around it: the subject holds at least one of them with what its
    // phrase asks for.
    std::vector<Phrase> phrases;

    // Another list like alternatives, of at most kMaxSecond, from another place in the pattern: it tells what the
    // first does not. Empty without alternatives.
    std::vector<Literal> second;

    // The subject without its bytes outside a-z, A-Z and 0-9 holds at least one of these, which
    // consist of such bytes only. Given where this is the better thing to look for: where
    // alternatives is empty, or far more frequent.
    std::vector<Literal> squeezed;

    // The subject holds a byte of each of these sets. Given where alternatives is empty.
    std::vector<std::bitset<256>> byteSets;

    // The subject has at least so many bytes, and at most so many.
    std::size_t minimumLength = 0;
    std::size_t maximumLength = std::numeric_limits<std::size_t>::max();

    // Where this is not every byte, the subject begins with one of these.
    std::bitset<256> firstBytes = ~std::bitset<256>();

    // Of subjects of up to wholeUpTo bytes the expression matches exactly those that hold one of alternatives, with its
    // phrase where phrases are given. In longer ones it might be given up before it comes to the place.
    bool whole = false;
    std::size_t wholeUpTo = std::numeric_limits<std::size_t>::max();

    // How often literals of a list will be found in a MiB of such text, as a coarse guess.
    double alternativesPerMiB = 0;
    double squeezedPerMiB = 0;
};

// text and options as the constructor of Expression takes them; the answer means nothing where that
// refuses them. Nothing is thrown but for want of memory.
CORVANE_REGEX_API RequiredLiterals requiredLiterals(const std::string &text, unsigned int options,
                                                    TextKind kind);

// The same, at the cost of a budget. What cannot be found out with what is left of it is not claimed.
CORVANE_REGEX_API RequiredLiterals requiredLiterals(const std::string &text, unsigned int options,
                                                    TextKind kind, WorkBudget &budget);

} // namespace Corvane::Regex

#endif
