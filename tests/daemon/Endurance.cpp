// Trials of the daemon that take minutes, by hand or for ./test system; each tells its figures and
// fails where a bound is passed:
//
//     milter-endurance lossless [MESSAGES RELOADS RESTARTS]   3000 100 4 unless given
//     milter-endurance soak [MESSAGES]                        100000
//     milter-endurance abuse [SESSIONS]                       5000
//
// CORVANE_BENCH_RULES names a rule directory for the soak; without it a few rules are made.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "daemon/Abuse.h"
#include "daemon/Daemon.h"
#include "daemon/ProcessUse.h"
#include "daemon/Traffic.h"
#include "daemon/Upheaval.h"
#include "support/Command.h"
#include "support/TempDir.h"

namespace Corvane::Milter {
namespace {

constexpr unsigned int kClients = 8;

class Trial {
public:
    void require(bool holds, const std::string &what) {
        std::cout << (holds ? "holds: " : "FAILS: ") << what << '\n';
        failed_ = failed_ || !holds;
    }
    int status() const { return failed_ ? 1 : 0; }

private:
    bool failed_ = false;
};

void s_pause(int millis) {
    std::this_thread::sleep_for(std::chrono::milliseconds(millis));
}

void s_show(Traffic::Tally &tally) {
    constexpr double kMiddle = 0.5;
    constexpr double kHigh = 0.99;
    std::cout << tally.accepted << " accepted, " << tally.putOff << " put off, " << tally.broken
              << " broken, " << tally.unreachable << " unreachable, " << tally.unscored
              << " unscored; p50 " << tally.quantile(kMiddle) << " ms, p99 "
              << tally.quantile(kHigh) << " ms\n";
}

bool s_isLossless(const Traffic::Tally &tally) {
    return tally.putOff + tally.broken + tally.unreachable + tally.unscored == 0;
}

int s_lossless(unsigned int messages, unsigned int reloads, unsigned int restarts) {
    Trial trial;
    const TempDir directory;
    Upheaval upheaval(directory);
    Daemon daemon(directory, "");
    upheaval.steer(daemon);
    Traffic traffic(daemon.socket(), kClients);
    const unsigned int every = reloads / (restarts + 1);
    for (unsigned int each = 0; each < reloads; ++each) {
        upheaval.reload(each % Upheaval::kKinds);
        if (restarts > 0 && (each + 1) % every == 0) {
            upheaval.restart();
            --restarts;
        }
    }
    while (traffic.accepted() < messages) {
        s_pause(10);
    }
    Traffic::Tally tally = traffic.stop();
    s_show(tally);
    trial.require(s_isLossless(tally), "nothing is lost, put off or unscored");
    bool isOfOneSet = true;
    for (const auto &[verdict, count] : tally.verdicts) {
        const auto known = upheaval.generations().find(verdict.first);
        isOfOneSet =
            isOfOneSet && known != upheaval.generations().end() && known->second == verdict.second;
    }
    std::cout << tally.verdicts.size() << " generations\n";
    trial.require(isOfOneSet, "each message has the score of the set that it names");
    trial.require(tally.messageIds.size() == tally.accepted, "each message was accepted once");
    trial.require(daemon.stop() == 0, "the last process ends well");
    return trial.status();
}

void s_makeRules(const TempDir &directory) {
    const char *given = std::getenv("CORVANE_BENCH_RULES");
    if (given != nullptr) {
        std::filesystem::create_directory_symlink(given, directory.path("rules"));
        return;
    }
    directory.makeDirectory("rules");
    directory.write("rules/a.cf", "body PRIZE /prize/\nscore PRIZE 6\n");
}

// Its log would be kept in the memory of this process.
void s_silence(const TempDir &directory) {
    corvane({"ctl", "--socket", directory.path("control.sock"), "log", "error"});
}

int s_soak(unsigned int messages) {
    constexpr unsigned int kWarmPart = 5;
    constexpr std::size_t kMostBytesEach = 10;
    Trial trial;
    const TempDir directory;
    s_makeRules(directory);
    Daemon daemon(directory, "");
    s_silence(directory);
    Traffic traffic(daemon.socket(), kClients);
    const auto await = [&traffic](std::size_t count) {
        while (traffic.accepted() < count) {
            s_pause(10);
        }
    };
    ProcessUse warm;
    std::size_t mostThreads = 0;
    std::size_t mostFiles = 0;
    constexpr unsigned int kLooks = 20;
    for (unsigned int look = 1; look <= kLooks; ++look) {
        await(std::size_t{messages} * look / kLooks);
        const ProcessUse use = ProcessUse::of(daemon.process());
        std::cout << traffic.accepted() << " messages: " << use.residentBytes << " bytes, "
                  << use.threads << " threads, " << use.files << " files\n";
        if (look == kLooks / kWarmPart) {
            warm = use;
        } else if (look > kLooks / kWarmPart) {
            mostThreads = std::max(mostThreads, use.threads);
            mostFiles = std::max(mostFiles, use.files);
        }
    }
    const ProcessUse last = ProcessUse::of(daemon.process());
    Traffic::Tally tally = traffic.stop();
    s_show(tally);
    const std::size_t grown = last.residentBytes - std::min(last.residentBytes, warm.residentBytes);
    const std::size_t counted = messages - messages / kWarmPart;
    std::cout << "grown by " << grown << " bytes over " << counted << " messages\n";
    trial.require(s_isLossless(tally), "nothing is lost, put off or unscored");
    trial.require(grown <= kMostBytesEach * counted, "memory grows by 10 bytes a message at most");
    // Each client has at most one session, which is one file, and one thread that serves it.
    trial.require(mostThreads <= warm.threads + kClients, "threads stay");
    trial.require(mostFiles <= warm.files + kClients, "descriptors stay");
    trial.require(daemon.stop() == 0, "the process ends well");
    return trial.status();
}

// The value of a metric without labels; -1 where there is none.
double s_metric(const TempDir &directory, const std::string &name) {
    const std::string text =
        corvane({"ctl", "--socket", directory.path("control.sock"), "metrics"}).out;
    const std::size_t at = text.find('\n' + name + ' ');
    return at == std::string::npos ? -1 : std::atof(text.c_str() + at + name.size() + 2);
}

// Sessions from the first to before the last, on two threads; how many of them were not answered.
std::size_t s_abuseAll(const std::string &socket, unsigned int first, unsigned int last) {
    constexpr unsigned int kThreads = 2;
    std::atomic<std::size_t> silent{0};
    std::vector<std::thread> threads;
    for (unsigned int each = 0; each < kThreads; ++each) {
        threads.emplace_back([&, each] {
            for (unsigned int number = first + each; number < last; number += kThreads) {
                try {
                    abuse(socket, number);
                } catch (const std::exception &failure) {
                    std::cout << "session " << number << ": " << failure.what() << '\n';
                    ++silent;
                }
            }
        });
    }
    for (std::thread &each : threads) {
        each.join();
    }
    return silent;
}

void s_add(Traffic::Tally &to, const Traffic::Tally &from) {
    to.accepted += from.accepted;
    to.putOff += from.putOff;
    to.broken += from.broken;
    to.unreachable += from.unreachable;
    to.unscored += from.unscored;
    to.millis.insert(to.millis.end(), from.millis.begin(), from.millis.end());
}

struct Disturbance {
    Traffic::Tally alone;
    Traffic::Tally beside;
    std::size_t silent = 0;
};

// In turns with quiet, so that what else the machine does slows both.
Disturbance s_disturb(const std::string &socket, unsigned int sessions) {
    constexpr unsigned int kTurns = 10;
    constexpr std::size_t kQuietMessages = 500;
    Disturbance found;
    for (unsigned int turn = 0; turn < kTurns; ++turn) {
        Traffic quiet(socket, 2);
        while (quiet.accepted() < kQuietMessages) {
            s_pause(10);
        }
        s_add(found.alone, quiet.stop());
        Traffic beside(socket, 2);
        found.silent +=
            s_abuseAll(socket, sessions * turn / kTurns, sessions * (turn + 1) / kTurns);
        s_add(found.beside, beside.stop());
    }
    return found;
}

int s_abuse(unsigned int sessions) {
    constexpr double kHigh = 0.99;
    constexpr int kStuckSeconds = 10;
    Trial trial;
    const TempDir directory;
    s_makeRules(directory);
    Daemon daemon(directory, "");
    s_silence(directory);
    const ProcessUse before = ProcessUse::of(daemon.process());
    Disturbance found = s_disturb(daemon.socket(), sessions);
    s_show(found.alone);
    s_show(found.beside);
    for (int second = 0; second < kStuckSeconds && s_metric(directory, "corvane_sessions") > 0;
         ++second) {
        s_pause(1000);
    }
    const ProcessUse after = ProcessUse::of(daemon.process());
    std::cout << "threads " << before.threads << " and " << after.threads << ", descriptors "
              << before.files << " and " << after.files << '\n';
    trial.require(found.silent == 0, "each session is answered or ended");
    trial.require(s_metric(directory, "corvane_sessions") == 0, "no session is left after 10 s");
    trial.require(s_metric(directory, "corvane_messages_open") == 0, "no message is left");
    trial.require(s_isLossless(found.alone) && s_isLossless(found.beside),
                  "other sessions are served");
    trial.require(found.beside.quantile(kHigh) <= 2 * found.alone.quantile(kHigh),
                  "their p99 is doubled at most");
    trial.require(daemon.stop() == 0, "the process ends well");
    return trial.status();
}

unsigned int s_number(const std::vector<std::string> &words, std::size_t place,
                      unsigned int usual) {
    return words.size() > place ? static_cast<unsigned int>(std::stoul(words[place])) : usual;
}

int s_run(const std::vector<std::string> &words) {
    constexpr unsigned int kMessages = 3000;
    constexpr unsigned int kReloads = 100;
    constexpr unsigned int kRestarts = 4;
    constexpr unsigned int kSoak = 100000;
    constexpr unsigned int kSessions = 5000;
    const std::string trial = words.empty() ? "" : words.front();
    if (trial == "lossless") {
        return s_lossless(s_number(words, 1, kMessages), s_number(words, 2, kReloads),
                          s_number(words, 3, kRestarts));
    }
    if (trial == "soak") {
        return s_soak(s_number(words, 1, kSoak));
    }
    if (trial == "abuse") {
        return s_abuse(s_number(words, 1, kSessions));
    }
    std::cerr << "name a trial: lossless, soak or abuse\n";
    return 2;
}

} // namespace
} // namespace Corvane::Milter

int main(int argc, char **argv) {
    try {
        return Corvane::Milter::s_run({argv + 1, argv + argc});
    } catch (const std::exception &failure) {
        std::cerr << "milter-endurance: " << failure.what() << '\n';
    }
    return 1;
}
