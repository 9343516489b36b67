#include <algorithm>
#include <exception>
#include <iostream>
#include <new>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "CommandTree.h"
#include "ExitStatus.h"
#include "Failure.h"
#include "host/parser/Logger.h"

namespace {

using namespace Corvane::Cli;

std::string s_explain(const CommandTree &tree, const std::string &fault) {
    const std::string chosen = tree.chosen();
    return "corvane: " + fault + "\nRun 'corvane " + (chosen.empty() ? "" : chosen + ' ') +
           "--help' for what can be given.\n";
}

// "run, export and merge"
std::string s_listed(const std::vector<const CLI::App *> &subcommands) {
    std::string text;
    for (std::size_t i = 0; i < subcommands.size(); ++i) {
        const bool isLast = i + 1 == subcommands.size();
        text += (i == 0 ? "" : isLast ? " and " : ", ") + subcommands[i]->get_name();
    }
    return text;
}

// The library would only say that a subcommand is missing.
std::string s_subcommandFault(const CommandTree &tree) {
    const CLI::App &app = tree.innermost();
    const std::string above = tree.chosen().empty() ? "" : tree.chosen() + ' ';
    const std::string known = "there are " + s_listed(app.get_subcommands([](const CLI::App *each) {
                                  return !each->get_name().empty();
                              })) +
                              "; try 'corvane " + above + "--help'\n";
    const std::vector<std::string> rest = app.remaining(false);
    return rest.empty() ? "corvane: name a subcommand; " + known
                        : "corvane: unknown subcommand '" + above + rest.front() + "'; " + known;
}

std::string s_firstOption(const std::vector<std::string> &arguments) {
    const auto found =
        std::find_if(arguments.begin(), arguments.end(), [](const std::string &each) {
            return each.size() > 1 && each.front() == '-';
        });
    return found == arguments.end() ? std::string() : *found;
}

std::string s_repeatedOption(const CLI::App &app) {
    for (const CLI::App *subcommand : app.get_subcommands()) {
        for (const CLI::Option *option : subcommand->get_options()) {
            if (option->get_items_expected_max() == 1 && option->count() > 1) {
                return option->get_name() + " is given " + std::to_string(option->count()) +
                       " times; give it once";
            }
        }
        const std::string below = s_repeatedOption(*subcommand);
        if (!below.empty()) {
            return below;
        }
    }
    return {};
}

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
    return s_repeatedOption(app);
}

int s_written(std::ostream &out) {
    const int error = flushed(out);
    if (error != 0) {
        std::cerr << "corvane: cannot write to standard output: " << systemReason(error) << '\n';
    }
    return error == 0 ? kExitClean : kExitFailed;
}

int s_refuse(CommandTree &tree, const CLI::ParseError &error, int argc, char **argv) {
    const CLI::App &innermost = tree.innermost();
    const bool lacksSubcommand = innermost.get_require_subcommand_min() > 0;
    const bool isOption = argc > 1 && argv[1][0] == '-';
    const std::string fault = s_optionFault(tree.app());
    if (lacksSubcommand && (tree.chosen().empty() ? !isOption : fault.empty())) {
        std::cerr << s_subcommandFault(tree);
    } else {
        std::cerr << s_explain(tree, fault.empty() ? error.what() : fault);
    }
    return kExitFailed;
}

int s_run(int argc, char **argv) {
    CommandTree tree;
    tree.app().set_version_flag("--version", std::string("corvane ") + CORVANE_VERSION);
    try {
        tree.app().parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        if (error.get_exit_code() != 0) {
            return s_refuse(tree, error, argc, argv);
        }
        tree.app().exit(error);
        return s_written(std::cout);
    }
    // A stream of their own for the results: std::cout may be sent elsewhere.
    std::ostream out(std::cout.rdbuf());
    return tree.run(std::cin, out, std::cerr);
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
