#ifndef CORVANE_CLI_RULESETFILES_H
#define CORVANE_CLI_RULESETFILES_H

// The files of a rule-set directory, and the parts they play in it.
//
// Threads: one thread.

#include <string>
#include <vector>

#include "host/parser/Media.h"

namespace Corvane::Cli {

class RuleSetFiles {
public:
    enum class Role {
        Rules,   // *.cf, *.cf2, *.cf3
        Scores,  // *.score
        Readme,  // README, which holds the version text
        Version, // version, which marks an encrypted set
        Other    // whatever else, subdirectories included
    };

    struct Entry {
        std::string name;
        Role role;
    };

    // Reads the directory. Throws code 4, with the directory and the remedy, where there is no such
    // directory or it cannot be read.
    explicit RuleSetFiles(const std::string &directory);

    // Plain accessors; entries are in the byte order of their names, dot files left out.
    const std::string &directory() const { return directory_; }
    const std::vector<Entry> &entries() const { return entries_; }
    bool isEncrypted() const { return isEncrypted_; }

    // The path of an entry.
    std::string path(const std::string &name) const;

    // The paths of the files that loading reads, and the patterns that choose them among the files
    // with rules, for messages.
    std::vector<std::string> loaded() const;
    std::string patterns() const;

private:
    bool has(const std::string &name) const;
    std::vector<std::string> chosenEnds() const;

    std::string directory_;
    std::vector<Entry> entries_;
    bool isEncrypted_;
};

// Whether a file of an encrypted set is encrypted: loading goes by the whole path.
bool isEncryptedPath(const std::string &path);

enum class Conversion { None, Encrypt, Decrypt };

// Copies a file to an output: as it is, from plain to encrypted with an initialisation vector of its
// own, or back. The output is not ended. Throws code 4, with the path, where reading, writing or
// decryption fails.
void convertFile(const std::string &path, Conversion conversion, MediaOut &output);

} // namespace Corvane::Cli

#endif
