#include "heuristic/Rule.h"

#include <algorithm>
#include <iostream>

#include "heuristic/BodyRule.h"
#include "heuristic/Failure.h"
#include "heuristic/FullRule.h"
#include "heuristic/HeaderRule.h"
#include "heuristic/MetaRule.h"
#include "heuristic/RawBodyRule.h"
#include "heuristic/UriRule.h"
#include "heuristic/WatchedRuleList.h"
#include "host/parser/Lasting.h"

namespace Corvane {

std::ostream &operator<<(std::ostream &out, const Buffer &buffer) {
    return out.write(reinterpret_cast<const char *>(buffer.data()),
                     static_cast<std::streamsize>(buffer.length()));
}

namespace Heuristic {

namespace {

constexpr const char *kFile = "Rule";
constexpr const char *kSubrulePrefix = "__";
constexpr const char *kUnhandledType = "Unhandled rule type";

// A rule for the name that a match set is searched for.
struct Probe {
    RefRule rule{Rule::Body, std::string()};
};

Rule *s_newRule(Rule::Type type, const std::string &name) {
    switch (type) {
    case Rule::Header:
        return new HeaderRule(name);
    case Rule::Uri:
        return new UriRule(name);
    case Rule::Body:
        return new BodyRule(name);
    case Rule::RawBody:
        return new RawBodyRule(name);
    case Rule::Full:
        return new FullRule(name);
    case Rule::Meta:
        return new MetaRule(name);
    default:
        fail("Heuristic::Rule", Exception::kUnknownEnumerator, kFile, __LINE__, kUnhandledType);
    }
}

// Only the contribution is decided here; who may count a rule twice, and whether it trips, is the
// caller's.
void s_addScore(float &total, const RefRule &rule, const char *operation, unsigned int line) {
    if (rule->metasubrule()) {
        return;
    }
    if (rule->score().isNull()) {
        fail(operation, Exception::kGeneral, kFile, line, rule->name() + " score is NULL");
    }
    total += rule->score()->value();
}

// The first rule of that name; null entries are passed over.
template <class Rules>
auto s_position(Rules &rules, const std::string &name) {
    return std::find_if(rules.begin(), rules.end(), [&name](const RefRule &rule) {
        return !rule.isNull() && rule->name() == name;
    });
}

template <class Rules>
RefRule s_find(const Rules &rules, const std::string &name) {
    const auto found = s_position(rules, name);
    return found == rules.end() ? RefRule() : *found;
}

// A handle may hold no list at all, as one does that was made of a null pointer.
RuleList &s_held(const Ref<RuleList> &handle) {
    if (!handle.isNull() && handle.operator->() == nullptr) {
        fail("RefRuleList", Exception::kGeneral, kFile, __LINE__, "the handle holds no list");
    }
    return *handle;
}

void s_requireLanguage(langID language) {
    if (language < DEFAULT || language > TH) {
        fail("getRules", Exception::kGeneral, kFile, __LINE__, "Rule language is out of range");
    }
}

} // namespace

Rule::Rule() : Rule(None, std::string()) {}

Rule::Rule(Type type, const std::string &name)
    : type_(type), name_(name), used_(false), metasubrule_(name.rfind(kSubrulePrefix, 0) == 0),
      activity_(Undecided), ordinal_(0) {}

Rule::~Rule() = default;

void Rule::value(const std::string &definition) {
    value_ = definition;
    noteEdit();
}

void Rule::noteEdit() {
    if (edited_ != nullptr) {
        edited_->store(true, std::memory_order_relaxed);
    }
}

bool Rule::active() const {
    unsigned int activity = activity_.load(std::memory_order_relaxed);
    if (activity == Undecided) {
        activity = decide();
        activity_.store(activity, std::memory_order_relaxed);
    }
    return activity == Active;
}

Rule::Activity Rule::decide() const {
    if (metasubrule_) {
        return used_ ? Active : Inactive;
    }
    return !score_.isNull() && score_->value() != 0.0F ? Active : Inactive;
}

RefRule::RefRule() = default;

RefRule::RefRule(Rule::Type type, const std::string &name) : Ref<Rule>(s_newRule(type, name)) {}

bool RefRule::operator==(const RefRule &other) const {
    if (isNull() || other.isNull()) {
        return isNull() && other.isNull();
    }
    return **this == *other;
}

bool RefRule::operator<(const RefRule &other) const {
    if (isNull() || other.isNull()) {
        return isNull() && !other.isNull();
    }
    return **this < *other;
}

RuleList::RuleList() = default;

RuleList::~RuleList() = default;

RefRuleList::RefRuleList() = default;

RefRuleList::RefRuleList(RuleList *fresh) : Ref<RuleList>(fresh) {}

RefRuleList::RefRuleList(const RefRuleList &source, bool copy) {
    if (!copy) {
        share(source);
    } else if (!source.isNull()) {
        *this = create();
        (*this)->assign(source.peek().begin(), source.peek().end());
    }
}

RefRuleList RefRuleList::create() {
    return RefRuleList(new RuleList);
}

RuleList *RefRuleList::operator->() const {
    RuleList *list = Ref<RuleList>::operator->();
    WatchedRuleList::noteAccess(list);
    return list;
}

RuleList &RefRuleList::operator*() const {
    RuleList &list = s_held(*this);
    WatchedRuleList::noteAccess(&list);
    return list;
}

const RuleList &RefRuleList::peek() const {
    return s_held(*this);
}

RefRule RefRuleList::find(const std::string &name) const {
    return isNull() ? RefRule() : s_find(peek(), name);
}

void RefRuleList::erase(const RefRule &rule) {
    if (isNull()) {
        return;
    }
    RuleList &list = **this;
    const auto found = s_position(list, rule->name());
    if (found != list.end()) {
        list.erase(found);
    }
}

void RefRuleList::add(const RefRule &rule) {
    (**this).push_back(rule);
}

Matches::Matches() : total_(0.0F), tripped_(false), threshold_(0.0F) {}

Matches::~Matches() = default;

bool Matches::add(const RefRule &rule) {
    insert(rule);
    return count(rule);
}

bool Matches::count(const RefRule &rule) {
    s_addScore(total_, rule, "Heuristic::Matches", __LINE__);
    return tripped();
}

bool Matches::tripped() const {
    if (!tripped_ && threshold_ != 0.0F && total_ > threshold_) {
        tripped_ = true;
    }
    return tripped_;
}

float Matches::score(bool recompute) const {
    if (recompute) {
        tripped_ = false;
    }
    if ((total_ != 0.0F && !recompute) || empty()) {
        return total_;
    }
    total_ = 0.0F;
    std::for_each(begin(), end(), ScoreAccumulator(&total_));
    return total_;
}

RefMatches::RefMatches() = default;

RefMatches::RefMatches(Matches *fresh) : Ref<Matches>(fresh) {}

RefMatches RefMatches::create() {
    return RefMatches(new Matches);
}

bool RefMatches::add(const RefRule &rule) {
    if (isNull()) {
        return false;
    }
    // Throws for a null rule, which the set would take.
    (void)rule->name();
    Matches &matches = **this;
    return matches.insert(rule).second && matches.count(rule);
}

// Looks the name up as that of a rule, since the set is ordered by the names of rules.
RefRule RefMatches::find(const std::string &name) const {
    if (isNull()) {
        return {};
    }
    const RefRule &probe = PerThread<Probe>::value().rule;
    probe->name_ = name;
    const auto found = (*this)->Matches::find(probe);
    return found == (*this)->end() ? RefRule() : *found;
}

float RefMatches::score(bool recompute) const {
    return isNull() ? 0.0F : (*this)->score(recompute);
}

void ScoreAccumulator::operator()(const RefRule &rule) const {
    if (rule.isNull()) {
        fail("ScoreAccumulator", Exception::kGeneral, kFile, __LINE__, "Rule is Null");
    }
    s_addScore(*total_, rule, "ScoreAccumulator", __LINE__);
}

RuleCheck::RuleCheck(RefMatches &matches, unsigned int ordinalCutoff, bool verbose)
    : matches_(matches), ordinalCutoff_(ordinalCutoff), verbose_(verbose), filtered_(nullptr) {}

RuleCheck::RuleCheck(FilteredList &filtered, RefMatches &matches)
    : matches_(matches), ordinalCutoff_(0), verbose_(false), filtered_(&filtered) {}

RuleCheck::~RuleCheck() = default;
RuleCheck::RuleCheck(const RuleCheck &) = default;
RuleCheck &RuleCheck::operator=(const RuleCheck &) = default;

bool RuleCheck::skips(const RefRule &rule) const {
    return rule.isNull() || (ordinalCutoff_ != 0 && rule->ordinal() >= ordinalCutoff_);
}

void RuleCheck::trace(const RefRule &rule) const {
    if (verbose_) {
        std::cout << rule->name() + '\n' << std::flush;
    }
}

void RuleCheck::eraseAll(RefRuleList &rules, const std::list<RefRule> &matched) {
    for (const RefRule &rule : matched) {
        rules.erase(rule);
    }
}

RuleContainer::RuleContainer() = default;

RuleContainer::~RuleContainer() = default;

RefRuleList &RuleContainer::headerRules(langID language) const {
    return rules(language, Rule::Header);
}

RefRuleList &RuleContainer::uriRules(langID language) const {
    return rules(language, Rule::Uri);
}

RefRuleList &RuleContainer::bodyRules(langID language) const {
    return rules(language, Rule::Body);
}

RefRuleList &RuleContainer::rawBodyRules(langID language) const {
    return rules(language, Rule::RawBody);
}

RefRuleList &RuleContainer::fullRules(langID language) const {
    return rules(language, Rule::Full);
}

RefRuleList &RuleContainer::metaRules(langID language) const {
    return rules(language, Rule::Meta);
}

RefRuleList &RuleContainer::rules(langID language, Rule::Type kind) const {
    s_requireLanguage(language);
    if (kind < Rule::Header || kind > Rule::Meta) {
        fail("getRules", Exception::kUnknownEnumerator, kFile, __LINE__, kUnhandledType);
    }
    auto &byKind = lists_[static_cast<std::size_t>(language)];
    auto found = byKind.find(kind);
    if (found == byKind.end()) {
        found = byKind.emplace(kind, RefRuleList(new WatchedRuleList)).first;
    }
    return found->second;
}

RefRule RuleContainer::find(const std::string &name, langID language, bool patternKindsOnly) const {
    s_requireLanguage(language);
    RefRule result;
    if (name.empty()) {
        return result;
    }
    const unsigned int last = patternKindsOnly ? Rule::RawBody : Rule::Meta;
    for (unsigned int kind = Rule::Header; kind <= last && result.isNull(); ++kind) {
        result = rules(language, static_cast<Rule::Type>(kind)).find(name);
    }
    return result;
}

} // namespace Heuristic
} // namespace Corvane
