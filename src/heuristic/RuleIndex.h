#ifndef CORVANE_HEURISTIC_RULEINDEX_H
#define CORVANE_HEURISTIC_RULEINDEX_H

// What a loaded rule set prepares for fast scans: for each kind one index over the rules of all its languages, most of
// which share most of their rules.
//
// An index stands beside the container's lists and must give what a walk over them gives. It is therefore only used for
// a list that still holds the rules it was built over, and not at all once one of these was given another definition.
//
// Threads: immutable once constructed, but for what it remembers about lists that it has compared; any number of threads
// may use one while the set is not changed.

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "heuristic/BitSet.h"
#include "heuristic/HeaderRule.h"
#include "heuristic/Rule.h"
#include "heuristic/RuleFilter.h"
#include "host/regex/Expression.h"
#include "host/regex/StringPattern.h"

namespace Corvane::Heuristic {

class WatchedRuleList;

// What a scan needs of a rule at once.
struct IndexedRule {
    // How it is found out whether the rule matches a text.
    enum class Trial : std::uint8_t {
        Never,   // it cannot match, and trying it has no other effect
        Match,   // the expression must match
        Absence, // the expression must not match, without failing
        Always,  // nothing but the header's name counts
        Log      // it cannot match, but each try is logged
    };

    const Rule *rule = nullptr;
    // Kept by the index; null unless trial is Match or Absence.
    const Regex::ExpressionImpl *expression = nullptr;
    unsigned int ordinal = 0;
    // The number of its expression in the filter, where it has one; rules with the same expression share it.
    std::uint32_t pattern = 0;
    // For header rules: the selector of their headers.
    std::uint32_t selector = 0;
    // One bit for each language whose list holds the rule.
    std::uint8_t languages = 0;
    HeaderForm form = HeaderForm::Value;
    Trial trial = Trial::Never;
    // Whether its expression is only tried where a literal of it was found, and what a try
    // elsewhere would read.
    bool isSearched = false;
    bool readsTexts = false;
};

// How many rules with an expression there are, and how many of them would read the texts that they
// are tried on.
struct RuleCount {
    std::uint32_t rules = 0;
    std::uint32_t reading = 0;

    RuleCount &operator+=(const IndexedRule &rule) {
        rules += rule.expression != nullptr ? 1 : 0;
        reading += rule.readsTexts ? 1 : 0;
        return *this;
    }
    RuleCount &operator-=(const IndexedRule &rule) {
        rules -= rule.expression != nullptr ? 1 : 0;
        reading -= rule.readsTexts ? 1 : 0;
        return *this;
    }
};

// The same for all rules, and for those that are searched for.
struct RuleCounts {
    RuleCount all;
    RuleCount searched;

    void add(const IndexedRule &rule) {
        all += rule;
        if (rule.isSearched) {
            searched += rule;
        }
    }
    void remove(const IndexedRule &rule) {
        all -= rule;
        if (rule.isSearched) {
            searched -= rule;
        }
    }
};

// The rules of one kind in the order of loading, which is the order of every list.
struct KindIndex {
    std::vector<IndexedRule> rules;
    std::vector<RefRule> handles;
    // Those of the rules: a scan under way may go on after a rule was given another one, by its own log for instance.
    std::vector<Regex::Expression> expressions;
    std::optional<RuleFilter> filter;
    // The rules of each pattern, as ranges: those of pattern p are from firstRules[p] to firstRules[p + 1].
    std::vector<std::uint32_t> rulesByPattern;
    std::vector<std::uint32_t> firstRules{0};
    // The rules that log whenever they are tried; in ascending order.
    std::vector<std::uint32_t> logging;
    std::array<RuleCounts, ALL> counts; // by language

    std::size_t patterns() const { return firstRules.size() - 1; }
    const std::uint32_t *rulesBegin(std::uint32_t pattern) const {
        return rulesByPattern.data() + firstRules[pattern];
    }
    const std::uint32_t *rulesEnd(std::uint32_t pattern) const {
        return rulesByPattern.data() + firstRules[pattern + 1];
    }
};

// Which header rules apply to a header of a given name.
class HeaderSelectors {
public:
    // Rules that name their headers in the same way.
    struct Selector {
        StringPattern pattern;
        // One bit for each form, by its number, that the rules look at.
        unsigned int forms = 0;
        // The rules to be tried on every such header; in ascending order.
        std::vector<std::uint32_t> unfiltered;
        // The rules that look at what is parsed as an address.
        std::vector<std::uint32_t> ofAddress;
    };

    // The number of the selector of that pattern, made on the first call.
    std::uint32_t add(const StringPattern &pattern);
    Selector &at(std::uint32_t number) { return selectors_[number]; }
    const Selector &at(std::uint32_t number) const { return selectors_[number]; }
    std::uint32_t size() const { return static_cast<std::uint32_t>(selectors_.size()); }

    // The numbers of all selectors that apply to a header of that name; good until the next call with that memory, which
    // remembers the names it has met.
    const std::vector<std::uint32_t> &find(const std::string &name, ScanMemory &memory) const;

    std::size_t memoryBytes() const;

private:
    // Names that a thread remembers; hostile mail has any number of them.
    static constexpr std::size_t kRememberedNames = 1024;

    void findAnew(const std::string &name, std::vector<std::uint32_t> &numbers) const;

    // Tells sets apart, also those that were freed.
    std::uint64_t number_ = takeNumber();
    static std::uint64_t takeNumber();

    std::vector<Selector> selectors_;
    std::unordered_map<std::string, std::uint32_t> byKey_;
    // Of those in byKey_, the ones whose pattern is a name, by that name in lower case, and the others.
    std::unordered_map<std::string, std::uint32_t> byName_;
    std::vector<std::uint32_t> others_;
};

// Which meta rules a tripped rule may make true.
struct MetaDependents {
    // Rules that match, or fail with a record in the log, where nothing that they name has tripped.
    BitSet unconditional{0};
    // The rules that mention a name.
    std::unordered_map<std::string, std::vector<std::uint32_t>> byName;
};

class RuleIndex {
public:
    // Indexes all lists of the container, whose rules' scores and uses must be settled.
    explicit RuleIndex(const RuleContainer &container);
    RuleIndex(const RuleIndex &) = delete;
    RuleIndex &operator=(const RuleIndex &) = delete;
    ~RuleIndex();

    // Whether the index of that kind tells what a walk over the container's list would. The container must be the one
    // that the index was built over.
    bool holds(const RuleContainer &container, langID language, Rule::Type kind) const;

    // The language of which this is the container's list of full rules, and still holds; none for any other list.
    std::optional<langID> languageOfFullRules(const RuleContainer &container,
                                              const RefRuleList &list) const;

    // Whether no indexed rule was given another definition or ordinal.
    bool unedited() const { return !edited_->load(std::memory_order_relaxed); }

    const KindIndex &of(Rule::Type kind) const { return kinds_[kind]; }
    const HeaderSelectors &headers() const { return headers_; }
    const MetaDependents &metas() const { return metas_; }

    // What it may cost to find out how the rules can be looked for: so many steps of a WorkBudget for each rule, and so many
    // bytes of tables for each and for all. What the rules of a kind leave is for the later kinds; when nothing is left,
    // rules are tried on every text instead.
    static constexpr std::uint64_t kRuleSteps = 1250000;
    static constexpr std::uint64_t kRuleTableBytes = 16384;
    static constexpr std::uint64_t kMaxTableBytes = 64U << 20;

    // Bytes allocated for the index itself, without the rules and their expressions.
    std::size_t memoryBytes() const;

private:
    static constexpr std::size_t kKinds = Rule::Meta + 1;
    static constexpr std::size_t kLanguages = ALL;

    // A list and how often it had been accessed when it was last found to be as indexed, or not to be.
    struct Watch {
        RefRuleList list;
        const WatchedRuleList *watched = nullptr;
        mutable std::atomic<unsigned int> same{0};
        mutable std::atomic<unsigned int> other{0};
    };

    // The rules of one kind, each with the languages whose lists hold it, and where each stands here.
    struct Found {
        std::vector<std::pair<RefRule, std::uint8_t>> rules;
        std::unordered_map<const Rule *, std::size_t> positions;
    };

    // The distinct expressions of one kind; they are compiled with the same options.
    struct Patterns {
        std::vector<RuleFilter::Source> sources;
        std::unordered_map<std::string, std::uint32_t> numbers;

        std::uint32_t add(RuleFilter::Source &&source);
    };

    void collect(const RuleContainer &container, Rule::Type kind);
    void collectList(const RuleContainer &container, langID language, Rule::Type kind,
                     Found &found);
    void prepare(Rule::Type kind, Regex::WorkBudget &budget);
    RuleFilter::Source prepareText(KindIndex &index, std::size_t number, Rule::Type kind) const;
    RuleFilter::Source prepareHeader(IndexedRule &indexed);
    static void groupByPattern(KindIndex &index, std::size_t patterns);
    static void countRules(KindIndex &index);
    void prepareHeaders();
    void prepareMetas();
    void prepareMeta(std::uint32_t number);
    bool sameRules(const RuleList &list, langID language, Rule::Type kind) const;

    std::array<KindIndex, kKinds> kinds_;
    HeaderSelectors headers_;
    MetaDependents metas_;
    std::array<std::array<Watch, kLanguages>, kKinds> watches_;
    std::shared_ptr<std::atomic<bool>> edited_;
};

} // namespace Corvane::Heuristic

#endif
