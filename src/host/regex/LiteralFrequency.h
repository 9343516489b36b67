#ifndef CORVANE_SRC_HOST_REGEX_LITERALFREQUENCY_H
#define CORVANE_SRC_HOST_REGEX_LITERALFREQUENCY_H

// How often a literal stands in a kind of text, guessed from fixed tables: how often pairs of
// characters follow each other, and how frequent the furniture of such text is ("https://", "href=",
// " the "), which those pairs alone would take for rare.

#include <string>
#include <utility>

#include "host/regex/Literals.h"
#include "host/regex/PatternParser.h"

namespace Corvane::Regex {

// Expected occurrences in a MiB, without regard to case. bytes must not be empty.
double expectedPerMiB(const std::string &bytes, TextKind kind);

// The part of a string that a scan should look for: its offsets, the second behind the end. It has at most
// kMaxLiteralBytes, and rare last bytes, which a scan looks at first.
std::pair<std::size_t, std::size_t> rarestPart(const std::string &bytes, TextKind kind);
constexpr std::size_t kMaxLiteralBytes = 32;

// The share of bytes that are in the set, from 0 to 1.
double expectedShare(const ByteSet &set, TextKind kind);

} // namespace Corvane::Regex

#endif
