#include "corvane/RuleSet.h"

#include <algorithm>
#include <filesystem>
#include <functional>
#include <future>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "corvane/Engine.h"
#include "host/crypto/Digest.h"
#include "support/LogCapture.h"
#include "support/RuleSet.h"
#include "support/TempDir.h"

namespace corvane {
namespace {

using Files = std::map<std::string, std::string>;
using Corvane::LogCapture;
using Corvane::TempDir;
using Directory = Corvane::Heuristic::RuleSet;
using testing::ElementsAre;
using testing::HasSubstr;

std::vector<std::string> namesOf(const RuleSet &rules) {
    std::vector<std::string> names;
    for (const Rule &rule : rules.rules()) {
        names.push_back(rule.name);
    }
    return names;
}

const Rule &ruleNamed(const RuleSet &rules, const std::string &name) {
    const auto found = std::find_if(rules.rules().begin(), rules.rules().end(),
                                    [&name](const Rule &rule) { return rule.name == name; });
    EXPECT_NE(found, rules.rules().end()) << name;
    return *found;
}

std::vector<std::string> problemsOf(const RuleSet &rules) {
    std::vector<std::string> shown;
    for (const Problem &problem : rules.problems()) {
        shown.push_back(toString(problem) + " [" + std::string(codeName(problem.code)) + ']');
    }
    return shown;
}

// What a load that must fail says.
LoadError failureOf(const std::function<RuleSet()> &load) {
    try {
        load();
    } catch (const LoadError &failure) {
        return failure;
    }
    ADD_FAILURE() << "loaded";
    return {"", "", "", ""};
}

// The generation as it is defined, of files in the order of reading.
std::string generationOf(const std::vector<std::pair<std::string, std::string>> &files) {
    Corvane::Crypto::Digest digest;
    for (const auto &[name, bytes] : files) {
        digest.add(name);
        std::string length(9, '\0');
        length[8] = static_cast<char>(bytes.size() & 0xFFU);
        length[7] = static_cast<char>(bytes.size() >> 8U);
        digest.add(length);
        digest.add(bytes);
    }
    return digest.hex().substr(0, 16);
}

TEST(RuleSet, TellsItsRules) {
    const RuleSet rules = RuleSet::fromMemory(
        {{"a.cf", "describe OFFER of before\nbody OFFER /offer/\ndescribe OFFER  what it is \n"
                  "score OFFER 2.5\nrawbody __PART /p/\nfull OFF /o/\nscore OFF 0\n"
                  "#[lang section]\tCN\nheader OFFER Subject =~ /o/\n"},
         {"b.cf", "\nmeta SUM __PART && OFFER\n#[lang section]\tALL\nuri LINK /l/\n"}});
    EXPECT_EQ(namesOf(rules),
              (std::vector<std::string>{"OFFER", "__PART", "OFF", "OFFER", "SUM", "LINK"}));
    const Rule &offer = rules.rules()[0];
    EXPECT_EQ(kindName(offer.kind), "body");
    EXPECT_EQ(offer.score, 2.5F);
    EXPECT_EQ(offer.description, "what it is");
    EXPECT_EQ(offer.file, "a.cf");
    EXPECT_EQ(offer.line, 2U);
    EXPECT_TRUE(offer.active);
    EXPECT_THAT(offer.languages, ElementsAre("DEFAULT"));
    EXPECT_EQ(rules.rules()[3].description, "what it is");
    EXPECT_THAT(rules.rules()[3].languages, ElementsAre("CN"));
    EXPECT_EQ(rules.rules()[1].score, 0.0F);
    EXPECT_TRUE(rules.rules()[1].active);
    EXPECT_FALSE(ruleNamed(rules, "OFF").active);
    EXPECT_EQ(ruleNamed(rules, "SUM").line, 2U);
    EXPECT_THAT(ruleNamed(rules, "LINK").languages,
                ElementsAre("DEFAULT", "CN", "JP", "KO", "RU", "TH"));
    EXPECT_EQ(rules.size(), 6U);
    EXPECT_EQ(rules.counts().active, 5U);
    EXPECT_EQ(rules.counts().files, 2U);
    EXPECT_EQ(rules.languages().size(), 6U);
    EXPECT_THAT(RuleSet::fromMemory({{"a.cf", "#[lang section]\tRU\nbody A /x/\n"}}).languages(),
                ElementsAre("RU"));
}

TEST(RuleSet, TellsWhatIsWrong) {
    const LogCapture log;
    const RuleSet rules = RuleSet::fromMemory({{"a.cf", "body OFFER /free offer/\n"
                                                        "body OFFER /dup/\n"
                                                        "body BAD /a(b/\n"
                                                        "#[lang section]\tALL\n"
                                                        "body OFFER /all/\n"
                                                        "meta M (A &&\n"
                                                        "meta N A & B\n"
                                                        "body E eval:foo()\n"
                                                        "score OFFER abc\n"
                                                        "full F\n"
                                                        "body \x02 x(\n"}});
    // NOLINTBEGIN(bugprone-suspicious-missing-comma): long lines go on in the next.
    EXPECT_EQ(
        problemsOf(rules),
        (std::vector<std::string>{
            "a.cf:2:6: OFFER: defined already at a.cf:1; this one is left out [rule-duplicate]",
            "a.cf:3:14: BAD: missing closing parenthesis [rule-refused]",
            "a.cf:5:6: OFFER: defined already in DEFAULT at a.cf:1; this one is left out there "
            "[rule-duplicate]",
            "a.cf:6:8: M: the expression lacks an operand or a parenthesis, or is nested too "
            "deeply; the rule never trips [meta-fault]",
            "a.cf:7:8: N: the expression holds a single & or |, or a byte 7 [rule-refused]",
            "a.cf:8:8: E: there are no built-in tests for eval: to name; the rule never trips "
            "[rule-eval]",
            "a.cf:9:13: OFFER: no number where the score should be; it counts as 0 "
            "[score-unreadable]",
            "a.cf:11:10: \\x02: missing closing parenthesis [rule-refused]"}));
    // NOLINTEND(bugprone-suspicious-missing-comma)
    EXPECT_EQ(rules.counts().refused, 3U);
    EXPECT_EQ(rules.counts().duplicates, 1U);
    EXPECT_EQ(rules.problems()[0].firstFile, "a.cf");
    EXPECT_EQ(rules.problems()[0].firstLine, 1U);
    // The log has its records as ever.
    EXPECT_EQ(std::count_if(log.records.begin(), log.records.end(),
                            [](const auto &record) { return record.id == 0x3000034; }),
              3);
}

// A bare pattern compiles without its end; one in slashes does not, and looks as if it had none.
TEST(RuleSet, TellsOfLinesThatAreCut) {
    const std::string end(16383 - std::string("body A ").size(), 'a');
    const std::string slash(16383 - std::string("body C /").size(), 'c');
    const LogCapture log;
    const std::string cut = "the line is longer than 16383 bytes; what is behind them is not read";
    EXPECT_EQ(problemsOf(RuleSet::fromMemory(
                  {{"a.cf", "body A " + end + "\r\nbody B " + end + "b\nbody C /" + slash +
                                "/\nscore A 1 " + end}})),
              (std::vector<std::string>{
                  "a.cf:2:8: B: " + cut + " [line-cut]", "a.cf:3:8: C: " + cut + " [line-cut]",
                  "a.cf:3:8: C: the closing slash is missing [rule-refused]"}));
}

TEST(RuleSet, LocalDirectoryOverridesTheShippedOne) {
    const RuleFiles shipped{{{"a.cf", "body A /a/\nscore A 1\nbody B /b/\ndescribe A of the set\n"},
                             {"a.score", "score B 4\n"},
                             {"README", "CF_MAJOR_VERSION=5\nCF_HR_VERSION=7\n"}},
                            "shipped"};
    const RuleFiles local{{{"heuristic.cf2", "score A 3\nscore B 0\nbody A /other/\nbody C /c/\n"
                                             "describe A of ours\n"},
                           {"a.cf", "body D /d/\n"},
                           {"README", "CF_MAJOR_VERSION=6\n"}},
                          "local"};
    const LogCapture log;
    const RuleSet rules = RuleSet::fromFiles({shipped, local});
    EXPECT_EQ(namesOf(rules), (std::vector<std::string>{"A", "B", "C"}));
    EXPECT_EQ(rules.rules()[0].score, 3.0F);
    EXPECT_EQ(rules.rules()[0].description, "of ours");
    EXPECT_EQ(rules.rules()[0].file, "shipped/a.cf");
    EXPECT_FALSE(rules.rules()[1].active);
    EXPECT_EQ(rules.version(), " (v5.7)");
    EXPECT_EQ(problemsOf(rules),
              (std::vector<std::string>{"local/heuristic.cf2:3:6: A: defined already at "
                                        "shipped/a.cf:1; this one is left out [rule-duplicate]"}));
    EXPECT_EQ(rules.scan("Subject: x\n\na\nc\n").score(), 4.0F);
    EXPECT_EQ(RuleSet::fromFiles({local, shipped}).version(), " (v6.");
}

TEST(RuleSet, MemoryAndDiskGiveTheSame) {
    const Files files = {
        {"b.cf", "body B /b/\n"},    {"a.cf", "body A /a/\nbody B /c/\n"},
        {".c.cf", "body C /c/\n"},   {"d.cf3", "body D /d/\n"},
        {"e.score", "score A 7\n"},  {"README", "CF_MAJOR_VERSION=1\nCF_HR_VERSION=2\n"},
        {"note.txt", "body N /n/\n"}};
    const TempDir directory;
    for (const auto &[name, bytes] : files) {
        directory.write(name, bytes);
    }
    const RuleSet onDisk = RuleSet::load(directory.path());
    const RuleSet inMemory = RuleSet::fromMemory(files);
    EXPECT_EQ(namesOf(onDisk), (std::vector<std::string>{"A", "B"}));
    EXPECT_EQ(namesOf(inMemory), namesOf(onDisk));
    EXPECT_EQ(inMemory.generation(), onDisk.generation());
    EXPECT_EQ(inMemory.version(), " (v1.2)");
    EXPECT_EQ(onDisk.version(), " (v1.2)");
    EXPECT_EQ(inMemory.rules()[0].score, 7.0F);

    const RuleFiles read = RuleFiles::read(directory.path());
    EXPECT_EQ(read.files.size(), 5U);
    EXPECT_EQ(RuleSet::fromFiles({read}).generation(), onDisk.generation());
    EXPECT_EQ(RuleSet::fromFiles({read}).rules()[0].file, directory.path("a.cf"));
}

TEST(RuleSet, GenerationIsOfNamesAndPlainBytesInTheOrderOfReading) {
    const std::string rules = "body A /a/\n" + std::string(300, '#') + "\n";
    const RuleSet plain =
        RuleSet::fromMemory({{"b.cf", rules}, {"a.cf", ""}, {"a.score", "score A 2"}});
    EXPECT_EQ(plain.generation(),
              generationOf({{"a.cf", ""}, {"b.cf", rules}, {"a.score", "score A 2"}}));
    EXPECT_EQ(RuleSet().generation(), generationOf({}));
    EXPECT_EQ(RuleSet::fromMemory(
                  {{"README", "x"}, {"b.cf", rules}, {"a.cf", ""}, {"a.score", "score A 2"}})
                  .generation(),
              plain.generation());
    EXPECT_EQ(RuleSet::fromMemory({{"heuristic.cf2", ""}, {"a.cf2", rules}}).generation(),
              generationOf({{"a.cf2", rules}, {"heuristic.cf2", ""}}));

    Directory encrypted("generation");
    encrypted.add("version", "").addEncrypted("b.cf", rules).addEncrypted("a.cf", "");
    encrypted.add("a.score", "score A 2");
    const std::string path = encrypted.path().asString();
    EXPECT_EQ(RuleSet::load(path).generation(), plain.generation());
    const RuleSet inMemory = RuleSet::fromFiles({RuleFiles::read(path)});
    EXPECT_EQ(inMemory.generation(), plain.generation());
    EXPECT_EQ(namesOf(inMemory), (std::vector<std::string>{"A"}));
}

TEST(RuleSet, DirectoryWithoutRulesIsEmpty) {
    const TempDir empty;
    const RuleSet rules = RuleSet::load(empty.path());
    EXPECT_TRUE(rules.empty());
    EXPECT_TRUE(rules.scan("Subject: x\n\ny\n").hits().empty());
    EXPECT_TRUE(RuleSet().empty());
    EXPECT_TRUE(RuleSet::load(std::vector<std::string>{}).empty());
}

TEST(RuleSet, SetThatWasMovedFromIsStillOne) {
    RuleSet rules = RuleSet::fromMemory({{"a.cf", "body A /a/\n"}});
    // NOLINTNEXTLINE(performance-move-const-arg): that it does not move is what is asked here.
    const RuleSet other = std::move(rules);
    // NOLINTNEXTLINE(bugprone-use-after-move)
    EXPECT_EQ(rules.generation(), other.generation());
}

TEST(RuleSet, LoadErrorsNameFileReasonAndRemedy) {
    const TempDir scratch;
    const LoadError missing = failureOf([&] {
        return RuleSet::load({scratch.path(), "/nonexistent/x"});
    });
    EXPECT_EQ(missing.file(), "/nonexistent/x");
    EXPECT_STREQ(missing.what(), "rule directory '/nonexistent/x' does not exist; name the "
                                 "directory that holds the rule files");
    const std::string file = scratch.write("file", "");
    EXPECT_THAT(failureOf([&] { return RuleSet::load(file); }).what(),
                HasSubstr("is no directory"));

    Directory broken("broken");
    broken.add("version", "")
        .addEncrypted("a.cf", "body A /a/\n")
        .add("b.cf", std::string(40, 'x'));
    const LoadError cipher = failureOf([&] { return RuleSet::load(broken.path().asString()); });
    EXPECT_EQ(cipher.file(), broken.path().asString() + "/b.cf");
    EXPECT_THAT(cipher.reason(), HasSubstr("the cipher text is cut off"));
    EXPECT_EQ(cipher.remedy(), "mend it or take it out of the directory");

    const LoadError byPath = failureOf([] {
        return RuleSet::fromFiles({RuleFiles{{{"version", ""}, {"a.score", "score A 1\n"}}, "cf"}});
    });
    EXPECT_STREQ(byPath.what(),
                 "cannot read score file 'cf/a.score': its path holds \"cf\", so that it is read "
                 "as encrypted; load the directory by another path");
    for (const std::string &name :
         {std::string(), std::string("a/b.cf"), std::string(".."), std::string("a\0.cf", 5)}) {
        EXPECT_THAT(failureOf([&] {
                        return RuleSet::fromMemory({{name, ""}});
                    }).what(),
                    HasSubstr("is no name of a file"));
    }
}

// Links to what the system takes for a regular file and refuses to read, to nothing, and in a circle.
TEST(RuleSet, FileThatCannotBeReadEndsTheLoad) {
    for (const auto &[target, reason] : {std::pair("/proc/self/mem", "Input/output error"),
                                         std::pair("nothing", "No such file or directory"),
                                         std::pair("b.cf", "Too many levels of symbolic links")}) {
        const TempDir scratch;
        scratch.write("a.cf", "body A /a/\n");
        std::filesystem::create_symlink(target, scratch.path("b.cf"));
        const LoadError failure = failureOf([&] { return RuleSet::load(scratch.path()); });
        EXPECT_EQ(failure.file(), scratch.path("b.cf"));
        EXPECT_THAT(failure.reason(), HasSubstr(reason));
        EXPECT_EQ(failureOf([&]() -> RuleSet {
                      RuleFiles::read(scratch.path());
                      return RuleSet();
                  }).file(),
                  scratch.path("b.cf"));
    }
}

// What the directory holds cannot be told: no file that was read before is to blame.
TEST(RuleSet, EntryThatCannotBeLookedAtEndsTheLoad) {
    const TempDir scratch;
    scratch.write("a.cf", "body A /a/\n");
    std::filesystem::create_symlink(std::string(300, 'x'), scratch.path("b.cf"));
    EXPECT_EQ(std::string(failureOf([&] { return RuleSet::load(scratch.path()); }).what()),
              "cannot load the rules: cannot read " + scratch.path("b.cf") +
                  ": File name too long; mend it or take it out of the directory");
}

// Two loads at once hear of their own lines only.
TEST(RuleSet, LoadsSideBySide) {
    const LogCapture log;
    const auto load = [](const std::string &name) {
        std::string text;
        for (int i = 0; i < 200; ++i) {
            text += "body " + name + std::to_string(i) + " /(/\n";
        }
        return RuleSet::fromMemory({{name + ".cf", text}});
    };
    // One sink for both, on both threads.
    Corvane::Logger::instance(false).sink([](unsigned int, int, const std::string &) {});
    auto first = std::async(std::launch::async, load, "A");
    const RuleSet second = load("B");
    for (const RuleSet &rules : {first.get(), second}) {
        ASSERT_EQ(rules.problems().size(), 200U);
        for (const Problem &problem : rules.problems()) {
            EXPECT_EQ(problem.file, rules.problems()[0].file);
        }
    }
}

TEST(Engine, NamesVersionAndBuild) {
    EXPECT_THAT(std::string(engine()), testing::MatchesRegex("[0-9.]+\\+[0-9a-f]{16}"));
}

} // namespace
} // namespace corvane
