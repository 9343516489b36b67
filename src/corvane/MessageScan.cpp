#include "corvane/MessageScan.h"

#include <algorithm>
#include <optional>
#include <stdexcept>
#include <utility>

#include "corvane/MessageReading.h"
#include "corvane/RuleProfileState.h"
#include "heuristic/FullRule.h"
#include "host/parser/Budget.h"
#include "host/parser/MimePart.h"

namespace corvane {

namespace {

using Clock = std::chrono::steady_clock;
using Corvane::Budget;
using Corvane::Buffer;
using Corvane::Mail;
using Corvane::MailLimit;
using Corvane::Heuristic::langID;
using Corvane::Heuristic::RefMatches;
using Corvane::Heuristic::RefRule;
using Corvane::Heuristic::Scanner;

// The tap takes a copy of each piece: small ones keep that copy small.
constexpr std::size_t kTapPieceBytes = 65536;

} // namespace

Verdict MessageScan::scan(std::string_view message) {
    try {
        run(message);
    } catch (const Corvane::Exception &failure) {
        throw std::runtime_error(failure.what());
    }
    return std::move(verdict_);
}

void MessageScan::run(std::string_view message) {
    Budget budget(options_.budget);
    const Budget::Use use(budget);
    std::optional<Corvane::Heuristic::RuleProfile::Use> profiled;
    if (profile_ != nullptr) {
        profiled.emplace(profile_->state_->costs);
    }
    // A handle of its own: many threads share the set.
    Scanner scanner = rules_.scanner;
    const Clock::time_point start = Clock::now();
    const Mail mail = Corvane::MailReader(mailLimits(options_.limits)).read(message);
    const langID language = Scanner::selectLanguage(mail.properties()->part().operator->());
    const Clock::time_point read = Clock::now();

    RefMatches matches = RefMatches::create();
    matches->threshold(options_.stop ? options_.threshold : 0.0F);
    tap(scanner, language, message, matches);
    verdict_.mask_ = scanner.process(matches, mail.properties(), senderOf(options_, mail),
                                     options_.percent, options_.trace);
    take(matches);
    verdict_.language_ = languageName(language);
    for (const MailLimit limit : mail.limitsHit()) {
        verdict_.limits_.emplace_back(mailLimitName(limit));
    }
    verdict_.disguise_ = {mail.disguise().hiddenTextBytes, mail.disguise().invisibleCharacters};
    if (budget.ended()) {
        verdict_.limits_.emplace_back("budget");
    }
    verdict_.stepLimited_ = budget.stepLimited();
    verdict_.stepLimitedRules_ = budget.stepLimitedRules();
    verdict_.readingTime_ = read - start;
    verdict_.scanningTime_ = Clock::now() - read;
    if (profile_ != nullptr) {
        profile(matches);
    }
}

// Full rules see the message's lines as they are; no cutoff reaches the tap.
void MessageScan::tap(Scanner &scanner, langID language, std::string_view message,
                      RefMatches &matches) const {
    Corvane::Heuristic::FullTap tap(scanner, scanner.rules().fullRules(language), matches,
                                    options_.percent, options_.trace);
    const std::string_view read =
        message.substr(0, mailLimits(options_.limits).value(MailLimit::MessageBytes));
    // The tap never checks an unterminated last line, so that need not be kept twice.
    const std::size_t length = read.rfind('\n') + 1;
    for (std::size_t from = 0; from < length; from += kTapPieceBytes) {
        const std::size_t bytes = std::min(kTapPieceBytes, length - from);
        tap.write(Buffer(read.data() + from, static_cast<unsigned int>(bytes), true));
    }
    tap.end();
}

void MessageScan::take(const RefMatches &matches) {
    verdict_.score_ = matches.score(false);
    verdict_.over_ = verdict_.score_ > options_.threshold;
    verdict_.stopped_ = matches->tripped();
    verdict_.hits_.reserve(matches->size());
    for (const RefRule &match : *matches) {
        const Corvane::Heuristic::Rule &rule = *match;
        const LoadedRules::Origin &origin = rules_.origins[rule.ordinal()];
        if (ordinals_ != nullptr) {
            ordinals_->push_back(rule.ordinal());
        }
        verdict_.hits_.push_back({rule.name(), static_cast<RuleKind>(rule.type()), scoreOf(rule),
                                  rules_.descriptions[origin.description],
                                  rules_.files[origin.file], origin.line});
    }
}

void MessageScan::profile(const RefMatches &matches) const {
    for (const RefRule &match : *matches) {
        profile_->state_->tripped(match->ordinal());
    }
    profile_->state_->scanned(verdict_);
}

} // namespace corvane
