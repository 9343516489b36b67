#ifndef CORVANE_RULEFILES_H
#define CORVANE_RULEFILES_H

// The files of a rule-set directory in memory, as RuleSet::fromFiles takes them.
//
// Threads: plain values.

#include <map>
#include <string>

#include "corvane/Export.h"

namespace corvane {

struct RuleFiles {
    // Names and bytes.
    std::map<std::string, std::string> files;

    // How the directory is named in problems and errors, before the name of the file; "" for the
    // name alone.
    std::string directory = {};

    // Reads what loading the directory would look at: rule and score files, markers and README, as
    // they are, encrypted ones encrypted. Throws LoadError where the directory or one of those
    // files cannot be read.
    CORVANE_API static RuleFiles read(const std::string &directory);
};

} // namespace corvane

#endif
