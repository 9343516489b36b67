#ifndef CORVANE_HEURISTIC_BODYRULE_H
#define CORVANE_HEURISTIC_BODYRULE_H

// Body rules: an expression tried against the decoded text of a message, line by line, and the
// check that runs a list of them over one text.
//
//     BodyCheck check(rules, matches, 0, false);
//     check.check(text, false);
//
// Threads: a rule is immutable once its value is set; a check belongs to one thread.

#include <list>
#include <string>

#include "heuristic/Export.h"
#include "heuristic/Rule.h"
#include "host/parser/Buffer.h"
#include "host/regex/Expression.h"

namespace Corvane::Heuristic {

class FilteredPass;

class CORVANE_HEURISTIC_API BodyRule : public Rule {
public:
    // A rule of kind Body that matches nothing until it has a value.
    BodyRule();
    explicit BodyRule(const std::string &name);
    ~BodyRule() override;

    // Compiles the definition without the white space around it, any of CR, LF and CRLF being a
    // line end, and stores it as it stands. A definition that begins with "eval:" is stored and
    // logged (0x300002F), but never matches. Throws code 4 where the definition does not compile;
    // the rule keeps its former expression and text then.
    void value(const std::string &definition) override;
    using Rule::value;

    // Whether the rule is active and matches somewhere in text. A failing expression does not
    // match; a missing one does not either and is logged (0x3000032) each time.
    bool matches(const Buffer &text) const;

    // The expression; null without one. The reference lives as long as the rule.
    const Regex::Expression &compiled() const { return expression_; }

private:
    friend class RuleIndex;

    Regex::Expression expression_;
};

class CORVANE_HEURISTIC_API BodyCheck : public RuleCheck {
public:
    // Longest piece of a complete line that one rule sees, in bytes: bounds a pattern's work per
    // line. A match across a cut is lost; that is accepted. An unterminated last line is tried
    // whole, whatever its length.
    static constexpr unsigned int kMaxPieceBytes = 2048;

    // Once the lines of a text come to this many bytes no further line is read.
    static constexpr unsigned int kMaxDecodedBytes = 3072;
    static constexpr unsigned int kMaxRawBytes = 32768;

    // Works on the caller's list: rules that have matched are erased from it, so that each is
    // recorded once however many texts are checked. The list must hold body or raw-body rules only.
    BodyCheck(RefRuleList &rules, RefMatches &matches, unsigned int ordinalCutoff, bool verbose);
    BodyCheck(const BodyCheck &);
    BodyCheck &operator=(const BodyCheck &);
    virtual ~BodyCheck();

    // Tries the rules on each line of body and adds those that match to the match set; ends as soon
    // as the set trips. Whether it has tripped before is for the caller to ask.
    // raw = false: lines are tried without their line ends, up to kMaxDecodedBytes.
    // raw = true:  lines are tried with their line ends, up to kMaxRawBytes.
    // An unterminated last line is tried as it stands; what it matches stays in the list. Throws
    // code 4, with the cause attached, where a rule cannot be added; what was added before stays.
    void check(const Buffer &body, bool raw);

    // The same, in less time, as check(first, false) and then check(second, false).
    void checkBoth(const Buffer &first, const Buffer &second);

private:
    friend class StageRules;

    BodyCheck(FilteredList &filtered, RefMatches &matches);
    void checkPieces(const Buffer &body, bool raw);
    void checkFiltered(const Buffer &body, bool raw);
    void checkLast(FilteredPass &pass, const Buffer &body);
    bool checkBothFiltered(const Buffer &first, const Buffer &second);
    void addMatches(FilteredPass &pass, std::uint32_t from, std::uint32_t to);
    std::list<RefRule> tryAll(const Buffer &text);

    RefRuleList rules_;
};

} // namespace Corvane::Heuristic

#endif
