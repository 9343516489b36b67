#ifndef CORVANE_DAEMON_SOCKETS_H
#define CORVANE_DAEMON_SOCKETS_H

// Sockets that a daemon listens on, and their paths.
//
// Threads: free functions without state.

#include <cstddef>
#include <optional>
#include <string>

namespace Corvane::Milter {

// Which file a path names.
struct FileId {
    unsigned long device = 0;
    unsigned long inode = 0;

    bool operator==(const FileId &) const = default;
};

// None where there is nothing.
std::optional<FileId> fileAt(const std::string &path);

// Whether a process accepts connections there.
bool isServed(const std::string &path);

// Removes the path if it still names that file.
void removeIfSame(const std::string &path, const FileId &file);

// Connects once and hangs up; answers whether that went well.
bool touchPath(const std::string &path);
bool touchInet(const std::string &address, unsigned int port);

// What this process has open of a Unix socket that was bound to the path, wherever that is by now.
struct PathSockets {
    // Which listens; -1 for none.
    int listener = -1;
    // Whether somebody has connected to it who was not accepted yet.
    bool isWaitedFor = false;
    std::size_t accepted = 0;
};
PathSockets socketsOf(const std::string &path);

// Gives the listening TCP socket of this process at that address and port, or at any port where it
// is 0, what accepted ones shall have: no waiting to fill packets. Answers its port; 0 where there
// is no such socket.
unsigned int hastenListener(const std::string &address, unsigned int port);

} // namespace Corvane::Milter

#endif
