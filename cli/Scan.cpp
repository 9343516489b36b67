#include "Scan.h"

#include <cmath>
#include <cstdlib>
#include <iostream>
#include <limits>
#include <memory>
#include <optional>

#include <unistd.h>

#include "ExitStatus.h"
#include "Failure.h"
#include "LogSummary.h"
#include "MessageSource.h"
#include "Progress.h"
#include "Report.h"
#include "RuleDirectory.h"
#include "ScanMessage.h"
#include "WorkerPool.h"

namespace Corvane::Cli {

namespace {

// Sends what is written to std::cout to standard error while it lives.
class TraceToStandardError {
public:
    TraceToStandardError() : former_(std::cout.rdbuf(std::cerr.rdbuf())) {}
    TraceToStandardError(const TraceToStandardError &) = delete;
    TraceToStandardError &operator=(const TraceToStandardError &) = delete;
    ~TraceToStandardError() { std::cout.rdbuf(former_); }

private:
    std::streambuf *former_;
};

// Shows verdicts as they come and counts them.
class Results {
public:
    Results(const ScanOptions &options, std::ostream &out, std::ostream &err)
        : out_(out), err_(err),
          report_(options.json ? makeJsonReport(out)
                               : makeTextReport(out, options.threshold, s_colours())),
          progress_(err, s_progress(options)) {}

    void take(const Verdict &verdict) {
        if (verdict.failure.empty()) {
            ++totals_.scanned;
            totals_.over += verdict.over ? 1U : 0U;
        } else {
            ++totals_.failed;
            // So that the two come in order where they go to one place.
            flush();
            progress_.clear();
            err_ << "corvane: " << Logger::printable(verdict.failure) << '\n';
        }
        report_->message(verdict);
        flush();
        progress_.step(totals_);
    }

    // Whether nobody takes the results any more, as when the reader of a pipe has gone.
    bool isBroken() const { return !out_; }

    void finish() {
        progress_.clear();
        report_->summary(totals_);
        flush();
    }

    // Why results could not be written, as a number of the system's; 0 where they were.
    int error() const { return error_; }

    const Totals &totals() const { return totals_; }

private:
    void flush() {
        const int error = flushed(out_);
        error_ = error_ == 0 ? error : error_;
    }

    static Colours s_colours() {
        const char *noColor = std::getenv("NO_COLOR");
        const bool refused = noColor != nullptr && *noColor != '\0';
        return !refused && isatty(STDOUT_FILENO) != 0 ? Colours::On : Colours::Off;
    }

    // Results that run over the terminal, and a trace, show progress enough.
    static Progress::Mode s_progress(const ScanOptions &options) {
        const bool isAlone = isatty(STDERR_FILENO) != 0 && isatty(STDOUT_FILENO) == 0;
        return isAlone && !options.verbose ? Progress::Mode::On : Progress::Mode::Off;
    }

    std::ostream &out_;
    std::ostream &err_;
    std::unique_ptr<Report> report_;
    Progress progress_;
    Totals totals_;
    int error_ = 0;
};

// "<>" and "" stand for the empty sender that bounces have.
std::optional<EmailAddress> s_sender(const ScanOptions &options) {
    if (options.sender.empty()) {
        return {};
    }
    const std::string &text = options.sender.back();
    EmailAddress sender = EmailAddress::rfc5322Parse(text, true);
    if (sender.isNull() && !text.empty() && text != "<>") {
        refuse("'" + text + "' is no address; --sender takes one such as joe@example.org, or <>");
    }
    return sender;
}

ScanSettings s_settings(const ScanOptions &options, LogSummary &log) {
    if (options.verbose && options.workers > 1) {
        refuse("--verbose shows the rules in the order they are tried; leave -j out");
    }
    ScanSettings settings;
    settings.sender = s_sender(options);
    settings.percent = options.percent;
    settings.threshold = options.threshold;
    settings.stop = options.stop;
    settings.verbose = options.verbose;
    settings.scanner = loadRules(options.rules, log);
    return settings;
}

void s_scanAll(const ScanSettings &settings, const ScanOptions &options, Results &results) {
    MessageSource source(options.messages, settings.limits.value(MailLimit::MessageBytes));
    WorkerPool pool(options.workers);
    while (!results.isBroken()) {
        const std::optional<RawMessage> message = source.next();
        if (!message) {
            break;
        }
        const auto task = [&settings, &results, message]() -> WorkerPool::Finish {
            const auto verdict = std::make_shared<const Verdict>(scanMessage(settings, *message));
            return [&results, verdict] { results.take(*verdict); };
        };
        pool.submit(task, message->bytes.length());
    }
    pool.drain();
}

int s_exitStatus(const Totals &totals) {
    if (totals.failed > 0) {
        return kExitFailed;
    }
    return totals.over > 0 ? kExitOver : kExitClean;
}

std::string s_refuseNonFinite(const std::string &text) {
    constexpr const char *kRemedy = "; give the score above which a message counts as over";
    long double value = 0.0L;
    const bool isNumber = CLI::detail::lexical_cast(text, value) && !std::isnan(value);
    const bool isInfinity = std::isinf(value) && text.find_first_of("0123456789") == text.npos;
    if (!isNumber || isInfinity) {
        return "'" + text + "' is no number" + kRemedy;
    }
    return std::abs(value) > std::numeric_limits<float>::max()
               ? "'" + text + "' is out of range" + kRemedy
               : std::string();
}

std::string s_refusePercent(const std::string &text) {
    constexpr unsigned int kMost = 100;
    unsigned int value = 0;
    return CLI::detail::lexical_cast(text, value) && value <= kMost
               ? std::string()
               : "'" + text + "' is no percentage; give a whole number from 0 to 100";
}

std::string s_refuseWorkers(const std::string &text) {
    unsigned int value = 0;
    return CLI::detail::lexical_cast(text, value) && value > 0 && value <= ScanOptions::kMaxWorkers
               ? std::string()
               : "'" + text + "' is no number of threads; give one from 1 to " +
                     std::to_string(ScanOptions::kMaxWorkers);
}

void s_addRuleOptions(CLI::App &scan, ScanOptions &options) {
    scan.add_option("--rules", options.rules, "Directory that holds the rule set")
        ->required()
        ->type_name("DIR");
    scan.add_option("--percent", options.percent,
                    "Try only the rules loaded first, so many in a hundred; 0 is all. Full rules "
                    "are tried on the lines of a message in any case")
        ->capture_default_str()
        ->check(s_refusePercent, "")
        ->type_name("P");
    scan.add_option("--threshold", options.threshold, "Score above which a message counts as over")
        ->capture_default_str()
        ->check(s_refuseNonFinite, "")
        ->type_name("SCORE");
    scan.add_flag("--stop", options.stop,
                  "Stop with a message once it is over the threshold (not for one of 0)");
}

} // namespace

void addScanCommand(CLI::App &app, ScanOptions &options) {
    CLI::App *scan = app.add_subcommand("scan", "Score messages and show which rules tripped");
    s_addRuleOptions(*scan, options);
    scan->add_option("--sender", options.sender,
                     "Envelope sender of the messages, instead of their Return-Path")
        ->expected(1)
        ->type_name("ADDR");
    scan->add_option("-j", options.workers, "Threads that scan, 1 to 64")
        ->capture_default_str()
        ->check(s_refuseWorkers, "")
        ->type_name("N");
    scan->add_flag("--json", options.json, "Print one JSON object a line for each message");
    scan->add_flag("--verbose", options.verbose,
                   "Name each rule on standard error before it is tried; not with -j");
    scan->add_option("MESSAGE", options.messages,
                     "Message files, mbox files, directories of them, Maildirs; - is standard "
                     "input")
        ->required()
        ->type_name("");
    scan->footer("Exit status: 0 no message is over the threshold, 1 at least one is, 2 something "
                 "could not be read.\n");
}

int runScan(const ScanOptions &options, std::ostream &out, std::ostream &err) {
    LogSummary log;
    ScanSettings settings;
    try {
        settings = s_settings(options, log);
    } catch (const Exception &failure) {
        log.show(err);
        err << "corvane: " << readable(failure) << '\n';
        return kExitFailed;
    }
    log.show(err);

    Results results(options, out, err);
    {
        const auto redirection =
            options.verbose ? std::make_unique<TraceToStandardError>() : nullptr;
        s_scanAll(settings, options, results);
    }
    results.finish();
    log.show(err);
    if (results.error() != 0) {
        err << "corvane: cannot write the results: " << systemReason(results.error()) << '\n';
        return kExitFailed;
    }
    return s_exitStatus(results.totals());
}

} // namespace Corvane::Cli
