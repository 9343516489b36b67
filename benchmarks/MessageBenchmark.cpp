// What does a whole message cost with so many rules, as loaded and with the plain walk over the lists, beside reading it?
//
// The plain walk takes a sample of the messages where all of them would take minutes; sample_indexed_us is what the
// indexed scan took for the same ones, in turn with the walk. Counted too: what a scan allocates, and what it allocates when done again on the
// match set that it has filled, which takes no note of a match any more.

#include <algorithm>
#include <cstdlib>
#include <new>

#include "Support.h"

namespace {

std::size_t s_allocations = 0;

void *s_allocate(std::size_t bytes) {
    ++s_allocations;
    void *memory = std::malloc(std::max<std::size_t>(bytes, 1));
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

} // namespace

// The library and the operators for arrays come here; nothing that is over-aligned is allocated on the way.
void *operator new(std::size_t bytes) {
    return s_allocate(bytes);
}
void operator delete(void *memory) noexcept {
    std::free(memory);
}
void operator delete(void *memory, std::size_t) noexcept {
    std::free(memory);
}

namespace Corvane::Benchmarks {
namespace {

// Of the messages of the walk, every how many-th is also scanned to compare what is found.
constexpr std::size_t kComparedStep = 10;

// Rules times messages that a pass of the plain walk may take: a few minutes.
constexpr std::size_t kWalkTries = 2'500'000;
constexpr int kWalkPasses = 3;
constexpr int kIndexedPasses = 5; // for each of the walk
constexpr double kMicrosPerSecond = 1e6;

double s_process(Scanner &scanner, const Message &message, RefMatches &matches) {
    return cpuSeconds([&] {
        benchmark::DoNotOptimize(
            scanner.process(matches, message.properties, message.sender, 0, false));
    });
}

double s_process(Scanner &scanner, const Message &message) {
    RefMatches matches = RefMatches::create();
    return s_process(scanner, message, matches);
}

void s_countAllocations(Scanner &scanner, benchmark::State &state) {
    std::size_t first = 0;
    std::size_t again = 0;
    std::size_t found = 0;
    for (const Message &message : messages()) {
        RefMatches matches = RefMatches::create();
        const std::size_t before = s_allocations;
        s_process(scanner, message, matches);
        const std::size_t between = s_allocations;
        s_process(scanner, message, matches);
        first += between - before;
        again += s_allocations - between;
        found += matches->size();
    }
    const auto perMessage = [](std::size_t count) {
        return static_cast<double>(count) / static_cast<double>(messages().size());
    };
    state.counters["allocations"] = perMessage(first);
    state.counters["allocations_again"] = perMessage(again);
    state.counters["matches"] = perMessage(found);
}

void s_indexed(benchmark::State &state, const RuleDirectory &set) {
    Scanner &scanner = loaded(set, Way::Indexed);
    s_process(scanner, messages().front());
    MessageTimes times(messages().size(), 1);
    for (auto _ : state) {
        state.SetIterationTime(
            times.pass([&](std::size_t i) { return s_process(scanner, messages()[i]); }));
    }
    times.report(state);
    s_countAllocations(scanner, state);
}

// Fails where the two ways find different rules.
void s_compare(Scanner &walk, const RuleDirectory &set, std::size_t step, benchmark::State &state) {
    Scanner &indexed = loaded(set, Way::Indexed);
    for (std::size_t i = 0; i < messages().size(); i += step) {
        RefMatches byWalk = RefMatches::create();
        RefMatches byIndex = RefMatches::create();
        s_process(walk, messages()[i], byWalk);
        s_process(indexed, messages()[i], byIndex);
        if (!std::equal(byWalk->begin(), byWalk->end(), byIndex->begin(), byIndex->end())) {
            state.SkipWithError("the plain walk finds other rules");
        }
    }
}

// The two ways take turns, since the machine may be slower for seconds; the faster one first gets warm again.
void s_walk(benchmark::State &state, const RuleDirectory &set) {
    Scanner &walk = loaded(set, Way::Walk);
    Scanner &indexed = loaded(set, Way::Indexed);
    const std::size_t tries = messages().size() * std::max(set.rules, 1U);
    const std::size_t step = (tries + kWalkTries - 1) / kWalkTries;
    MessageTimes byWalk(messages().size(), step);
    MessageTimes byIndex(messages().size(), step);
    const auto byIndexed = [&](std::size_t i) { return s_process(indexed, messages()[i]); };
    for (auto _ : state) {
        MessageTimes(messages().size(), step).pass(byIndexed);
        for (int pass = 0; pass < kIndexedPasses; ++pass) {
            byIndex.pass(byIndexed);
        }
        state.SetIterationTime(
            byWalk.pass([&](std::size_t i) { return s_process(walk, messages()[i]); }));
    }
    byWalk.report(state);
    state.counters["sample_indexed_us"] = byIndex.mean() * kMicrosPerSecond;
    state.counters["ratio"] = byWalk.mean() / byIndex.mean();
    s_compare(walk, set, step * kComparedStep, state);
}

void s_read(benchmark::State &state) {
    MessageTimes times(messages().size(), 1);
    for (auto _ : state) {
        state.SetIterationTime(times.pass([](std::size_t i) {
            const std::string &bytes = messages()[i].bytes;
            return cpuSeconds(
                [&] { benchmark::DoNotOptimize(MailReader().read(bytes.data(), bytes.size())); });
        }));
    }
    times.report(state);
}

void s_registerAll() {
    benchmark::RegisterBenchmark("Read", s_read)->UseManualTime()->Unit(benchmark::kMillisecond);
    for (const RuleDirectory &set : ruleDirectories()) {
        benchmark::RegisterBenchmark(("Indexed/" + set.name).c_str(),
                                     [set](benchmark::State &state) { s_indexed(state, set); })
            ->UseManualTime()
            ->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("Walk/" + set.name).c_str(),
                                     [set](benchmark::State &state) { s_walk(state, set); })
            ->UseManualTime()
            ->Iterations(kWalkPasses)
            ->Unit(benchmark::kMillisecond);
    }
}

} // namespace
} // namespace Corvane::Benchmarks

int main(int argc, char **argv) {
    return Corvane::Benchmarks::run(argc, argv, Corvane::Benchmarks::s_registerAll);
}
