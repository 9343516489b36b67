#ifndef CORVANE_SRC_HOST_PARSER_HTML_LOOK_H
#define CORVANE_SRC_HOST_PARSER_HTML_LOOK_H

// How the text of an element looks, as far as that decides whether it can be seen.
//
// Threads: plain values and pure functions.

#include "host/parser/html/Declarations.h"
#include "host/parser/html/Elements.h"

namespace Corvane::Html {

struct Look {
    bool isGone = false;      // not displayed, or wholly transparent, with all that is in it
    bool isClipped = false;   // in a box without extent that cuts off what does not fit
    bool isInvisible = false; // takes up its place
    bool isTiny = false;      // letters of no size
    bool isPainted = false;   // shadows or strokes show what its colour hides
    bool isPreserved = false; // line ends in it are line ends
    bool isBlock = false;     // of this element itself: stands on lines of its own
    bool isForeign = false;   // SVG or MathML, where other names and rules hold
    Colour colour{};          // Unknown where nobody gave one
    Colour background{};      // the nearest that is not transparent

    // Whether nobody sees the text. In doubt it is seen.
    bool isHidden() const;
};

// How an element looks inside a parent. inQuirks: in a document without a type, tables do not take
// sizes and colours of text over.
Look lookOf(const Element &element, bool isLink, const Declarations &declared, const Look &parent,
            bool inQuirks);

} // namespace Corvane::Html

#endif
