#ifndef CORVANE_CORPUS_DIFFERENCE_H
#define CORVANE_CORPUS_DIFFERENCE_H

// What differs between two results over one corpus.
//
// Threads: a free function without state, and plain values.

#include <cstddef>
#include <set>
#include <string>
#include <vector>

#include "Result.h"
#include "Statistics.h"

namespace Corvane::Corpus {

// A setting that two results differ in.
struct SettingChange {
    std::string name;
    std::string before;
    std::string after;
};

// One rule's part in a message's other total.
struct HitChange {
    std::string rule;
    float before = 0.0F; // what it added; 0 where it did not trip
    float after = 0.0F;
    bool wasHit = false;
    bool isHit = false;
};

// A message whose verdict is another one.
struct VerdictChange {
    std::string category;
    std::string path;
    std::size_t number = 0;
    float before = 0.0F;
    float after = 0.0F;
    bool isOver = false; // after
    bool isRight = false;
    // Those that add something else than before, the largest change first.
    std::vector<HitChange> rules;
};

// A rule, known by its name, kind and languages, that one result alone has, or that has another score
// or hits other messages.
struct RuleChange {
    std::string name;
    std::string kind;
    std::string languages;
    bool was = false;
    bool is = false;
    float scoreBefore = 0.0F;
    float scoreAfter = 0.0F;
    // Messages that are to be over, and under.
    std::size_t overBefore = 0;
    std::size_t overAfter = 0;
    std::size_t underBefore = 0;
    std::size_t underAfter = 0;
};

struct Difference {
    std::vector<SettingChange> settings;
    std::size_t messages = 0;
    // The classes of what became over or under: wrong, or right.
    std::size_t newFalsePositives = 0;
    std::size_t mendedFalsePositives = 0;
    std::size_t newMisses = 0;
    std::size_t mendedMisses = 0;
    // Messages that could be read in one of the two alone.
    std::size_t readByOne = 0;
    std::vector<VerdictChange> verdicts;
    std::vector<RuleChange> rules;
    Statistics before;
    Statistics after;
};

// toBeOver: the classes whose messages are to be over. Throws CorpusError where the results are not of
// one corpus, or not of all shards of it.
Difference differenceOf(Result &before, Result &after, const std::set<std::string> &toBeOver);

} // namespace Corvane::Corpus

#endif
