#include "Sockets.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "Network.h"

namespace Corvane::Milter {

namespace {

class Socket {
public:
    explicit Socket(int family) : file_(::socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0)) {}
    Socket(const Socket &) = delete;
    Socket &operator=(const Socket &) = delete;
    ~Socket() {
        if (file_ >= 0) {
            ::close(file_);
        }
    }

    template <class SocketAddress>
    bool connects(const SocketAddress &address) const {
        return file_ >= 0 &&
               ::connect(file_, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0;
    }

private:
    int file_;
};

struct Bound {
    sockaddr_storage address;
    unsigned int port;
};

// Calls it with the number of each file that the process has open.
template <class Function>
void s_eachFile(Function function) {
    std::error_code failure;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd", failure)) {
        function(std::atoi(entry.path().filename().c_str()));
    }
}

bool s_listens(int file) {
    int listens = 0;
    socklen_t length = sizeof(listens);
    return getsockopt(file, SOL_SOCKET, SO_ACCEPTCONN, &listens, &length) == 0 && listens != 0;
}

bool s_isBoundTo(int file, const std::string &path) {
    sockaddr_un address{};
    socklen_t length = sizeof(address);
    return getsockname(file, reinterpret_cast<sockaddr *>(&address), &length) == 0 &&
           address.sun_family == AF_UNIX && length < sizeof(address) &&
           path == std::begin(address.sun_path);
}

// Of a listening TCP socket; none for any other file.
std::optional<Bound> s_listener(int file) {
    if (!s_listens(file)) {
        return {};
    }
    Bound bound{};
    socklen_t length = sizeof(bound.address);
    if (getsockname(file, reinterpret_cast<sockaddr *>(&bound.address), &length) != 0) {
        return {};
    }
    if (bound.address.ss_family == AF_INET) {
        bound.port = ntohs(reinterpret_cast<const sockaddr_in *>(&bound.address)->sin_port);
    } else if (bound.address.ss_family == AF_INET6) {
        bound.port = ntohs(reinterpret_cast<const sockaddr_in6 *>(&bound.address)->sin6_port);
    } else {
        return {};
    }
    return bound;
}

} // namespace

std::optional<FileId> fileAt(const std::string &path) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0) {
        return {};
    }
    return FileId{status.st_dev, status.st_ino};
}

bool isServed(const std::string &path) {
    return touchPath(path);
}

void removeIfSame(const std::string &path, const FileId &file) {
    if (fileAt(path) == file) {
        ::unlink(path.c_str());
    }
}

bool touchPath(const std::string &path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path)) {
        return false;
    }
    std::copy(path.begin(), path.end(), std::begin(address.sun_path));
    return Socket(AF_UNIX).connects(address);
}

bool touchInet(const std::string &address, unsigned int port) {
    sockaddr_in four{};
    four.sin_family = AF_INET;
    four.sin_port = htons(static_cast<std::uint16_t>(port));
    if (inet_pton(AF_INET, address.c_str(), &four.sin_addr) == 1) {
        return Socket(AF_INET).connects(four);
    }
    sockaddr_in6 six{};
    six.sin6_family = AF_INET6;
    six.sin6_port = four.sin_port;
    return inet_pton(AF_INET6, address.c_str(), &six.sin6_addr) == 1 &&
           Socket(AF_INET6).connects(six);
}

PathSockets socketsOf(const std::string &path) {
    PathSockets sockets;
    s_eachFile([&](int file) {
        if (!s_isBoundTo(file, path)) {
            return;
        }
        if (s_listens(file)) {
            struct pollfd waiting {
                file, POLLIN, 0
            };
            sockets.listener = file;
            sockets.isWaitedFor = poll(&waiting, 1, 0) == 1;
        } else {
            ++sockets.accepted;
        }
    });
    return sockets;
}

unsigned int hastenListener(const std::string &address, unsigned int port) {
    unsigned int found = 0;
    s_eachFile([&](int file) {
        const std::optional<Bound> bound = s_listener(file);
        if (found == 0 && bound.has_value() && (port == 0 || bound->port == port) &&
            addressOf(reinterpret_cast<const sockaddr *>(&bound->address)) == addressOf(address)) {
            const int on = 1;
            setsockopt(file, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
            found = bound->port;
        }
    });
    return found;
}

} // namespace Corvane::Milter
