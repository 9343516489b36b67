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
    memory_->tries.clear();
    next_ = 0;
}

void FilteredPass::add(std::uint32_t start, std::uint32_t length, std::uint32_t unit) {
    memory_->texts.push_back({start, length, unit});
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

Buffer FilteredPass::text(std::uint32_t text, const unsigned char *base) const {
    const ScanText &range = memory_->texts[text];
    return {base + range.start, range.length, true};
}

void FilteredPass::alsoTry(std::uint32_t unit, const std::vector<std::uint32_t> &rules) {
    for (const std::uint32_t rule : rules) {
        if (list_.admits(rule)) {
            memory_->tries.emplace_back(unit, rule, false);
        }
    }
}

void FilteredPass::selectStaged() {
    std::vector<unsigned char> &staged = memory_->staged;
    staged.resize(staged.size() + Regex::LiteralMatcher::kPaddingBytes);
    select(staged.data(), staged.size());
}

std::uint32_t FilteredPass::nextUnit(std::uint32_t unit, std::uint32_t end) {
    if (!memory_->unfiltered.empty()) {
        return unit;
    }
    const std::vector<Candidate> &tries = memory_->tries;
    while (next_ < tries.size() && tries[next_].unit() < unit) {
        ++next_;
    }
    return next_ < tries.size() ? std::min(tries[next_].unit(), end) : end;
}

void FilteredPass::select(const unsigned char *base, std::size_t readable) {
    const KindIndex &index = list_.rules();
    const auto admit = [this](std::uint32_t rule) { return list_.admits(rule); };
    index.filter->select(base, readable, *memory_, [&](std::uint32_t pattern) {
        return std::any_of(index.rulesBegin(pattern), index.rulesEnd(pattern), admit);
    });
    std::vector<Candidate> &tries = memory_->tries;
    for (const Candidate &candidate : memory_->candidates) {
        const std::uint32_t pattern = candidate.number();
        for (auto rule = index.rulesBegin(pattern); rule != index.rulesEnd(pattern); ++rule) {
            if (admit(*rule)) {
                tries.emplace_back(candidate.unit(), *rule, candidate.decided());
            }
        }
    }
    memory_->candidates.clear();
    std::sort(tries.begin(), tries.end());
    tries.erase(std::unique(tries.begin(), tries.end()), tries.end());
    memory_->unfiltered.clear();
    std::copy_if(index.unfiltered.begin(), index.unfiltered.end(),
                 std::back_inserter(memory_->unfiltered), admit);
    memory_->verdicts.resize(std::max(memory_->verdicts.size(), index.patterns()), 0);
}

// Walks the unit's tries and the rules that no literal stands for, in the order of the list.
template <class Matches>
bool FilteredPass::tryUnit(std::uint32_t unit, RefMatches &matches, Matches match) {
    constexpr std::uint32_t kNone = std::numeric_limits<std::uint32_t>::max();
    const std::vector<Candidate> &tries = memory_->tries;
    const std::vector<std::uint32_t> &unfiltered = memory_->unfiltered;
    ++memory_->units;
    while (next_ < tries.size() && tries[next_].unit() < unit) {
        ++next_;
    }
    for (std::size_t other = 0;;) {
        const bool left = next_ < tries.size() && tries[next_].unit() == unit;
        const std::uint32_t first = left ? tries[next_].number() : kNone;
        const std::uint32_t second = other < unfiltered.size() ? unfiltered[other] : kNone;
        const std::uint32_t rule = std::min(first, second);
        if (rule == kNone) {
            return false;
        }
        const bool decided = rule == first && tries[next_].decided();
        next_ += rule == first ? 1 : 0;
        other += rule == second ? 1 : 0;
        if (list_.isDone(rule) || !match(rule, decided)) {
            continue;
        }
        const bool tripped = matches.add(list_.rules().handles[rule]);
        list_.done(rule);
        if (tripped) {
            return true;
        }
    }
}

// What the rule's pattern, which is the same for many rules, says of the unit under way; found out on the first call.
template <class Find>
bool FilteredPass::verdict(const IndexedRule &rule, Find find) {
    std::uint64_t &verdict = memory_->verdicts[rule.pattern];
    if (verdict >> 1U != memory_->units) {
        const bool matched = find();
        verdict = memory_->units << 1U | (matched ? 1U : 0U);
    }
    return (verdict & 1U) != 0;
}

bool FilteredPass::tryText(std::uint32_t unit, const Buffer &text, RefMatches &matches) {
    TextFacts facts(text.data(), text.length(), *memory_);
    return tryUnit(unit, matches, [&](std::uint32_t rule, bool decided) {
        return decided || matchesText(list_.rules().rules[rule], text, facts);
    });
}

bool FilteredPass::matchesText(const IndexedRule &rule, const Buffer &text, TextFacts &facts) {
    if (rule.trial == IndexedRule::Trial::Log) {
        return static_cast<const BodyRule &>(*rule.rule).matches(text);
    }
    return verdict(rule, [&] {
        bool failed = false;
        return list_.rules().filter->mayMatch(rule.pattern, facts) &&
               rule.expression->matches(text, 0, &failed) && !failed;
    });
}

bool FilteredPass::tryHeader(std::uint32_t unit, const Forms &forms, Selectors selectors,
                             RefMatches &matches) {
    // Of the form that was looked at last.
    std::optional<TextFacts> facts;
    HeaderForm form = HeaderForm::Value;
    return tryUnit(unit, matches, [&](std::uint32_t number, bool decided) {
        const IndexedRule &rule = list_.rules().rules[number];
        if (std::find(selectors.begin, selectors.end, rule.selector) == selectors.end) {
            return false;
        }
        if (decided || rule.trial == IndexedRule::Trial::Always) {
            return true;
        }
        const Buffer text = staged(forms[static_cast<std::size_t>(rule.form)]);
        if (!facts.has_value() || form != rule.form) {
            form = rule.form;
            facts.emplace(text.data(), text.length(), *memory_);
        }
        return verdict(rule, [&] { return matchesHeader(rule, text, *facts); });
    });
}

bool FilteredPass::matchesHeader(const IndexedRule &rule, const Buffer &text,
                                 TextFacts &facts) const {
    const bool positive = rule.trial == IndexedRule::Trial::Match;
    const RuleFilter &filter = *list_.rules().filter;
    if (filter.isLiteral(rule.pattern)) {
        return !filter.mayMatch(rule.pattern, facts);
    }
    // What is not worth trying cannot match, but may fail, which is no match of a negated rule.
    if (positive && !filter.mayMatch(rule.pattern, facts)) {
        return false;
    }
    bool failed = false;
    const bool matched = rule.expression->matches(text, 0, &failed);
    return !failed && matched == positive;
}

} // namespace Corvane::Heuristic
