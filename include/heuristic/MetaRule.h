#ifndef CORVANE_HEURISTIC_METARULE_H
#define CORVANE_HEURISTIC_METARULE_H

// Meta rules: expressions over which other rules have tripped, and the check that runs a list of them last.
//
//     RefRule rule(Rule::Meta, "SCAM");
//     rule->value("(__MONEY && __HURRY) || LOTTERY");
//     MetaCheck(rules, matches, 0, false).check();
//
// Threads: a rule is immutable once its value is set; evaluators and checks belong to one thread.

#include <deque>
#include <list>
#include <set>
#include <string>

#include "heuristic/Export.h"
#include "heuristic/Rule.h"

namespace Corvane::Heuristic {

class CORVANE_HEURISTIC_API MetaRule : public Rule {
public:
    // One token of an expression.
    class CORVANE_HEURISTIC_API Atom {
    public:
        enum Type : unsigned int { Empty = 0, Operator = 1, Name = 2, Number = 3 };

        Atom();
        // An operator by its code: the character written, & for &&, | for ||, L for <= and G for >=.
        explicit Atom(char code);
        // A name, or a number as written.
        explicit Atom(const std::string &text);
        // An intermediate result.
        explicit Atom(float number);

        // Plain accessors; what does not belong to the type is 0 or empty.
        Type type() const { return type_; }
        char opvalue() const { return code_; }
        const std::string &strvalue() const { return text_; }
        float value() const { return type_ == Number ? number_ : 0.0F; }

        // What an atom counts for as a number: its value, the number that a name begins with, else 0.0.
        float number() const { return number_; }

        // Whether this is the operator of that code.
        bool is(char code) const { return type_ == Operator && code_ == code; }

    private:
        Type type_;
        char code_;
        std::string text_;
        float number_;
    };

    // A rule of kind Meta with an empty expression.
    MetaRule();
    explicit MetaRule(const std::string &name);
    ~MetaRule() override;

    // Appends the atoms of the expression to those that the rule has, and stores the expression as it stands. Names end
    // at blank, tab, ! + - ( ) < > | and &, and at no other character. Throws code 4 for a & or | that is not doubled,
    // and for the byte 7; the atoms before it stay.
    void value(const std::string &expression) override;
    using Rule::value;

    // The sub-rules that the expression mentions: names of three characters or more that begin with "__".
    const std::set<std::string> &names() const { return names_; }

    // The atoms of the expression, in the order in which they are written. The reference lives as long as the rule.
    const std::list<Atom> &atoms() const { return atoms_; }

    // Whether the rule is active and its expression true for the rules in the match set. An expression that cannot be
    // evaluated is logged (0x3000031) and false.
    bool matches(const RefMatches &matches) const;

    // The value of some atoms of the expression, such as those of a group, whether or not the rule is active: 1 or 0
    // where the expression is one of true and false. Throws code 4 where they cannot be evaluated.
    float valueOf(std::list<Atom>::const_iterator begin, std::list<Atom>::const_iterator end,
                  const RefMatches &matches) const;

private:
    friend class RuleFileParser;
    friend class RuleIndex;

    bool evaluate(const RefMatches &matches) const;
    void append(const Atom &atom);
    std::size_t takeOperator(const std::string &expression, std::size_t at);
    std::size_t takeName(const std::string &expression, std::size_t at);

    std::set<std::string> names_;
    std::list<Atom> atoms_;
    bool arithmetic_;
};

// Evaluates expressions of names, !, &&, || and parentheses. && and || have the same precedence and group from the left.
class CORVANE_HEURISTIC_API MetaRuleBooleanEvaluator {
public:
    using Position = std::list<MetaRule::Atom>::const_iterator;

    // Groups and negations inside each other that are followed.
    static constexpr unsigned int kMaxDepth = 1000;

    // Works on the atoms from begin to end, which must outlive it, as must matches.
    MetaRuleBooleanEvaluator(Position begin, Position end, const RefMatches &matches);

    // The value from the current position on; with single, of one operand only. Throws code 4 where a group or negation
    // is not complete, or lies deeper than kMaxDepth.
    bool operator()(bool single);

private:
    enum class Mode { None, Or, And };

    bool nested(bool single);
    void operand(bool &value, Mode &mode);
    static void combine(bool &value, Mode mode, bool operand);
    bool groups(bool &value, Mode mode, bool single);

    Position position_;
    Position end_;
    const RefMatches &matches_;
    unsigned int depth_;
};

// Evaluates expressions that hold arithmetic or comparisons. A name counts 1.0 when its rule has tripped, else the number
// that it reads as, else 0.0; comparisons, && and || give 1.0 or 0.0.
class CORVANE_HEURISTIC_API MetaRuleArithmeticEvaluator {
public:
    using Position = std::list<MetaRule::Atom>::const_iterator;

    // Works on the atoms from begin to end, which must outlive it, as must matches.
    MetaRuleArithmeticEvaluator(Position begin, Position end, const RefMatches &matches);

    // Whether the value of all atoms is other than 0.0; NaN is. Throws as valueOfAll().
    bool operator()();

    // The value of all atoms. Throws code 4 where an operator lacks its left operand.
    float valueOfAll();

    // The value of one atom.
    float atomToFloat(const MetaRule::Atom &atom) const;

    // Removes the innermost open group from the stack, its parenthesis included, or everything where none is open, and
    // answers its value from left to right; 0.0 for an empty stack. Throws code 4, with the cause attached.
    float calculate();

    // Removes the topmost atom and answers its value. Throws code 4 on an empty stack.
    float lastValue();

private:
    void takeOperand(const MetaRule::Atom &name);
    float reduce(std::size_t start) const;

    std::deque<MetaRule::Atom> stack_;
    Position position_;
    Position end_;
    const RefMatches &matches_;
};

class CORVANE_HEURISTIC_API MetaCheck : public RuleCheck {
public:
    // Reads the caller's list, which must hold meta rules only; nothing is erased from it.
    MetaCheck(const RefRuleList &rules, RefMatches &matches, unsigned int ordinalCutoff,
              bool verbose);
    MetaCheck(const MetaCheck &);
    MetaCheck &operator=(const MetaCheck &);
    virtual ~MetaCheck();

    // Tries one meta rule against the match set as it stands; answers whether adding it has tripped the set. Throws as
    // RefMatches::add.
    bool operator()(const RefRule &rule);

    // Tries every rule once, in list order, up to the one that trips the set: a meta rule sees only those before it.
    // Throws as operator().
    void check();

private:
    friend class StageRules;

    MetaCheck(FilteredList &filtered, RefMatches &matches);

    void checkFiltered();
    RefRuleList rules_;
};

} // namespace Corvane::Heuristic

#endif
