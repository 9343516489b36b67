#ifndef CORVANE_HEURISTIC_RULE_H
#define CORVANE_HEURISTIC_RULE_H

// The rule model: rules, lists of rules, the set of rules that one message has tripped, the base of
// every check, and the container that files rules by language and kind.
//
//     RuleContainer rules;
//     RefRule rule(Rule::Body, "FREE_OFFER");
//     rule->value("/free offer/i");
//     rule->score(RefScore("2.5"));
//     rules.bodyRules(DEFAULT).add(rule);
//
// Threads: rules, lists and the container are built by one thread and may then be read by many,
// except where a class says otherwise. A match set belongs to one message and one thread.

#include <array>
#include <atomic>
#include <iosfwd>
#include <list>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "heuristic/Export.h"
#include "heuristic/RuleProfile.h"
#include "heuristic/Score.h"
#include "host/include2/TesselRefcounted.h"
#include "host/parser/Budget.h"
#include "host/parser/Buffer.h"

namespace Corvane {

// Writes the bytes of the buffer, unformatted.
CORVANE_HEURISTIC_API std::ostream &operator<<(std::ostream &out, const Buffer &buffer);

namespace Heuristic {

class FilteredList;
class RuleIndex;

// What every kind of rule shares. A rule is identified, compared and ordered by its name alone. A
// name that begins with "__" makes it a meta sub-rule, which counts only through the meta rules that
// refer to it.
class CORVANE_HEURISTIC_API Rule : public RefImpl {
public:
    // The numbers are the order in which RuleContainer::find searches.
    enum Type : unsigned int {
        None = 0,
        Header = 1,
        Uri = 2,
        Body = 3,
        RawBody = 4,
        Full = 5,
        Meta = 6
    };

    // A rule of kind None with an empty name and ordinal 0.
    Rule();

    // A rule with empty description and value, no score and ordinal 0.
    Rule(Type type, const std::string &name);
    Rule(const Rule &) = delete;
    Rule &operator=(const Rule &) = delete;
    ~Rule() override;

    // Takes the rule's definition as the rule file has it. Each kind compiles it first and throws
    // code 4 where it cannot; the text is stored only once that has worked.
    virtual void value(const std::string &definition);

    // Plain accessors; the references live as long as the rule.
    Type type() const { return type_; }
    const std::string &name() const { return name_; }
    const std::string &description() const { return description_; }
    const std::string &value() const { return value_; }
    bool metasubrule() const { return metasubrule_; }
    const RefScore &score() const { return score_; }
    unsigned int ordinal() const { return ordinal_; }

    // Plain setters, for the thread that builds the rule set. ordinal is the position in the order
    // of loading; used says that a meta rule refers to this rule.
    void description(const std::string &description) { description_ = description; }
    void score(const RefScore &score) { score_ = score; }
    void ordinal(unsigned int ordinal) {
        ordinal_ = ordinal;
        noteEdit();
    }
    void used(bool used) { used_ = used; }

    // Whether the rule takes part in scans: a meta sub-rule when it is used, any other rule when it
    // has a score other than 0.0. The first answer stays for good, so scores and uses must be set
    // before. Many threads may ask at once.
    bool active() const;

    // By name, byte for byte.
    bool operator==(const Rule &other) const { return name_ == other.name_; }
    bool operator<(const Rule &other) const { return name_ < other.name_; }

protected:
    // For a kind that is built upon another kind.
    void type(Type type) { type_ = type; }

    // Tells the rule set that this rule was loaded with, if any, that what it prepared for fast scans no longer holds.
    // For every operation that changes what the rule matches or where it stands.
    void noteEdit();

private:
    friend class RefMatches;
    friend class RuleIndex;

    enum Activity : unsigned int { Undecided = 0, Active = 1, Inactive = 2 };

    Activity decide() const;

    Type type_;
    std::string name_;
    std::string description_;
    std::string value_;
    bool used_;
    bool metasubrule_;
    // Relaxed: two first callers decide the same.
    mutable std::atomic<unsigned int> activity_;
    RefScore score_;
    unsigned int ordinal_;
    // Shared by all rules of one loaded set; null for a rule of none.
    std::shared_ptr<std::atomic<bool>> edited_;
};

class CORVANE_HEURISTIC_API RefRule : public Ref<Rule> {
public:
    // A null handle.
    RefRule();

    // A handle on a new rule of that kind. Throws code 2 for a kind that there is no rule of.
    RefRule(Rule::Type type, const std::string &name);

    // Compare the rules by name; a null handle equals a null handle only, and sorts before all
    // others.
    bool operator==(const RefRule &other) const;
    bool operator<(const RefRule &other) const;
};

// Rules in the order in which checks try them.
class CORVANE_HEURISTIC_API RuleList : public RefImpl, public std::list<RefRule> {
public:
    RuleList();
    ~RuleList() override;
};

class CORVANE_HEURISTIC_API RefRuleList : public Ref<RuleList> {
public:
    // A null handle.
    RefRuleList();

    // copy = true:  a list of its own over the same rules; erasing from it leaves source alone.
    // copy = false: a second handle on the same list; an erase shows through both.
    // Either way a null source gives a null handle, and one that is not null but holds no list throws code 4.
    RefRuleList(const RefRuleList &source, bool copy);

    // A handle on a new, empty list.
    static RefRuleList create();

    // As in Ref. A list that a container made takes note of the access, since it may be for a change: the next scan
    // compares the list with what was prepared for it. Changes through a pointer, reference or iterator that was kept
    // since before a scan go unnoticed; ask the handle again for each. The same holds for a parser: it does not find the
    // duplicates of rules that were added so since it last read a file.
    // operator* throws code 4 for a handle that is not null but holds no list, as do the operations below.
    RuleList *operator->() const;
    RuleList &operator*() const;

    // The first rule of that name; null where there is none and for a null handle. Null entries are
    // passed over.
    RefRule find(const std::string &name) const;

    // Removes the first entry that has the rule's name, which need not be the same rule; later ones
    // of that name stay. Does nothing for a null handle; throws code 1 for a null rule.
    void erase(const RefRule &rule);

    // Appends the rule, whether or not its name is there already. Throws code 1 for a null handle.
    void add(const RefRule &rule);

private:
    friend class RuleCheck;
    friend class RuleContainer;
    friend class RuleFileParser;
    friend class RuleIndex;

    explicit RefRuleList(RuleList *fresh);

    // The list without a note of the access; throws code 1 for a null handle, code 4 where it holds no list.
    const RuleList &peek() const;
};

// The rules that one message has tripped, at most one of a name, ordered by name, with the sum of
// their scores.
class CORVANE_HEURISTIC_API Matches : public RefImpl, public std::set<RefRule> {
public:
    // An empty set with total and threshold 0.0.
    Matches();
    ~Matches() override;

    // The total above which the message counts as decided; 0.0 (the initial value) means never.
    void threshold(float threshold) { threshold_ = threshold; }
    float threshold() const { return threshold_; }

    // Inserts the rule and adds its score to the total, unless it is a meta sub-rule; answers
    // tripped(). The score is added even when the name is in the set already, which RefMatches::add
    // prevents. Throws code 4, with the rule already inserted, for a rule that has no score and is
    // no meta sub-rule.
    bool add(const RefRule &rule);

    // Whether the total has ever been seen above the threshold. Once true it stays so until
    // score(true).
    bool tripped() const;

    // recompute = false: the running total; one of 0.0 is summed up anew.
    // recompute = true:  the sum of the rules' present scores in name order; clears the tripped
    //                    state, which the next tripped() decides afresh.
    // Throws code 4 where a rule to be summed is null or has no score.
    float score(bool recompute) const;

private:
    friend class RefMatches;

    // Adds the score of a rule that was just inserted; the rest of add.
    bool count(const RefRule &rule);

    mutable float total_;
    mutable bool tripped_;
    float threshold_;
};

class CORVANE_HEURISTIC_API RefMatches : public Ref<Matches> {
public:
    // A null handle.
    RefMatches();

    // A handle on a new, empty set.
    static RefMatches create();

    // Adds the rule where the set holds none of its name, and answers whether the set is tripped
    // then. Answers false and changes nothing where the name is there already, even in a tripped
    // set, and for a null handle. Throws as Matches::add, and code 1 for a null rule.
    bool add(const RefRule &rule);

    // The rule of that name; null where there is none and for a null handle.
    RefRule find(const std::string &name) const;

    // Matches::score, or 0.0 for a null handle.
    float score(bool recompute) const;

private:
    explicit RefMatches(Matches *fresh);
};

// Adds the score of each rule that it is applied to; meta sub-rules count nothing. The total must
// outlive it.
class CORVANE_HEURISTIC_API ScoreAccumulator {
public:
    explicit ScoreAccumulator(float *total) : total_(total) {}

    // Throws code 4 for a null rule, and for a rule that has no score and is no meta sub-rule.
    void operator()(const RefRule &rule) const;

private:
    float *total_;
};

// One try, on behalf of a check of the calling thread, whose budget and profile may be null. Where it ended at the step
// limit, the rule's name goes to the budget; what it took goes to the profile.
template <class Match>
bool tryRule(const Rule &rule, Budget *budget, RuleProfile *profile, const Match &matches) {
    const RuleProfile::Charge charge(profile);
    const bool matched = matches(rule);
    charge.to(rule.ordinal());
    if (budget != nullptr && budget->takeUnnamed()) {
        budget->addStepLimitedRule(rule.name());
    }
    return matched;
}

// Base of every check: what to fill, which rules to leave out, and whether to trace. Not for use on
// its own. Where the thread uses a budget (Budget.h), no check tries a rule once that has ended; what
// was added until then stays.
//
// Threads: a check belongs to one thread.
class CORVANE_HEURISTIC_API RuleCheck {
public:
    // Shares the caller's match set. ordinalCutoff 0 tries every rule, any other those of a lower
    // ordinal. verbose writes the name of each rule to standard output before it is tried.
    RuleCheck(RefMatches &matches, unsigned int ordinalCutoff, bool verbose);

protected:
    // For a check over a prepared view of a list, which must outlive it, instead of a list; without trace.
    RuleCheck(FilteredList &filtered, RefMatches &matches);
    ~RuleCheck();
    RuleCheck(const RuleCheck &);
    RuleCheck &operator=(const RuleCheck &);

    // Whether nothing more is to be tried: the match set has tripped, or the thread's budget has ended.
    bool isOver() const { return matches_->tripped() || Budget::isOver(); }

    // Whether the entry is null or its rule at or past the cutoff.
    bool skips(const RefRule &rule) const;

    // Writes and flushes the rule's name and a line end, in one piece, if verbose.
    void trace(const RefRule &rule) const;

    // One pass: tries each rule that is not left out, in order, and adds those that match to the set; ends where an
    // addition trips it, and with the thread's budget. Answers the rules that matched. matches is called with a Rule of
    // the list's kind.
    template <class Match>
    std::list<RefRule> tryRules(const RefRuleList &rules, Match matches);

    // The list without the note that it may have been changed; throws code 1 for a null handle.
    static const RuleList &contents(const RefRuleList &rules) { return rules.peek(); }

    // Erases from the list what a pass has matched.
    static void eraseAll(RefRuleList &rules, const std::list<RefRule> &matched);

    RefMatches matches_;
    unsigned int ordinalCutoff_;
    bool verbose_;
    // Null for a check over a list.
    FilteredList *filtered_;
};

template <class Match>
std::list<RefRule> RuleCheck::tryRules(const RefRuleList &rules, Match matches) {
    std::list<RefRule> matched;
    Budget *budget = Budget::ofThisThread();
    RuleProfile *profile = RuleProfile::ofThisThread();
    for (const RefRule &rule : contents(rules)) {
        if (budget != nullptr && budget->ended()) {
            break;
        }
        if (skips(rule)) {
            continue;
        }
        trace(rule);
        if (tryRule(*rule, budget, profile, matches)) {
            matched.push_back(rule);
            if (matches_.add(rule)) {
                break;
            }
        }
    }
    return matched;
}

// The languages by which rules are filed. ALL stands for every language in rule files; it is no
// index.
enum langID : int { DEFAULT = 0, CN = 1, JP = 2, KO = 3, RU = 4, TH = 5, ALL = 6 };

// A rule set: one list of rules for each language and kind.
//
// Threads: the getters and find make the lists that they miss, so even reading may write. Once
// every list that is asked for exists, any number of threads may read.
class CORVANE_HEURISTIC_API RuleContainer {
public:
    RuleContainer();
    RuleContainer(const RuleContainer &) = delete;
    RuleContainer &operator=(const RuleContainer &) = delete;
    virtual ~RuleContainer();

    // The list of one kind in one language, made empty on the first call; never null. The reference
    // lives as long as the container. Each throws code 4 for ALL and whatever else is no language.
    RefRuleList &headerRules(langID language) const;
    RefRuleList &uriRules(langID language) const;
    RefRuleList &bodyRules(langID language) const;
    RefRuleList &rawBodyRules(langID language) const;
    RefRuleList &fullRules(langID language) const;
    RefRuleList &metaRules(langID language) const;

    // The same for a kind that is known at run time only; also throws code 2 for a kind that there
    // is no rule of.
    RefRuleList &rules(langID language, Rule::Type kind) const;

    // The first rule of that name in one language, kinds searched in the order of their numbers:
    // header to raw-body with patternKindsOnly, else all six. Null where there is none, and for an
    // empty name. Never looks into another language. Throws code 4 for ALL and whatever else is no
    // language.
    RefRule find(const std::string &name, langID language, bool patternKindsOnly) const;

private:
    static constexpr std::size_t kSlots = 7;

    mutable std::array<std::map<Rule::Type, RefRuleList>, kSlots> lists_;
};

} // namespace Heuristic
} // namespace Corvane

#endif
