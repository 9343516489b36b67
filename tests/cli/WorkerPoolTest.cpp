// Work side by side, results in turn; and the progress that is shown of it.

#include <atomic>
#include <chrono>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "Progress.h"
#include "WorkerPool.h"

namespace Corvane::Cli {
namespace {

std::vector<int> s_upTo(int end) {
    std::vector<int> numbers;
    for (int each = 0; each < end; ++each) {
        numbers.push_back(each);
    }
    return numbers;
}

TEST(WorkerPool, FinishesInOrderOnTheSubmittingThread) {
    constexpr int kTasks = 500;
    for (const unsigned int workers : {1U, 2U, 7U}) {
        const auto self = std::this_thread::get_id();
        std::vector<int> finished;
        WorkerPool pool(workers);
        for (int each = 0; each < kTasks; ++each) {
            const auto task = [&finished, each, self] {
                std::this_thread::sleep_for(std::chrono::microseconds(each * 37 % 200));
                return [&finished, each, self] {
                    EXPECT_EQ(std::this_thread::get_id(), self);
                    finished.push_back(each);
                };
            };
            pool.submit(task, 1);
        }
        pool.drain();
        EXPECT_EQ(finished, s_upTo(kTasks)) << workers;
    }
}

TEST(WorkerPool, HoldsBackWhatWouldBeTooMuch) {
    constexpr std::size_t kBytes = WorkerPool::kMaxBytes / 2;
    std::atomic<int> begun{0};
    int finished = 0;
    WorkerPool pool(4);
    for (int each = 0; each < 10; ++each) {
        const auto task = [&begun, &finished] {
            ++begun;
            return [&finished] { ++finished; };
        };
        pool.submit(task, kBytes);
        EXPECT_LE(each + 1 - finished, 2);
    }
    pool.submit([&finished] { return [&finished] { ++finished; }; }, 3 * WorkerPool::kMaxBytes);
    pool.drain();
    EXPECT_EQ(finished, 11);
}

TEST(WorkerPool, PassesOnWhatATaskThrowsAndCanBeDropped) {
    WorkerPool pool(2);
    EXPECT_THROW(
        {
            pool.submit([]() -> WorkerPool::Finish { throw std::runtime_error("x"); }, 1);
            pool.drain();
        },
        std::runtime_error);
    for (int each = 0; each < 20; ++each) {
        pool.submit(
            [] {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
                return [] {};
            },
            1);
    }
}

TEST(Progress, IsSilentAtFirstAndRenewedNowAndThen) {
    Progress::Time now;
    std::ostringstream out;
    const auto step = [&out, &now](Progress &progress, std::chrono::milliseconds after) {
        out.str("");
        now += after;
        progress.step({41, 2, 0, 1});
        return out.str();
    };
    {
        Progress progress(out, Progress::Mode::On, [&now] { return now; });
        EXPECT_EQ(step(progress, std::chrono::milliseconds(999)), "");
        EXPECT_EQ(step(progress, std::chrono::milliseconds(1)),
                  "\r\x1b[K42 messages in 1 s, 2 over, 1 not read");
        EXPECT_EQ(step(progress, std::chrono::milliseconds(199)), "");
        EXPECT_NE(step(progress, std::chrono::milliseconds(1)), "");
        out.str("");
    }
    EXPECT_EQ(out.str(), "\r\x1b[K");
    Progress off(out, Progress::Mode::Off, [&now] { return now; });
    EXPECT_EQ(step(off, std::chrono::hours(1)), "");
}

} // namespace
} // namespace Corvane::Cli
