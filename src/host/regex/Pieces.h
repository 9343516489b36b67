#ifndef CORVANE_SRC_HOST_REGEX_PIECES_H
#define CORVANE_SRC_HOST_REGEX_PIECES_H

// Lists of strings that parts of a pattern match, and how those of a whole follow from those of its parts.

#include <cstddef>
#include <string>
#include <vector>

#include "host/regex/PatternParser.h"
#include "host/regex/WorkBudget.h"

namespace Corvane::Regex {

// A string that a part of a pattern matches. Letters of it may stand for both cases (folds), or for
// themselves alone (strict), or both kinds may occur.
struct Piece {
    std::string bytes;
    bool folds = false;
    bool strict = false;
    double perMiB = -1; // expected hits; negative where that has not been worked out
};
using Pieces = std::vector<Piece>;

// How many strings may come of combining others. (A list that the pattern itself spells out may be
// longer.)
constexpr std::size_t kMaxProduct = 32;

bool isAsciiLetter(std::size_t byte);
bool isAsciiAlphanumeric(std::size_t byte);

// Appends a piece for each character of the set; the cases of a letter make one.
void addCharacters(const ByteSet &set, Pieces &pieces);

// Whether wherever piece stands, part stands too.
bool holds(const Piece &piece, const Piece &part);

bool isOnlyEmpty(const Pieces &pieces);

// Whether joining both would make too many pieces.
bool isTooMany(const Pieces &left, const Pieces &right);

// All of left before all of right. False, and joined is useless, where that is too much.
bool joinPieces(const Pieces &left, const Pieces &right, Pieces &joined, WorkBudget &budget);

// All pieces of the lists, once each. Too many leave nothing known: the empty string alone.
Pieces unitePieces(const std::vector<const Pieces *> &lists, WorkBudget &budget);

// The strings that least to most of the pieces make, one after another. False where there are too
// many: all begin and end with what all then holds.
bool repeatPieces(const Pieces &pieces, std::size_t least, std::size_t most, Pieces &all,
                  WorkBudget &budget);

// Brings the pieces to the form of literals, of which none holds another one, and shortens them until they are few enough.
// False where that does not help.
bool makeLiterals(Pieces &pieces, WorkBudget &budget);

} // namespace Corvane::Regex

#endif
