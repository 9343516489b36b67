#ifndef CORVANE_SRC_HOST_PARSER_HTML_OPENELEMENT_H
#define CORVANE_SRC_HOST_PARSER_HTML_OPENELEMENT_H

// An element whose end has not come yet.
//
// Threads: plain values.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "host/parser/html/Declarations.h"
#include "host/parser/html/Elements.h"
#include "host/parser/html/Look.h"

namespace Corvane::Html {

// What selectors ask of an element; names by their hashes. Of many classes the first are known.
struct ElementFacts {
    static constexpr std::size_t kMaxClasses = 256;

    std::uint32_t name = 0;
    std::uint32_t id = 0;               // 0: none
    std::vector<std::uint32_t> classes; // each once

    bool hasClass(std::uint32_t hash) const {
        return std::find(classes.begin(), classes.end(), hash) != classes.end();
    }
};

struct OpenElement {
    const Element *element = nullptr;
    ElementFacts facts;
    bool isLink = false;
    Declarations declared;    // for itself
    Look look;                // inside those around it
    bool inParagraph = false; // itself or around it is a <p> that a block would end
    bool inTable = false;     // itself or around it is a <table>
};

// An open element in its place among others, with what is looked for there: documents are made in
// which each tag has to look through all that is open.
struct OpenPlace {
    const Element *element;
    OpenElement *open;
    std::uint32_t name;     // of the facts
    std::uint32_t traits;   // of the element
    std::uint32_t tableRun; // parts of tables that stand one around the other from here outwards
};

} // namespace Corvane::Html

#endif
