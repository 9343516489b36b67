#include "heuristic/RuleFactory.h"

#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/Expect.h"
#include "support/LogCapture.h"
#include "support/Rules.h"
#include "support/TempDir.h"

namespace Corvane::Heuristic {
namespace {

class RuleFileTest : public testing::Test {
protected:
    void parse(const std::string &text) { parser_.parse(directory_.write("rules.cf", text)); }

    RefRule parseRule(const std::string &line) {
        return parser_.parseRule(line.data(), static_cast<int>(line.size()));
    }

    Names body(langID language = DEFAULT) const { return namesOf(*rules_.bodyRules(language)); }

    float scoreOf(const std::string &name) const {
        return rules_.find(name, DEFAULT, false)->score()->value();
    }

    TempDir directory_;
    LogCapture log_;
    RuleContainer rules_;
    RuleFileParser parser_{rules_};
};

TEST_F(RuleFileTest, FieldsAreSplitByRunsOfWhiteSpace) {
    const RefRule rule = parseRule("\t BODY  MyRule \t  /x y/i  ");
    ASSERT_FALSE(rule.isNull());
    EXPECT_EQ(rule->type(), Rule::Body);
    EXPECT_EQ(rule->name(), "MyRule");
    EXPECT_EQ(rule->value(), "/x y/i  ");
    EXPECT_EQ(rule->ordinal(), 1U);
}

TEST_F(RuleFileTest, EachKeywordFilesItsKind) {
    const char *keywords[] = {"header", "URI", "body", "rawbody", "Full", "meta"};
    for (unsigned int kind = Rule::Header; kind <= Rule::Meta; ++kind) {
        parse(std::string(keywords[kind - 1]) + " A X-Y /x/\n");
        EXPECT_EQ(namesOf(*rules_.rules(DEFAULT, static_cast<Rule::Type>(kind))), Names{"A"});
        EXPECT_EQ(parser_.ruleCount(), kind);
    }
    EXPECT_TRUE(log_.records.empty());
}

TEST_F(RuleFileTest, LinesThatAreNoRulesAreIgnoredSilently) {
    for (const char *line : {"", " ", "body", "body ", "body A", "body A \t", "bodyx A /x/", "A",
                             " # body A /x/", " score A 3", " describe A text"}) {
        EXPECT_TRUE(parseRule(line).isNull()) << line;
    }
    EXPECT_TRUE(parser_.parseRule("body A /x/", -1).isNull());
    EXPECT_EQ(parser_.ruleCount(), 0U);
    EXPECT_TRUE(log_.records.empty());
}

TEST_F(RuleFileTest, BadRuleIsLoggedWithItsPlaceAndCountsNothing) {
    parse("body A /x/\n\nbody BAD /(/\nbody B /y/\n");
    EXPECT_EQ(body(), (Names{"A", "B"}));
    EXPECT_EQ(parser_.ruleCount(), 2U);
    ASSERT_EQ(log_.records.size(), 1U);
    EXPECT_EQ(log_.records[0].id, 0x3000034U);
    EXPECT_EQ(log_.records[0].text.rfind("BodyRule::Value (BAD; " + directory_.path() +
                                             "/rules.cf:3) "
                                             "[4 BodyRule:42] <- Regex::Expression (",
                                         0),
              0U)
        << log_.records[0].text;

    parse("body BAD /(/\n");
    EXPECT_NE(log_.records.back().text.find("/rules.cf:1) ["), std::string::npos);
    parseRule("body BAD /(/");
    EXPECT_EQ(log_.records.back().text.rfind("BodyRule::Value (BAD) [", 0), 0U);
}

TEST_F(RuleFileTest, DuplicateIsDroppedButUsesItsOrdinal) {
    parse("body A /first/\nbody A /second/\nrawbody A /third/\nbody B /x/\n");
    EXPECT_EQ(body(), (Names{"A", "B"}));
    EXPECT_EQ(rules_.bodyRules(DEFAULT).find("A")->value(), "/first/");
    EXPECT_EQ(rules_.rawBodyRules(DEFAULT).find("A")->ordinal(), 3U);
    EXPECT_EQ(rules_.bodyRules(DEFAULT).find("B")->ordinal(), 4U);
    EXPECT_EQ(log_.records, (std::vector<LogRecord>{{0x3000035, "A"}}));
}

TEST_F(RuleFileTest, OrdinalsAndDuplicatesRunAcrossFiles) {
    parse("body A /x/\n");
    parse("body A /y/\nbody B /x/");
    EXPECT_EQ(body(), (Names{"A", "B"}));
    EXPECT_EQ(rules_.bodyRules(DEFAULT).find("B")->ordinal(), 3U);
}

TEST_F(RuleFileTest, SectionsLastToTheNextOne) {
    parse("body D1 /x/\n"
          "#[LANG Section]\tCN \t\n"
          "body C1 /x/\n\n# comment\n#[lang section] JP\n"
          "body C2 /x/\n"
          "#[lang section]\tcn\n"
          "body D2 /x/\n"
          "#[lang section]\t RU\n"
          "body D3 /x/\n"
          "#[lang section]\tTH\n");
    EXPECT_EQ(body(), (Names{"D1", "D2", "D3"}));
    EXPECT_EQ(body(CN), (Names{"C1", "C2"}));
    parse("body D4 /x/\n");
    EXPECT_EQ(body().back(), "D4");
    EXPECT_TRUE(body(TH).empty());
}

TEST_F(RuleFileTest, RuleForAllLanguagesIsOneObject) {
    parse("#[lang section]\tJP\nbody A /jp/\n#[lang section]\tALL\nbody A /all/\n");
    const RefRule shared = rules_.bodyRules(DEFAULT).find("A");
    for (const langID language : {CN, KO, RU, TH}) {
        EXPECT_EQ(rules_.bodyRules(language).find("A").operator->(), shared.operator->());
    }
    EXPECT_EQ(rules_.bodyRules(JP).find("A")->value(), "/jp/");
    EXPECT_EQ(log_.records, (std::vector<LogRecord>{{0x3000035, "A"}}));
}

TEST_F(RuleFileTest, DescriptionsReachNoRule) {
    parse("body A /x/\ndescribe A Some text\nDESCRIBE A /x/\ndescribed B /x/\n");
    EXPECT_EQ(body(), Names{"A"});
    EXPECT_EQ(rules_.bodyRules(DEFAULT).find("A")->description(), "");
}

TEST_F(RuleFileTest, WindowsLineEndsLoadAlike) {
    parse("#[lang section]\tCN\r\nbody A /x$/\r\n\r\nscore A 2\r\n");
    EXPECT_EQ(body(CN), Names{"A"});
    EXPECT_EQ(rules_.bodyRules(CN).find("A")->value(), "/x$/");
}

TEST_F(RuleFileTest, OverlongLineIsCutAndRefused) {
    const std::string pattern(RuleFileParser::kMaxLineBytes, 'x');
    parse("body LONG /" + pattern + "/\nbody FITS /" +
          pattern.substr(0, pattern.size() - 1 - std::string("body FITS //").size()) + "/\n");
    EXPECT_EQ(body(), Names{"FITS"});
    EXPECT_EQ(log_.records.size(), 1U);
}

TEST_F(RuleFileTest, ScoresApplyByNameOnceAllIsRead) {
    parse(
        "score A 2\nscoreLATE 1 4\nSCORE ZERO 0\nscore\nscore A\nscore   \nscore UNKNOWN 9\n"
        "body A /x/\nbody LATE /x/\nbody ZERO /x/\nbody NONE /x/\nbody __SUB /x/\nrawbody A /x/\n");
    parse("score A x 3\nscore A 3 abc\n");
    parser_.assignScores();
    EXPECT_EQ(scoreOf("A"), 3.0F);
    EXPECT_EQ(rules_.rawBodyRules(DEFAULT).find("A")->score().operator->(),
              rules_.bodyRules(DEFAULT).find("A")->score().operator->());
    EXPECT_EQ(scoreOf("LATE"), 4.0F);
    EXPECT_FALSE(rules_.find("ZERO", DEFAULT, false)->active());
    EXPECT_EQ(scoreOf("NONE"), 1.0F);
    EXPECT_TRUE(rules_.find("__SUB", DEFAULT, false)->score().isNull());
    EXPECT_TRUE(log_.records.empty());
}

TEST_F(RuleFileTest, FileThatCannotBeOpenedIsPassedOver) {
    parser_.parse(directory_.path() + "/missing.cf");
    EXPECT_EQ(parser_.ruleCount(), 0U);
}

TEST_F(RuleFileTest, ReadErrorIsWrapped) {
    // Opens, but every read of it fails.
    const std::string unreadable = "/proc/self/mem";
    ASSERT_TRUE(std::filesystem::exists(unreadable));
    expectFailure([&] { parser_.parse(unreadable); },
                  {"RuleFileParser::process", 4, "RuleFactory", 328, {}, true});
}

} // namespace
} // namespace Corvane::Heuristic
