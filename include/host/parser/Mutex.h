#ifndef CORVANE_HOST_PARSER_MUTEX_H
#define CORVANE_HOST_PARSER_MUTEX_H

// A lock, its scoped holder, and a short sleep.
//
//     Mutex mutex;
//     {
//         Synchronized lock(mutex);
//         ...
//     }
//
// Threads: Mutex is for any number of threads; a Synchronized belongs to the thread that made it.

#include <mutex>

#include "host/parser/Export.h"
#include "host/parser/ThreadSafety.h"

namespace Corvane {

// Not recursive: taking it twice on one thread is an error. Not copyable.
class CORVANE_PARSER_API CORVANE_CAPABILITY("mutex") Mutex {
public:
    Mutex() = default;
    Mutex(const Mutex &) = delete;
    Mutex &operator=(const Mutex &) = delete;

    // Waits for the lock, and gives it back; Synchronized does both.
    void lock() CORVANE_ACQUIRE() { mutex_.lock(); }
    void unlock() CORVANE_RELEASE() { mutex_.unlock(); }

private:
    std::mutex mutex_;
};

// Holds the mutex from construction to destruction; the mutex must outlive it.
class CORVANE_PARSER_API CORVANE_SCOPED_CAPABILITY Synchronized {
public:
    explicit Synchronized(Mutex &mutex) CORVANE_ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
    ~Synchronized() CORVANE_RELEASE() { mutex_.unlock(); }
    Synchronized(const Synchronized &) = delete;
    Synchronized &operator=(const Synchronized &) = delete;

private:
    Mutex &mutex_;
};

// Sleeps for seconds plus milliseconds, at least.
CORVANE_PARSER_API void ts_usleep(unsigned int seconds, unsigned int milliseconds);

} // namespace Corvane

#endif
