#ifndef CORVANE_DAEMON_HANDOVER_H
#define CORVANE_DAEMON_HANDOVER_H

// A restart that no client notices: the process starts another one of the program, which loads
// configuration and rules, binds sockets of its own, puts them over the paths of the old ones and
// says so. Only then it tells the old process to go, which serves the sessions that it has to their
// end.
//
// The old process:
//     Handover handover(program);
//     const Handover::Result result = handover.run(setup);   // any thread
//
// The new one:
//     const auto former = Predecessor::find();               // null where nobody hands over
//     ...
//     if (former != nullptr) { former->succeed(generation); }

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

#include <sys/types.h>

#include "Live.h"

namespace Corvane::Milter {

class Handover {
public:
    // program: as the process was started; it is found again from there even when the file was
    // replaced meanwhile.
    explicit Handover(const std::string &program);

    struct Result {
        bool isDone = false;
        // Why it is not.
        std::string reason;
        // Of the new process.
        pid_t process = 0;
        std::string generation;
    };

    // Starts the new process and waits until it has taken over, or will not. Throws nothing. For
    // any thread; one at a time, a second one is refused.
    Result run(const Setup &setup);

    // Whether a new process has been started and has not failed.
    bool isUnderWay() const { return underWay_; }

private:
    std::string program_;
    std::mutex one_;
    std::atomic<bool> underWay_{false};
};

// What the new process knows of the one that has started it.
class Predecessor {
public:
    // Null where this process was started otherwise. Goes on in a child, so that the old process is
    // nobody's parent and may end when it will; before any thread is started.
    static std::unique_ptr<Predecessor> find();

    Predecessor(int file, pid_t process, bool hasRules)
        : file_(file), process_(process), hasRules_(hasRules) {}
    Predecessor(const Predecessor &) = delete;
    Predecessor &operator=(const Predecessor &) = delete;
    ~Predecessor();

    bool hasRules() const { return hasRules_; }

    // Tells the old process that its sockets are taken over, and to leave; or that it must go on,
    // and why.
    void succeed(const std::string &generation);
    void fail(const std::string &reason);

private:
    void say(const std::string &line) const;

    int file_;
    pid_t process_;
    bool hasRules_;
};

} // namespace Corvane::Milter

#endif
