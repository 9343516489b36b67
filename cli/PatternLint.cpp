#include "PatternLint.h"

#include <algorithm>

#include "heuristic/BodyRule.h"
#include "heuristic/HeaderRule.h"
#include "heuristic/TextKind.h"
#include "host/parser/Logger.h"
#include "host/parser/Text.h"
#include "host/regex/Expression.h"
#include "host/regex/Literals.h"
#include "host/regex/PatternReview.h"

namespace Corvane::Cli {

namespace {

using Heuristic::Rule;

// Longest header value that a rule sees.
constexpr std::size_t kMaxHeaderBytes = 2047;

// The most bytes that a rule of that kind sees at once; 0 where there is no limit.
std::size_t s_mostBytes(Rule::Type kind) {
    switch (kind) {
    case Rule::Header:
        return kMaxHeaderBytes;
    case Rule::Body:
    case Rule::RawBody:
        return Heuristic::BodyCheck::kMaxPieceBytes;
    default:
        return 0;
    }
}

} // namespace

PatternLint::PatternLint(const std::vector<LintedRule> &rules, std::vector<Finding> &findings)
    : rules_(rules), findings_(findings) {}

void PatternLint::check() {
    for (const LintedRule &each : rules_) {
        const Pattern pattern = patternOf(each);
        if (!pattern.text.empty()) {
            checkMatches(pattern);
            checkForm(pattern);
        }
    }
}

// Without text for what has no expression.
PatternLint::Pattern PatternLint::patternOf(const LintedRule &rule) {
    const Rule::Type kind = rule.rule->type();
    if (kind == Rule::Meta || rule.isEval) {
        return {&rule, {}, 0, 0, true};
    }
    const std::string &definition = rule.rule->value();
    if (kind != Rule::Header) {
        std::string text = definition;
        stringRightTrim(text);
        const bool isLine = kind == Rule::Body || kind == Rule::RawBody;
        return {&rule, text, isLine ? Regex::kAnyLineEnd : Regex::kNoOptions, rule.definitionColumn,
                true};
    }
    const auto &header = static_cast<const Heuristic::HeaderRule &>(*rule.rule);
    const std::string text = header.expression();
    const std::size_t nameEnd = std::min(definition.find_first_of(" \t"), definition.size());
    const std::size_t found = std::min(definition.find(text, nameEnd), definition.size());
    return {&rule, text, Regex::kDotMatchesAll,
            rule.definitionColumn + static_cast<unsigned int>(found), header.isPositive()};
}

// What matches the empty text within any other matches them all.
void PatternLint::checkMatches(const Pattern &pattern) {
    const Regex::Expression expression(pattern.text, pattern.options, false);
    bool failed = false;
    for (const char *text : {"", "\x01", "a b", "7-"}) {
        if (!expression(std::string(text), &failed)) {
            return;
        }
    }
    add(pattern, 0, "pattern-empty",
        std::string("the pattern matches the empty text, and so anywhere in every text") +
            (pattern.isPositive ? "" : "; with !~ the rule never trips"),
        "take out the alternative that is empty, or demand at least one character");
}

void PatternLint::checkForm(const Pattern &pattern) {
    const Regex::PatternReview review = Regex::reviewPattern(pattern.text, pattern.options);
    const Rule::Type kind = pattern.rule->rule->type();
    const std::size_t most = s_mostBytes(kind);
    if (most > 0 && review.minimumLength > most) {
        add(pattern, 0, "pattern-too-long",
            "each match has " + std::to_string(review.minimumLength) +
                " bytes at least, but the rule sees no more than " + std::to_string(most) +
                " at once",
            "look for a shorter piece");
    }
    if (review.needsLineFeed && (kind == Rule::Body || kind == Rule::Uri)) {
        add(pattern, 0, "pattern-line-end", "each match holds a line end, but the rule sees none",
            "split the phrase into two rules and a meta rule");
    }
    if (review.byteClass.has_value()) {
        add(pattern, *review.byteClass, "pattern-byte-class",
            "a class holds characters outside ASCII, which without the letter u are several bytes "
            "each, any of which matches",
            "put the letter u behind the pattern, or write a group such as (?:\xC3\xA4|\xC3\xB6)");
    }
    if (review.hasNestedRepeats) {
        add(pattern, 0, "pattern-nested",
            "something repeated ends in something repeated that may begin alike: where it does not "
            "match, the steps of a try are soon used up",
            "take one of the two quantifiers out, or put between them what tells them apart");
    }
    if (review.beginsWithDots || review.endsWithDots) {
        add(pattern, 0, "pattern-dots",
            std::string("the .* at the ") + (review.beginsWithDots ? "beginning" : "end") +
                " changes nothing: a pattern matches anywhere",
            "take it out");
    }
    if (pattern.isPositive) {
        checkSearch(pattern, review.isUnderstood);
    }
}

void PatternLint::checkSearch(const Pattern &pattern, bool isUnderstood) {
    const Regex::RequiredLiterals required = Regex::requiredLiterals(
        pattern.text, pattern.options, Heuristic::textKindOf(pattern.rule->rule->type()));
    if (!required.alternatives.empty() || !required.squeezed.empty()) {
        return;
    }
    const char *reason = "no byte must be in all its matches";
    if (!isUnderstood) {
        reason = "its syntax is not known to the search";
    } else if (!required.byteSets.empty()) {
        reason = "its matches have single bytes of some sets in common, and no word";
    }
    add(pattern, 0, "pattern-unsearched",
        std::string("no literal is looked for, so that the rule is tried on each text: ") + reason,
        "demand a word that is in each match");
}

void PatternLint::add(const Pattern &pattern, std::size_t offset, const std::string &code,
                      const std::string &text, const std::string &remedy) {
    const Heuristic::RulePlace &place = pattern.rule->place;
    findings_.push_back({place.file,
                         place.line,
                         pattern.column + static_cast<unsigned int>(offset),
                         Level::Warning,
                         code,
                         Logger::printable(text),
                         remedy,
                         {},
                         0});
}

} // namespace Corvane::Cli
