#ifndef CORVANE_TESTS_DAEMON_PROCESSUSE_H
#define CORVANE_TESTS_DAEMON_PROCESSUSE_H

// What a process takes of the machine at the moment. Threads: any.

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include <unistd.h>

namespace Corvane::Milter {

struct ProcessUse {
    std::size_t residentBytes = 0;
    std::size_t threads = 0;
    std::size_t files = 0;

    static ProcessUse of(pid_t process) {
        const std::string directory = "/proc/" + std::to_string(process);
        ProcessUse use;
        std::ifstream statm(directory + "/statm");
        statm >> use.residentBytes >> use.residentBytes;
        use.residentBytes *= static_cast<std::size_t>(getpagesize());
        use.threads = entries(directory + "/task");
        use.files = entries(directory + "/fd");
        return use;
    }

private:
    static std::size_t entries(const std::string &directory) {
        std::size_t count = 0;
        std::error_code failure;
        for (std::filesystem::directory_iterator entry(directory, failure), end;
             !failure && entry != end; entry.increment(failure)) {
            ++count;
        }
        return count;
    }
};

} // namespace Corvane::Milter

#endif
