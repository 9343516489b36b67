#ifndef CORVANE_PROBLEM_H
#define CORVANE_PROBLEM_H

// What is wrong with single lines of a rule set that was loaded all the same.
//
// Threads: plain values.

#include <string>
#include <string_view>

#include "corvane/Export.h"

namespace corvane {

// The codes and their names never change their meaning; new ones may come.
enum class ProblemCode : unsigned int {
    // "rule-refused": the definition cannot be compiled; the rule is left out.
    RuleRefused = 1,
    // "rule-duplicate": its language and kind have a rule of the name already; it is left out there.
    RuleDuplicate,
    // "rule-eval": the definition is an "eval:" form, of which there are none; it never trips.
    RuleEval,
    // "meta-fault": the expression has no value, whatever trips; the rule never does.
    MetaFault,
    // "score-refused": the line could not be handled.
    ScoreRefused,
    // "score-unreadable": there is no number where the score should be; it counts as 0.
    ScoreUnreadable,
    // "line-cut": the line is too long; the end of the definition is not read.
    LineCut
};

// Such as "rule-refused"; lives for ever.
CORVANE_API std::string_view codeName(ProblemCode code) noexcept;

struct Problem {
    ProblemCode code = ProblemCode::RuleRefused;

    // Where: the file as the set was loaded from it, the line, and the byte in it, both from 1.
    std::string file;
    unsigned int line = 0;
    unsigned int column = 0;

    // The rule that the line is about.
    std::string rule;

    // What is wrong, in one line of printable text without the place.
    std::string text;

    // Of a duplicate, where the rule is defined that stays; else "" and 0.
    std::string firstFile;
    unsigned int firstLine = 0;
};

// "FILE:LINE:COLUMN: NAME: text", as compilers write it; bytes that are not printable are written
// as \xNN.
CORVANE_API std::string toString(const Problem &problem);

} // namespace corvane

#endif
