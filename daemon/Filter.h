#ifndef CORVANE_DAEMON_FILTER_H
#define CORVANE_DAEMON_FILTER_H

// The mail server's side: sessions of the milter protocol, on threads of libmilter's, made into
// transactions. libmilter has one filter for a process, and so there is one object at a time.
//
// Threads: construction and the operations are the main thread's, but for run().

#include <atomic>
#include <string>

#include "Config.h"
#include "Transaction.h"

namespace Corvane::Milter {

class Filter {
public:
    // Binds the socket and listens. Throws std::runtime_error, with the remedy, where that cannot be
    // done, and where another process serves the socket. shared must outlive whatever session
    // there may be.
    Filter(Shared &shared, const SocketConfig &socket);
    Filter(const Filter &) = delete;
    Filter &operator=(const Filter &) = delete;
    // Removes the socket's path, unless it is another process's by now.
    ~Filter();

    // Serves until it is stopped. For a thread of its own, in which HUP, TERM and INT are blocked:
    // libmilter would take them for itself. Whatever session is open at the end gets no more
    // answers, and what belongs to it is never freed.
    void run();

    // Takes the path away, so that no server finds it any more; sessions go on. Nothing for TCP.
    void hide();

    // Makes run() return at once rather than when libmilter looks the next time, and waits for that.
    void stop();

    // Where it listens: "unix:/PATH" or "inet:PORT@ADDRESS" with the port that was chosen.
    const std::string &address() const { return address_; }

private:
    void bindPath(const SocketConfig &socket);
    void bindInet(const SocketConfig &socket);
    void touch() const;

    std::string address_;
    // Of the Unix socket: its path, and what tells it from another one there.
    std::string path_;
    unsigned long device_ = 0;
    unsigned long inode_ = 0;
    // Where the socket was bound, and where it goes when it is hidden.
    std::string hidden_;
    std::string host_;
    unsigned int port_ = 0;
    std::atomic<bool> ended_{false};
};

} // namespace Corvane::Milter

#endif
