#include "Explain.h"

#include <algorithm>
#include <optional>

#include "ExitStatus.h"
#include "ExplainReport.h"
#include "Failure.h"
#include "MessageSource.h"
#include "RuleLoad.h"
#include "Sender.h"
#include "host/parser/Logger.h"

namespace Corvane::Cli {

namespace {

bool s_isUndecided(const corvane::Verdict &verdict) {
    const auto &limits = verdict.limits();
    return !verdict.over() && std::find(limits.begin(), limits.end(), "budget") != limits.end();
}

int s_run(const ExplainArguments &arguments, std::ostream &out, std::ostream &err) {
    corvane::ScanOptions options = arguments.scan;
    options.sender = givenSender(arguments.sender);
    options.budget = budgetOf(arguments.budgetSeconds);
    const corvane::RuleSet rules = loadGivenRules(arguments, err);
    MessageSource source(arguments.messages, arguments.include, options.limits.messageBytes);
    ExplainReport report(out, options.threshold, arguments.json);
    bool isFailed = false;
    bool isOver = false;
    while (const std::optional<RawMessage> raw = source.next()) {
        if (!raw->failure.empty()) {
            err << "corvane: " << Logger::printable(raw->failure) << '\n';
            isFailed = true;
            continue;
        }
        const corvane::Explanation why = rules.explain(raw->bytes, options, arguments.names);
        report.message(*raw, why);
        isOver = isOver || why.verdict.over();
        isFailed = isFailed || s_isUndecided(why.verdict);
        const int error = flushed(out);
        if (error != 0) {
            refuse("cannot write the explanations: " + systemReason(error));
        }
    }
    return isFailed ? kExitFailed : isOver ? kExitOver : kExitClean;
}

} // namespace

void addExplainCommand(CLI::App &app, ExplainArguments &arguments) {
    CLI::App *explain = app.add_subcommand(
        "explain", "Show where rules tripped on messages, and why others did not");
    addRuleSources(*explain, arguments);
    explain
        ->add_option("--rule", arguments.names,
                     "Say of the rules of this name why they did not trip; may be given more than "
                     "once")
        ->allow_extra_args(false)
        ->type_name("NAME");
    addVerdictOptions(*explain, arguments.scan);
    addBudgetOption(*explain, arguments.budgetSeconds);
    addMessageOptions(*explain, arguments);
    explain->add_flag("--json", arguments.json, "Print one JSON object a line for each message");
    explain->footer("Exit status: as of scan: 0 no message is over the threshold; 1 at least one "
                    "is; 2 something could not be read or written, or not be tried within the "
                    "budget, or the command line is wrong.\n");
}

int runExplain(const ExplainArguments &arguments, std::ostream &out, std::ostream &err) {
    try {
        return s_run(arguments, out, err);
    } catch (const Exception &failure) {
        err << "corvane: " << readable(failure) << '\n';
        return kExitFailed;
    }
}

} // namespace Corvane::Cli
