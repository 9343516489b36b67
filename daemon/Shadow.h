#ifndef CORVANE_DAEMON_SHADOW_H
#define CORVANE_DAEMON_SHADOW_H

// A second rule set that is on trial: it scores some of the messages behind the first one, and
// nothing comes of it but what is counted and logged where its verdict is another.
//
//     Shadow shadow(log, metrics);
//     if (shadow.wants(*setup)) {
//         shadow.submit({setup, bytes, sender, verdict, id, messageId});
//     }
//
// Threads: any; the scans run on one of its own, which yields to all others. Where more comes than
// that can do, messages are left out and counted.

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <thread>

#include "Live.h"
#include "Log.h"
#include "Metrics.h"
#include "corvane/Verdict.h"

namespace Corvane::Milter {

class Shadow {
public:
    // Both must outlive it.
    Shadow(const Log &log, Metrics &metrics);
    Shadow(const Shadow &) = delete;
    Shadow &operator=(const Shadow &) = delete;
    // Leaves what waits undone.
    ~Shadow();

    struct Task {
        SetupRef setup;
        // The message, and what the first set made of it.
        std::string bytes;
        std::string sender;
        corvane::Verdict verdict;
        // Of the server, and of the message.
        std::string id;
        std::string messageId;
    };

    // Whether this message, which counts, is one of the sample.
    bool wants(const Setup &setup);

    // Never waits.
    void submit(Task task);

private:
    void work();
    void scan(const Task &task) const;
    void report(const Task &task, const corvane::Verdict &verdict) const;

    const Log &log_;
    Metrics &metrics_;
    std::atomic<std::uint64_t> seen_{0};
    std::mutex guard_;
    std::condition_variable changed_;
    std::deque<Task> tasks_;
    std::size_t bytes_ = 0;
    bool closing_ = false;
    std::thread thread_;
};

} // namespace Corvane::Milter

#endif
