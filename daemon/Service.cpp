#include "Service.h"

#include <chrono>
#include <condition_variable>
#include <exception>
#include <iostream>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

#include <sys/stat.h>
#include <unistd.h>

#include "Control.h"
#include "Filter.h"
#include "Live.h"
#include "Log.h"
#include "Notify.h"
#include "Reloader.h"
#include "Signals.h"
#include "Text.h"
#include "Transaction.h"
#include "corvane/Engine.h"

namespace Corvane::Milter {

namespace {

using std::chrono::milliseconds;

constexpr int kExitStopped = 0;
constexpr int kExitCannotServe = 1;
// EX_CONFIG of sysexits.h: the service manager need not try again.
constexpr int kExitBadConfig = 78;

// Reloads on a thread of its own, so that the main thread is free for signals.
class ReloadWorker {
public:
    explicit ReloadWorker(Reloader &reloader) : reloader_(reloader), thread_([this] { work(); }) {}
    ReloadWorker(const ReloadWorker &) = delete;
    ReloadWorker &operator=(const ReloadWorker &) = delete;
    ~ReloadWorker() {
        tell(closing_);
        thread_.join();
    }

    // Requests that come while one is worked on make one more.
    void request() { tell(wanted_); }

private:
    void tell(bool &what) {
        const std::lock_guard<std::mutex> lock(guard_);
        what = true;
        changed_.notify_one();
    }

    void work() {
        std::unique_lock<std::mutex> lock(guard_);
        while (true) {
            changed_.wait(lock, [this] { return wanted_ || closing_; });
            if (closing_) {
                return;
            }
            wanted_ = false;
            lock.unlock();
            notifyManager("RELOADING=1\nMONOTONIC_USEC=" + monotonicMicros());
            reloader_.reload();
            notifyManager("READY=1");
            lock.lock();
        }
    }

    Reloader &reloader_;
    std::mutex guard_;
    std::condition_variable changed_;
    bool wanted_ = false;
    bool closing_ = false;
    std::thread thread_;
};

// What sessions use, which outlives them all.
struct World {
    explicit World(SetupRef setup)
        : live(setup), shared(live, log, setup->config.bounds.scans), reloader(shared, log) {
        log.configure(setup->config.log.format, setup->config.log.level);
        shared.metrics.generation(setup->rules);
    }

    Log log;
    Live live;
    Shared shared;
    Reloader reloader;
};

// Until a signal, or until libmilter has ended by itself.
void s_attend(Signals &signals, ReloadWorker &reloads, const std::atomic<bool> &ended) {
    const auto interval = std::chrono::duration_cast<milliseconds>(watchdogInterval()) / 2;
    constexpr milliseconds kLong = std::chrono::hours(1);
    while (!ended) {
        const Signals::Come come = signals.wait(interval.count() > 0 ? interval : kLong);
        if (come.stop) {
            return;
        }
        if (come.reload) {
            reloads.request();
        }
        if (interval.count() > 0) {
            notifyManager("WATCHDOG=1");
        }
    }
}

// Lets messages that are under way come to their end, for so long.
void s_finish(const Shared &shared, std::chrono::seconds atMost) {
    constexpr milliseconds kStep(10);
    // For the last answer to be written, which nobody hears of.
    constexpr milliseconds kGrace(50);
    const auto end = std::chrono::steady_clock::now() + atMost;
    const bool hadMessages = shared.messages > 0;
    while (shared.messages > 0 && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(kStep);
    }
    if (hadMessages) {
        std::this_thread::sleep_for(kGrace);
    }
}

void s_serve(World &world, Signals &signals) {
    const std::chrono::seconds stop = world.live.current()->config.bounds.stop;
    Filter filter(world.shared, world.live.current()->config.socket);
    const Control control(world.shared, world.reloader, world.log,
                          world.live.current()->config.control);
    std::atomic<bool> ended{false};
    std::thread listener([&] {
        filter.run();
        ended = true;
        signals.wake();
    });
    {
        ReloadWorker reloads(world.reloader);
        signals.admit();
        world.log.write(LogLine(LogLevel::Info, "ready")
                            .add("socket", filter.address())
                            .add("generation", world.live.current()->rules.generation())
                            .add("engine", corvane::engine())
                            .add("pid", static_cast<std::uint64_t>(getpid())));
        notifyManager("READY=1");
        s_attend(signals, reloads, ended);
        notifyManager("STOPPING=1");
    }
    // libmilter drops its sessions where it is told to stop, so that comes last.
    filter.hide();
    world.shared.closing = true;
    s_finish(world.shared, stop);
    filter.stop();
    listener.join();
    world.log.write(LogLine(LogLevel::Info, "stopped")
                        .add("given_up", std::uint64_t{world.shared.messages})
                        .add("sessions", std::uint64_t{world.shared.sessions}));
}

SetupRef s_load(const std::string &configFile, const Log &log) {
    try {
        const Loaded loaded = loadSetup(configFile);
        saveRules(loaded, log);
        return loaded.setup;
    } catch (const std::exception &failure) {
        log.write(LogLine(LogLevel::Error, "cannot_start").add("reason", failure.what()));
        return nullptr;
    }
}

} // namespace

int serve(const std::string &configFile) {
    constexpr mode_t kUmask = 0007;
    umask(kUmask);
    Signals signals;
    const Log early;
    const SetupRef setup = s_load(configFile, early);
    if (setup == nullptr) {
        return kExitBadConfig;
    }
    auto world = std::make_unique<World>(setup);
    logRules(setup->rules, world->log);
    int status = kExitStopped;
    try {
        s_serve(*world, signals);
    } catch (const std::exception &failure) {
        world->log.write(LogLine(LogLevel::Error, "cannot_start").add("reason", failure.what()));
        status = kExitCannotServe;
    }
    if (world->shared.sessions > 0) {
        // Nobody closes the sessions that libmilter has dropped, and they use what goes away with
        // this frame.
        _exit(status);
    }
    return status;
}

int check(const std::string &configFile) {
    try {
        const SetupRef setup = loadSetup(configFile).setup;
        for (const corvane::Problem &problem : setup->rules.problems()) {
            std::cerr << toString(problem) << '\n';
        }
        std::cerr << "corvane-milter: " << configFile << " is right; "
                  << setup->rules.counts().loaded << " rules loaded, "
                  << setup->rules.counts().refused + setup->rules.counts().duplicates
                  << " left out, generation " << setup->rules.generation() << '\n';
        if (setup->rules.empty()) {
            std::cerr << "corvane-milter: there are no rules: messages are treated as on_error."
                         "no_rules says until some are loaded\n";
        }
        return kExitStopped;
    } catch (const ConfigError &failure) {
        std::cerr << failure.what() << '\n';
    } catch (const std::exception &failure) {
        std::cerr << "corvane-milter: " << failure.what() << '\n';
    }
    return kExitBadConfig;
}

} // namespace Corvane::Milter
