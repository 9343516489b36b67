#ifndef CORVANE_HEURISTIC_LOGRECORDS_H
#define CORVANE_HEURISTIC_LOGRECORDS_H

// Identifiers of the records that this library logs, for sinks that tell them apart. They never
// change. Fields of a record's text are separated by byte 1.

namespace Corvane::Heuristic {

constexpr unsigned int kLogRulesLoaded =
    0x300002C;                                     // rules, active rules, version: a set was loaded
constexpr unsigned int kLogNotReady = 0x300002D;   // " ": no rule set came in time
constexpr unsigned int kLogLoadFailed = 0x300002E; // why a rule set could not be loaded
constexpr unsigned int kLogEvalValue = 0x300002F;  // " ": an eval: value was stored, not compiled
constexpr unsigned int kLogMetaFailed = 0x3000031; // a meta rule's name, and why it has no value
constexpr unsigned int kLogNoExpression =
    0x3000032; // the value of a body rule tried without expression
constexpr unsigned int kLogScoreRefused =
    0x3000033; // why a score line could not be handled; at present none is refused
constexpr unsigned int kLogRuleRefused = 0x3000034;   // why a rule could not be built
constexpr unsigned int kLogDuplicateRule = 0x3000035; // the name, taken in its language and kind

// All records of this library have the same level.
constexpr int kLogLevel = 0;

} // namespace Corvane::Heuristic

#endif
