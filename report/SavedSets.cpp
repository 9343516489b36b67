#include "report/SavedSets.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "corvane/LoadError.h"

namespace Corvane {

namespace {

namespace fs = std::filesystem;

constexpr const char *kLock = ".lock";
constexpr const char *kComing = ".new";
constexpr const char *kGoing = ".old";
constexpr const char *kPathEnd = ".path";
constexpr const char *kHexDigits = "0123456789abcdef";

[[noreturn]] void s_refuse(const std::string &what, const std::string &path, int error) {
    throw std::runtime_error("cannot " + what + " '" + path +
                             "': " + std::generic_category().message(error));
}

class Descriptor {
public:
    Descriptor(const std::string &path, int flags)
        : path_(path), file_(open(path.c_str(), flags | O_CLOEXEC, S_IRUSR | S_IWUSR)) {
        if (file_ < 0) {
            s_refuse("open", path, errno);
        }
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    ~Descriptor() { close(file_); }

    int number() const { return file_; }

    void write(const std::string &bytes) const {
        for (std::size_t done = 0; done < bytes.size();) {
            const ssize_t written = ::write(file_, bytes.data() + done, bytes.size() - done);
            if (written < 0 && errno != EINTR) {
                s_refuse("write", path_, errno);
            }
            done += written < 0 ? 0 : static_cast<std::size_t>(written);
        }
    }

    void sync() const {
        if (fsync(file_) != 0) {
            s_refuse("write", path_, errno);
        }
    }

private:
    std::string path_;
    int file_;
};

// Held by whoever changes the directory; what is half done while nobody else holds it is left over.
class Lock {
public:
    explicit Lock(const std::string &directory)
        : file_(directory + '/' + kLock, O_RDWR | O_CREAT | O_NOFOLLOW) {
        while (flock(file_.number(), LOCK_EX) != 0) {
            if (errno != EINTR) {
                s_refuse("lock", directory, errno);
            }
        }
    }

private:
    Descriptor file_;
};

std::string s_joined(const std::string &directory, const std::string &name) {
    std::string path = directory;
    path += '/';
    path += name;
    return path;
}

void s_makeDirectory(const std::string &path) {
    if (mkdir(path.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
        s_refuse("make the directory", path, errno);
    }
}

void s_syncDirectory(const std::string &path) {
    Descriptor(path, O_RDONLY | O_DIRECTORY).sync();
}

void s_writeFile(const std::string &path, const std::string &bytes) {
    const Descriptor file(path, O_WRONLY | O_CREAT | O_EXCL);
    file.write(bytes);
    file.sync();
}

void s_write(const std::string &path, const std::vector<corvane::RuleFiles> &files) {
    s_makeDirectory(path);
    for (std::size_t each = 0; each < files.size(); ++each) {
        const std::string part = s_joined(path, std::to_string(each + 1));
        s_makeDirectory(part);
        for (const auto &[name, bytes] : files[each].files) {
            s_writeFile(s_joined(part, name), bytes);
        }
        s_syncDirectory(part);
        s_writeFile(part + kPathEnd, files[each].directory);
    }
    s_syncDirectory(path);
}

std::optional<std::string> s_content(const std::string &path) {
    std::ifstream stream(path, std::ios::binary);
    std::ostringstream bytes;
    if (!stream.is_open()) {
        return {};
    }
    bytes << stream.rdbuf();
    return bytes.str();
}

std::vector<corvane::RuleFiles> s_read(const std::string &path) {
    std::vector<corvane::RuleFiles> files;
    while (true) {
        const std::string part = s_joined(path, std::to_string(files.size() + 1));
        const std::optional<std::string> directory = s_content(part + kPathEnd);
        if (!directory.has_value()) {
            return files;
        }
        files.push_back(corvane::RuleFiles::read(part));
        files.back().directory = *directory;
    }
}

bool s_holds(const std::string &path, const std::vector<corvane::RuleFiles> &files) {
    std::vector<corvane::RuleFiles> there;
    try {
        there = s_read(path);
    } catch (const corvane::LoadError &) {
        return false;
    }
    return std::equal(there.begin(), there.end(), files.begin(), files.end(),
                      [](const corvane::RuleFiles &left, const corvane::RuleFiles &right) {
                          return left.directory == right.directory && left.files == right.files;
                      });
}

bool s_isGeneration(const std::string &name) {
    return !name.empty() && name.find_first_not_of(kHexDigits) == std::string::npos;
}

void s_remove(const std::string &path) {
    std::error_code error;
    fs::remove_all(path, error);
    if (error) {
        s_refuse("remove", path, error.value());
    }
}

// Out of sight first: nobody shall find half of it.
void s_discard(const std::string &path, const std::string &aside) {
    s_remove(aside);
    if (rename(path.c_str(), aside.c_str()) != 0 && errno != ENOENT) {
        s_refuse("remove", path, errno);
    }
    s_remove(aside);
}

std::string s_listed(const std::vector<std::string> &names) {
    std::string list;
    for (const std::string &name : names) {
        list += (list.empty() ? "" : ", ") + name;
    }
    return list.empty() ? "none" : list;
}

} // namespace

void SavedSets::save(const std::string &generation,
                     const std::vector<corvane::RuleFiles> &files) const {
    std::error_code ignored;
    fs::create_directories(fs::path(directory_).parent_path(), ignored);
    s_makeDirectory(directory_);
    const Lock lock(directory_);
    const std::string target = pathOf(generation);
    if (!s_holds(target, files)) {
        const std::string fresh = pathOf(kComing);
        s_remove(fresh);
        s_write(fresh, files);
        s_discard(target, pathOf(kGoing));
        if (rename(fresh.c_str(), target.c_str()) != 0) {
            s_refuse("make", target, errno);
        }
        s_syncDirectory(directory_);
    }
    // Ages are told by it.
    utimensat(AT_FDCWD, target.c_str(), nullptr, 0);
}

void SavedSets::prune(std::size_t keep, const std::vector<std::string> &inUse) const {
    const Lock lock(directory_);
    s_remove(pathOf(kComing));
    s_remove(pathOf(kGoing));
    const std::vector<std::string> all = generations();
    for (std::size_t each = keep; each < all.size(); ++each) {
        if (std::find(inUse.begin(), inUse.end(), all[each]) == inUse.end()) {
            s_discard(pathOf(all[each]), pathOf(kGoing));
        }
    }
}

std::vector<std::string> SavedSets::generations() const {
    std::vector<std::pair<fs::file_time_type, std::string>> found;
    std::error_code error;
    for (fs::directory_iterator entry(directory_, error), end; !error && entry != end;
         entry.increment(error)) {
        const std::string name = entry->path().filename().string();
        if (s_isGeneration(name)) {
            std::error_code ignored;
            found.emplace_back(entry->last_write_time(ignored), name);
        }
    }
    std::sort(found.rbegin(), found.rend());
    std::vector<std::string> names;
    names.reserve(found.size());
    for (const auto &[time, name] : found) {
        names.push_back(name);
    }
    return names;
}

std::string SavedSets::find(const std::string &beginning) const {
    std::error_code error;
    const fs::directory_iterator readable(directory_, error);
    if (error) {
        s_refuse("read", directory_, error.value());
    }
    const std::vector<std::string> all = generations();
    std::vector<std::string> found;
    for (const std::string &each : all) {
        if (each.rfind(beginning, 0) == 0) {
            found.push_back(each);
        }
    }
    if (found.size() != 1 || beginning.empty()) {
        throw std::runtime_error(std::string(found.empty() ? "no" : "more than one") +
                                 " saved set in '" + directory_ + "' begins with '" + beginning +
                                 "'; there are: " + s_listed(all));
    }
    return found.front();
}

std::vector<corvane::RuleFiles> SavedSets::read(const std::string &generation) const {
    std::vector<corvane::RuleFiles> files = s_read(pathOf(generation));
    if (files.empty()) {
        throw std::runtime_error("there is no saved set in '" + pathOf(generation) + "'");
    }
    return files;
}

} // namespace Corvane
