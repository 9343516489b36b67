#include "heuristic/HeaderPass.h"

namespace Corvane::Heuristic {

void HeaderPass::add(const Header &header) {
    const auto number = static_cast<std::uint32_t>(units_.size());
    Unit &unit = units_.emplace_back();
    unit.firstSelector = selectors_.size();
    found_.clear();
    if (!header.isNull()) {
        list_.index().headers().find(header.type(), found_);
        selectors_.insert(selectors_.end(), found_.begin(), found_.end());
    }
    unit.lastSelector = selectors_.size();
    if (found_.empty()) {
        return;
    }
    unit.header.emplace(header);
    unsigned int staged = 0;
    for (const std::uint32_t each : found_) {
        const HeaderSelectors::Selector &selector = list_.index().headers().at(each);
        pass_.alsoTry(number, selector.unfiltered);
        for (const HeaderForm form : selector.forms) {
            const unsigned int bit = 1U << static_cast<unsigned int>(form);
            if ((staged & bit) == 0) {
                staged |= bit;
                pass_.stage(unit.header->form(form), number, form);
            }
        }
    }
}

bool HeaderPass::run() {
    pass_.selectStaged();
    std::uint32_t number = 0;
    bool tripped = false;
    for (const Unit &unit : units_) {
        if (unit.header.has_value()) {
            const FilteredPass::Selectors selectors{selectors_.data() + unit.firstSelector,
                                                    selectors_.data() + unit.lastSelector};
            pass_.tryHeader(number, *unit.header, selectors, matches_);
        }
        ++number;
        tripped = matches_->tripped();
        if (tripped) {
            break;
        }
    }
    units_.clear();
    selectors_.clear();
    pass_.clear();
    return tripped;
}

} // namespace Corvane::Heuristic
