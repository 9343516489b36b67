// Where rules tripped, and why others did not.

#include <map>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "corvane/RuleSet.h"

namespace corvane {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

RuleSet rulesOf(const std::string &text) {
    return RuleSet::fromMemory({{"a.cf", text}});
}

std::string marked(const ExplainedText &text) {
    const std::string place = std::string(text.source) + ' ' + std::to_string(text.number) + '.' +
                              std::to_string(text.piece) + '+' + std::to_string(text.offset) + ' ';
    return text.hasRange ? place + text.text.substr(0, text.start) + '[' +
                               text.text.substr(text.start, text.end - text.start) + ']' +
                               text.text.substr(text.end)
                         : place + text.text;
}

std::vector<std::string> shown(const std::vector<RuleExplanation> &rules) {
    std::vector<std::string> lines;
    for (const RuleExplanation &each : rules) {
        std::string line = each.name + ' ' + std::string(reasonName(each.reason));
        if (each.where.has_value()) {
            line += ": " + marked(*each.where);
        }
        lines.push_back(line);
    }
    return lines;
}

TEST(Explanation, TellsWhereRulesTrippedInTheOrderOfTheScan) {
    const RuleSet rules = rulesOf("meta SUM (SECOND + 2 * __PART) > 1 && !OTHER\nscore SUM 0.3\n"
                                  "uri LINK /b.example/\nscore LINK 0.1\n"
                                  "body SECOND /pri(z|c)e/\nscore SECOND 0.2\n"
                                  "body FIRST /a.*claim/\nscore FIRST 0.7\n"
                                  "rawbody RAW /=$/\nscore RAW 1e8\n"
                                  "header ADDRESS From:addr =~ /joe/\nscore ADDRESS -0.4\n"
                                  "header __PART exists:X-Part\n"
                                  "header NOT Subject !~ /win/\nscore NOT 0.6\n"
                                  "full TOP /^X-Part: on/\nscore TOP 0.9\n"
                                  "full WHOLE /^Subject: c.*n$/s\n"
                                  "body OTHER /nowhere/\n");
    const Explanation why = rules.explain("From: Joe <joe@x.example>\nX-Part: on\nSubject: c\n"
                                          "\nA price\na claim http://b.example/\nsoft=\n");
    EXPECT_THAT(shown(why.tripped),
                ElementsAre("TOP tripped: line 2.1+26 [X-Part: on]\n",
                            "ADDRESS tripped: header 1.1+0 [joe]@x.example",
                            "__PART tripped: header 2.1+0 on", "NOT tripped: header 3.1+0 c",
                            "SECOND tripped: text 1.1+0 A [price]",
                            "FIRST tripped: text 2.1+8 [a claim] http://b.example/",
                            "RAW tripped: raw-body 3.1+34 soft[=]\n",
                            "LINK tripped: uri 1.1+0 http://[b.example]/", "SUM tripped"));
    float total = 0.0F;
    for (const RuleExplanation &each : why.tripped) {
        total += each.rule->score;
        EXPECT_EQ(each.total, total) << each.name;
    }
    EXPECT_EQ(total, why.verdict.score());
    EXPECT_EQ(why.tripped[1].where->form, "addr");
    EXPECT_EQ(why.tripped[7].where->uriSource, "text");
    std::vector<std::string> steps;
    for (const MetaStep &step : why.tripped.back().steps) {
        steps.push_back(std::string(step.depth, ' ') + step.operation + ' ' + step.operand + ' ' +
                        std::to_string(static_cast<int>(step.value)));
    }
    EXPECT_THAT(
        steps, ElementsAre(" ( 3", "  SECOND 1", " + 2 2", " * __PART 1", "> 1 1", "&& ! OTHER 0"));
}

TEST(Explanation, GivesTheFirstReasonThatHolds) {
    const std::string rules = "body HIT /word/\nbody MISS /wor[^d]/\nbody OFF /word/\nscore OFF 0\n"
                              "body __UNUSED /word/\nheader GONE X-Gone =~ /./\n"
                              "header SAME Subject !~ /s/\nuri LINK /./\nbody BAD /(/\n"
                              "header EMPTY Subject\nbody SLOW /(?:a+)+[bc]/\n"
                              "body REST /behind/\nmeta FALSE HIT && MISS\n"
                              "meta FAULT HIT && (\nheader HIT Subject =~ /s/\n"
                              "#[lang section]\tCN\nbody FOREIGN /word/\n";
    const std::string message = "Subject: s\n\nword\n" + std::string(33, 'a') + '\n' +
                                std::string(5000, '-') + "\nbehind\n";
    const std::map<std::string, std::string> expected = {
        {"MISS", "MISS no-match"},
        {"OFF", "OFF switched-off"},
        {"__UNUSED", "__UNUSED switched-off"},
        {"GONE", "GONE header-absent"},
        {"SAME", "SAME excluded: header 1.1+0 [s]"},
        {"LINK", "LINK no-text"},
        {"BAD", "BAD not-loaded"},
        {"MISSPELT", "MISSPELT not-loaded"},
        {"EMPTY", "EMPTY never-trips"},
        {"SLOW", "SLOW pattern-given-up"},
        {"REST", "REST beyond-limit: text 4.1+5040 [behind]"},
        {"FALSE", "FALSE expression-false"},
        {"FAULT", "FAULT never-trips"},
        {"FOREIGN", "FOREIGN other-language"},
        {"HIT", "HIT name-taken: text 1.1+0 [word]"}};
    const RuleSet set = rulesOf(rules);
    for (const auto &[name, reason] : expected) {
        EXPECT_THAT(shown(set.explain(message, ScanOptions(), {name}).untripped),
                    ElementsAre(reason));
    }
    const Explanation why = set.explain(message, ScanOptions(), {"MISS", "BAD"});
    const NearestTry &nearest = *why.untripped[0].nearest;
    EXPECT_EQ(marked(nearest.text), "text 1.1+0 [wor]d");
    EXPECT_EQ(nearest.pattern.substr(nearest.item, nearest.itemLength), "[^d]");
    EXPECT_TRUE(nearest.isComplete);
    EXPECT_THAT(why.untripped[1].detail, HasSubstr("a.cf:9: missing closing parenthesis"));
}

TEST(Explanation, TellsWhatOptionsKeepFromBeingTried) {
    const RuleSet rules = rulesOf("body FIRST /a/\nscore FIRST 2\nbody BOTH /a|b/\nuri LATE /x/\n"
                                  "full HEAD /^Subject: a\\z/\nmeta LAST FIRST\n"
                                  "header BEFORE Subject =~ /b/\n");
    const std::string message = "Subject: a\n\nb http://x.example/\n";
    ScanOptions options;
    options.threshold = 1.0F;
    options.stop = true;
    Explanation why = rules.explain(message, options, {"BOTH", "LATE", "LAST", "BEFORE"});
    EXPECT_THAT(shown(why.tripped), ElementsAre("FIRST tripped: subject 1.1+0 [a]",
                                                "BOTH tripped: text 1.1+0 [b] http://x.example/"));
    EXPECT_THAT(shown(why.untripped), ElementsAre("LATE not-reached: uri 1.1+0 http://[x].example/",
                                                  "LAST not-reached", "BEFORE no-match"));
    options.stop = false;
    options.percent = 20;
    why = rules.explain(message, options, {"BOTH", "LATE", "LAST", "HEAD"});
    EXPECT_THAT(shown(why.untripped),
                ElementsAre("BOTH beyond-percent", "LATE beyond-percent", "LAST beyond-percent",
                            "HEAD beyond-percent: whole-header 1.1+0 [Subject: a]"));
    options.percent = 0;
    options.limits.textBytes = 4;
    why = rules.explain("\ncdefghij b\n", options, {"BOTH", "LATE"});
    EXPECT_THAT(shown(why.untripped),
                ElementsAre("BOTH beyond-limit: text 1.1+0 cdefghij [b]", "LATE no-text"));
    EXPECT_EQ(why.untripped[0].detail, "limits hit: text-bytes");
}

} // namespace
} // namespace corvane
