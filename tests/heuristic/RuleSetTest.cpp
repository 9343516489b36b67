// Rule-set directories: which files are read, in which order, and what becomes of their rules.

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "heuristic/RuleFactory.h"
#include "support/Expect.h"
#include "support/LogCapture.h"
#include "support/RuleSet.h"
#include "support/Rules.h"

namespace Corvane::Heuristic {
namespace {

class RuleSetTest : public testing::Test {
protected:
    void load() { ruleCount_ = RuleFileParser(set_.path(), rules_).ruleCount(); }
    Names body(langID language = DEFAULT) const { return namesOf(*rules_.bodyRules(language)); }
    RefRule rule(const std::string &name, langID language = DEFAULT) const {
        return rules_.find(name, language, false);
    }

    LogCapture log_;
    RuleSet set_;
    RuleContainer rules_;
    unsigned int ruleCount_ = 0;
};

// Whether a temporary file holds the text; other programs have such files too.
bool isLeftBehind(const std::string &text) {
    const std::filesystem::directory_iterator files("/var/spool/tmp");
    return std::any_of(begin(files), end(files), [&text](const auto &file) {
        return TempDir::read(file.path()).find(text) != std::string::npos;
    });
}

struct MarkerRow {
    const char *name;
    std::vector<const char *> markers;
    Names read;
};

void PrintTo(const MarkerRow &row, std::ostream *out) {
    *out << row.name;
}

class RuleSetMarkers : public RuleSetTest, public testing::WithParamInterface<MarkerRow> {};

TEST_P(RuleSetMarkers, ChooseTheFiles) {
    for (const char *marker : GetParam().markers) {
        set_.add(marker, "");
    }
    set_.add("b.cf2", "body TWO /x/\n")
        .add("c.cf", "body ONE /x/\n")
        .add("a.cf", "body FIRST /x/\n");
    set_.add("z.cf3", "body THREE /x/\n").add("d.score", "score TWO 7\nscore ONE 7\n");
    set_.add("e.txt", "body TEXT /x/\n").add(".cf", "body HIDDEN /x/\n");
    load();
    EXPECT_EQ(body(), GetParam().read);
    EXPECT_EQ(rule(GetParam().read.back())->score()->value(), 7.0F);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, RuleSetMarkers,
    testing::Values(MarkerRow{"none", {}, {"FIRST", "ONE"}},
                    MarkerRow{"second", {"heuristic.cf2"}, {"TWO"}},
                    MarkerRow{"third", {"heuristic.cf3"}, {"THREE", "TWO"}},
                    MarkerRow{"both", {"heuristic.cf3", "heuristic.cf2"}, {"THREE", "TWO"}}),
    [](const auto &row) { return std::string(row.param.name); });

TEST_F(RuleSetTest, MarkersAreReadAsRuleFiles) {
    set_.add("heuristic.cf2", "body MARKER /x/\n");
    load();
    EXPECT_EQ(body(), Names{"MARKER"});
}

TEST_F(RuleSetTest, ScoreFilesWinOverRuleFiles) {
    set_.add("a.score", "score A 3\n").add("z.cf", "body A /x/\nscore A 9\n");
    load();
    EXPECT_EQ(rule("A")->score()->value(), 3.0F);
}

TEST_F(RuleSetTest, EncryptedFilesAreDecrypted) {
    set_.add("version", "1")
        .addEncrypted("a.cf", "body A /x/\n")
        .addEncrypted("b.cf", std::string(2000, '#'));
    set_.add("c.score", "score A 4\n");
    load();
    EXPECT_EQ(rule("A")->score()->value(), 4.0F);
    EXPECT_TRUE(log_.records.empty());
}

TEST_F(RuleSetTest, BadRuleOfAnEncryptedFileIsLoggedWithItsOwnPlace) {
    set_.add("version", "").addEncrypted("a.cf", "\nbody A /(/\n");
    load();
    ASSERT_EQ(log_.records.size(), 1U);
    const std::string expected = "BodyRule::Value (A; " + set_.path().asString() + "/a.cf:2) [";
    EXPECT_EQ(log_.records[0].text.substr(0, expected.size()), expected);
}

TEST_F(RuleSetTest, DecryptedFilesAreRemoved) {
    const std::string own = "# of " + set_.path().asString();
    const std::string text = own + std::string(2000, '#') + "\n";
    set_.add("version", "").addEncrypted("a.cf", text);
    load();
    EXPECT_FALSE(isLeftBehind(own));
    const std::string whole = TempDir::read(set_.path().asString() + "/a.cf");
    set_.add("a.cf", whole.substr(0, whole.size() - 1));
    EXPECT_THROW(load(), Exception);
    EXPECT_FALSE(isLeftBehind(own));
}

TEST_F(RuleSetTest, WithoutVersionNothingIsDecrypted) {
    set_.addEncrypted("a.cf", "body A /x/\n");
    load();
    EXPECT_EQ(ruleCount_, 0U);
}

TEST_F(RuleSetTest, PlainFileInEncryptedSetFailsTheLoad) {
    for (const char *text :
         {"body A /x/\n", "", "0123456789abcdef", "0123456789abcdef0123456789abcdef"}) {
        set_.add("version", "").add("a.cf", text);
        EXPECT_THROW(load(), Exception) << text;
    }
}

TEST(RuleSetPath, HoldingTheLettersTakesScoreFilesAlong) {
    RuleSet set("cf");
    set.add("version", "")
        .addEncrypted("a.cf", "body A /x/\n")
        .addEncrypted("b.score", "score A 6\n");
    RuleContainer rules;
    const RuleFileParser parser(set.path(), rules);
    EXPECT_EQ(rules.find("A", DEFAULT, false)->score()->value(), 6.0F);
}

TEST_F(RuleSetTest, MissingDirectoryAndEmptyOneGiveNoRules) {
    load();
    EXPECT_EQ(ruleCount_, 0U);
    EXPECT_EQ(RuleFileParser(File::Path("no-such-directory"), rules_).ruleCount(), 0U);
    EXPECT_THROW(RuleFileParser(File::Path("/proc/self/cmdline"), rules_), Exception);
}

TEST_F(RuleSetTest, SubRulesAreMarkedByMetaRulesOfTheirLanguage) {
    set_.add("a.cf", "body __USED /x/\nbody __UNUSED /x/\nbody __ZERO /x/\nscore __ZERO 0\n"
                     "body __OTHER /x/\n"
                     "meta M __USED && __ZERO && __MISSING\nscore M 0\n"
                     "#[lang section]\tCN\nbody __CN /x/\n#[lang section]\tJP\nmeta N __CN && "
                     "__SHARED && __OTHER\n"
                     "#[lang section]\tALL\nbody __SHARED /x/\n");
    load();
    EXPECT_TRUE(rule("__USED")->active());
    EXPECT_TRUE(rule("__USED")->score().isNull());
    EXPECT_FALSE(rule("__UNUSED")->active());
    EXPECT_TRUE(rule("__ZERO")->active());
    EXPECT_FALSE(rule("__ZERO")->score().isNull());
    EXPECT_FALSE(rule("__OTHER")->active());
    EXPECT_FALSE(rule("__CN", CN)->active());
    EXPECT_TRUE(rule("__SHARED", KO)->active());
    EXPECT_FALSE(rule("M")->active());
}

TEST_F(RuleSetTest, OnlyTheFirstKindOfANameIsMarked) {
    set_.add("a.cf", "body __X /x/\nheader __X Subject =~ /x/\nmeta M __X\n");
    load();
    EXPECT_TRUE((*rules_.headerRules(DEFAULT)->begin())->active());
    EXPECT_FALSE((*rules_.bodyRules(DEFAULT)->begin())->active());
}

TEST_F(RuleSetTest, RulesWithoutScoreShareTheUsualOne) {
    set_.add("a.cf", "body A /x/\nuri B /x/\n");
    load();
    EXPECT_EQ(rule("A")->score()->value(), 1.0F);
    EXPECT_EQ(rule("A")->score().operator->(), rule("B")->score().operator->());
}

} // namespace
} // namespace Corvane::Heuristic
