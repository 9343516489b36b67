#ifndef CORVANE_REPORT_SCANREPLY_H
#define CORVANE_REPORT_SCANREPLY_H

// The verdict on a message, and the rules that gave it, as they are shown; and as the JSON object
// that carries them from program to program:
//
//     const std::string json = jsonOf(shown(verdict, threshold), shown(rules), {}); // at one end
//     const ScanReply reply = scanReplyOf(json);                                    // at the other
//
// Threads: free functions without state, and values.

#include <cstddef>
#include <stdexcept>
#include <string>
#include <vector>

#include "corvane/RuleSet.h"
#include "corvane/Verdict.h"

namespace Corvane::Reporting {

struct ShownHit {
    std::string name; // any bytes
    std::string kind;
    float score = 0.0F;
};

struct ShownVerdict {
    std::string language;
    unsigned int mask = 0;
    float score = 0.0F; // as shownTotal has it
    bool stopped = false;
    bool over = false;
    std::vector<ShownHit> hits;
    std::vector<std::string> limits;
    corvane::Disguise disguise;
    std::size_t stepLimited = 0;
    std::vector<std::string> stepLimitedRules;
    float millis = 0.0F; // that the scan took

    // Whether the scan ended before the verdict was decided: what it left might have taken the
    // total above the threshold.
    bool isUndecided() const;
};

struct ShownRuleSet {
    corvane::RuleCounts counts;
    std::string version;
    std::string generation;
    std::string engine;
};

// What became of one message.
struct ScanReply {
    ShownVerdict verdict;
    ShownRuleSet rules;
};

// What the object says beside the verdict.
struct MessageLabel {
    std::string file;          // any bytes; left out where it is empty
    std::size_t index = 0;     // in an mbox; left out where it is 0
    std::string error;         // instead of the verdict, where it is not empty
    bool namesGivenUp = false; // names the rules whose tries were given up
};

ShownVerdict shown(const corvane::Verdict &verdict, float threshold);
ShownRuleSet shown(const corvane::RuleSet &rules);

// One object, without a line end. Bytes that are not UTF-8 are replaced; what they were is told in
// hexadecimal beside the name.
std::string jsonOf(const ShownVerdict &verdict, const ShownRuleSet &rules,
                   const MessageLabel &label);

// The rule set alone.
std::string jsonOf(const ShownRuleSet &rules);

// What jsonOf() has written, of this version or a later one that only adds to it. Throws
// std::runtime_error where it is anything else.
ScanReply scanReplyOf(const std::string &json);
ShownRuleSet ruleSetOf(const std::string &json);

} // namespace Corvane::Reporting

#endif
