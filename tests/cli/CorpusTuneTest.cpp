// corvane corpus tune: proposed scores tell the classes apart, and say so of messages not seen.

#include <filesystem>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/Command.h"
#include "support/TempDir.h"

namespace Corvane {
namespace {

using testing::HasSubstr;

class CorpusTuneTest : public testing::Test {
protected:
    // A and B together are spam, each alone is not; C is of ham, and D says nothing.
    CorpusTuneTest() {
        for (const char *name : {"mail", "mail/ham", "mail/spam", "rules", "tuned"}) {
            directory_.makeDirectory(name);
        }
        directory_.write("rules/a.cf", "body A /alpha/\nbody B /beta/\nbody C /gamma/\nscore C -1\n"
                                       "body D /delta/\nbody __E /alpha/\nmeta F __E && NONE\n"
                                       "body NEVER /never/\nscore NEVER 2\n");
        constexpr int kEach = 40;
        for (int each = 0; each < kEach; ++each) {
            const std::string tail = (each % 2 == 0 ? " delta " : " ") + std::to_string(each);
            const std::string name = std::to_string(each) + ".eml";
            directory_.write("mail/spam/" + name, "\nalpha beta" + tail + "\n");
            directory_.write("mail/ham/" + name, (each % 3 == 0   ? "\nalpha gamma"
                                                  : each % 3 == 1 ? "\nbeta gamma"
                                                                  : "\nalpha") +
                                                     tail + "\n");
        }
        EXPECT_EQ(
            corvane({"corpus", "run", "--rules", path("rules"), path("mail"), "-o", path("result")})
                .status,
            0);
    }

    std::string path(const std::string &name) const { return directory_.path(name); }

    Outcome tune(const std::string &file, std::vector<std::string> more = {}) const {
        std::vector<std::string> arguments = {"corpus", "tune", path("result"), "-o", path(file)};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return corvane(arguments);
    }

    std::map<std::string, double> scores(const std::string &file) const {
        std::map<std::string, double> found;
        std::istringstream text(TempDir::read(path(file)));
        std::string word;
        std::string name;
        for (std::string line; std::getline(text, line);) {
            double score = 0.0;
            if (std::istringstream(line) >> word >> name >> score && word == "score") {
                found[name] = score;
            }
        }
        return found;
    }

    const TempDir directory_;
};

TEST_F(CorpusTuneTest, TellsClassesApart) {
    const Outcome outcome = tune("tuned/z.score", {"--restraint", "0.001"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.out, HasSubstr("with the scores as they are, at the threshold of 5: 0 of "
                                       "40 false positives (0.00 %), 40 of 40 missed"));
    EXPECT_THAT(outcome.out, HasSubstr("tried on, at the threshold of 5: 0 of 40 false positives "
                                       "(0.00 %), 0 of 40 missed (0.00 %)"));
    const auto found = scores("tuned/z.score");
    EXPECT_EQ(found.size(), 4U);
    EXPECT_GT(found.at("A") + found.at("B"), 5.0);
    EXPECT_LT(found.at("A"), 5.0);
    EXPECT_LT(found.at("C"), 0.0);
    // The file goes behind the rules, and does what was said of it.
    EXPECT_EQ(corvane({"corpus", "run", "--rules", path("rules"), "--rules", path("tuned"),
                       path("mail"), "-o", path("after")})
                  .status,
              0);
    const Outcome diff =
        corvane({"corpus", "diff", path("result"), path("after"), "--max-new-fp", "0", "--json"});
    EXPECT_EQ(diff.status, 0);
    EXPECT_EQ(nlohmann::json::parse(diff.out)["mendedMisses"], 40);
}

TEST_F(CorpusTuneTest, IsTheSameEachTimeAndKeepsToBounds) {
    tune("one.score", {"--json", "--bound", "A=1:1", "--bound", "D=-2:-1", "--most", "6"});
    const Outcome again =
        tune("two.score", {"--json", "--bound", "A=1:1", "--bound", "D=-2:-1", "--most", "6"});
    EXPECT_EQ(TempDir::read(path("one.score")), TempDir::read(path("two.score")));
    const auto found = scores("one.score");
    EXPECT_EQ(found.at("A"), 1.0);
    EXPECT_LE(found.at("D"), -1.0);
    EXPECT_GE(found.at("D"), -2.0);
    EXPECT_LE(found.at("B"), 6.0);
    const auto json = nlohmann::json::parse(again.out);
    EXPECT_EQ(json["toBeOver"], 40);
    EXPECT_EQ(json["scores"][0]["name"], "A");
    EXPECT_EQ(json["scores"][0]["before"], 1);
    EXPECT_EQ(json["expected"].back()["misses"], 40);
}

TEST_F(CorpusTuneTest, RefusesWhatItCannotDo) {
    directory_.write("there.score", "score A 1\n");
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"--over", "eggs"}, "--over: 'eggs' is no class of"},
        {{"--over", "ham", "--over", "spam"}, "has no messages that are to be under"},
        {{"--bound", "A=2"}, "'A=2' bounds no score"},
        {{"--bound", "A=2:1"}, "'A=2:1' bounds no score"},
        {{"--bound", "NEVER=1:2"}, "--bound: no rule 'NEVER' hits anything"},
        {{"--fp-weight", "0"}, "'0' is no number above 0"}};
    for (const auto &[arguments, reason] : cases) {
        const Outcome outcome = tune("out.score", arguments);
        EXPECT_EQ(outcome.status, 2);
        EXPECT_THAT(outcome.err, HasSubstr(reason));
        EXPECT_FALSE(std::filesystem::exists(path("out.score")));
    }
    EXPECT_THAT(tune("there.score").err, HasSubstr("is there already"));
    EXPECT_EQ(TempDir::read(path("there.score")), "score A 1\n");
}

} // namespace
} // namespace Corvane
