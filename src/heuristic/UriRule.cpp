#include "heuristic/UriRule.h"

#include "heuristic/Definition.h"
#include "heuristic/Failure.h"

namespace Corvane::Heuristic {

namespace {

constexpr const char *kFile = "UriRule";
constexpr unsigned int kValueLine = 45;
constexpr unsigned int kCheckLine = 69;

} // namespace

UriRule::UriRule() : UriRule(std::string()) {}

UriRule::UriRule(const std::string &name) : Rule(Uri, name) {}

UriRule::~UriRule() = default;

void UriRule::value(const std::string &text) {
    try {
        expression_ = compileTrimmed(text, Regex::kNoOptions);
        Rule::value(text);
    } catch (const Exception &failure) {
        wrap(failure, "UriRule::Value", kFile, kValueLine, name());
    }
}

bool UriRule::matches(const Corvane::Uri &uri) const {
    if (!active() || expression_.isNull() || uri.isNull()) {
        return false;
    }
    bool failed = false;
    const bool matched = expression_(uri.asString(), &failed);
    return matched && !failed;
}

UriCheck::UriCheck(RefRuleList &rules, RefMatches &matches, unsigned int ordinalCutoff,
                   bool verbose)
    : RuleCheck(matches, ordinalCutoff, verbose), rules_(rules, true) {}

UriCheck::UriCheck(const UriCheck &) = default;
UriCheck &UriCheck::operator=(const UriCheck &) = default;
UriCheck::~UriCheck() = default;

void UriCheck::operator()(const Corvane::Uri &uri) {
    eraseAll(rules_, tryRules(rules_, [&uri](const Rule &rule) {
                 return static_cast<const UriRule &>(rule).matches(uri);
             }));
}

void UriCheck::check(const UriContainer &uris) {
    try {
        for (const auto &[source, found] : uris.sourced()) {
            for (const Corvane::Uri &uri : found) {
                (*this)(uri);
            }
        }
    } catch (const Exception &failure) {
        wrap(failure, "UriCheck::check", kFile, kCheckLine);
    }
}

} // namespace Corvane::Heuristic
