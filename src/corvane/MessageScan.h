#ifndef CORVANE_SRC_CORVANE_MESSAGESCAN_H
#define CORVANE_SRC_CORVANE_MESSAGESCAN_H

// One message on its way through a rule set.
//
// Threads: one.

#include <string_view>
#include <vector>

#include "corvane/LoadedRules.h"
#include "corvane/RuleProfile.h"
#include "corvane/ScanOptions.h"
#include "corvane/Verdict.h"
#include "heuristic/Rule.h"
#include "host/parser/MailReader.h"

namespace corvane {

class MessageScan {
public:
    // All must outlive the scan. profile: of the rules, or null.
    MessageScan(const LoadedRules &rules, const ScanOptions &options,
                RuleProfile *profile = nullptr)
        : rules_(rules), options_(options), profile_(profile) {}

    // Where the ordinals of the hits go, in the order of the verdict; they must outlive the scan.
    void ordinalsTo(std::vector<unsigned int> &ordinals) { ordinals_ = &ordinals; }

    // As RuleSet::scan.
    Verdict scan(std::string_view message);

private:
    void run(std::string_view message);
    void profile(const Corvane::Heuristic::RefMatches &matches) const;
    void tap(Corvane::Heuristic::Scanner &scanner, Corvane::Heuristic::langID language,
             std::string_view message, Corvane::Heuristic::RefMatches &matches) const;
    void take(const Corvane::Heuristic::RefMatches &matches);

    const LoadedRules &rules_;
    const ScanOptions &options_;
    RuleProfile *profile_;
    std::vector<unsigned int> *ordinals_ = nullptr;
    Verdict verdict_;
};

} // namespace corvane

#endif
