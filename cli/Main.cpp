#include <algorithm>
#include <exception>
#include <iostream>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "Ctl.h"
#include "Decrypt.h"
#include "Encrypt.h"
#include "ExitStatus.h"
#include "Failure.h"
#include "Lint.h"
#include "Scan.h"
#include "Texts.h"
#include "host/parser/Logger.h"

namespace {

using namespace Corvane::Cli;

std::string s_explain(const CLI::App &app, const std::string &fault) {
    return "corvane: " + fault + "\nRun 'corvane " +
           (app.get_subcommands().empty() ? "" : app.get_subcommands().front()->get_name() + ' ') +
           "--help' for what can be given.\n";
}

// The library would only say that a subcommand is missing.
std::string s_refuseSubcommand(int argc, char **argv) {
    const std::string known =
        "there are scan, text, lint, encrypt, decrypt and ctl; try 'corvane --help'\n";
    return argc > 1 ? std::string("corvane: unknown subcommand '") + argv[1] + "'; " + known
                    : "corvane: name a subcommand; " + known;
}

std::string s_firstOption(const std::vector<std::string> &arguments) {
    const auto found =
        std::find_if(arguments.begin(), arguments.end(), [](const std::string &each) {
            return each.size() > 1 && each.front() == '-';
        });
    return found == arguments.end() ? std::string() : *found;
}

// An option that may be given more than once still takes one value each time, which dots behind it
// would deny.
class HelpFormatter final : public CLI::Formatter {
public:
    std::string make_option_opts(const CLI::Option *option) const override {
        const std::string dots = " ...";
        std::string text = CLI::Formatter::make_option_opts(option);
        const std::size_t found = text.find(dots);
        if (option->nonpositional() && found != std::string::npos) {
            text.erase(found, dots.size());
        }
        return text;
    }
};

// What the library would say less well. It complains of what is missing first, even where an option
// was not known.
std::string s_optionFault(const CLI::App &app) {
    const std::string early = s_firstOption(app.remaining(false));
    if (!early.empty()) {
        return "'" + early + "' is no option here; options go behind the subcommand, as in " +
               "'corvane scan --rules DIR MESSAGE'";
    }
    const std::string unknown = s_firstOption(app.remaining(true));
    if (!unknown.empty()) {
        return "unknown option '" + unknown + "'; a file of that name is given as ./" + unknown;
    }
    for (const CLI::App *subcommand : app.get_subcommands()) {
        for (const CLI::Option *option : subcommand->get_options()) {
            if (option->get_items_expected_max() == 1 && option->count() > 1) {
                return option->get_name() + " is given " + std::to_string(option->count()) +
                       " times; give it once";
            }
        }
    }
    return {};
}

int s_written(std::ostream &out) {
    const int error = flushed(out);
    if (error != 0) {
        std::cerr << "corvane: cannot write to standard output: " << systemReason(error) << '\n';
    }
    return error == 0 ? kExitClean : kExitFailed;
}

int s_refuse(const CLI::App &app, const CLI::ParseError &error, int argc, char **argv) {
    const bool isOption = argc > 1 && argv[1][0] == '-';
    if (app.get_subcommands().empty() && !isOption) {
        std::cerr << s_refuseSubcommand(argc, argv);
        return kExitFailed;
    }
    const std::string fault = s_optionFault(app);
    std::cerr << s_explain(app, fault.empty() ? error.what() : fault);
    return kExitFailed;
}

int s_run(int argc, char **argv) {
    CLI::App app("Scores e-mail messages against heuristic rules.", "corvane");
    app.set_version_flag("--version", std::string("corvane ") + CORVANE_VERSION);
    app.formatter(std::make_shared<HelpFormatter>());
    app.require_subcommand(1);
    ScanArguments scan;
    TextsArguments text;
    CtlArguments ctl;
    LintArguments lint;
    RuleSetCopyOptions encrypt;
    RuleSetCopyOptions decrypt;
    addScanCommand(app, scan);
    addTextCommand(app, text);
    addLintCommand(app, lint);
    addEncryptCommand(app, encrypt);
    addDecryptCommand(app, decrypt);
    addCtlCommand(app, ctl);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        if (error.get_exit_code() != 0) {
            return s_refuse(app, error, argc, argv);
        }
        app.exit(error);
        return s_written(std::cout);
    }
    // A stream of their own for the results: std::cout may be sent elsewhere.
    std::ostream out(std::cout.rdbuf());
    if (app.got_subcommand("text")) {
        return runText(text, out, std::cerr);
    }
    if (app.got_subcommand("encrypt")) {
        return runEncrypt(encrypt, out, std::cerr);
    }
    if (app.got_subcommand("decrypt")) {
        return runDecrypt(decrypt, out, std::cerr);
    }
    if (app.got_subcommand("ctl")) {
        return runCtl(ctl, out, std::cerr);
    }
    if (app.got_subcommand("lint")) {
        return runLint(lint, std::cin, out, std::cerr);
    }
    return runScan(scan, out, std::cerr);
}

// What the libraries log is what the problems of a rule set tell with their places, and no news of
// the system's.
void s_ignoreLog() {
    Corvane::Logger::instance(false).sink(
        [](unsigned int /*id*/, int /*level*/, const std::string & /*text*/) {});
}

} // namespace

int main(int argc, char **argv) {
    try {
        s_ignoreLog();
        return s_run(argc, argv);
    } catch (const Corvane::Exception &failure) {
        std::cerr << "corvane: " << readable(failure) << '\n';
    } catch (const std::bad_alloc &) {
        std::cerr << "corvane: " << kOutOfMemory << '\n';
    } catch (const std::exception &failure) {
        std::cerr << "corvane: " << failure.what() << '\n';
    } catch (...) {
        std::cerr << "corvane: failed for an unknown reason\n";
    }
    return Corvane::Cli::kExitFailed;
}
