#include "SetLint.h"

#include <algorithm>
#include <set>
#include <unordered_map>

#include "host/parser/Logger.h"

namespace Corvane::Cli {

namespace {

using Heuristic::Rule;
using Heuristic::RulePlace;

std::string s_where(const RulePlace &place) {
    return place.file + ':' + std::to_string(place.line);
}

bool s_isScoreFile(const std::string &path) {
    const std::string ending = ".score";
    return path.size() >= ending.size() &&
           path.compare(path.size() - ending.size(), ending.size(), ending) == 0;
}

} // namespace

SetLint::SetLint(const std::vector<LintedRule> &rules, const std::vector<LintedScore> &scores,
                 std::vector<Finding> &findings)
    : rules_(rules), scores_(scores), findings_(findings) {}

void SetLint::check() {
    checkScores();
    checkKinds();
    checkSections();
}

void SetLint::checkScores() {
    std::set<std::string> names;
    for (const LintedRule &each : rules_) {
        names.insert(each.rule->name());
    }
    std::unordered_map<std::string, const LintedScore *> lasts;
    for (const LintedScore &each : scores_) {
        const LintedScore *&last = lasts[each.name];
        if (last != nullptr) {
            checkRepeatedScore(*last, each);
        }
        last = &each;
        if (names.count(each.name) == 0) {
            add(each.place, Level::Warning, "score-no-rule",
                "no rule that was loaded has the name " + quoted(each.name),
                "correct the name, or take the line out");
        }
    }
    for (const LintedRule &each : rules_) {
        const bool hasScore = lasts.count(each.rule->name()) > 0;
        if (each.rule->metasubrule()) {
            checkSubRule(each, hasScore);
        } else {
            checkActivity(each, hasScore);
        }
    }
}

// Score files are there to overrule the scores in rule files.
void SetLint::checkRepeatedScore(const LintedScore &score, const LintedScore &later) {
    if (s_isScoreFile(later.place.file) == s_isScoreFile(score.place.file)) {
        add(score.place, Level::Warning, "score-duplicate",
            "this score of " + quoted(score.name) + " does not count, but the one at " +
                s_where(later.place),
            "take one of the two out");
    }
}

void SetLint::checkActivity(const LintedRule &rule, bool hasScore) {
    const bool isOff = !rule.rule->active();
    if (!hasScore) {
        // Where nothing has a score, all being worth 1 is what is meant.
        if (!scores_.empty()) {
            add(rule.place, Level::Warning, "rule-no-score",
                "no score line has the name of this rule, so that it counts 1",
                "write score NAME NUMBER");
        }
    } else if (isOff && rule.rule->type() == Rule::Full) {
        add(rule.place, Level::Warning, "full-not-off",
            "the score 0 does not switch a full rule off: it is tried, trips, and counts 0",
            "take the rule out");
    } else if (isOff) {
        add(rule.place, Level::Warning, "rule-off",
            "the score 0 switches this rule off, so that it is not tried",
            "give it another score, or take it out");
    }
}

void SetLint::checkSubRule(const LintedRule &rule, bool hasScore) {
    if (!rule.rule->active()) {
        add(rule.place, Level::Warning, "sub-rule-unused",
            "no meta rule of the same language names this sub-rule" +
                std::string(rule.rule->type() == Rule::Full ? "" : ", so that it is not tried"),
            "name it in a meta rule, or take the underlines away");
    } else if (hasScore) {
        add(rule.place, Level::Warning, "sub-rule-score",
            "this rule has a score line, but what begins with __ never adds to the total",
            "take the score line out, or the underlines away");
    }
}

// Of sub-rules of one name, those of the kind that comes first in the order of kinds are used alone.
void SetLint::checkKinds() {
    std::unordered_map<std::string, const LintedRule *> firsts;
    for (const LintedRule &each : rules_) {
        if (!each.rule->metasubrule()) {
            continue;
        }
        const LintedRule *&first = firsts[each.rule->name()];
        if (first != nullptr && first->rule->type() != each.rule->type() &&
            (first->languages & each.languages) != 0) {
            add(each.place, Level::Warning, "sub-rule-kinds",
                "another kind has a sub-rule of this name, at " + s_where(first->place) +
                    "; only one of the two is tried",
                "rename one of them");
        } else if (first == nullptr) {
            first = &each;
        }
    }
}

void SetLint::checkSections() {
    std::uint8_t others = 0;
    const LintedRule *first = nullptr;
    unsigned int count = 0;
    for (const LintedRule &each : rules_) {
        if (each.isForAll) {
            continue;
        }
        if (each.languages == kDefaultLanguage) {
            ++count;
            first = first == nullptr ? &each : first;
        } else {
            others |= each.languages;
        }
    }
    if (first != nullptr && others != 0) {
        add(first->place, Level::Warning, "default-only",
            std::to_string(count) +
                " rules, of which this is the first, are not tried on messages in " +
                languageNames(others) + ", which have rules of their own",
            "put what is for everybody behind #[lang section], a tab, and ALL");
    }
}

void SetLint::add(const RulePlace &place, Level level, const std::string &code,
                  const std::string &text, const std::string &remedy) {
    findings_.push_back({place.file,
                         place.line,
                         place.column,
                         level,
                         code,
                         Logger::printable(text),
                         remedy,
                         {},
                         0});
}

} // namespace Corvane::Cli
