#include "heuristic/Failure.h"
#include "heuristic/MetaRule.h"

namespace Corvane::Heuristic {

namespace {

constexpr const char *kFile = "MetaRule";
constexpr const char *kArithmetic = "MetaRuleArithmeticEvaluator";
constexpr unsigned int kLastValueLine = 242;
constexpr unsigned int kCalculateLine = 365;
constexpr unsigned int kOperandLine = 419;

using Atom = MetaRule::Atom;

[[noreturn]] void s_fail(const char *message, unsigned int line) {
    throw Exception(message, Exception::kGeneral, kFile, line);
}

// NaN is true: it is not 0.0.
bool s_isTrue(float value) {
    return value != 0.0F;
}

float s_number(bool value) {
    return value ? 1.0F : 0.0F;
}

float s_compare(char code, float left, float right) {
    switch (code) {
    case '<':
        return s_number(left < right);
    case '>':
        return s_number(left > right);
    case 'L':
        return s_number(left <= right);
    default:
        return s_number(left >= right);
    }
}

// What a pending operator (0: none) makes of the value so far and the next one.
float s_apply(char code, float left, float right) {
    switch (code) {
    case 0:
        return right;
    case '+':
        return left + right;
    case '-':
        return left - right;
    case '&':
        return s_number(s_isTrue(left) && s_isTrue(right));
    case '|':
        return s_number(s_isTrue(left) || s_isTrue(right));
    default:
        return s_compare(code, left, right);
    }
}

} // namespace

MetaRuleBooleanEvaluator::MetaRuleBooleanEvaluator(Position begin, Position end,
                                                   const RefMatches &matches)
    : position_(begin), end_(end), matches_(matches), depth_(0) {}

// After an operand the position rests on its last atom: the name, or the parenthesis that closes a group.
bool MetaRuleBooleanEvaluator::operator()(bool single) {
    bool value = false;
    Mode mode = Mode::None;
    if (position_ == end_ || groups(value, mode, single)) {
        return value;
    }
    while (!position_->is(')')) {
        operand(value, mode);
        if (single || ++position_ == end_ || groups(value, mode, single)) {
            return value;
        }
    }
    return value;
}

// Takes the groups that begin at the position. Answers whether that ended the expression.
bool MetaRuleBooleanEvaluator::groups(bool &value, Mode mode, bool single) {
    while (position_->is('(')) {
        ++position_;
        const bool group = nested(false);
        combine(value, mode, group);
        if (single || ++position_ == end_) {
            return true;
        }
    }
    return false;
}

// Takes one atom that is no parenthesis, and with a negation also what it negates.
void MetaRuleBooleanEvaluator::operand(bool &value, Mode &mode) {
    if (position_->is('|')) {
        mode = Mode::Or;
    } else if (position_->is('&')) {
        mode = Mode::And;
    } else if (position_->is('!')) {
        ++position_;
        combine(value, mode, !nested(true));
    } else if (mode == Mode::None || (mode == Mode::And) == value) {
        // Otherwise the value is decided without the name.
        value = !matches_.find(position_->strvalue()).isNull();
    }
}

// Evaluates a group, or with single what a negation applies to. One that reaches the end of the expression is not
// complete, and to go on behind it would be to start anew without end.
bool MetaRuleBooleanEvaluator::nested(bool single) {
    if (depth_ == kMaxDepth) {
        s_fail("MetaRuleBooleanEvaluator", __LINE__);
    }
    ++depth_;
    const bool value = (*this)(single);
    --depth_;
    if (position_ == end_) {
        s_fail("MetaRuleBooleanEvaluator", __LINE__);
    }
    return value;
}

void MetaRuleBooleanEvaluator::combine(bool &value, Mode mode, bool operand) {
    switch (mode) {
    case Mode::None:
        value = operand;
        break;
    case Mode::Or:
        value = value || operand;
        break;
    case Mode::And:
        value = value && operand;
        break;
    }
}

MetaRuleArithmeticEvaluator::MetaRuleArithmeticEvaluator(Position begin, Position end,
                                                         const RefMatches &matches)
    : position_(begin), end_(end), matches_(matches) {}

bool MetaRuleArithmeticEvaluator::operator()() {
    return s_isTrue(valueOfAll());
}

float MetaRuleArithmeticEvaluator::valueOfAll() {
    // Set after an operator that takes the next name at once.
    bool eager = false;
    for (; position_ != end_; ++position_) {
        const Atom &atom = *position_;
        if (atom.type() == Atom::Name) {
            if (eager) {
                takeOperand(atom);
                eager = false;
            } else {
                stack_.push_back(atom);
            }
        } else if (atom.is(')')) {
            stack_.emplace_back(calculate());
        } else {
            stack_.push_back(atom);
            if (atom.is('!') || atom.is('(')) {
                eager = false;
            } else if (atom.is('&') || atom.is('|') || atom.is('*') || atom.is('/')) {
                eager = true;
            }
        }
    }
    return calculate();
}

// Applies the operator on top of the stack to a name. && , || and comparisons take all of the current group as their
// left operand, * and / only the atom before them; any other operator is dropped together with the name.
void MetaRuleArithmeticEvaluator::takeOperand(const Atom &name) {
    const float right = atomToFloat(name);
    if (stack_.empty()) {
        s_fail(kArithmetic, kOperandLine);
    }
    const char code = stack_.back().opvalue();
    stack_.pop_back();
    switch (code) {
    case '&':
    case '|':
    case '<':
    case '>':
    case 'L':
    case 'G': {
        const float left = calculate();
        stack_.emplace_back(s_apply(code, left, right));
        break;
    }
    case '*': {
        const float left = lastValue();
        stack_.emplace_back(left * right);
        break;
    }
    case '/': {
        const float left = lastValue();
        stack_.emplace_back(left / right);
        break;
    }
    default:
        break;
    }
}

float MetaRuleArithmeticEvaluator::atomToFloat(const Atom &atom) const {
    if (atom.type() == Atom::Number) {
        return atom.value();
    }
    if (!matches_.find(atom.strvalue()).isNull()) {
        return 1.0F;
    }
    return atom.number();
}

float MetaRuleArithmeticEvaluator::lastValue() {
    if (stack_.empty()) {
        s_fail(kArithmetic, kLastValueLine);
    }
    const float value = atomToFloat(stack_.back());
    stack_.pop_back();
    return value;
}

float MetaRuleArithmeticEvaluator::calculate() {
    try {
        std::size_t start = stack_.size();
        while (start > 0 && !stack_[start - 1].is('(')) {
            --start;
        }
        start -= start > 0 ? 1U : 0U;
        const float value = reduce(start);
        stack_.resize(start);
        return value;
    } catch (const Exception &failure) {
        wrap(failure, kArithmetic, kFile, kCalculateLine);
    }
}

float MetaRuleArithmeticEvaluator::reduce(std::size_t start) const {
    float value = 0.0F;
    bool negate = false;
    char pending = 0;
    for (std::size_t at = start; at < stack_.size(); ++at) {
        const Atom &atom = stack_[at];
        // * and / have done their work already; one that is left counts as a value of 0.0.
        const bool isOperator = atom.type() == Atom::Operator && !atom.is('*') && !atom.is('/');
        if (!isOperator) {
            float next = atomToFloat(atom);
            if (negate) {
                next = s_number(!s_isTrue(next));
            }
            value = s_apply(pending, value, next);
            pending = 0;
            negate = false;
        } else if (atom.is('!')) {
            negate = !negate;
        } else if (!atom.is('(')) {
            pending = atom.opvalue();
        }
    }
    return value;
}

} // namespace Corvane::Heuristic
