#include "heuristic/UriRule.h"

#include <algorithm>
#include <functional>
#include <vector>

#include "heuristic/Definition.h"
#include "heuristic/Failure.h"
#include "heuristic/FilteredList.h"

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

UriCheck::UriCheck(FilteredList &filtered, RefMatches &matches) : RuleCheck(filtered, matches) {}

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
        if (filtered_ != nullptr) {
            checkFiltered(uris);
            return;
        }
        for (const auto &[source, found] : uris.sourced()) {
            std::for_each(found.begin(), found.end(), std::ref(*this));
        }
    } catch (const Exception &failure) {
        wrap(failure, "UriCheck::check", kFile, kCheckLine);
    }
}

void UriCheck::checkFiltered(const UriContainer &uris) {
    std::vector<const std::string *> texts;
    for (const auto &[source, found] : uris.sourced()) {
        for (const Corvane::Uri &uri : found) {
            if (!uri.isNull()) {
                texts.push_back(&uri.asString());
            }
        }
    }
    FilteredPass pass(*filtered_);
    for (std::size_t first = 0, next = 0; first < texts.size(); first = next) {
        pass.clear();
        for (; next < texts.size() && !pass.isFull(); ++next) {
            pass.stage({*texts[next]});
        }
        pass.selectStaged(FilteredPass::Wanted::EveryMatch);
        for (std::uint32_t unit = pass.nextUnit(0, pass.size()); unit < pass.size();
             unit = pass.nextUnit(unit + 1, pass.size())) {
            pass.addMatches(unit, pass.text(unit), matches_);
        }
    }
}

} // namespace Corvane::Heuristic
