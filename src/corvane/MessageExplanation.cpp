#include "corvane/MessageExplanation.h"

#include <algorithm>
#include <array>
#include <limits>
#include <stdexcept>
#include <tuple>
#include <utility>

#include "corvane/Failure.h"
#include "corvane/MessageReading.h"
#include "corvane/MessageScan.h"
#include "corvane/MetaTree.h"
#include "heuristic/HeaderRule.h"
#include "heuristic/TextTrial.h"
#include "host/parser/Budget.h"

namespace corvane {

namespace {

using Corvane::Buffer;
using Corvane::Exception;
using Corvane::MailLimit;
using Corvane::MailLimits;
using Corvane::Heuristic::HeaderRule;
using Corvane::Heuristic::MetaRule;
using Corvane::Heuristic::RefMatches;
using Corvane::Heuristic::RefRule;
using Corvane::Heuristic::ScannedText;
using Corvane::Heuristic::ScanTexts;
using Corvane::Heuristic::TextTrial;
using Source = ScannedText::Source;

// How far tries that come to nothing are followed, about a second; and how much more than a limit
// lets through is looked at behind it.
constexpr std::uint64_t kMostFollowedSteps = 20'000'000;
constexpr unsigned int kBeyondFactor = 16;
constexpr unsigned int kBeyondDepthFactor = 4;

ExplainedText s_explained(const ScannedText &text) {
    ExplainedText told;
    told.source = sourceName(text.source);
    told.number = text.number;
    told.piece = text.piece;
    told.header = std::string(text.header);
    if (text.kind == Corvane::Heuristic::Rule::Header) {
        told.form = formName(text.form);
    }
    if (text.source == Source::Uri) {
        told.uriSource = Corvane::Heuristic::uriSourceName(text.uriSource);
    }
    told.offset = text.offset;
    told.text.assign(reinterpret_cast<const char *>(text.text.data()), text.text.length());
    return told;
}

ExplainedText s_explained(const ScannedText &text, const TextTrial &trial) {
    ExplainedText told = s_explained(text);
    told.hasRange = trial.range.matched;
    told.start = trial.range.start;
    told.end = trial.range.end;
    return told;
}

std::string s_listed(const std::vector<std::string_view> &names) {
    std::string text;
    for (const std::string_view name : names) {
        text += (text.empty() ? "" : ", ") + std::string(name);
    }
    return text;
}

} // namespace

std::string_view reasonName(Reason reason) noexcept {
    constexpr std::array<std::string_view, 16> kNames = {
        "tripped",          "not-loaded",     "other-language", "switched-off",
        "never-trips",      "beyond-percent", "not-reached",    "budget-ended",
        "name-taken",       "header-absent",  "no-text",        "beyond-limit",
        "pattern-given-up", "excluded",       "no-match",       "expression-false"};
    const auto number = static_cast<std::size_t>(reason);
    return number < kNames.size() ? kNames[number] : "unknown";
}

Explanation MessageExplanation::explain(std::string_view message,
                                        const std::vector<std::string> &names) {
    try {
        run(message, names);
    } catch (const Exception &failure) {
        throw std::runtime_error(failure.what());
    }
    return std::move(explanation_);
}

void MessageExplanation::run(std::string_view message, const std::vector<std::string> &names) {
    constexpr std::array<std::string_view, 4> kReasons = {"no-text", "unknown-charset", "charset",
                                                          "letters"};
    ScanOptions options = options_;
    options.trace = false;
    MessageScan scan(rules_, options);
    scan.ordinalsTo(hitOrdinals_);
    explanation_.verdict = scan.scan(message);

    const MailLimits limits = mailLimits(options_.limits);
    mail_ = Corvane::MailReader(limits).read(message);
    all_ = message;
    message_ = message.substr(0, limits.value(MailLimit::MessageBytes));
    sender_ = senderOf(options_, *mail_);
    const Corvane::Heuristic::LanguageChoice choice =
        Corvane::Heuristic::languageOf(mail_->properties()->part().operator->());
    language_ = choice.language;
    explanation_.languageReason = kReasons.at(static_cast<std::size_t>(choice.reason));

    std::vector<Tripped> tripped;
    for (const unsigned int ordinal : hitOrdinals_) {
        const std::size_t entry = entryOf(ordinal);
        tripped.push_back({entry, ordinal, {}});
        tripped.back().search.rule = &ruleOf(rules_.rules[entry], ordinal);
    }
    locate(tripped);
    tell(tripped);
    for (const std::string &name : names) {
        tellOf(name);
    }
}

std::size_t MessageExplanation::entryOf(unsigned int ordinal) const {
    const auto found = std::lower_bound(rules_.ordinals.begin(), rules_.ordinals.end(), ordinal);
    return static_cast<std::size_t>(found - rules_.ordinals.begin());
}

// Of a rule for the message's language.
const MessageExplanation::HeuristicRule &MessageExplanation::ruleOf(const Rule &rule,
                                                                    unsigned int ordinal) const {
    // As a plain handle, which does not note the access as a possible change.
    const Corvane::Ref<Corvane::Heuristic::RuleList> &list = rules_.scanner.rules().rules(
        language_, static_cast<Corvane::Heuristic::Rule::Type>(rule.kind));
    const auto found = std::find_if(list->begin(), list->end(), [ordinal](const RefRule &each) {
        return each->ordinal() == ordinal;
    });
    if (found == list->end()) {
        throw std::logic_error("a rule is in no list of its language");
    }
    return **found;
}

// A rule trips on the first text that does it, and those that the same text trips do in the order
// of the list; meta rules come last.
void MessageExplanation::locate(std::vector<Tripped> &tripped) const {
    std::sort(tripped.begin(), tripped.end(),
              [](const Tripped &a, const Tripped &b) { return a.ordinal < b.ordinal; });
    std::vector<Search *> searches;
    for (Tripped &each : tripped) {
        searches.push_back(&each.search);
    }
    look(searches);
    const auto placed = [](const Tripped &each) {
        const bool isMeta = each.search.rule->type() == HeuristicRule::Meta;
        return std::make_tuple(isMeta, !each.search.trips.has_value(), each.search.tripsAt);
    };
    std::stable_sort(tripped.begin(), tripped.end(), [&placed](const Tripped &a, const Tripped &b) {
        return placed(a) < placed(b);
    });
}

// Once the total is over, a scan that stops there tries no more rules on a text that another rule
// has tripped on: the next ones have their turn with the next text, if any.
void MessageExplanation::look(std::vector<Search *> &searches) const {
    Corvane::Budget budget(options_.budget);
    const Corvane::Budget::Use use(budget);
    std::size_t number = 0;
    float total = 0.0F;
    bool isOver = false;
    ScanTexts(message_, *mail_, sender_).each([&](const ScannedText &text) {
        ++number;
        for (Search *search : searches) {
            if (search->trips.has_value() || !isTriedOn(*search->rule, text)) {
                continue;
            }
            lookAt(text, number, *search);
            if (search->trips.has_value()) {
                total += scoreOf(*search->rule);
                isOver = isOver || total > options_.threshold;
                if (isOver && explanation_.verdict.stopped()) {
                    return;
                }
            }
        }
    });
}

void MessageExplanation::lookAt(const ScannedText &text, std::size_t number, Search &search) {
    constexpr std::array<Stage, 9> kStages = {
        Stage::Lines,   Stage::Headers,    Stage::Headers, Stage::Text,        Stage::Text,
        Stage::RawBody, Stage::SecondText, Stage::Uris,    Stage::WholeHeaders};
    search.isTried = true;
    const TextTrial trial = tryOn(*search.rule, text);
    search.isGivenUp = search.isGivenUp || trial.failed;
    if (trial.range.matched && !search.matches.has_value()) {
        search.matches = s_explained(text, trial);
    }
    if (trial.trips) {
        search.trips = s_explained(text, trial);
        search.tripsAt = number;
        search.stage = kStages.at(static_cast<std::size_t>(text.source));
    }
}

void MessageExplanation::tell(const std::vector<Tripped> &tripped) {
    float total = 0.0F;
    bool isOver = false;
    for (const Tripped &each : tripped) {
        RuleExplanation told;
        told.reason = Reason::Tripped;
        told.rule = rules_.rules[each.entry];
        told.name = told.rule->name;
        told.where = each.search.trips;
        const bool isMeta = told.rule->kind == RuleKind::Meta;
        if (isMeta) {
            told.steps = metaTree(static_cast<const MetaRule &>(*each.search.rule),
                                  trippedBefore(each.ordinal));
        } else if (!told.where.has_value()) {
            told.detail = "the time for looking was over before the place was found";
        }
        total += told.rule->score;
        told.total = total;
        if (!isOver && total > options_.threshold) {
            isOver = true;
            lastStage_ = isMeta ? Stage::Metas : each.search.stage;
            lastOrdinal_ = each.ordinal;
        }
        explanation_.tripped.push_back(std::move(told));
    }
}

// What a meta rule has seen: of the other meta rules those before it.
RefMatches MessageExplanation::trippedBefore(unsigned int ordinal) const {
    RefMatches matches = RefMatches::create();
    for (const unsigned int hit : hitOrdinals_) {
        const Rule &rule = rules_.rules[entryOf(hit)];
        if (rule.kind != RuleKind::Meta || hit < ordinal) {
            matches->insert(RefRule(Corvane::Heuristic::Rule::Body, rule.name));
        }
    }
    return matches;
}

void MessageExplanation::tellOf(const std::string &name) {
    bool isLoaded = false;
    for (std::size_t entry = 0; entry < rules_.rules.size(); ++entry) {
        if (rules_.rules[entry].name == name) {
            isLoaded = true;
            tellOf(rules_.rules[entry], rules_.ordinals[entry]);
        }
    }
    if (!isLoaded) {
        refuse(name);
    }
}

void MessageExplanation::refuse(const std::string &name) {
    RuleExplanation told;
    told.name = name;
    told.reason = Reason::NotLoaded;
    for (const Problem &problem : rules_.problems) {
        if (problem.rule == name) {
            told.detail += (told.detail.empty() ? "" : "; ") + printable(problem.file) + ':' +
                           std::to_string(problem.line) + ": " + problem.text;
        }
    }
    explanation_.untripped.push_back(std::move(told));
}

void MessageExplanation::tellOf(const Rule &rule, unsigned int ordinal) {
    if (std::find(hitOrdinals_.begin(), hitOrdinals_.end(), ordinal) != hitOrdinals_.end()) {
        return;
    }
    RuleExplanation told;
    told.name = rule.name;
    told.rule = rule;
    if (!settleUntried(rule, ordinal, told)) {
        const HeuristicRule &tried = ruleOf(rule, ordinal);
        if (rule.kind == RuleKind::Meta) {
            settleMeta(tried, told);
        } else {
            settle(tried, told);
        }
    }
    explanation_.untripped.push_back(std::move(told));
}

// Settles rules that no text decides on.
bool MessageExplanation::settleUntried(const Rule &rule, unsigned int ordinal,
                                       RuleExplanation &told) const {
    const std::string_view language = languageName(language_);
    if (std::find(rule.languages.begin(), rule.languages.end(), language) == rule.languages.end()) {
        told.reason = Reason::OtherLanguage;
        told.detail = "the message is tried with the rules for " + std::string(language) +
                      ", and this one is for " + s_listed(rule.languages);
        return true;
    }
    const HeuristicRule &tried = ruleOf(rule, ordinal);
    if (!rule.active) {
        told.reason = Reason::SwitchedOff;
        told.detail = tried.metasubrule() ? "no meta rule names it" : "its score is 0";
        return true;
    }
    const bool isIncomplete = rule.kind == RuleKind::Header
                                  ? !static_cast<const HeaderRule &>(tried).isComplete()
                                  : rule.kind != RuleKind::Meta && expressionOf(tried).isNull();
    if (isIncomplete) {
        told.reason = Reason::NeverTrips;
        told.detail = "its definition has no pattern";
        return true;
    }
    // Full rules are tried on lines in any case.
    if (isBeyondCutoff(tried) && rule.kind != RuleKind::Full) {
        told.reason = Reason::BeyondPercent;
        return true;
    }
    return false;
}

bool MessageExplanation::isBeyondCutoff(const HeuristicRule &rule) const {
    const unsigned int cutoff = rules_.scanner.getordinalCutoff(options_.percent);
    return cutoff != 0 && rule.ordinal() >= cutoff;
}

// Whether the scan came to a stage that the rule is tried in.
bool MessageExplanation::isReached(const HeuristicRule &rule) const {
    constexpr std::array<Stage, 7> kFirst = {Stage::Lines, Stage::Headers, Stage::Uris,
                                             Stage::Text,  Stage::RawBody, Stage::Lines,
                                             Stage::Metas};
    if (!explanation_.verdict.stopped()) {
        return true;
    }
    const Stage first = kFirst.at(rule.type());
    return first < lastStage_ ||
           (first == lastStage_ && (first != Stage::Metas || rule.ordinal() < lastOrdinal_));
}

void MessageExplanation::settleMeta(const HeuristicRule &rule, RuleExplanation &told) const {
    if (!isReached(rule)) {
        told.reason = Reason::NotReached;
        return;
    }
    const auto &meta = static_cast<const MetaRule &>(rule);
    const RefMatches before = trippedBefore(rule.ordinal());
    try {
        told.steps = metaTree(meta, before);
        (void)meta.valueOf(meta.atoms().begin(), meta.atoms().end(), before);
    } catch (const Exception &) {
        told.steps.clear();
        told.reason = Reason::NeverTrips;
        told.detail = "its expression lacks an operand or a parenthesis, or is nested too deeply";
        return;
    }
    told.reason = meta.matches(before) ? whyNotTripped({}, told) : Reason::ExpressionFalse;
}

// Why a rule did not trip that does so when it is tried.
Reason MessageExplanation::whyNotTripped(const Search &search, const RuleExplanation &told) const {
    const std::vector<std::string_view> &limits = explanation_.verdict.limits();
    const std::vector<Hit> &hits = explanation_.verdict.hits();
    if (search.stage == Stage::WholeHeaders && isBeyondCutoff(*search.rule)) {
        return Reason::BeyondPercent;
    }
    if (std::any_of(hits.begin(), hits.end(),
                    [&told](const Hit &hit) { return hit.name == told.name; })) {
        return Reason::NameTaken;
    }
    const bool isBudget = std::find(limits.begin(), limits.end(), "budget") != limits.end();
    return isBudget ? Reason::BudgetEnded : Reason::NotReached;
}

void MessageExplanation::settle(const HeuristicRule &rule, RuleExplanation &told) const {
    Search search;
    search.rule = &rule;
    std::vector<Search *> searches = {&search};
    look(searches);
    if (search.trips.has_value()) {
        told.where = search.trips;
        told.reason = whyNotTripped(search, told);
    } else if (!isReached(rule)) {
        told.reason = Reason::NotReached;
    } else {
        settleNoMatch(rule, search, told);
    }
}

void MessageExplanation::settleNoMatch(const HeuristicRule &rule, const Search &search,
                                       RuleExplanation &told) const {
    told.where = findBeyondLimits(rule);
    if (told.where.has_value()) {
        told.reason = Reason::BeyondLimit;
        const std::vector<std::string_view> &limits = explanation_.verdict.limits();
        told.detail = limits.empty() ? std::string() : "limits hit: " + s_listed(limits);
    } else if (!search.isTried) {
        told.reason = rule.type() == HeuristicRule::Header ? Reason::HeaderAbsent : Reason::NoText;
    } else if (search.isGivenUp) {
        told.reason = Reason::PatternGivenUp;
    } else if (search.matches.has_value()) {
        told.reason = Reason::Excluded;
        told.where = search.matches;
    } else {
        told.reason = Reason::NoMatch;
        told.nearest = nearest(rule);
    }
}

// In what a scan does not read: the rest of a body, and what the limits of the message cut off.
std::optional<ExplainedText> MessageExplanation::findBeyondLimits(const HeuristicRule &rule) const {
    std::optional<ExplainedText> found;
    const auto take = [&rule, &found](const ScannedText &text) {
        const TextTrial trial =
            found.has_value() || !isTriedOn(rule, text) ? TextTrial() : tryOn(rule, text);
        if (trial.trips) {
            found = s_explained(text, trial);
        }
    };
    Corvane::Budget budget(options_.budget);
    const Corvane::Budget::Use use(budget);
    ScanTexts(message_, *mail_, sender_).each([&take](const ScannedText &text) {
        ScanTexts::eachUnread(text, take);
    });
    if (found.has_value() || mail_->limitsHit().empty()) {
        return found;
    }
    MailLimits limits = mailLimits(options_.limits);
    for (const MailLimit limit : mail_->limitsHit()) {
        const std::uint64_t factor =
            limit == MailLimit::NestingDepth ? kBeyondDepthFactor : kBeyondFactor;
        limits.value(limit, static_cast<unsigned int>(std::min<std::uint64_t>(
                                limits.value(limit) * factor, std::numeric_limits<int>::max())));
    }
    const Corvane::Mail whole = Corvane::MailReader(limits).read(all_);
    ScanTexts(all_.substr(0, limits.value(MailLimit::MessageBytes)), whole, sender_)
        .each([&take](const ScannedText &text) {
            take(text);
            ScanTexts::eachUnread(text, take);
        });
    return found;
}

std::optional<NearestTry> MessageExplanation::nearest(const HeuristicRule &rule) const {
    const Corvane::Regex::Expression &expression = expressionOf(rule);
    std::optional<NearestTry> best;
    std::uint64_t steps = kMostFollowedSteps;
    bool isComplete = true;
    ScanTexts(message_, *mail_, sender_).each([&](const ScannedText &text) {
        if (!isTriedOn(rule, text)) {
            return;
        }
        const Corvane::Regex::FurthestTry furthest =
            expression->furthest(text.text.data(), text.text.length(), steps);
        isComplete = isComplete && furthest.isComplete;
        const std::size_t taken = furthest.end - furthest.start;
        if (!furthest.isKnown ||
            (best.has_value() &&
             std::make_pair(taken, furthest.item) <=
                 std::make_pair(best->text.end - best->text.start, best->item))) {
            return;
        }
        best.emplace();
        best->text = s_explained(text);
        best->text.hasRange = true;
        best->text.start = furthest.start;
        best->text.end = furthest.end;
        best->pattern = expression->pattern();
        best->item = furthest.item;
        best->itemLength = furthest.itemLength;
    });
    if (best.has_value()) {
        best->isComplete = isComplete;
    }
    return best;
}

} // namespace corvane
