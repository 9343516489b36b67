#ifndef CORVANE_HEURISTIC_FULLRULE_H
#define CORVANE_HEURISTIC_FULLRULE_H

// Full rules: an expression tried against the message as it stands, each header as one text and each line of the
// message as it streams past; the check that runs a list of them, and the tap that feeds it a stream.
//
//     FullTap tap(scanner, scanner.rules().fullRules(DEFAULT), matches, 0, false);
//     while (...) {
//         tap.write(piece);
//     }
//     tap.end();
//
// Threads: a rule is immutable once its value is set; a check or tap belongs to one thread at a time.

#include <list>
#include <memory>
#include <string>

#include "heuristic/Export.h"
#include "heuristic/Rule.h"
#include "heuristic/Scanner.h"
#include "host/parser/Buffer.h"
#include "host/parser/Header.h"
#include "host/parser/Tap.h"
#include "host/regex/Expression.h"

namespace Corvane::Heuristic {

class CORVANE_HEURISTIC_API FullRule : public Rule {
public:
    // A rule of kind Full that matches nothing until it has a value.
    FullRule();
    explicit FullRule(const std::string &name);
    ~FullRule() override;

    // Compiles the definition without the white space around it and stores it as it stands. A definition that begins
    // with "eval:" is stored and logged (0x300002F), but never matches. Throws code 4 where the definition does not
    // compile; the rule keeps its former expression and text then.
    void value(const std::string &definition) override;
    using Rule::value;

    // Whether the expression matches somewhere in the text, or in the header's whole text, name included. Unlike other
    // kinds a full rule matches whether or not it is active. A failing or missing expression does not match.
    bool matches(const Buffer &text) const;
    bool matches(const Corvane::Header &header) const;

    // The expression; null without one. The reference lives as long as the rule.
    const Regex::Expression &compiled() const { return expression_; }

private:
    friend class RuleIndex;

    Regex::Expression expression_;
};

class CORVANE_HEURISTIC_API FullCheck : public RuleCheck {
public:
    // Works on the caller's list, which must hold full rules only. Copies of a check share list and match set.
    FullCheck(const RefRuleList &rules, RefMatches &matches, unsigned int ordinalCutoff,
              bool verbose);
    FullCheck(const FullCheck &);
    FullCheck &operator=(const FullCheck &);
    virtual ~FullCheck();

    // Tries the rules on the text, up to an addition that trips the match set, and erases those that matched from the
    // list. Whether the set is tripped already is for the caller to ask. Throws as RefMatches::add.
    void check(const Buffer &text);

    // Tries the rules on one header, without trace, and answers whether the match set is tripped. Nothing is erased: the
    // match set itself refuses a rule that it holds. Throws as RefMatches::add.
    bool operator()(const Corvane::Header &header);

    // Try the rules on each header in order; once the match set is tripped the remaining ones cost nothing. Throw as
    // operator().
    void check(const RefHeaderList &headers);
    void check(const std::list<Corvane::Header> &headers);

private:
    friend class StageRules;

    FullCheck(FilteredList &filtered, RefMatches &matches);

    template <class Headers>
    void checkAll(const Headers &headers);
    bool walk(const Corvane::Header &header);
    RefRuleList rules_;
};

// Cuts what is written into it into lines and tries full rules on each complete one.
class CORVANE_HEURISTIC_API FullTap : public Tap {
public:
    // Works on a list of its own over the same rules; shares the scanner's rule set and the caller's match set. The
    // cutoff has no effect: lines are checked with every rule.
    FullTap(Scanner &scanner, const RefRuleList &rules, RefMatches &matches,
            unsigned int ordinalCutoff, bool verbose);
    FullTap(const FullTap &) = delete;
    FullTap &operator=(const FullTap &) = delete;
    ~FullTap() override;

    // Takes the next bytes of the message, which are copied, and checks each line that they complete, line end
    // included, up to the one that trips the match set or with which the thread's budget ends. Does nothing once the set
    // is tripped or the budget has ended. Always answers true.
    // Throws as FullCheck::check.
    bool write(const Buffer &data) override;

    // Whether every byte written belonged to a complete line that was taken. An unterminated last line is never checked.
    bool end() override;

private:
    bool isOver() const;
    void checkLines();
    void checkLinesFiltered();

    Scanner scanner_;
    // The rules left: one of these, the second while the scanner's set is as it was loaded.
    RefRuleList rules_;
    std::unique_ptr<FilteredList> filtered_;
    RefMatches matches_;
    LineBuffer pending_;
    bool verbose_;
    Buffer line_;
};

} // namespace Corvane::Heuristic

#endif
