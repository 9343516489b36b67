#ifndef CORVANE_HOST_REGEX_REFUSAL_H
#define CORVANE_HOST_REGEX_REFUSAL_H

// What the exception of an expression that could not be compiled says, taken apart.
//
// Threads: any.

#include <cstddef>
#include <optional>
#include <string>

#include "host/parser/Exception.h"
#include "host/regex/Export.h"

namespace Corvane::Regex {

struct Refusal {
    // Why, without the place.
    std::string reason;

    // The byte of the pattern, from 0, at which the compiler gave up; the pattern of a slash form
    // begins behind its first slash. None where the form itself is at fault.
    std::optional<std::size_t> offset;

    // The text that was to be compiled; of a long one the beginning and "...".
    std::string text;
};

// None for an exception that no Expression has thrown. Causes are not looked at.
CORVANE_REGEX_API std::optional<Refusal> refusalOf(const Exception &failure);

} // namespace Corvane::Regex

#endif
