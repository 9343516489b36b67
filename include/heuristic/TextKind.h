#ifndef CORVANE_HEURISTIC_TEXTKIND_H
#define CORVANE_HEURISTIC_TEXTKIND_H

// What kind of text the patterns of each kind of rule are tried on.
//
// Threads: a free function without state.

#include "heuristic/Rule.h"
#include "host/regex/Literals.h"

namespace Corvane::Heuristic {

// Raw text for the kinds that have no patterns, too.
inline Regex::TextKind textKindOf(Rule::Type kind) {
    switch (kind) {
    case Rule::Header:
        return Regex::TextKind::HeaderText;
    case Rule::Uri:
        return Regex::TextKind::Uri;
    case Rule::Body:
        return Regex::TextKind::Text;
    default:
        return Regex::TextKind::RawText;
    }
}

} // namespace Corvane::Heuristic

#endif
