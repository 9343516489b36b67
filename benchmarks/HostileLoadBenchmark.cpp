// How long do rule sets take to load that are made to take long? of_bound is the time as a share of what a load may take:
// five times what the engine needs to compile the expressions, and two milliseconds a rule. It must stay below 1.
//
// CORVANE_BENCH_HOSTILE gives the number of rules and the bytes of each as "20x2600", or several such, with blanks between.

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <unistd.h>

#include "Support.h"
#include "heuristic/RuleIndex.h"
#include "host/parser/Exception.h"
#include "host/regex/Expression.h"

namespace Corvane::Benchmarks {
namespace {

constexpr const char *kUsualShapes = "1x5000 20x2600";
constexpr double kEngineTimes = 5;
constexpr double kSecondsOfRule = 0.002;

// Makes the parts of patterns.
class Source {
public:
    std::size_t below(std::size_t end) { return random_() % end; }
    std::string word(std::size_t letters) {
        std::string word;
        while (word.size() < letters) {
            word += static_cast<char>('a' + below(26));
        }
        return word;
    }
    std::string set(std::size_t letters) { return '[' + word(letters) + ']'; }
    std::string oneOf(std::initializer_list<const char *> texts) {
        return *(texts.begin() + below(texts.size()));
    }

private:
    std::mt19937_64 random_{1};
};

std::string s_repeated(const std::string &text, std::size_t times) {
    std::string all;
    while (times-- > 0) {
        all += text;
    }
    return all;
}

// A kind of pattern: parts like this one, in a row or as branches, as many as fit.
struct Kind {
    const char *name;
    const char *between;
    std::function<std::string(Source &)> part;
};

const std::vector<Kind> &s_kinds() {
    static const std::vector<Kind> s_all = {
        {"words", "|", [](Source &s) { return s.word(4 + s.below(5)); }},
        {"words-alike", "|", [](Source &s) { return "viag" + s.word(4); }},
        {"words-of-one-end", "|", [](Source &s) { return s.word(4) + "viagraxx"; }},
        {"words-with-runs", "|", [](Source &s) { return s.word(6) + s_repeated("a", 20); }},
        {"long-words", "|", [](Source &s) { return s.word(100); }},
        {"usual-words", "|",
         [](Source &s) {
             const auto word = [&] { return s.oneOf({"the ", "click ", "here ", "www.", "for "}); };
             return word() + word() + word();
         }},
        {"cased-words", "|", [](Source &s) { return "(?i:" + s.word(5) + ")|" + s.word(5); }},
        {"two-words", "|", [](Source &s) { return s.word(5) + ".*" + s.word(5); }},
        {"phrases", "|", [](Source &s) { return s.word(5) + "\\s{1,4}" + s.word(5); }},
        {"quoted", "|", [](Source &s) { return "\\Q" + s.word(6) + ".*\\E"; }},
        {"optional-letters", "", [](Source &) { return std::string("ab?c?d?e?f?g"); }},
        {"optional-words", "|",
         [](Source &s) { return "(?:" + s.word(3) + ")?" + s.word(2) + '?'; }},
        {"sets", "", [](Source &s) { return s.set(2); }},
        {"lists-of-sets", "|",
         [](Source &s) { return s.set(3) + s.word(1) + s.set(3) + s.set(3) + s.set(3); }},
        {"many-sets", "", [](Source &s) { return "[^" + s.word(9) + ']'; }},
        {"look-alikes", "", [](Source &s) { return s.set(3) + "[\\W_]{0,2}"; }},
        {"products", "", [](Source &s) { return "(?:" + s.word(2) + '|' + s.word(2) + ')'; }},
        {"windows", "|", [](Source &s) { return s.word(1) + ".{0,60}" + s.word(1); }},
        {"chain-of-windows", "", [](Source &s) { return s.word(1) + ".{0,30}" + s.set(3); }},
        {"any-between", "|", [](Source &s) { return s.word(2) + ".*" + s.word(2); }},
        {"optional-dots", "", [](Source &) { return std::string(".?"); }},
        {"repeated-letters", "", [](Source &s) { return s.word(1) + '+'; }},
        {"repeated-groups", "|", [](Source &s) { return "(?:" + s.word(3) + "){6}"; }},
        {"repeated-repeats", "|",
         [](Source &s) { return "(?:(?:(?:" + s.word(1) + "){3}){3}\\d){2}"; }},
        {"repeated-sets", "", [](Source &s) { return s.set(4) + "{1,40}"; }},
        {"groups-in-groups", "|",
         [](Source &s) {
             std::string text = s_repeated("(?:", 40) + s.word(5);
             for (int i = 0; i < 40; ++i) {
                 text += '|' + s.word(5) + ')';
             }
             return text;
         }},
        {"look-around", "",
         [](Source &s) {
             return "(?=" + s.word(4) + ")(?!" + s.word(4) + ")(?<=" + s.word(3) + ')';
         }},
        {"references", "", [](Source &s) { return '(' + s.word(2) + "|x)\\1" + s.word(2); }},
        {"conditions", "",
         [](Source &s) { return "(a)?(?(1)" + s.word(3) + '|' + s.word(4) + ')'; }},
    };
    return s_all;
}

struct Shape {
    std::size_t rules;
    std::size_t bytes;
};

std::vector<Shape> s_shapes() {
    const char *given = std::getenv("CORVANE_BENCH_HOSTILE");
    std::istringstream in(given != nullptr ? given : kUsualShapes);
    std::vector<Shape> shapes;
    Shape shape{};
    for (char times = 0; in >> shape.rules >> times >> shape.bytes;) {
        shapes.push_back(shape);
    }
    return shapes;
}

std::string s_pattern(const Kind &kind, std::size_t bytes, Source &source) {
    std::string pattern = "/";
    pattern += kind.part(source);
    for (;;) {
        const std::string more = kind.between + kind.part(source);
        if (pattern.size() + more.size() >= bytes) {
            return pattern + '/';
        }
        pattern += more;
    }
}

// A rule-set directory that is gone afterwards.
class Directory {
public:
    explicit Directory(const std::vector<std::string> &patterns) {
        std::filesystem::create_directory(path_);
        std::ofstream out(path_ / "10_default.cf");
        for (std::size_t i = 0; i < patterns.size(); ++i) {
            out << "body R" << i << ' ' << patterns[i] << '\n';
        }
    }
    Directory(const Directory &) = delete;
    Directory &operator=(const Directory &) = delete;
    ~Directory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    RuleDirectory rules() const { return {"hostile", "hostile", 0, path_.string()}; }

private:
    std::filesystem::path path_ =
        std::filesystem::temp_directory_path() / ("bench-hostile-" + std::to_string(getpid()));
};

double s_engineSeconds(const std::vector<std::string> &patterns) {
    return cpuSeconds([&] {
        for (const std::string &pattern : patterns) {
            benchmark::DoNotOptimize(Regex::Expression(pattern, Regex::kAnyLineEnd, true));
        }
    });
}

void s_load(benchmark::State &state, const Kind &kind, const Shape &shape) {
    Source source;
    std::vector<std::string> patterns;
    std::generate_n(std::back_inserter(patterns), shape.rules,
                    [&] { return s_pattern(kind, shape.bytes, source); });
    const Directory directory(patterns);
    double engine = 0;
    try {
        engine = s_engineSeconds(patterns);
    } catch (const Exception &) {
        state.SkipWithError("the engine refuses patterns of this kind that are so long");
        return;
    }
    Scanner scanner;
    double least = 0;
    for (auto _ : state) {
        const double taken = cpuSeconds([&] { scanner = load(directory.rules(), Way::Indexed); });
        least = least == 0 ? taken : std::min(least, taken);
        state.SetIterationTime(taken);
    }
    const double rules = scanner.ruleCount();
    const Heuristic::RuleIndex index(scanner.rules());
    state.counters["engine_ms"] = engine * 1000;
    state.counters["of_bound"] = least / (kEngineTimes * engine + kSecondsOfRule * rules);
    state.counters["bytes_per_rule"] = static_cast<double>(index.memoryBytes()) / rules;
}

void s_registerAll() {
    for (const Shape &shape : s_shapes()) {
        const std::string suffix =
            '/' + std::to_string(shape.rules) + 'x' + std::to_string(shape.bytes);
        for (const Kind &kind : s_kinds()) {
            benchmark::RegisterBenchmark(
                ("Hostile/" + std::string(kind.name) + suffix).c_str(),
                [&kind, shape](benchmark::State &state) { s_load(state, kind, shape); })
                ->UseManualTime()
                ->Unit(benchmark::kMillisecond);
        }
    }
}

} // namespace
} // namespace Corvane::Benchmarks

int main(int argc, char **argv) {
    return Corvane::Benchmarks::run(argc, argv, Corvane::Benchmarks::s_registerAll);
}
