#ifndef CORVANE_HEURISTIC_TEXTTRIAL_H
#define CORVANE_HEURISTIC_TEXTTRIAL_H

// One rule on one text of a message: what a scan makes of it, and what a scan does not tell.
//
//     ScanTexts(bytes, mail, sender).each([&](const ScannedText &text) {
//         if (isTriedOn(rule, text) && tryOn(rule, text).trips) { ... }
//     });
//
// Whether the rule is active, in a list or above a cutoff is not asked.
//
// Threads: free functions without state.

#include <cstddef>

#include "heuristic/Export.h"
#include "heuristic/Rule.h"
#include "heuristic/ScanTexts.h"
#include "host/regex/Expression.h"

namespace Corvane::Heuristic {

struct TextTrial {
    bool trips = false;
    // The pattern was given up, which trips no rule.
    bool failed = false;
    // What the pattern matched in the text, which trips a rule unless that asks for no match.
    Regex::FoundRange range;
};

// The rule's expression; null for a rule that has none, and for a meta rule. Lives as long as the rule.
CORVANE_HEURISTIC_API const Regex::Expression &expressionOf(const Rule &rule);

// Whether the rule is tried on such a text: it is for rules of that kind, and of a header in the form that the rule asks
// for. False for a meta rule.
CORVANE_HEURISTIC_API bool isTriedOn(const Rule &rule, const ScannedText &text);

// Tries a rule on a text that it is tried on.
CORVANE_HEURISTIC_API TextTrial tryOn(const Rule &rule, const ScannedText &text);

} // namespace Corvane::Heuristic

#endif
