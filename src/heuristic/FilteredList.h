#ifndef CORVANE_HEURISTIC_FILTEREDLIST_H
#define CORVANE_HEURISTIC_FILTEREDLIST_H

// A scan's own view of one list of a loaded set, in place of a copy of the list: what has matched, the cutoff, and with
// the set's index the few rules that are worth trying on a text. A pass over texts through such a view adds the rules
// that a walk over the list would add, in the same order, and ends where it would.
//
// Only for scans without a trace, which has to name each rule of the walk.

#include <algorithm>
#include <array>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string_view>
#include <vector>

#include "heuristic/BitSet.h"
#include "heuristic/Rule.h"
#include "heuristic/RuleIndex.h"
#include "heuristic/ScanEffort.h"
#include "heuristic/ScanMemory.h"
#include "host/parser/Budget.h"
#include "host/parser/Buffer.h"

namespace Corvane::Heuristic {

// Belongs to one scan, and one thread at a time; the index must outlive it.
class FilteredList {
public:
    FilteredList(const RuleIndex &index, langID language, Rule::Type kind,
                 unsigned int ordinalCutoff);

    const RuleIndex &index() const { return index_; }
    const KindIndex &rules() const { return rules_; }

    // Whether the rule is still to be tried.
    bool admits(std::uint32_t rule) const {
        const IndexedRule &indexed = rules_.rules[rule];
        return (indexed.languages & language_) != 0 && indexed.ordinal < cutoff_ && !isDone(rule);
    }

    // The rule is in the match set: to try it again could have no effect.
    void done(std::uint32_t rule) {
        done_.set(rule);
        counts_.remove(rules_.rules[rule]);
    }
    // The rules still to be tried.
    const RuleCounts &counts() const { return counts_; }
    bool isDone(std::uint32_t rule) const { return done_.test(rule); }

    // Whether a text should be copied to be searched; otherwise it is better to walk.
    bool isWorthStaging(std::size_t bytes) const {
        return bytes <= kMaxStagedBytes && counts_.all.rules > kFewRules;
    }
    static constexpr std::uint32_t kFewRules = 5;
    static constexpr std::size_t kMaxStagedBytes = 128 * 1024;

    // Tries the rules one by one, as the walk does: those that match, by what says so of a rule,
    // are added in order up to an addition that trips the match set. Throws as RefMatches::add.
    template <class Matching>
    void walk(RefMatches &matches, Matching matching) {
        Budget *budget = Budget::ofThisThread();
        RuleProfile *profile = RuleProfile::ofThisThread();
        for (const std::uint32_t each : few()) {
            if (budget != nullptr && budget->ended()) {
                return;
            }
            if (!admits(each) || !tryRule(*rules_.rules[each].rule, budget, profile, matching)) {
                continue;
            }
            const bool tripped = matches.add(rules_.handles[each]);
            done(each);
            if (tripped) {
                return;
            }
        }
    }

    // A list of the rules that are still to be tried.
    RefRuleList remaining() const;

private:
    const std::vector<std::uint32_t> &few();

    const RuleIndex &index_;
    const KindIndex &rules_;
    std::uint8_t language_;
    // Past the highest ordinal where there is no cutoff.
    std::uint64_t cutoff_;
    BitSet done_;
    RuleCounts counts_;
    // The rules that were still to be tried when they were last counted.
    std::vector<std::uint32_t> few_;
    std::optional<std::uint32_t> fewOf_;
};

// One pass over texts that are scanned together: name the texts, call select, then take the units in ascending order.
//
// What matches is found for all units at once, pattern by pattern, since a pattern is much faster on one text after the
// other than in turn with a thousand others; nothing is to be seen of that but by the time it takes. The units then take
// their turns in adding it.
class FilteredPass {
public:
    // A range of the staged bytes.
    struct Range {
        std::uint32_t start = 0;
        std::uint32_t length = 0;
    };

    // The texts of a header by the form's number; empty for a form that no rule asks for.
    static constexpr std::size_t kForms = 5;
    using Forms = std::array<Range, kForms>;

    // Headers with their forms, and with the numbers of their selectors as ranges of one list.
    struct HeaderUnit {
        std::size_t firstSelector = 0;
        std::size_t lastSelector = 0;
        Forms forms;
    };
    struct Headers {
        std::vector<HeaderUnit> units;
        std::vector<std::uint32_t> selectors;
    };

    // To be used on the constructing thread, with its budget and its profile. Once that has ended nothing more is tried; what has
    // matched until then can be added.
    explicit FilteredPass(FilteredList &list)
        : list_(list), budget_(Budget::ofThisThread()), profile_(RuleProfile::ofThisThread()) {}

    // Starts anew.
    void clear();

    // The selectors for headers of that name; good until the next call.
    const std::vector<std::uint32_t> &selectorsOf(const std::string &name) {
        return list_.index().headers().find(name, *memory_);
    }

    // The next text, a range of what select will be given. Texts are units by their numbers, from 0 on.
    void add(std::uint32_t start, std::uint32_t length);

    // The next text, joined of the parts, which are copied behind the texts before it and a zero byte; with a unit where
    // units have more than one.
    void stage(std::initializer_list<std::string_view> parts);
    Range stage(std::initializer_list<std::string_view> parts, std::uint32_t unit, HeaderForm form);

    // From an offset on the text that was staged last is these other forms as well: one bit for each, by its number.
    Range alsoForms(std::uint32_t innerStart, unsigned int forms);

    // The number of texts.
    std::uint32_t size() const { return static_cast<std::uint32_t>(memory_->texts.size()); }

    // Bytes for texts that are, or will be, named as ranges of what is staged.
    void stageBytes(const unsigned char *data, std::size_t length);
    std::size_t stagedBytes() const { return memory_->staged.size(); }

    // Behind the last text.
    std::size_t endOfTexts() const;

    // After select, a text by its number.
    Buffer text(std::uint32_t text) const;

    // Whether so much has been copied that it should be tried before more is: memory stays small, and in the cache.
    bool isFull() const {
        return memory_->staged.size() >= kPassBytes || memory_->texts.size() >= kPassTexts ||
               memory_->candidates.size() + memory_->matches.size() >= kPassTexts;
    }
    static constexpr std::size_t kPassBytes = std::size_t{64} * 1024;
    static constexpr std::size_t kPassTexts = std::size_t{8} * 1024;

    // The same for texts that are ranges of what is not copied: whether the next one should not be
    // added that begins there.
    bool isFullAt(std::size_t start) const {
        const std::vector<ScanText> &texts = memory_->texts;
        return texts.size() >= ScanMemory::kMaxTexts ||
               (!texts.empty() && start - texts.front().start >= ScanMemory::kMaxCopiedBytes / 2);
    }

    // Also to be tried on a header, whatever its texts hold.
    void alsoTry(std::uint32_t unit, const std::vector<std::uint32_t> &rules);

    // Whether the texts will be searched, so that it is better to stage them; otherwise the rules
    // are tried one by one.
    bool isWorthSearching() const;

    // Finds what matches the texts: ranges of base, from where so many bytes may be read, or staged
    // ones. Of each rule the first match is found: no unit may have its turn after one where an
    // addition tripped.
    void select(const unsigned char *base, std::size_t readable);
    void selectStaged();

    // The same for headers, whose forms were staged.
    void selectHeaders(const Headers &headers);

    // The first unit from that one on, but below end, with anything to do; end if there is none.
    std::uint32_t nextUnit(std::uint32_t unit, std::uint32_t end);

    // Adds the rules that match a unit, in order, up to an addition that trips the match set, and answers whether one did.
    // The text is for rules that log with each try. Throws as RefMatches::add.
    bool addMatches(std::uint32_t unit, const Buffer &text, RefMatches &matches);

    // Bytes that the pass has allocated, with what its thread keeps.
    std::size_t memoryBytes() const { return memory_->memoryBytes(); }

private:
    class Prober;
    class SearchPolicy;
    using Text = Regex::AutomatonTable::Text;
    // Texts that an automaton reads before it is known whether one of them matches.
    static constexpr std::uint32_t kReadAtOnce = 32;
    static constexpr std::uint32_t kReadAtFirst = 8;

    const std::vector<unsigned char> &padded();
    void skipTo(std::uint32_t unit);
    bool search(const unsigned char *base, std::size_t readable, SearchPolicy &policy,
                ScanEffort &effort);
    void sortCandidates();
    void tryCandidates(Prober &prober);
    std::uint32_t tryEverywhere(std::uint32_t pattern, Prober &prober);
    bool tryText(std::uint32_t pattern, std::uint32_t unit, Prober &prober);
    bool tryTexts(std::uint32_t pattern, std::uint32_t first, std::uint32_t last, Prober &prober);
    void tryHeader(const Candidate &candidate, const Headers &headers, Prober &prober);
    void trySearched(const Headers &headers, Prober &prober);
    void addRules(std::uint32_t pattern, std::uint32_t unit);
    void settle(const RuleProfile::Charge &charge, std::uint32_t pattern) const;
    // Whether any rule of that pattern is still to be tried.
    bool isOpen(std::uint32_t pattern) const {
        const KindIndex &index = list_.rules();
        return std::any_of(index.rulesBegin(pattern), index.rulesEnd(pattern),
                           [this](std::uint32_t rule) { return list_.admits(rule); });
    }
    bool isOver() const { return budget_ != nullptr && budget_->ended(); }
    void spend(std::uint64_t work) const;

    FilteredList &list_;
    Budget *budget_;
    RuleProfile *profile_;
    ScanMemoryLease memory_;
    const unsigned char *base_ = nullptr;
    std::size_t next_ = 0;
};

} // namespace Corvane::Heuristic

#endif
