#ifndef CORVANE_CLI_MESSAGEFILES_H
#define CORVANE_CLI_MESSAGEFILES_H

// The files that the arguments of a scan stand for: a directory stands for the files in it and in
// its subdirectories, a Maildir for those of its cur and new.
//
// Threads: one thread.

#include <deque>
#include <string>
#include <vector>

namespace Corvane::Cli {

class MessageFiles {
public:
    // With include, of the files in directories only those whose names match one of these patterns
    // of the shell's.
    MessageFiles(const std::vector<std::string> &arguments,
                 const std::vector<std::string> &include);

    // Puts the next file into path, depth first and in the byte order of names; answers false at the
    // end. Whatever is named by an argument and is no directory counts as a file, "-" too. In
    // directories dot files, links to directories and what is neither file nor directory are left
    // out. Throws code 4 where a directory, which path then names, cannot be read; the next call
    // goes on behind it.
    bool next(std::string &path);

private:
    struct Level {
        std::string directory;
        std::deque<std::string> names;
    };

    bool nextPath(std::string &path);
    bool isIncluded(const std::string &path) const;
    void enter(const std::string &directory);

    std::deque<std::string> arguments_;
    std::vector<std::string> include_;
    std::vector<Level> levels_;
};

} // namespace Corvane::Cli

#endif
