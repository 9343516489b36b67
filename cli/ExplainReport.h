#ifndef CORVANE_CLI_EXPLAINREPORT_H
#define CORVANE_CLI_EXPLAINREPORT_H

// How explanations are shown: as text for people, or a JSON object a line.
//
// Threads: one thread.

#include <ostream>

#include "MessageSource.h"
#include "corvane/Explanation.h"

namespace Corvane::Cli {

class ExplainReport {
public:
    // out must outlive the object.
    ExplainReport(std::ostream &out, float threshold, bool json)
        : out_(out), threshold_(threshold), isJson_(json) {}

    void message(const RawMessage &raw, const corvane::Explanation &why);

private:
    void text(const RawMessage &raw, const corvane::Explanation &why);
    void rule(const corvane::RuleExplanation &told);
    void place(const corvane::ExplainedText &text);
    void nearest(const corvane::NearestTry &nearest);
    void steps(const corvane::RuleExplanation &told);
    void excerpt(const std::string &text, std::size_t start, std::size_t end);

    std::ostream &out_;
    float threshold_;
    bool isJson_;
    bool isFirst_ = true;
    // Of the scores as they are shown, up to the rule at hand.
    double sum_ = 0.0;
};

} // namespace Corvane::Cli

#endif
