#include "Scan.h"

#include <chrono>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <limits>
#include <memory>
#include <new>
#include <optional>
#include <string_view>
#include <utility>

#include <unistd.h>

#include "ExitStatus.h"
#include "Failure.h"
#include "MessageSource.h"
#include "Progress.h"
#include "RemoteRules.h"
#include "Report.h"
#include "RuleLoad.h"
#include "Sender.h"
#include "WorkerPool.h"
#include "host/parser/EmailAddress.h"
#include "host/parser/Logger.h"

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
    Results(const ScanArguments &arguments, const Reporting::ShownRuleSet &rules, std::ostream &out,
            std::ostream &err)
        : out_(out), err_(err), report_(s_report(arguments, rules, out)),
          progress_(err, s_progress(arguments)) {}

    void take(const MessageResult &result) {
        if (result.failure.empty()) {
            ++totals_.scanned;
            totals_.over += result.verdict.over ? 1U : 0U;
        } else {
            ++totals_.failed;
            complain(result.failure);
        }
        report_->message(result);
        if (result.isUndecided()) {
            ++totals_.undecided;
            complain("'" + MessageSource::label(result.file, result.index) +
                     "' is undecided: its budget was used up before all rules were tried; give a "
                     "larger --budget");
        }
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
    void complain(const std::string &sentence) {
        // So that the two come in order where they go to one place.
        flush();
        progress_.clear();
        err_ << "corvane: " << Logger::printable(sentence) << '\n';
    }

    void flush() {
        const int error = flushed(out_);
        error_ = error_ == 0 ? error : error_;
    }

    static std::unique_ptr<Report> s_report(const ScanArguments &arguments,
                                            const Reporting::ShownRuleSet &rules,
                                            std::ostream &out) {
        const char *noColor = std::getenv("NO_COLOR");
        const bool refused = noColor != nullptr && *noColor != '\0';
        ReportContext context{rules, arguments.scan.threshold, arguments.verbose,
                              !refused && isatty(STDOUT_FILENO) != 0};
        return arguments.json ? makeJsonReport(out, std::move(context))
                              : makeTextReport(out, std::move(context));
    }

    // Results that run over the terminal, and a trace, show progress enough.
    static Progress::Mode s_progress(const ScanArguments &arguments) {
        const bool isAlone = isatty(STDERR_FILENO) != 0 && isatty(STDOUT_FILENO) == 0;
        return isAlone && !arguments.verbose ? Progress::Mode::On : Progress::Mode::Off;
    }

    std::ostream &out_;
    std::ostream &err_;
    std::unique_ptr<Report> report_;
    Progress progress_;
    Totals totals_;
    int error_ = 0;
};

corvane::ScanOptions s_options(const ScanArguments &arguments) {
    if (arguments.verbose && arguments.workers > 1) {
        refuse("--verbose shows the rules in the order they are tried; leave -j out");
    }
    corvane::ScanOptions options = arguments.scan;
    options.sender = givenSender(arguments.sender);
    options.trace = arguments.verbose;
    options.budget = budgetOf(arguments.budgetSeconds);
    return options;
}

// Scans one message; called by several threads at once.
using ScanOne = std::function<void(const std::string &bytes, MessageResult &result)>;

// Nothing is thrown.
MessageResult s_scan(const ScanOne &scanOne, const RawMessage &message) {
    MessageResult result{message.file, message.index, message.failure, {}, {}};
    if (!result.failure.empty()) {
        return result;
    }
    const std::string failed =
        "cannot scan '" + MessageSource::label(message.file, message.index) + "': ";
    try {
        scanOne(message.bytes, result);
    } catch (const std::bad_alloc &) {
        result.failure = failed + kOutOfMemory;
    } catch (const std::exception &failure) {
        result.failure = failed + failure.what();
    }
    return result;
}

void s_scanAll(const ScanOne &scanOne, const ScanArguments &arguments, Results &results) {
    MessageSource source(arguments.messages, arguments.include, arguments.scan.limits.messageBytes);
    WorkerPool pool(arguments.workers);
    while (!results.isBroken()) {
        // Shared, so that a task and its copies hold one message.
        const auto message = std::make_shared<const std::optional<RawMessage>>(source.next());
        if (!message->has_value()) {
            break;
        }
        const auto task = [&scanOne, &results, message]() -> WorkerPool::Finish {
            const auto result = std::make_shared<const MessageResult>(s_scan(scanOne, **message));
            return [&results, result] { results.take(*result); };
        };
        pool.submit(task, (*message)->bytes.size());
    }
    pool.drain();
}

int s_exitStatus(const Totals &totals) {
    if (totals.failed > 0 || totals.undecided > 0) {
        return kExitFailed;
    }
    return totals.over > 0 ? kExitOver : kExitClean;
}

void s_addRuleOptions(CLI::App &scan, ScanArguments &arguments) {
    CLI::Option_group *source = addRuleSources(scan, arguments);
    CLI::Option *via =
        source
            ->add_option("--via", arguments.via,
                         "Instead: those that a running corvane-milter has loaded, by its control "
                         "socket; its budget counts then")
            ->type_name("SOCKET");
    scan.add_flag("--strict", arguments.strict, "End with status 2 if a rule was refused");
    addVerdictOptions(scan, arguments.scan);
    addBudgetOption(scan, arguments.budgetSeconds)->excludes(via);
}

int s_finish(const ScanArguments &arguments, const corvane::RuleCounts &counts, Results &results) {
    results.finish();
    if (results.error() != 0) {
        refuse("cannot write the results: " + systemReason(results.error()));
    }
    if (arguments.strict && counts.refused > 0) {
        refuse("rules were refused, which is a failure with --strict: " +
               std::to_string(counts.refused));
    }
    return s_exitStatus(results.totals());
}

int s_runVia(const ScanArguments &arguments, std::ostream &out, std::ostream &err) {
    if (arguments.verbose) {
        refuse("--verbose shows what is tried here, and --via tries it elsewhere; leave one out");
    }
    const RemoteRules remote(arguments.via, s_options(arguments));
    const Reporting::ShownRuleSet rules = remote.ruleSet();
    Results results(arguments, rules, out, err);
    s_scanAll(
        [&remote](const std::string &bytes, MessageResult &result) {
            Reporting::ScanReply reply = remote.scan(bytes);
            result.verdict = std::move(reply.verdict);
            result.rules = std::move(reply.rules);
        },
        arguments, results);
    return s_finish(arguments, rules.counts, results);
}

int s_run(const ScanArguments &arguments, std::ostream &out, std::ostream &err) {
    if (!arguments.via.empty()) {
        return s_runVia(arguments, out, err);
    }
    const corvane::ScanOptions options = s_options(arguments);
    const corvane::RuleSet rules = loadGivenRules(arguments, err);
    showProblems(rules, err,
                 arguments.verbose ? std::numeric_limits<std::size_t>::max() : kMostProblems);
    Results results(arguments, Reporting::shown(rules), out, err);
    {
        const auto redirection =
            arguments.verbose ? std::make_unique<TraceToStandardError>() : nullptr;
        s_scanAll(
            [&](const std::string &bytes, MessageResult &result) {
                result.verdict =
                    Reporting::shown(rules.scan(bytes, options), arguments.scan.threshold);
            },
            arguments, results);
    }
    return s_finish(arguments, rules.counts(), results);
}

} // namespace

void addScanCommand(CLI::App &app, ScanArguments &arguments) {
    CLI::App *scan = app.add_subcommand("scan", "Score messages and show which rules tripped");
    s_addRuleOptions(*scan, arguments);
    addMessageOptions(*scan, arguments);
    addWorkersOption(*scan, arguments.workers);
    scan->add_flag("--json", arguments.json, "Print one JSON object a line for each message");
    scan->add_flag("--verbose", arguments.verbose,
                   "Name each rule on standard error before it is tried, and those that were given "
                   "up; not with -j");
    scan->footer("Exit status: 0 no message is over the threshold; 1 at least one is; 2 something "
                 "could not be read or written, or not be tried within the budget, a rule was "
                 "refused with --strict, or the command line is wrong.\n");
}

int runScan(const ScanArguments &arguments, std::ostream &out, std::ostream &err) {
    try {
        return s_run(arguments, out, err);
    } catch (const Exception &failure) {
        err << "corvane: " << readable(failure) << '\n';
        return kExitFailed;
    }
}

} // namespace Corvane::Cli
