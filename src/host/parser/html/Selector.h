#ifndef CORVANE_SRC_HOST_PARSER_HTML_SELECTOR_H
#define CORVANE_SRC_HOST_PARSER_HTML_SELECTOR_H

// Selectors of style sheets: elements, classes and ids, together and inside each other.
//
// Threads: plain values and pure functions.

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "host/parser/html/OpenElement.h"

namespace Corvane::Html {

// What one element has to be.
struct Compound {
    std::uint32_t name = 0; // 0: any
    std::uint32_t id = 0;   // 0: any
    std::vector<std::uint32_t> classes;
    bool isParentOfNext = false; // and not just any element around it
};

struct Selector {
    std::vector<Compound> parts; // the element itself is the last
    std::uint32_t specificity = 0;
    // Part of it is not understood and left out, so that it may match less than it does here.
    bool isDoubtful = false;
};

// The selectors of a list that can match; empty as well where the list is invalid, since one bad
// selector spoils all.
std::vector<Selector> selectorsOf(std::string_view list);

// Whether the element matches. work counts the comparisons, and none is made once it is used up:
// then nothing matches. around holds the elements around it, the outermost first.
bool matches(const Selector &selector, const ElementFacts &facts, std::span<const OpenPlace> around,
             std::size_t &work);

} // namespace Corvane::Html

#endif
