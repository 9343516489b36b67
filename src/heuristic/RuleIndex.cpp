#include "heuristic/RuleIndex.h"

#include <algorithm>
#include <numeric>
#include <set>
#include <utility>

#include "heuristic/BodyRule.h"
#include "heuristic/FullRule.h"
#include "heuristic/MetaRule.h"
#include "heuristic/TextKind.h"
#include "heuristic/UriRule.h"
#include "heuristic/WatchedRuleList.h"
#include "host/parser/Text.h"

namespace Corvane::Heuristic {

namespace {

constexpr Rule::Type kFilteredKinds[] = {Rule::Header, Rule::Uri, Rule::Body, Rule::RawBody,
                                         Rule::Full};

bool s_hasPattern(const IndexedRule &rule) {
    return rule.trial == IndexedRule::Trial::Match || rule.trial == IndexedRule::Trial::Absence;
}

constexpr std::uint8_t s_bit(langID language) {
    return static_cast<std::uint8_t>(1U << static_cast<unsigned int>(language));
}

// The compiled form, kept alive by the list; null where there is none.
const Regex::ExpressionImpl *s_keep(const Regex::Expression &expression,
                                    std::vector<Regex::Expression> &kept) {
    return expression.isNull() ? nullptr : kept.emplace_back(expression).operator->();
}

template <class T>
std::size_t s_bytes(const std::vector<T> &values) {
    return values.capacity() * sizeof(T);
}

// Of the names that mail has, all but some made up to be long.
constexpr std::size_t kRememberedNameBytes = 64;

} // namespace

std::uint32_t HeaderSelectors::add(const StringPattern &pattern) {
    const auto [found, fresh] = byKey_.emplace(pattern.key(), size());
    if (fresh) {
        selectors_.push_back({pattern, 0, {}, {}});
        if (pattern.soleName() != nullptr) {
            byName_.emplace(*pattern.soleName(), found->second);
        } else {
            others_.push_back(found->second);
        }
    }
    return found->second;
}

std::uint64_t HeaderSelectors::takeNumber() {
    static std::atomic<std::uint64_t> s_last{0};
    return ++s_last;
}

const std::vector<std::uint32_t> &HeaderSelectors::find(const std::string &name,
                                                        ScanMemory &memory) const {
    if (name.size() > kRememberedNameBytes) {
        memory.selectorsOfLongName.clear();
        findAnew(name, memory.selectorsOfLongName);
        return memory.selectorsOfLongName;
    }
    if (memory.selectorsOf != number_ || memory.selectors.size() > kRememberedNames ||
        memory.selectorNumbers > ScanMemory::kMaxSelectors) {
        memory.selectors.clear();
        memory.selectorNumbers = 0;
        memory.selectorsOf = number_;
    }
    const auto [found, fresh] = memory.selectors.try_emplace(name);
    if (fresh) {
        findAnew(name, found->second);
        memory.selectorNumbers += found->second.capacity();
    }
    return found->second;
}

void HeaderSelectors::findAnew(const std::string &name, std::vector<std::uint32_t> &numbers) const {
    std::string lowered;
    copyStringToLower(name.data(), lowered, 0, name.size());
    const auto found = byName_.find(lowered);
    if (found != byName_.end()) {
        numbers.push_back(found->second);
    }
    for (const std::uint32_t number : others_) {
        if (selectors_[number].pattern.matches(name)) {
            numbers.push_back(number);
        }
    }
    std::sort(numbers.begin(), numbers.end());
}

RuleIndex::RuleIndex(const RuleContainer &container)
    : edited_(std::make_shared<std::atomic<bool>>(false)) {
    Regex::WorkBudget budget;
    std::uint64_t bytes = 0;
    for (const Rule::Type kind : kFilteredKinds) {
        collect(container, kind);
        const std::uint64_t rules = kinds_[kind].rules.size();
        const std::uint64_t more = std::min(rules * kRuleTableBytes, kMaxTableBytes - bytes);
        bytes += more;
        budget.add(rules * kRuleSteps, more);
        prepare(kind, budget);
    }
    collect(container, Rule::Meta);
    prepareMetas();
}

RuleIndex::~RuleIndex() = default;

// Puts the rules of all languages into the order of loading.
void RuleIndex::collect(const RuleContainer &container, Rule::Type kind) {
    Found found;
    for (int language = DEFAULT; language < ALL; ++language) {
        collectList(container, static_cast<langID>(language), kind, found);
    }
    std::sort(found.rules.begin(), found.rules.end(),
              [](const auto &a, const auto &b) { return a.first->ordinal() < b.first->ordinal(); });
    KindIndex &index = kinds_[kind];
    for (auto &[rule, languages] : found.rules) {
        rule->edited_ = edited_;
        IndexedRule indexed;
        indexed.rule = rule.operator->();
        indexed.ordinal = rule->ordinal();
        indexed.languages = languages;
        index.rules.push_back(indexed);
        index.handles.push_back(std::move(rule));
    }
}

// Notes the list and its rules. One that is in another order than that of loading is not watched, and so never holds.
void RuleIndex::collectList(const RuleContainer &container, langID language, Rule::Type kind,
                            Found &found) {
    Watch &watch = watches_[kind][static_cast<std::size_t>(language)];
    watch.list = RefRuleList(container.rules(language, kind), false);
    const auto *watched = dynamic_cast<const WatchedRuleList *>(&watch.list.peek());
    unsigned int last = 0;
    for (const RefRule &rule : watch.list.peek()) {
        if (rule.isNull() || rule->ordinal() <= last) {
            return;
        }
        last = rule->ordinal();
        const auto [position, fresh] =
            found.positions.emplace(rule.operator->(), found.rules.size());
        if (fresh) {
            found.rules.emplace_back(rule, 0);
        }
        found.rules[position->second].second |= s_bit(language);
    }
    if (watched != nullptr) {
        watch.watched = watched;
        watch.same = watched->accesses();
        watch.other = watch.same - 1;
    }
}

void RuleIndex::prepare(Rule::Type kind, Regex::WorkBudget &budget) {
    KindIndex &index = kinds_[kind];
    Patterns patterns;
    for (std::size_t i = 0; i < index.rules.size(); ++i) {
        RuleFilter::Source source =
            kind == Rule::Header ? prepareHeader(index.rules[i]) : prepareText(index, i, kind);
        if (!source.text.empty()) {
            index.rules[i].pattern = patterns.add(std::move(source));
        }
    }
    index.filter.emplace(patterns.sources, textKindOf(kind), budget);
    groupByPattern(index, patterns.sources.size());
    countRules(index);
    for (std::uint32_t i = 0; i < index.rules.size(); ++i) {
        if (index.rules[i].trial == IndexedRule::Trial::Log) {
            index.logging.push_back(i);
        }
    }
    if (kind == Rule::Header) {
        prepareHeaders();
    }
}

std::uint32_t RuleIndex::Patterns::add(RuleFilter::Source &&source) {
    const auto next = static_cast<std::uint32_t>(sources.size());
    const std::string key =
        std::string{static_cast<char>(source.form), source.searched ? '1' : '0'};
    const auto [found, fresh] = numbers.emplace(key + source.text, next);
    if (fresh) {
        sources.push_back(std::move(source));
    }
    return found->second;
}

void RuleIndex::groupByPattern(KindIndex &index, std::size_t patterns) {
    index.firstRules.assign(patterns + 1, 0);
    for (const IndexedRule &rule : index.rules) {
        if (s_hasPattern(rule)) {
            ++index.firstRules[rule.pattern + 1];
        }
    }
    std::partial_sum(index.firstRules.begin(), index.firstRules.end(), index.firstRules.begin());
    index.rulesByPattern.resize(index.firstRules.back());
    std::vector<std::uint32_t> next = index.firstRules;
    for (std::uint32_t i = 0; i < index.rules.size(); ++i) {
        if (s_hasPattern(index.rules[i])) {
            index.rulesByPattern[next[index.rules[i].pattern]++] = i;
        }
    }
}

void RuleIndex::countRules(KindIndex &index) {
    for (IndexedRule &rule : index.rules) {
        if (!s_hasPattern(rule)) {
            continue;
        }
        rule.isSearched = index.filter->isSearched(rule.pattern);
        rule.readsTexts = index.filter->readsTexts(rule.pattern);
        for (std::size_t language = 0; language < kLanguages; ++language) {
            if ((std::uint32_t{rule.languages} >> language & 1U) != 0) {
                index.counts[language].add(rule);
            }
        }
    }
}

RuleFilter::Source RuleIndex::prepareText(KindIndex &index, std::size_t number,
                                          Rule::Type kind) const {
    IndexedRule &indexed = index.rules[number];
    const Rule &rule = *indexed.rule;
    unsigned int options = Regex::kNoOptions;
    bool tried = true;
    bool logs = false;
    switch (kind) {
    case Rule::Uri:
        indexed.expression =
            s_keep(static_cast<const UriRule &>(rule).expression_, index.expressions);
        tried = rule.active();
        break;
    case Rule::Full:
        indexed.expression =
            s_keep(static_cast<const FullRule &>(rule).expression_, index.expressions);
        break;
    default:
        indexed.expression =
            s_keep(static_cast<const BodyRule &>(rule).expression_, index.expressions);
        options = Regex::kAnyLineEnd;
        tried = rule.active();
        logs = true;
    }
    if (!tried || indexed.expression == nullptr) {
        indexed.trial = tried && logs ? IndexedRule::Trial::Log : IndexedRule::Trial::Never;
        return {};
    }
    indexed.trial = IndexedRule::Trial::Match;
    std::string text = rule.value();
    stringLeftTrim(text);
    stringRightTrim(text);
    return {text, options, 0, true, indexed.expression->isAnchored()};
}

RuleFilter::Source RuleIndex::prepareHeader(IndexedRule &indexed) {
    const auto &rule = static_cast<const HeaderRule &>(*indexed.rule);
    const HeaderRule::Selection &selection = rule.selection_;
    if (!rule.active() || selection.pattern.isNull()) {
        return {};
    }
    indexed.form = selection.form;
    if (selection.exists) {
        indexed.trial = IndexedRule::Trial::Always;
    } else if (!rule.expression_.isNull()) {
        indexed.expression = s_keep(rule.expression_, kinds_[Rule::Header].expressions);
        indexed.trial =
            selection.positive ? IndexedRule::Trial::Match : IndexedRule::Trial::Absence;
    } else {
        return {};
    }
    indexed.selector = headers_.add(selection.pattern);
    if (indexed.trial == IndexedRule::Trial::Always) {
        return {};
    }
    HeaderRule::Selection ignored;
    return {HeaderRule::select(ignored, rule.value()), Regex::kDotMatchesAll,
            static_cast<std::uint8_t>(selection.form), indexed.trial == IndexedRule::Trial::Match,
            indexed.expression->isAnchored()};
}

// Hands each header rule to its selector: its form, and the rule itself where the filter cannot look for it.
void RuleIndex::prepareHeaders() {
    const KindIndex &index = kinds_[Rule::Header];
    const std::vector<std::uint32_t> &unfiltered = index.filter->unfiltered();
    for (std::uint32_t i = 0; i < index.rules.size(); ++i) {
        const IndexedRule &indexed = index.rules[i];
        if (indexed.trial == IndexedRule::Trial::Never) {
            continue;
        }
        HeaderSelectors::Selector &selector = headers_.at(indexed.selector);
        if (indexed.trial != IndexedRule::Trial::Always) {
            selector.forms |= 1U << static_cast<unsigned int>(indexed.form);
        }
        if (indexed.form == HeaderForm::Addr || indexed.form == HeaderForm::Name) {
            selector.ofAddress.push_back(i);
        }
        if (indexed.trial != IndexedRule::Trial::Match ||
            std::binary_search(unfiltered.begin(), unfiltered.end(), indexed.pattern)) {
            selector.unfiltered.push_back(i);
        }
    }
}

void RuleIndex::prepareMetas() {
    metas_.unconditional = BitSet(kinds_[Rule::Meta].rules.size());
    for (std::uint32_t i = 0; i < kinds_[Rule::Meta].rules.size(); ++i) {
        prepareMeta(i);
    }
}

void RuleIndex::prepareMeta(std::uint32_t number) {
    IndexedRule &indexed = kinds_[Rule::Meta].rules[number];
    const auto &rule = static_cast<const MetaRule &>(*indexed.rule);
    if (!rule.active()) {
        return;
    }
    indexed.trial = IndexedRule::Trial::Match;
    bool unconditional = false;
    try {
        unconditional = rule.evaluate(RefMatches::create());
    } catch (const Exception &) {
        unconditional = true;
    }
    if (unconditional) {
        metas_.unconditional.set(number);
        return;
    }
    // A misplaced operator is looked up like a rule without a name.
    std::set<std::string> names;
    for (const MetaRule::Atom &atom : rule.atoms_) {
        names.insert(atom.strvalue());
    }
    for (const std::string &name : names) {
        metas_.byName[name].push_back(number);
    }
}

bool RuleIndex::holds(const RuleContainer &container, langID language, Rule::Type kind) const {
    const Watch &watch = watches_[kind][static_cast<std::size_t>(language)];
    if (watch.watched == nullptr || !unedited()) {
        return false;
    }
    const RefRuleList &current = container.rules(language, kind);
    if (current.isNull() || &current.peek() != watch.watched) {
        return false;
    }
    const unsigned int accesses = watch.watched->accesses();
    if (accesses == watch.same.load(std::memory_order_relaxed)) {
        return true;
    }
    if (accesses == watch.other.load(std::memory_order_relaxed)) {
        return false;
    }
    const bool same = sameRules(*watch.watched, language, kind);
    (same ? watch.same : watch.other).store(accesses, std::memory_order_relaxed);
    return same;
}

bool RuleIndex::sameRules(const RuleList &list, langID language, Rule::Type kind) const {
    auto at = list.begin();
    for (const IndexedRule &indexed : kinds_[kind].rules) {
        if ((indexed.languages & s_bit(language)) == 0) {
            continue;
        }
        if (at == list.end() || at->isNull() || at->operator->() != indexed.rule) {
            return false;
        }
        ++at;
    }
    return at == list.end();
}

std::optional<langID> RuleIndex::languageOfFullRules(const RuleContainer &container,
                                                     const RefRuleList &list) const {
    for (int each = DEFAULT; each < ALL && !list.isNull(); ++each) {
        const auto language = static_cast<langID>(each);
        if (&list.peek() == watches_[Rule::Full][static_cast<std::size_t>(language)].watched &&
            holds(container, language, Rule::Full)) {
            return language;
        }
    }
    return std::nullopt;
}

std::size_t HeaderSelectors::memoryBytes() const {
    std::size_t bytes = s_bytes(selectors_) + s_bytes(others_);
    for (const Selector &selector : selectors_) {
        bytes += s_bytes(selector.unfiltered) + s_bytes(selector.ofAddress);
    }
    for (const auto *names : {&byKey_, &byName_}) {
        for (const auto &entry : *names) {
            bytes += sizeof(entry) + entry.first.capacity();
        }
    }
    return bytes;
}

std::size_t RuleIndex::memoryBytes() const {
    std::size_t bytes = sizeof(*this) + headers_.memoryBytes() + metas_.unconditional.memoryBytes();
    for (const KindIndex &index : kinds_) {
        bytes += s_bytes(index.rules) + s_bytes(index.logging) + s_bytes(index.handles) +
                 s_bytes(index.rulesByPattern) + s_bytes(index.firstRules) +
                 s_bytes(index.expressions) +
                 (index.handles.size() + index.expressions.size()) * sizeof(RefCounted<Rule>) +
                 (index.filter ? index.filter->memoryBytes() : 0);
    }
    for (const auto &[name, dependents] : metas_.byName) {
        bytes += sizeof(std::string) + name.capacity() + sizeof(std::vector<std::uint32_t>) +
                 s_bytes(dependents);
    }
    return bytes;
}

} // namespace Corvane::Heuristic
