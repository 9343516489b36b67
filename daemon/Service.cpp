#include "Service.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <iostream>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <utility>

#include <sys/stat.h>
#include <unistd.h>

#include "Control.h"
#include "Filter.h"
#include "Handover.h"
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
    World(const SetupRef &setup, const std::string &program, Log &itsLog)
        : log(itsLog), live(setup), shared(live, log, setup->config.bounds.scans),
          reloader(shared, log), handover(program) {
        log.configure(setup->config.log.format, setup->config.log.level);
        shared.metrics.generation(setup->rules);
    }

    Log &log;
    Live live;
    Shared shared;
    Reloader reloader;
    Handover handover;
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

// Lets the sessions come to their end that mail servers still have here, for so long: new ones go
// to the process that has taken over.
void s_outlive(const Filter &filter, std::chrono::seconds atMost) {
    constexpr milliseconds kStep(50);
    const auto end = std::chrono::steady_clock::now() + atMost;
    // A look may miss one that is accepted at that moment, a second one will not.
    constexpr int kLooks = 2;
    for (int idle = 0; idle < kLooks && std::chrono::steady_clock::now() < end;) {
        std::this_thread::sleep_for(kStep);
        idle = filter.isIdle() ? idle + 1 : 0;
    }
}

// What the sockets and the threads are made of, between start and end.
class Running {
public:
    Running(World &world, Signals &signals, bool takesOver)
        : world_(world), signals_(signals),
          filter_(world.shared, setup()->config.socket,
                  takesOver ? Filter::Place::TakenOver : Filter::Place::Free),
          control_(std::make_unique<Control>(
              Control::Steered{world.shared, world.reloader, world.handover, world.log},
              setup()->config.control,
              takesOver ? Control::Place::TakenOver : Control::Place::Free)) {
        // The one that mail comes by is last: from then on nothing can go wrong.
        control_->publish();
        filter_.publish();
        listener_ = std::thread([this] {
            filter_.run();
            ended_ = true;
            signals_.wake();
        });
    }
    Running(const Running &) = delete;
    Running &operator=(const Running &) = delete;
    ~Running() {
        if (!stopped_) {
            filter_.stop();
        }
        listener_.join();
    }

    // Until it is told to stop.
    void attend(Predecessor *former) {
        ReloadWorker reloads(world_.reloader);
        signals_.admit();
        const std::string generation = setup()->rules.generation();
        world_.log.write(LogLine(LogLevel::Info, "ready")
                             .add("socket", filter_.address())
                             .add("generation", generation)
                             .add("engine", corvane::engine())
                             .add("pid", static_cast<std::uint64_t>(getpid())));
        notifyManager("READY=1\nMAINPID=" + std::to_string(getpid()));
        if (former != nullptr) {
            former->succeed(generation);
        }
        s_attend(signals_, reloads, ended_);
    }

    void stop() {
        const std::chrono::seconds most = setup()->config.bounds.stop;
        if (world_.handover.isUnderWay() && filter_.isReplaced()) {
            world_.log.write(LogLine(LogLevel::Info, "handed_over")
                                 .add("sessions", std::uint64_t{world_.shared.sessions}));
            control_.reset();
            s_outlive(filter_, most);
        } else {
            notifyManager("STOPPING=1");
            filter_.hide();
        }
        // libmilter drops its sessions where it is told to stop, so that comes last.
        world_.shared.closing = true;
        s_finish(world_.shared, most);
        filter_.stop();
        stopped_ = true;
    }

private:
    SetupRef setup() const { return world_.live.current(); }

    World &world_;
    Signals &signals_;
    Filter filter_;
    std::unique_ptr<Control> control_;
    std::atomic<bool> ended_{false};
    bool stopped_ = false;
    std::thread listener_;
};

void s_serve(World &world, Signals &signals, Predecessor *former) {
    {
        Running running(world, signals, former != nullptr);
        running.attend(former);
        running.stop();
    }
    world.log.write(LogLine(LogLevel::Info, "stopped")
                        .add("given_up", std::uint64_t{world.shared.messages})
                        .add("sessions", std::uint64_t{world.shared.sessions}));
}

// What keeps the daemon from serving goes to the log, and to the process that waits for it.
int s_refuse(int status, const std::string &reason, const Log &log, Predecessor *former) {
    log.write(LogLine(LogLevel::Error, "cannot_start").add("reason", reason));
    if (former != nullptr) {
        former->fail(reason);
    }
    return status;
}

SetupRef s_load(const std::string &configFile, const Log &log, const Predecessor *former) {
    const Loaded loaded = loadSetup(configFile);
    if (former != nullptr && former->hasRules() && loaded.setup->rules.empty()) {
        throw std::runtime_error("the new rule set has no rules; see that the directories in the "
                                 "configuration hold some");
    }
    saveRules(loaded, log);
    return loaded.setup;
}

} // namespace

int serve(const std::string &program, const std::string &configFile) {
    constexpr mode_t kUmask = 0007;
    umask(kUmask);
    const std::unique_ptr<Predecessor> former = Predecessor::find();
    Signals signals;
    Log log;
    std::unique_ptr<World> world;
    try {
        world = std::make_unique<World>(s_load(configFile, log, former.get()), program, log);
    } catch (const std::exception &failure) {
        return s_refuse(kExitBadConfig, failure.what(), log, former.get());
    }
    logRules(world->live.current()->rules, log);
    int status = kExitStopped;
    try {
        s_serve(*world, signals, former.get());
    } catch (const std::exception &failure) {
        status = s_refuse(kExitCannotServe, failure.what(), log, former.get());
    }
    if (world->shared.sessions > 0) {
        // Nobody closes the sessions that libmilter has dropped, and they use what goes away with
        // this frame.
        log.flush();
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
        if (!setup->shadow.empty()) {
            std::cerr << "corvane-milter: " << setup->shadow.counts().loaded
                      << " rules on trial, generation " << setup->shadow.generation() << '\n';
        }
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
