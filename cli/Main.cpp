#include <exception>
#include <iostream>
#include <string>

#include <CLI/CLI.hpp>

#include "Decrypt.h"
#include "Encrypt.h"
#include "ExitStatus.h"
#include "Scan.h"

namespace {

using namespace Corvane::Cli;

std::string s_explain(const CLI::App *app, const CLI::Error &error) {
    return std::string("corvane: ") + error.what() + "\nRun 'corvane " +
           (app->get_subcommands().empty() ? ""
                                           : app->get_subcommands().front()->get_name() + ' ') +
           "--help' for what can be given.\n";
}

// The library would only say that a subcommand is missing.
std::string s_refuseSubcommand(int argc, char **argv) {
    const std::string known = "there are scan, encrypt and decrypt; try 'corvane --help'\n";
    return argc > 1 ? std::string("corvane: unknown subcommand '") + argv[1] + "'; " + known
                    : "corvane: name a subcommand; " + known;
}

// The library complains of what is missing first, even where an option was not known.
std::string s_unknownOption(const CLI::App &app) {
    for (const std::string &rest : app.remaining(true)) {
        if (rest.size() > 1 && rest.front() == '-') {
            return "corvane: unknown option '" + rest + "'; a file of that name is given as ./" +
                   rest + "\n";
        }
    }
    return {};
}

int s_run(int argc, char **argv) {
    CLI::App app("Scores e-mail messages against heuristic rules.", "corvane");
    app.set_version_flag("--version", std::string("corvane ") + CORVANE_VERSION);
    app.require_subcommand(1);
    app.failure_message(s_explain);
    ScanOptions scan;
    RuleSetCopyOptions encrypt;
    RuleSetCopyOptions decrypt;
    addScanCommand(app, scan);
    addEncryptCommand(app, encrypt);
    addDecryptCommand(app, decrypt);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        const bool isOption = argc > 1 && argv[1][0] == '-';
        if (error.get_exit_code() != 0 && app.get_subcommands().empty() && !isOption) {
            std::cerr << s_refuseSubcommand(argc, argv);
            return kExitFailed;
        }
        if (error.get_exit_code() != 0) {
            std::cerr << s_unknownOption(app);
        }
        return app.exit(error) == 0 ? kExitClean : kExitFailed;
    }
    // A stream of their own for the results: std::cout may be sent elsewhere.
    std::ostream out(std::cout.rdbuf());
    if (app.got_subcommand("encrypt")) {
        return runEncrypt(encrypt, out, std::cerr);
    }
    if (app.got_subcommand("decrypt")) {
        return runDecrypt(decrypt, out, std::cerr);
    }
    return runScan(scan, out, std::cerr);
}

} // namespace

int main(int argc, char **argv) {
    try {
        return s_run(argc, argv);
    } catch (const std::exception &failure) {
        std::cerr << "corvane: " << failure.what() << '\n';
    } catch (...) {
        std::cerr << "corvane: failed for an unknown reason\n";
    }
    return Corvane::Cli::kExitFailed;
}
