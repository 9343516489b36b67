#include <exception>
#include <iostream>
#include <string>

#include <CLI/CLI.hpp>

#include "ExitStatus.h"
#include "Scan.h"

namespace {

using namespace Corvane::Cli;

int s_run(int argc, char **argv) {
    CLI::App app("Scores e-mail messages against heuristic rules.", "corvane");
    app.set_version_flag("--version", std::string("corvane ") + CORVANE_VERSION);
    app.require_subcommand(1);
    ScanOptions scan;
    addScanCommand(app, scan);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? kExitClean : kExitFailed;
    }
    return runScan(scan, std::cout, std::cerr);
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
