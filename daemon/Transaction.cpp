#include "Transaction.h"

#include <algorithm>

#include "StatusHeader.h"
#include "Text.h"
#include "corvane/Engine.h"

namespace Corvane::Milter {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kMostAddressBytes = 1024;
constexpr std::size_t kMostMessageIdBytes = 512;

std::string_view s_withoutBrackets(std::string_view address) {
    if (address.size() > 1 && address.front() == '<' && address.back() == '>') {
        address.remove_prefix(1);
        address.remove_suffix(1);
    }
    return address;
}

// The server looks for a header by its name without the blanks before the colon.
std::string_view s_trimmed(std::string_view text) {
    const std::size_t end = text.find_last_not_of(" \t\r\n");
    text = text.substr(0, end == std::string_view::npos ? 0 : end + 1);
    const std::size_t begin = text.find_first_not_of(" \t\r\n");
    return begin == std::string_view::npos ? std::string_view() : text.substr(begin);
}

double s_millis(std::chrono::nanoseconds time) {
    return std::chrono::duration<double, std::milli>(time).count();
}

std::vector<std::string_view> s_rules(const corvane::Verdict &verdict) {
    std::vector<std::string_view> names;
    for (const corvane::Hit &hit : verdict.hits()) {
        names.emplace_back(hit.name);
    }
    return names;
}

Outcome::Answer s_answer(const Decision &decision) {
    if (decision.tempFail) {
        return Outcome::Answer::TempFail;
    }
    switch (decision.action) {
    case Action::Reject:
        return Outcome::Answer::Reject;
    case Action::Discard:
        return Outcome::Answer::Discard;
    default:
        return Outcome::Answer::Accept;
    }
}

} // namespace

Transaction::Transaction(Shared &shared, const std::optional<Address> &client, Blanks blanks)
    : shared_(shared), client_(client), blanks_(blanks) {}

Transaction::~Transaction() {
    end();
}

void Transaction::begin(std::string_view sender, Client client) {
    end();
    setup_ = shared_.live.current();
    corvane::ScanOptions options = setup_->config.scanOptions();
    sender_ = std::string(s_withoutBrackets(sender).substr(0, kMostAddressBytes));
    options.sender = sender_;
    message_.reset(std::move(options));
    kind_ = client;
    messageId_.clear();
    recipients_ = 0;
    exempt_ = 0;
    bytes_ = 0;
    forged_.clear();
    failed_ = false;
    begin_ = Clock::now();
    begun_ = true;
    ++shared_.messages;
}

void Transaction::recipient(std::string_view address) {
    if (!begun_) {
        return;
    }
    ++recipients_;
    const std::vector<std::string> &exempt = setup_->config.skip.recipients;
    if (exempt.empty()) {
        return;
    }
    const std::string whole = lowercase(s_withoutBrackets(address));
    const std::size_t at = whole.rfind('@');
    const std::string domain = at == std::string::npos ? std::string() : whole.substr(at);
    exempt_ += std::any_of(exempt.begin(), exempt.end(),
                           [&](const std::string &each) { return each == whole || each == domain; })
                   ? 1U
                   : 0U;
}

void Transaction::header(std::string_view name, std::string_view value) {
    if (!begun_) {
        return;
    }
    const std::size_t before = message_.bytes().size() + message_.dropped();
    if (blanks_ == Blanks::Kept) {
        message_.rawHeader(name, value);
    } else {
        message_.header(name, value);
    }
    bytes_ += message_.bytes().size() + message_.dropped() - before;
    countHeader(s_trimmed(name), value);
}

void Transaction::countHeader(std::string_view name, std::string_view value) {
    constexpr std::string_view kMessageId = "Message-ID";
    const std::string &prefix = setup_->config.headers.prefix;
    if (messageId_.empty() && equalsIgnoringCase(name, kMessageId)) {
        messageId_ = std::string(s_trimmed(value).substr(0, kMostMessageIdBytes));
    }
    if (!equalsIgnoringCase(name.substr(0, prefix.size()), prefix)) {
        return;
    }
    for (const std::string_view ours : {kStatusName, kReportName}) {
        if (equalsIgnoringCase(name.substr(prefix.size()), ours)) {
            ++forged_[prefix + std::string(ours)];
        }
    }
}

void Transaction::endOfHeaders() {
    if (begun_) {
        message_.body({});
        ++bytes_;
    }
}

void Transaction::body(std::string_view bytes) {
    if (begun_) {
        message_.body(bytes);
        bytes_ += bytes.size();
    }
}

void Transaction::fail(const std::string &reason) noexcept {
    failed_ = true;
    try {
        failure_ = reason;
    } catch (...) {
        failure_.clear();
    }
    message_.reset();
}

void Transaction::abort() noexcept {
    end();
    message_.reset();
}

void Transaction::end() noexcept {
    if (begun_) {
        begun_ = false;
        --shared_.messages;
    }
    setup_.reset();
}

bool Transaction::isSkipped(const Config &config) const {
    if (config.skip.authenticated && kind_ == Client::Authenticated) {
        return true;
    }
    const auto &networks = config.skip.networks;
    if (client_.has_value() &&
        std::any_of(networks.begin(), networks.end(),
                    [this](const Network &each) { return each.holds(*client_); })) {
        return true;
    }
    return recipients_ > 0 && exempt_ == recipients_;
}

Scored Transaction::scored(const SetupRef &setup, const std::string &id) {
    Scored scored;
    if (failed_) {
        scored.status = Status::Error;
        scored.cause = Cause::Internal;
        scored.reason = failure_;
    } else if (!isSkipped(setup_->config)) {
        // Scoring drops what was collected.
        std::optional<std::string> copy;
        if (shared_.shadow.wants(*setup)) {
            copy = message_.bytes();
        }
        scored = score(message_, *setup, shared_.slots, shared_.profiler);
        if (copy.has_value() && scored.hasVerdict()) {
            shared_.shadow.submit(
                {setup, std::move(*copy), sender_, scored.verdict, id, messageId_});
        }
    }
    message_.reset();
    return scored;
}

void Transaction::removeForged(Outcome &outcome) const {
    for (const auto &[name, count] : forged_) {
        for (int each = count; each > 0; --each) {
            outcome.removals.emplace_back(name, each);
        }
    }
}

void Transaction::addHeaders(const Scored &scored, const Setup &setup, const std::string &id,
                             Outcome &outcome) const {
    const Config::Headers &headers = setup.config.headers;
    // Where the server keeps the blanks of values, it also puts none in front of ours.
    const std::string blank = blanks_ == Blanks::Kept ? " " : "";
    if (headers.report && scored.status != Status::Skipped) {
        outcome.additions.emplace_back(headers.prefix + std::string(kReportName),
                                       blank + reportValue(scored));
    }
    outcome.additions.emplace_back(headers.prefix + std::string(kStatusName),
                                   blank + statusValue(scored, setup, id));
}

Outcome Transaction::finish(const std::string &id) {
    Outcome outcome;
    if (!begun_) {
        outcome.answer = Outcome::Answer::TempFail;
        return outcome;
    }
    shared_.metrics.received();
    // The newest: rules may have been loaded since the message began.
    const SetupRef setup = shared_.live.current();
    const Scored scored = this->scored(setup, id);
    const Decision decision = decide(scored, setup->config);
    outcome.answer = s_answer(decision);
    outcome.text = decision.text;
    if (outcome.answer == Outcome::Answer::Accept) {
        removeForged(outcome);
        if (decision.action != Action::None) {
            addHeaders(scored, *setup, id, outcome);
        }
        if (decision.action == Action::Quarantine) {
            outcome.hold = "score " + std::to_string(scored.score);
        }
    }
    const std::string action =
        decision.tempFail ? "tempfail" : std::string(nameOf(decision.action));
    shared_.metrics.scored(scored, action, Clock::now() - begin_);
    log(scored, *setup, id, action);
    end();
    return outcome;
}

void Transaction::log(const Scored &scored, const Setup &setup, const std::string &id,
                      const std::string &action) const {
    LogLine line(LogLevel::Info, "message");
    line.add("id", id, kMostAddressBytes)
        .add("message_id", messageId_, kMostMessageIdBytes)
        .add("client", toString(client_))
        .add("sender", sender_, kMostAddressBytes)
        .add("recipients", std::uint64_t{recipients_})
        .add("size", std::uint64_t{bytes_})
        .add("verdict", nameOf(scored.status))
        .add("action", action);
    if (scored.cause != Cause::None) {
        line.add("cause", nameOf(scored.cause));
    }
    if (!scored.reason.empty()) {
        line.add("reason", scored.reason);
    }
    std::string limits;
    for (const std::string_view limit : scored.verdict.limits()) {
        limits.append(limits.empty() ? "" : ",").append(limit);
    }
    line.add("score", scored.score)
        .addNames("rules", s_rules(scored.verdict))
        .add("limits", limits)
        .add("generation", setup.rules.generation())
        .add("engine", corvane::engine())
        .addMillis("wait_ms", s_millis(scored.waited))
        .addMillis("scan_ms",
                   s_millis(scored.verdict.readingTime() + scored.verdict.scanningTime()))
        .addMillis("total_ms", s_millis(Clock::now() - begin_));
    shared_.log.write(line);
}

} // namespace Corvane::Milter
