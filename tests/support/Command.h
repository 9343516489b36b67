#ifndef CORVANE_TESTS_SUPPORT_COMMAND_H
#define CORVANE_TESTS_SUPPORT_COMMAND_H

// Runs the corvane command as a user does, in a process of its own:
//
//     const Outcome outcome = corvane({"scan", "--rules", directory, "-"}, "Subject: x\n\nbody\n");
//     EXPECT_EQ(outcome.status, 0);
//
// One thread. The caller's target defines CORVANE_COMMAND, the program's path.

#include <cstdlib>
#include <string>
#include <vector>

#include <sys/wait.h>

#include "support/TempDir.h"

namespace Corvane {

struct Outcome {
    int status; // the exit status, or -1 where a signal ended the process
    std::string out;
    std::string err;
};

// Arguments go through a shell, so each is quoted; they must not hold a single quote. starter is a
// command that starts the program given behind it.
inline Outcome corvane(const std::vector<std::string> &arguments, const std::string &input = {},
                       const std::string &starter = {}) {
    const TempDir directory;
    std::string line = starter + " '" CORVANE_COMMAND "'";
    for (const std::string &argument : arguments) {
        line += " '" + argument + "'";
    }
    line += " <" + directory.write("in", input) + " >" + directory.path("out") + " 2>" +
            directory.path("err");
    const int status = std::system(line.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, TempDir::read(directory.path("out")),
            TempDir::read(directory.path("err"))};
}

} // namespace Corvane

#endif
