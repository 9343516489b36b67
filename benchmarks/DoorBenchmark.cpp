// What a scan through the library's door costs over the same calls of the layers below. The two take turns on each
// message, since the machine may be slower for seconds; raw bytes to names and scores in either case.

#include <algorithm>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "Support.h"
#include "corvane/RuleSet.h"
#include "heuristic/FullRule.h"

namespace Corvane::Benchmarks {
namespace {

constexpr double kMicrosPerSecond = 1e6;

double s_below(Scanner &scanner, const std::string &bytes) {
    constexpr std::size_t kPieceBytes = 65536;
    return cpuSeconds([&] {
        const Mail mail = MailReader().read(std::string_view(bytes));
        const langID language = Scanner::selectLanguage(mail.properties()->part().operator->());
        RefMatches matches = RefMatches::create();
        Heuristic::FullTap tap(scanner, scanner.rules().fullRules(language), matches, 0, false);
        for (std::size_t from = 0; from < bytes.size(); from += kPieceBytes) {
            const std::size_t length = std::min(kPieceBytes, bytes.size() - from);
            tap.write(Buffer(bytes.data() + from, static_cast<unsigned int>(length), true));
        }
        tap.end();
        scanner.process(matches, mail.properties(), mail.sender(), 0, false);
        benchmark::DoNotOptimize(matches.score(false));
        std::vector<std::pair<std::string, float>> tripped;
        for (const Heuristic::RefRule &rule : *matches) {
            tripped.emplace_back(rule->name(), rule->metasubrule() ? 0.0F : rule->score()->value());
        }
        benchmark::DoNotOptimize(tripped);
    });
}

double s_through(const corvane::RuleSet &rules, const std::string &bytes) {
    return cpuSeconds([&] { benchmark::DoNotOptimize(rules.scan(bytes)); });
}

// Fails where the verdicts differ.
void s_compare(Scanner &scanner, const corvane::RuleSet &rules, benchmark::State &state) {
    for (const Message &message : messages()) {
        RefMatches matches = RefMatches::create();
        Heuristic::FullTap tap(scanner, scanner.rules().fullRules(message.language), matches, 0,
                               false);
        tap.write(
            Buffer(message.bytes.data(), static_cast<unsigned int>(message.bytes.size()), true));
        scanner.process(matches, message.properties, message.sender, 0, false);
        const corvane::Verdict verdict = rules.scan(message.bytes);
        if (verdict.score() != matches.score(false) || verdict.hits().size() != matches->size()) {
            state.SkipWithError("the verdicts differ");
        }
    }
}

void s_door(benchmark::State &state, const RuleDirectory &set) {
    const corvane::RuleSet rules = corvane::RuleSet::load(set.path);
    Scanner &scanner = loaded(set, Way::Indexed);
    MessageTimes below(messages().size(), 1);
    MessageTimes through(messages().size(), 1);
    bool belowFirst = false;
    for (auto _ : state) {
        belowFirst = !belowFirst;
        const auto passBelow = [&] {
            below.pass([&](std::size_t i) { return s_below(scanner, messages()[i].bytes); });
        };
        if (belowFirst) {
            passBelow();
        }
        state.SetIterationTime(
            through.pass([&](std::size_t i) { return s_through(rules, messages()[i].bytes); }));
        if (!belowFirst) {
            passBelow();
        }
    }
    through.report(state);
    state.counters["below_us"] = below.mean() * kMicrosPerSecond;
    state.counters["ratio"] = through.mean() / below.mean();
    s_compare(scanner, rules, state);
}

void s_registerAll() {
    for (const RuleDirectory &set : ruleDirectories()) {
        benchmark::RegisterBenchmark(("Door/" + set.name).c_str(),
                                     [set](benchmark::State &state) { s_door(state, set); })
            ->UseManualTime()
            ->Unit(benchmark::kMillisecond);
    }
}

} // namespace
} // namespace Corvane::Benchmarks

int main(int argc, char **argv) {
    return Corvane::Benchmarks::run(argc, argv, Corvane::Benchmarks::s_registerAll);
}
