#ifndef CORVANE_CLI_COMMANDTREE_H
#define CORVANE_CLI_COMMANDTREE_H

// The command's subcommands with their options, in one place for all that needs them: the command
// itself, its pages and what shells complete.
//
// Threads: one thread.

#include <functional>
#include <istream>
#include <ostream>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "Corpus.h"
#include "Ctl.h"
#include "Explain.h"
#include "Lint.h"
#include "RuleSetCopy.h"
#include "Scan.h"
#include "Texts.h"

namespace Corvane::Cli {

class CommandTree {
public:
    CommandTree();
    CommandTree(const CommandTree &) = delete;
    CommandTree &operator=(const CommandTree &) = delete;

    // What parses a command line into this object, which must outlive it.
    CLI::App &app() { return m_app; }

    // The subcommand that the command line named, with the names of those above it, as in
    // "ctl status"; empty where it named none.
    std::string chosen() const;

    // The innermost subcommand of chosen(), or app().
    const CLI::App &innermost() const;

    // Runs the subcommand that was named and answers the exit status. out must not be std::cout,
    // to which the libraries may write a trace.
    int run(std::istream &in, std::ostream &out, std::ostream &err) const;

private:
    struct Streams {
        std::istream &in;
        std::ostream &out;
        std::ostream &err;
    };

    struct Command {
        // As chosen() says it, or what that begins with.
        std::string name;
        std::function<int(const Streams &)> run;
    };

    CLI::App m_app;
    ScanArguments m_scan;
    ExplainArguments m_explain;
    TextsArguments m_text;
    LintArguments m_lint;
    RuleSetCopyOptions m_encrypt;
    RuleSetCopyOptions m_decrypt;
    CorpusArguments m_corpus;
    CtlArguments m_ctl;
    std::vector<Command> m_commands;
};

} // namespace Corvane::Cli

#endif
