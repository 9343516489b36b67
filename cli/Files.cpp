#include "Files.h"

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <filesystem>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

#include "Failure.h"

namespace Corvane::Cli {

std::vector<std::string> visibleNames(const std::string &directory) {
    std::vector<std::string> names;
    std::error_code error;
    std::filesystem::directory_iterator entry(directory, error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        std::string name = entry->path().filename().string();
        if (name.front() != '.') {
            names.push_back(std::move(name));
        }
    }
    if (error) {
        refuse("cannot read directory '" + directory + "': " + error.message() +
               "; make it readable");
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::string joined(const std::string &directory, const std::string &name) {
    return !directory.empty() && directory.back() == '/' ? directory + name
                                                         : directory + '/' + name;
}

InputFile::InputFile(const std::string &name)
    : name_(name),
      file_(name == kStandardInput ? STDIN_FILENO : open(name.c_str(), O_RDONLY | O_CLOEXEC)),
      room_(kRoomBytes) {
    if (file_ < 0) {
        refuseUnreadable();
    }
}

InputFile::~InputFile() {
    if (file_ != STDIN_FILENO) {
        close(file_);
    }
}

std::string_view InputFile::ahead(std::size_t count) {
    assert(count < room_.size());
    if (begin_ + count > room_.size()) {
        std::copy(room_.data() + begin_, room_.data() + end_, room_.data());
        end_ -= begin_;
        begin_ = 0;
    }
    while (end_ - begin_ < count) {
        const std::size_t got = read(room_.data() + end_, room_.size() - end_);
        if (got == 0) {
            break;
        }
        end_ += got;
    }
    return {room_.data() + begin_, end_ - begin_};
}

void InputFile::take(std::size_t count) {
    assert(count <= end_ - begin_);
    begin_ += count;
    if (begin_ == end_) {
        begin_ = 0;
        end_ = 0;
    }
}

std::size_t InputFile::read(char *bytes, std::size_t most) const {
    ssize_t count = 0;
    do {
        count = ::read(file_, bytes, most);
    } while (count < 0 && errno == EINTR);
    if (count < 0) {
        refuseUnreadable();
    }
    return static_cast<std::size_t>(count);
}

void InputFile::refuseUnreadable() const {
    const std::string reason = systemReason(errno);
    const std::string called = name_ == kStandardInput ? "standard input" : "'" + name_ + "'";
    refuse("cannot read " + called + ": " + reason);
}

} // namespace Corvane::Cli
