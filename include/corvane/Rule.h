#ifndef CORVANE_RULE_H
#define CORVANE_RULE_H

// What a rule set tells of its rules.
//
// Threads: plain values.

#include <string>
#include <string_view>
#include <vector>

#include "corvane/Export.h"

namespace corvane {

// What a rule is tried on; meta rules on which others have tripped.
enum class RuleKind : unsigned int { Header = 1, Uri, Body, RawBody, Full, Meta };

// The keyword that rule files have for the kind, such as "rawbody"; lives for ever.
CORVANE_API std::string_view kindName(RuleKind kind) noexcept;

// A rule of a loaded set. Names and texts are bytes as the files have them, which need not be
// UTF-8.
struct Rule {
    std::string name;
    RuleKind kind = RuleKind::Body;

    // The sections that the rule is filed under, as rule files name them: "DEFAULT", "CN", "JP",
    // "KO", "RU", "TH". The names live for ever.
    std::vector<std::string_view> languages;

    // What the rule adds to a message's total; 0 for a sub-rule (a name that begins with "__"),
    // which counts only through the meta rules that name it.
    float score = 0.0F;

    // Whether the rule can trip: others are switched off by a score of 0, or are sub-rules that no
    // meta rule names.
    bool active = false;

    // The text of the last "describe" line for this name; "" without one.
    std::string description;

    // Where it is defined: the file as the set was loaded from it, and the line, from 1.
    std::string file;
    unsigned int line = 0;
};

} // namespace corvane

#endif
