#include "LogWriter.h"

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>

#include <limits.h>
#include <unistd.h>

namespace Corvane::Milter {

struct LogWriter::Queue {
    Queue(int itsFile, std::function<std::string(std::uint64_t)> itsNotice)
        : file(itsFile), notice(std::move(itsNotice)) {}

    void add(std::string line) {
        bytes += line.size();
        lines.push_back(std::move(line));
    }

    // Tells of the lines that were left out before those that come now.
    void addNotice() {
        if (leftOut > 0) {
            add(notice(std::exchange(leftOut, 0)));
        }
    }

    // Of a line that can't be written, the rest is dropped. Pieces that a pipe takes whole.
    void output(const std::string &line) const {
        for (std::size_t done = 0; done < line.size();) {
            const ssize_t put = ::write(file, line.data() + done,
                                        std::min<std::size_t>(line.size() - done, PIPE_BUF));
            if (put < 0 && errno != EINTR) {
                return;
            }
            done += put > 0 ? static_cast<std::size_t>(put) : 0;
        }
    }

    const int file;
    const std::function<std::string(std::uint64_t)> notice;
    std::mutex guard;
    std::condition_variable changed;
    std::condition_variable written;
    std::deque<std::string> lines;
    // Of the lines, and of the one that is being written.
    std::size_t bytes = 0;
    // Since the last notice, and in all.
    std::uint64_t leftOut = 0;
    std::uint64_t dropped = 0;
    bool closing = false;
    bool ended = false;
};

LogWriter::LogWriter(int file, std::function<std::string(std::uint64_t)> notice)
    : queue_(std::make_shared<Queue>(file, std::move(notice))) {
    std::thread([queue = queue_] { work(queue); }).detach();
}

LogWriter::~LogWriter() {
    std::unique_lock<std::mutex> lock(queue_->guard);
    queue_->addNotice();
    queue_->closing = true;
    queue_->changed.notify_one();
    queue_->written.wait_for(lock, kFarewell, [this] { return queue_->ended; });
}

void LogWriter::write(std::string line) {
    const std::lock_guard<std::mutex> lock(queue_->guard);
    if (queue_->bytes + line.size() > kMostBytes) {
        ++queue_->leftOut;
        ++queue_->dropped;
        return;
    }
    queue_->addNotice();
    queue_->add(std::move(line));
    queue_->changed.notify_one();
}

void LogWriter::flush() {
    std::unique_lock<std::mutex> lock(queue_->guard);
    queue_->addNotice();
    queue_->changed.notify_one();
    queue_->written.wait_for(lock, kFarewell, [this] { return queue_->bytes == 0; });
}

std::uint64_t LogWriter::dropped() const {
    const std::lock_guard<std::mutex> lock(queue_->guard);
    return queue_->dropped;
}

void LogWriter::work(const std::shared_ptr<Queue> &queue) {
    std::unique_lock<std::mutex> lock(queue->guard);
    while (true) {
        queue->changed.wait(lock, [&] { return !queue->lines.empty() || queue->closing; });
        if (queue->lines.empty()) {
            queue->ended = true;
            queue->written.notify_all();
            return;
        }
        const std::string line = std::move(queue->lines.front());
        queue->lines.pop_front();
        lock.unlock();
        queue->output(line);
        lock.lock();
        queue->bytes -= line.size();
        if (queue->bytes == 0) {
            queue->written.notify_all();
        }
    }
}

} // namespace Corvane::Milter
