// How long does the mail reader take for messages that are made to take long? Each generator makes
// a message of some megabytes: of headers, parts, parameters, encodings, charsets or HTML that cost
// a reader much for each byte, or more the more there are of them.
//
//     bench-hostile-mail [KIB [NAME]]
//
// Each message is read at KIB (1024), twice, four and eight times as many KiB; NAME chooses the
// generators whose names begin with it. Prints for each the processor time at each size, how much
// longer it takes at twice the size at worst, the time for a byte over that of a dense newsletter
// of the same size, and the most memory that reading takes beside the message, in MiB.

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

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

struct Generator {
    const char *name;
    // A message of about so many bytes.
    std::function<std::string(std::size_t bytes)> message;
};

// As many pieces as make the bytes, between a front and an end; '#' in a piece is its number.
std::string s_filled(const std::string &front, const std::string &piece, std::size_t bytes,
                     const std::string &end = "") {
    std::string text = front;
    text.reserve(bytes + piece.size() + end.size());
    const bool isNumbered = piece.find('#') != std::string::npos;
    for (std::size_t number = 0; text.size() + end.size() < bytes; ++number) {
        if (!isNumbered) {
            text += piece;
            continue;
        }
        for (const char c : piece) {
            c == '#' ? text += std::to_string(number) : text += c;
        }
    }
    return text + end;
}

using Piece = std::array<std::string, 3>; // name, front, piece

const std::string kText = "Content-Type: text/plain; charset=";
const std::string kHtml = "Content-Type: text/html; charset=utf-8\n\n";
const std::string kDashes = "--";
const std::string kMixed = "Content-Type: multipart/mixed; boundary=b\n\n";
const std::string kBase64 = "Content-Transfer-Encoding: base64\n\n";
const std::string kQuoted = "Content-Transfer-Encoding: quoted-printable\n\n";

const std::string kNewsletterRow =
    "<tr><td style=\"padding:4px;color:#333333\" class=\"row\"><a href=\"https://news.example/"
    "offers/#?utm=a&amp;b=c\"><img src=\"https://img.example/#.png\" alt=\"Offer #\" width=\"120\">"
    "</a></td><td><b>Offer # of the week</b><br>Two for one &ndash; caf\u00E9 and more, only "
    "&euro;&nbsp;9,90 until Sunday. <a href='https://news.example/more/#'>Read&nbsp;more</a></td>"
    "</tr>\n";

// A front once, and a piece over and over.
const std::vector<Piece> kRepeated = {
    // Headers.
    {"headers", "", "X-Header-#: value\n"},
    {"headers-short", "", "A:\n"},
    {"headers-of-one-name", "", "Subject: x\n"},
    {"headers-that-matter", "", "Content-Type: text/html; charset=utf-8\n"},
    {"headers-folded", "Subject: x\n", " y\n"},
    {"headers-blank-folds", "Subject: x\n", " \n"},
    {"headers-long-value", "Subject: ", "word "},
    {"headers-long-name", "", "x"},
    {"headers-encoded-words", "Subject: ", "=?utf-8?Q?a?= "},
    {"headers-word-fronts", "Subject: ", "=?"},
    {"headers-uris", "List-Unsubscribe: ", "<http://a#.example/x> "},
    {"headers-colons", "X: ", "://"},
    {"headers-stray-lines", "A: b\n", "stray line\nB: c\n"},
    {"headers-addresses", "Return-Path: ", "<a@b.example>, "},
    // Parameters of a Content-Type.
    {"type-parameters", "Content-Type: text/html", "; a#=b"},
    {"type-boundaries", "Content-Type: multipart/mixed", "; boundary=b#"},
    {"type-pieces", "Content-Type: multipart/mixed", "; boundary*#=b"},
    {"type-comments", "Content-Type: ", "(a)"},
    {"type-open-comments", "Content-Type: text/html; ", "("},
    {"type-nested-comments", "Content-Type: text/html; ", "((a)"},
    {"type-open-quotes", "Content-Type: text/html; ", "a=\"b;"},
    {"type-escapes", "Content-Type: multipart/mixed; boundary=\"", "\\\\"},
    {"type-semicolons", "Content-Type: text/html", ";"},
    {"type-percents", "Content-Type: text/plain; charset*=", "%41"},
    {"type-slashes", "Content-Type: ", "/"},
    {"type-folds", "Content-Type: text/html;\n", " a=b;\n"},
    // Parts.
    {"parts-empty", kMixed, "--b\n\n"},
    {"parts-headless", kMixed, "--b\n"},
    {"parts-small", kMixed, "--b\n\nx\n"},
    {"parts-html", kMixed, "--b\nContent-Type: text/html\n\n<p>#\n"},
    {"parts-attached", kMixed, "--b\nContent-Disposition: attachment\n\nx\n"},
    {"parts-of-no-type", kMixed, "--b\nContent-Type: text/\n\n<p>x\n"},
    {"parts-alternatives", "Content-Type: multipart/alternative; boundary=b\n\n",
     "--b\n\nx\n--b\nContent-Type: text/html\n\n<p>x\n"},
    {"parts-multiparts", kMixed,
     "--b\nContent-Type: multipart/mixed; boundary=c\n\n--c\n\nx\n--c--\n"},
    {"parts-messages", kMixed, "--b\nContent-Type: message/rfc822\n\nSubject: #\n\nx\n"},
    {"parts-coded-messages", kMixed,
     "--b\nContent-Type: message/rfc822\nContent-Transfer-Encoding: "
     "base64\n\nU3ViamVjdDogeAoKeQ==\n"},
    {"parts-nested", "", "Content-Type: multipart/mixed; boundary=b#\n\n--b#\n"},
    {"parts-nested-same", "", "Content-Type: multipart/mixed; boundary=b\n\n--b\n"},
    {"parts-nested-messages", "", "Content-Type: message/rfc822\n\n"},
    {"parts-nested-both", "",
     "Content-Type: multipart/mixed; boundary=b#\n\n--b#\nContent-Type: message/rfc822\n\n"},
    {"parts-digest", "Content-Type: multipart/digest; boundary=b\n\n", "--b\n\nSubject: #\n\nx\n"},
    {"parts-dashes", kMixed, "--\n"},
    {"parts-dashes-long", kMixed, "--bbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbb\n"},
    {"parts-empty-boundary", "Content-Type: multipart/mixed; boundary=\"\"\n\n", "--\n\n"},
    // Transfer encodings.
    {"base64-padding", kText + "utf-8\n" + kBase64, "="},
    {"base64-short-runs", kText + "utf-8\n" + kBase64, "QQ=="},
    {"base64-rubbish", kText + "utf-8\n" + kBase64, "*"},
    {"base64-html", "Content-Type: text/html\n" + kBase64, "PGI+eDwvYj4g"},
    {"quoted-escapes", kText + "utf-8\n" + kQuoted, "=41"},
    {"quoted-equals", kText + "utf-8\n" + kQuoted, "="},
    {"quoted-blanks", kText + "utf-8\n" + kQuoted, "=        "},
    {"quoted-soft", kText + "utf-8\n" + kQuoted, "=\n"},
    {"uuencode", "Content-Transfer-Encoding: x-uuencode\n\nbegin 644 x\n", "!`\n"},
    // Charsets.
    {"charset-utf-8-bad", kText + "utf-8\n\n", "\xFF"},
    {"charset-windows", kText + "iso-8859-1\n\n", "\xE9"},
    {"charset-vietnamese", kText + "windows-1258\n\n", "a\xCC"},
    {"charset-gb18030-bad", kText + "gb18030\n\n", "\x81 "},
    {"charset-big5", kText + "big5\n\n", "\xA4\xA4"},
    {"charset-shift-jis-bad", kText + "shift_jis\n\n", "\xFD"},
    {"charset-euc-jp", kText + "euc-jp\n\n", "\xA4\xA2 "},
    {"charset-iso-2022-jp", kText + "iso-2022-jp\n\n", "\x1B$B$\"\x1B(B "},
    {"charset-iso-2022-escapes", kText + "iso-2022-jp\n\n", "\x1B"},
    {"charset-iso-2022-kr", kText + "iso-2022-kr\n\n",
     "\x0E"
     "0!\x0F"},
    {"charset-hz", kText + "hz-gb-2312\n\n", "~{VP~}"},
    {"charset-utf-7", kText + "utf-7\n\n", "+AGE-"},
    {"charset-utf-7-pluses", kText + "utf-7\n\n", "+"},
    {"charset-utf-16-bad", kText + "utf-16le\n\n", "\x01\xD8"},
    // Plain and other texts.
    {"text-invisible", kText + "utf-8\n\n", "\u200B"},
    {"text-joiners", kText + "utf-8\n\n", "\u0645\u200C\u200D"},
    {"text-blank-lines", kText + "utf-8\n\n", "\n"},
    {"text-uris", kText + "utf-8\n\n", "http://a#.example/ "},
    {"text-uri-fronts", kText + "utf-8\n\n", "http://"},
    {"text-brackets", kText + "utf-8\n\nhttp://a.example/", "("},
    {"text-enriched", "Content-Type: text/enriched\n\n", "<bold>x</bold>\n"},
    {"text-enriched-fronts", "Content-Type: text/enriched\n\n", "<"},
    {"text-calendar", "Content-Type: text/calendar\n\n", "SUMMARY:x\n y\n"},
    {"text-carriage-returns", kText + "utf-8\n\n", "x\r"},
    // HTML.
    {"html-tags", kHtml, "<b>"},
    {"html-fronts", kHtml, "<"},
    {"html-declarations-in-tags", kHtml + "<a x=\"", "<!"},
    {"html-ends-in-style", kHtml + "<style>", "</"},
    {"html-ends-in-script", kHtml + "<script>", "</scrip"},
    {"html-comments", kHtml, "<!--x-->"},
    {"html-open-comment", kHtml + "<!--", "-!"},
    {"html-attributes", kHtml + "<p", " a#"},
    {"html-attribute-values", kHtml, "<p a='x' b=\"y\" c=z>"},
    {"html-links", kHtml, "<a href=http://a#.example/>x</a>"},
    {"html-base", kHtml, "<base href=http://a#.example/><a href=x#>"},
    {"html-entities", kHtml, "&amp;&lt;&eacute;"},
    {"html-entity-fronts", kHtml, "&CounterClockwiseContourIntegra"},
    {"html-numbers", kHtml, "&#x10FFFF;&#233;"},
    {"html-style-rules", kHtml + "<style>", ".a#{color:red}"},
    {"html-style-classes", kHtml + "<style>.a{display:none}.b .c{color:red}</style>",
     "<p class='a b c d'>x</p>"},
    {"html-inline-styles", kHtml, "<i style='display:none;color:red;font-size:0'>x</i>"},
    {"html-nested-lists", kHtml, "<ul><li>x"},
    {"html-tables", kHtml, "<table><tr><td>x"},
    {"html-pre", kHtml + "<pre>", "x \n"},
    {"html-blanks", kHtml, " \n\t"},
    {"html-nuls", kHtml, std::string("<\0b>", 4)},
};

std::vector<Generator> s_generators() {
    std::vector<Generator> all;
    all.push_back({"newsletter", [](std::size_t bytes) {
                       return s_filled(kHtml + "<html><body><table>\n", kNewsletterRow, bytes,
                                       "</table></body></html>\n");
                   }});
    for (const Piece &piece : kRepeated) {
        all.push_back({piece[0].c_str(), [&piece](std::size_t bytes) {
                           return s_filled(piece[1], piece[2], bytes);
                       }});
    }
    all.push_back({"parts-long-boundary", [](std::size_t bytes) {
                       constexpr std::size_t kLongest = 16'000;
                       const std::string boundary(std::min(bytes / 2, kLongest), 'b');
                       return s_filled("Content-Type: multipart/mixed; boundary=\"" + boundary +
                                           "\"\n\n",
                                       kDashes + boundary + "x\n", bytes);
                   }});
    all.push_back({"parts-nested-long-boundaries", [](std::size_t bytes) {
                       constexpr std::size_t kLongest = 16'000;
                       const std::string boundary(std::min(bytes / 4, kLongest), 'b');
                       return s_filled("",
                                       "Content-Type: multipart/mixed; boundary=\"" + boundary +
                                           "#\"\n\n--" + boundary + "#\n",
                                       bytes);
                   }});
    all.push_back({"parts-many-open", [](std::size_t bytes) {
                       constexpr std::size_t kOpen = 250;
                       std::string front;
                       for (std::size_t i = 0; i < kOpen; ++i) {
                           std::string boundary("b");
                           boundary += std::to_string(i);
                           front += "Content-Type: multipart/mixed; boundary=" + boundary +
                                    "\n\n--" + boundary + "\n";
                       }
                       return s_filled(front, "\n--b\n--b0x\n--b249y\n", bytes);
                   }});
    return all;
}

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
Measured s_measure(const Generator &generator, std::size_t bytes) {
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
                     generator.name, bytes);
        std::exit(EXIT_FAILURE);
    }
    return measured;
}

using Row = std::array<Measured, kSizes>;

void s_print(const Generator &generator, const Row &row, const Row &newsletter) {
    // Below that the clock and the first touch of memory are most of it.
    constexpr double kLeastSeconds = 0.002;
    double growth = 0;
    double share = 0;
    double memory = 0;
    for (std::size_t i = 0; i < kSizes; ++i) {
        if (i > 0 && row[i].seconds > kLeastSeconds) {
            growth = std::max(growth, row[i].seconds / row[i - 1].seconds);
        }
        share = std::max(share, row[i].seconds / newsletter[i].seconds);
        memory = std::max(memory, row[i].bytes / kKiB / kKiB);
    }
    std::printf("%-30s", generator.name);
    for (const Measured &measured : row) {
        std::printf(" %8.1f", measured.seconds * kMillisPerSecond);
    }
    std::printf(" %7.2f %7.2f %7.1f%s%s%s\n", growth, share, memory,
                growth > kMostGrowth ? "  GROWS" : "", share > kMostOfNewsletter ? "  SLOW" : "",
                memory > kMostMiB ? "  LARGE" : "");
    std::fflush(stdout);
}

int s_run(std::size_t bytes, const std::string &name) {
    const std::vector<Generator> generators = s_generators();
    std::printf("%-30s %8s %8s %8s %8s %7s %7s %7s\n", "milliseconds for", "x1", "x2", "x4", "x8",
                "growth", "share", "MiB");
    Row newsletter{};
    for (const Generator &generator : generators) {
        const bool isFirst = &generator == &generators.front();
        if (!isFirst && !std::string(generator.name).starts_with(name)) {
            continue;
        }
        Row row{};
        for (std::size_t i = 0; i < kSizes; ++i) {
            row[i] = s_measure(generator, bytes << i);
        }
        newsletter = isFirst ? row : newsletter;
        s_print(generator, row, newsletter);
    }
    return EXIT_SUCCESS;
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
