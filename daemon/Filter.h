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
    // Whether the path may be that of a process which is there, and will go.
    enum class Place { Free, TakenOver };

    // Binds the socket and listens, a Unix socket beside its path. Throws std::runtime_error, with
    // the remedy, where that cannot be done, and where another process serves the path and is not to
    // be taken over. shared must outlive whatever session there may be.
    Filter(Shared &shared, const SocketConfig &socket, Place place = Place::Free);
    Filter(const Filter &) = delete;
    Filter &operator=(const Filter &) = delete;
    // Removes the socket's path, unless it is another process's by now.
    ~Filter();

    // Puts the Unix socket to its path, over whatever socket is there. Throws std::runtime_error.
    // Nothing for TCP.
    void publish();

    // Serves until it is stopped. For a thread of its own, in which HUP, TERM and INT are blocked:
    // libmilter would take them for itself. Whatever session is open at the end gets no more
    // answers, and what belongs to it is never freed.
    void run();

    // Takes the path away, so that no server finds it any more; sessions go on. Nothing for TCP.
    void hide();

    // Whether the path is another process's by now, which serves whoever comes.
    bool isReplaced() const;

    // Whether no mail server is connected, nor waits to be. Of a Unix socket that is replaced.
    bool isIdle() const;

    // Makes run() return at once rather than when libmilter looks the next time, and waits for that.
    void stop();

    // Where it listens: "unix:/PATH" or "inet:PORT@ADDRESS" with the port that was chosen.
    const std::string &address() const { return address_; }

private:
    void bindPath(const SocketConfig &socket, Place place);
    void bindInet(const SocketConfig &socket);
    void touch() const;

    std::string address_;
    // Of the Unix socket: its path, and what tells it from another one there.
    std::string path_;
    unsigned long device_ = 0;
    unsigned long inode_ = 0;
    unsigned int mode_ = 0;
    // Where the socket was bound, and where it goes when it is hidden.
    std::string hidden_;
    std::string host_;
    unsigned int port_ = 0;
    std::atomic<bool> ended_{false};
};

} // namespace Corvane::Milter

#endif
