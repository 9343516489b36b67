// What does a load cost, in time and memory? Index is the part of it that prepares fast scans. resident_MiB is what the
// first load of the set has added to the process; it is exact only where one set is measured per process.

#include <fstream>
#include <map>

#include <malloc.h>
#include <unistd.h>

#include "Support.h"
#include "heuristic/RuleIndex.h"

namespace Corvane::Benchmarks {
namespace {

constexpr double kBytesPerMiB = 1024.0 * 1024.0;

double s_residentMiB() {
    malloc_trim(0);
    std::ifstream statm("/proc/self/statm");
    double pages = 0;
    double resident = 0;
    statm >> pages >> resident;
    return resident * static_cast<double>(sysconf(_SC_PAGESIZE)) / kBytesPerMiB;
}

void s_load(benchmark::State &state, const RuleDirectory &set) {
    static std::map<std::string, double> s_resident;
    unsigned int rules = 0;
    for (auto _ : state) {
        const double before = s_residentMiB();
        Scanner scanner;
        state.SetIterationTime(seconds([&] { scanner = load(set, Way::Indexed); }));
        s_resident.emplace(set.name, s_residentMiB() - before);
        rules = scanner.ruleCount();
    }
    state.counters["rules"] = rules;
    state.counters["resident_MiB"] = s_resident.at(set.name);
}

void s_index(benchmark::State &state, const RuleDirectory &set) {
    const Scanner scanner = load(set, Way::Indexed);
    double bytes = 0;
    for (auto _ : state) {
        std::unique_ptr<const Heuristic::RuleIndex> index;
        state.SetIterationTime(seconds(
            [&] { index = std::make_unique<const Heuristic::RuleIndex>(scanner.rules()); }));
        bytes = static_cast<double>(index->memoryBytes());
    }
    state.counters["bytes_per_rule"] = bytes / scanner.ruleCount();
}

void s_registerAll() {
    for (const RuleDirectory &set : ruleDirectories()) {
        benchmark::RegisterBenchmark(("Load/" + set.name).c_str(),
                                     [set](benchmark::State &state) { s_load(state, set); })
            ->UseManualTime()
            ->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("Index/" + set.name).c_str(),
                                     [set](benchmark::State &state) { s_index(state, set); })
            ->UseManualTime()
            ->Unit(benchmark::kMillisecond);
    }
}

} // namespace
} // namespace Corvane::Benchmarks

int main(int argc, char **argv) {
    return Corvane::Benchmarks::run(argc, argv, Corvane::Benchmarks::s_registerAll);
}
