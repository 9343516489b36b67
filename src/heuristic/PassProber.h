#ifndef CORVANE_HEURISTIC_PASSPROBER_H
#define CORVANE_HEURISTIC_PASSPROBER_H

// How a FilteredPass finds out whether a pattern matches a text: the cheap tests first, as far as
// the effort allows, and then the expression.
//
// Threads: one at a time, as the pass.

#include <algorithm>
#include <cstdint>
#include <vector>

#include "heuristic/FilteredList.h"
#include "heuristic/RuleFilter.h"
#include "heuristic/ScanEffort.h"
#include "heuristic/ScanMemory.h"

namespace Corvane::Heuristic {

// Tries patterns on texts of a pass.
class FilteredPass::Prober {
public:
    // Each text has a slot, below slots, for what is known of it.
    Prober(const KindIndex &index, const unsigned char *base, std::size_t length, std::size_t slots,
           ScanMemory &memory, ScanEffort &effort, Budget *budget)
        : index_(index), base_(base), lowered_(base, length, memory, effort), memory_(memory),
          effort_(effort), budget_(budget) {
        std::vector<KnownBytes> &known = memory_.known;
        known.resize(std::max(known.size(), slots));
        for (std::size_t slot = 0; slot < slots; ++slot) {
            known[slot].isCounted = false;
        }
    }

    bool matches(std::uint32_t pattern, const Range &range, std::size_t slot) {
        const RuleFilter &filter = *index_.filter;
        // Equal patterns are also tried in the same way.
        const bool positive = rule(pattern).trial == IndexedRule::Trial::Match;
        const ScanEffort::Work ofWalk = filter.leastWork(pattern, range.length);
        TextFacts facts = factsOf(range, slot);
        spend(range.length);
        const bool isLiteral = filter.isLiteral(pattern) && allowsTests(pattern, facts);
        // What is not worth trying cannot match, but may fail, which is no match of a negated rule.
        if (isLiteral || (positive && !mayMatch(pattern, facts))) {
            effort_.spare(ofWalk);
            return isLiteral && filter.passes(pattern, facts) == positive;
        }
        effort_.did(ofWalk);
        bool failed = false;
        const bool matched =
            rule(pattern).expression->matches(facts.data(), facts.length(), 0, &failed);
        nameStepLimited(pattern);
        return !failed && matched == positive;
    }

    // Where units are texts, and the pattern must match: how many should be looked at together,
    // from that one on.
    std::uint32_t textsAtOnce(std::uint32_t pattern, std::uint32_t first) const {
        const auto units = static_cast<std::uint32_t>(memory_.texts.size());
        const std::uint32_t most = std::min(kReadAtOnce, units - first);
        if (effort_.allows(workOf(pattern, first, first + most))) {
            return most;
        }
        const std::uint32_t few = std::min(kReadAtFirst, most);
        return index_.filter->hasAutomaton(pattern) &&
                       effort_.hasRoomFor(workOf(pattern, first, first + few))
                   ? few
                   : 1;
    }

    // Where units are texts, each in the slot of its number, and the pattern must match: those from
    // first to before last where it is worth trying. Good until the next call.
    const std::vector<Text> &worthTrying(std::uint32_t pattern, std::uint32_t first,
                                         std::uint32_t last) {
        const RuleFilter &filter = *index_.filter;
        std::vector<Text> &considered = memory_.considered;
        considered.clear();
        for (std::uint32_t unit = first; unit < last; ++unit) {
            const ScanText &text = memory_.texts[unit];
            TextFacts facts = factsOf({text.start, text.length}, unit);
            if (filter.passes(pattern, facts)) {
                considered.push_back({facts.data(), facts.length(), unit});
            }
        }
        if (filter.hasAutomaton(pattern)) {
            for (const Text &text : considered) {
                effort_.spend(ScanEffort::kAutomaton + static_cast<ScanEffort::Work>(text.length) *
                                                           ScanEffort::kAutomatonByte);
            }
            filter.selectAccepted(pattern, considered);
        }
        const std::size_t bytes = bytesOf(first, last);
        spend(bytes);
        ScanEffort::Work spared = filter.leastWork(pattern, bytes) +
                                  (last - first - 1) * ScanEffort::Work{ScanEffort::kTry};
        for (const Text &text : considered) {
            spared -= filter.leastWork(pattern, text.length);
        }
        effort_.spend((last - first) * ScanEffort::Work{ScanEffort::kTest});
        effort_.spare(spared);
        return considered;
    }

    bool matches(std::uint32_t pattern, const Text &text) const {
        effort_.did(index_.filter->leastWork(pattern, text.length));
        const bool matched = rule(pattern).expression->matches(text.data, text.length, 0, nullptr);
        nameStepLimited(pattern);
        return matched;
    }

private:
    std::size_t bytesOf(std::uint32_t first, std::uint32_t last) const {
        const ScanText &text = memory_.texts[last - 1];
        return text.start + text.length - memory_.texts[first].start;
    }

    // What worthTrying takes at most.
    ScanEffort::Work workOf(std::uint32_t pattern, std::uint32_t first, std::uint32_t last) const {
        const std::size_t bytes = bytesOf(first, last);
        const ScanEffort::Work passes = index_.filter->passWork(pattern, bytes) +
                                        (last - first - 1) * index_.filter->passWork(pattern, 0);
        const ScanEffort::Work automaton =
            (last - first) * ScanEffort::Work{ScanEffort::kAutomaton} +
            static_cast<ScanEffort::Work>(bytes) * ScanEffort::kAutomatonByte;
        return passes + (index_.filter->hasAutomaton(pattern) ? automaton : 0);
    }

    bool allowsTests(std::uint32_t pattern, const TextFacts &facts) const {
        return effort_.allows(index_.filter->passWork(pattern, facts.length()));
    }

    // As far as it may be found out.
    bool mayMatch(std::uint32_t pattern, TextFacts &facts) {
        const RuleFilter &filter = *index_.filter;
        effort_.spend(ScanEffort::kTest);
        if (allowsTests(pattern, facts) && !filter.passes(pattern, facts)) {
            return false;
        }
        const ScanEffort::Work automaton =
            ScanEffort::kAutomaton + facts.length() * ScanEffort::kLoneAutomatonByte;
        return !filter.hasAutomaton(pattern) || !effort_.allows(automaton) ||
               filter.isAccepted(pattern, facts);
    }

    const IndexedRule &rule(std::uint32_t pattern) const {
        return index_.rules[*index_.rulesBegin(pattern)];
    }

    // What the cheap tests of a text take, whatever comes of them.
    void spend(std::uint64_t bytes) const {
        if (budget_ != nullptr) {
            budget_->note(bytes);
        }
    }

    void nameStepLimited(std::uint32_t pattern) const {
        if (budget_ != nullptr && budget_->takeUnnamed()) {
            std::for_each(index_.rulesBegin(pattern), index_.rulesEnd(pattern),
                          [this](std::uint32_t rule) {
                              budget_->addStepLimitedRule(index_.rules[rule].rule->name());
                          });
        }
    }

    TextFacts factsOf(const Range &range, std::size_t slot) {
        return {base_ + range.start, range.length,        lowered_,
                range.start,         memory_.known[slot], effort_};
    }

    const KindIndex &index_;
    const unsigned char *base_;
    LoweredRange lowered_;
    ScanMemory &memory_;
    ScanEffort &effort_;
    Budget *budget_;
};

} // namespace Corvane::Heuristic

#endif
