#include "Lint.h"

#include <algorithm>
#include <filesystem>
#include <sstream>

#include "ExitStatus.h"
#include "Failure.h"
#include "LintReport.h"
#include "RuleLint.h"
#include "RuleSetFiles.h"
#include "heuristic/Scanner.h"

namespace Corvane::Cli {

namespace {

using Heuristic::RuleSource;

std::vector<RuleSource> s_sources(const LintArguments &arguments, std::istream &in) {
    std::vector<RuleSource> sources;
    for (const std::string &directory : arguments.directories) {
        // Refuses a directory that is missing, which loading would take for an empty one.
        const RuleSetFiles files(directory);
        sources.push_back({directory, {}});
    }
    if (!arguments.standardInput.empty()) {
        const std::filesystem::path path(arguments.standardInput);
        std::ostringstream text;
        text << in.rdbuf();
        sources.push_back(
            {path.parent_path().string(), {{{path.filename().string(), text.str()}}}});
    }
    return sources;
}

void s_write(const LintArguments &arguments, const std::vector<Finding> &findings,
             std::ostream &out) {
    if (arguments.isJson) {
        writeLintJson(findings, out);
    } else if (arguments.isSarif) {
        writeLintSarif(findings, out);
    } else {
        writeLintText(findings, arguments.isEach ? LintLines::Each : LintLines::Grouped, out);
    }
}

} // namespace

void addLintCommand(CLI::App &app, LintArguments &arguments) {
    CLI::App *lint = app.add_subcommand("lint", "Say what is wrong with the files of a rule set");
    CLI::Option *directories =
        lint->add_option("dir", arguments.directories, "Directories that hold rule files")
            ->type_name("DIR");
    lint->add_option("--stdin", arguments.standardInput,
                     "Read one rule file from standard input, and call it so")
        ->type_name("NAME")
        ->excludes(directories);
    lint->add_flag("--strict", arguments.isStrict, "Let warnings count as errors");
    CLI::Option *each = lint->add_flag("--each", arguments.isEach,
                                       "Write a line for each place, for programs that read them");
    CLI::Option *json =
        lint->add_flag("--json", arguments.isJson, "Write what was found as JSON")->excludes(each);
    lint->add_flag("--sarif", arguments.isSarif, "Write what was found as SARIF 2.1.0")
        ->excludes(each)
        ->excludes(json);
}

int runLint(const LintArguments &arguments, std::istream &in, std::ostream &out,
            std::ostream &err) {
    if (arguments.directories.empty() && arguments.standardInput.empty()) {
        refuse("lint has nothing to read; name a directory with rule files, or --stdin NAME");
    }
    RuleLint lint;
    const Heuristic::Scanner scanner(s_sources(arguments, in), lint);
    if (lint.files() == 0) {
        refuse("no rule files to check; their names end in .cf, those of scores in .score");
    }
    const std::vector<Finding> findings = lint.findings();
    s_write(arguments, findings, out);
    const int error = flushed(out);
    if (error != 0) {
        err << "corvane: cannot write to standard output: " << systemReason(error) << '\n';
        return kExitFailed;
    }
    const bool isFaulty =
        std::any_of(findings.begin(), findings.end(), [&arguments](const Finding &each) {
            return arguments.isStrict || each.level == Level::Error;
        });
    return isFaulty ? kExitOver : kExitClean;
}

} // namespace Corvane::Cli
