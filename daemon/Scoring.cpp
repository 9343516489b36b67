#include "Scoring.h"

#include <algorithm>
#include <array>
#include <exception>

#include "report/Numbers.h"

namespace Corvane::Milter {

namespace {

bool s_hit(const corvane::Verdict &verdict, std::string_view limit) {
    const auto &limits = verdict.limits();
    return std::find(limits.begin(), limits.end(), limit) != limits.end();
}

// What is over the threshold is so whatever was left out; only a message that is not may be
// undecided.
Cause s_cause(const corvane::Verdict &verdict) {
    if (verdict.over()) {
        return Cause::None;
    }
    if (s_hit(verdict, "budget")) {
        return Cause::Budget;
    }
    return s_hit(verdict, "message-bytes") ? Cause::TooLarge : Cause::None;
}

OnError s_onError(Cause cause, const Config::Errors &errors) {
    switch (cause) {
    case Cause::NoRules:
        return errors.noRules;
    case Cause::Budget:
        return errors.budget;
    case Cause::TooLarge:
        return errors.tooLarge;
    case Cause::Internal:
        return errors.internal;
    default:
        // It passes: there will be a scan for it later.
        return OnError::TempFail;
    }
}

void s_scan(corvane::MessageCollector &message, const Setup &setup, Profiler &profiler,
            Scored &scored) {
    try {
        const auto profile = profiler.sample(setup.rules);
        scored.verdict = profile != nullptr ? message.finish(setup.rules, *profile)
                                            : message.finish(setup.rules);
        scored.cause = s_cause(scored.verdict);
        scored.score = Reporting::shownTotal(scored.verdict, setup.config.scan.threshold);
    } catch (const std::exception &failure) {
        scored.cause = Cause::Internal;
        scored.reason = failure.what();
    }
}

} // namespace

std::string_view nameOf(Status status) {
    constexpr std::array<std::string_view, 4> kNames = {"clean", "hit", "error", "skipped"};
    return kNames.at(static_cast<std::size_t>(status));
}

std::string_view nameOf(Action action) {
    constexpr std::array<std::string_view, 5> kNames = {"none", "tag", "quarantine", "reject",
                                                        "discard"};
    return kNames.at(static_cast<std::size_t>(action));
}

std::string_view nameOf(Cause cause) {
    constexpr std::array<std::string_view, 6> kNames = {"",       "no_rules",  "busy",
                                                        "budget", "too_large", "internal"};
    return kNames.at(static_cast<std::size_t>(cause));
}

Scored score(corvane::MessageCollector &message, const Setup &setup, Slots &slots,
             Profiler &profiler) {
    using Clock = std::chrono::steady_clock;
    Scored scored;
    scored.status = Status::Error;
    if (setup.rules.empty()) {
        scored.cause = Cause::NoRules;
        message.reset();
        return scored;
    }
    const Clock::time_point begun = Clock::now();
    const Slots::Taken slot = slots.take(setup.config.bounds.wait);
    scored.waited = Clock::now() - begun;
    if (!slot) {
        scored.cause = Cause::Busy;
        message.reset();
        return scored;
    }
    s_scan(message, setup, profiler, scored);
    if (scored.cause == Cause::None) {
        scored.status = scored.verdict.over() ? Status::Hit : Status::Clean;
    }
    return scored;
}

Decision decide(const Scored &scored, const Config &config) {
    Decision decision;
    if (scored.status == Status::Error) {
        decision.tempFail = s_onError(scored.cause, config.onError) == OnError::TempFail;
    } else if (scored.hasVerdict()) {
        if (const Band *band = config.bandOf(scored.score)) {
            decision.action = band->action;
            decision.text = band->text;
        }
    }
    return decision;
}

} // namespace Corvane::Milter
