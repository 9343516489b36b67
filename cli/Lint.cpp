#include "Lint.h"

#include <algorithm>
#include <filesystem>
#include <sstream>

#include <nlohmann/json.hpp>

#include "ExitStatus.h"
#include "Failure.h"
#include "RuleLint.h"
#include "RuleSetFiles.h"
#include "heuristic/Scanner.h"

namespace Corvane::Cli {

namespace {

using Heuristic::RuleSource;

constexpr int kJsonVersion = 1;

const char *s_levelName(Level level) {
    return level == Level::Error ? "error" : "warning";
}

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

void s_writeText(const std::vector<Finding> &findings, std::ostream &out) {
    for (const Finding &each : findings) {
        out << each.file << ':' << each.line << ':' << each.column << ": "
            << s_levelName(each.level) << ' ' << each.code << ": " << each.text << "; "
            << each.remedy << '\n';
    }
}

void s_writeJson(const std::vector<Finding> &findings, std::ostream &out) {
    nlohmann::ordered_json report = {{"version", kJsonVersion},
                                     {"findings", nlohmann::ordered_json::array()}};
    for (const Finding &each : findings) {
        report["findings"].push_back({{"file", each.file},
                                      {"line", each.line},
                                      {"column", each.column},
                                      {"level", s_levelName(each.level)},
                                      {"code", each.code},
                                      {"text", each.text},
                                      {"remedy", each.remedy}});
    }
    // File names may be no UTF-8.
    out << report.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
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
    lint->add_flag("--json", arguments.isJson, "Write what was found as JSON");
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
    if (arguments.isJson) {
        s_writeJson(findings, out);
    } else {
        s_writeText(findings, out);
    }
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
