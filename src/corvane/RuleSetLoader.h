#ifndef CORVANE_SRC_CORVANE_RULESETLOADER_H
#define CORVANE_SRC_CORVANE_RULESETLOADER_H

// Loads a rule set and keeps what people want to know of it.
//
// Threads: one, for one load.

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "corvane/LoadedRules.h"
#include "heuristic/LoadObserver.h"
#include "host/crypto/Digest.h"

namespace corvane {

class RuleSetLoader final : private Corvane::Heuristic::LoadObserver {
public:
    // Throws LoadError as RuleSet::load says.
    static RuleSet load(const std::vector<Corvane::Heuristic::RuleSource> &sources);

    // What RuleSet::generation tells of a set that no file was read for.
    static std::string generationOfNothing();

private:
    explicit RuleSetLoader(const std::vector<Corvane::Heuristic::RuleSource> &sources);

    void run();
    void requireSources() const;
    [[noreturn]] void explain(const Corvane::Exception &failure) const;

    void fileBegins(const std::string &path, bool isEncrypted) override;
    void fileUnreadable(const std::string &path, int error) override;
    void content(std::string_view bytes) override;
    void line(const Corvane::Heuristic::LoadedLine &line) override;
    void loaded(unsigned int rules, int active, const std::string &version) override;

    void addProblem(ProblemCode code, const Corvane::Heuristic::LoadedLine &line,
                    unsigned int column, const std::string &text);
    void addClashes(const Corvane::Heuristic::LoadedLine &line);
    void notePlace(const Corvane::Heuristic::LoadedLine &line);
    void addRules();
    void describe(Rule &entry, const Corvane::Heuristic::Rule &rule) const;

    const std::vector<Corvane::Heuristic::RuleSource> &sources_;
    std::shared_ptr<LoadedRules> result_;
    Corvane::Crypto::Digest digest_;
    // The file that is read.
    std::string file_;
    bool isEncrypted_ = false;
    std::map<std::string, std::string> descriptions_;
    // File and line of the rules by ordinal.
    std::vector<std::pair<std::string, unsigned int>> places_;
};

} // namespace corvane

#endif
