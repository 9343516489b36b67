#ifndef CORVANE_HEURISTIC_URIRULE_H
#define CORVANE_HEURISTIC_URIRULE_H

// URI rules: an expression tried against each URI of a message, and the check that runs a list of them.
//
//     UriCheck check(rules, matches, 0, false);
//     check.check(uris);
//
// Threads: a rule is immutable once its value is set; a check belongs to one thread.

#include <string>
#include <vector>

#include "heuristic/Export.h"
#include "heuristic/Rule.h"
#include "host/parser/Uri.h"
#include "host/regex/Expression.h"

namespace Corvane::Heuristic {

class CORVANE_HEURISTIC_API UriRule : public Rule {
public:
    // A rule of kind Uri that matches nothing until it has a value.
    UriRule();
    explicit UriRule(const std::string &name);
    ~UriRule() override;

    // Compiles the text without the white space around it and stores it as it stands. There is no special form: "eval:"
    // is a pattern like any other. Throws code 4 where it does not compile; the rule keeps its former expression then.
    void value(const std::string &text) override;
    using Rule::value;

    // Whether the rule is active, has an expression, and matches somewhere in the URI's text. A failing expression does
    // not match, nor does a null URI.
    bool matches(const Corvane::Uri &uri) const;

    // The expression; null without one. The reference lives as long as the rule.
    const Regex::Expression &compiled() const { return expression_; }

private:
    friend class RuleIndex;

    Regex::Expression expression_;
};

class CORVANE_HEURISTIC_API UriCheck : public RuleCheck {
public:
    // Works on a list of its own; the caller's stays whole. It must hold URI rules only.
    UriCheck(RefRuleList &rules, RefMatches &matches, unsigned int ordinalCutoff, bool verbose);
    UriCheck(const UriCheck &);
    UriCheck &operator=(const UriCheck &);
    virtual ~UriCheck();

    // Tries every rule left on one URI, up to an addition that trips the match set; rules that match are not tried again.
    void operator()(const Corvane::Uri &uri);

    // Tries every URI, by source and then in order; a tripped match set does not end it, it only ends each walk at the
    // next addition. Throws code 4, with the cause attached; what was added before stays.
    void check(const UriContainer &uris);

private:
    friend class StageRules;

    UriCheck(FilteredList &filtered, RefMatches &matches);

    void checkFiltered(const UriContainer &uris);
    std::size_t checkFiltered(const std::vector<const Corvane::Uri *> &uris, std::size_t first,
                              std::size_t &atOnce);
    void walk(const Corvane::Uri &uri);

    RefRuleList rules_;
};

} // namespace Corvane::Heuristic

#endif
