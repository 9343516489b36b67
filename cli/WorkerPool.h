#ifndef CORVANE_CLI_WORKERPOOL_H
#define CORVANE_CLI_WORKERPOOL_H

// Threads that work on tasks side by side while their results come out in the order in which the
// tasks went in:
//
//     WorkerPool pool(4);
//     for (...) {
//         pool.submit([message] {
//             auto result = work(message);         // on a thread of the pool
//             return [result] { show(result); };   // on the submitting thread, in turn
//         }, message.length());
//     }
//     pool.drain();
//
// How much waits is bounded, by number and by bytes: submit() waits rather than let it grow.
//
// Threads: submit() and drain() are for the thread that made the pool.

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <future>
#include <thread>
#include <vector>

#include "host/parser/Mutex.h"

namespace Corvane::Cli {

class WorkerPool {
public:
    using Finish = std::function<void()>;
    using Task = std::function<Finish()>;

    // Tasks of each worker, and bytes of all tasks, that may be unfinished at once. A single task
    // may be larger.
    static constexpr std::size_t kTasksPerWorker = 16;
    static constexpr std::size_t kMaxBytes = 64U << 20U;

    // With one worker there is no thread: submit() works on the task and finishes it. Throws code 4,
    // with the remedy, where the system does not start so many.
    explicit WorkerPool(unsigned int workers);
    WorkerPool(const WorkerPool &) = delete;
    WorkerPool &operator=(const WorkerPool &) = delete;

    // Waits for the tasks that have been begun; whatever else is unfinished is dropped.
    ~WorkerPool();

    // Hands over a task that holds about so many bytes, and finishes those that are done. What a
    // task or finish throws is thrown here or by drain(), when its turn comes.
    void submit(Task task, std::size_t bytes);

    // Waits for all tasks and finishes them.
    void drain();

private:
    struct Pending {
        std::future<Finish> result;
        std::size_t bytes;
    };

    void close();
    bool isFull(std::size_t bytes) const;
    void finishFirst();
    void work();

    // In order of submission.
    std::deque<Pending> pending_;
    std::size_t pendingBytes_ = 0;

    Mutex mutex_;
    std::condition_variable_any changed_;
    std::deque<std::packaged_task<Finish()>> tasks_ CORVANE_GUARDED_BY(mutex_);
    bool closing_ CORVANE_GUARDED_BY(mutex_) = false;
    std::vector<std::thread> threads_;
};

} // namespace Corvane::Cli

#endif
