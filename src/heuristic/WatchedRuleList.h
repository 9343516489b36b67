#ifndef CORVANE_HEURISTIC_WATCHEDRULELIST_H
#define CORVANE_HEURISTIC_WATCHEDRULELIST_H

// The list that a container makes: one that counts the accesses which may have changed it, so that a scan need not walk
// it to know that it is still what its set's index was built over.

#include <atomic>
#include <typeinfo>

#include "heuristic/Rule.h"

namespace Corvane::Heuristic {

class WatchedRuleList : public RuleList {
public:
    // Counts an access where the list is a watched one; list may be null. Any thread.
    static void noteAccess(RuleList *list) {
        if (list != nullptr && typeid(*list) == typeid(WatchedRuleList)) {
            static_cast<WatchedRuleList *>(list)->accesses_.fetch_add(1, std::memory_order_relaxed);
        }
    }

    unsigned int accesses() const { return accesses_.load(std::memory_order_relaxed); }

private:
    std::atomic<unsigned int> accesses_{0};
};

} // namespace Corvane::Heuristic

#endif
