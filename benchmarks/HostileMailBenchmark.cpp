// How long does the mail reader take for messages that are made to take long? Each kind is
// a message of some megabytes: of headers, parts, parameters, encodings, charsets or HTML that cost
// a reader much for each byte, or more the more there are of them.
//
//     bench-hostile-mail [KIB [NAME]]
//
// Each message is read at KIB (1024), twice, four and eight times as many KiB; NAME chooses the
// kinds whose names begin with it. Prints for each the processor time at each size, how much longer
// it takes at twice the size at worst, the time for a byte over that of a dense newsletter of the
// same size, and the most memory that reading takes beside the message, in MiB; at the end which
// are the worst, and whether all are within the bounds. Fails where one is not.

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include "HostileMessages.h"
#include "Support.h"
#include "host/parser/MailReader.h"

namespace Corvane::Benchmarks {
namespace {

constexpr std::size_t kKiB = 1024;
constexpr std::size_t kSizes = 4;
constexpr double kMillisPerSecond = 1e3;
constexpr double kMostGrowth = 2.2;
constexpr double kMostOfNewsletter = 4;
constexpr double kMostMiB = 16;

// A line "NAME: N kB" of a file of the process, in bytes.
double s_processBytes(const std::string &name) {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with(name + ':')) {
            return std::strtod(line.c_str() + name.size() + 1, nullptr) * kKiB;
        }
    }
    return 0;
}

struct Measured {
    double seconds;
    double bytes;
};

// The fastest of some rounds, and the memory of the first. In a process of its own, whose memory
// nobody used before.
Measured s_measure(const HostileMessage &generator, std::size_t bytes) {
    constexpr int kRounds = 3;
    std::array<int, 2> ends{};
    if (::pipe(ends.data()) != 0) {
        std::perror("pipe");
        std::exit(EXIT_FAILURE);
    }
    const pid_t child = ::fork();
    if (child == 0) {
        const std::string message = generator.message(bytes);
        ::malloc_trim(0);
        std::ofstream("/proc/self/clear_refs") << '5';
        const double before = s_processBytes("VmRSS");
        Measured measured{cpuSeconds([&] { MailReader().read(message); }), 0};
        measured.bytes = s_processBytes("VmHWM") - before;
        for (int round = 1; round < kRounds; ++round) {
            measured.seconds =
                std::min(measured.seconds, cpuSeconds([&] { MailReader().read(message); }));
        }
        const bool isWritten = ::write(ends[1], &measured, sizeof measured) == sizeof measured;
        ::_exit(isWritten ? EXIT_SUCCESS : EXIT_FAILURE);
    }
    ::close(ends[1]);
    Measured measured{};
    const bool isRead = ::read(ends[0], &measured, sizeof measured) == sizeof measured;
    ::close(ends[0]);
    int status = 0;
    ::waitpid(child, &status, 0);
    if (!isRead || status != 0) {
        std::fprintf(stderr, "bench-hostile-mail: reading \"%s\" of %zu bytes failed\n",
                     generator.name.c_str(), bytes);
        std::exit(EXIT_FAILURE);
    }
    return measured;
}

using Row = std::array<Measured, kSizes>;

Row s_measureRow(const HostileMessage &message, std::size_t bytes) {
    Row row{};
    for (std::size_t i = 0; i < kSizes; ++i) {
        row[i] = s_measure(message, bytes << i);
    }
    return row;
}

// What a row comes to, at worst over the sizes.
struct Figures {
    double growth = 0; // time at twice the size
    double share = 0;  // time over that of the newsletter
    double memory = 0; // MiB beside the message

    bool isWithinBounds() const {
        return growth <= kMostGrowth && share <= kMostOfNewsletter && memory <= kMostMiB;
    }
};

Figures s_figures(const Row &row, const Row &newsletter) {
    // Below that the clock and the first touch of memory are most of it.
    constexpr double kLeastSeconds = 0.002;
    Figures figures;
    for (std::size_t i = 0; i < kSizes; ++i) {
        if (i > 0 && row[i].seconds > kLeastSeconds) {
            figures.growth = std::max(figures.growth, row[i].seconds / row[i - 1].seconds);
        }
        figures.share = std::max(figures.share, row[i].seconds / newsletter[i].seconds);
        figures.memory = std::max(figures.memory, row[i].bytes / kKiB / kKiB);
    }
    return figures;
}

// Measures again while a bound is broken and it may be the machine's doing: the fastest time of
// each size counts.
Row s_settledRow(const HostileMessage &message, std::size_t bytes, const Row *newsletter) {
    constexpr int kMostTries = 6;
    Row row = s_measureRow(message, bytes);
    for (int tries = 1; tries < kMostTries; ++tries) {
        const bool isSettled =
            newsletter != nullptr && s_figures(row, *newsletter).isWithinBounds();
        if (isSettled) {
            break;
        }
        const Row again = s_measureRow(message, bytes);
        for (std::size_t i = 0; i < kSizes; ++i) {
            row[i].seconds = std::min(row[i].seconds, again[i].seconds);
        }
    }
    return row;
}

void s_print(const std::string &name, const Row &row, const Figures &figures) {
    std::printf("%-30s", name.c_str());
    for (const Measured &measured : row) {
        std::printf(" %8.1f", measured.seconds * kMillisPerSecond);
    }
    std::printf(" %7.2f %7.2f %7.1f%s%s%s\n", figures.growth, figures.share, figures.memory,
                figures.growth > kMostGrowth ? "  GROWS" : "",
                figures.share > kMostOfNewsletter ? "  SLOW" : "",
                figures.memory > kMostMiB ? "  LARGE" : "");
    std::fflush(stdout);
}

using NamedFigures = std::vector<std::pair<std::string, Figures>>;

void s_printWorst(const char *what, NamedFigures all, double Figures::*figure) {
    constexpr std::size_t kShown = 5;
    std::sort(all.begin(), all.end(), [figure](const auto &left, const auto &right) {
        return left.second.*figure > right.second.*figure;
    });
    std::printf("worst %s:", what);
    for (std::size_t i = 0; i < std::min(kShown, all.size()); ++i) {
        std::printf(" %s %.2f", all[i].first.c_str(), all[i].second.*figure);
    }
    std::printf("\n");
}

// The newsletter must cost as much per byte at the largest size as at the smallest: where a limit
// cut it early, it would make everything else look slow.
bool s_isHonest(const Row &newsletter) {
    constexpr double kLeastGrowth = 1.6;
    bool isHonest = true;
    for (std::size_t i = 1; i < kSizes; ++i) {
        isHonest = isHonest && newsletter[i].seconds >= kLeastGrowth * newsletter[i - 1].seconds;
    }
    return isHonest;
}

int s_run(std::size_t bytes, const std::string &name) {
    // Smaller messages are read so fast that their times say nothing.
    constexpr std::size_t kLeastJudged = 256 * kKiB;
    const std::vector<HostileMessage> messages = hostileMessages();
    std::printf("%-30s %8s %8s %8s %8s %7s %7s %7s\n", "milliseconds for", "x1", "x2", "x4", "x8",
                "growth", "share", "MiB");
    const bool isJudged = bytes >= kLeastJudged;
    const Row newsletter = isJudged ? s_settledRow(messages.front(), bytes, nullptr)
                                    : s_measureRow(messages.front(), bytes);
    s_print(messages.front().name, newsletter, s_figures(newsletter, newsletter));
    NamedFigures all;
    for (std::size_t i = 1; i < messages.size(); ++i) {
        if (messages[i].name.starts_with(name)) {
            const Row row = isJudged ? s_settledRow(messages[i], bytes, &newsletter)
                                     : s_measureRow(messages[i], bytes);
            all.emplace_back(messages[i].name, s_figures(row, newsletter));
            s_print(messages[i].name, row, all.back().second);
        }
    }
    if (!isJudged) {
        std::printf("no verdict: sizes from %zu KiB on are judged\n", kLeastJudged / kKiB);
        return EXIT_SUCCESS;
    }
    s_printWorst("growth", all, &Figures::growth);
    s_printWorst("share", all, &Figures::share);
    s_printWorst("MiB", all, &Figures::memory);
    const auto broken = std::count_if(all.begin(), all.end(),
                                      [](const auto &one) { return !one.second.isWithinBounds(); });
    const bool isHonest = s_isHonest(newsletter);
    std::printf(
        "%s: %zu kinds of messages, %td beyond a bound (growth %.1f, share %.0f, %.0f MiB)%s\n",
        broken == 0 && isHonest ? "good" : "BAD", all.size(), broken, kMostGrowth,
        kMostOfNewsletter, kMostMiB, isHonest ? "" : "; the newsletter is cut");
    return broken == 0 && isHonest ? EXIT_SUCCESS : EXIT_FAILURE;
}

} // namespace
} // namespace Corvane::Benchmarks

int main(int argc, char **argv) {
    constexpr unsigned long kUsualKiB = 1024;
    const unsigned long kib = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : kUsualKiB;
    if (kib == 0) {
        std::fprintf(
            stderr,
            "bench-hostile-mail: \"%s\" is no number of KiB; try: bench-hostile-mail 1024\n",
            argv[1]);
        return EXIT_FAILURE;
    }
    return Corvane::Benchmarks::s_run(kib * Corvane::Benchmarks::kKiB, argc > 2 ? argv[2] : "");
}
