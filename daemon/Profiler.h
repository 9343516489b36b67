#ifndef CORVANE_DAEMON_PROFILER_H
#define CORVANE_DAEMON_PROFILER_H

// Finds out what each rule costs on the mail that comes, from one message in so many:
//
//     profiler.start(rules, 100);
//     if (const auto profile = profiler.sample(rules)) { collector.finish(rules, *profile); }
//     profiler.view().profile->costs();
//
// Off at first, when a message pays for a look at a number.
//
// Threads: any, at once.

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>

#include "corvane/RuleProfile.h"
#include "corvane/RuleSet.h"

namespace Corvane::Milter {

class Profiler {
public:
    // Profiles one message in so many from now on, with these rules, and forgets what was counted
    // before; with 0 none, and what was counted stays.
    void start(const corvane::RuleSet &rules, unsigned int every);

    // The rules have been replaced: begins anew, where they are others and it is on.
    void follow(const corvane::RuleSet &rules);

    // Where the scan of the next message with these rules shall go; null for nowhere.
    std::shared_ptr<corvane::RuleProfile> sample(const corvane::RuleSet &rules) {
        const unsigned int every = every_.load(std::memory_order_relaxed);
        return every == 0 || seen_.fetch_add(1, std::memory_order_relaxed) % every != 0
                   ? nullptr
                   : current(rules);
    }

    struct View {
        unsigned int every = 0;
        // Null where it was never on.
        std::shared_ptr<const corvane::RuleProfile> profile;
    };
    View view() const;

private:
    std::shared_ptr<corvane::RuleProfile> current(const corvane::RuleSet &rules) const;

    std::atomic<unsigned int> every_{0};
    std::atomic<std::uint64_t> seen_{0};
    mutable std::mutex guard_;
    std::shared_ptr<corvane::RuleProfile> profile_;
};

} // namespace Corvane::Milter

#endif
