#ifndef CORVANE_HEURISTIC_SCORE_H
#define CORVANE_HEURISTIC_SCORE_H

// The weight that a tripped rule adds to a message's total. Several rules may share one score.
//
// Threads: written only while a rule set is loaded; afterwards any number of threads may read it.

#include <string>

#include "heuristic/Export.h"
#include "host/include2/TesselRefcounted.h"

namespace Corvane::Heuristic {

class CORVANE_HEURISTIC_API Score : public RefImpl {
public:
    // The value is 0.0 until RefScore::parse sets another.
    Score();
    ~Score() override;

    float value() const { return value_; }

private:
    friend class RefScore;

    float value_;
};

class CORVANE_HEURISTIC_API RefScore : public Ref<Score> {
public:
    // A null handle: no score.
    RefScore();

    // A handle on a new score, parsed from text.
    explicit RefScore(const std::string &text);

    // Sets the value of the score held from one to four numbers separated by white space: the
    // second number where there are two or more, else the only one. Reading ends at the first text
    // that is no number; 0.0 where none can be read. Nothing is rejected. Throws code 1 on a null
    // handle.
    void parse(const std::string &text);
};

} // namespace Corvane::Heuristic

#endif
