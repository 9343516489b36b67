#ifndef CORVANE_DAEMON_SIGNALS_H
#define CORVANE_DAEMON_SIGNALS_H

// The signals that steer the daemon: TERM and INT stop it, HUP reloads.
//
// They are blocked in all threads but the main one, where handlers take them: libmilter has a thread
// that waits for the three as well, and would take a HUP for the order to stop. The system gives a
// signal to the main thread wherever that lets it in, and so it must always do.
//
//     Signals signals;                 // before any thread is started
//     std::thread other(...);          // has them blocked
//     signals.admit();
//     const Signals::Come come = signals.wait(std::chrono::seconds(1));
//
// Threads: all is the main thread's, but wake(). One object at a time.

#include <chrono>

namespace Corvane::Milter {

class Signals {
public:
    Signals();
    Signals(const Signals &) = delete;
    Signals &operator=(const Signals &) = delete;
    ~Signals();

    // Lets them in, in the calling thread.
    void admit();

    struct Come {
        bool stop = false;
        bool reload = false;
    };

    // What has come since the last call; returns with the first, when woken, or at the end of the
    // time.
    Come wait(std::chrono::milliseconds atMost);

    // Makes wait() return. For any thread.
    void wake();

private:
    int bell_;
};

} // namespace Corvane::Milter

#endif
