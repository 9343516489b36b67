#include "MessageFiles.h"

#include <algorithm>
#include <filesystem>

#include <fnmatch.h>

#include "Files.h"

namespace Corvane::Cli {

namespace {

enum class Kind { File, Directory, Other };

// How the path of an argument, and of an entry of a directory, is to be taken. A missing file is a
// file, so that whoever reads it hears of it.
Kind s_argumentKind(const std::string &path) {
    std::error_code ignored;
    const bool isDirectory = path != kStandardInput && std::filesystem::is_directory(path, ignored);
    return isDirectory ? Kind::Directory : Kind::File;
}

Kind s_entryKind(const std::string &path) {
    std::error_code ignored;
    const auto itself = std::filesystem::symlink_status(path, ignored).type();
    if (itself == std::filesystem::file_type::directory) {
        return Kind::Directory;
    }
    // A link to a directory might lead back to where it stands.
    const auto target = std::filesystem::status(path, ignored).type();
    const bool readable = target == std::filesystem::file_type::regular ||
                          target == std::filesystem::file_type::not_found;
    return readable ? Kind::File : Kind::Other;
}

bool s_isMaildir(const std::string &directory) {
    const char *const parts[] = {"cur", "new", "tmp"};
    return std::all_of(std::begin(parts), std::end(parts), [&directory](const char *part) {
        return s_argumentKind(joined(directory, part)) == Kind::Directory;
    });
}

} // namespace

MessageFiles::MessageFiles(const std::vector<std::string> &arguments,
                           const std::vector<std::string> &include)
    : arguments_(arguments.begin(), arguments.end()), include_(include) {}

bool MessageFiles::next(std::string &path) {
    while (nextPath(path)) {
        const bool isArgument = levels_.empty();
        const Kind kind = isArgument ? s_argumentKind(path) : s_entryKind(path);
        if (kind == Kind::File && (isArgument || isIncluded(path))) {
            return true;
        }
        if (kind == Kind::Directory) {
            enter(path);
        }
    }
    return false;
}

bool MessageFiles::nextPath(std::string &path) {
    while (!levels_.empty() && levels_.back().names.empty()) {
        levels_.pop_back();
    }
    std::deque<std::string> &names = levels_.empty() ? arguments_ : levels_.back().names;
    if (names.empty()) {
        return false;
    }
    path = levels_.empty() ? names.front() : joined(levels_.back().directory, names.front());
    names.pop_front();
    return true;
}

bool MessageFiles::isIncluded(const std::string &path) const {
    const std::string name = std::filesystem::path(path).filename().string();
    return include_.empty() ||
           std::any_of(include_.begin(), include_.end(), [&name](const std::string &pattern) {
               return fnmatch(pattern.c_str(), name.c_str(), 0) == 0;
           });
}

void MessageFiles::enter(const std::string &directory) {
    if (s_isMaildir(directory)) {
        levels_.push_back({directory, {"cur", "new"}});
        return;
    }
    const std::vector<std::string> names = visibleNames(directory);
    levels_.push_back({directory, {names.begin(), names.end()}});
}

} // namespace Corvane::Cli
