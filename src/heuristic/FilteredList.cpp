#include "heuristic/FilteredList.h"

#include <algorithm>
#include <limits>

#include "heuristic/BodyRule.h"
#include "heuristic/RuleFilterSearch.h"
#include "host/regex/LiteralMatcher.h"

namespace Corvane::Heuristic {

FilteredList::FilteredList(const RuleIndex &index, langID language, Rule::Type kind,
                           unsigned int ordinalCutoff)
    : index_(index), rules_(index.of(kind)),
      language_(static_cast<std::uint8_t>(1U << static_cast<unsigned int>(language))),
      cutoff_(ordinalCutoff == 0 ? std::numeric_limits<std::uint64_t>::max() : ordinalCutoff),
      done_(rules_.rules.size()) {}

RefRuleList FilteredList::remaining() const {
    RefRuleList list = RefRuleList::create();
    for (std::uint32_t i = 0; i < rules_.rules.size(); ++i) {
        if (admits(i)) {
            list.add(rules_.handles[i]);
        }
    }
    return list;
}

// Tries patterns on texts of a pass.
class FilteredPass::Prober {
public:
    // Each text has a slot, below slots, for what is known of it.
    Prober(const KindIndex &index, const unsigned char *base, std::size_t length, std::size_t slots,
           ScanMemory &memory)
        : index_(index), base_(base), lowered_(base, length, memory), memory_(memory) {
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
        TextFacts facts = factsOf(range, slot);
        if (filter.isLiteral(pattern)) {
            return filter.mayMatch(pattern, facts) == positive;
        }
        // What is not worth trying cannot match, but may fail, which is no match of a negated rule.
        if (positive && !filter.mayMatch(pattern, facts)) {
            return false;
        }
        bool failed = false;
        const bool matched =
            rule(pattern).expression->matches(facts.data(), facts.length(), 0, &failed);
        return !failed && matched == positive;
    }

    // Where units are texts, each in the slot of its number, and the pattern must match: those from first to before last
    // where it is worth trying. Good until the next call.
    const std::vector<Text> &worthTrying(std::uint32_t pattern, std::uint32_t first,
                                         std::uint32_t last) {
        std::vector<Text> &considered = memory_.considered;
        considered.clear();
        for (std::uint32_t unit = first; unit < last; ++unit) {
            const ScanText &text = memory_.texts[unit];
            TextFacts facts = factsOf({text.start, text.length}, unit);
            if (index_.filter->passes(pattern, facts)) {
                considered.push_back({facts.data(), facts.length(), unit});
            }
        }
        index_.filter->selectAccepted(pattern, considered);
        return considered;
    }

    bool matches(std::uint32_t pattern, const Text &text) const {
        return rule(pattern).expression->matches(text.data, text.length, 0, nullptr);
    }

private:
    const IndexedRule &rule(std::uint32_t pattern) const {
        return index_.rules[*index_.rulesBegin(pattern)];
    }

    TextFacts factsOf(const Range &range, std::size_t slot) {
        return {base_ + range.start, range.length, lowered_, range.start, memory_.known[slot]};
    }

    const KindIndex &index_;
    const unsigned char *base_;
    LoweredRange lowered_;
    ScanMemory &memory_;
};

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
    const auto start = static_cast<std::uint32_t>(staged.size());
    for (const std::string_view part : parts) {
        const auto *bytes = reinterpret_cast<const unsigned char *>(part.data());
        staged.insert(staged.end(), bytes, bytes + part.size());
    }
    const auto length = static_cast<std::uint32_t>(staged.size()) - start;
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

// Whether any rule of that pattern is still to be tried.
bool FilteredPass::isOpen(std::uint32_t pattern) const {
    const KindIndex &index = list_.rules();
    return std::any_of(index.rulesBegin(pattern), index.rulesEnd(pattern),
                       [this](std::uint32_t rule) { return list_.admits(rule); });
}

std::size_t FilteredPass::endOfTexts() const {
    const std::vector<ScanText> &texts = memory_->texts;
    return texts.empty() ? 0 : std::size_t{texts.back().start} + texts.back().length;
}

// Brings the candidates together.
void FilteredPass::search(const unsigned char *base, std::size_t readable) {
    list_.rules().filter->select(base, readable, *memory_,
                                 [this](std::uint32_t pattern) { return isOpen(pattern); });
    std::vector<Candidate> &candidates = memory_->candidates;
    std::sort(candidates.begin(), candidates.end());
    candidates.erase(std::unique(candidates.begin(), candidates.end()), candidates.end());
}

void FilteredPass::select(const unsigned char *base, std::size_t readable, Wanted wanted) {
    base_ = base;
    search(base, readable);
    Prober prober(list_.rules(), base, endOfTexts(), size(), *memory_);
    tryCandidates(prober, wanted);
    for (const std::uint32_t pattern : list_.rules().filter->unfiltered()) {
        tryEverywhere(pattern, prober, wanted);
    }
    std::sort(memory_->matches.begin(), memory_->matches.end());
}

// The staged bytes with some behind the texts, for which a search is faster.
const std::vector<unsigned char> &FilteredPass::padded() {
    memory_->staged.resize(memory_->staged.size() + Regex::LiteralMatcher::kPaddingBytes);
    return memory_->staged;
}

void FilteredPass::selectStaged(Wanted wanted) {
    const std::vector<unsigned char> &staged = padded();
    select(staged.data(), staged.size(), wanted);
}

void FilteredPass::tryCandidates(Prober &prober, Wanted wanted) {
    std::uint32_t settled = std::numeric_limits<std::uint32_t>::max();
    for (const Candidate &candidate : memory_->candidates) {
        const std::uint32_t pattern = candidate.pattern();
        const std::uint32_t unit = candidate.unit();
        if (pattern == settled) {
            continue;
        }
        if (candidate.decided()) {
            addRules(pattern, unit);
        } else if (!tryText(pattern, unit, prober)) {
            continue;
        }
        settled = wanted == Wanted::FirstMatch ? pattern : settled;
    }
}

void FilteredPass::tryEverywhere(std::uint32_t pattern, Prober &prober, Wanted wanted) {
    if (!isOpen(pattern)) {
        return;
    }
    const std::uint32_t step = list_.rules().filter->hasAutomaton(pattern) ? kReadAtOnce : 1;
    for (std::uint32_t unit = 0; unit < size(); unit += step) {
        const bool matched =
            step == 1 ? tryText(pattern, unit, prober) : tryTexts(pattern, unit, prober, wanted);
        if (matched && wanted == Wanted::FirstMatch) {
            return;
        }
    }
}

bool FilteredPass::tryText(std::uint32_t pattern, std::uint32_t unit, Prober &prober) {
    const ScanText &text = memory_->texts[unit];
    const bool matched = prober.matches(pattern, {text.start, text.length}, unit);
    if (matched) {
        addRules(pattern, unit);
    }
    return matched;
}

// The same for up to kReadAtOnce texts from that unit on; answers whether any matched.
bool FilteredPass::tryTexts(std::uint32_t pattern, std::uint32_t first, Prober &prober,
                            Wanted wanted) {
    const std::uint32_t last = first + std::min(kReadAtOnce, size() - first);
    bool matched = false;
    for (const Text &text : prober.worthTrying(pattern, first, last)) {
        if (prober.matches(pattern, text)) {
            addRules(pattern, static_cast<std::uint32_t>(text.number));
            matched = true;
            if (wanted == Wanted::FirstMatch) {
                break;
            }
        }
    }
    return matched;
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
    search(staged.data(), staged.size());
    Prober prober(list_.rules(), staged.data(), endOfTexts(), headers.units.size() * kForms,
                  *memory_);
    memory_->found.resize(std::max(memory_->found.size(), list_.rules().rules.size()), 0);
    for (const Candidate &candidate : memory_->candidates) {
        tryHeader(candidate, headers, prober);
    }
    for (const UnitRule &match : memory_->matches) {
        memory_->found[match.rule] = 0;
    }
    std::sort(memory_->matches.begin(), memory_->matches.end());
}

// Of a pattern's rules each applies to headers of its own, and is not tried again on one after that which it has matched.
void FilteredPass::tryHeader(const Candidate &candidate, const Headers &headers, Prober &prober) {
    const KindIndex &index = list_.rules();
    const HeaderUnit &header = headers.units[candidate.unit()];
    const std::uint32_t *selectors = headers.selectors.data();
    const auto applies = [&](std::uint32_t rule) {
        const std::uint32_t *last = selectors + header.lastSelector;
        return memory_->found[rule] == 0 && list_.admits(rule) &&
               std::find(selectors + header.firstSelector, last, index.rules[rule].selector) !=
                   last;
    };
    const std::uint32_t *end = index.rulesEnd(candidate.pattern());
    const std::uint32_t *rule = std::find_if(index.rulesBegin(candidate.pattern()), end, applies);
    if (rule == end) {
        return;
    }
    const auto form = static_cast<std::size_t>(index.rules[*rule].form);
    if (candidate.decided() ||
        prober.matches(candidate.pattern(), header.forms[form], candidate.unit() * kForms + form)) {
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
            if (list_.admits(*logging)) {
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
