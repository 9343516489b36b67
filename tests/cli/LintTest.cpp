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
        Fault{"sound",
              "# x\n\nBODY  A  /aaaa/\n header H Subject =~ /xxxx/\nscore A -1.5\nscore H 1 2\n",
              ""},
        Fault{"misspelt", "body A /aaaa/\nboddy B /bbbb/\n", "2:1 error unknown-keyword"},
        Fault{"indentedTypo", "  bodyx B /bbbb/\n", "1:3 error unknown-keyword"},
        Fault{"keywordAlone", "body\n", "1:1 error missing-name"},
        Fault{"noDefinition", "body A\n", "1:6 error missing-definition"},
        Fault{"byteOrderMark",
              "\xEF\xBB\xBF"
              "body A /aaaa/\n",
              "1:1 error byte-order-mark"},
        Fault{"byteOrderMarkLater",
              "# x\n\xEF\xBB\xBF"
              "body A /aaaa/\n",
              "2:1 error unknown-keyword"},
        Fault{"indentedScore", "body A /aaaa/\n score A 2\n", "2:2 error indented-line"},
        Fault{"indentedDescription", "body A /aaaa/\n\tdescribe A x\n", "2:2 error indented-line"},
        Fault{"nul", std::string("body A /a\0b/\n", 13), "1:10 error nul-byte"},
        Fault{"longest", "body A /" + std::string(16374, 'a') + "/\n",
              "1:8 warning pattern-too-long"},
        Fault{"unclosed", "body A /(a/\n", "1:11 error rule-refused"},
        Fault{"duplicate", "body A /aaaa/\nbody A /bbbb/\n", "2:6 error rule-duplicate"},
        Fault{"sameNameOtherLanguage", "body A /aaaa/\n#[lang section]\tCN\nbody A /bbbb/\n",
              "1:6 warning default-only"},
        Fault{"eval", "body A eval:x()\n", "1:8 error rule-eval"},
        Fault{"section", "#[lang section]\tcn\nbody A /aaaa/\n", "1:17 error unknown-section"},
        Fault{"sectionBlank", "#[lang section] CN\nbody A /aaaa/\n",
              "1:16 error section-without-tab"},
        Fault{"scoreAlone", "score\n", "1:1 error missing-score"},
        Fault{"scoreNoNumber", "body A /aaaa/\nscore A x\n",
              "1:6 warning rule-off | 2:9 error score-unreadable"},
        Fault{"scoreComma", "body A /aaaa/\nscore A 1,5\n", "2:9 error score-cut"},
        Fault{"scoreJoined", "body A /aaaa/\nscoreA 2\n", "2:6 warning score-joined"},
        Fault{"scoreNoRule", "body A /aaaa/\nscore A 1\nscore B 2\n", "3:7 warning score-no-rule"}),
    [](const auto &fault) { return std::string(fault.param.name); });

INSTANTIATE_TEST_SUITE_P(
    Sets, LintFault,
    testing::Values(
        Fault{"crlf", "# x\nbody A /aaaa/\r\nbody B /bbbb/\r\n", "2:14 warning crlf"},
        Fault{"longLine", "body A /" + std::string(16376, 'a') + "/\n",
              "1:8 error rule-refused | 1:16384 error line-too-long"},
        Fault{"scoreOfUnit", "body A /aaaa/\nscore A 2.5x\n", "2:9 error score-cut"},
        Fault{"scoreNameAlone", "body A /aaaa/\nscore A\n", "2:1 error missing-score"},
        Fault{"scoreTwice", "body A /aaaa/\nscore A 1\nscore A 2\n", "2:7 warning score-duplicate"},
        Fault{"ruleWithoutScore", "body A /aaaa/\nscore A 1\nuri  B /bbbb/\n",
              "3:6 warning rule-no-score"},
        Fault{"ruleOff", "body A /aaaa/\nscore A 0\n", "1:6 warning rule-off"},
        Fault{"fullNotOff", "full A /aaaa/\nscore A 0\n", "1:6 warning full-not-off"},
        Fault{"subRuleUnused", "body  __A /aaaa/\n", "1:7 warning sub-rule-unused"},
        Fault{"subRuleScore", "body __A /aaaa/\nmeta M __A\nscore __A 1\nscore M 1\n",
              "1:6 warning sub-rule-score"},
        Fault{"subRuleKinds", "header __A Subject =~ /aaaa/\nbody __A /aaaa/\nmeta M __A\n",
              "2:6 warning sub-rule-unused | 2:6 warning sub-rule-kinds"},
        Fault{"defaultOnly", "body A /aaaa/\n#[lang section]\tRU\nbody B /bbbb/\n",
              "1:6 warning default-only"},
        Fault{"allIsForEverybody",
              "#[lang section]\tALL\nbody A /aaaa/\n#[lang section]\tRU\nbody B /bbbb/\n", ""},
        Fault{"duplicateInOneLanguage",
              "#[lang section]\tRU\nbody A /aaaa/\n#[lang section]\tALL\nbody A /bbbb/\n",
              "4:6 error rule-duplicate"},
        Fault{"headerColon", "header A From:raw:addr =~ /aaaa/\n", "1:10 error header-name"},
        Fault{"headerSuffixInCapitals", "header A From:ADDR =~ /aaaa/\n", "1:10 error header-name"},
        Fault{"headerBlank", "header A exists: From\n", "1:10 error header-name"},
        Fault{"headerLetters", "header A S\xC3\xBC =~ /aaaa/\n", "1:10 error header-name"},
        Fault{"headerPattern", "header A X-* =~ /aaaa/\n", ""},
        Fault{"headerNoPattern", "header A Subject\n", "1:10 error header-no-pattern"},
        Fault{"headerOneByte", "header A Subject x\n", "1:10 error header-no-pattern"},
        Fault{"headerOperatorAlone", "header A Subject =~\n", "1:10 error header-no-pattern"},
        Fault{"headerRefused", "header A Subject =~ /[a/\n", "1:24 error rule-refused"},
        Fault{"modifier", "body A /aaaa/y\n", "1:8 error rule-refused"},
        Fault{"noClosingSlash", "uri A /a\n", "1:7 error rule-refused"},
        Fault{"nothingToRepeat", "rawbody A /a|*b/\n", "1:14 error rule-refused"},
        Fault{"openGroupLater", "full  A /ab(?:c|d/i\n", "1:18 error rule-refused"}),
    [](const auto &fault) { return std::string(fault.param.name); });

INSTANTIATE_TEST_SUITE_P(
    Patterns, LintFault,
    testing::Values(
        Fault{"soundPattern", "body A /free (?:offer|trial)s?\\b/iu\n", ""},
        Fault{"byteClass", "body A /free [a\xC3\xA4]pple/\n", "1:14 warning pattern-byte-class"},
        Fault{"byteClassOfHeader", "header A Subject =~ /free [a\xC3\xA4]pple/\n",
              "1:27 warning pattern-byte-class"},
        Fault{"dots", "uri A /free.*/\n", "1:7 warning pattern-dots"},
        Fault{"dotsOfHeader", "header A  Subject   !~  /.*free/\n", "1:25 warning pattern-dots"},
        Fault{"empty", "rawbody A /free|/\n",
              "1:11 warning pattern-empty | 1:11 warning pattern-unsearched"},
        Fault{"emptyOnlyAtBothEnds", "header A Subject =~ /^$/\n",
              "1:21 warning pattern-unsearched"},
        Fault{"emptyNegated", "header A Subject !~ /x*/\n", "1:21 warning pattern-empty"},
        Fault{"lineEnd", "body A /free\\noffer/\n", "1:8 warning pattern-line-end"},
        Fault{"lineEndOfRawText", "rawbody A /free\\noffer/\n", ""},
        Fault{"nested", "full A /free(?:a+)+b/\n", "1:8 warning pattern-nested"},
        Fault{"longestPiece", "body A /free.{2044}/\n", ""},
        Fault{"tooLong", "body A /free.{2045}/\n", "1:8 warning pattern-too-long"},
        Fault{"tooLongForHeader", "header A Subject =~ /free.{2044}/\n",
              "1:21 warning pattern-too-long"},
        Fault{"longLineOfMessage", "full A /free.{2045}/\n", ""},
        Fault{"unsearched", "body A /^\\d{5}$/\n", "1:8 warning pattern-unsearched"},
        Fault{"unknownSyntax", "body A /(*NOTEMPTY)free/\n", "1:8 warning pattern-unsearched"}),
    [](const auto &fault) { return std::string(fault.param.name); });

// Three rules to name, and the meta rules that are at fault below them.
std::string s_withRules(const std::string &metas) {
    return "body A /aaaa/\nbody B /bbbb/\nbody C /cccc/\n" + metas;
}

INSTANTIATE_TEST_SUITE_P(
    Metas, LintFault,
    testing::Values(
        Fault{"soundMeta",
              s_withRules("meta M A && (B || !C)\nmeta N A + B + C > 1\nmeta O M || N\n"), ""},
        Fault{"openParenthesis", s_withRules("meta M (A\n"), "4:8 error meta-fault"},
        Fault{"openParenthesisInNumbers", s_withRules("meta M A > 0 + (B\n"),
              "4:16 error meta-parenthesis"},
        Fault{"closedTooOften", s_withRules("meta M (A || B)) && C\n"),
              "4:16 error meta-parenthesis"},
        Fault{"singleAnd", s_withRules("meta M A & A\n"), "4:8 error rule-refused"},
        Fault{"nothingNegated", s_withRules("meta M A && !\n"), "4:8 error meta-fault"},
        Fault{"endsInOperator", s_withRules("meta M A && B ||\n"), "4:15 error meta-operand"},
        Fault{"beginsWithOperator", s_withRules("meta M && A\n"), "4:8 error meta-operand"},
        Fault{"twoOperators", s_withRules("meta M A && || B\n"), "4:13 error meta-operand"},
        Fault{"leadingMinus", s_withRules("meta M -1 + A + B >= 0\n"), ""},
        Fault{"twoNames", s_withRules("meta M A B\n"), "4:10 error meta-no-operator"},
        Fault{"twoGroups", s_withRules("meta M (A || B) (B || C)\n"),
              "4:17 error meta-no-operator"},
        Fault{"wordAnd", s_withRules("meta M A and B\n"), "4:10 error meta-word"},
        Fault{"wordNot", s_withRules("meta M NOT A\n"), "4:8 error meta-word"},
        Fault{"equals", s_withRules("meta M A == 1\n"), "4:10 error meta-word"},
        Fault{"ruleNamedLikeAWord", "body OR /aaaa/\nbody B /bbbb/\nmeta M OR && B\n", ""},
        Fault{"joinedProduct", s_withRules("meta M A*B > 0\n"), "4:8 error meta-joined"},
        Fault{"joinedQuotient", s_withRules("meta M 1 > A/2\n"), "4:12 error meta-joined"},
        Fault{"groupBehindFactor", s_withRules("meta M 2 * (A + B) > 3\n"),
              "4:10 error meta-group"},
        Fault{"missing", s_withRules("meta M A && D\n"), "4:13 error meta-missing"},
        Fault{"numberWithUnit", s_withRules("meta M A + B > 1x\n"), "4:16 error meta-missing"},
        Fault{"self", s_withRules("meta M A && M\n"), "4:13 error meta-self"},
        Fault{"sameNameOfAnotherKind", s_withRules("meta A A && B\n"), ""},
        Fault{"later", s_withRules("meta M A && N\nmeta N B\n"), "4:13 error meta-later"},
        Fault{"cycle", s_withRules("meta M A && N\nmeta N B && M\n"), "4:13 error meta-cycle"},
        Fault{"longCycle", s_withRules("meta M N || A\nmeta N O || B\nmeta O M || C\n"),
              "4:8 error meta-cycle | 5:8 error meta-cycle"},
        Fault{"switchedOff",
              "body A /aaaa/\nbody B /bbbb/\nmeta M A || B\nscore A 0\nscore B 1\nscore M 1\n",
              "1:6 warning rule-off | 3:8 warning meta-switched-off"},
        Fault{"subRuleOfScoreZero", "body __A /aaaa/\nmeta M !__A\nscore M 1\n", ""},
        Fault{
            "otherLanguage",
            "#[lang section]\tRU\nbody __A /aaaa/\nmeta M __A\n#[lang section]\tALL\nmeta N __A\n",
            "5:8 error meta-language"},
        Fault{"precedence", s_withRules("meta M A || B && C\n"), "4:15 warning meta-precedence"},
        Fault{"groupsMakeItPlain", s_withRules("meta M A || (B && C)\n"), ""},
        Fault{"alwaysTrue", s_withRules("meta M A || !A || B\n"), "4:8 warning meta-always"},
        Fault{"alwaysFalse", s_withRules("meta M A + B + C > 3\n"), "4:8 warning meta-never"},
        Fault{"alwaysTrueOfNumbers", "meta M 3 > 2\n", "1:8 warning meta-always"},
        Fault{"empty", "meta M ()\n", "1:8 warning meta-never"}),
    [](const auto &fault) { return std::string(fault.param.name); });

// Twelve names are tried out, thirteen are not.
TEST(Lint, TriesExpressionsOfUpToTwelveNames) {
    std::string rules;
    std::string sum;
    for (char name = 'A'; name < 'A' + 12; ++name) {
        rules += std::string("body ") + name + " /aaaa/\n";
        sum += std::string(1, name) + " + ";
    }
    EXPECT_EQ(s_found(rules + "meta ALL " + sum + "0 > 12\n"), "13:10 warning meta-never");
    EXPECT_EQ(s_found(rules + "meta ALL " + sum + "0 > 11\n"), "");
    rules += "body Z /aaaa/\n";
    EXPECT_EQ(s_found(rules + "meta ALL " + sum + "Z > 13\n"), "");
}

TEST(Lint, ShowsWhereAPatternWasGivenUp) {
    const Outcome outcome = corvane({"lint", "--stdin", "a.cf"}, "body A /\t(a/\n");
    EXPECT_THAT(outcome.out, HasSubstr(": error rule-refused: rule "));
    EXPECT_THAT(outcome.out, HasSubstr("missing closing parenthesis"));
    EXPECT_THAT(outcome.out, HasSubstr("(a/\n"));
    const std::string &out = outcome.out;
    const std::size_t caret = out.rfind('^');
    const std::size_t last = out.rfind('\n', caret);
    const std::size_t excerpt = out.rfind('\n', last - 1);
    EXPECT_EQ(out[excerpt + (caret - last)], '/');
}

TEST(Lint, GroupsWhatIsAlikeUnlessEachPlaceIsAskedFor) {
    const std::string rules = "boddy A /aaaa/\nbody B /bbbb/\nboddy C /cccc/\n";
    const Outcome grouped = corvane({"lint", "--stdin", "a.cf"}, rules);
    EXPECT_THAT(grouped.out, HasSubstr("a.cf:1:1: "));
    EXPECT_THAT(grouped.out, HasSubstr("did you mean 'body'? (also at lines 3)\n"));
    EXPECT_THAT(grouped.out, testing::Not(HasSubstr("a.cf:3:1: ")));
    EXPECT_THAT(corvane({"lint", "--each", "--stdin", "a.cf"}, rules).out,
                HasSubstr("did you mean 'body'?\na.cf:3:1: error"));
}

TEST(Lint, WritesSarif) {
    const Outcome outcome = corvane({"lint", "--sarif", "--stdin", "a b.cf"}, "body A /(a/\n");
    const auto log = nlohmann::json::parse(outcome.out);
    EXPECT_EQ(log["version"], "2.1.0");
    const auto &run = log["runs"][0];
    EXPECT_EQ(run["tool"]["driver"]["rules"][0]["id"], "rule-refused");
    const auto &result = run["results"][0];
    EXPECT_EQ(result["ruleId"], "rule-refused");
    EXPECT_EQ(result["level"], "error");
    const auto &place = result["locations"][0]["physicalLocation"];
    EXPECT_EQ(place["artifactLocation"]["uri"], "a%20b.cf");
    EXPECT_EQ(place["region"]["startColumn"], 11);
    EXPECT_EQ(outcome.status, 1);
}

TEST(Lint, NamesPlaceCodeAndRemedy) {
    const Outcome outcome = corvane({"lint", "--stdin", "rules/a.cf"}, "boddy B /bbbb/\n");
    EXPECT_EQ(outcome.out, "rules/a.cf:1:1: error unknown-keyword: there is no keyword 'boddy'; "
                           "the line is ignored; did you mean 'body'?\n");
    EXPECT_EQ(outcome.status, 1);
}

TEST(Lint, EndsWithOneForErrorsAndForWarningsIfStrict) {
    const std::string warned = "body A /aaaa/\nscore A 0\n";
    EXPECT_EQ(corvane({"lint", "--stdin", "a.cf"}, warned).status, 0);
    EXPECT_EQ(corvane({"lint", "--strict", "--stdin", "a.cf"}, warned).status, 1);
    EXPECT_EQ(corvane({"lint", "--strict", "--stdin", "a.cf"}, "body A /aaaa/\n").status, 0);
}

TEST(Lint, ReadsDirectoriesAsOneRuleSet) {
    const TempDir directory;
    directory.makeDirectory("one");
    directory.makeDirectory("two");
    directory.write("one/a.cf", "body A /aaaa/\n");
    directory.write("two/b.cf", "body A /bbbb/\n");
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
    EXPECT_EQ(corvane({"lint", "--stdin", "a.txt"}, "body A /aaaa/\n").status, 2);
}

TEST(Lint, FindsNoErrorInTheExamples) {
    const Outcome outcome = corvane({"lint", CORVANE_EXAMPLE_RULES_DIR});
    EXPECT_THAT(outcome.out, testing::Not(HasSubstr(": error ")));
    EXPECT_EQ(outcome.status, 0);
}

} // namespace
} // namespace Corvane
