#include "corvane/Failure.h"

#include <cerrno>
#include <memory>
#include <system_error>

#include <dirent.h>

#include "host/parser/Logger.h"

namespace corvane {

namespace {

struct DirectoryCloser {
    void operator()(DIR *directory) const { closedir(directory); }
};

const Corvane::Exception &s_rootOf(const Corvane::Exception &failure) {
    const Corvane::Exception *root = &failure;
    while (root->cause() != nullptr) {
        root = root->cause();
    }
    return *root;
}

std::string s_sentence(const std::string &sentence, const std::string &reason,
                       const std::string &remedy) {
    return sentence + (reason.empty() ? "" : ": " + reason) + (remedy.empty() ? "" : "; " + remedy);
}

} // namespace

LoadError::LoadError(const std::string &sentence, const std::string &file,
                     const std::string &reason, const std::string &remedy)
    : std::runtime_error(s_sentence(sentence, reason, remedy)), file_(file), reason_(reason),
      remedy_(remedy) {}

LoadError::LoadError(const LoadError &) = default;
LoadError &LoadError::operator=(const LoadError &) = default;
LoadError::~LoadError() = default;

std::string printable(const std::string &text) {
    return Corvane::Logger::printable(text);
}

std::string systemReason(int error) {
    return std::generic_category().message(error);
}

std::string reasonOf(const Corvane::Exception &failure) {
    const Corvane::Exception &root = s_rootOf(failure);
    std::string reason;
    for (const std::string &parameter : root.parameters()) {
        reason += (reason.empty() ? "" : "; ") + parameter;
    }
    return printable(reason.empty() ? root.message() : reason);
}

bool isOfTemporaryFile(const Corvane::Exception &failure) {
    return s_rootOf(failure).message().rfind("TempFile", 0) == 0;
}

bool isOfDirectory(const Corvane::Exception &failure) {
    return s_rootOf(failure).message() == "File::Selector";
}

LoadError unreadableFile(const std::string &file, const std::string &reason) {
    return {"cannot read rule file '" + printable(file) + "'", file, reason,
            "mend it or take it out of the directory"};
}

void requireDirectory(const std::string &directory) {
    constexpr const char *kRemedy = "name the directory that holds the rule files";
    const std::unique_ptr<DIR, DirectoryCloser> opened(opendir(directory.c_str()));
    if (opened != nullptr) {
        return;
    }
    const int error = errno;
    const std::string quoted = "'" + printable(directory) + "'";
    if (error == ENOENT) {
        throw LoadError("rule directory " + quoted + " does not exist", directory, "", kRemedy);
    }
    if (error == ENOTDIR) {
        throw LoadError(quoted + " is no directory", directory, "", kRemedy);
    }
    throw LoadError("cannot read rule directory " + quoted, directory, systemReason(error),
                    kRemedy);
}

} // namespace corvane
