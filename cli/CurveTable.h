#ifndef CORVANE_CLI_CURVETABLE_H
#define CORVANE_CLI_CURVETABLE_H

// Threshold curves as text for people.
//
// Threads: free functions without state.

#include <cstddef>
#include <ostream>
#include <string>
#include <vector>

#include "corpus/Statistics.h"

namespace Corvane::Cli {

// Columns that are as wide as they need to be: texts to the left, numbers to the right.
class TextTable {
public:
    explicit TextTable(std::vector<std::string> heads) : rows_{std::move(heads)} {}

    void add(std::vector<std::string> row) { rows_.push_back(std::move(row)); }

    // The first columns, so many, are numbers.
    void write(std::ostream &out, std::size_t numbers) const;

private:
    std::vector<std::vector<std::string>> rows_;
};

// "3.98 %"
std::string shareOf(std::size_t part, std::size_t whole);

// One line: false positives and misses at the threshold, which is on the curve.
void writeThreshold(const std::vector<Corpus::CurvePoint> &curve, double threshold,
                    std::size_t toBeOver, std::size_t toBeUnder, std::ostream &out);

// For shares of false positives the lowest threshold that has no more, and the misses at it.
void writeCurve(const std::vector<Corpus::CurvePoint> &curve, std::size_t toBeOver,
                std::size_t toBeUnder, std::ostream &out);

} // namespace Corvane::Cli

#endif
