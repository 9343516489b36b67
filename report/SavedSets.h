#ifndef CORVANE_REPORT_SAVEDSETS_H
#define CORVANE_REPORT_SAVEDSETS_H

// Rule sets that were in use, kept as they were read, so that what they made of a message can be
// found out again:
//
//     const SavedSets sets("/var/lib/corvane/sets");
//     sets.save(rules.generation(), files); // files as corvane::RuleFiles::read gives them
//     sets.prune(3, {rules.generation()});
//     ...
//     const auto again = corvane::RuleSet::fromFiles(sets.read(sets.find("0123")));
//
// The directory holds one for each set, named by its generation. In that are the files of the first
// rule directory in "1", where that directory was in "1.path", and so on. Loading goes by that
// former path, which tells what is encrypted and stands in problems.
//
// Threads: free of state; several threads and processes may save and prune at once.

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "corvane/RuleFiles.h"

namespace Corvane {

class SavedSets {
public:
    explicit SavedSets(std::string directory) : directory_(std::move(directory)) {}

    // Writes the set under that generation, beside the others and then to its place, so that it is
    // there whole or not at all; only the owner may read it. One that is there with other bytes is
    // replaced, since an encrypted set and a plain one may have one generation. It is the newest
    // from then on. Makes the directory where there is none. Throws std::runtime_error.
    void save(const std::string &generation, const std::vector<corvane::RuleFiles> &files) const;

    // Removes the oldest sets beyond so many, but none of those in use, and what a process that was
    // killed has left half done. Throws std::runtime_error.
    void prune(std::size_t keep, const std::vector<std::string> &inUse) const;

    // The generations of all sets, the newest first; none where the directory is missing or cannot
    // be read.
    std::vector<std::string> generations() const;

    // The generation that begins so. Throws std::runtime_error, with those there are, where none
    // does or more than one.
    std::string find(const std::string &beginning) const;

    // What was saved. Throws std::runtime_error and corvane::LoadError.
    std::vector<corvane::RuleFiles> read(const std::string &generation) const;

private:
    std::string pathOf(const std::string &name) const { return directory_ + '/' + name; }

    std::string directory_;
};

} // namespace Corvane

#endif
