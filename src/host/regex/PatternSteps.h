#ifndef CORVANE_SRC_HOST_REGEX_PATTERNSTEPS_H
#define CORVANE_SRC_HOST_REGEX_PATTERNSTEPS_H

// A pattern as a non-deterministic automaton: steps that take one byte each, and which of them may
// follow which. The tree and the budget must outlive it.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "host/regex/PatternParser.h"
#include "host/regex/WorkBudget.h"

namespace Corvane::Regex {

class PatternSteps {
public:
    using Number = std::uint16_t;

    // Steps that may come next, in ascending order, and whether the match may be complete.
    struct Next {
        std::vector<Number> steps;
        bool accepts = false;
    };

    // Nothing where the pattern would have too many steps, or the budget does not suffice. Matches all that the tree matches; more
    // where parts of it are repeated often, and without the assertions of edges where the caller
    // says so.
    enum class Edges { Kept, Ignored };
    static std::optional<PatternSteps> of(const PatternNode &root, Edges edges, WorkBudget &budget);

    // At the start of the subject, and elsewhere. Once the budget is spent every match may be complete.
    Next atStart() const { return follow(entry_, true); }
    Next elsewhere() const { return follow(entry_, false); }

    // After a step, which is no end.
    Next after(Number step) const { return follow(steps_[step].next, false); }

    // Whether the step is the end of the subject, or a line end there.
    bool isEnd(Number step) const { return steps_[step].kind == Step::Kind::End; }
    bool isByte(Number step) const { return steps_[step].kind == Step::Kind::Bytes; }
    const ByteSet &bytes(Number step) const { return *steps_[step].bytes; }
    std::size_t size() const { return steps_.size(); }

private:
    struct Step {
        enum class Kind : std::uint8_t { Accept, Bytes, Either, Start, End };

        Kind kind = Kind::Accept;
        Number next = 0;
        Number other = 0; // of Either
        const ByteSet *bytes = nullptr;
    };

    explicit PatternSteps(WorkBudget &budget) : budget_(&budget) {}

    Number add(const Step &step);
    Number build(const PatternNode &node, Number next, Edges edges);
    Number buildSet(const PatternNode &node, Number next);
    Number buildRepeat(const PatternNode &node, Number next, Edges edges);
    Next follow(Number first, bool start) const;

    WorkBudget *budget_;
    std::vector<Step> steps_;
    Number entry_ = 0;
};

} // namespace Corvane::Regex

#endif
