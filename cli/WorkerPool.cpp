#include "WorkerPool.h"

#include <chrono>
#include <string>
#include <system_error>
#include <utility>

#include "Failure.h"

namespace Corvane::Cli {

WorkerPool::WorkerPool(unsigned int workers) {
    try {
        for (unsigned int each = 0; workers > 1 && each < workers; ++each) {
            threads_.emplace_back([this] { work(); });
        }
    } catch (const std::system_error &failure) {
        close();
        refuse("cannot start " + std::to_string(workers) + " threads: " + failure.code().message() +
               "; give -j a smaller number");
    }
}

WorkerPool::~WorkerPool() {
    close();
}

void WorkerPool::close() {
    {
        const Synchronized lock(mutex_);
        closing_ = true;
        tasks_.clear();
    }
    changed_.notify_all();
    for (std::thread &thread : threads_) {
        thread.join();
    }
}

void WorkerPool::submit(Task task, std::size_t bytes) {
    if (threads_.empty()) {
        task()();
        return;
    }
    while (isFull(bytes)) {
        finishFirst();
    }
    std::packaged_task<Finish()> packaged(std::move(task));
    pending_.push_back({packaged.get_future(), bytes});
    pendingBytes_ += bytes;
    {
        const Synchronized lock(mutex_);
        tasks_.push_back(std::move(packaged));
    }
    changed_.notify_one();
    while (!pending_.empty() &&
           pending_.front().result.wait_for(std::chrono::seconds(0)) == std::future_status::ready) {
        finishFirst();
    }
}

void WorkerPool::drain() {
    while (!pending_.empty()) {
        finishFirst();
    }
}

bool WorkerPool::isFull(std::size_t bytes) const {
    return !pending_.empty() && (pending_.size() >= kTasksPerWorker * threads_.size() ||
                                 pendingBytes_ + bytes > kMaxBytes);
}

void WorkerPool::finishFirst() {
    Pending first = std::move(pending_.front());
    pending_.pop_front();
    pendingBytes_ -= first.bytes;
    first.result.get()();
}

void WorkerPool::work() {
    while (true) {
        std::packaged_task<Finish()> task;
        {
            const Synchronized lock(mutex_);
            while (tasks_.empty() && !closing_) {
                changed_.wait(mutex_);
            }
            if (closing_) {
                return;
            }
            task = std::move(tasks_.front());
            tasks_.pop_front();
        }
        task();
    }
}

} // namespace Corvane::Cli
