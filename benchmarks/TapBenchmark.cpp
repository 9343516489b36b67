// What do the full rules cost on a message that streams past: 1 MB of mail, written in pieces, with the filter and with
// the plain walk?

#include <algorithm>

#include "Support.h"
#include "heuristic/FullRule.h"

namespace Corvane::Benchmarks {
namespace {

constexpr std::size_t kStreamBytes = 1'000'000;
constexpr std::size_t kPieceBytes = 4096;

const std::string &s_stream() {
    static const std::string s_bytes = [] {
        std::string bytes;
        for (std::size_t i = 0; bytes.size() < kStreamBytes; ++i) {
            bytes += messages()[i % messages().size()].bytes;
        }
        return bytes.substr(0, bytes.rfind('\n', kStreamBytes) + 1);
    }();
    return s_bytes;
}

RefMatches s_feed(Scanner &scanner) {
    RefMatches matches = RefMatches::create();
    const Heuristic::RefRuleList &rules = scanner.rules().fullRules(Heuristic::DEFAULT);
    Heuristic::FullTap tap(scanner, rules, matches, 0, false);
    const std::string &stream = s_stream();
    for (std::size_t at = 0; at < stream.size(); at += kPieceBytes) {
        const std::size_t length = std::min(kPieceBytes, stream.size() - at);
        tap.write(Buffer(stream.data() + at, static_cast<unsigned int>(length), true));
    }
    tap.end();
    return matches;
}

void s_tap(benchmark::State &state, const RuleDirectory &set, Way way) {
    Scanner &scanner = loaded(set, way);
    RefMatches matches = s_feed(scanner);
    for (auto _ : state) {
        matches = s_feed(scanner);
    }
    const RefMatches others = s_feed(loaded(set, Way::Indexed));
    if (!std::equal(matches->begin(), matches->end(), others->begin(), others->end())) {
        state.SkipWithError("the plain walk finds other rules");
    }
    const std::string &stream = s_stream();
    state.counters["lines"] = static_cast<double>(std::count(stream.begin(), stream.end(), '\n'));
    state.counters["matches"] = static_cast<double>(matches->size());
    state.counters["full_rules"] =
        static_cast<double>((*scanner.rules().fullRules(Heuristic::DEFAULT)).size());
}

void s_registerAll() {
    for (const RuleDirectory &set : ruleDirectories()) {
        for (const auto &[name, way] :
             {std::pair("Indexed/", Way::Indexed), std::pair("Walk/", Way::Walk)}) {
            benchmark::RegisterBenchmark((name + set.name).c_str(), [set, how = way](
                                                                        benchmark::State &state) {
                s_tap(state, set, how);
            })->Unit(benchmark::kMillisecond);
        }
    }
}

} // namespace
} // namespace Corvane::Benchmarks

int main(int argc, char **argv) {
    return Corvane::Benchmarks::run(argc, argv, Corvane::Benchmarks::s_registerAll);
}
