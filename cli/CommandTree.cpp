#include "CommandTree.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "Decrypt.h"
#include "Encrypt.h"
#include "Failure.h"

namespace Corvane::Cli {

namespace {

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

bool s_isBelow(const std::string &chosen, const std::string &name) {
    return chosen == name || chosen.compare(0, name.size() + 1, name + ' ') == 0;
}

} // namespace

CommandTree::CommandTree() : m_app("Scores e-mail messages against heuristic rules.", "corvane") {
    m_app.formatter(std::make_shared<HelpFormatter>());
    m_app.require_subcommand(1);
    addScanCommand(m_app, m_scan);
    addExplainCommand(m_app, m_explain);
    addTextCommand(m_app, m_text);
    addLintCommand(m_app, m_lint);
    addCorpusCommand(m_app, m_corpus);
    addEncryptCommand(m_app, m_encrypt);
    addDecryptCommand(m_app, m_decrypt);
    addCtlCommand(m_app, m_ctl);
    m_commands = {
        {"scan", [this](const Streams &with) { return runScan(m_scan, with.out, with.err); }},
        {"explain",
         [this](const Streams &with) { return runExplain(m_explain, with.out, with.err); }},
        {"text", [this](const Streams &with) { return runText(m_text, with.out, with.err); }},
        {"lint",
         [this](const Streams &with) { return runLint(m_lint, with.in, with.out, with.err); }},
        {"corpus",
         [this](const Streams &with) {
             return runCorpus(innermost().get_name(), m_corpus, with.out, with.err);
         }},
        {"encrypt",
         [this](const Streams &with) { return runEncrypt(m_encrypt, with.out, with.err); }},
        {"decrypt",
         [this](const Streams &with) { return runDecrypt(m_decrypt, with.out, with.err); }},
        {"ctl", [this](const Streams &with) { return runCtl(m_ctl, with.out, with.err); }},
    };
}

const CLI::App &CommandTree::innermost() const {
    const CLI::App *app = &m_app;
    while (!app->get_subcommands().empty()) {
        app = app->get_subcommands().front();
    }
    return *app;
}

std::string CommandTree::chosen() const {
    std::string names;
    const CLI::App *app = &m_app;
    while (!app->get_subcommands().empty()) {
        app = app->get_subcommands().front();
        names += (names.empty() ? "" : " ") + app->get_name();
    }
    return names;
}

int CommandTree::run(std::istream &in, std::ostream &out, std::ostream &err) const {
    const std::string name = chosen();
    const auto found =
        std::find_if(m_commands.begin(), m_commands.end(),
                     [&name](const Command &each) { return s_isBelow(name, each.name); });
    if (found == m_commands.end()) {
        refuse("'" + name + "' is no subcommand; see 'corvane --help'");
    }
    return found->run({in, out, err});
}

} // namespace Corvane::Cli
