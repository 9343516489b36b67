#ifndef CORVANE_HEURISTIC_PIECES_H
#define CORVANE_HEURISTIC_PIECES_H

// How a body is cut into what body and raw-body rules are tried on.
//
// Threads: free functions without state.

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "heuristic/BodyRule.h"
#include "host/parser/Buffer.h"

namespace Corvane::Heuristic {

// A part of a body that rules are tried on at once. The unterminated rest of the body is one, whatever its length.
struct Piece {
    unsigned int start;
    unsigned int length;
    bool isRest;
};

// The length of a line without the CRs and LFs at its end.
inline unsigned int lengthWithoutLineEnd(const unsigned char *line, unsigned int length) {
    while (length > 0 && (line[length - 1] == '\r' || line[length - 1] == '\n')) {
        --length;
    }
    return length;
}

// Calls take for each piece in order, until it answers true. Complete lines are read until they come to the limit; the
// rest only where they do not. Answers the offset of what is not read, or the length.
template <class Take>
unsigned int cutIntoPieces(const Buffer &body, bool raw, Take take) {
    const unsigned int limit = raw ? BodyCheck::kMaxRawBytes : BodyCheck::kMaxDecodedBytes;
    unsigned int start = 0;
    for (std::uint64_t total = 0; total < limit && start < body.length();) {
        const unsigned char *line = body.data() + start;
        const void *found = std::memchr(line, '\n', body.length() - start);
        if (found == nullptr) {
            take(Piece{start, body.length() - start, true});
            return body.length();
        }
        const auto whole =
            static_cast<unsigned int>(static_cast<const unsigned char *>(found) - line) + 1;
        const unsigned int length = raw ? whole : lengthWithoutLineEnd(line, whole);
        for (unsigned int offset = 0; offset < length; offset += BodyCheck::kMaxPieceBytes) {
            const unsigned int size = std::min(BodyCheck::kMaxPieceBytes, length - offset);
            if (take(Piece{start + offset, size, false})) {
                return start + offset + size;
            }
        }
        total += length;
        start += whole;
    }
    return start;
}

} // namespace Corvane::Heuristic

#endif
