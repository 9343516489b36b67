#ifndef CORVANE_CORPUS_TUNE_H
#define CORVANE_CORPUS_TUNE_H

// Proposes scores for rules by what they hit in a result.
//
// Threads: a free function without state, and plain values.

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "Result.h"
#include "Statistics.h"

namespace Corvane::Corpus {

struct TuneOptions {
    // The largest score, and the smallest as a negative number of the same size.
    double most = 5.0;
    // What a false positive counts for against a miss, each as a share of its messages.
    double falsePositiveWeight = 10.0;
    // How dear large scores are: more keeps them smaller where there are few messages.
    double restraint = 0.03;
    std::size_t folds = 5;
    std::uint64_t seed = 1;
    // Whether the messages decide the sign of a score, and not the score that a rule has.
    bool chooseSigns = false;
    // Other bounds, by name of a rule.
    std::map<std::string, std::pair<double, double>> bounds;
};

struct TunedScore {
    std::string name; // of one rule or several, which have one score
    float before = 0.0F;
    float after = 0.0F;
    std::size_t hitsToBeOver = 0;
    std::size_t hitsToBeUnder = 0;
};

struct Tuning {
    double threshold = 0.0;
    // Of the rules that hit something, by name.
    std::vector<TunedScore> scores;
    std::size_t toBeOver = 0;
    std::size_t toBeUnder = 0;
    // With the scores that the rules have, and with proposed ones: each message by scores that were
    // found without it.
    std::vector<CurvePoint> before;
    std::vector<CurvePoint> expected;
};

// Finds the scores that tell messages apart best at the threshold of the result: the logistic loss is
// made as small as it can be. The same result and options give the same scores. Throws CorpusError
// where there are no messages of one sort, or bounds name no rule that hits something.
Tuning tuned(Result &result, const std::set<std::string> &toBeOver, const TuneOptions &options);

} // namespace Corvane::Corpus

#endif
