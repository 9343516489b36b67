#include "MessageSource.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/parser/Exception.h"

namespace Corvane::Cli {

namespace {

[[noreturn]] void s_refuse(const std::string &reason) {
    throw Exception(reason, Exception::kGeneral, nullptr, 0);
}

std::string s_called(const std::string &name) {
    return name == kStandardInput ? "standard input" : "'" + name + "'";
}

[[noreturn]] void s_refuseUnreadable(const std::string &name) {
    s_refuse("cannot read message " + s_called(name) + ": " +
             std::generic_category().message(errno) + "; name a file that holds one message");
}

// An open file that closes itself; standard input stays open.
class Source {
public:
    explicit Source(const std::string &name)
        : name_(name),
          file_(name == kStandardInput ? STDIN_FILENO : open(name.c_str(), O_RDONLY | O_CLOEXEC)) {
        if (file_ < 0) {
            s_refuseUnreadable(name_);
        }
    }
    Source(const Source &) = delete;
    Source &operator=(const Source &) = delete;
    ~Source() {
        if (file_ != STDIN_FILENO) {
            close(file_);
        }
    }

    bool isDirectory() const {
        struct stat status {};
        return fstat(file_, &status) == 0 && S_ISDIR(status.st_mode);
    }

    // Answers the bytes read, 0 at the end.
    unsigned int read(unsigned char *bytes, std::size_t most) const {
        ssize_t count = 0;
        do {
            count = ::read(file_, bytes, most);
        } while (count < 0 && errno == EINTR);
        if (count < 0) {
            s_refuseUnreadable(name_);
        }
        return static_cast<unsigned int>(count);
    }

private:
    const std::string &name_;
    int file_;
};

Buffer s_readAll(const Source &source, std::size_t most) {
    constexpr std::size_t kChunkBytes = 65536;
    std::array<unsigned char, kChunkBytes> chunk{};
    Buffer bytes;
    while (bytes.length() < most) {
        const unsigned int count =
            source.read(chunk.data(), std::min(chunk.size(), most - bytes.length()));
        if (count == 0) {
            break;
        }
        bytes.append(chunk.data(), count);
    }
    return bytes;
}

} // namespace

Buffer readMessage(const std::string &name, unsigned int maxBytes) {
    const Source source(name);
    if (source.isDirectory()) {
        s_refuse(s_called(name) + " is a directory, not a message; name the message files in it");
    }
    Buffer bytes = s_readAll(source, static_cast<std::size_t>(maxBytes) + 1);
    if (bytes.isEmpty()) {
        s_refuse(s_called(name) + " is empty; a message has at least a header");
    }
    const unsigned char *end = bytes.data() + bytes.length();
    if (std::all_of(bytes.data(), end, [](unsigned char byte) { return byte == 0; })) {
        s_refuse(s_called(name) + " is no message: it holds nothing but NUL bytes");
    }
    return bytes;
}

} // namespace Corvane::Cli
