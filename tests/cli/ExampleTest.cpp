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

#include "RuleDirectory.h"
#include "support/Command.h"
#include "support/LogCapture.h"

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

// The last word of each line below the message's own: the names of the rules that tripped.
Names s_tripped(const std::string &out) {
    std::istringstream lines(out);
    std::string line;
    std::getline(lines, line);
    Names names;
    while (std::getline(lines, line)) {
        names.insert(line.substr(line.find_last_of(' ') + 1));
    }
    return names;
}

class ExampleMessageTest : public testing::TestWithParam<std::filesystem::path> {};

TEST_P(ExampleMessageTest, TripsWhatItsExpectationSays) {
    const nlohmann::json expected = s_expected(GetParam());
    const Outcome outcome = corvane({"scan", "--rules", kRules.string(), GetParam().string()});
    const auto tripped = s_tripped(outcome.out);
    EXPECT_EQ(tripped, expected.at("trips").get<Names>());
    for (const std::string name : expected.at("mustNotTrip")) {
        EXPECT_EQ(tripped.count(name), 0U) << name;
    }
    EXPECT_EQ(outcome.status, expected.at("over").get<bool>() ? 1 : 0);
    EXPECT_EQ(outcome.err, "");
}

INSTANTIATE_TEST_SUITE_P(Messages, ExampleMessageTest, testing::ValuesIn(s_messages()),
                         [](const auto &row) {
                             std::string name = row.param.stem().string();
                             std::replace(name.begin(), name.end(), '-', '_');
                             return name;
                         });

TEST(ExampleRules, LoadWithoutALogRecordAndEachIsShownByAMessage) {
    const LogCapture records;
    Heuristic::RuleContainer rules;
    {
        LogSummary log;
        std::ostringstream shown;
        loadRuleDirectory(kRules.string(), rules, log);
        log.show(shown);
        EXPECT_EQ(shown.str(), "");
    }
    Names shown;
    Names missed;
    for (const std::filesystem::path &message : s_messages()) {
        const nlohmann::json expected = s_expected(message);
        shown.merge(expected.at("trips").get<Names>());
        missed.merge(expected.at("mustNotTrip").get<Names>());
    }
    Names known;
    for (const auto *list :
         {&rules.bodyRules(Heuristic::DEFAULT), &rules.rawBodyRules(Heuristic::DEFAULT)}) {
        for (const Heuristic::RefRule &rule : **list) {
            known.insert(rule->name());
            EXPECT_EQ(shown.count(rule->name()) == 1, rule->active()) << rule->name();
        }
    }
    EXPECT_THAT(known, testing::IsSupersetOf(shown));
    EXPECT_THAT(known, testing::IsSupersetOf(missed));
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
