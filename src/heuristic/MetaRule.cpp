#include "heuristic/MetaRule.h"

#include <algorithm>
#include <functional>
#include <string_view>

#include "heuristic/Failure.h"
#include "heuristic/FilteredList.h"
#include "heuristic/LogRecords.h"
#include "heuristic/NumberStream.h"
#include "host/parser/Logger.h"

namespace Corvane::Heuristic {

namespace {

constexpr const char *kFile = "MetaRule";
constexpr unsigned int kLoneAmpersandLine = 143;
constexpr unsigned int kLoneBarLine = 154;
constexpr unsigned int kBellLine = 160;
constexpr std::string_view kNameEnds = "!+-()<> \t\a|&";
constexpr std::string_view kArithmetic = "+-*/<>";
constexpr const char *kSubrulePrefix = "__";
constexpr std::size_t kShortestSubruleName = 3;
// What one takes, in units of work of a budget.
constexpr std::uint64_t kRuleWork = 256;

[[noreturn]] void s_refuse(const std::string &expression, unsigned int line) {
    fail("MetaRule::value", Exception::kGeneral, kFile, line, expression);
}

// The number that a name begins with, 0.0 for none.
float s_leadingNumber(const std::string &name) {
    NumberStream stream(name);
    float number = 0.0F;
    return stream >> number ? number : 0.0F;
}

bool s_isTrue(const Rule &rule, const RefMatches &matches, RuleProfile *profile) {
    const RuleProfile::Charge charge(profile);
    const bool isTrue = static_cast<const MetaRule &>(rule).matches(matches);
    charge.toEvaluated(rule.ordinal());
    return isTrue;
}

} // namespace

MetaRule::Atom::Atom() : type_(Empty), code_(0), number_(0.0F) {}

MetaRule::Atom::Atom(char code) : type_(Operator), code_(code), number_(0.0F) {}

MetaRule::Atom::Atom(const std::string &text)
    : type_(Name), code_(0), text_(text), number_(s_leadingNumber(text)) {}

MetaRule::Atom::Atom(float number) : type_(Number), code_(0), number_(number) {}

MetaRule::MetaRule() : MetaRule(std::string()) {}

MetaRule::MetaRule(const std::string &name) : Rule(Meta, name), arithmetic_(false) {}

MetaRule::~MetaRule() = default;

void MetaRule::value(const std::string &expression) {
    // Atoms before a fault stay.
    noteEdit();
    for (std::size_t at = 0; at < expression.size();) {
        switch (expression[at]) {
        case ' ':
        case '\t':
            ++at;
            break;
        case '!':
        case '(':
        case ')':
        case '&':
        case '|':
        case '*':
        case '+':
        case '-':
        case '/':
        case '<':
        case '>':
            at = takeOperator(expression, at);
            break;
        default:
            at = takeName(expression, at);
        }
    }
    Rule::value(expression);
}

// Takes the operator at a position; answers the position behind it.
std::size_t MetaRule::takeOperator(const std::string &expression, std::size_t at) {
    const char c = expression[at];
    const char next = at + 1 < expression.size() ? expression[at + 1] : '\0';
    if ((c == '&' || c == '|') && next != c) {
        s_refuse(expression, c == '&' ? kLoneAmpersandLine : kLoneBarLine);
    }
    arithmetic_ = arithmetic_ || kArithmetic.find(c) != std::string_view::npos;
    if ((c == '<' || c == '>') && next == '=') {
        append(Atom(c == '<' ? 'L' : 'G'));
        return at + 2;
    }
    append(Atom(c));
    return at + (c == '&' || c == '|' ? 2 : 1);
}

std::size_t MetaRule::takeName(const std::string &expression, std::size_t at) {
    const std::size_t end = std::min(expression.find_first_of(kNameEnds, at), expression.size());
    if (end == at) {
        // Byte 7 ends names and is part of nothing else.
        s_refuse(expression, kBellLine);
    }
    append(Atom(expression.substr(at, end - at)));
    return end;
}

void MetaRule::append(const Atom &atom) {
    const std::string &text = atom.strvalue();
    if (text.size() >= kShortestSubruleName && text.rfind(kSubrulePrefix, 0) == 0) {
        names_.insert(text);
    }
    atoms_.push_back(atom);
}

bool MetaRule::matches(const RefMatches &matches) const {
    if (!active()) {
        return false;
    }
    try {
        return evaluate(matches);
    } catch (const Exception &failure) {
        Logger::instance(false).log(kLogMetaFailed, kLogLevel, "%s\x01%s", name().c_str(),
                                    failure.asString().c_str());
        return false;
    }
}

float MetaRule::valueOf(std::list<Atom>::const_iterator begin, std::list<Atom>::const_iterator end,
                        const RefMatches &matches) const {
    if (arithmetic_) {
        return MetaRuleArithmeticEvaluator(begin, end, matches).valueOfAll();
    }
    return MetaRuleBooleanEvaluator(begin, end, matches)(false) ? 1.0F : 0.0F;
}

bool MetaRule::evaluate(const RefMatches &matches) const {
    if (arithmetic_) {
        return MetaRuleArithmeticEvaluator(atoms_.begin(), atoms_.end(), matches)();
    }
    return MetaRuleBooleanEvaluator(atoms_.begin(), atoms_.end(), matches)(false);
}

MetaCheck::MetaCheck(const RefRuleList &rules, RefMatches &matches, unsigned int ordinalCutoff,
                     bool verbose)
    : RuleCheck(matches, ordinalCutoff, verbose), rules_(rules, false) {}

MetaCheck::MetaCheck(FilteredList &filtered, RefMatches &matches) : RuleCheck(filtered, matches) {}

MetaCheck::MetaCheck(const MetaCheck &) = default;
MetaCheck &MetaCheck::operator=(const MetaCheck &) = default;
MetaCheck::~MetaCheck() = default;

bool MetaCheck::operator()(const RefRule &rule) {
    if (skips(rule) || Budget::spend(kRuleWork)) {
        return false;
    }
    trace(rule);
    return s_isTrue(*rule, matches_, RuleProfile::ofThisThread()) && matches_.add(rule);
}

void MetaCheck::check() {
    if (filtered_ != nullptr) {
        checkFiltered();
        return;
    }
    MetaCheck copy(*this);
    const Ref<RuleList> &rules = rules_;
    (void)std::find_if(rules->begin(), rules->end(), std::ref(copy));
}

// Evaluates, in the order of the list, the rules that are true of nothing and those that mention a rule that has tripped
// by the time of their turn. The value of all others is that for an empty match set: false.
void MetaCheck::checkFiltered() {
    const MetaDependents &dependents = filtered_->index().metas();
    const KindIndex &metas = filtered_->rules();
    RuleProfile *profile = RuleProfile::ofThisThread();
    BitSet due = dependents.unconditional;
    const auto mention = [&](const std::string &name) {
        const auto found = dependents.byName.find(name);
        if (found != dependents.byName.end()) {
            std::for_each(found->second.begin(), found->second.end(),
                          [&due](std::uint32_t number) { due.set(number); });
        }
    };
    for (const RefRule &tripped : *matches_) {
        if (!tripped.isNull()) {
            mention(tripped->name());
        }
    }
    for (auto next = due.findFrom(0); next < due.size(); next = due.findFrom(next + 1)) {
        const RefRule &rule = metas.handles[next];
        if (Budget::spend(kRuleWork)) {
            return;
        }
        if (!filtered_->admits(next) || !s_isTrue(*rule, matches_, profile)) {
            continue;
        }
        if (matches_.add(rule)) {
            return;
        }
        // Rules before this one have had their turn.
        mention(rule->name());
    }
}

} // namespace Corvane::Heuristic
