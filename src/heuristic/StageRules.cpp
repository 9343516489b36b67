#include "heuristic/StageRules.h"

namespace Corvane::Heuristic {

StageRules::StageRules(const ScannerRules &set, langID language, Rule::Type kind,
                       unsigned int ordinalCutoff, bool verbose)
    : ordinalCutoff_(ordinalCutoff), verbose_(verbose) {
    RefRuleList &rules = set.container.rules(language, kind);
    if (!verbose && set.index_ != nullptr && set.index_->holds(set.container, language, kind)) {
        filtered_.emplace(*set.index_, language, kind, ordinalCutoff);
    } else if (kind == Rule::Meta || kind == Rule::Uri) {
        // The meta check erases nothing, and the URI check makes a copy of its own.
        list_ = RefRuleList(rules, false);
    } else {
        list_ = RefRuleList(rules, true);
    }
}

std::unique_ptr<FilteredList> StageRules::filteredFullRules(const ScannerRules &set,
                                                            const RefRuleList &list) {
    if (set.index_ == nullptr) {
        return nullptr;
    }
    const std::optional<langID> language = set.index_->languageOfFullRules(set.container, list);
    return language.has_value()
               ? std::make_unique<FilteredList>(*set.index_, *language, Rule::Full, 0)
               : nullptr;
}

} // namespace Corvane::Heuristic
