// Messages scored through the door.

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "corvane/RuleSet.h"
#include "heuristic/FullRule.h"
#include "heuristic/Scanner.h"
#include "host/parser/MailReader.h"
#include "support/TempDir.h"

namespace corvane {
namespace {

using Corvane::TempDir;
using testing::ElementsAre;

std::vector<std::string> namesOf(const Verdict &verdict) {
    std::vector<std::string> names;
    for (const Hit &hit : verdict.hits()) {
        names.push_back(hit.name);
    }
    return names;
}

RuleSet rulesOf(const std::string &text) {
    return RuleSet::fromMemory({{"a.cf", text}});
}

TEST(Scan, TellsWhatTripped) {
    const RuleSet rules = rulesOf("describe PRIZE an offer\nbody PRIZE /prize/\nscore PRIZE 2.5\n"
                                  "body __PART /claim/\nmeta SUM __PART && PRIZE\n"
                                  "full LINE /^claim/\nscore LINE -0.5\n");
    const Verdict verdict = rules.scan("Subject: x\n\nclaim a prize\n");
    EXPECT_EQ(namesOf(verdict), (std::vector<std::string>{"LINE", "PRIZE", "SUM", "__PART"}));
    EXPECT_EQ(verdict.score(), 3.0F);
    EXPECT_FALSE(verdict.over());
    EXPECT_EQ(verdict.language(), "DEFAULT");
    EXPECT_EQ(verdict.mask(), 3U - 2U);
    EXPECT_TRUE(verdict.limits().empty());
    const Hit &prize = verdict.hits()[1];
    EXPECT_EQ(prize.kind, RuleKind::Body);
    EXPECT_EQ(prize.score, 2.5F);
    EXPECT_EQ(prize.description, "an offer");
    EXPECT_EQ(prize.file + ':' + std::to_string(prize.line), "a.cf:2");
    EXPECT_EQ(verdict.hits()[3].score, 0.0F);
    EXPECT_GT(verdict.readingTime().count(), 0);
    EXPECT_GT(verdict.scanningTime().count(), 0);
}

TEST(Scan, OverIsAboveTheThreshold) {
    const RuleSet rules = rulesOf("body A /x/\nscore A 5\n");
    ScanOptions options;
    EXPECT_FALSE(rules.scan("\nx\n", options).over());
    options.threshold = 4.9F;
    EXPECT_TRUE(rules.scan("\nx\n", options).over());
    EXPECT_FALSE(rules.scan("\nx\n", options).stopped());
    options.threshold = -1.0F;
    EXPECT_TRUE(rules.scan("\ny\n", options).over());
}

TEST(Scan, StopsAboveTheThreshold) {
    // The second URI takes back what the first has added; the full rule is a stage of its own.
    const RuleSet rules = rulesOf("uri BAD /bad/\nscore BAD 5\nuri GOOD /good/\nscore GOOD -4\n"
                                  "header LATE X-Late =~ /x/\nmeta ANY BAD || GOOD\n");
    const std::string message = "Subject: x\n\nhttp://bad.example/ http://good.example/\n";
    ScanOptions options;
    options.threshold = 3.0F;
    options.stop = true;
    const Verdict stopped = rules.scan(message, options);
    EXPECT_TRUE(stopped.stopped());
    EXPECT_EQ(namesOf(stopped), (std::vector<std::string>{"BAD", "GOOD"}));
    EXPECT_EQ(stopped.score(), 1.0F);
    EXPECT_FALSE(stopped.over());
    options.threshold = 0.0F;
    EXPECT_FALSE(rules.scan(message, options).stopped()) << "no effect with a threshold of 0";
    options.threshold = 3.0F;
    options.stop = false;
    EXPECT_EQ(rules.scan(message, options).score(), 2.0F);
}

TEST(Scan, SenderIsTheOneGivenOrTheMessagesOwn) {
    const RuleSet rules = rulesOf("header OWN EnvelopeFrom =~ /own@a.example/\n"
                                  "header GIVEN EnvelopeFrom =~ /given@b.example/\n"
                                  "header ODD EnvelopeFrom =~ /no address/\n");
    const std::string message = "Return-Path: <own@a.example>\nSubject: x\n\ny\n";
    ScanOptions options;
    EXPECT_THAT(namesOf(rules.scan(message, options)), ElementsAre("OWN"));
    for (const char *given : {"given@b.example", "<given@b.example>", "B <given@b.example>"}) {
        options.sender = given;
        EXPECT_THAT(namesOf(rules.scan(message, options)), ElementsAre("GIVEN")) << given;
    }
    for (const char *empty : {"", "<>"}) {
        options.sender = empty;
        EXPECT_THAT(namesOf(rules.scan(message, options)), ElementsAre()) << empty;
    }
    options.sender = "no address";
    EXPECT_THAT(namesOf(rules.scan(message, options)), ElementsAre("ODD"));
}

TEST(Scan, PercentTriesTheFirstRules) {
    const RuleSet rules = rulesOf("body A /x/\nbody B /x/\nbody C /x/\nfull D /x/\n");
    ScanOptions options;
    options.percent = 50;
    EXPECT_THAT(namesOf(rules.scan("\nx\n", options)), ElementsAre("A", "B", "D"));
}

TEST(Scan, NamesTheLimitsThatCut) {
    const RuleSet rules = rulesOf("body LATE /late/\nfull LINE /late/\n");
    ScanOptions options;
    options.limits.messageBytes = 20;
    options.limits.textBytes = 4;
    const Verdict verdict = rules.scan("Subject: x\n\nsome text late\nlate\n", options);
    EXPECT_THAT(verdict.limits(), ElementsAre("message-bytes", "text-bytes"));
    EXPECT_TRUE(verdict.hits().empty());
    EXPECT_THAT(namesOf(rules.scan("Subject: x\n\nsome text late\nlate\n")),
                ElementsAre("LATE", "LINE"));
}

TEST(Scan, UsualLimitsAreTheReaders) {
    const Limits limits;
    EXPECT_EQ(limits.messageBytes, Corvane::kMaxMessageBytes);
    EXPECT_EQ(limits.nestingDepth, Corvane::kMaxNestingDepth);
    EXPECT_EQ(limits.parts, Corvane::kMaxParts);
    EXPECT_EQ(limits.headers, Corvane::kMaxHeaders);
    EXPECT_EQ(limits.headerBytes, Corvane::kMaxHeaderBytes);
    EXPECT_EQ(limits.headerValueBytes, Corvane::kMaxHeaderValueBytes);
    EXPECT_EQ(limits.uris, Corvane::kMaxUris);
    EXPECT_EQ(limits.uriBytes, Corvane::kMaxUriBytes);
    EXPECT_EQ(limits.decodedBytes, Corvane::kMaxDecodedBytes);
    EXPECT_EQ(limits.textBytes, Corvane::kMaxTextBytes);
    EXPECT_EQ(limits.rawBodyBytes, Corvane::kMaxRawBodyBytes);
    EXPECT_EQ(limits.htmlBytes, Corvane::kMaxHtmlBytes);
    EXPECT_EQ(limits.htmlTagBytes, Corvane::kMaxHtmlTagBytes);
    EXPECT_EQ(limits.styleRules, Corvane::kMaxStyleRules);
}

TEST(Scan, CountsTriesThatTookTooManySteps) {
    const RuleSet rules = rulesOf("body SLOW /^(?:x|xx)*(?:x|xx)*y(?!z)/\nbody FAST /xy/\n");
    const Verdict verdict = rules.scan("\n" + std::string(200, 'x') + "yz\n");
    EXPECT_THAT(namesOf(verdict), ElementsAre("FAST"));
    EXPECT_EQ(verdict.stepLimited(), 1U);
    EXPECT_THAT(verdict.stepLimitedRules(), ElementsAre("SLOW"));
}

// The time is used up before the first rule: what was added by then is the score.
TEST(Scan, EndsWithTheBudget) {
    const RuleSet rules = rulesOf("body A /zz/\nfull B /zz/\n");
    ScanOptions options;
    options.budget = std::chrono::nanoseconds(1);
    std::string message = "Subject: x\n\n";
    for (int line = 0; line < 20000; ++line) {
        message += "a line of other words\n";
    }
    message += "zz\n";
    const Verdict ended = rules.scan(message, options);
    EXPECT_THAT(ended.limits(), testing::Contains("budget"));
    EXPECT_THAT(namesOf(ended), ElementsAre());
    options.budget = std::chrono::hours(1);
    const Verdict whole = rules.scan(message, options);
    EXPECT_THAT(whole.limits(), testing::Not(testing::Contains("budget")));
    EXPECT_THAT(namesOf(whole), testing::Contains("B"));
}

TEST(Scan, AnEmptyMessageIsOne) {
    const RuleSet rules = rulesOf("body A /x/\n");
    EXPECT_EQ(rules.scan("").score(), 0.0F);
    EXPECT_EQ(rules.scan(std::string_view()).score(), 0.0F);
    EXPECT_THAT(namesOf(rules.scan(std::string("\n\0x", 3))), ElementsAre("A"));
}

// Whatever the process has loaded otherwise, and was told to forget.
TEST(Scan, StandsAlone) {
    const RuleSet rules = rulesOf("body A /x/\n");
    Corvane::Heuristic::Scanner::instance(nullptr, true);
    EXPECT_THAT(namesOf(rules.scan("\nx\n")), ElementsAre("A"));
    EXPECT_EQ(Corvane::Heuristic::Scanner::instance(nullptr, false).ruleCount(), 0U);
    EXPECT_TRUE(RuleSet().scan("\nx\n").hits().empty());
}

std::vector<std::string> messageFiles() {
    const char *chosen = std::getenv("CORVANE_MAIL_DIR");
    const std::string directory = chosen != nullptr ? chosen : CORVANE_EXAMPLE_RULES_DIR;
    std::vector<std::string> files;
    for (const auto &entry : std::filesystem::recursive_directory_iterator(directory)) {
        if (entry.path().extension() == ".eml") {
            files.push_back(entry.path().string());
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

// The verdict as the layers below give it, called one after the other.
std::string belowOf(const Corvane::Heuristic::Scanner &set, const std::string &bytes) {
    using namespace Corvane;
    Heuristic::Scanner scanner = set;
    const Mail mail = MailReader().read(bytes);
    const auto language =
        Heuristic::Scanner::selectLanguage(mail.properties()->part().operator->());
    auto matches = Heuristic::RefMatches::create();
    Heuristic::FullTap tap(scanner, scanner.rules().fullRules(language), matches, 0, false);
    tap.write(Buffer(bytes.data(), static_cast<unsigned int>(bytes.size()), true));
    tap.end();
    const unsigned int mask = scanner.process(matches, mail.properties(), mail.sender(), 0, false);
    std::string shown = std::to_string(matches.score(false)) + ' ' + std::to_string(mask);
    for (const auto &rule : *matches) {
        shown += ' ' + rule->name();
    }
    return shown;
}

TEST(Scan, GivesTheVerdictOfTheLayersBelow) {
    const RuleSet rules = RuleSet::load(CORVANE_EXAMPLE_RULES_DIR);
    const Corvane::Heuristic::Scanner below{Corvane::File::Path(CORVANE_EXAMPLE_RULES_DIR)};
    std::size_t hits = 0;
    for (const std::string &file : messageFiles()) {
        const std::string bytes = TempDir::read(file);
        const Verdict verdict = rules.scan(bytes);
        std::string shown = std::to_string(verdict.score()) + ' ' + std::to_string(verdict.mask());
        for (const Hit &hit : verdict.hits()) {
            shown += ' ' + hit.name;
        }
        EXPECT_EQ(shown, belowOf(below, bytes)) << file;
        hits += verdict.hits().size();
    }
    EXPECT_GT(hits, 0U);
}

} // namespace
} // namespace corvane
