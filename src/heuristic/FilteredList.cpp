#include "heuristic/FilteredList.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "heuristic/BodyRule.h"
#include "heuristic/PassProber.h"
#include "heuristic/RuleFilterSearch.h"
#include "heuristic/SearchPolicy.h"
#include "host/regex/LiteralMatcher.h"

namespace Corvane::Heuristic {

FilteredList::FilteredList(const RuleIndex &index, langID language, Rule::Type kind,
                           unsigned int ordinalCutoff)
    : index_(index), rules_(index.of(kind)),
      language_(static_cast<std::uint8_t>(1U << static_cast<unsigned int>(language))),
      cutoff_(ordinalCutoff == 0 ? std::numeric_limits<std::uint64_t>::max() : ordinalCutoff),
      done_(rules_.rules.size()) {
    if (ordinalCutoff == 0) {
        counts_ = rules_.counts[static_cast<std::size_t>(language)];
        return;
    }
    for (std::uint32_t i = 0; i < rules_.rules.size() && rules_.rules[i].ordinal < cutoff_; ++i) {
        if (admits(i)) {
            counts_.add(rules_.rules[i]);
        }
    }
}

// The rules still to be tried, and maybe others: counted anew where they have become half as many.
const std::vector<std::uint32_t> &FilteredList::few() {
    if (!fewOf_.has_value() || counts_.all.rules < *fewOf_ / 2) {
        few_.clear();
        fewOf_ = counts_.all.rules;
        for (std::uint32_t i = 0; i < rules_.rules.size(); ++i) {
            if (admits(i)) {
                few_.push_back(i);
            }
        }
    }
    return few_;
}

RefRuleList FilteredList::remaining() const {
    RefRuleList list = RefRuleList::create();
    for (std::uint32_t i = 0; i < rules_.rules.size(); ++i) {
        if (admits(i)) {
            list.add(rules_.handles[i]);
        }
    }
    return list;
}

void FilteredPass::clear() {
    memory_->texts.clear();
    memory_->staged.clear();
    memory_->candidates.clear();
    memory_->matches.clear();
    next_ = 0;
}

void FilteredPass::add(std::uint32_t start, std::uint32_t length) {
    memory_->texts.push_back({start, length, size()});
}

void FilteredPass::stage(std::initializer_list<std::string_view> parts) {
    stage(parts, size(), HeaderForm::Value);
}

FilteredPass::Range FilteredPass::stage(std::initializer_list<std::string_view> parts,
                                        std::uint32_t unit, HeaderForm form) {
    std::vector<unsigned char> &staged = memory_->staged;
    if (!staged.empty()) {
        staged.push_back(0);
    }
    const auto start = static_cast<std::uint32_t>(staged.size());
    for (const std::string_view part : parts) {
        const auto *bytes = reinterpret_cast<const unsigned char *>(part.data());
        staged.insert(staged.end(), bytes, bytes + part.size());
    }
    const auto length = static_cast<std::uint32_t>(staged.size()) - start;
    spend(length);
    memory_->texts.push_back({start, length, unit, 0, static_cast<std::uint8_t>(form), 0});
    return {start, length};
}

FilteredPass::Range FilteredPass::alsoForms(std::uint32_t innerStart, unsigned int forms) {
    ScanText &text = memory_->texts.back();
    text.innerStart = innerStart;
    text.innerForms = static_cast<std::uint8_t>(forms);
    return {text.start + innerStart, text.length - innerStart};
}

void FilteredPass::stageBytes(const unsigned char *data, std::size_t length) {
    memory_->staged.insert(memory_->staged.end(), data, data + length);
}

Buffer FilteredPass::text(std::uint32_t text) const {
    const ScanText &range = memory_->texts[text];
    return {base_ + range.start, range.length, true};
}

void FilteredPass::alsoTry(std::uint32_t unit, const std::vector<std::uint32_t> &rules) {
    for (const std::uint32_t rule : rules) {
        if (!list_.admits(rule)) {
            continue;
        }
        const IndexedRule &indexed = list_.rules().rules[rule];
        if (indexed.trial == IndexedRule::Trial::Always) {
            memory_->matches.push_back({unit, rule});
        } else {
            memory_->candidates.emplace_back(indexed.pattern, unit, false);
        }
    }
}

std::size_t FilteredPass::endOfTexts() const {
    const std::vector<ScanText> &texts = memory_->texts;
    return texts.empty() ? 0 : std::size_t{texts.back().start} + texts.back().length;
}

void FilteredPass::spend(std::uint64_t work) const {
    if (budget_ != nullptr) {
        budget_->note(work);
    }
}

bool FilteredPass::isWorthSearching() const {
    const std::size_t bytes = size() == 0 ? 0 : endOfTexts() - memory_->texts.front().start;
    SearchPolicy policy(*this, size(), SearchPolicy::Units::Texts);
    return policy.effort().hasRoomFor(list_.rules().filter->searchWork(bytes));
}

// Brings the candidates together, and takes note of the work. Answers false where those of the
// rules that are searched for are missing.
bool FilteredPass::search(const unsigned char *base, std::size_t readable, SearchPolicy &policy,
                          ScanEffort &effort) {
    const RuleFilter &filter = *list_.rules().filter;
    const std::size_t start = memory_->texts.empty() ? 0 : memory_->texts.front().start;
    const ScanEffort::Work work = filter.searchWork(endOfTexts() - start);
    if (list_.counts().searched.rules == 0 || isOver()) {
        return true;
    }
    if (!policy.effort().hasRoomFor(work)) {
        return false;
    }
    const std::size_t before = memory_->candidates.size();
    policy.effort().spend(work);
    const bool isComplete = filter.select(base, readable, *memory_, policy);
    spend(endOfTexts());
    effort.spend(-policy.effort().balance());
    if (isComplete) {
        effort.spare(policy.workOfSearched());
    } else {
        memory_->candidates.resize(before, Candidate(0, 0, false));
    }
    return isComplete;
}

void FilteredPass::sortCandidates() {
    std::vector<Candidate> &candidates = memory_->candidates;
    std::sort(candidates.begin(), candidates.end());
    candidates.erase(std::unique(candidates.begin(), candidates.end()), candidates.end());
}

void FilteredPass::select(const unsigned char *base, std::size_t readable) {
    base_ = base;
    if (size() == 0 || list_.counts().all.rules == 0) {
        return;
    }
    SearchPolicy policy(*this, size(), SearchPolicy::Units::Texts);
    ScanEffort effort;
    effort.expect(policy.workOf(list_.counts().all));
    effort.did(policy.workOfFirst());
    Prober prober(list_.rules(), base, endOfTexts(), size(), *memory_, effort, budget_);
    const auto tryEach = [&](std::uint32_t pattern) {
        const std::uint32_t unit = tryEverywhere(pattern, prober);
        effort.expect(unit < size() ? -policy.workAfter(pattern, unit) : 0);
    };
    if (search(base, readable, policy, effort)) {
        sortCandidates();
        tryCandidates(prober);
    } else {
        for (std::uint32_t pattern = 0; pattern < list_.rules().patterns(); ++pattern) {
            if (list_.rules().filter->isSearched(pattern)) {
                tryEach(pattern);
            }
        }
    }
    const std::vector<std::uint32_t> &unfiltered = list_.rules().filter->unfiltered();
    std::for_each(unfiltered.begin(), unfiltered.end(), tryEach);
    std::sort(memory_->matches.begin(), memory_->matches.end());
}

// The staged bytes with some behind the texts, for which a search is faster.
const std::vector<unsigned char> &FilteredPass::padded() {
    memory_->staged.resize(memory_->staged.size() + Regex::LiteralMatcher::kPaddingBytes);
    return memory_->staged;
}

void FilteredPass::selectStaged() {
    const std::vector<unsigned char> &staged = padded();
    select(staged.data(), staged.size());
}

void FilteredPass::tryCandidates(Prober &prober) {
    std::uint32_t settled = std::numeric_limits<std::uint32_t>::max();
    for (const Candidate &candidate : memory_->candidates) {
        const std::uint32_t pattern = candidate.pattern();
        const std::uint32_t unit = candidate.unit();
        if (pattern == settled) {
            continue;
        }
        if (isOver()) {
            return;
        }
        if (candidate.decided()) {
            addRules(pattern, unit);
        } else if (!tryText(pattern, unit, prober)) {
            continue;
        }
        settled = pattern;
    }
}

// Answers the first unit that matches; size() where none does, or no rule is left to be tried.
std::uint32_t FilteredPass::tryEverywhere(std::uint32_t pattern, Prober &prober) {
    std::uint32_t unit = isOpen(pattern) ? 0 : size();
    for (std::uint32_t next = unit; unit < size() && !isOver(); unit = next) {
        const std::uint32_t atOnce = prober.textsAtOnce(pattern, unit);
        next = unit + atOnce;
        if (atOnce == 1 ? tryText(pattern, unit, prober) : tryTexts(pattern, unit, next, prober)) {
            break;
        }
    }
    return unit;
}

bool FilteredPass::tryText(std::uint32_t pattern, std::uint32_t unit, Prober &prober) {
    const ScanText &text = memory_->texts[unit];
    const RuleProfile::Charge charge(profile_);
    const bool matched = prober.matches(pattern, {text.start, text.length}, unit);
    settle(charge, pattern);
    if (matched) {
        addRules(pattern, unit);
    }
    return matched;
}

// The same for the texts up to before last; answers whether any matched.
bool FilteredPass::tryTexts(std::uint32_t pattern, std::uint32_t first, std::uint32_t last,
                            Prober &prober) {
    const RuleProfile::Charge charge(profile_);
    bool matched = false;
    for (const Text &text : prober.worthTrying(pattern, first, last)) {
        if (isOver()) {
            break;
        }
        matched = prober.matches(pattern, text);
        if (matched) {
            addRules(pattern, static_cast<std::uint32_t>(text.number));
            break;
        }
    }
    settle(charge, pattern);
    return matched;
}

// Rules with the same expression share what it took.
void FilteredPass::settle(const RuleProfile::Charge &charge, std::uint32_t pattern) const {
    if (!charge.isOn()) {
        return;
    }
    const KindIndex &index = list_.rules();
    std::vector<unsigned int> ordinals;
    for (auto rule = index.rulesBegin(pattern); rule != index.rulesEnd(pattern); ++rule) {
        if (list_.admits(*rule)) {
            ordinals.push_back(index.rules[*rule].ordinal);
        }
    }
    charge.to(ordinals);
}

void FilteredPass::addRules(std::uint32_t pattern, std::uint32_t unit) {
    const KindIndex &index = list_.rules();
    for (auto rule = index.rulesBegin(pattern); rule != index.rulesEnd(pattern); ++rule) {
        if (list_.admits(*rule)) {
            memory_->matches.push_back({unit, *rule});
        }
    }
}

void FilteredPass::selectHeaders(const Headers &headers) {
    const std::vector<unsigned char> &staged = padded();
    const std::size_t units = headers.units.size();
    ScanEffort effort;
    SearchPolicy policy(*this, units, SearchPolicy::Units::Headers);
    effort.expect(policy.workOf(list_.counts().all));
    effort.did(policy.workOfFirst());
    Prober prober(list_.rules(), staged.data(), endOfTexts(), units * kForms, *memory_, effort,
                  budget_);
    memory_->found.resize(std::max(memory_->found.size(), list_.rules().rules.size()), 0);
    if (!search(staged.data(), staged.size(), policy, effort)) {
        trySearched(headers, prober);
    }
    sortCandidates();
    for (const Candidate &candidate : memory_->candidates) {
        if (isOver()) {
            break;
        }
        tryHeader(candidate, headers, prober);
    }
    for (const UnitRule &match : memory_->matches) {
        memory_->found[match.rule] = 0;
    }
    std::sort(memory_->matches.begin(), memory_->matches.end());
}

// Tries all rules that are searched for on all headers.
void FilteredPass::trySearched(const Headers &headers, Prober &prober) {
    for (std::uint32_t pattern = 0; pattern < list_.rules().patterns(); ++pattern) {
        const bool isTried = list_.rules().filter->isSearched(pattern) && isOpen(pattern);
        const std::size_t units = isTried ? headers.units.size() : 0;
        for (std::uint32_t unit = 0; unit < units && !isOver(); ++unit) {
            tryHeader(Candidate(pattern, unit, false), headers, prober);
        }
    }
}

// Of a pattern's rules each applies to headers of its own, and is not tried again on one after that which it has matched.
void FilteredPass::tryHeader(const Candidate &candidate, const Headers &headers, Prober &prober) {
    const KindIndex &index = list_.rules();
    const HeaderUnit &header = headers.units[candidate.unit()];
    const std::uint32_t *selectors = headers.selectors.data();
    const auto applies = [&](std::uint32_t rule) {
        const std::uint32_t *last = selectors + header.lastSelector;
        return memory_->found[rule] == 0 && list_.admits(rule) &&
               std::binary_search(selectors + header.firstSelector, last,
                                  index.rules[rule].selector);
    };
    const std::uint32_t *end = index.rulesEnd(candidate.pattern());
    const std::uint32_t *rule = std::find_if(index.rulesBegin(candidate.pattern()), end, applies);
    if (rule == end) {
        return;
    }
    const auto form = static_cast<std::size_t>(index.rules[*rule].form);
    const RuleProfile::Charge charge(profile_);
    const bool matched =
        candidate.decided() ||
        prober.matches(candidate.pattern(), header.forms[form], candidate.unit() * kForms + form);
    if (charge.isOn()) {
        std::vector<unsigned int> ordinals;
        for (const std::uint32_t *each = rule; each != end;
             each = std::find_if(each + 1, end, applies)) {
            ordinals.push_back(index.rules[*each].ordinal);
        }
        charge.to(ordinals);
    }
    if (matched) {
        for (; rule != end; rule = std::find_if(rule + 1, end, applies)) {
            memory_->found[*rule] = 1;
            memory_->matches.push_back({candidate.unit(), *rule});
        }
    }
}

// Leaves out what matches the units before.
void FilteredPass::skipTo(std::uint32_t unit) {
    const std::vector<UnitRule> &found = memory_->matches;
    while (next_ < found.size() && found[next_].unit < unit) {
        ++next_;
    }
}

std::uint32_t FilteredPass::nextUnit(std::uint32_t unit, std::uint32_t end) {
    const std::vector<UnitRule> &found = memory_->matches;
    if (!list_.rules().logging.empty()) {
        return unit;
    }
    skipTo(unit);
    return next_ < found.size() ? std::min(found[next_].unit, end) : end;
}

// Walks what matches the unit and the rules that log, in the order of the list.
bool FilteredPass::addMatches(std::uint32_t unit, const Buffer &text, RefMatches &matches) {
    const KindIndex &index = list_.rules();
    const std::vector<UnitRule> &found = memory_->matches;
    auto logging = index.logging.begin();
    const auto log = [&](std::uint32_t before) {
        for (; logging != index.logging.end() && *logging < before; ++logging) {
            if (list_.admits(*logging) && !isOver()) {
                (void)static_cast<const BodyRule &>(*index.rules[*logging].rule).matches(text);
            }
        }
    };
    skipTo(unit);
    for (; next_ < found.size() && found[next_].unit == unit; ++next_) {
        const std::uint32_t rule = found[next_].rule;
        log(rule);
        if (list_.isDone(rule)) {
            continue;
        }
        const bool tripped = matches.add(index.handles[rule]);
        list_.done(rule);
        if (tripped) {
            return true;
        }
    }
    log(std::numeric_limits<std::uint32_t>::max());
    return false;
}

} // namespace Corvane::Heuristic
