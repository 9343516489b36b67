#ifndef CORVANE_CLI_FINDING_H
#define CORVANE_CLI_FINDING_H

// What lint has to say of a line of a rule file.
//
// Threads: plain values.

#include <cstddef>
#include <string>

namespace Corvane::Cli {

enum class Level { Warning, Error };

struct Finding {
    std::string file;
    // From 1; the column counts bytes.
    unsigned int line = 0;
    unsigned int column = 0;
    Level level = Level::Error;
    // Stable, such as "unknown-keyword"; docs/lint.md lists them.
    std::string code;
    std::string text;
    std::string remedy;
    // A piece of the line to show, and how many characters of it stand before the fault; empty where
    // the place says enough.
    std::string excerpt;
    std::size_t caret = 0;
};

} // namespace Corvane::Cli

#endif
