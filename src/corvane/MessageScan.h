#ifndef CORVANE_SRC_CORVANE_MESSAGESCAN_H
#define CORVANE_SRC_CORVANE_MESSAGESCAN_H

// One message on its way through a rule set.
//
// Threads: one.

#include <string_view>

#include "corvane/LoadedRules.h"
#include "corvane/ScanOptions.h"
#include "corvane/Verdict.h"
#include "heuristic/Rule.h"
#include "host/parser/MailReader.h"

namespace corvane {

class MessageScan {
public:
    // Both must outlive the scan.
    MessageScan(const LoadedRules &rules, const ScanOptions &options)
        : rules_(rules), options_(options) {}

    // As RuleSet::scan.
    Verdict scan(std::string_view message);

private:
    void run(std::string_view message);
    void tap(Corvane::Heuristic::Scanner &scanner, Corvane::Heuristic::langID language,
             std::string_view message, Corvane::Heuristic::RefMatches &matches) const;
    void take(const Corvane::Heuristic::RefMatches &matches);

    const LoadedRules &rules_;
    const ScanOptions &options_;
    Verdict verdict_;
};

} // namespace corvane

#endif
