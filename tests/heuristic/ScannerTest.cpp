#include "heuristic/Scanner.h"

#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <sys/stat.h>

#include <gtest/gtest.h>

#include "support/CheckFixture.h"
#include "support/Expect.h"
#include "support/LogCapture.h"
#include "support/Message.h"
#include "support/RuleSet.h"
#include "support/Rules.h"

namespace Corvane::Heuristic {
namespace {

const EmailAddress kNoSender;

EmailAddress address(const std::string &text) {
    return EmailAddress::rfc5322Parse(text, true);
}

class ScannerTest : public testing::Test {
protected:
    Scanner load(const std::string &rules) { return Scanner(set_.add("a.cf", rules).path()); }

    void makeCurrent(const std::string &rules) {
        const File::Path path = set_.add("a.cf", rules).path();
        Scanner::instance(&path, false);
    }

    LogCapture log_;
    RuleSet set_;
    RefMatches matches_ = RefMatches::create();
};

// Looks at a process in which nothing was loaded, so it runs in one of its own, which that style starts anew.
TEST_F(ScannerTest, AnswersEmptySetUntilOneIsLoaded) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    RuleSet broken("broken");
    const File::Path brokenPath = broken.add("version", "").add("a.cf", "").path();
    const auto untilLoaded = [this, &brokenPath] {
        Scanner scanner = Scanner::instance(nullptr, false);
        RefMatches null;
        scanner.check(null, ALL, kNoSender, 0, false);
        bool good = !scanner.ready() && scanner.ruleCount() == 0 && log_.records.size() == 1 &&
                    log_.records[0] == LogRecord{0x300002D, " "} &&
                    scanner.process(null, RefMessageProperties(), kNoSender, 0, false) == 0 &&
                    !scanner.checkRaw(null, ALL, Buffer(), 0, false) &&
                    !Scanner::instance(nullptr, true).ready() &&
                    Scanner::instance(&brokenPath, false).ruleCount() == 0 && !scanner.ready();
        makeCurrent("body A /x/\n");
        good = good && scanner.ready() && Scanner::instance(nullptr, false).ruleCount() == 1;
        std::filesystem::remove_all(set_.path().asString());
        std::filesystem::remove_all(brokenPath.asString());
        std::exit(good ? 0 : 1);
    };
    EXPECT_EXIT(untilLoaded(), testing::ExitedWithCode(0), "");
}

struct ReadmeRow {
    const char *name;
    std::string readme;
    const char *version;
};

void PrintTo(const ReadmeRow &row, std::ostream *out) {
    *out << row.name;
}

class ScannerReadme : public ScannerTest, public testing::WithParamInterface<ReadmeRow> {};

TEST_P(ScannerReadme, GivesVersionThatTheLoadLogs) {
    set_.add("README", GetParam().readme);
    const Scanner scanner = load("body A /x/\nbody A /y/\nbody ZERO /x/\nscore ZERO 0\n"
                                 "#[lang section]\tALL\nuri U /x/\n");
    EXPECT_EQ(scanner.ruleCount(), 4U);
    EXPECT_EQ(log_.records.back(), (LogRecord{0x300002C, std::string("4\x01"
                                                                     "7\x01") +
                                                             GetParam().version}));
}

const std::string kMinor = "CF_HR_VERSION=";
INSTANTIATE_TEST_SUITE_P(
    Rows, ScannerReadme,
    testing::Values(
        ReadmeRow{"both", "Rules\n\nCF_MAJOR_VERSION=5\nCF_HR_VERSION=123\nCF_HR_VERSION=9\n",
                  " (v5.123)"},
        ReadmeRow{"empty", "", ""}, ReadmeRow{"majorOnly", "CF_MAJOR_VERSION=5\n", " (v5."},
        ReadmeRow{"minorOnly", "CF_HR_VERSION=123\n", "123)"},
        ReadmeRow{"lastByteIsLost", "CF_MAJOR_VERSION=5\nCF_HR_VERSION=123", " (v5.12)"},
        ReadmeRow{"keyInsideLine", "# CF_MAJOR_VERSION=5\n", " (vN=5."},
        ReadmeRow{"keyCutOff", "CF_MAJOR_VERSION=", ""},
        ReadmeRow{"fits", std::string(255, '#') + '\n' + kMinor + "1\n", "1)"},
        ReadmeRow{"tooLong", std::string(256, '#') + '\n' + kMinor + "1\n", ""}),
    [](const auto &row) { return std::string(row.param.name); });

// Nobody writes to the pipes; all of this would wait for ever.
TEST_F(ScannerTest, PipesInTheDirectoryAreNotOpened) {
    for (const char *name : {"README", "b.cf", "c.score"}) {
        const std::string pipe = set_.path().asString() + '/' + name;
        ASSERT_EQ(mkfifo(pipe.c_str(), S_IRUSR | S_IWUSR), 0);
    }
    EXPECT_EQ(load("body A /x/\n").ruleCount(), 1U);
}

TEST_F(ScannerTest, ReloadAndResetLeaveOldScannersAlone) {
    makeCurrent("body A /x/\n");
    const Scanner old = Scanner::instance(nullptr, false);
    makeCurrent("body B /x/\nbody C /x/\n");
    EXPECT_EQ(namesOf(*old.rules().bodyRules(DEFAULT)), Names{"A"});
    EXPECT_EQ(Scanner::instance(nullptr, false).ruleCount(), 2U);
    EXPECT_EQ(Scanner::instance(nullptr, true).ruleCount(), 0U);
    EXPECT_EQ(Scanner::instance(nullptr, false).ruleCount(), 0U);
    EXPECT_TRUE(old.ready());
}

TEST_F(ScannerTest, FailedLoadIsLoggedAndKeepsTheCurrentSet) {
    makeCurrent("body A /x/\n");
    const File::Path path = set_.add("version", "").path();
    EXPECT_EQ(Scanner::instance(&path, false).ruleCount(), 0U);
    EXPECT_EQ(log_.records.back().id, 0x300002EU);
    EXPECT_EQ(Scanner::instance(nullptr, false).ruleCount(), 1U);
    EXPECT_THROW(Scanner{path}, Exception);
}

TEST_F(ScannerTest, CutoffIsAShareOfTheOrdinals) {
    Scanner scanner = load("body A /x/\n");
    scanner->ruleCount = 10;
    const std::pair<unsigned int, unsigned int> rows[] = {{0, 0},    {50, 6}, {99, 10},
                                                          {100, 11}, {1, 1},  {200, 21}};
    for (const auto &[percent, cutoff] : rows) {
        EXPECT_EQ(scanner.getordinalCutoff(percent), cutoff) << percent;
    }
    scanner->ruleCount = 0x80000000U;
    EXPECT_EQ(scanner.getordinalCutoff(2), 1U);
}

// The byte behind a text that ends in half a character: it used to be the first of the next header.
TEST_F(ScannerTest, WhatStandsBehindATextHasNoPartInIt) {
    Scanner scanner = load("full E1 /\\b[!?.]*$/u\nfull E2 /\\B$/u\nheader E3 ALL =~ /\\b$/u\n"
                           "uri E4 /\\b$/u\n");
    Message message;
    message.header("X", "\xFF").header("Y", "\xFF").uri("\xFF").uri("a\xE2");
    RefMatches traced = RefMatches::create();
    const Names tried =
        tracedBy([&] { scanner.process(traced, message.properties(), kNoSender, 0, true); });
    EXPECT_FALSE(tried.empty());
    scanner.process(matches_, message.properties(), kNoSender, 0, false);
    EXPECT_EQ(namesOf(*matches_), namesOf(*traced));
}

struct LanguageRow {
    const char *charset;
    const char *text;
    langID language;
};

void PrintTo(const LanguageRow &row, std::ostream *out) {
    *out << '"' << row.charset << "\" " << row.text;
}

class ScannerLanguage : public testing::TestWithParam<LanguageRow> {};

TEST_P(ScannerLanguage, IsChosenByCharsetOrText) {
    const Message message = Message().text(GetParam().charset, GetParam().text);
    EXPECT_EQ(Scanner::selectLanguage(&message.part()), GetParam().language);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, ScannerLanguage,
    testing::Values(LanguageRow{"gb18030", "", CN}, LanguageRow{"gb2312", "", CN},
                    LanguageRow{"Big5", "", CN}, LanguageRow{"KOI8-R", "", RU},
                    LanguageRow{"Windows-1251", "", RU}, LanguageRow{"Shift_JIS", "", JP},
                    LanguageRow{"EUC-JP", "", JP}, LanguageRow{"ISO-2022-JP", "", JP},
                    LanguageRow{"EUC-KR", "", KO}, LanguageRow{"ISO-2022-KR", "", KO},
                    LanguageRow{"UHC", "", KO}, LanguageRow{"iso-8859-11", "", TH},
                    LanguageRow{"iso-8859-1", "", DEFAULT}, LanguageRow{"", "", DEFAULT},
                    LanguageRow{"utf8", "привет", DEFAULT},
                    LanguageRow{" utf-8", "привет", DEFAULT}, LanguageRow{"UTF-8", "привет", RU},
                    LanguageRow{"utf-8", "你好", CN}, LanguageRow{"utf-8", "日本のことば", JP},
                    LanguageRow{"utf-8", "한국어", KO}, LanguageRow{"utf-8", "สวัสดี", DEFAULT},
                    LanguageRow{"utf-8", "", DEFAULT}));

TEST(ScannerLanguage, IsDefaultWithoutText) {
    const Ref<MPartAttribute> wrongClass(new MPartAttribute);
    const Message wrong = Message().attribute(MPartAttribute::Text, wrongClass);
    EXPECT_EQ(Scanner::selectLanguage(nullptr), DEFAULT);
    EXPECT_EQ(Scanner::selectLanguage(&Message().part()), DEFAULT);
    EXPECT_EQ(Scanner::selectLanguage(&wrong.part()), DEFAULT);
}

// One rule for each stage, and a message that trips them all.
constexpr const char *kEveryStage =
    "header SENDER EnvelopeFrom =~ /x/\nheader H A =~ /x/\nbody S /sub/\nbody B /x/\n"
    "rawbody R /x/\nbody TWO /second/\nuri U /x/\nfull F /^A: x/\nmeta M B && F\n";

Message everyStage() {
    Message message;
    message.header("A", "x").header("Subject", "=?utf-8?q?sub?=");
    return message.text("", "x\n").raw("x\n").second("second\n", 1).uri("x");
}

TEST_F(ScannerTest, ProcessRunsEveryStageInOrder) {
    Scanner scanner = load(kEveryStage);
    testing::internal::CaptureStdout();
    const unsigned int mask =
        scanner.process(matches_, everyStage().properties(), address("x@example.org"), 0, true);
    // Full rules leave no trace. A rule that the Subject matched is tried on the text again, because
    // the Subject is an unterminated line.
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "SENDER\nH\n" // the sender
              "H\n"         // header A
              "S\nB\nTWO\nS\nB\nTWO\nR\nS\nB\nTWO\nU\nM\n");
    EXPECT_EQ(mask, 7U);
    EXPECT_EQ(namesOf(*matches_), (Names{"B", "F", "H", "M", "R", "S", "SENDER", "TWO", "U"}));
}

// A stage that has begun may add one more rule: neither the headers after the sender nor the text
// after the Subject ask whether the set has tripped before they start.
TEST_F(ScannerTest, NoStageStartsOnceTheSetHasTripped) {
    Scanner scanner = load(kEveryStage);
    const std::pair<float, Names> rows[] = {
        {0.5F, {"H", "SENDER"}},
        {2.5F, {"B", "H", "S", "SENDER"}},
        {4.5F, {"B", "H", "R", "S", "SENDER"}},
        {5.5F, {"B", "H", "R", "S", "SENDER", "TWO"}},
        {6.5F, {"B", "H", "R", "S", "SENDER", "TWO", "U"}},
        {7.5F, {"B", "F", "H", "R", "S", "SENDER", "TWO", "U"}}};
    for (const auto &[threshold, names] : rows) {
        RefMatches matches = RefMatches::create();
        matches->threshold(threshold);
        const RefMessageProperties message = everyStage().properties();
        scanner.process(matches, message, address("x@example.org"), 0, false);
        EXPECT_EQ(namesOf(*matches), names) << threshold;
        EXPECT_EQ(scanner.process(matches, message, kNoSender, 0, false), 0U);
    }
}

TEST_F(ScannerTest, PercentLeavesLaterRulesOut) {
    Scanner scanner = load(kEveryStage);
    scanner.process(matches_, everyStage().properties(), kNoSender, 50, false);
    EXPECT_EQ(namesOf(*matches_), (Names{"B", "H", "S"}));
    scanner.process(matches_, everyStage().properties(), kNoSender, 90, false);
    EXPECT_EQ(namesOf(*matches_), (Names{"B", "F", "H", "R", "S", "TWO", "U"}));
}

TEST_F(ScannerTest, MessageWithoutMainPartIsCheckedByItsHeaders) {
    Scanner scanner = load(kEveryStage);
    const Ref<MimePart> none(static_cast<MimePart *>(nullptr));
    const RefHeaderList headers = everyStage().headers();
    const RefMessageProperties bare = RefMessageProperties::create(headers, none);
    EXPECT_EQ(scanner.process(matches_, bare, kNoSender, 0, false), 0U);
    EXPECT_EQ(namesOf(*matches_), (Names{"F", "H"}));
    const RefMessageProperties broken = RefMessageProperties::create(headers, Ref<MimePart>());
    EXPECT_THROW(scanner.process(matches_, broken, kNoSender, 0, false), Exception);
    RefMatches null;
    EXPECT_THROW(scanner.process(null, bare, kNoSender, 0, false), Exception);
    for (const auto &[message, operation] :
         {std::pair(RefMessageProperties(), "operator->"),
          std::pair(RefMessageProperties::create(RefHeaderList(false), none), "operator*")}) {
        expectFailure(
            [&, &lacking = message] { scanner.process(matches_, lacking, kNoSender, 0, false); },
            {operation, 1, "TesselRefcounted"});
    }
}

TEST_F(ScannerTest, AttributesOfAWrongClassArePassedOver) {
    Scanner scanner = load(kEveryStage);
    for (const auto type :
         {MPartAttribute::RawText, MPartAttribute::Uris, MPartAttribute::AltText}) {
        const Ref<MPartAttribute> wrong(new MPartAttribute);
        const RefMessageProperties message = Message().attribute(type, wrong).properties();
        EXPECT_EQ(scanner.process(matches_, message, kNoSender, 0, false), 0U);
    }
    EXPECT_TRUE(matches_->empty());
}

TEST_F(ScannerTest, OnlyTheMessagesLanguageCounts) {
    Scanner scanner = load("body D /x/\n#[lang section]\tRU\nbody RUSSIAN /x/\n"
                           "#[lang section]\tALL\nbody EVERY /x/\n");
    scanner.process(matches_, Message().text("koi8-r", "x\n").properties(), kNoSender, 0, false);
    EXPECT_EQ(namesOf(*matches_), (Names{"EVERY", "RUSSIAN"}));
}

TEST_F(ScannerTest, HeadersAreRepairedForHeaderRulesOnly) {
    Scanner scanner = load("header UTF A:raw =~ /^\\xc3\\xa9$/\nfull BYTES /^A: \\xe9$/\n"
                           "header CUT Long =~ /end/\nfull WHOLE /end$/\nbody SUB /^\\xe9$/\n");
    Message message;
    message.header("A", "\xE9").header("Long", std::string(2045, 'x') + "end");
    message.header("Subject", "\xE9");
    scanner.process(matches_, message.properties(), kNoSender, 0, false);
    EXPECT_EQ(namesOf(*matches_), (Names{"BYTES", "SUB", "UTF", "WHOLE"}));
}

TEST_F(ScannerTest, SecondTextCountsOnlyWhereItDiffers) {
    Scanner scanner = load("body TWO /second/\n");
    for (const auto &[flags, mask] : {std::pair{2U, 0U}, std::pair{3U, 4U}}) {
        const RefMessageProperties message = Message().second("second\n", flags).properties();
        EXPECT_EQ(scanner.process(matches_, message, kNoSender, 0, false), mask);
    }
}

// One stage on its own: how it is entered, which rules the first half of the set adds, which all of
// it adds, and which are tried.
struct StageRow {
    std::function<void(RefMatches &, langID, unsigned int percent, bool verbose)> run;
    Names half;
    Names all;
    Names traced;
};

TEST_F(ScannerTest, SingleStages) {
    std::string rules;
    for (const std::string half : {"1", "2"}) {
        rules += "header H" + half + " A =~ /x/\nheader E" + half + " EnvelopeFrom =~ /x/\nbody B" +
                 half + " /x/\nbody S" + half + " /^sub$/\nrawbody R" + half + " /x\\n/\nfull F" +
                 half + " /^A: x$/\n";
    }
    Scanner scanner = load(rules);
    HeaderContainer headers;
    headers.append(Header("A", "x"));
    headers.append(Header("Subject", "=?utf-8?q?sub?="));
    const StageRow rows[] = {
        {[&](auto &matches, langID language, unsigned int percent, bool verbose) {
             const std::size_t before = matches->size();
             const bool added = scanner.check(matches, language, viewOf("x\n"), percent, verbose);
             EXPECT_EQ(added, matches->size() > before);
         },
         {"B1"},
         {"B1", "B2"},
         {"B1", "S1", "B2", "S2"}},
        {[&](auto &matches, langID language, unsigned int percent, bool verbose) {
             const std::size_t before = matches->size();
             const bool added =
                 scanner.checkRaw(matches, language, viewOf("x\n"), percent, verbose);
             EXPECT_EQ(added, matches->size() > before);
         },
         {"R1"},
         {"R1", "R2"},
         {"R1", "R2"}},
        {[&](auto &matches, langID language, unsigned int percent, bool verbose) {
             scanner.check(matches, language, address("x@example.org"), percent, verbose);
         },
         {"E1"},
         {"E1", "E2"},
         {"H1", "E1", "H2", "E2"}},
        {[&](auto &matches, langID language, unsigned int percent, bool verbose) {
             scanner.check(matches, language, headers, percent, verbose);
         },
         {"F1", "H1", "S1"},
         {"F1", "F2", "H1", "H2", "S1", "S2"},
         {"H1", "E1", "H2", "E2", "E1", "E2", "B1", "S1", "B2", "S2"}}};
    for (const StageRow &row : rows) {
        RefMatches matches = RefMatches::create();
        EXPECT_EQ(tracedBy([&] { row.run(matches, DEFAULT, 50, false); }), Names());
        EXPECT_EQ(namesOf(*matches), row.half);
        EXPECT_THROW(row.run(matches, ALL, 0, false), Exception);
        // Twice, as what has matched stays in the rule set; the second time nothing is added.
        for (int round = 0; round < 2; ++round) {
            EXPECT_EQ(tracedBy([&] { row.run(matches, DEFAULT, 0, true); }), row.traced);
            EXPECT_EQ(namesOf(*matches), row.all);
        }
        matches->threshold(1.0F);
        EXPECT_NO_THROW(row.run(matches, ALL, 0, false));
    }
    matches_->threshold(0.5F);
    rows[3].run(matches_, DEFAULT, 0, false);
    EXPECT_EQ(namesOf(*matches_), Names{"H1"});
}

TEST_F(ScannerTest, ScansAndReloadsRunSideBySide) {
    constexpr int kRounds = 40;
    RuleSet other("other");
    other.add("a.cf", "body B1 /x/\nmeta B2 B1\n");
    makeCurrent("body A1 /x/\nmeta A2 A1\n");
    const File::Path paths[] = {set_.path(), other.path()};
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([] {
            const RefMessageProperties message = Message().text("utf-8", "x\n").properties();
            for (int round = 0; round < kRounds * 10; ++round) {
                RefMatches matches = RefMatches::create();
                Scanner::instance(nullptr, false).process(matches, message, kNoSender, 0, false);
                const Names names = namesOf(*matches);
                EXPECT_TRUE(names == (Names{"A1", "A2"}) || names == (Names{"B1", "B2"}) ||
                            names.empty());
            }
        });
    }
    for (int round = 0; round < kRounds; ++round) {
        Scanner::instance(round % 8 == 7 ? nullptr : &paths[round % 2], true);
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
}

// Each look at a list makes scans compare it with what was prepared for it.
TEST_F(ScannerTest, ScansRunBesideReadersOfTheLists) {
    constexpr int kRounds = 400;
    set_.add("a.cf", "body A1 /x\\s+y/\nheader A2 Subject =~ /x/\nmeta A3 A1 && A2\nuri A4 /z/\n");
    Scanner scanner(set_.path());
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; ++i) {
        threads.emplace_back([&scanner] {
            Message message;
            message.header("Subject", "x").text("utf-8", "x y\n");
            for (int round = 0; round < kRounds; ++round) {
                RefMatches matches = RefMatches::create();
                scanner.process(matches, message.properties(), kNoSender, 0, false);
                EXPECT_EQ(namesOf(*matches), (Names{"A1", "A2", "A3"}));
            }
        });
    }
    for (int round = 0; round < kRounds; ++round) {
        for (const Rule::Type kind : {Rule::Header, Rule::Body, Rule::Uri, Rule::Meta}) {
            const RefRuleList &list = scanner.rules().rules(DEFAULT, kind);
            EXPECT_EQ(list->size(), 1U);
            EXPECT_TRUE(list->front()->active());
        }
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
}

} // namespace
} // namespace Corvane::Heuristic
