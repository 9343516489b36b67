#ifndef CORVANE_DAEMON_SLOTS_H
#define CORVANE_DAEMON_SLOTS_H

// How many scans may run at once. libmilter has as many threads as there are sessions that are
// served at a moment; more scans than processors only make each other slower.
//
//     const Slots::Taken slot = slots.take(std::chrono::milliseconds(1500));
//     if (slot) { ... }
//
// Threads: any, at once.

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace Corvane::Milter {

class Slots {
public:
    // One slot for as long as it lives; none where it is false.
    class Taken {
    public:
        explicit Taken(Slots *from) : from_(from) {}
        Taken(Taken &&other) noexcept : from_(other.from_) { other.from_ = nullptr; }
        Taken(const Taken &) = delete;
        Taken &operator=(const Taken &) = delete;
        Taken &operator=(Taken &&) = delete;
        ~Taken();

        explicit operator bool() const { return from_ != nullptr; }

    private:
        Slots *from_;
    };

    // 0 is as many as there are processors.
    explicit Slots(unsigned int slots) { resize(slots); }

    // Waits until one is free, but no longer than told.
    Taken take(std::chrono::milliseconds atMost);

    // Those that are taken stay so, where there are fewer from now on.
    void resize(unsigned int slots);

private:
    std::mutex guard_;
    std::condition_variable freed_;
    unsigned int slots_ = 0;
    unsigned int taken_ = 0;
};

} // namespace Corvane::Milter

#endif
