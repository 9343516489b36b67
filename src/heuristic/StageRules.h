#ifndef CORVANE_HEURISTIC_STAGERULES_H
#define CORVANE_HEURISTIC_STAGERULES_H

// What the check of one stage works on: a view of the loaded set's index, or, where the list was changed since the load
// or each rule must be traced, a copy of the list. Both give the same result.

#include <memory>
#include <optional>

#include "heuristic/FilteredList.h"
#include "heuristic/Rule.h"
#include "heuristic/Scanner.h"

namespace Corvane::Heuristic {

class StageRules {
public:
    // The rules of one kind in one language, as they are now. The set must outlive this object and its checks.
    StageRules(const ScannerRules &set, langID language, Rule::Type kind,
               unsigned int ordinalCutoff, bool verbose);

    // A check over these rules. Checks of one StageRules share what has matched.
    template <class Check>
    Check check(RefMatches &matches) {
        return filtered_.has_value() ? Check(*filtered_, matches)
                                     : Check(list_, matches, ordinalCutoff_, verbose_);
    }

    // A view of the full rules where list is one of the set's own and still as it was loaded; else null.
    static std::unique_ptr<FilteredList> filteredFullRules(const ScannerRules &set,
                                                           const RefRuleList &list);

private:
    unsigned int ordinalCutoff_;
    bool verbose_;
    std::optional<FilteredList> filtered_;
    RefRuleList list_;
};

} // namespace Corvane::Heuristic

#endif
