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
// URIs that are gathered before it is known whether the first ones match all rules; then so many
// times more.
constexpr std::size_t kUrisAtFirst = 32;
constexpr std::size_t kGrowth = 8;

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

// For few rules it is not worth while to gather the URIs.
void UriCheck::checkFiltered(const UriContainer &uris) {
    std::vector<const Corvane::Uri *> gathered;
    for (const auto &[source, found] : uris.sourced()) {
        for (const Corvane::Uri &uri : found) {
            if (uri.isNull()) {
                continue;
            }
            if (filtered_->isWorthStaging(0)) {
                gathered.push_back(&uri);
            } else {
                walk(uri);
            }
        }
    }
    std::size_t atOnce = kUrisAtFirst;
    for (std::size_t first = 0; first < gathered.size() && !Budget::isOver();) {
        first = checkFiltered(gathered, first, atOnce);
    }
}

void UriCheck::walk(const Corvane::Uri &uri) {
    if (filtered_->counts().all.rules == 0) {
        return;
    }
    filtered_->walk(matches_, [&uri](const Rule &rule) {
        return static_cast<const UriRule &>(rule).matches(uri);
    });
}

// Checks up to so many URIs from that one on, and then more at once; answers the first that is
// left. The rules that an addition which trips keeps from having their turn have it at the next
// URI: from then on each is checked for itself.
std::size_t UriCheck::checkFiltered(const std::vector<const Corvane::Uri *> &uris,
                                    std::size_t first, std::size_t &atOnce) {
    const auto isStaged = [&](std::size_t uri) {
        return filtered_->isWorthStaging(uris[uri]->asString().size());
    };
    if (!isStaged(first)) {
        walk(*uris[first]);
        return first + 1;
    }
    FilteredPass pass(*filtered_);
    std::size_t next = first;
    do {
        pass.stage({uris[next]->asString()});
        ++next;
    } while (next < uris.size() && pass.size() < atOnce && !pass.isFull() && isStaged(next));
    pass.selectStaged();
    for (std::uint32_t unit = pass.nextUnit(0, pass.size()); unit < pass.size();
         unit = pass.nextUnit(unit + 1, pass.size())) {
        if (pass.addMatches(unit, pass.text(unit), matches_)) {
            atOnce = 1;
            return first + unit + 1;
        }
    }
    atOnce *= atOnce > 1 ? kGrowth : 1;
    return next;
}

} // namespace Corvane::Heuristic
