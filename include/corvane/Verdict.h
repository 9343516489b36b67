#ifndef CORVANE_VERDICT_H
#define CORVANE_VERDICT_H

// What came out of one message.
//
// Threads: a plain value, which keeps nothing else alive and may outlive its rule set.

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "corvane/Rule.h"

namespace corvane {

// A rule that tripped; the fields are those of Rule.
struct Hit {
    std::string name;
    RuleKind kind = RuleKind::Body;
    float score = 0.0F;
    std::string description;
    std::string file;
    unsigned int line = 0;
};

// What a message does so that its reader sees something else than what was sent.
struct Disguise {
    std::size_t hiddenTextBytes = 0;     // text of HTML that nobody sees
    std::size_t invisibleCharacters = 0; // such as zero-width blanks, in texts
};

class Verdict {
public:
    // The total: the scores of all hits, added in the order in which they tripped.
    float score() const noexcept { return score_; }

    // Whether the total is above the threshold.
    bool over() const noexcept { return over_; }

    // Whether the scan ended early because the total had come above the threshold, with
    // ScanOptions::stop only. The total is nearly always over then; but what the stage at hand
    // still added, a link with a negative score for one, may have taken it back.
    bool stopped() const noexcept { return stopped_; }

    // The section whose rules were tried, as Rule::languages has it; lives for ever.
    std::string_view language() const noexcept { return language_; }

    // The rules that tripped, by name; sub-rules among them.
    const std::vector<Hit> &hits() const noexcept { return hits_; }

    // The limits that cut something off, such as "text-bytes"; "budget" where that ended the scan.
    // A message with a limit may have more to it than the verdict knows. The names live for ever.
    const std::vector<std::string_view> &limits() const noexcept { return limits_; }

    // How many tries of a rule were given up because the pattern took too many steps; each counts
    // as no match.
    std::size_t stepLimited() const noexcept { return stepLimited_; }

    // The names of the rules of such tries, each once; of very many the first.
    const std::vector<std::string> &stepLimitedRules() const noexcept { return stepLimitedRules_; }

    // Which body stages have found a rule: 1 the Subject and text, 2 the raw body, 4 the second
    // rendering.
    unsigned int mask() const noexcept { return mask_; }

    // What the message hides from its reader.
    const Disguise &disguise() const noexcept { return disguise_; }

    // The time it took, on the clock: to read the message, and to try the rules.
    std::chrono::nanoseconds readingTime() const noexcept { return readingTime_; }
    std::chrono::nanoseconds scanningTime() const noexcept { return scanningTime_; }

private:
    friend class MessageScan;

    float score_ = 0.0F;
    bool over_ = false;
    bool stopped_ = false;
    unsigned int mask_ = 0;
    std::string_view language_ = "DEFAULT";
    std::vector<Hit> hits_;
    std::vector<std::string_view> limits_;
    std::size_t stepLimited_ = 0;
    std::vector<std::string> stepLimitedRules_;
    Disguise disguise_;
    std::chrono::nanoseconds readingTime_{0};
    std::chrono::nanoseconds scanningTime_{0};
};

} // namespace corvane

#endif
