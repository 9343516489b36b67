// How does the time of a scan grow with the number of rules, and with the size of the message? Of each mix of rule sets
// one family of benchmarks scans all messages with more and more rules; one scans messages with more and more bytes,
// URIs and headers, which are made of what all messages hold. Of their texts the body stages read no more than a
// message's first lines, so that time grows slower than size from there on. The fitted curves follow each family.

#include <algorithm>
#include <map>

#include "Support.h"
#include "host/parser/Uri.h"

namespace Corvane::Benchmarks {
namespace {

constexpr std::int64_t kSmallestBytes = std::int64_t{4} * 1024;
constexpr std::int64_t kLargestBytes = std::int64_t{1024} * 1024;
constexpr std::size_t kBytesPerUri = 1024;
constexpr std::size_t kBytesPerHeader = 1024;

const RuleDirectory &s_directory(const std::string &mix, std::int64_t rules) {
    return *std::find_if(
        ruleDirectories().begin(), ruleDirectories().end(),
        [&](const RuleDirectory &set) { return set.mix == mix && set.rules == rules; });
}

void s_rules(benchmark::State &state, const std::string &mix) {
    Scanner &scanner = loaded(s_directory(mix, state.range(0)), Way::Indexed);
    MessageTimes times(messages().size(), 1);
    for (auto _ : state) {
        state.SetIterationTime(times.pass([&](std::size_t i) {
            const Message &message = messages()[i];
            RefMatches matches = RefMatches::create();
            return cpuSeconds(
                [&] { scanner.process(matches, message.properties, message.sender, 0, false); });
        }));
    }
    times.report(state);
    state.SetComplexityN(std::max<std::int64_t>(state.range(0), 1));
}

const MPartText *s_textOf(const Message &message, MPartAttribute::Type type) {
    const MimePart *part = message.properties->part().operator->();
    return part == nullptr ? nullptr : dynamic_cast<const MPartText *>(part->findAttr(type));
}

// Texts of that kind from all messages, one after the other and over again, cut at the last line end before so many
// bytes.
std::string s_lines(MPartAttribute::Type type, std::size_t bytes) {
    std::string text;
    for (std::size_t i = 0; text.size() < bytes; ++i) {
        if (const MPartText *found = s_textOf(messages()[i % messages().size()], type)) {
            text.append(reinterpret_cast<const char *>(found->text().data()),
                        found->text().length());
        }
        text += '\n';
    }
    return text.substr(0, text.rfind('\n', bytes) + 1);
}

Ref<MPartAttribute> s_uris(std::size_t count) {
    const Ref<MPartAttribute> uris(new UriContainer);
    for (std::size_t i = 0; i < count; ++i) {
        dynamic_cast<UriContainer &>(*uris).add(
            UriContainer::kText,
            Uri("https://host" + std::to_string(i) + ".example/offers/" + std::to_string(i)));
    }
    return uris;
}

RefHeaderList s_headers(std::size_t count) {
    RefHeaderList headers(true);
    for (std::size_t i = 0; headers->size() < count; ++i) {
        for (const Header &header : *messages()[i % messages().size()].properties->headers()) {
            headers->append(header);
        }
    }
    return headers;
}

RefMessageProperties s_messageOf(std::size_t bytes) {
    const Ref<MimePart> part(new MimePart);
    for (const MPartAttribute::Type type : {MPartAttribute::Text, MPartAttribute::RawText}) {
        const std::string text = s_lines(type, bytes);
        const Buffer copy(text.data(), static_cast<unsigned int>(text.size()), false);
        part->attr(type, Ref<MPartAttribute>(new MPartText("us-ascii", copy, 0)));
    }
    part->attr(MPartAttribute::Uris, s_uris(bytes / kBytesPerUri));
    return RefMessageProperties::create(s_headers(bytes / kBytesPerHeader), part);
}

void s_size(benchmark::State &state, const RuleDirectory &set) {
    Scanner &scanner = loaded(set, Way::Indexed);
    const RefMessageProperties message = s_messageOf(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        RefMatches matches = RefMatches::create();
        benchmark::DoNotOptimize(scanner.process(matches, message, EmailAddress(), 0, false));
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
    state.SetComplexityN(state.range(0));
}

void s_registerAll() {
    std::map<std::string, benchmark::internal::Benchmark *> families;
    for (const RuleDirectory &set : ruleDirectories()) {
        benchmark::internal::Benchmark *&family = families[set.mix];
        if (family == nullptr) {
            family = benchmark::RegisterBenchmark(
                ("Rules/" + set.mix).c_str(),
                [mix = set.mix](benchmark::State &state) { s_rules(state, mix); });
            family->UseManualTime()->Unit(benchmark::kMillisecond)->Complexity();
        }
        family->Arg(set.rules);
    }
    for (const RuleDirectory &set : ruleDirectories()) {
        benchmark::RegisterBenchmark(("Size/" + set.name).c_str(),
                                     [set](benchmark::State &state) { s_size(state, set); })
            ->RangeMultiplier(4)
            ->Range(kSmallestBytes, kLargestBytes)
            ->Unit(benchmark::kMicrosecond)
            ->Complexity();
    }
}

} // namespace
} // namespace Corvane::Benchmarks

int main(int argc, char **argv) {
    return Corvane::Benchmarks::run(argc, argv, Corvane::Benchmarks::s_registerAll);
}
