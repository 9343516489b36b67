// corvane corpus report and diff, on a corpus whose numbers can be counted by hand.

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/Command.h"
#include "support/TempDir.h"

namespace Corvane {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::HasSubstr;

class CorpusReportTest : public testing::Test {
protected:
    CorpusReportTest() {
        for (const char *name :
             {"mail", "mail/ham", "mail/spam", "mail/spam-old", "rules", "new"}) {
            directory_.makeDirectory(name);
        }
        directory_.write("rules/a.cf", "body BUY /buy/\nscore BUY 3\nbody NOW /now/\nscore NOW 3\n"
                                       "body DEAR /dear/\nscore DEAR -2\nbody NEVER /never/\n"
                                       "body OFF /now/\nscore OFF 0\n");
        directory_.write("new/a.cf", "body BUY /buy/\nscore BUY 5.5\nbody DEAR /dear/\n"
                                     "score DEAR -2\nbody NEVER /never/\nbody OFF /now/\n"
                                     "score OFF 0\nbody \x1B[1mNEW /meal/\n");
        directory_.write("mail/ham/1", "\ndear all, a meal\n");         // -2
        directory_.write("mail/ham/2", "\nbuy now: a meal\n");          // 6
        directory_.write("mail/ham/3", "\nbuy bread\n");                // 3
        directory_.write("mail/spam/1", "\nbuy now\n");                 // 6
        directory_.write("mail/spam/2", "\ndear friend, buy now\n");    // 4
        directory_.write("mail/spam-old/1", "\nbuy it now or later\n"); // 6
        directory_.write("mail/spam-old/2", std::string(1, '\0'));
        run("rules", "before");
        run("new", "after");
    }

    void run(const std::string &rules, const std::string &result) const {
        EXPECT_EQ(
            corvane({"corpus", "run", "--rules", path(rules), path("mail"), "-o", path(result)})
                .status,
            0);
    }

    std::string path(const std::string &name) const { return directory_.path(name); }

    json jsonOf(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), "corpus");
        arguments.push_back("--json");
        return json::parse(corvane(arguments).out);
    }

    const TempDir directory_;
};

TEST_F(CorpusReportTest, CountsWhatRulesDo) {
    const json report = jsonOf({"report", path("before")});
    EXPECT_EQ(report["toBeOver"], 3);
    EXPECT_EQ(report["toBeUnder"], 3);
    EXPECT_EQ(report["falsePositives"], 1);
    EXPECT_EQ(report["misses"], 1);
    EXPECT_EQ(report["classes"][2]["failed"], 1);
    // Hits by class, those of messages that are to be over and under, and verdicts decided: BUY and
    // NOW each decide the three messages with 6, DEAR the one with 4.
    const std::vector<std::string> expected = {"BUY [2,2,1] 3 2 3", "NOW [1,2,1] 3 1 3",
                                               "DEAR [1,1,0] 1 1 1", "NEVER [0,0,0] 0 0 0",
                                               "OFF [0,0,0] 0 0 0"};
    for (std::size_t each = 0; each < expected.size(); ++each) {
        const json &rule = report["rules"][each];
        EXPECT_EQ(rule["name"].get<std::string>() + ' ' + rule["hits"].dump() + ' ' +
                      rule["toBeOver"].dump() + ' ' + rule["toBeUnder"].dump() + ' ' +
                      rule["decided"].dump(),
                  expected[each]);
    }
    EXPECT_EQ(report["rules"][0]["precision"], 0.6);
    EXPECT_EQ(report["overlaps"][0]["both"], 4);
    EXPECT_EQ(report["overlaps"][0]["jaccard"], 0.8);
    EXPECT_EQ(report["nearest"].size(), 6U);
    std::vector<std::string> curve;
    for (const json &point : report["curve"]) {
        curve.push_back(point["threshold"].dump() + ' ' + point["falsePositives"].dump() + ' ' +
                        point["misses"].dump());
    }
    EXPECT_THAT(curve,
                testing::ElementsAre("-2.0 2 0", "3.0 1 0", "4.0 1 1", "5.0 1 1", "6.0 0 3"));
    std::size_t counted = 0;
    for (const json &each : report["classes"]) {
        for (const json &step : each["histogram"]) {
            counted += step.get<std::size_t>();
        }
    }
    EXPECT_EQ(counted, 6U);
}

TEST_F(CorpusReportTest, IsReadByPeople) {
    const Outcome outcome = corvane({"corpus", "report", "--top", "1", path("before")});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.out,
                AllOf(HasSubstr("at the threshold of 5: 1 of 3 false positives (33.33 %), 1 of 3 "
                                "missed (33.33 %)\n"),
                      HasSubstr("     3      2    60.00 %        3      3  BUY\n"),
                      HasSubstr("Rules that never hit: 1 of 4\n  NEVER\n")));
    const Outcome other = corvane({"corpus", "report", "--over", "ham", path("before")});
    EXPECT_THAT(other.out, HasSubstr("ham, to be over\n"));
    EXPECT_THAT(other.out, HasSubstr("2 of 3 missed"));
    EXPECT_THAT(corvane({"corpus", "report", "--over", "bad", path("before")}).err,
                HasSubstr("--over: 'bad' is no class of"));
    EXPECT_THAT(corvane({"corpus", "report", path("mail/ham/1")}).err,
                HasSubstr("is no result of 'corvane corpus run'"));
    EXPECT_EQ(corvane({"corpus", "report", path("none")}).status, 2);
}

TEST_F(CorpusReportTest, TellsWhatAChangeDoes) {
    const json diff = jsonOf({"diff", path("before"), path("after")});
    EXPECT_EQ(diff["differing"], json({"generation"}));
    EXPECT_EQ(diff["newFalsePositives"], 1); // ham 3: 5.5
    EXPECT_EQ(diff["newMisses"], 0);
    EXPECT_EQ(diff["mendedMisses"], 0);
    ASSERT_EQ(diff["verdicts"].size(), 1U);
    EXPECT_EQ(diff["verdicts"][0]["path"], "3");
    EXPECT_EQ(diff["verdicts"][0]["rules"],
              json::parse(R"([{"name": "BUY", "before": 3.0, "after": 5.5}])"));
    std::vector<std::string> rules;
    for (const json &rule : diff["rules"]) {
        rules.push_back(rule["name"].get<std::string>() + ' ' + rule["scoreBefore"].dump() + ' ' +
                        rule["scoreAfter"].dump() + ' ' + rule["toBeOver"].dump() +
                        rule["toBeUnder"].dump());
    }
    EXPECT_THAT(rules, testing::ElementsAre("\x1B[1mNEW null 1.0 [0,0][0,2]",
                                            "BUY 3.0 5.5 [3,3][2,2]", "NOW 3.0 null [3,0][1,0]"));
    const Outcome shown = corvane({"corpus", "diff", path("before"), path("after")});
    EXPECT_EQ(shown.status, 0);
    EXPECT_THAT(shown.out, AllOf(HasSubstr("another rule set: "), HasSubstr("\\x1b[1mNEW, new\n"),
                                 HasSubstr("  3 > 5.5, over, wrong: ham 3\n      3 > 5.5  BUY\n"),
                                 testing::Not(HasSubstr("\x1B"))));
    const std::vector<std::string> command = {"corpus", "diff", path("before"), path("after")};
    const auto status = [&command](const std::string &option, const std::string &value) {
        std::vector<std::string> arguments = command;
        arguments.insert(arguments.end(), {option, value});
        return corvane(arguments).status;
    };
    EXPECT_EQ(status("--max-new-fp", "0"), 1);
    EXPECT_EQ(status("--max-new-fp", "1"), 0);
    EXPECT_EQ(status("--max-missed", "0"), 0);
    EXPECT_EQ(status("--max-missed", "x"), 2);
    directory_.write("mail/ham/4", "\nmore\n");
    run("rules", "grown");
    EXPECT_THAT(corvane({"corpus", "diff", path("before"), path("grown")}).err,
                HasSubstr("are of different corpora"));
}

} // namespace
} // namespace Corvane
