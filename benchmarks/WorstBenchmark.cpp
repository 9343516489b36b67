// How much slower than the plain walk can a scan through the index be? Rules and texts are
// generated that are meant to be bad for it: literals that many rules share, phrases that are
// looked back from each word, lines of nothing but literals, patterns that no literal helps with,
// rules that match the first text and are done.
//
//     bench-worst [PAIRS [SEED]]
//
// Each pair of a rule set and a text is scanned both ways in turns, by the processor time of the
// thread, and the fastest of some rounds counts. Prints the worst pairs; "bench-worst 20 SEED" with
// the seed of one measures its set again. Fails where the two ways find different rules.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <limits>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <unistd.h>

#include "Support.h"
#include "heuristic/FullRule.h"
#include "host/parser/Logger.h"
#include "host/parser/Uri.h"

namespace Corvane::Benchmarks {
namespace {

namespace fs = std::filesystem;

constexpr unsigned long kPairs = 10'000;
constexpr std::size_t kTextsOfASet = 20;
constexpr std::size_t kShownPairs = 20;
constexpr double kMostRatio = 1.5;
constexpr double kMicrosPerSecond = 1e6;
// What is known by hand takes seconds: it is left out where not many pairs are asked for.
constexpr unsigned long kManyPairs = 1000;

class Random {
public:
    explicit Random(unsigned long seed) : random_(seed) {}

    std::size_t below(std::size_t end) { return random_() % end; }
    bool oneIn(std::size_t count) { return below(count) == 0; }
    template <class List>
    auto of(const List &list) {
        return list[below(list.size())];
    }
    // About as often between 1 and 10 as between 10 and 100.
    std::size_t upTo(std::size_t most) {
        const double share = std::uniform_real_distribution<>(0, 1)(random_);
        return static_cast<std::size_t>(std::pow(static_cast<double>(most), share));
    }

private:
    std::mt19937_64 random_;
};

constexpr std::array kWords = {"zq",    "viagra", "offer", "free", "cash",  "xxxx", "money",
                               "watch", "QQQQ",   "1a2b",  "the",  "click", "here", "unsubscribe"};
constexpr std::array kKinds = {"body", "rawbody", "header", "uri", "full", "tap"};
constexpr std::array kTails = {"", "", "i", "i", "s", "m", "u", "iu"};
constexpr std::array kForms = {"Subject",     "Subject:raw",  "From", "From:addr",
                               "From:name",   "ALL",          "To",   "X-*",
                               "Subject:raw", "Subject:name", "*"};

// Patterns of one kind of badness, in which # is a number that makes each one another.
constexpr std::array kShapes = {
    "zq#",
    "zq\\d{#}x",
    "zq",
    "zq.{0,9}z#q",
    "zq|y#",
    "(?:zq|viagra|offer|free|cash|y#)x",
    "Q#(?:x[^x]{0,60}){20}viagra",
    "(?:x[^x]{0,60}){5}offer#",
    "\\w{1,30}\\s{1,9}offer\\s{1,9}y#",
    "the\\s{0,40}[a-z]{0,60}#",
    "[^\\n]{0,60}cash[^q]{0,60}money#",
    "v[\\W_]{0,2}i[\\W_]{0,2}a[\\W_]{0,2}g#",
    "c[\\W_]{0,3}a[\\W_]{0,3}s[\\W_]{0,3}h",
    "(?:of+|an?d|x?f)[r-v\\W]*[=!<e.]#",
    "[a-f][\\W_]*[r-v]\\S?[.!-]#",
    "^[^.]*?[!=_]\\S#",
    "(?:re|of|\\d).[^e]*?\\.\\s?[a-c]#",
    "[A-Z]{5,}\\d#",
    "(.)\\1{20}#",
    "\\d{3,}#",
    "^zq#",
    "^\\s*#",
    "^.{30}#",
    "#$",
    "[#zq]{4}[^a-z]",
    "offer.*free.*cash#",
    "(?=.*money)zq#",
    "\\bthe\\b.{0,20}\\bclick#",
    ".*zq#",
    "a",
    "\\s#",
    "[\\x80-\\xff]{3}#",
};

enum class Scanned { Body, RawBody, Header, Uri, Full, Tap };

struct Text {
    RefMessageProperties message;
    std::string stream;
};

class Generator {
public:
    explicit Generator(unsigned long seed) : random_(seed) {}

    // A rule file.
    std::string rules() {
        constexpr std::size_t kMostRules = 3000;
        const std::size_t rules = random_.upTo(kMostRules);
        scanned_ = static_cast<Scanned>(random_.below(kKinds.size()));
        const std::string kind =
            scanned_ == Scanned::Tap ? "full" : kKinds[static_cast<std::size_t>(scanned_)];
        const std::size_t shapes = 1 + random_.below(random_.oneIn(2) ? 1 : 4);
        for (std::size_t i = 0; i < shapes; ++i) {
            shapes_.emplace_back(random_.oneIn(4) ? list() : random_.of(kShapes));
        }
        const std::string tail = random_.of(kTails);
        std::string text;
        for (std::size_t i = 0; i < rules; ++i) {
            const std::string form =
                scanned_ == Scanned::Header
                    ? std::string(random_.of(kForms)) + (random_.oneIn(6) ? " !~ " : " =~ ")
                    : "";
            text += kind + " R" + std::to_string(i) + ' ' + form + '/' + numbered(i) + '/' + tail +
                    '\n';
        }
        rules_ = rules;
        return text;
    }

    Scanned scanned() const { return scanned_; }

    // What the rules are tried on, so large that the walk takes no more than some milliseconds.
    Text text() {
        constexpr std::size_t kMostTries = 60'000;
        constexpr std::size_t kMostBytes = 6'000'000;
        const std::size_t lines = random_.upTo(std::max<std::size_t>(kMostTries / rules_, 2));
        const std::size_t most = random_.oneIn(3) ? 64'000 : 400;
        const std::size_t bytes =
            random_.upTo(std::max<std::size_t>(std::min(most, kMostBytes / rules_ / lines), 2));
        Text text;
        RefHeaderList headers(true);
        const Ref<MimePart> part(new MimePart);
        const Ref<MPartAttribute> uris(new UriContainer);
        repeated_ = random_.oneIn(2) ? piece() : "";
        for (std::size_t i = 0; i < lines; ++i) {
            const std::string line = this->line(bytes);
            switch (scanned_) {
            case Scanned::Header:
            case Scanned::Full:
                headers->append(Header(random_.of(std::array{"Subject", "From", "To", "X-A"}),
                                       random_.oneIn(8) ? "=?utf-8?Q?free?= " + line : line));
                break;
            case Scanned::Uri:
                dynamic_cast<UriContainer &>(*uris).add(UriContainer::kText, Uri("http://" + line));
                break;
            default:
                text.stream += line + '\n';
            }
        }
        if (scanned_ == Scanned::Body || scanned_ == Scanned::RawBody) {
            const Buffer all(text.stream.data(), static_cast<unsigned int>(text.stream.size()),
                             false);
            part->attr(scanned_ == Scanned::Body ? MPartAttribute::Text : MPartAttribute::RawText,
                       Ref<MPartAttribute>(new MPartText("", all, 0)));
        }
        part->attr(MPartAttribute::Uris, uris);
        text.message = RefMessageProperties::create(headers, part);
        return text;
    }

private:
    std::string list() {
        std::string words;
        for (std::size_t left = 1 + random_.below(40); left > 0; --left) {
            words += std::string(random_.of(kWords)) + std::to_string(random_.below(30)) + '|';
        }
        return "(?:" + words + "y#)";
    }

    std::string numbered(std::size_t number) {
        std::string pattern = random_.of(shapes_);
        for (std::size_t at = pattern.find('#'); at != pattern.npos; at = pattern.find('#', at)) {
            pattern.replace(
                at, 1, std::to_string(pattern.find("{#}") == at - 1 ? 1 + number % 200 : number));
        }
        return pattern;
    }

    // What the rules' words are, in themselves and with what may stand beside them.
    std::string piece() {
        switch (random_.below(8)) {
        case 0:
            return std::string(random_.of(kWords)) + std::to_string(random_.below(rules_ + 1));
        case 1:
            return "x";
        case 2:
            return " ";
        case 3:
            return std::string(1, static_cast<char>('!' + random_.below(90)));
        case 4:
            return "zq" + std::string(random_.below(3), '1') + 'x';
        default:
            return random_.of(kWords);
        }
    }

    std::string line(std::size_t bytes) {
        std::string line;
        while (line.size() < bytes) {
            line += repeated_.empty() || random_.oneIn(200) ? piece() : repeated_;
            line += repeated_.empty() && random_.oneIn(3) ? " " : "";
        }
        return line;
    }

    Random random_;
    Scanned scanned_ = Scanned::Body;
    std::size_t rules_ = 0;
    std::vector<std::string> shapes_;
    std::string repeated_;
};

// A rule set, loaded for both ways.
class Pair {
public:
    explicit Pair(const std::string &rules)
        : directory_("rules-worst-" + std::to_string(getpid())) {
        fs::create_directory(directory_);
        std::ofstream(directory_ / "a.cf") << rules;
        const RuleDirectory set{"worst", "worst", 0, directory_.string()};
        indexed_ = load(set, Way::Indexed);
        walk_ = load(set, Way::Walk);
        fs::remove_all(directory_);
    }

    // How many times the walk's time the scan through the index takes.
    double ratio(const Text &text, Scanned scanned) {
        const double once = seconds(walk_, text, scanned, 1);
        const auto repeats = static_cast<int>(std::clamp(kBatchSeconds / once, 1.0, 1000.0));
        double ratio = measured(text, scanned, kRounds, repeats);
        for (int again = 0; again < kAgain && ratio > kSuspectRatio; ++again) {
            ratio = std::min(ratio, measured(text, scanned, kManyRounds, repeats));
        }
        return ratio;
    }

    // What the walk took when that was measured last.
    double walkSeconds() const { return walkSeconds_; }

    bool agree(const Text &text, Scanned scanned) {
        const RefMatches one = scan(indexed_, text, scanned);
        const RefMatches other = scan(walk_, text, scanned);
        return std::equal(one->begin(), one->end(), other->begin(), other->end());
    }

private:
    static constexpr double kBatchSeconds = 100e-6;
    static constexpr int kRounds = 3;
    static constexpr int kManyRounds = 9;
    static constexpr int kAgain = 3;
    static constexpr double kSuspectRatio = 1.2;

    static RefMatches scan(Scanner &scanner, const Text &text, Scanned scanned) {
        RefMatches matches = RefMatches::create();
        if (scanned == Scanned::Tap) {
            Heuristic::FullTap tap(scanner, scanner.rules().fullRules(Heuristic::DEFAULT), matches,
                                   0, false);
            tap.write(
                Buffer(text.stream.data(), static_cast<unsigned int>(text.stream.size()), true));
            tap.end();
        } else {
            scanner.process(matches, text.message, EmailAddress(), 0, false);
        }
        return matches;
    }

    static double seconds(Scanner &scanner, const Text &text, Scanned scanned, int repeats) {
        return cpuSeconds([&] {
                   for (int i = 0; i < repeats; ++i) {
                       benchmark::DoNotOptimize(scan(scanner, text, scanned));
                   }
               }) /
               repeats;
    }

    double measured(const Text &text, Scanned scanned, int rounds, int repeats) {
        double indexed = std::numeric_limits<double>::infinity();
        double walk = indexed;
        for (int round = 0; round < rounds; ++round) {
            indexed = std::min(indexed, seconds(indexed_, text, scanned, repeats));
            walk = std::min(walk, seconds(walk_, text, scanned, repeats));
        }
        walkSeconds_ = walk;
        return indexed / walk;
    }

    fs::path directory_;
    Scanner indexed_;
    Scanner walk_;
    double walkSeconds_ = 0;
};

struct Measured {
    double ratio = 0;
    double walkSeconds = 0;
    unsigned long seed = 0;
    std::size_t text = 0;
    std::string rules; // the first of them
};

// Adds what becomes of a set with some texts; throws where the two ways disagree.
void s_measure(unsigned long seed, std::size_t texts, std::vector<Measured> &measured) {
    constexpr std::size_t kShownBytes = 80;
    Generator generator(seed);
    const std::string rules = generator.rules();
    Pair pair(rules);
    const std::string shown = std::to_string(std::count(rules.begin(), rules.end(), '\n')) +
                              " rules: " + rules.substr(0, rules.find('\n')).substr(0, kShownBytes);
    for (std::size_t i = 0; i < texts; ++i) {
        const Text text = generator.text();
        if (!pair.agree(text, generator.scanned())) {
            throw std::runtime_error("the plain walk finds other rules: seed " +
                                     std::to_string(seed) + ", text " + std::to_string(i));
        }
        const double ratio = pair.ratio(text, generator.scanned());
        measured.push_back({ratio, pair.walkSeconds(), seed, i, shown});
    }
}

std::string s_repeated(const std::string &part, std::size_t times) {
    std::string text;
    for (; times > 0; --times) {
        text += part;
    }
    return text;
}

// So many rules of a kind, in whose pattern # stands for the number.
std::string s_numbered(const std::string &kind, const std::string &pattern, std::size_t count) {
    std::string rules;
    for (std::size_t i = 0; i < count; ++i) {
        std::string each = pattern;
        each.replace(each.find('#'), 1, std::to_string(i));
        rules += kind + " R" + std::to_string(i) + " /" + each + "/\n";
    }
    return rules;
}

Text s_text(const std::string &stream, Scanned scanned) {
    Text text;
    text.stream = stream;
    const Buffer all(stream.data(), static_cast<unsigned int>(stream.size()), false);
    const Ref<MimePart> part(new MimePart);
    if (scanned != Scanned::Tap) {
        part->attr(MPartAttribute::RawText, Ref<MPartAttribute>(new MPartText("", all, 0)));
    }
    text.message = RefMessageProperties::create(RefHeaderList(true), part);
    return text;
}

// The worst that was thought of by hand.
void s_printKnown() {
    const struct {
        const char *name;
        std::string rules;
        Scanned scanned;
        std::string stream;
    } kKnown[] = {
        {"a literal that all rules share, on each line", s_numbered("rawbody", "zq#x", 4913),
         Scanned::RawBody, s_repeated("zq\n", 11'000)},
        {"gaps that are looked back", s_numbered("rawbody", "Q#(?:x[^x]{0,60}){20}viagra", 2000),
         Scanned::RawBody, s_repeated(s_repeated("xviagra ", 200) + '\n', 20)},
        {"long lines of literals that stream past", s_numbered("full", "(?:zq|offer|cash)#x", 200),
         Scanned::Tap, s_repeated(s_repeated("zqoffercash", 5500) + '\n', 5)},
        {"the same with few rules", s_numbered("full", "(?:zq|offer|cash)#x", 10), Scanned::Tap,
         s_repeated(s_repeated("zqoffercash", 5500) + '\n', 5)},
    };
    for (const auto &known : kKnown) {
        Pair pair(known.rules);
        const Text text = s_text(known.stream, known.scanned);
        if (!pair.agree(text, known.scanned)) {
            throw std::runtime_error(std::string("the plain walk finds other rules: ") +
                                     known.name);
        }
        const double ratio = pair.ratio(text, known.scanned);
        std::printf("%8.3f %12.1f  %s\n", ratio, pair.walkSeconds() * kMicrosPerSecond, known.name);
    }
}

void s_print(std::vector<Measured> measured) {
    std::sort(measured.begin(), measured.end(),
              [](const Measured &a, const Measured &b) { return a.ratio > b.ratio; });
    std::printf("\n%8s %12s %8s %5s\n", "ratio", "walk us", "seed", "text");
    for (std::size_t i = 0; i < std::min(measured.size(), kShownPairs); ++i) {
        const Measured &each = measured[i];
        std::printf("%8.3f %12.1f %8lu %5zu  %s\n", each.ratio, each.walkSeconds * kMicrosPerSecond,
                    each.seed, each.text, each.rules.c_str());
    }
    const auto over = std::count_if(measured.begin(), measured.end(),
                                    [](const Measured &each) { return each.ratio > kMostRatio; });
    std::printf("%zu pairs, %td of them above %.1f; one in a hundred above %.3f, half above %.3f\n",
                measured.size(), over, kMostRatio, measured[measured.size() / 100].ratio,
                measured[measured.size() / 2].ratio);
}

int s_run(unsigned long pairs, unsigned long seed) {
    Logger::instance(false).sink([](unsigned int, int, const std::string &) {});
    std::vector<Measured> measured;
    try {
        if (pairs >= kManyPairs) {
            s_printKnown();
        }
        for (; measured.size() < pairs; ++seed) {
            s_measure(seed, std::min(kTextsOfASet, pairs - measured.size()), measured);
        }
    } catch (const std::exception &failure) {
        std::cerr << "error: " << failure.what() << '\n';
        return EXIT_FAILURE;
    }
    s_print(std::move(measured));
    return EXIT_SUCCESS;
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
