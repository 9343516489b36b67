#ifndef CORVANE_SRC_HOST_REGEX_LITERALFACTS_H
#define CORVANE_SRC_HOST_REGEX_LITERALFACTS_H

// What all matches of a pattern have in common, worked out from its tree.

#include <cstddef>
#include <string>
#include <vector>

#include "host/regex/Literals.h"
#include "host/regex/PatternParser.h"

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

// Pieces of which at least one stands in every match. None is empty, begins with a zero byte or
// holds another one; where one folds, it is in lower case.
struct Factor {
    Pieces pieces;
    double cost = 0;      // expected hits in a MiB, and a little for each piece
    unsigned int run = 0; // factors of one run overlap in the pattern, so that one tells most
};

// Bytes, and their share of all.
struct RareSet {
    ByteSet bytes;
    double share = 0;
};

struct Facts {
    std::size_t least = 0; // bytes
    // exact: prefix holds all strings that match, and suffix is the same.
    // Otherwise: each match begins with one of prefix and ends with one of suffix.
    bool exact = true;
    Pieces prefix{Piece()};
    Pieces suffix{Piece()};
    unsigned int prefixRun = 0; // 0 where no run is known
    unsigned int suffixRun = 0;
    std::vector<Factor> factors; // the cheapest first, one of a run
    std::vector<RareSet> sets;   // each match has a byte of each; the rarest first
};

class FactFinder {
public:
    // What to look at: the text as it is, or what is left of it without everything but ASCII
    // letters and digits, or at single bytes of it: only this view gives sets, and it gives no
    // factors.
    enum class View { Plain, Squeezed, Bytes };

    FactFinder(TextKind kind, View view) : kind_(kind), view_(view) {}

    // The facts of a whole pattern: factors holds the best ones of all.
    Facts find(const PatternNode &root);

    // The cheapest factor that the pieces give; false where one is empty or they are too frequent.
    bool makeFactor(Pieces pieces, Factor &factor) const;

private:
    struct Run;

    Facts of(const PatternNode &node);
    Facts ofSet(const PatternNode &node);
    Facts ofSequence(const PatternNode &node);
    Facts ofAlternation(const PatternNode &node);
    Facts ofRepeat(const PatternNode &node);
    Facts ofAhead(const PatternNode &node);

    void addFactor(Facts &facts, Pieces pieces, unsigned int run);
    static void addFactor(Facts &facts, const Factor &factor);
    void addEnds(Facts &facts);
    void addSet(Facts &facts, const ByteSet &set) const;
    void addUnion(Facts &facts, const std::vector<Facts> &branches, std::size_t rank);
    void addRun(const Run &run, Facts &facts);
    void extend(Run &run, const Pieces &next, Facts &facts);

    TextKind kind_;
    View view_;
    unsigned int runs_ = 0;
};

// Appends a piece for each character of the set; the cases of a letter make one.
void addCharacters(const ByteSet &set, Pieces &pieces);

// Whether wherever piece stands, part stands too.
bool holds(const Piece &piece, const Piece &part);

} // namespace Corvane::Regex

#endif
