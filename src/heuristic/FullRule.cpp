#include "heuristic/FullRule.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <string_view>

#include "heuristic/Definition.h"
#include "heuristic/Failure.h"
#include "heuristic/FilteredList.h"
#include "heuristic/StageRules.h"

namespace Corvane::Heuristic {

namespace {

constexpr const char *kFile = "FullRule";
constexpr unsigned int kValueLine = 37;
constexpr int kLineRoomBytes = 1024;
// Lines are scanned together up to about this many bytes.
constexpr unsigned int kPortionBytes = 16U * 1024;
constexpr unsigned char kLineFeed = '\n';
// What taking a line costs in units of work, whether or not there is a rule to try on it.
constexpr std::uint64_t kLineWork = 16;

// Adds complete lines at the start of the text, as many as fit a pass; answers how many.
void s_addLines(FilteredPass &pass, const Buffer &text) {
    for (unsigned int start = 0; start < std::min(text.length(), kPortionBytes);) {
        const unsigned char *line = text.data() + start;
        const void *found = std::memchr(line, kLineFeed, text.length() - start);
        if (found == nullptr) {
            break;
        }
        const auto length =
            static_cast<unsigned int>(static_cast<const unsigned char *>(found) - line) + 1;
        pass.add(start, length);
        start += length;
    }
}

bool s_isLong(const Corvane::Header &header) {
    return header.type().size() + header.value().size() > FilteredList::kMaxStagedBytes;
}

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

FullCheck::FullCheck(FilteredList &filtered, RefMatches &matches) : RuleCheck(filtered, matches) {}

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
    const auto matches = [&header](const Rule &rule) {
        return static_cast<const FullRule &>(rule).matches(header);
    };
    Budget *budget = Budget::ofThisThread();
    RuleProfile *profile = RuleProfile::ofThisThread();
    for (const RefRule &rule : contents(rules_)) {
        if (budget != nullptr && budget->ended()) {
            break;
        }
        if (!skips(rule) && tryRule(*rule, budget, profile, matches) && matches_.add(rule)) {
            break;
        }
    }
    return matches_->tripped();
}

// Tries the rules one by one on a header that is too long to be copied; answers as operator().
bool FullCheck::walk(const Corvane::Header &header) {
    if (!matches_->tripped()) {
        filtered_->walk(matches_, [&](const Rule &rule) {
            return static_cast<const FullRule &>(rule).matches(header);
        });
    }
    return matches_->tripped();
}

// Each header in order; once the match set is tripped the remaining ones have no effect.
template <class Headers>
void FullCheck::checkAll(const Headers &headers) {
    if (filtered_ == nullptr) {
        std::for_each(headers.begin(), headers.end(), std::ref(*this));
        return;
    }
    FilteredPass pass(*filtered_);
    for (auto next = headers.begin(); next != headers.end() && !Budget::isOver();) {
        if (s_isLong(*next)) {
            if (walk(*next++)) {
                return;
            }
            continue;
        }
        for (pass.clear(); next != headers.end() && !pass.isFull() && !s_isLong(*next); ++next) {
            const std::string_view separator = next->isNull() ? "" : ": ";
            pass.stage({next->type(), separator, next->value()});
        }
        pass.selectStaged();
        for (std::uint32_t unit = pass.nextUnit(0, pass.size()); unit < pass.size();
             unit = pass.nextUnit(unit + 1, pass.size())) {
            if (matches_->tripped()) {
                return;
            }
            pass.addMatches(unit, pass.text(unit), matches_);
        }
    }
}

void FullCheck::check(const RefHeaderList &headers) {
    checkAll(*headers);
}

void FullCheck::check(const std::list<Corvane::Header> &headers) {
    checkAll(headers);
}

FullTap::FullTap(Scanner &scanner, const RefRuleList &rules, RefMatches &matches,
                 unsigned int /*ordinalCutoff*/, bool verbose)
    : scanner_(scanner),
      filtered_(verbose || scanner_.isNull() ? nullptr
                                             : StageRules::filteredFullRules(*scanner_, rules)),
      matches_(matches), verbose_(verbose), line_(kLineRoomBytes, 0) {
    if (filtered_ == nullptr) {
        rules_ = RefRuleList(rules, true);
    }
}

FullTap::~FullTap() = default;

bool FullTap::write(const Buffer &data) {
    if (isOver()) {
        return true;
    }
    if (pending_.endOfBuffer()) {
        // A copy: the caller's bytes may be gone by the next write.
        pending_ = Buffer(data.data(), data.length(), false);
    } else {
        pending_.append(data);
    }
    if (filtered_ != nullptr && !filtered_->index().unedited()) {
        rules_ = filtered_->remaining();
        filtered_ = nullptr;
    }
    // A line that is left in line_ is where a former write was ended, before what it had was taken.
    if (filtered_ == nullptr) {
        checkLines();
    } else if (!line_.isEmpty() || data.find(Buffer(&kLineFeed, 1, true), 0) >= 0) {
        checkLinesFiltered();
    }
    return true;
}

bool FullTap::isOver() const {
    return matches_->tripped() || Budget::isOver();
}

void FullTap::checkLines() {
    for (pending_.getLine(line_, kLineFeed); !line_.isEmpty(); pending_.getLine(line_, kLineFeed)) {
        scanner_.process(rules_, matches_, line_, verbose_);
        if (Budget::spend(kLineWork) || matches_->tripped()) {
            break;
        }
    }
}

// Takes the complete lines in portions, each of which is scanned in place before its lines are tried.
void FullTap::checkLinesFiltered() {
    FilteredPass pass(*filtered_);
    do {
        const Buffer rest = pending_.mid(pending_.startOfLine());
        pass.clear();
        s_addLines(pass, rest);
        pass.select(rest.data(), rest.length());
        Budget::spend(kLineWork * pass.size());
        for (std::uint32_t line = 0; line < pass.size(); ++line) {
            pending_.getLine(line_, kLineFeed);
            pass.addMatches(line, line_, matches_);
            if (matches_->tripped()) {
                return;
            }
        }
    } while (pass.size() > 0 && !Budget::isOver());
    line_.length(0);
}

bool FullTap::end() {
    return pending_.endOfBuffer();
}

} // namespace Corvane::Heuristic
