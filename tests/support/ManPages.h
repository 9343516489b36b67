#ifndef CORVANE_TESTS_SUPPORT_MANPAGES_H
#define CORVANE_TESTS_SUPPORT_MANPAGES_H

// Manual pages of the subcommands, made from what their --help says.
//
// One thread.

#include <map>
#include <string>

#include <CLI/CLI.hpp>

namespace Corvane {

// The pages by the names of their files, such as "corvane-corpus-run.1".
std::map<std::string, std::string> manPagesOf(CLI::App &command);

} // namespace Corvane

#endif
