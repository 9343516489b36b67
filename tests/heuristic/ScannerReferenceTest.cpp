// The scanner against a slow one that does the obvious, on every message below CORVANE_MAIL_DIR (or the tests' own)
// with the rules of CORVANE_RULES_DIR (or the example rules), and with rules that match almost everything.

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "heuristic/FullRule.h"
#include "heuristic/Scanner.h"
#include "host/parser/MailReader.h"
#include "support/LogCapture.h"
#include "support/Message.h"
#include "support/ReferenceScan.h"
#include "support/RuleSet.h"
#include "support/Rules.h"
#include "support/TempDir.h"

namespace Corvane::Heuristic {
namespace {

using Stage = ReferenceOutcome::Stage;
using StageCounts = std::map<Stage, unsigned int>;

// Bytes written into a tap at once, so that lines arrive in pieces and pieces hold several lines: for the reference, and
// for the scans compared with it.
constexpr std::size_t kTapBytes = 1000;
constexpr std::size_t kOtherTapBytes[] = {1, 7, 4096};

std::string fromEnvironment(const char *name, const char *otherwise) {
    const char *chosen = std::getenv(name);
    return chosen != nullptr ? chosen : otherwise;
}

// Takes what is written to standard output for its lifetime.
class OutputCapture {
public:
    OutputCapture() : former_(std::cout.rdbuf(text_.rdbuf())) {}
    OutputCapture(const OutputCapture &) = delete;
    OutputCapture &operator=(const OutputCapture &) = delete;
    ~OutputCapture() { std::cout.rdbuf(former_); }

    std::string text() const { return text_.str(); }

private:
    std::ostringstream text_;
    std::streambuf *former_;
};

// How a message is scanned: by process() alone, or with the whole message written into a tap before.
enum class Way { ProcessOnly, TapFirst };

struct Input {
    Input(const std::string &received, const RefMessageProperties &message,
          const EmailAddress &from)
        : bytes(received), properties(message), sender(from),
          language(ReferenceScan::language(message->part().operator->())) {}

    static Input read(const std::string &path) {
        const Mail mail = MailReader().read(File::Path(path));
        return {TempDir::read(path), mail.properties(), mail.sender()};
    }

    template <class WriteTo>
    void writeInPieces(std::size_t size, WriteTo write) const {
        for (std::size_t at = 0; at < bytes.size(); at += size) {
            write(bytes.substr(at, size));
        }
    }

    std::string bytes;
    RefMessageProperties properties;
    EmailAddress sender;
    langID language;
};

class Comparison {
public:
    explicit Comparison(const File::Path &rules) : scanner_(rules), reference_(scanner_) {}

    // Whole scans, and scans that trip at each stage.
    void compareAll(const Input &input) {
        for (const unsigned int percent : {0U, 37U, 100U}) {
            compareTripping(input, Way::ProcessOnly, percent);
        }
        compareTripping(input, Way::TapFirst, 0);
        compare(input, Way::TapFirst, {0, -1.0F, true});
    }

    unsigned int scans() const { return scans_; }
    std::size_t additions() const { return additions_; }
    const StageCounts &trips() const { return trips_; }

private:
    void compareTripping(const Input &input, Way way, unsigned int percent) {
        const ReferenceOutcome whole = compare(input, way, {percent, 0.0F, true});
        const bool everyStage = percent == 0;
        const auto points = tripPoints(whole);
        for (const auto &[stage, threshold] : points) {
            if (everyStage || stage == Stage::Text) {
                const bool verbose = everyStage;
                const auto tripped = compare(input, way, {percent, threshold, verbose});
                EXPECT_TRUE(tripped.tripped);
                ++trips_[stage];
            }
        }
    }

    // The total before a new highest one is a threshold that it, but nothing before it, is above. For each stage: the
    // first such place and the last.
    static std::multimap<Stage, float> tripPoints(const ReferenceOutcome &outcome) {
        std::multimap<Stage, float> points;
        float highest = 0.0F;
        for (const ReferenceOutcome::Addition &addition : outcome.additions) {
            if (addition.total > highest) {
                if (points.count(addition.stage) > 1) {
                    points.erase(std::prev(points.upper_bound(addition.stage)));
                }
                points.emplace(addition.stage, highest != 0.0F ? highest : addition.total / 2);
                highest = addition.total;
            }
        }
        return points;
    }

    ReferenceOutcome compare(const Input &input, Way way, const ReferenceSettings &settings) {
        SCOPED_TRACE(testing::Message()
                     << "percent " << settings.percent << ", threshold " << settings.threshold
                     << ", tap " << (way == Way::TapFirst));
        ReferenceScan scan(reference_, settings);
        ReferenceTap tap(scan, input.language);
        if (way == Way::TapFirst) {
            input.writeInPieces(kTapBytes, [&](const std::string &piece) { tap.write(piece); });
        }
        scan.process(input.properties, input.sender);
        const ReferenceOutcome &expected = scan.outcome();
        if (settings.verbose) {
            expectSame(input, way, kTapBytes, settings, expected, tap.end());
        }
        // A scan without a trace takes another way through the rules.
        ReferenceSettings silent = settings;
        silent.verbose = false;
        ReferenceOutcome untraced = expected;
        untraced.trace.clear();
        expectSame(input, way, kTapBytes, silent, untraced, tap.end());
        // Where a tap trips decides what of the last piece it has taken.
        if (way == Way::TapFirst && settings.threshold == 0.0F) {
            for (const std::size_t tapBytes : kOtherTapBytes) {
                expectSame(input, way, tapBytes, silent, untraced, tap.end());
            }
        }
        ++scans_;
        additions_ += scan.outcome().additions.size();
        return scan.outcome();
    }

    void expectSame(const Input &input, Way way, std::size_t tapBytes,
                    const ReferenceSettings &settings, const ReferenceOutcome &expected,
                    bool expectedEnd) {
        const OutputCapture output;
        RefMatches matches = RefMatches::create();
        matches->threshold(settings.threshold);
        FullTap tap(scanner_, scanner_.rules().fullRules(input.language), matches, settings.percent,
                    settings.verbose);
        if (way == Way::TapFirst) {
            input.writeInPieces(tapBytes,
                                [&](const std::string &piece) { tap.write(viewOf(piece)); });
        }
        const unsigned int mask = scanner_.process(matches, input.properties, input.sender,
                                                   settings.percent, settings.verbose);
        const Names found = namesOf(*matches);
        std::set<std::string> names;
        for (const ReferenceOutcome::Addition &addition : expected.additions) {
            names.insert(addition.name);
        }
        EXPECT_EQ(found, Names(names.begin(), names.end()));
        EXPECT_EQ(mask, expected.mask);
        EXPECT_EQ(matches->tripped(), expected.tripped);
        EXPECT_EQ(matches->score(false), expected.score);
        EXPECT_EQ(tap.end(), expectedEnd);
        expectSameTrace(output.text(), expected.trace);
    }

    // Traces have megabytes; a failure shows where they part.
    static void expectSameTrace(const std::string &trace, const std::string &expected) {
        const auto parted =
            std::mismatch(trace.begin(), trace.end(), expected.begin(), expected.end()).first;
        const auto at = static_cast<std::size_t>(parted - trace.begin());
        const std::size_t from = at - std::min<std::size_t>(at, kShownBytes);
        EXPECT_TRUE(trace == expected)
            << "traced: ..." << trace.substr(from, 2 * kShownBytes) << "\nexpected: ..."
            << expected.substr(from, 2 * kShownBytes);
    }

    static constexpr std::size_t kShownBytes = 100;

    Scanner scanner_;
    ReferenceRules reference_;
    unsigned int scans_ = 0;
    std::size_t additions_ = 0;
    StageCounts trips_;
};

class ScannerReference : public testing::Test {
protected:
    void compareOnAllMail(Comparison &comparison) {
        const std::string directory =
            fromEnvironment("CORVANE_MAIL_DIR", CORVANE_TEST_DATA_DIR "/mail");
        int messages = 0;
        for (const auto &entry : std::filesystem::recursive_directory_iterator(directory)) {
            if (entry.path().extension() == ".eml" && !HasFailure()) {
                SCOPED_TRACE(entry.path().string());
                comparison.compareAll(Input::read(entry.path().string()));
                log_.records.clear();
                ++messages;
            }
        }
        EXPECT_GT(messages, 0);
        std::cout << messages << " messages, " << comparison.scans() << " scans, "
                  << comparison.additions() << " rules tripped; trips by stage:";
        for (const auto &[stage, count] : comparison.trips()) {
            std::cout << ' ' << static_cast<int>(stage) << '=' << count;
        }
        std::cout << '\n';
    }

    LogCapture log_;
};

TEST_F(ScannerReference, AgreesOnAllMail) {
    Comparison comparison(
        File::Path(fromEnvironment("CORVANE_RULES_DIR", CORVANE_EXAMPLE_RULES_DIR)));
    compareOnAllMail(comparison);
}

// Every form of rule, most of which match; scores that cancel each other out or lose bits when added.
constexpr const char *kBroadRules =
    "#[lang section]\tALL\n"
    "header H_SENDER EnvelopeFrom:addr =~ /@/\nheader H_ALL ALL =~ /^\\w+: .*e/\n"
    "header H_SUBJECT Subject =~ /[a-m]/i  [if-unset: none]\nheader H_NOT Subject !~ /[a-m]/i\n"
    "header H_RAW From:raw /</\nheader H_ADDR From:addr =~ /\\.(?:com|example)$/\n"
    "header H_NAME From:name =~ /^\\w+ /\nheader H_TOCC ToCc =~ /a/\n"
    "header H_ID MESSAGEID =~ /@/\nheader H_WILD X-* =~ /1/\nheader __H_EXISTS "
    "exists:mime-version\n"
    "header H_BOTH Subject:raw:addr =~ /./\nheader H_ALLRAW ALL:raw =~ /./\n"
    "header H_ONE Subject e\nheader H_SIGN Subject =/e/\nheader H_EVAL eval:x\n"
    "header H_UTF8 To:raw =~ /\\xc3\\xa9/\nheader H_CUT X-Long =~ /^1{2047}$/\nfull F_BYTES /^To: "
    "\\xe9/\n"
    "header H_EMPTY Reply-To:addr =~ /^$/\nheader SAME Date =~ /2/\n"
    "body SAME /e/\nbody B_SUBJECT /^re/i\nbody B_WORD /\\bthe\\b/i\nbody B_END /e\\r?$/\n"
    "body B_LONG /^.{200}/\nbody B_NOT_ASCII /[\\x80-\\xff]/\nbody B_NEGATIVE /[0-9]{3}/\n"
    "body B_SECOND /unsub/\nbody __B_UNUSED /./\nbody B_ZERO /./\nbody B_EVAL eval:x\nbody B_SHORT "
    "/^.{1,4}$/\n"
    "rawbody R_LINE_END /[a-z]\\n/\nrawbody R_CR /\\r\\n$/\nrawbody R_TAG /<\\w/\n"
    "rawbody __R_BLANK /^\\s*$/\nrawbody R_PIECE /^.{2047}$/s\n"
    "uri U_SCHEME /^https?:/i\nuri U_MAIL /mailto|@/\nuri U_EVAL eval:x\nuri __U_LONG /.{40}/\n"
    "full F_RECEIVED /^Received:/\nfull F_BLANK /^\\r?$/\nfull __F_UNUSED /a/\nfull F_ZERO /b/\n"
    "full F_SUBJECT /subject/i\n"
    "meta M_LATE M_AND\nmeta M_AND H_SUBJECT && B_WORD\nmeta __M_SUB !(U_SCHEME || R_TAG)\n"
    "meta M_SUM __H_EXISTS + __R_BLANK + __U_LONG + INFO >= 2\nmeta M_SEES __M_SUB || M_AND\n"
    "meta M_ODD 3 * (1 + 2) > 2 && __F_UNUSED\nmeta M_NONE __F_UNUSED - 1\n"
    "score H_SENDER 0.1\nscore H_ALL 0.7\nscore H_TOCC 1e-3\nscore H_WILD -0.4\n"
    "score B_SUBJECT 0 2.3 1 1\nscore B_WORD 0.3\nscore B_NEGATIVE -2.9\nscore B_ZERO 0\n"
    "score R_LINE_END 1e7\nscore R_CR -1e7\nscore U_MAIL -0.2\nscore F_ZERO 0\nscore F_BLANK 1e7\n";

// Lines of x that end in a digit, of so many bytes without their line ends; then a line without an end.
std::string linesOf(const std::vector<std::size_t> &lengths, const std::string &lineEnd) {
    std::string text;
    for (const std::size_t length : lengths) {
        text += std::string(length - 1, 'x') + '7' + lineEnd + lineEnd;
    }
    return text + "re 123";
}

// Texts that no reader of mail makes: with lines at the limit on pieces, of a length in all that just reaches the
// limit, and without a last line end.
Input oddMessage(const std::string &charset, const std::string &text) {
    Message message;
    message.header("Subject", "=?utf-8?Q?caf=C3=A9?= re").header("To", "\xE9 <a@b.example>");
    message.header("X-Long", std::string(3000, '1')).header("Subject", "Re: 2").header("", "");
    message.text(charset, text);
    message.raw(linesOf(std::vector<std::size_t>(16, 2046), "\n") + "\n<a\r\n");
    message.second("unsub " + text + '\r', MPartText::kDiffers);
    message.uri("http://a.example/").uri("mailto:b").uri(text);
    return {"Received: a\r\n\r\n" + text + "Received: b", message.properties(),
            EmailAddress("A", "a@b.example")};
}

TEST_F(ScannerReference, AgreesWithRulesThatMatchMuch) {
    RuleSet set("broad");
    Comparison comparison(set.add("a.cf", kBroadRules).path());
    compareOnAllMail(comparison);
    for (const char *charset : {"", "utf-8", "KOI8-R", "gbk"}) {
        comparison.compareAll(oddMessage(charset, linesOf({2048, 2049, 2047}, "\r\n")));
        comparison.compareAll(oddMessage(charset, linesOf({2048, 1024}, "\n")));
        comparison.compareAll(oddMessage(charset, linesOf({2048, 1023}, "\n")));
    }
    const Message noPart;
    comparison.compareAll(
        Input("\n", RefMessageProperties::create(noPart.headers(), Ref<MimePart>(nullptr)),
              EmailAddress()));
    EXPECT_EQ(comparison.trips().size(), ReferenceOutcome::kStages);
}

} // namespace
} // namespace Corvane::Heuristic
