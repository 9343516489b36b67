#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <list>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "Require.h"
#include "heuristic/MetaRule.h"
#include "host/parser/Exception.h"
#include "host/parser/Logger.h"
#include "support/MetaReference.h"

namespace {

using namespace Corvane;
using namespace Corvane::Heuristic;

using Atoms = std::list<MetaRule::Atom>;

unsigned int s_logged = 0;

// An expression cut into words. One that the rule must refuse is cut up to the fault.
struct Expression {
    MetaTokens words;
    Atoms atoms;
    bool refused = false;
};

// The operator at the front of the text; empty where none stands there.
std::string_view s_operator(std::string_view text) {
    for (const std::string_view sign :
         {"&&", "||", "<=", ">=", "<", ">", "!", "(", ")", "*", "+", "-", "/"}) {
        if (text.substr(0, sign.size()) == sign) {
            return sign;
        }
    }
    return {};
}

char s_code(std::string_view sign) {
    return sign == "<=" ? 'L' : sign == ">=" ? 'G' : sign[0];
}

Expression s_cut(std::string_view text) {
    Expression result;
    while (!text.empty()) {
        const std::string_view sign = s_operator(text);
        std::size_t length = sign.size();
        if (!sign.empty()) {
            result.words.emplace_back(sign);
            result.atoms.emplace_back(s_code(sign));
        } else if (text[0] == ' ' || text[0] == '\t') {
            length = 1;
        } else {
            length = std::min(text.find_first_of("!+-()<> \t\a|&"), text.size());
            if (length == 0) {
                result.refused = true;
                return result;
            }
            result.words.emplace_back(text.substr(0, length));
            result.atoms.emplace_back(result.words.back());
        }
        text.remove_prefix(length);
    }
    return result;
}

// Names of the expression, chosen by the bits of the mask.
std::set<std::string> s_tripped(const Atoms &atoms, unsigned int mask) {
    constexpr unsigned int kBits = 16;
    std::set<std::string> seen;
    std::set<std::string> tripped;
    unsigned int bit = 0;
    for (const MetaRule::Atom &atom : atoms) {
        if (atom.type() != MetaRule::Atom::Name || !seen.insert(atom.strvalue()).second) {
            continue;
        }
        if (((mask >> bit) & 1U) != 0) {
            tripped.insert(atom.strvalue());
        }
        bit = (bit + 1) % kBits;
    }
    return tripped;
}

RefMatches s_matches(const std::set<std::string> &names) {
    RefMatches matches = RefMatches::create();
    for (const std::string &name : names) {
        const RefRule rule(Rule::Body, name);
        rule->score(RefScore("1"));
        matches.add(rule);
    }
    return matches;
}

template <class Evaluate>
MetaOutcome s_outcome(Evaluate evaluate) {
    try {
        return evaluate() ? MetaOutcome::True : MetaOutcome::False;
    } catch (const Exception &failure) {
        require(failure.code() == Exception::kGeneral, "failures have code 4");
    } catch (const MetaIncomplete &) {
    }
    return MetaOutcome::Failed;
}

// Both evaluators take every expression, whichever of them a rule would choose.
void s_compareEvaluators(const Expression &expression, const std::set<std::string> &tripped,
                         const RefMatches &matches, bool shallow) {
    const auto begin = expression.atoms.begin();
    const auto end = expression.atoms.end();
    const MetaOutcome number =
        s_outcome([&] { return MetaRuleArithmeticEvaluator(begin, end, matches)(); });
    require(number == s_outcome([&] {
                return ArithmeticReference(expression.words, tripped).value() != 0.0F;
            }),
            "the arithmetic evaluator agrees with the reference");
    s_outcome([&] { return MetaRuleBooleanEvaluator(begin, end, matches)(true); });
    const MetaOutcome truth =
        s_outcome([&] { return MetaRuleBooleanEvaluator(begin, end, matches)(false); });
    require(!shallow || truth == s_outcome([&] {
                            return BooleanReference(expression.words, tripped).value();
                        }),
            "the boolean evaluator agrees with the reference");
}

void s_compareRule(const std::string &text, const Expression &expression,
                   const std::set<std::string> &tripped, const RefMatches &matches, bool shallow) {
    MetaRule rule("M");
    rule.score(RefScore("1"));
    const MetaOutcome stored = s_outcome([&] { return rule.value(text), true; });
    require((stored == MetaOutcome::Failed) == expression.refused, "faults are refused");
    require(rule.value() == (expression.refused ? "" : text), "the text is stored as it stands");
    s_logged = 0;
    const bool matched = rule.matches(matches);
    require(s_logged == 0 || !matched, "what fails is false");
    const MetaOutcome outcome = s_logged != 0 ? MetaOutcome::Failed
                                : matched     ? MetaOutcome::True
                                              : MetaOutcome::False;
    require(!shallow || outcome == referenceOutcome(expression.words, tripped),
            "the rule agrees with the reference");
}

} // namespace

// The first two bytes choose which of the expression's names have tripped, the rest is the
// expression.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static const bool s_counting = [] {
        Logger::instance(false).sink([](unsigned int, int, const std::string &) { ++s_logged; });
        return true;
    }();
    require(s_counting, "log records are counted");
    if (size < 2) {
        return 0;
    }
    const unsigned int mask = data[0] + data[1] * 256U;
    const std::string text(reinterpret_cast<const char *>(data) + 2, size - 2);
    const Expression expression = s_cut(text);
    const std::set<std::string> tripped = s_tripped(expression.atoms, mask);
    const RefMatches matches = s_matches(tripped);
    // The reference follows groups and negations to any depth.
    const auto nested = std::count_if(text.begin(), text.end(),
                                      [](char byte) { return byte == '(' || byte == '!'; });
    const bool shallow = nested < MetaRuleBooleanEvaluator::kMaxDepth;
    s_compareEvaluators(expression, tripped, matches, shallow);
    s_compareRule(text, expression, tripped, matches, shallow);
    return 0;
}
