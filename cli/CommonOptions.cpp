#include "CommonOptions.h"

#include <cmath>
#include <cstdlib>
#include <limits>

namespace Corvane::Cli {

namespace {

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
    return CLI::detail::lexical_cast(text, value) && value > 0 && value <= kMaxWorkers
               ? std::string()
               : "'" + text + "' is no number of threads; give one from 1 to " +
                     std::to_string(kMaxWorkers);
}

std::string s_refuseBudget(const std::string &text) {
    constexpr double kMostSeconds = 1e6;
    double value = 0.0;
    return CLI::detail::lexical_cast(text, value) && value >= 0.0 && value <= kMostSeconds
               ? std::string()
               : "'" + text +
                     "' is no number of seconds up to 1000000; give one such as 0.5, or 0 for no "
                     "bound";
}

std::string s_refuseInclude(const std::string &text) {
    return !text.empty() && text.find('/') == std::string::npos
               ? std::string()
               : "'" + text + "' is no pattern for a file's name; give one such as '*.eml'";
}

} // namespace

CLI::Option_group *addRuleSources(CLI::App &app, RuleArguments &arguments) {
    CLI::Option_group *source = app.add_option_group("Rules");
    source
        ->add_option("--rules", arguments.rules,
                     "Directory that holds the rule set; may be given more than once: the first "
                     "definition of a rule counts, and the last score")
        ->allow_extra_args(false)
        ->type_name("DIR");
    CLI::Option *set =
        source
            ->add_option("--set", arguments.set,
                         "Instead: a set that corvane-milter has saved, by its generation or what "
                         "that begins with")
            ->type_name("ID");
    source->require_option(1);
    app.add_option("--sets", arguments.sets, "Where such sets are")
        ->needs(set)
        ->capture_default_str()
        ->type_name("DIR");
    return source;
}

void addVerdictOptions(CLI::App &app, corvane::ScanOptions &options) {
    app.add_option("--percent", options.percent,
                   "Try only the rules loaded first, so many in a hundred; 0 is all. Full rules "
                   "are tried on the lines of a message in any case")
        ->capture_default_str()
        ->check(s_refusePercent, "")
        ->type_name("P");
    app.add_option("--threshold", options.threshold, "Score above which a message counts as over")
        ->capture_default_str()
        ->check(s_refuseNonFinite, "")
        ->type_name("SCORE");
    app.add_flag("--stop", options.stop,
                 "Stop with a message once it is over the threshold (not for one of 0)");
}

CLI::Option *addBudgetOption(CLI::App &app, double &seconds) {
    return app
        .add_option("--budget", seconds,
                    "Processor time that the scan of one message may take; 0 is any")
        ->capture_default_str()
        ->check(s_refuseBudget, "")
        ->type_name("SECONDS");
}

std::chrono::nanoseconds budgetOf(double seconds) {
    return std::chrono::ceil<std::chrono::nanoseconds>(std::chrono::duration<double>(seconds));
}

void addMessageOptions(CLI::App &app, MessageArguments &arguments) {
    app.add_option("--sender", arguments.sender,
                   "Envelope sender of the messages, instead of their Return-Path")
        ->expected(1)
        ->type_name("ADDR");
    addIncludeOption(app, arguments.include);
    app.add_option("MESSAGE", arguments.messages,
                   "Message files, mbox files, directories of them, Maildirs; - is standard "
                   "input")
        ->required()
        ->type_name("");
}

void addIncludeOption(CLI::App &app, std::vector<std::string> &include) {
    app.add_option("--include", include,
                   "Of the files in directories, only those whose names match GLOB; may be given "
                   "more than once")
        ->allow_extra_args(false)
        ->check(s_refuseInclude, "")
        ->type_name("GLOB");
}

void addWorkersOption(CLI::App &app, unsigned int &workers) {
    app.add_option("-j", workers, "Threads that scan, 1 to 64")
        ->capture_default_str()
        ->check(s_refuseWorkers, "")
        ->type_name("N");
}

} // namespace Corvane::Cli
