#ifndef CORVANE_TESTS_SUPPORT_TEMPDIR_H
#define CORVANE_TESTS_SUPPORT_TEMPDIR_H

// A directory of one test's own, removed with everything in it when the object dies:
//
//     const TempDir dir;
//     const std::string file = dir.write("a.cf", "body A /x/\n");

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>

#include <stdlib.h>
#include <unistd.h>

namespace Corvane {

class TempDir {
public:
    // The letters "cf" in a path say that its files are encrypted, so a random name must not hold them.
    TempDir() {
        do {
            path_ = (std::filesystem::temp_directory_path() / "corvane-XXXXXX").string();
            if (mkdtemp(path_.data()) == nullptr) {
                throw std::runtime_error("cannot create " + path_);
            }
        } while (path_.find("cf") != std::string::npos && rmdir(path_.c_str()) == 0);
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;

    const std::string &path() const { return path_; }

    // The path of an entry, which need not exist.
    std::string path(const std::string &name) const { return path_ + '/' + name; }

    // Makes a file with that content, byte for byte, and answers its path.
    std::string write(const std::string &name, const std::string &content) const {
        std::ofstream(path(name), std::ios::binary) << content;
        return path(name);
    }

    // Makes a subdirectory and answers its path.
    std::string makeDirectory(const std::string &name) const {
        std::filesystem::create_directory(path(name));
        return path(name);
    }

    // The content of a file; empty where it cannot be read.
    static std::string read(const std::string &file) {
        std::ostringstream content;
        content << std::ifstream(file, std::ios::binary).rdbuf();
        return content.str();
    }

private:
    std::string path_;
};

} // namespace Corvane

#endif
