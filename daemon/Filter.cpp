#include "Filter.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <stdexcept>
#include <thread>

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Session.h"
#include "Sockets.h"
#include "Text.h"

namespace Corvane::Milter {

namespace {

[[noreturn]] void s_refuse(const std::string &sentence) {
    throw std::runtime_error(sentence);
}

// libmilter says why on the system's log only.
void s_open(const std::string &where, const std::string &shown) {
    std::string connection = where;
    errno = 0;
    if (smfi_setconn(connection.data()) != MI_SUCCESS || smfi_opensocket(false) != MI_SUCCESS) {
        const int error = errno;
        s_refuse("cannot listen on '" + shown + "'" +
                 (error == 0 ? "" : ": " + systemReason(error)) +
                 "; see that its directory is there and may be written to, that no other process "
                 "has the port, and that milter.socket in the configuration is right");
    }
}

} // namespace

Filter::Filter(Shared &shared, const SocketConfig &socket, Place place) {
    smfiDesc callbacks = sessionCallbacks(shared, socket.isInet() ? Answers::All : Answers::Needed);
    if (smfi_register(callbacks) != MI_SUCCESS) {
        s_refuse("libmilter cannot be set up; let the daemon have more memory");
    }
    // Servers hand over a header in one piece, folds and all, and the usual bound is below that of
    // Postfix for one header. A session with more ends, and its client would come again for ever.
    constexpr std::size_t kMostPieceBytes = 256U << 10U;
    smfi_setmaxdatasize(kMostPieceBytes);
    smfi_settimeout(static_cast<int>(socket.timeout.count()));
    if (socket.isInet()) {
        bindInet(socket);
    } else {
        bindPath(socket, place);
    }
}

// Under another name first: what lies at the path stays in use until the new socket can be, and no
// moment passes without one.
void Filter::bindPath(const SocketConfig &socket, Place place) {
    if (place == Place::Free && isServed(socket.path)) {
        s_refuse("another process listens on '" + socket.path +
                 "'; stop it, or give this one another milter.socket");
    }
    const std::string fresh = socket.path + '.' + std::to_string(getpid());
    unlink(fresh.c_str());
    s_open("unix:" + fresh, socket.path);
    const std::optional<FileId> file = fileAt(fresh);
    path_ = socket.path;
    hidden_ = fresh;
    mode_ = socket.mode;
    device_ = file.has_value() ? file->device : 0;
    inode_ = file.has_value() ? file->inode : 0;
    address_ = "unix:" + path_;
}

void Filter::publish() {
    if (!path_.empty() &&
        (chmod(hidden_.c_str(), mode_) != 0 || std::rename(hidden_.c_str(), path_.c_str()) != 0)) {
        s_refuse("cannot put a socket at '" + path_ + "': " + systemReason(errno) +
                 "; see that nothing but a socket is there");
    }
}

void Filter::bindInet(const SocketConfig &socket) {
    const bool isSix = socket.host.find(':') != std::string::npos;
    const std::string where = std::to_string(socket.port) + '@' + socket.host;
    s_open((isSix ? "inet6:" : "inet:") + where, "inet:" + where);
    host_ = socket.host;
    port_ = hastenListener(socket.host, socket.port);
    address_ = "inet:" + std::to_string(port_) + '@' + host_;
}

Filter::~Filter() {
    if (!path_.empty()) {
        removeIfSame(path_, {device_, inode_});
        removeIfSame(hidden_, {device_, inode_});
    }
}

// Under its former name the socket can still be reached by stop().
void Filter::hide() {
    if (!path_.empty() && fileAt(path_) == FileId{device_, inode_}) {
        std::rename(path_.c_str(), hidden_.c_str());
    }
}

bool Filter::isReplaced() const {
    const std::optional<FileId> file = path_.empty() ? std::nullopt : fileAt(path_);
    return file.has_value() && *file != FileId{device_, inode_} && isServed(path_);
}

bool Filter::isIdle() const {
    const PathSockets sockets = socketsOf(hidden_);
    return !sockets.isWaitedFor && sockets.accepted == 0;
}

void Filter::run() {
    smfi_main();
    ended_ = true;
}

// libmilter waits for connections with its eyes shut, five seconds at a time, and holds a lock
// meanwhile that smfi_stop() wants after it has left word. So a connection must open the eyes.
void Filter::stop() {
    constexpr std::chrono::milliseconds kStep(5);
    std::thread stopper([] { smfi_stop(); });
    while (!ended_) {
        std::this_thread::sleep_for(kStep);
        touch();
    }
    stopper.join();
}

void Filter::touch() const {
    if (path_.empty()) {
        touchInet(host_, port_);
        return;
    }
    bool isTouched = false;
    for (const std::string &path : {path_, hidden_}) {
        if (fileAt(path) == FileId{device_, inode_}) {
            isTouched = touchPath(path);
        }
    }
    if (!isTouched) {
        // No path leads to it any more.
        shutdown(socketsOf(hidden_).listener, SHUT_RDWR);
    }
}

} // namespace Corvane::Milter
