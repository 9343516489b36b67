#include "Shadow.h"

#include <algorithm>
#include <exception>
#include <string_view>
#include <utility>
#include <vector>

#include <sys/resource.h>
#include <unistd.h>

namespace Corvane::Milter {

namespace {

// What may wait: enough for a burst, and memory for two of the largest messages.
constexpr std::size_t kMostTasks = 64;
constexpr std::size_t kMostBytes = 64U << 20U;

bool s_isUndecided(const corvane::Verdict &verdict) {
    const auto &limits = verdict.limits();
    return !verdict.over() && std::find(limits.begin(), limits.end(), "budget") != limits.end();
}

// The names of the hits of one that the other has not, or has with another score.
std::vector<std::string_view> s_onlyOf(const corvane::Verdict &one, const corvane::Verdict &other) {
    std::vector<std::string_view> names;
    for (const corvane::Hit &hit : one.hits()) {
        const bool isShared =
            std::any_of(other.hits().begin(), other.hits().end(), [&](const corvane::Hit &each) {
                return each.name == hit.name && each.score == hit.score;
            });
        if (!isShared) {
            names.emplace_back(hit.name);
        }
    }
    return names;
}

} // namespace

Shadow::Shadow(const Log &log, Metrics &metrics)
    : log_(log), metrics_(metrics), thread_([this] { work(); }) {}

Shadow::~Shadow() {
    {
        const std::lock_guard<std::mutex> lock(guard_);
        closing_ = true;
    }
    changed_.notify_one();
    thread_.join();
}

// Evenly spread: of 100 in a row so many as the percentage says.
bool Shadow::wants(const Setup &setup) {
    constexpr std::uint64_t kWhole = 100;
    const unsigned int percent = setup.config.shadow.percent;
    if (setup.shadow.empty() || percent == 0) {
        return false;
    }
    const std::uint64_t number = seen_.fetch_add(1) % kWhole;
    return (number + 1) * percent / kWhole != number * percent / kWhole;
}

void Shadow::submit(Task task) {
    {
        const std::lock_guard<std::mutex> lock(guard_);
        if (tasks_.size() < kMostTasks && bytes_ + task.bytes.size() <= kMostBytes) {
            bytes_ += task.bytes.size();
            tasks_.push_back(std::move(task));
            changed_.notify_one();
            return;
        }
    }
    metrics_.shadowed("dropped");
}

void Shadow::work() {
    constexpr int kNiceness = 10;
    // Of this thread alone.
    setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), kNiceness);
    std::unique_lock<std::mutex> lock(guard_);
    while (true) {
        changed_.wait(lock, [this] { return closing_ || !tasks_.empty(); });
        if (closing_) {
            return;
        }
        const Task task = std::move(tasks_.front());
        tasks_.pop_front();
        bytes_ -= task.bytes.size();
        lock.unlock();
        scan(task);
        lock.lock();
    }
}

void Shadow::scan(const Task &task) const {
    try {
        corvane::ScanOptions options = task.setup->config.scanOptions();
        options.sender = task.sender;
        const corvane::Verdict verdict = task.setup->shadow.scan(task.bytes, options);
        report(task, verdict);
    } catch (const std::exception &failure) {
        metrics_.shadowed("failed");
        log_.write(LogLine(LogLevel::Error, "shadow_failed")
                       .add("id", task.id)
                       .add("reason", failure.what()));
    }
}

void Shadow::report(const Task &task, const corvane::Verdict &verdict) const {
    if (s_isUndecided(verdict)) {
        metrics_.shadowed("undecided");
        return;
    }
    if (verdict.over() == task.verdict.over()) {
        metrics_.shadowed("same");
        return;
    }
    const char *flip = verdict.over() ? "clean_to_hit" : "hit_to_clean";
    metrics_.shadowed(flip);
    log_.write(LogLine(LogLevel::Info, "shadow_flip")
                   .add("id", task.id)
                   .add("message_id", task.messageId)
                   .add("flip", flip)
                   .add("score", task.verdict.score())
                   .add("shadow_score", verdict.score())
                   .addNames("rules", s_onlyOf(task.verdict, verdict))
                   .addNames("shadow_rules", s_onlyOf(verdict, task.verdict))
                   .add("generation", task.setup->rules.generation())
                   .add("shadow_generation", task.setup->shadow.generation()));
}

} // namespace Corvane::Milter
