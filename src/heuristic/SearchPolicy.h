#ifndef CORVANE_HEURISTIC_SEARCHPOLICY_H
#define CORVANE_HEURISTIC_SEARCHPOLICY_H

// What the search for literals may cost, for a FilteredPass: a share of what the walk does at least
// with the rules that are searched for, which becomes less with each rule of which a literal is
// found.
//
// Threads: one at a time, as the pass.

#include <algorithm>
#include <cstdint>
#include <utility>

#include "heuristic/FilteredList.h"
#include "heuristic/ScanEffort.h"
#include "heuristic/ScanMemory.h"

namespace Corvane::Heuristic {

// What the walk does on the units of a pass at least, and what a search asks of the pass that it is
// for.
class FilteredPass::SearchPolicy {
public:
    // Where units are headers, what a try reads does not count: most headers are not those of a
    // rule.
    enum class Units { Texts, Headers };

    SearchPolicy(const FilteredPass &pass, std::size_t units, Units kind)
        : pass_(pass), memory_(*pass.memory_), units_(units), isOfTexts_(kind == Units::Texts),
          end_(pass.endOfTexts()),
          mostCandidates_(memory_.candidates.size() + ScanMemory::kMaxCandidates) {
        left_ = workOf(pass.list_.counts().searched);
        effort_.expect(left_);
        memory_.lastFound.resize(std::max(memory_.lastFound.size(), pass.list_.rules().patterns()),
                                 0);
        if (++memory_.searches == 0) {
            std::fill(memory_.lastFound.begin(), memory_.lastFound.end(), 0U);
            ++memory_.searches;
        }
    }

    // What the walk does with rules of which none matches. To copy its list takes it as long as one
    // more unit.
    ScanEffort::Work workOf(const RuleCount &count) const {
        const std::size_t start = isOfTexts_ && units_ > 0 ? memory_.texts.front().start : end_;
        return count.rules * workOfUnits(units_ + 1) + count.reading * workOfBytes(start);
    }

    // What it does whatever matches: it copies its list, and tries all rules on the first unit.
    ScanEffort::Work workOfFirst() const { return pass_.list_.counts().all.rules * workOfUnits(2); }

    // What it does no more with a pattern's rules once they have matched a unit.
    ScanEffort::Work workAfter(std::uint32_t pattern, std::uint32_t unit) const {
        const KindIndex &index = pass_.list_.rules();
        ScanEffort::Work each = workOfUnits(units_ - 1 - unit);
        if (isOfTexts_ && index.filter->readsTexts(pattern)) {
            each += workOfBytes(memory_.texts[unit].start);
        }
        return each * std::count_if(index.rulesBegin(pattern), index.rulesEnd(pattern),
                                    [&](std::uint32_t rule) { return pass_.list_.admits(rule); });
    }

    // What it does with the rules that are searched for: each is tried up to the first unit that it
    // may match.
    ScanEffort::Work workOfSearched() const { return left_; }

    // The work of the search; where it ends, what it took is the pass's.
    ScanEffort &effort() { return effort_; }
    bool admits(std::uint32_t pattern) const { return pass_.isOpen(pattern); }

    void found(std::uint32_t pattern, std::uint32_t unit) {
        if (std::exchange(memory_.lastFound[pattern], memory_.searches) != memory_.searches) {
            const ScanEffort::Work after = workAfter(pattern, unit);
            left_ -= after;
            effort_.expect(-after);
        }
        if (memory_.candidates.size() >= mostCandidates_) {
            effort_.exhaust();
        }
    }

private:
    ScanEffort::Work workOfUnits(std::size_t units) const {
        return static_cast<ScanEffort::Work>(units) *
               (isOfTexts_ ? ScanEffort::kTry : ScanEffort::kHeaderTry);
    }

    ScanEffort::Work workOfBytes(std::size_t start) const {
        return static_cast<ScanEffort::Work>(end_ - start) * ScanEffort::kTryByte;
    }

    const FilteredPass &pass_;
    ScanMemory &memory_;
    ScanEffort effort_;
    std::size_t units_;
    bool isOfTexts_;
    std::size_t end_;
    std::size_t mostCandidates_;
    ScanEffort::Work left_ = 0;
};

} // namespace Corvane::Heuristic

#endif
