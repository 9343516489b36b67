#include "RuleLoad.h"

#include <algorithm>
#include <stdexcept>

#include "Failure.h"
#include "Files.h"
#include "RuleSetFiles.h"
#include "report/SavedSets.h"

namespace Corvane::Cli {

namespace {

corvane::RuleSet s_load(const std::vector<std::string> &directories) {
    try {
        return corvane::RuleSet::load(directories);
    } catch (const corvane::LoadError &failure) {
        refuse(failure.what());
    }
}

// Why a directory gave no rules.
std::string s_emptiness(const std::string &directory) {
    const RuleSetFiles files(directory);
    const std::size_t read = files.loaded().size();
    return "no rules in '" + directory + "': " +
           (read == 0 ? "it holds no file " + files.patterns()
                      : "none of its " + std::to_string(read) + " " + files.patterns() +
                            " and score files holds a rule that can be loaded");
}

} // namespace

corvane::RuleSet loadRules(const std::vector<std::string> &directories, std::ostream &err) {
    corvane::RuleSet rules = s_load(directories);
    if (!rules.empty()) {
        return rules;
    }
    showProblems(rules, err, rules.problems().size());
    std::string reasons;
    for (const std::string &directory : directories) {
        reasons += s_emptiness(directory) + "; ";
    }
    refuse(reasons + "name the directory that holds the rule files");
}

corvane::RuleSet loadSavedRules(const std::string &sets, const std::string &beginning) {
    try {
        const SavedSets saved(sets);
        const std::string generation = saved.find(beginning);
        corvane::RuleSet rules = corvane::RuleSet::fromFiles(saved.read(generation));
        if (rules.generation() != generation) {
            refuse("the saved set '" + joined(sets, generation) +
                   "' was changed: its files give the generation " + rules.generation() +
                   "; name the directory of the rules with --rules");
        }
        return rules;
    } catch (const std::runtime_error &failure) {
        refuse(std::string(failure.what()) + "; see --set and --sets");
    }
}

corvane::RuleSet loadGivenRules(const RuleArguments &arguments, std::ostream &err) {
    return arguments.set.empty() ? loadRules(arguments.rules, err)
                                 : loadSavedRules(arguments.sets, arguments.set);
}

void showProblems(const corvane::RuleSet &rules, std::ostream &err, std::size_t most) {
    const std::vector<corvane::Problem> &problems = rules.problems();
    const std::size_t shown = std::min(most, problems.size());
    for (std::size_t each = 0; each < shown; ++each) {
        err << toString(problems[each]) << '\n';
    }
    if (shown < problems.size()) {
        err << "corvane: problems with rules that are not shown: " << problems.size() - shown
            << "; 'corvane scan --verbose' shows all\n";
    }
}

} // namespace Corvane::Cli
