#ifndef CORVANE_CORPUS_STATISTICS_H
#define CORVANE_CORPUS_STATISTICS_H

// What a result says of the rules and of the messages' classes.
//
// Threads: free functions without state, and plain values.

#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "Result.h"

namespace Corvane::Corpus {

struct ClassStatistics {
    std::string name;
    // Whether its messages are to be over the threshold.
    bool isToBeOver = false;
    std::size_t messages = 0; // those that could be read
    std::size_t over = 0;
    std::size_t failed = 0;
    double meanMilliseconds = 0.0;
    // Messages by their total, as the Histogram has it.
    std::vector<std::size_t> histogram;
};

// The steps that totals are counted by: step i is from first + i * width on; the first and the last
// one have what is beyond them, too.
struct Histogram {
    double first = 0.0;
    double width = 1.0;
    std::size_t steps = 0;
};

struct RuleStatistics {
    std::size_t id = 0; // its place in the set
    std::string name;
    std::string kind;
    std::string languages;
    std::string file;
    std::size_t line = 0;
    float score = 0.0F;
    bool isActive = false;
    std::string description;
    std::vector<std::size_t> hits; // by class
    std::size_t hitsToBeOver = 0;
    std::size_t hitsToBeUnder = 0;
    // Messages whose verdict would be the other one without its score.
    std::size_t decided = 0;
    std::uint64_t tries = 0;
    std::uint64_t bytes = 0;
    std::uint64_t limited = 0;
    std::int64_t nanoseconds = 0;

    std::size_t all() const { return hitsToBeOver + hitsToBeUnder; }
    // Of the messages that it hits, the part that is to be over; 0 where it hits none.
    double precision() const;
};

// Two rules that hit the same messages.
struct Overlap {
    std::size_t one = 0;
    std::size_t two = 0;
    std::size_t both = 0;
    double jaccard = 0.0; // both of those that either hits
};

// What a threshold would do: messages over it that are to be under, and the other way round.
struct CurvePoint {
    double threshold = 0.0;
    std::size_t falsePositives = 0;
    std::size_t misses = 0;
};

struct NearMessage {
    std::string category;
    std::string path;
    std::size_t number = 0;
    float total = 0.0F;
    bool isOver = false;
    bool isRight = false;
};

struct Statistics {
    double threshold = 0.0;
    std::size_t toBeOver = 0; // messages
    std::size_t toBeUnder = 0;
    std::size_t falsePositives = 0;
    std::size_t misses = 0;
    Histogram histogram;
    std::vector<ClassStatistics> classes;
    std::vector<RuleStatistics> rules;
    std::vector<Overlap> overlaps;    // those that overlap most first
    std::vector<CurvePoint> curve;    // by rising threshold
    std::vector<NearMessage> nearest; // to the threshold first
};

// The curve of totals: at each of them, or of very many at so many evenly, and at the threshold.
std::vector<CurvePoint> curveOf(std::vector<float> over, std::vector<float> under,
                                double threshold);

// The names of the classes whose messages are to be over, of those that a result has: those given, each
// of which must be one; without any those whose names say so, such as "spam" and "phish-2024". Throws
// CorpusError for a name that is no class.
std::set<std::string> classesToBeOver(Result &result, const std::vector<std::string> &given);

// most: how many overlaps and near messages are kept.
Statistics statisticsOf(Result &result, const std::set<std::string> &toBeOver, std::size_t most);

} // namespace Corvane::Corpus

#endif
