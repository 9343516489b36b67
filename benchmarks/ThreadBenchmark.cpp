// Do two threads scan twice as much as one? Shared: all threads scan with one set; Apart: each thread with a set of its
// own, which shows what the machine allows. Either way each thread has messages of its own.

#include <map>
#include <memory>
#include <mutex>

#include "Support.h"

namespace Corvane::Benchmarks {
namespace {

enum class Sets { Shared, Apart };

// The messages of a thread; threads are known by their numbers.
const std::vector<Message> &s_messagesOf(int thread) {
    static std::mutex s_mutex;
    static std::map<int, std::vector<Message>> s_messages;
    const std::lock_guard lock(s_mutex);
    const auto [at, fresh] = s_messages.try_emplace(thread);
    if (fresh) {
        at->second = readMessages();
    }
    return at->second;
}

// The set for a thread, which stays until another set is asked for.
Scanner s_scannerOf(int thread, const RuleDirectory &directory) {
    static std::mutex s_mutex;
    static std::string s_name;
    static std::map<int, Scanner> s_scanners;
    const std::lock_guard lock(s_mutex);
    if (s_name != directory.name) {
        s_scanners.clear();
        s_name = directory.name;
    }
    const auto [at, fresh] = s_scanners.try_emplace(thread);
    if (fresh) {
        at->second = load(directory, Way::Indexed);
    }
    return at->second;
}

void s_scan(benchmark::State &state, const RuleDirectory &directory, Sets sets) {
    const std::vector<Message> &own = s_messagesOf(state.thread_index());
    Scanner scanner = s_scannerOf(sets == Sets::Shared ? 0 : state.thread_index(), directory);
    for (auto _ : state) {
        for (const Message &message : own) {
            RefMatches matches = RefMatches::create();
            benchmark::DoNotOptimize(
                scanner.process(matches, message.properties, message.sender, 0, false));
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(own.size()));
}

void s_registerAll() {
    for (const RuleDirectory &set : ruleDirectories()) {
        for (const auto &[name, sets] :
             {std::pair("Shared/", Sets::Shared), std::pair("Apart/", Sets::Apart)}) {
            benchmark::RegisterBenchmark(
                (name + set.name).c_str(),
                [set, how = sets](benchmark::State &state) { s_scan(state, set, how); })
                ->ThreadRange(1, 2)
                ->UseRealTime()
                ->Unit(benchmark::kMillisecond);
        }
    }
}

} // namespace
} // namespace Corvane::Benchmarks

int main(int argc, char **argv) {
    return Corvane::Benchmarks::run(argc, argv, Corvane::Benchmarks::s_registerAll);
}
