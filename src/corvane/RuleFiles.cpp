#include "corvane/RuleFiles.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "corvane/Failure.h"
#include "host/parser/Exception.h"
#include "host/parser/File.h"

namespace corvane {

namespace {

using Corvane::File::Path;

std::string s_content(const std::string &path) {
    errno = 0;
    Corvane::File::basic_ifstream<char> stream(Path(path), std::ios_base::binary);
    std::ostringstream bytes;
    if (!stream.is_open()) {
        throw unreadableFile(path, systemReason(errno));
    }
    if (stream.peek() != std::ifstream::traits_type::eof()) {
        bytes << stream.rdbuf();
    }
    if (stream.bad() || !bytes) {
        throw unreadableFile(path, systemReason(errno != 0 ? errno : EIO));
    }
    return bytes.str();
}

class Collector final : public Corvane::File::Processor {
public:
    explicit Collector(std::map<std::string, std::string> &files) : files_(files) {}

    int process(const Path &file) override {
        const std::string name = std::filesystem::path(file.asString()).filename().string();
        files_[name] = s_content(file.asString());
        return 0;
    }

    void linkBroken(const Path &file, int error) override {
        throw unreadableFile(file.asString(), systemReason(error));
    }

private:
    std::map<std::string, std::string> &files_;
};

} // namespace

RuleFiles RuleFiles::read(const std::string &directory) {
    requireDirectory(directory);
    RuleFiles result;
    result.directory = directory;
    // A marker counts whatever it is.
    for (const char *marker : {"heuristic.cf3", "heuristic.cf2", "version"}) {
        if (Path(directory, marker).exists()) {
            result.files[marker];
        }
    }
    try {
        Collector collector(result.files);
        Corvane::File::Selector selector(Path(directory), collector);
        selector.patterns({"*.cf3", "*.cf2", "*.cf", "*.score", "version", "README"});
        selector.start();
    } catch (const Corvane::Exception &failure) {
        throw LoadError("cannot read rule directory '" + printable(directory) + "'", directory,
                        reasonOf(failure), "");
    }
    return result;
}

} // namespace corvane
