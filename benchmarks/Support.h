#ifndef CORVANE_BENCHMARKS_SUPPORT_H
#define CORVANE_BENCHMARKS_SUPPORT_H

// What the benchmark programs share: the rule sets and messages that they measure with, and times taken per message.
//
//     int main(int argc, char **argv) {
//         return run(argc, argv, [] {
//             for (const RuleDirectory &set : ruleDirectories()) {
//                 benchmark::RegisterBenchmark(...)->UseManualTime();
//             }
//         });
//     }
//
// Threads: one thread, unless an operation says otherwise.

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <time.h>

#include "heuristic/Scanner.h"
#include "host/parser/MailReader.h"

namespace Corvane::Benchmarks {

using Heuristic::langID;
using Heuristic::RefMatches;
using Heuristic::Scanner;

// A rule set on disk. name is that of its directory: the mix and the number of rules, as "mail-5000".
struct RuleDirectory {
    std::string name;
    std::string mix;
    unsigned int rules; // 0 where the name tells none
    std::string path;
};

// The rule sets below CORVANE_BENCH_RULES, by mix and number of rules; the example rules where that is unset.
const std::vector<RuleDirectory> &ruleDirectories();

struct Message {
    std::string bytes;
    RefMessageProperties properties;
    EmailAddress sender;
    langID language;
};

// CORVANE_BENCH_MESSAGES (500) messages, evenly spread over the files below CORVANE_MAIL_DIR in the order of their
// paths; those that the tests and the example rules come with where that is unset. readMessages reads them anew, messages only once.
const std::vector<Message> &messages();
std::vector<Message> readMessages();

// Indexed: as loaded. Walk: a rule was set again after the load, so that scans walk the lists.
enum class Way { Indexed, Walk };

// Loads a rule set. Any number of threads may do so at once.
Scanner load(const RuleDirectory &directory, Way way);

// The same, but a set that the last call with that way has loaded is not loaded again.
Scanner &loaded(const RuleDirectory &directory, Way way);

// Seconds that the operation takes.
template <class Operation>
double seconds(Operation operation) {
    const auto start = std::chrono::steady_clock::now();
    operation();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Seconds that the processor spends on the operation on this thread, which do not grow with what else the machine does.
// Asking takes some tenths of a microsecond.
template <class Operation>
double cpuSeconds(Operation operation) {
    const auto now = [] {
        timespec time{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
    };
    const double start = now();
    operation();
    return now() - start;
}

// How long each of some messages takes, measured in any number of passes over all of them. Of the times of a message
// the median counts, so that one interruption does not show.
class MessageTimes {
public:
    // Measures step, 2 * step ... of the messages before count.
    MessageTimes(std::size_t count, std::size_t step)
        : step_(step), samples_((count + step - 1) / step) {}

    // One pass; calls seconds(message) with the number of each message and answers the sum.
    double pass(const std::function<double(std::size_t)> &seconds);

    // Adds counters: microseconds of the mean message and of the median one, and how many messages there are.
    void report(benchmark::State &state) const;

    // Seconds of the mean message.
    double mean() const;

private:
    std::vector<double> medians() const;

    std::size_t step_;
    std::vector<std::vector<double>> samples_;
};

// Runs the benchmarks that the function registers and answers the program's exit status. Log records are dropped.
int run(int argc, char **argv, const std::function<void()> &registerAll);

} // namespace Corvane::Benchmarks

#endif
