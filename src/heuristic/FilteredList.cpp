#include "heuristic/FilteredList.h"

#include <algorithm>
#include <limits>
#include <optional>

#include "heuristic/BodyRule.h"

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

void FilteredPass::clear() {
    memory_->texts.clear();
    memory_->staged.clear();
    memory_->candidates.clear();
    next_ = 0;
}

void FilteredPass::add(std::uint32_t start, std::uint32_t length, std::uint32_t unit) {
    memory_->texts.push_back({start, length, unit, 0});
}

std::uint32_t FilteredPass::stage(std::initializer_list<std::string_view> parts, std::uint32_t unit,
                                  HeaderForm form) {
    std::vector<unsigned char> &staged = memory_->staged;
    const auto start = static_cast<std::uint32_t>(staged.size());
    for (const std::string_view part : parts) {
        staged.insert(staged.end(), part.begin(), part.end());
    }
    memory_->texts.push_back({start, static_cast<std::uint32_t>(staged.size()) - start, unit,
                              static_cast<std::uint8_t>(form)});
    return static_cast<std::uint32_t>(memory_->texts.size() - 1);
}

void FilteredPass::decodeLast() {
    ScanText &range = memory_->texts.back();
    std::vector<unsigned char> &staged = memory_->staged;
    const std::string encoded(staged.begin() + range.start, staged.end());
    const Buffer decoded = headerValueDecode(encoded);
    staged.resize(range.start);
    if (decoded.length() > 0) {
        staged.insert(staged.end(), decoded.data(), decoded.data() + decoded.length());
    }
    range.length = decoded.length();
}

Buffer FilteredPass::text(std::uint32_t text, const unsigned char *base) const {
    const ScanText &range = memory_->texts[text];
    return {base + range.start, range.length, true};
}

void FilteredPass::alsoTry(std::uint32_t unit, const std::vector<std::uint32_t> &rules) {
    for (const std::uint32_t rule : rules) {
        if (list_.admits(rule)) {
            memory_->candidates.push_back(std::uint64_t{unit} << 32U | rule);
        }
    }
}

void FilteredPass::select(const unsigned char *base) {
    const KindIndex &rules = list_.rules();
    const auto admit = [this](std::uint32_t rule) { return list_.admits(rule); };
    rules.filter->select(base, *memory_, admit);
    std::vector<std::uint64_t> &candidates = memory_->candidates;
    std::sort(candidates.begin(), candidates.end());
    candidates.erase(std::unique(candidates.begin(), candidates.end()), candidates.end());
    memory_->unfiltered.clear();
    std::copy_if(rules.unfiltered.begin(), rules.unfiltered.end(),
                 std::back_inserter(memory_->unfiltered), admit);
}

// Walks the unit's candidates and the rules that no literal stands for, in the order of the list.
template <class Matches>
bool FilteredPass::tryUnit(std::uint32_t unit, RefMatches &matches, Matches match) {
    constexpr std::uint32_t kNone = std::numeric_limits<std::uint32_t>::max();
    const std::vector<std::uint64_t> &candidates = memory_->candidates;
    const std::vector<std::uint32_t> &unfiltered = memory_->unfiltered;
    while (next_ < candidates.size() && candidates[next_] >> 32U < unit) {
        ++next_;
    }
    for (std::size_t other = 0;;) {
        const bool left = next_ < candidates.size() && candidates[next_] >> 32U == unit;
        const std::uint32_t first = left ? static_cast<std::uint32_t>(candidates[next_]) : kNone;
        const std::uint32_t second = other < unfiltered.size() ? unfiltered[other] : kNone;
        const std::uint32_t rule = std::min(first, second);
        if (rule == kNone) {
            return false;
        }
        next_ += rule == first ? 1 : 0;
        other += rule == second ? 1 : 0;
        if (list_.isDone(rule) || !match(rule)) {
            continue;
        }
        const bool tripped = matches.add(list_.rules().handles[rule]);
        list_.done(rule);
        if (tripped) {
            return true;
        }
    }
}

bool FilteredPass::tryText(std::uint32_t unit, const Buffer &text, RefMatches &matches) {
    TextFacts facts(text.data(), text.length(), *memory_);
    return tryUnit(unit, matches,
                   [&](std::uint32_t rule) { return matchesText(rule, text, facts); });
}

bool FilteredPass::matchesText(std::uint32_t rule, const Buffer &text, TextFacts &facts) const {
    const IndexedRule &indexed = list_.rules().rules[rule];
    if (indexed.trial == IndexedRule::Trial::Log) {
        return static_cast<const BodyRule &>(*indexed.rule).matches(text);
    }
    const RuleFilter &filter = *list_.rules().filter;
    if (!filter.mayMatch(rule, facts)) {
        return false;
    }
    bool failed = false;
    return filter.isLiteral(rule) || (indexed.expression->matches(text, 0, &failed) && !failed);
}

bool FilteredPass::tryHeader(std::uint32_t unit, const Forms &forms, Selectors selectors,
                             RefMatches &matches) {
    // Of the form that was looked at last.
    std::optional<TextFacts> facts;
    HeaderForm form = HeaderForm::Value;
    return tryUnit(unit, matches, [&](std::uint32_t rule) {
        const IndexedRule &indexed = list_.rules().rules[rule];
        if (std::find(selectors.begin, selectors.end, indexed.selector) == selectors.end) {
            return false;
        }
        if (indexed.trial == IndexedRule::Trial::Always) {
            return true;
        }
        const Buffer text = staged(forms[static_cast<std::size_t>(indexed.form)]);
        if (!facts.has_value() || form != indexed.form) {
            form = indexed.form;
            facts.emplace(text.data(), text.length(), *memory_);
        }
        return matchesHeader(indexed, rule, text, *facts);
    });
}

bool FilteredPass::matchesHeader(const IndexedRule &indexed, std::uint32_t rule, const Buffer &text,
                                 TextFacts &facts) const {
    const bool positive = indexed.trial == IndexedRule::Trial::Match;
    const RuleFilter &filter = *list_.rules().filter;
    if (filter.isLiteral(rule)) {
        return filter.mayMatch(rule, facts) == positive;
    }
    // What is not worth trying cannot match, but may fail, which is no match of a negated rule.
    if (positive && !filter.mayMatch(rule, facts)) {
        return false;
    }
    bool failed = false;
    const bool matched = indexed.expression->matches(text, 0, &failed);
    return !failed && matched == positive;
}

} // namespace Corvane::Heuristic
