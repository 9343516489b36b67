#include "heuristic/FullRule.h"

#include "heuristic/Definition.h"
#include "heuristic/Failure.h"

namespace Corvane::Heuristic {

namespace {

constexpr const char *kFile = "FullRule";
constexpr unsigned int kValueLine = 37;
constexpr int kLineRoomBytes = 1024;
constexpr unsigned char kLineFeed = '\n';

} // namespace

FullRule::FullRule() : FullRule(std::string()) {}

FullRule::FullRule(const std::string &name) : Rule(Full, name) {}

FullRule::~FullRule() = default;

void FullRule::value(const std::string &definition) {
    try {
        expression_ = isEval(definition) ? Regex::Expression()
                                         : compileTrimmed(definition, Regex::kNoOptions);
        Rule::value(definition);
    } catch (const Exception &failure) {
        wrap(failure, "FullRule::Value", kFile, kValueLine, name());
    }
}

bool FullRule::matches(const Buffer &text) const {
    bool failed = false;
    const bool matched = expression_(text, &failed);
    return matched && !failed;
}

bool FullRule::matches(const Corvane::Header &header) const {
    bool failed = false;
    const bool matched = expression_(header.asString(), &failed);
    return matched && !failed;
}

FullCheck::FullCheck(const RefRuleList &rules, RefMatches &matches, unsigned int ordinalCutoff,
                     bool verbose)
    : RuleCheck(matches, ordinalCutoff, verbose), rules_(rules, false) {}

FullCheck::FullCheck(const FullCheck &) = default;
FullCheck &FullCheck::operator=(const FullCheck &) = default;
FullCheck::~FullCheck() = default;

void FullCheck::check(const Buffer &text) {
    eraseAll(rules_, tryRules(rules_, [&text](const Rule &rule) {
                 return static_cast<const FullRule &>(rule).matches(text);
             }));
}

bool FullCheck::operator()(const Corvane::Header &header) {
    if (matches_->tripped()) {
        return true;
    }
    for (const RefRule &rule : *rules_) {
        if (skips(rule) || !static_cast<const FullRule &>(*rule).matches(header)) {
            continue;
        }
        if (matches_.add(rule)) {
            break;
        }
    }
    return matches_->tripped();
}

void FullCheck::check(const RefHeaderList &headers) {
    for (const Corvane::Header &header : *headers) {
        (*this)(header);
    }
}

void FullCheck::check(const std::list<Corvane::Header> &headers) {
    for (const Corvane::Header &header : headers) {
        (*this)(header);
    }
}

FullTap::FullTap(Scanner &scanner, const RefRuleList &rules, RefMatches &matches,
                 unsigned int /*ordinalCutoff*/, bool verbose)
    : scanner_(scanner), rules_(rules, true), matches_(matches), verbose_(verbose),
      line_(kLineRoomBytes, 0) {}

FullTap::~FullTap() = default;

bool FullTap::write(const Buffer &data) {
    if (matches_->tripped()) {
        return true;
    }
    if (pending_.endOfBuffer()) {
        // A copy: the caller's bytes may be gone by the next write.
        pending_ = Buffer(data.data(), data.length(), false);
    } else {
        pending_.append(data);
    }
    for (pending_.getLine(line_, kLineFeed); !line_.isEmpty(); pending_.getLine(line_, kLineFeed)) {
        scanner_.process(rules_, matches_, line_, verbose_);
        if (matches_->tripped()) {
            break;
        }
    }
    return true;
}

bool FullTap::end() {
    return pending_.endOfBuffer();
}

} // namespace Corvane::Heuristic
