// What a rule profile adds to scans: where none is kept, of one message in a hundred, and of all. The three take turns
// on each message, since the machine may be slower for seconds.

#include <array>
#include <cstddef>
#include <memory>
#include <vector>

#include "Support.h"
#include "corvane/RuleSet.h"

namespace Corvane::Benchmarks {
namespace {

constexpr double kMicrosPerSecond = 1e6;

enum Way : std::size_t { Off, Hundredth, All, Ways };

struct Profiled {
    explicit Profiled(const RuleDirectory &set)
        : rules(corvane::RuleSet::load(set.path)), profiles{corvane::RuleProfile(rules),
                                                            corvane::RuleProfile(rules)} {}

    double scan(Way way, const std::string &bytes) {
        constexpr std::size_t kEvery = 100;
        const bool isProfiled = way == All || (way == Hundredth && scans++ % kEvery == 0);
        return cpuSeconds([&] {
            benchmark::DoNotOptimize(isProfiled ? rules.scan(bytes, {}, profiles[way - 1])
                                                : rules.scan(bytes));
        });
    }

    corvane::RuleSet rules;
    std::array<corvane::RuleProfile, 2> profiles;
    std::size_t scans = 0;
};

void s_profile(benchmark::State &state, const RuleDirectory &set) {
    Profiled profiled(set);
    std::array<double, Ways> seconds{};
    std::size_t turn = 0;
    for (auto _ : state) {
        std::array<double, Ways> pass{};
        for (const Message &message : messages()) {
            ++turn;
            for (std::size_t each = 0; each < Ways; ++each) {
                const Way way = static_cast<Way>((turn + each) % Ways);
                pass.at(way) += profiled.scan(way, message.bytes);
            }
        }
        state.SetIterationTime(pass[Off]);
        for (std::size_t way = 0; way < Ways; ++way) {
            seconds.at(way) += pass.at(way);
        }
    }
    const double scans =
        static_cast<double>(messages().size()) * static_cast<double>(state.iterations());
    state.counters["off_us"] = seconds[Off] / scans * kMicrosPerSecond;
    state.counters["hundredth"] = seconds[Hundredth] / seconds[Off];
    state.counters["all"] = seconds[All] / seconds[Off];
}

void s_registerAll() {
    for (const RuleDirectory &set : ruleDirectories()) {
        benchmark::RegisterBenchmark(("Profile/" + set.name).c_str(),
                                     [set](benchmark::State &state) { s_profile(state, set); })
            ->UseManualTime()
            ->Unit(benchmark::kMillisecond);
    }
}

} // namespace
} // namespace Corvane::Benchmarks

int main(int argc, char **argv) {
    return Corvane::Benchmarks::run(argc, argv, Corvane::Benchmarks::s_registerAll);
}
