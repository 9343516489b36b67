#ifndef CORVANE_SRC_HOST_REGEX_LITERALFACTS_H
#define CORVANE_SRC_HOST_REGEX_LITERALFACTS_H

// What all matches of a pattern have in common, worked out from its tree.

#include <cstddef>
#include <vector>

#include "host/regex/Literals.h"
#include "host/regex/PatternParser.h"
#include "host/regex/Pieces.h"
#include "host/regex/WorkBudget.h"

namespace Corvane::Regex {

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

    // The budget is the caller's, and must outlive the finder.
    FactFinder(TextKind kind, View view, WorkBudget &budget)
        : kind_(kind), view_(view), budget_(budget) {}

    // The facts of a whole pattern: factors holds the best ones of all. Of what comes when the budget is spent nothing is
    // known.
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
    void addUnion(Facts &facts, const std::vector<Facts> &branches);
    Pieces unite(const std::vector<Facts> &branches, Pieces Facts::*end) const;
    void addRun(const Run &run, Facts &facts);
    void extend(Run &run, const Pieces &next, Facts &facts);

    TextKind kind_;
    View view_;
    WorkBudget &budget_;
    unsigned int runs_ = 0;
};

} // namespace Corvane::Regex

#endif
