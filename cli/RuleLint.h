#ifndef CORVANE_CLI_RULELINT_H
#define CORVANE_CLI_RULELINT_H

// Finds lines that the loader drops, or reads otherwise than they look. It hears what the loader
// makes of each line and parses nothing anew.
//
// Threads: one thread, for one load.

#include <map>
#include <set>
#include <string>
#include <vector>

#include "Finding.h"
#include "heuristic/LoadObserver.h"

namespace Corvane::Cli {

class RuleLint final : public Heuristic::LoadObserver {
public:
    // What was found, by file in the order of reading, then by line and column.
    std::vector<Finding> findings() const;

    unsigned int files() const { return static_cast<unsigned int>(files_.size()); }

    void fileBegins(const std::string &path, bool isEncrypted) override;
    // Throws code 4: rules that cannot be read cannot be judged.
    void fileUnreadable(const std::string &path, int error) override;
    void line(const Heuristic::LoadedLine &line) override;

private:
    // The score line that counts for a name.
    struct ScoreLine {
        std::string file;
        unsigned int line = 0;
        unsigned int column = 0;
    };

    void add(const Heuristic::LoadedLine &line, unsigned int column, Level level,
             const std::string &code, const std::string &text, const std::string &remedy);
    void checkBytes(const Heuristic::LoadedLine &line);
    void checkComment(const Heuristic::LoadedLine &line);
    void checkRefusal(const Heuristic::LoadedLine &line);
    void checkDuplicate(const Heuristic::LoadedLine &line);
    void checkRule(const Heuristic::LoadedLine &line);
    void checkKeyword(const Heuristic::LoadedLine &line);
    void checkScore(const Heuristic::LoadedLine &line);

    std::vector<std::string> files_;
    std::vector<Finding> findings_;
    std::set<std::string> rules_;
    std::map<std::string, ScoreLine> scores_;
};

} // namespace Corvane::Cli

#endif
