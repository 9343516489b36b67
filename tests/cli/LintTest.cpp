// corvane lint: each fault of a rule file is found at its place, under its code.

#include <ostream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "support/Command.h"

namespace Corvane {
namespace {

using testing::HasSubstr;

struct Fault {
    const char *name;
    std::string file;
    // LINE:COLUMN: LEVEL CODE of everything that is found; empty where nothing is.
    std::string found;
};

void PrintTo(const Fault &fault, std::ostream *out) {
    *out << fault.name;
}

// What lint finds, without names, texts and remedies.
std::string s_found(const std::string &file) {
    const Outcome outcome = corvane({"lint", "--json", "--stdin", "a.cf"}, file);
    std::string found;
    const auto report = nlohmann::json::parse(outcome.out);
    for (const auto &each : report["findings"]) {
        found += (found.empty() ? "" : " | ") + std::to_string(each["line"].get<int>()) + ':' +
                 std::to_string(each["column"].get<int>()) + ' ' +
                 each["level"].get<std::string>() + ' ' + each["code"].get<std::string>();
    }
    return found;
}

class LintFault : public testing::TestWithParam<Fault> {};

TEST_P(LintFault, IsFoundAtItsPlace) {
    EXPECT_EQ(s_found(GetParam().file), GetParam().found);
}

INSTANTIATE_TEST_SUITE_P(
    Files, LintFault,
    testing::Values(
        Fault{"sound", "# x\n\nBODY  A  /a/\r\n header H Subject =~ /x/\nscore A -1.5\n", ""},
        Fault{"misspelt", "body A /a/\nboddy B /b/\n", "2:1 error unknown-keyword"},
        Fault{"indentedTypo", "  bodyx B /b/\n", "1:3 error unknown-keyword"},
        Fault{"keywordAlone", "body\n", "1:1 error missing-name"},
        Fault{"noDefinition", "body A\n", "1:6 error missing-definition"},
        Fault{"byteOrderMark",
              "\xEF\xBB\xBF"
              "body A /a/\n",
              "1:1 error byte-order-mark"},
        Fault{"byteOrderMarkLater",
              "# x\n\xEF\xBB\xBF"
              "body A /a/\n",
              "2:1 error unknown-keyword"},
        Fault{"indentedScore", "body A /a/\n score A 2\n", "2:2 error indented-line"},
        Fault{"indentedDescription", "body A /a/\n\tdescribe A x\n", "2:2 error indented-line"},
        Fault{"nul", std::string("body A /a\0b/\n", 13), "1:10 error nul-byte"},
        Fault{"longest", "body A /" + std::string(16374, 'a') + "/\n", ""},
        Fault{"unclosed", "body A /(a/\n", "1:11 error rule-refused"},
        Fault{"duplicate", "body A /a/\nbody A /b/\n", "2:6 error rule-duplicate"},
        Fault{"sameNameOtherLanguage", "body A /a/\n#[lang section]\tCN\nbody A /b/\n", ""},
        Fault{"eval", "body A eval:x()\n", "1:8 error rule-eval"},
        Fault{"openParenthesis", "body A /a/\nmeta M (A\n", "2:8 error meta-fault"},
        Fault{"singleAnd", "body A /a/\nmeta M A & A\n", "2:8 error rule-refused"},
        Fault{"section", "#[lang section]\tcn\nbody A /a/\n", "1:17 error unknown-section"},
        Fault{"sectionBlank", "#[lang section] CN\nbody A /a/\n", "1:16 error section-without-tab"},
        Fault{"scoreAlone", "score\n", "1:1 error missing-score"},
        Fault{"scoreNoNumber", "body A /a/\nscore A x\n", "2:9 error score-unreadable"},
        Fault{"scoreComma", "body A /a/\nscore A 1,5\n", "2:9 error score-cut"},
        Fault{"scoreJoined", "body A /a/\nscoreA 2\n", "2:6 warning score-joined"},
        Fault{"scoreNoRule", "body A /a/\nscore B 2\n", "2:7 warning score-no-rule"}),
    [](const auto &fault) { return std::string(fault.param.name); });

TEST(Lint, NamesPlaceCodeAndRemedy) {
    const Outcome outcome = corvane({"lint", "--stdin", "rules/a.cf"}, "boddy B /b/\n");
    EXPECT_EQ(outcome.out, "rules/a.cf:1:1: error unknown-keyword: there is no keyword 'boddy'; "
                           "the line is ignored; did you mean 'body'?\n");
    EXPECT_EQ(outcome.status, 1);
}

TEST(Lint, EndsWithOneForErrorsAndForWarningsIfStrict) {
    const std::string warned = "body A /a/\nscore B 2\n";
    EXPECT_EQ(corvane({"lint", "--stdin", "a.cf"}, warned).status, 0);
    EXPECT_EQ(corvane({"lint", "--strict", "--stdin", "a.cf"}, warned).status, 1);
    EXPECT_EQ(corvane({"lint", "--strict", "--stdin", "a.cf"}, "body A /a/\n").status, 0);
}

TEST(Lint, ReadsDirectoriesAsOneRuleSet) {
    const TempDir directory;
    directory.makeDirectory("one");
    directory.makeDirectory("two");
    directory.write("one/a.cf", "body A /a/\n");
    directory.write("two/b.cf", "body A /b/\n");
    const Outcome outcome = corvane({"lint", directory.path("one"), directory.path("two")});
    EXPECT_THAT(outcome.out, HasSubstr("two/b.cf:1:6: error rule-duplicate"));
    EXPECT_THAT(outcome.out, HasSubstr("one/a.cf:1"));
}

TEST(Lint, EndsWithTwoWhereNothingCanBeRead) {
    const TempDir directory;
    directory.write("notes.txt", "x");
    EXPECT_EQ(corvane({"lint"}).status, 2);
    EXPECT_EQ(corvane({"lint", directory.path("missing")}).status, 2);
    EXPECT_THAT(corvane({"lint", directory.path()}).err, HasSubstr("no rule files"));
    EXPECT_EQ(corvane({"lint", "--stdin", "a.txt"}, "body A /a/\n").status, 2);
}

TEST(Lint, FindsNoFaultInTheExamples) {
    const Outcome outcome = corvane({"lint", "--strict", CORVANE_EXAMPLE_RULES_DIR});
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.status, 0);
}

} // namespace
} // namespace Corvane
