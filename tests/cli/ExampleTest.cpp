// The example messages, scanned with the example rules as a user does it, trip what the files
// beside them say.

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "corvane/RuleSet.h"
#include "support/Command.h"

namespace Corvane::Cli {
namespace {

using Names = std::set<std::string>;

const std::filesystem::path kRules = CORVANE_EXAMPLE_RULES_DIR;

std::vector<std::filesystem::path> s_messages() {
    std::vector<std::filesystem::path> messages;
    for (const auto &entry : std::filesystem::directory_iterator(kRules / "messages")) {
        if (entry.path().extension() == ".eml") {
            messages.push_back(entry.path());
        }
    }
    std::sort(messages.begin(), messages.end());
    return messages;
}

nlohmann::json s_expected(std::filesystem::path message) {
    return nlohmann::json::parse(std::ifstream(message.replace_extension(".expect.json")));
}

// What the command prints of a message, as an object.
nlohmann::json s_scan(const std::string &message) {
    const Outcome outcome = corvane({"scan", "--json", "--rules", kRules.string(), message});
    EXPECT_EQ(outcome.err, "");
    nlohmann::json result = nlohmann::json::parse(outcome.out);
    EXPECT_EQ(outcome.status, result.at("over").get<bool>() ? 1 : 0);
    return result;
}

class ExampleMessageTest : public testing::TestWithParam<std::filesystem::path> {};

TEST_P(ExampleMessageTest, TripsWhatItsExpectationSays) {
    const nlohmann::json expected = s_expected(GetParam());
    const nlohmann::json result = s_scan(GetParam().string());
    Names tripped;
    for (const nlohmann::json &rule : result.at("rules")) {
        tripped.insert(rule.at("name").get<std::string>());
        EXPECT_EQ(rule.at("language"), result.at("language"));
    }
    EXPECT_EQ(tripped, expected.at("trips").get<Names>());
    for (const std::string name : expected.at("mustNotTrip")) {
        EXPECT_EQ(tripped.count(name), 0U) << name;
    }
    EXPECT_EQ(result.at("over"), expected.at("over"));
}

INSTANTIATE_TEST_SUITE_P(Messages, ExampleMessageTest, testing::ValuesIn(s_messages()),
                         [](const auto &row) {
                             std::string name = row.param.stem().string();
                             std::replace(name.begin(), name.end(), '-', '_');
                             return name;
                         });

TEST(ExampleRules, LoadWithoutAProblemAndEachIsShownByAMessage) {
    const corvane::RuleSet rules = corvane::RuleSet::load(kRules.string());
    EXPECT_TRUE(rules.problems().empty());
    Names shown;
    Names missed;
    for (const std::filesystem::path &message : s_messages()) {
        const nlohmann::json expected = s_expected(message);
        shown.merge(expected.at("trips").get<Names>());
        missed.merge(expected.at("mustNotTrip").get<Names>());
    }
    Names known;
    for (const corvane::Rule &rule : rules.rules()) {
        known.insert(rule.name);
        EXPECT_EQ(shown.count(rule.name) == 1, rule.active) << rule.name;
    }
    EXPECT_THAT(known, testing::IsSupersetOf(shown));
    EXPECT_THAT(known, testing::IsSupersetOf(missed));
}

std::string s_scanAll(const std::string &rules, const std::vector<std::string> &more) {
    std::vector<std::string> arguments = {"scan", "--rules", rules};
    arguments.insert(arguments.end(), more.begin(), more.end());
    for (const std::filesystem::path &message : s_messages()) {
        arguments.push_back(message.string());
    }
    const Outcome outcome = corvane(arguments);
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.status, 1);
    return outcome.out;
}

TEST(ExampleRules, GiveTheSameOutputWithAnyNumberOfThreads) {
    const std::string one = s_scanAll(kRules.string(), {});
    EXPECT_THAT(one, testing::EndsWith("24 of 24 messages scanned, 12 over 5, 0 not read\n"));
    EXPECT_EQ(s_scanAll(kRules.string(), {"-j", "4"}), one);
}

TEST(ExampleRules, GiveTheSameOutputEncryptedAndTheSameBytesDecrypted) {
    const TempDir directory;
    const std::string go = "cd '" + directory.path() + "' &&";
    ASSERT_EQ(corvane({"encrypt", kRules.string(), "sealed"}, {}, go).status, 0);
    ASSERT_EQ(corvane({"decrypt", "sealed", "open"}, {}, go).status, 0);
    EXPECT_EQ(s_scanAll(directory.path("sealed"), {}), s_scanAll(kRules.string(), {}));
    for (const auto &entry : std::filesystem::directory_iterator(kRules)) {
        if (entry.path().extension() == ".cf") {
            const std::string name = entry.path().filename().string();
            const std::string plain = TempDir::read(entry.path().string());
            EXPECT_EQ(TempDir::read(directory.path("open/" + name)), plain) << name;
            EXPECT_NE(TempDir::read(directory.path("sealed/" + name)), plain) << name;
        }
    }
}

// The README indents it by four blanks.
TEST(Readme, ShowsWhatTheCommandPrints) {
    const std::filesystem::path top = kRules.parent_path().parent_path();
    const Outcome outcome =
        corvane({"scan", "--rules", "rules/examples", "rules/examples/messages/en-prize-plain.eml"},
                {}, "cd '" + top.string() + "' &&");
    const std::string readme = TempDir::read((top / "README.md").string());
    std::istringstream lines(outcome.out);
    std::string shown;
    for (std::string line; std::getline(lines, line);) {
        shown += "    " + line + '\n';
    }
    EXPECT_THAT(readme, testing::HasSubstr(shown));
}

} // namespace
} // namespace Corvane::Cli
