#include "host/parser/Media.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <system_error>

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/parser/Exception.h"

namespace Corvane {

namespace {

// Repeats a system call that a signal interrupted before it did anything.
template <class Call>
auto s_uninterrupted(Call call) {
    auto result = call();
    while (result == -1 && errno == EINTR) {
        result = call();
    }
    return result;
}

std::string s_reason(int error) {
    return std::generic_category().message(error);
}

Exception s_failure(const char *operation, const std::string &detail) {
    Exception failure(operation, Exception::kGeneral, "Media", __LINE__);
    failure.stringParameter(detail);
    return failure;
}

// error is errno as the caller found it: making the text may change it.
Exception s_inFailure(const char *action, const std::string &path, int error) {
    return s_failure("FileMediaIn",
                     std::string("cannot ") + action + ' ' + path + ": " + s_reason(error));
}

// The directory part of a file's path.
std::string s_directory(const std::string &path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) {
        return ".";
    }
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string s_remedy(const std::string &directory, int error) {
    switch (error) {
    case ENOSPC:
    case EDQUOT:
        return "free some space there";
    case EINVAL:
        return "end the name pattern in XXXXXX";
    default:
        return "make it a directory that this user may write to: install -d -m 1777 " + directory;
    }
}

Exception s_tempFailure(const char *action, const std::string &path, int error) {
    const std::string directory = s_directory(path);
    return s_failure("TempFile", std::string("cannot ") + action + " a temporary file in " +
                                     directory + ": " + s_reason(error) + "; " +
                                     s_remedy(directory, error));
}

// Answers whether the directory is there now. One that somebody else makes at the same moment will
// do; the mode is set apart because the umask cuts the one that mkdir is given.
bool s_makeSharedDirectory(const std::string &directory) {
    constexpr mode_t kSharedMode = S_ISVTX | S_IRWXU | S_IRWXG | S_IRWXO;
    if (mkdir(directory.c_str(), kSharedMode) != 0) {
        return errno == EEXIST;
    }
    return chmod(directory.c_str(), kSharedMode) == 0;
}

// Replaces the pattern by the name of the file made; answers its descriptor, or -1 with errno set.
int s_makeTempFile(std::string &pattern) {
    const std::string original = pattern;
    const auto make = [&pattern, &original] {
        pattern = original;
        return mkostemp(pattern.data(), O_CLOEXEC);
    };
    const int descriptor = s_uninterrupted(make);
    if (descriptor != -1 || errno != ENOENT || !s_makeSharedDirectory(s_directory(original))) {
        return descriptor;
    }
    return s_uninterrupted(make);
}

// Writes bytes to a temporary file.
class TempFileOut final : public MediaOutImpl {
public:
    explicit TempFileOut(const Ref<TempFile> &file) : file_(file) {}

    void write(const Buffer &bytes) override { file_->write(bytes); }
    void end() override { file_->close(); }

private:
    Ref<TempFile> file_;
};

} // namespace

MediaIn::~MediaIn() = default;

FileMediaIn::FileMediaIn(const std::string &path)
    : path_(path),
      descriptor_(s_uninterrupted([&path] { return open(path.c_str(), O_RDONLY | O_CLOEXEC); })) {
    if (descriptor_ == -1) {
        throw s_inFailure("open", path, errno);
    }
    struct stat status {};
    if (fstat(descriptor_, &status) == 0 && S_ISDIR(status.st_mode)) {
        ::close(descriptor_);
        throw s_inFailure("open", path, EISDIR);
    }
}

FileMediaIn::~FileMediaIn() {
    ::close(descriptor_);
}

void FileMediaIn::read(Buffer &bytes, unsigned int max) {
    constexpr unsigned int kPieceBytes = 16384;
    std::array<unsigned char, kPieceBytes> piece;
    bytes.length(0);
    while (bytes.length() < max) {
        const std::size_t wanted = std::min(max - bytes.length(), kPieceBytes);
        const ssize_t got =
            s_uninterrupted([&] { return ::read(descriptor_, piece.data(), wanted); });
        if (got == -1) {
            throw s_inFailure("read", path_, errno);
        }
        if (got == 0) {
            return;
        }
        bytes.append(piece.data(), static_cast<unsigned int>(got));
    }
}

MediaOutImpl::~MediaOutImpl() = default;

MediaOut::MediaOut(MediaOutImpl *fresh) : Ref<MediaOutImpl>(fresh) {}

void MediaOut::write(const Buffer &bytes) {
    (*this)->write(bytes);
}

void MediaOut::end() {
    (*this)->end();
}

MediaOutDecoratorImpl::~MediaOutDecoratorImpl() = default;

MediaOutDecorator::MediaOutDecorator(MediaOutDecoratorImpl *fresh) : MediaOut(fresh) {}

void MediaOutDecorator::attach(const MediaOut &output) {
    // Null only where another kind of sink was assigned through a reference to the base class.
    auto *stage = dynamic_cast<MediaOutDecoratorImpl *>(operator->());
    if (stage == nullptr) {
        throw s_failure("MediaOutDecorator", "this stream passes nothing on");
    }
    stage->attach(output);
}

TempFile::TempFile(const std::string &pattern, bool remove)
    : name_(pattern), remove_(remove), descriptor_(s_makeTempFile(name_)) {
    if (descriptor_ == -1) {
        throw s_tempFailure("create", pattern, errno);
    }
}

TempFile::~TempFile() {
    if (descriptor_ != -1) {
        ::close(descriptor_);
    }
    if (remove_) {
        unlink(name_.c_str());
    }
}

void TempFile::write(const Buffer &bytes) {
    if (descriptor_ == -1) {
        throw s_failure("TempFile", "write to " + name_ + " after it was closed");
    }
    const unsigned char *next = bytes.data();
    std::size_t left = bytes.length();
    while (left > 0) {
        const ssize_t written = s_uninterrupted([&] { return ::write(descriptor_, next, left); });
        if (written == -1) {
            throw s_tempFailure("write", name_, errno);
        }
        next += written;
        left -= static_cast<std::size_t>(written);
    }
}

void TempFile::close() {
    if (descriptor_ == -1) {
        return;
    }
    const int descriptor = descriptor_;
    descriptor_ = -1;
    // The descriptor is gone whatever the answer; an interrupted close has lost nothing.
    if (::close(descriptor) != 0 && errno != EINTR) {
        throw s_tempFailure("write", name_, errno);
    }
}

TempFileMediaOut::TempFileMediaOut(const std::string &pattern, bool remove)
    : TempFileMediaOut(Ref<TempFile>(new TempFile(pattern, remove))) {}

TempFileMediaOut::TempFileMediaOut(const Ref<TempFile> &file)
    : MediaOut(new TempFileOut(file)), file_(file) {}

void TempFileMediaOut::close() {
    file_->close();
}

} // namespace Corvane
