#include "MetaLint.h"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <set>
#include <string_view>

#include "host/parser/Logger.h"
#include "host/parser/Text.h"

namespace Corvane::Cli {

namespace {

using Heuristic::MetaRule;
using Heuristic::RefMatches;
using Heuristic::RefRule;
using Heuristic::Rule;

// Words that other languages have for operators, and what to write.
constexpr std::array<std::pair<std::string_view, const char *>, 6> kWords = {
    {{"and", "write &&"},
     {"or", "write ||"},
     {"not", "write !"},
     {"=", "write >= and <=, or count with > and <; nothing tests whether numbers are equal"},
     {"==", "write >= and <=, or count with > and <; nothing tests whether numbers are equal"},
     {"xor", "write (A && !B) || (B && !A)"}}};

constexpr std::string_view kNotEndingNames = "*/=";

const char *s_remedyForWord(const std::string &word) {
    std::string lower;
    copyStringToLower(word.data(), lower, 0, word.size());
    const auto *const found = std::find_if(
        kWords.begin(), kWords.end(), [&lower](const auto &each) { return each.first == lower; });
    return found == kWords.end() ? nullptr : found->second;
}

bool s_isBinary(const MetaRule::Atom &atom) {
    return atom.type() == MetaRule::Atom::Operator && !atom.is('!') && !atom.is('(') &&
           !atom.is(')');
}

bool s_endsOperand(const MetaRule::Atom &atom) {
    return atom.type() == MetaRule::Atom::Name || atom.is(')');
}

bool s_beginsOperand(const MetaRule::Atom &atom) {
    return atom.type() == MetaRule::Atom::Name || atom.is('(') || atom.is('!');
}

std::size_t s_writtenLength(const MetaRule::Atom &atom) {
    constexpr std::string_view kOfTwo = "&|LG";
    if (atom.type() == MetaRule::Atom::Name) {
        return atom.strvalue().size();
    }
    return kOfTwo.find(atom.opvalue()) == std::string_view::npos ? 1 : 2;
}

// Whether an expression is true for some sets of tripped rules, and false for some.
class Values {
public:
    explicit Values(const LintedRule &meta) : rule_(Rule::Meta, meta.rule->name()) {
        rule_->value(meta.rule->value());
        rule_->score(Heuristic::RefScore(std::string("1")));
    }

    // Tries the sets of rules of these names, each but by one rule unlike the one before; ends as
    // soon as both values were seen.
    void tryAll(const std::set<std::string> &names) {
        std::vector<RefRule> rules;
        for (const std::string &name : names) {
            rules.emplace_back(Rule::Body, name);
        }
        RefMatches all = RefMatches::create();
        all->insert(rules.begin(), rules.end());
        note(all);
        RefMatches some = RefMatches::create();
        note(some);
        for (std::size_t step = 1; step >> rules.size() == 0 && !(isTrue_ && isFalse_); ++step) {
            const RefRule &rule = rules[static_cast<std::size_t>(std::countr_zero(step))];
            if (some->erase(rule) == 0) {
                some->insert(rule);
            }
            note(some);
        }
    }

    bool isAlways() const { return !isFalse_; }
    bool isNever() const { return !isTrue_; }

private:
    void note(const RefMatches &matches) {
        const bool value = static_cast<const MetaRule &>(*rule_).matches(matches);
        isTrue_ = isTrue_ || value;
        isFalse_ = isFalse_ || !value;
    }

    RefRule rule_;
    bool isTrue_ = false;
    bool isFalse_ = false;
};

} // namespace

MetaLint::MetaLint(const std::vector<LintedRule> &rules, std::vector<Finding> &findings)
    : rules_(rules), findings_(findings) {
    for (const LintedRule &each : rules) {
        byName_[each.rule->name()].push_back(&each);
    }
}

void MetaLint::check() {
    for (const LintedRule &each : rules_) {
        if (each.rule->type() == Rule::Meta) {
            checkRule(each);
        }
    }
}

// Between atoms there are blanks and tabs only.
MetaLint::Tokens MetaLint::tokens(const LintedRule &meta) {
    const std::string &text = meta.rule->value();
    Tokens tokens;
    std::size_t at = 0;
    for (const Atom &atom : static_cast<const MetaRule &>(*meta.rule).atoms()) {
        at = std::min(text.find_first_not_of(" \t", at), text.size());
        const std::size_t length = s_writtenLength(atom);
        tokens.push_back({&atom, meta.definitionColumn + static_cast<unsigned int>(at), length});
        at += length;
    }
    return tokens;
}

MetaLint::Candidates MetaLint::named(const std::string &name, std::uint8_t languages) const {
    Candidates candidates;
    const auto found = byName_.find(name);
    if (found != byName_.end()) {
        std::copy_if(
            found->second.begin(), found->second.end(), std::back_inserter(candidates),
            [languages](const LintedRule *each) { return (each->languages & languages) != 0; });
    }
    return candidates;
}

bool MetaLint::isWord(const Token &token) const {
    const std::string &text = token.atom->strvalue();
    return token.atom->type() == Atom::Name && byName_.count(text) == 0 &&
           s_remedyForWord(text) != nullptr;
}

bool MetaLint::isNumber(const Token &token) const {
    const std::string &text = token.atom->strvalue();
    float number = 0.0F;
    const auto read = std::from_chars(text.data(), text.data() + text.size(), number);
    return byName_.count(text) == 0 && read.ec == std::errc() &&
           read.ptr == text.data() + text.size();
}

void MetaLint::checkRule(const LintedRule &meta) {
    const Tokens all = tokens(meta);
    bool isSound = !meta.isMetaFault && checkForm(meta, all);
    std::set<std::string> seen;
    for (const Token &token : all) {
        if (token.atom->type() == Atom::Name && seen.insert(token.atom->strvalue()).second) {
            isSound = checkName(meta, token) && isSound;
        }
    }
    if (isSound) {
        checkPrecedence(meta, all);
        checkValues(meta, all);
    }
}

// What the evaluators accept, and make something of that no one means. Answers whether there is none.
bool MetaLint::checkForm(const LintedRule &meta, const Tokens &tokens) {
    bool isSound = checkParentheses(meta, tokens);
    const Token *before = nullptr;
    for (const Token &token : tokens) {
        isSound = checkPair(meta, before, &token) && isSound;
        before = &token;
    }
    return checkPair(meta, before, nullptr) && isSound;
}

// Two atoms that follow each other; null for the end of the expression on either side.
bool MetaLint::checkPair(const LintedRule &meta, const Token *before, const Token *token) {
    const bool isOpen = before == nullptr || before->atom->is('(');
    const bool isBehindOperator = before != nullptr && s_isBinary(*before->atom);
    if (token == nullptr || token->atom->is(')')) {
        if (isBehindOperator || (before != nullptr && before->atom->is('!'))) {
            add(meta, before->column, Level::Error, "meta-operand",
                "nothing stands behind this operator, which has no effect",
                "write what it is for, or take it out");
            return false;
        }
        return true;
    }
    if (s_isBinary(*token->atom)) {
        const bool isSign = isOpen && token->atom->is('-');
        if ((isOpen && !isSign) || isBehindOperator ||
            (before != nullptr && before->atom->is('!'))) {
            add(meta, token->column, Level::Error, "meta-operand",
                "nothing that counts stands before this operator; of two in a row the last one "
                "counts",
                "write what is missing, or take it out");
            return false;
        }
        return true;
    }
    if (token->atom->is('(') && isBehindOperator &&
        (before->atom->is('*') || before->atom->is('/'))) {
        add(meta, before->column, Level::Error, "meta-group",
            "the value of the group replaces what stands before it; nothing is multiplied or "
            "divided",
            "put the group first, as in (A + B) * 2");
        return false;
    }
    if (before != nullptr && s_endsOperand(*before->atom) && s_beginsOperand(*token->atom)) {
        if (!isWord(*before) && !isWord(*token)) {
            add(meta, token->column, Level::Error, "meta-no-operator",
                "no operator stands before this; only the last of the two counts",
                "write && or || between them");
        }
        return false;
    }
    return true;
}

bool MetaLint::checkParentheses(const LintedRule &meta, const Tokens &tokens) {
    std::vector<unsigned int> open;
    for (const Token &token : tokens) {
        if (token.atom->is('(')) {
            open.push_back(token.column);
        } else if (token.atom->is(')') && open.empty()) {
            add(meta, token.column, Level::Error, "meta-parenthesis",
                "nothing opens what this parenthesis closes", "take it out, or open a group");
            return false;
        } else if (token.atom->is(')')) {
            open.pop_back();
        }
    }
    if (!open.empty()) {
        add(meta, open.back(), Level::Error, "meta-parenthesis",
            "nothing closes this parenthesis; what stands before it does not count",
            "close the group");
    }
    return open.empty();
}

// Answers whether the name is that of a rule, or a number.
bool MetaLint::checkName(const LintedRule &meta, const Token &token) {
    const std::string &name = token.atom->strvalue();
    const Candidates anywhere = named(name, kAllLanguages);
    if (anywhere.empty()) {
        return isNumber(token) || checkUnknownName(meta, token);
    }
    std::uint8_t covered = 0;
    for (const LintedRule *each : anywhere) {
        covered |= each->languages;
    }
    const auto missing = static_cast<std::uint8_t>(meta.languages & ~covered);
    if (missing != 0) {
        add(meta, token.column, Level::Error, "meta-language",
            "there is no rule " + quoted(name) + " for messages in " + languageNames(missing) +
                ", only in " + languageNames(covered),
            "put that rule into the section ALL, or this one into its section");
    }
    const Candidates candidates = named(name, meta.languages);
    if (candidates.empty()) {
        return true;
    }
    const bool isOff =
        std::all_of(candidates.begin(), candidates.end(), [](const LintedRule *each) {
            return each->rule->type() != Rule::Full && !each->rule->active();
        });
    if (isOff && candidates.front() != &meta) {
        add(meta, token.column, Level::Warning, "meta-switched-off",
            "rule " + quoted(name) + " is switched off, by the score 0, and never trips",
            "give it a small score, or a name that begins with __");
    }
    checkOrder(meta, token, candidates);
    return true;
}

bool MetaLint::checkUnknownName(const LintedRule &meta, const Token &token) {
    const std::string &name = token.atom->strvalue();
    if (isWord(token)) {
        add(meta, token.column, Level::Error, "meta-word",
            quoted(name) + " is no operator but a name, which no rule has", s_remedyForWord(name));
    } else if (name.find_first_of(kNotEndingNames) != std::string::npos) {
        add(meta, token.column, Level::Error, "meta-joined",
            quoted(name) + " is one name, which no rule has: *, / and = end no name",
            "put blanks around the operator");
    } else {
        add(meta, token.column, Level::Error, "meta-missing",
            "there is no rule " + quoted(name) + "; it counts as one that has not tripped",
            "correct the name, or write the rule");
    }
    return false;
}

// A meta rule sees only those before it.
void MetaLint::checkOrder(const LintedRule &meta, const Token &token,
                          const Candidates &candidates) {
    const bool isLate =
        std::all_of(candidates.begin(), candidates.end(), [&meta](const LintedRule *each) {
            return each->rule->type() == Rule::Meta &&
                   each->rule->ordinal() >= meta.rule->ordinal();
        });
    if (!isLate) {
        return;
    }
    const LintedRule &other = *candidates.front();
    const std::string later = quoted(token.atom->strvalue());
    if (&other == &meta) {
        add(meta, token.column, Level::Error, "meta-self",
            "rule " + later + " names itself, which has not tripped while it is evaluated",
            "take the name out");
        return;
    }
    const std::string where = other.place.file + ':' + std::to_string(other.place.line);
    if (reaches(other, meta)) {
        add(meta, token.column, Level::Error, "meta-cycle",
            "rule " + later + " at " + where + " refers back to " + quoted(meta.rule->name()) +
                "; here it counts as one that has not tripped",
            "take one of the names out");
    } else {
        add(meta, token.column, Level::Error, "meta-later",
            "meta rule " + later + " is evaluated after this one, at " + where +
                "; here it counts as one that has not tripped",
            "move that rule before this one");
    }
}

bool MetaLint::reaches(const LintedRule &from, const LintedRule &to) const {
    std::vector<const LintedRule *> pending = {&from};
    std::set<const LintedRule *> seen = {&from};
    while (!pending.empty()) {
        const LintedRule &meta = *pending.back();
        pending.pop_back();
        for (const Atom &atom : static_cast<const MetaRule &>(*meta.rule).atoms()) {
            for (const LintedRule *each : named(atom.strvalue(), meta.languages)) {
                if (each == &to) {
                    return true;
                }
                if (each->rule->type() == Rule::Meta && seen.insert(each).second) {
                    pending.push_back(each);
                }
            }
        }
    }
    return false;
}

// && behind || takes all that stands before it in the group.
void MetaLint::checkPrecedence(const LintedRule &meta, const Tokens &tokens) {
    std::vector<bool> hasOr = {false};
    for (const Token &token : tokens) {
        if (token.atom->is('(')) {
            hasOr.push_back(false);
        } else if (token.atom->is(')')) {
            hasOr.pop_back();
        } else if (token.atom->is('|')) {
            hasOr.back() = true;
        } else if (token.atom->is('&') && hasOr.back()) {
            add(meta, token.column, Level::Warning, "meta-precedence",
                "&& does not go before ||: this is read as (... || ...) && ...",
                "put parentheses around what belongs together");
            return;
        }
    }
}

void MetaLint::checkValues(const LintedRule &meta, const Tokens &tokens) {
    std::set<std::string> names;
    for (const Token &token : tokens) {
        if (token.atom->type() == Atom::Name && !isNumber(token)) {
            names.insert(token.atom->strvalue());
        }
    }
    if (names.size() > kMostNames) {
        return;
    }
    Values values(meta);
    values.tryAll(names);
    if (values.isAlways()) {
        add(meta, meta.definitionColumn, Level::Warning, "meta-always",
            "the expression is true whatever has tripped", "correct the expression");
    } else if (values.isNever()) {
        add(meta, meta.definitionColumn, Level::Warning, "meta-never",
            "the expression is false whatever has tripped; the rule never trips",
            "correct the expression");
    }
}

void MetaLint::add(const LintedRule &meta, unsigned int column, Level level,
                   const std::string &code, const std::string &text, const std::string &remedy) {
    findings_.push_back({meta.place.file,
                         meta.place.line,
                         column,
                         level,
                         code,
                         Logger::printable(text),
                         remedy,
                         {},
                         0});
}

} // namespace Corvane::Cli
