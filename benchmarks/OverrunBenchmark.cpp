// How much longer than its budget may one try of a pattern take? Patterns are generated that read a
// text over and over - in repeated groups, in look-arounds, by parts that may be left out - and
// texts that they read in vain, of some bytes to two megabytes.
//
//     bench-overrun [PAIRS [SEED]]
//
// Each pair is tried once within a budget of 10 ms of processor time. Prints the pairs that took longest beyond
// theirs; "bench-overrun 1 SEED" tries one of them again. Fails where any took 0.1 s longer.

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "Support.h"
#include "host/parser/Budget.h"
#include "host/parser/Exception.h"
#include "host/regex/Expression.h"

namespace Corvane::Benchmarks {
namespace {

constexpr unsigned long kPairs = 2000;
constexpr std::chrono::milliseconds kTime{10};
constexpr double kMostOverrun = 0.1;
constexpr std::size_t kShownPairs = 10;
constexpr unsigned int kDepth = 3;

// What reads as far as it can; what takes a character; what follows a group; and what is put before the text's end.
constexpr std::array kReaders = {".*z",      "[^q]*q", ".*?z",        "\\w*!",   "(?s:.*)z",
                                 "[^\\n]*#", ".*\\d",  ".{0,60000}z", "a*z",     "(?:a|b)*z",
                                 "\\S+z",    ".*",     "a*+z",        "(?:.)*z", "\\X*z",
                                 "(?i:.*Z)", ".*a.*z", "(?:a.*)?z",   "(.*)z",   "(a)\\1*z"};
constexpr std::array kTakers = {"a", "[ab]", ".", "\\w", "b?", "a*", "a+"};
constexpr std::array kMarks = {"(?<=a)", "(?<!z)", "\\b", "(?1)?", "\\G", "\\K", "^", "$", "(?R)?"};
constexpr std::array kOpenings = {"(?:", "(?:", "(?>", "(?=", "(?!", "(", "(?|", "(?<=a)(?:"};
constexpr std::array kRepeats = {"", "*", "+", "*?", "*+", "{2,}", "?"};
constexpr std::array kOptions = {"?", "??", "?+", "{0,1}", "*"};
constexpr std::array kUnits = {"a",   "a",          "ab",  "a ",       "aaaaaaaaaaab", "b",
                               "a\n", "ab\xC3\xA9", "aaz", "\xC3\xA9", "a\xFF",        "\r\na"};

class Generator {
public:
    explicit Generator(unsigned long seed) : random_(seed) {}

    std::string expression() {
        std::string text = "/";
        text += sequence(kDepth) + '/';
        for (const char modifier : {'i', 'm', 's', 'x', 'u'}) {
            text += below(4) == 0 ? std::string(1, modifier) : "";
        }
        return text;
    }

    // Every other one is long.
    std::string text() {
        constexpr std::size_t kLeast = 64;
        constexpr std::size_t kLong = std::size_t{1} << 20U;
        const std::size_t bytes = below(2) == 0 ? kLong : kLeast << below(16);
        const std::string unit = of(kUnits);
        std::string text;
        while (text.size() < bytes) {
            text += unit;
        }
        return text + (below(3) == 0 ? "zq" : "");
    }

    unsigned int options() { return below(2) == 0 ? Regex::kAnyLineEnd : Regex::kNoOptions; }
    bool jit() { return below(5) != 0; }

private:
    std::size_t below(std::size_t end) { return random_() % end; }
    template <class List>
    std::string of(const List &list) {
        return list[below(list.size())];
    }

    // Of one choice after the other: the order within an expression is the compiler's.
    std::string item(unsigned int depth) {
        std::string reader = of(kReaders);
        std::string text = "(?:";
        switch (below(depth > 0 ? 9 : 6)) {
        case 0:
            return reader;
        case 1:
            text += reader + ")";
            return text + of(kOptions);
        case 2:
            return (below(2) == 0 ? "(?=" : "(?!") + reader + ")";
        case 3:
            text += "(?:" + reader + ")";
            text += of(kOptions);
            text += of(kTakers) + ")";
            return text + of(kRepeats);
        case 4:
            text += reader + "|a)";
            return text + of(kRepeats);
        case 5:
            return below(3) == 0 ? of(kMarks) : of(kTakers);
        case 6:
            return "(?(?=" + reader + ")a|.)";
        case 7:
            return "(?:#" + reader + "\n|a)";
        default:
            text = of(kOpenings);
            text += sequence(depth - 1) + ")";
            return text + of(kRepeats);
        }
    }

    std::string sequence(unsigned int depth) {
        std::string text = item(depth);
        for (std::size_t left = below(3); left > 0; --left) {
            text += below(5) == 0 ? "|" : "";
            text += item(depth);
        }
        return text;
    }

    std::mt19937_64 random_;
};

struct Tried {
    double overrun = 0;
    bool ended = false;
    unsigned long seed = 0;
    std::string expression;
    std::size_t bytes = 0;
};

// Nothing where the pattern does not compile.
void s_try(unsigned long seed, std::vector<Tried> &tried) {
    Generator generator(seed);
    const std::string text = generator.expression();
    const unsigned int options = generator.options();
    Regex::Expression expression;
    try {
        expression = Regex::Expression(text, options, generator.jit());
    } catch (const Exception &) {
        return;
    }
    const std::string subject = generator.text();
    Budget budget(kTime);
    const double taken = cpuSeconds([&] {
        const Budget::Use use(budget);
        benchmark::DoNotOptimize(expression(subject, nullptr));
    });
    tried.push_back({taken - std::chrono::duration<double>(kTime).count(), budget.ended(), seed,
                     text, subject.size()});
}

int s_run(unsigned long pairs, unsigned long seed) {
    constexpr double kMillisPerSecond = 1000;
    std::vector<Tried> tried;
    for (; tried.size() < pairs; ++seed) {
        s_try(seed, tried);
    }
    std::sort(tried.begin(), tried.end(),
              [](const Tried &a, const Tried &b) { return a.overrun > b.overrun; });
    std::printf("%10s %8s %8s\n", "beyond ms", "bytes", "seed");
    for (std::size_t i = 0; i < std::min(tried.size(), kShownPairs); ++i) {
        std::printf("%10.1f %8zu %8lu  %s\n", tried[i].overrun * kMillisPerSecond, tried[i].bytes,
                    tried[i].seed, tried[i].expression.c_str());
    }
    const auto ended =
        std::count_if(tried.begin(), tried.end(), [](const Tried &each) { return each.ended; });
    std::printf("%zu pairs, of which the budget ended %td\n", tried.size(), ended);
    return tried.front().overrun > kMostOverrun ? EXIT_FAILURE : EXIT_SUCCESS;
}

} // namespace
} // namespace Corvane::Benchmarks

int main(int argc, char **argv) {
    using namespace Corvane::Benchmarks;
    const auto argument = [&](int number, unsigned long otherwise) {
        return argc > number ? std::strtoul(argv[number], nullptr, 10) : otherwise;
    };
    return s_run(std::max(argument(1, kPairs), 1UL), argument(2, 1));
}
