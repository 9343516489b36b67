#ifndef CORVANE_HEURISTIC_PARTTEXT_H
#define CORVANE_HEURISTIC_PARTTEXT_H

// The texts of a message's main part.
//
// Threads: a free function without state.

#include "host/parser/MimePart.h"

namespace Corvane::Heuristic {

// Null where the part is null, or has no such text. Owned by the part.
inline const MPartText *partText(const MimePart *part, MPartAttribute::Type type) {
    return part == nullptr ? nullptr : dynamic_cast<const MPartText *>(part->findAttr(type));
}

} // namespace Corvane::Heuristic

#endif
