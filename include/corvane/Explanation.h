#ifndef CORVANE_EXPLANATION_H
#define CORVANE_EXPLANATION_H

// Why rules tripped on a message, or did not:
//
//     const corvane::Explanation why = rules.explain(bytes, options, {"FREE_OFFER"});
//     for (const corvane::RuleExplanation &each : why.tripped) { ... }
//
// Threads: plain values, which keep nothing else alive and may outlive their rule set.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "corvane/ExplainedText.h"
#include "corvane/Export.h"
#include "corvane/Rule.h"
#include "corvane/Verdict.h"

namespace corvane {

// The first of these that holds for a rule. The names never change their meaning; new ones may come.
enum class Reason : unsigned int {
    Tripped,        // "tripped"
    NotLoaded,      // "not-loaded": the set has no such rule
    OtherLanguage,  // "other-language": the message's language has no such rule
    SwitchedOff,    // "switched-off": it is not active
    NeverTrips,     // "never-trips": it has no pattern, or its expression has no value
    BeyondPercent,  // "beyond-percent": it is not among those loaded first that were to be tried
    NotReached,     // "not-reached": the scan had stopped, being over the threshold
    BudgetEnded,    // "budget-ended": so had its budget
    NameTaken,      // "name-taken": another rule of the name had tripped
    HeaderAbsent,   // "header-absent": no header is one that it is tried on
    NoText,         // "no-text": the message has nothing of what it is tried on
    BeyondLimit,    // "beyond-limit": it matches what is behind the part that is read
    PatternGivenUp, // "pattern-given-up": its pattern takes too many steps
    Excluded,       // "excluded": every header matches what it must not match
    NoMatch,        // "no-match"
    ExpressionFalse // "expression-false": of a meta rule
};

// Such as "no-match"; lives for ever.
CORVANE_API std::string_view reasonName(Reason reason) noexcept;

struct RuleExplanation {
    std::string name;
    Reason reason = Reason::NoMatch;

    // Words to the reason where there are any, such as the limits that were hit; printable.
    std::string detail;

    // Missing with NotLoaded alone.
    std::optional<Rule> rule;

    // Where it tripped, or would have; with Excluded what it must not match.
    std::optional<ExplainedText> where;

    // With NoMatch.
    std::optional<NearestTry> nearest;

    // Of a meta rule that was tried.
    std::vector<MetaStep> steps;

    // Of one that tripped: the total with its score. That of the last is the verdict's score, but
    // for a total of 0, which is added up anew in the order of names.
    float total = 0.0F;
};

struct Explanation {
    // What RuleSet::scan gives.
    Verdict verdict;

    // What has decided the language: "no-text", "unknown-charset", "charset" or "letters".
    std::string_view languageReason;

    // The rules that tripped, in the order in which they did.
    std::vector<RuleExplanation> tripped;

    // The rules that were asked for and did not trip, in that order: for each name all rules of it.
    std::vector<RuleExplanation> untripped;
};

} // namespace corvane

#endif
