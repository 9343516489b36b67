#ifndef CORVANE_HOST_REGEX_PATTERNREVIEW_H
#define CORVANE_HOST_REGEX_PATTERNREVIEW_H

// What people who write an expression should know of it, beyond whether it compiles.
//
// Threads: free function without state; results are plain values.

#include <cstddef>
#include <optional>
#include <string>

#include "host/regex/Export.h"

namespace Corvane::Regex {

// What holds an offset counts bytes of the expression's text, its slash included.
struct PatternReview {
    // Whether all of the pattern's syntax is known here; where it is not, nothing else is told but
    // the dots.
    bool isUnderstood = false;

    // Each match has so many bytes at least.
    std::size_t minimumLength = 0;

    // Whether each match holds a line feed.
    bool needsLineFeed = false;

    // Whether something is repeated without end that ends in something repeated without end, and
    // may begin with the same bytes: to find that it does not match takes steps beyond number.
    bool hasNestedRepeats = false;

    // Where the first class begins that has characters outside ASCII, where these are compared
    // byte by byte.
    std::optional<std::size_t> byteClass;

    // Whether the pattern begins, or ends, with .* which changes nothing there.
    bool beginsWithDots = false;
    bool endsWithDots = false;
};

// text and options as the constructor of Expression takes them; the answer means nothing where that
// refuses them. Nothing is thrown but for want of memory.
CORVANE_REGEX_API PatternReview reviewPattern(const std::string &text, unsigned int options);

} // namespace Corvane::Regex

#endif
