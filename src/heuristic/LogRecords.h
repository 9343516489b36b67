#ifndef CORVANE_HEURISTIC_LOGRECORDS_H
#define CORVANE_HEURISTIC_LOGRECORDS_H

// Identifiers of the log records, which mail administrators filter by.

namespace Corvane::Heuristic {

constexpr unsigned int kLogRulesLoaded = 0x300002C;  // a rule set was loaded
constexpr unsigned int kLogNotReady = 0x300002D;     // no rule set came in time
constexpr unsigned int kLogLoadFailed = 0x300002E;   // a rule set could not be loaded
constexpr unsigned int kLogEvalValue = 0x300002F;    // a value "eval:..." was stored, not compiled
constexpr unsigned int kLogMetaFailed = 0x3000031;   // a meta rule could not be evaluated
constexpr unsigned int kLogNoExpression = 0x3000032; // a body rule without an expression was tried
constexpr unsigned int kLogScoreRefused = 0x3000033; // a score line could not be handled
constexpr unsigned int kLogRuleRefused = 0x3000034;  // a rule line could not be built
constexpr unsigned int kLogDuplicateRule =
    0x3000035; // a rule's name is taken in its language and kind

// All records of this library have the same level.
constexpr int kLogLevel = 0;

} // namespace Corvane::Heuristic

#endif
