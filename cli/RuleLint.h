#ifndef CORVANE_CLI_RULELINT_H
#define CORVANE_CLI_RULELINT_H

// Finds lines that the loader drops, or reads otherwise than they look, and has MetaLint and SetLint
// look at what was loaded. It hears what the loader makes of each line and parses nothing anew.
//
// Threads: one thread, for one load.

#include <string>
#include <string_view>
#include <vector>

#include "Finding.h"
#include "LintedRule.h"
#include "SetLint.h"
#include "heuristic/LoadObserver.h"

namespace Corvane::Cli {

class RuleLint final : public Heuristic::LoadObserver {
public:
    // What was found, by file in the order of reading, then by line and column. For when the load is over.
    std::vector<Finding> findings() const;

    unsigned int files() const { return static_cast<unsigned int>(files_.size()); }

    void fileBegins(const std::string &path, bool isEncrypted) override;
    // Throws code 4: rules that cannot be read cannot be judged.
    void fileUnreadable(const std::string &path, int error) override;
    void content(std::string_view bytes) override;
    void line(const Heuristic::LoadedLine &line) override;

private:
    void add(const Heuristic::LoadedLine &line, unsigned int column, Level level,
             const std::string &code, const std::string &text, const std::string &remedy);
    void checkBytes(const Heuristic::LoadedLine &line);
    void checkComment(const Heuristic::LoadedLine &line);
    void checkRefusal(const Heuristic::LoadedLine &line);
    void checkDuplicate(const Heuristic::LoadedLine &line);
    void checkRule(const Heuristic::LoadedLine &line);
    void checkHeader(const Heuristic::LoadedLine &line);
    void checkKeyword(const Heuristic::LoadedLine &line);
    void checkScore(const Heuristic::LoadedLine &line);

    std::vector<std::string> files_;
    std::vector<Finding> findings_;
    std::vector<LintedRule> rules_;
    std::vector<LintedScore> scores_;
};

} // namespace Corvane::Cli

#endif
