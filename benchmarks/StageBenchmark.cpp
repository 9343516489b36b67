// What does each stage of a scan cost, looking for candidates and confirming them included? And beside the body stages:
// what does the search for the rules' literals alone cost, over the same bytes?

#include <algorithm>
#include <array>
#include <iterator>
#include <set>
#include <utility>

#include "Support.h"
#include "heuristic/BodyRule.h"
#include "heuristic/FullRule.h"
#include "heuristic/HeaderRule.h"
#include "heuristic/MetaRule.h"
#include "heuristic/StageRules.h"
#include "heuristic/UriRule.h"
#include "host/parser/HeaderText.h"
#include "host/parser/Text.h"
#include "host/regex/Expression.h"
#include "host/regex/LiteralMatcher.h"

namespace Corvane::Benchmarks {
namespace {

using namespace Heuristic;

// Given, since of a stage that takes next to no time Google Benchmark would want thousands.
constexpr int kPasses = 20;

// A message taken apart as a scan does; null where it has no such part.
struct Stages {
    const Message *message;
    RefHeaderList converted;
    Buffer subject;
    const MPartText *text;
    const MPartText *rawText;
    const MPartText *secondText;
    const UriContainer *uris;
    // What the body stages read of the subject and the text, and of the raw text.
    std::string textBytes;
    std::string rawBytes;
};

RefHeaderList s_convert(const RefHeaderList &headers) {
    RefHeaderList converted(true);
    for (const Corvane::Header &header : *headers) {
        std::array<char, 2048> text{};
        tessel_to_utf8(header.value().c_str(), text.data(), static_cast<int>(text.size()), 0);
        converted->append(Corvane::Header(header.type(), std::string(text.data())));
    }
    return converted;
}

template <class Attribute>
const Attribute *s_attribute(const Message &message, MPartAttribute::Type type) {
    const MimePart *part = message.properties->part().operator->();
    return part == nullptr ? nullptr : dynamic_cast<const Attribute *>(part->findAttr(type));
}

std::string s_bytes(const Buffer &buffer) {
    return {reinterpret_cast<const char *>(buffer.data()), buffer.length()};
}

// What a body check reads of a text: complete lines until they come to the limit.
std::string s_bytesRead(const MPartText *part, bool raw) {
    if (part == nullptr) {
        return {};
    }
    const std::string text = s_bytes(part->text());
    const std::size_t limit = raw ? BodyCheck::kMaxRawBytes : BodyCheck::kMaxDecodedBytes;
    std::size_t end = 0;
    for (std::size_t total = 0; total < limit && end < text.size();) {
        const std::size_t next = std::min(text.find('\n', end), text.size() - 1) + 1;
        const std::size_t last = raw ? next : text.find_last_not_of("\r\n", next - 1) + 1;
        total += std::max(last, end) - end;
        end = next;
    }
    return text.substr(0, end);
}

Stages s_takeApart(const Message &message) {
    Stages stages{&message,
                  s_convert(message.properties->headers()),
                  {},
                  s_attribute<MPartText>(message, MPartAttribute::Text),
                  s_attribute<MPartText>(message, MPartAttribute::RawText),
                  s_attribute<MPartText>(message, MPartAttribute::AltText),
                  s_attribute<UriContainer>(message, MPartAttribute::Uris),
                  {},
                  {}};
    const Corvane::Header subject = message.properties->headers()->find("Subject");
    if (!subject.isNull()) {
        const std::string decoded = s_bytes(headerValueDecode(subject.value()));
        stages.subject = Buffer(decoded.data(), static_cast<unsigned int>(decoded.size()), false);
    }
    stages.textBytes = s_bytes(stages.subject) + '\n' + s_bytesRead(stages.text, false);
    stages.rawBytes = s_bytesRead(stages.rawText, true);
    return stages;
}

const std::vector<Stages> &s_stages() {
    static const std::vector<Stages> s_all = [] {
        std::vector<Stages> all;
        std::transform(messages().begin(), messages().end(), std::back_inserter(all), s_takeApart);
        return all;
    }();
    return s_all;
}

StageRules s_rules(const Scanner &scanner, const Stages &stages, Rule::Type kind) {
    return {*scanner, stages.message->language, kind, 0, false};
}

using Work = void (*)(Scanner &, const Stages &, RefMatches &);

void s_headers(Scanner &scanner, const Stages &stages, RefMatches &matches) {
    StageRules rules = s_rules(scanner, stages, Rule::Header);
    HeaderCheck check = rules.check<HeaderCheck>(matches);
    check.check(stages.message->sender);
    check.check(stages.converted);
}

void s_text(Scanner &scanner, const Stages &stages, RefMatches &matches) {
    StageRules rules = s_rules(scanner, stages, Rule::Body);
    BodyCheck check = rules.check<BodyCheck>(matches);
    check.check(stages.subject, false);
    if (stages.text != nullptr) {
        check.check(stages.text->text(), false);
    }
}

void s_rawBody(Scanner &scanner, const Stages &stages, RefMatches &matches) {
    if (stages.rawText != nullptr) {
        s_rules(scanner, stages, Rule::RawBody)
            .check<BodyCheck>(matches)
            .check(stages.rawText->text(), true);
    }
}

void s_secondText(Scanner &scanner, const Stages &stages, RefMatches &matches) {
    if (stages.secondText != nullptr && (stages.secondText->flags() & MPartText::kDiffers) != 0) {
        s_rules(scanner, stages, Rule::Body)
            .check<BodyCheck>(matches)
            .check(stages.secondText->text(), false);
    }
}

void s_uris(Scanner &scanner, const Stages &stages, RefMatches &matches) {
    if (stages.uris != nullptr) {
        s_rules(scanner, stages, Rule::Uri).check<UriCheck>(matches).check(*stages.uris);
    }
}

void s_full(Scanner &scanner, const Stages &stages, RefMatches &matches) {
    s_rules(scanner, stages, Rule::Full)
        .check<FullCheck>(matches)
        .check(stages.message->properties->headers());
}

void s_meta(Scanner &scanner, const Stages &stages, RefMatches &matches) {
    s_rules(scanner, stages, Rule::Meta).check<MetaCheck>(matches).check();
}

// What the message has tripped before the meta stage.
RefMatches s_beforeMeta(Scanner &scanner, const Stages &stages) {
    RefMatches all = RefMatches::create();
    const Message &message = *stages.message;
    scanner.process(all, message.properties, message.sender, 0, false);
    RefMatches matches = RefMatches::create();
    for (const RefRule &rule : *all) {
        if (rule->type() != Rule::Meta) {
            matches.add(rule);
        }
    }
    return matches;
}

void s_stage(benchmark::State &state, const RuleDirectory &set, Work work) {
    Scanner &scanner = loaded(set, Way::Indexed);
    std::vector<RefMatches> before(s_stages().size(), RefMatches::create());
    if (work == s_meta) {
        std::transform(s_stages().begin(), s_stages().end(), before.begin(),
                       [&](const Stages &stages) { return s_beforeMeta(scanner, stages); });
    }
    MessageTimes times(s_stages().size(), 1);
    for (auto _ : state) {
        state.SetIterationTime(times.pass([&](std::size_t i) {
            RefMatches matches = RefMatches::create();
            for (const RefRule &rule : *before[i]) {
                matches.add(rule);
            }
            return seconds([&] { work(scanner, s_stages()[i], matches); });
        }));
    }
    times.report(state);
}

// The literals that the filter of that kind looks for, in the texts as they stand.
std::vector<Regex::Literal> s_literals(const Scanner &scanner, Rule::Type kind) {
    std::vector<Regex::Literal> literals;
    std::set<const Rule *> seen;
    for (int language = DEFAULT; language < ALL; ++language) {
        for (const RefRule &rule : *scanner.rules().rules(static_cast<langID>(language), kind)) {
            if (!rule->active() || !seen.insert(rule.operator->()).second) {
                continue;
            }
            std::string text = rule->value();
            stringLeftTrim(text);
            stringRightTrim(text);
            const Regex::RequiredLiterals required = Regex::requiredLiterals(
                text, Regex::kAnyLineEnd,
                kind == Rule::Body ? Regex::TextKind::Text : Regex::TextKind::RawText);
            if (required.squeezed.empty()) {
                literals.insert(literals.end(), required.alternatives.begin(),
                                required.alternatives.end());
            }
        }
    }
    return literals;
}

void s_bare(benchmark::State &state, const RuleDirectory &set, Rule::Type kind) {
    const Regex::LiteralMatcher matcher(s_literals(loaded(set, Way::Indexed), kind));
    Regex::LiteralScratch scratch;
    MessageTimes times(s_stages().size(), 1);
    std::size_t hits = 0;
    for (auto _ : state) {
        hits = 0;
        state.SetIterationTime(times.pass([&](std::size_t i) {
            const Stages &stages = s_stages()[i];
            const std::string &bytes = kind == Rule::Body ? stages.textBytes : stages.rawBytes;
            return seconds([&] {
                matcher.scan(reinterpret_cast<const unsigned char *>(bytes.data()), bytes.size(),
                             scratch, [&](std::uint32_t, std::size_t) { ++hits; });
            });
        }));
    }
    times.report(state);
    state.counters["literals"] = static_cast<double>(matcher.size());
    state.counters["hits"] = static_cast<double>(hits) / static_cast<double>(s_stages().size());
}

// What comes before the stages, whatever the rules.
template <class Prepare>
void s_prepare(benchmark::State &state, Prepare prepare) {
    MessageTimes times(messages().size(), 1);
    for (auto _ : state) {
        state.SetIterationTime(times.pass([&](std::size_t i) {
            return seconds([&] { benchmark::DoNotOptimize(prepare(*messages()[i].properties)); });
        }));
    }
    times.report(state);
}

template <class Function>
void s_register(const std::string &name, Function function) {
    benchmark::RegisterBenchmark(name.c_str(), function)
        ->UseManualTime()
        ->Iterations(kPasses)
        ->Unit(benchmark::kMillisecond);
}

void s_registerAll() {
    static constexpr std::pair<const char *, Work> kWorks[] = {
        {"Header", s_headers},  {"Text", s_text},
        {"RawBody", s_rawBody}, {"SecondText", s_secondText},
        {"Uri", s_uris},        {"Full", s_full},
        {"Meta", s_meta}};
    s_register("Language", [](benchmark::State &state) {
        s_prepare(state, [](const MessageProperties &message) {
            return Scanner::selectLanguage(message.part().operator->());
        });
    });
    s_register("HeadersToUtf8", [](benchmark::State &state) {
        s_prepare(state,
                  [](const MessageProperties &message) { return s_convert(message.headers()); });
    });
    for (const RuleDirectory &set : ruleDirectories()) {
        for (const auto &[name, work] : kWorks) {
            s_register(name + ('/' + set.name), [set, stage = work](benchmark::State &state) {
                s_stage(state, set, stage);
            });
        }
        s_register("TextLiterals/" + set.name,
                   [set](benchmark::State &state) { s_bare(state, set, Rule::Body); });
        s_register("RawBodyLiterals/" + set.name,
                   [set](benchmark::State &state) { s_bare(state, set, Rule::RawBody); });
    }
}

} // namespace
} // namespace Corvane::Benchmarks

int main(int argc, char **argv) {
    return Corvane::Benchmarks::run(argc, argv, Corvane::Benchmarks::s_registerAll);
}
