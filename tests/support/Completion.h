#ifndef CORVANE_TESTS_SUPPORT_COMPLETION_H
#define CORVANE_TESTS_SUPPORT_COMPLETION_H

// What shells complete of a command line, made from the options that the command declares.
//
// One thread.

#include <string>

#include <CLI/CLI.hpp>

namespace Corvane {

enum class Shell { Bash, Zsh, Fish };

// The script for a shell, as it is installed.
std::string completionOf(CLI::App &command, Shell shell);

} // namespace Corvane

#endif
