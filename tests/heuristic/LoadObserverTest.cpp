// What an observer hears of a load: each line once, with columns and what became of it.

#include "heuristic/LoadObserver.h"

#include <algorithm>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "heuristic/MetaRule.h"
#include "heuristic/RuleFactory.h"
#include "heuristic/Scanner.h"
#include "support/LogCapture.h"
#include "support/RuleSet.h"

namespace Corvane::Heuristic {
namespace {

// Keeps what it hears, with copies of what lives for the call only.
struct Heard {
    std::string text;
    LoadedLine line;
    std::string keyword;
    std::string name;
    std::string definition;
};

class Recorder : public LoadObserver {
public:
    void fileBegins(const std::string &path, bool isEncrypted) override {
        events.push_back((isEncrypted ? "encrypted " : "plain ") + path);
    }
    void fileUnreadable(const std::string &path, int error) override {
        events.push_back("unreadable " + path + (error != 0 ? " for a reason" : ""));
    }
    void content(std::string_view bytes) override {
        contents.emplace_back(bytes);
        position = 0;
    }
    void line(const LoadedLine &line) override {
        ASSERT_FALSE(contents.empty());
        const std::string &content = contents.back();
        ASSERT_GE(line.offset, position);
        ASSERT_EQ(content.compare(line.offset, line.text.size(), line.text), 0);
        position = line.offset + 1;
        for (const LinePart *part : {&line.keyword, &line.name, &line.definition}) {
            ASSERT_EQ(part->column == 0, part->text.empty());
            ASSERT_TRUE(part->column == 0 ||
                        line.text.substr(part->column - 1, part->text.size()) == part->text);
        }
        lines.push_back({std::string(line.text), line, std::string(line.keyword.text),
                         std::string(line.name.text), std::string(line.definition.text)});
    }
    void loaded(unsigned int rules, int active, const std::string &version) override {
        events.push_back("loaded " + std::to_string(rules) + ' ' + std::to_string(active) +
                         version);
    }

    std::vector<std::string> events;
    std::vector<std::string> contents;
    std::vector<Heard> lines;
    std::size_t position = 0;
};

RuleSource inMemory(const std::map<std::string, std::string> &files,
                    const std::string &directory = "") {
    return {directory, files};
}

// The one line that a file of the text is heard to have; a rule named "TAKEN" stands before it.
Heard heardOf(const std::string &text) {
    Recorder recorder;
    const LogCapture log;
    const Scanner scanner({inMemory({{"a.cf", "body TAKEN /x/\n" + text + "\n"}})}, recorder);
    EXPECT_EQ(recorder.lines.size(), 2U) << text;
    return recorder.lines.size() == 2 ? recorder.lines[1] : Heard{};
}

struct OutcomeRow {
    std::string text;
    LoadedLine::Outcome outcome;
    unsigned int keyword;
    unsigned int name;
    unsigned int definition;
    unsigned int fault;
};

TEST(LoadObserver, TellsWhatBecameOfEachLine) {
    using Line = LoadedLine;
    const std::string nul("\0body A /x/", 11);
    const OutcomeRow rows[] = {
        {"body A /x/", Line::RuleFiled, 1, 6, 8, 8},
        {"\t BODY  A \t/x/ ", Line::RuleFiled, 3, 9, 12, 12},
        {"# body", Line::Comment, 0, 0, 0, 1},
        {"#[lang section] CN", Line::Comment, 0, 0, 0, 1},
        {"#[lang section]\tCN ", Line::Section, 1, 17, 0, 17},
        {"#[LANG section]\tcn", Line::UnknownSection, 1, 17, 0, 17},
        {"describe A  what it is", Line::Description, 1, 10, 13, 13},
        {"describe A", Line::BareDescription, 1, 10, 0, 10},
        {"DESCRIBED A b", Line::Description, 1, 9, 11, 11},
        {"score A 2.5", Line::ScoreTaken, 1, 7, 9, 9},
        {"scoreA 2.5", Line::ScoreTaken, 1, 6, 8, 8},
        {"score A", Line::BareScore, 1, 7, 0, 7},
        {"score", Line::BareScore, 1, 0, 0, 1},
        {" score A 2.5", Line::UnknownKeyword, 2, 0, 0, 2},
        {"bodyx A /x/", Line::UnknownKeyword, 1, 0, 0, 1},
        {"\xEF\xBB\xBF"
         "body A /x/",
         Line::UnknownKeyword, 1, 0, 0, 1},
        {"body", Line::MissingName, 1, 0, 0, 1},
        {"body  ", Line::MissingName, 1, 0, 0, 1},
        {"body A", Line::MissingDefinition, 1, 6, 0, 6},
        {"body A ", Line::MissingDefinition, 1, 6, 0, 6},
        {"body TAKEN /y/", Line::RuleDuplicate, 1, 6, 12, 12},
        {"body A /a(b/", Line::RuleRefused, 1, 6, 8, 12},
        {"body A a)b", Line::RuleRefused, 1, 6, 8, 9},
        {"body A /ab", Line::RuleRefused, 1, 6, 8, 8},
        {"body A /ab/q", Line::RuleRefused, 1, 6, 8, 8},
        {"header ( ( =~ /a(b/", Line::RuleRefused, 1, 8, 10, 19},
        {"header ( x =~ x(", Line::RuleRefused, 1, 8, 10, 17},
        {"header H x !~ /a[/ [if-unset: q]", Line::RuleRefused, 1, 8, 10, 18},
        {"body A /" + std::string(200, 'x') + "(/", Line::RuleRefused, 1, 6, 8, 210},
        {"meta A B & C", Line::RuleRefused, 1, 6, 8, 8},
        {" \t", Line::Ignored, 0, 0, 0, 1},
        {nul, Line::Ignored, 0, 0, 0, 1},
    };
    for (const OutcomeRow &row : rows) {
        SCOPED_TRACE(row.text);
        const Heard heard = heardOf(row.text);
        EXPECT_EQ(heard.text, row.text);
        EXPECT_EQ(heard.line.outcome, row.outcome);
        EXPECT_EQ(heard.line.number, 2U);
        EXPECT_EQ(heard.line.keyword.column, row.keyword);
        EXPECT_EQ(heard.line.name.column, row.name);
        EXPECT_EQ(heard.line.definition.column, row.definition);
        EXPECT_EQ(heard.line.faultColumn(), row.fault);
        EXPECT_EQ(heard.line.failure.has_value(), row.outcome == Line::RuleRefused);
    }
}

TEST(LoadObserver, TellsThePatternsFault) {
    const Heard heard = heardOf("body A /a(b/");
    ASSERT_TRUE(heard.line.pattern.has_value());
    EXPECT_EQ(heard.line.pattern->reason, "missing closing parenthesis");
    EXPECT_EQ(heard.line.pattern->offset, 3U);
    const Heard form = heardOf("body A /ab");
    ASSERT_TRUE(form.line.pattern.has_value());
    EXPECT_EQ(form.line.pattern->reason, "the closing slash is missing");
    EXPECT_FALSE(form.line.pattern->offset.has_value());
    EXPECT_FALSE(heardOf("meta A B & C").line.pattern.has_value());
}

TEST(LoadObserver, TellsHowMuchOfAScoreWasRead) {
    const struct {
        std::string text;
        unsigned int count;
        bool whole;
    } rows[] = {{"2.5", 1, true},    {"0 2.5 1 4 ", 4, true}, {"1 2 3 4 5", 4, false},
                {"1,5", 1, false},   {"2.5 # why", 1, false}, {"abc", 0, false},
                {"1.5-2", 2, false}, {"-", 0, false},         {"1e99", 0, false},
                {"+.5", 1, true},    {"2 -", 1, false}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.text);
        const Heard heard = heardOf("score A " + row.text);
        EXPECT_EQ(heard.line.numbers.count, row.count);
        EXPECT_EQ(heard.line.numbers.whole, row.whole);
    }
}

TEST(LoadObserver, MarksFiledRulesThatNeverTrip) {
    EXPECT_TRUE(heardOf("body A eval:x()").line.isEval);
    EXPECT_TRUE(heardOf("header A eval:x()").line.isEval);
    EXPECT_FALSE(heardOf("uri A eval:x").line.isEval);
    EXPECT_FALSE(heardOf("body A /eval:/").line.isEval);
    for (const char *expression : {"(A && B", "A && !", "!"}) {
        const Heard heard = heardOf(std::string("meta M ") + expression);
        EXPECT_EQ(heard.line.outcome, LoadedLine::RuleFiled) << expression;
        EXPECT_TRUE(heard.line.isMetaFault) << expression;
    }
    EXPECT_FALSE(heardOf("meta M A && (B || !C) + 1 > 2").line.isMetaFault);
}

TEST(LoadObserver, TellsBothPlacesOfDuplicates) {
    Recorder recorder;
    const LogCapture log;
    const Scanner scanner(
        {inMemory({{"a.cf", "body A /x/\n#[lang section]\tCN\nbody A /y/\n"}}, "one"),
         inMemory({{"b.cf", "# b\n#[lang section]\tALL\nbody A /z/\n"
                            "#[lang section]\tRU\nbody A /q/\n"}},
                  "two/")},
        recorder);
    ASSERT_EQ(recorder.lines.size(), 8U);
    const LoadedLine &all = recorder.lines[5].line;
    EXPECT_EQ(all.outcome, LoadedLine::RuleFiled);
    ASSERT_EQ(all.clashes.size(), 2U);
    EXPECT_EQ(all.clashes[0].language, DEFAULT);
    EXPECT_EQ(all.clashes[0].first.file, "one/a.cf");
    EXPECT_EQ(all.clashes[0].first.line, 1U);
    EXPECT_EQ(all.clashes[0].first.column, 6U);
    EXPECT_EQ(all.clashes[1].language, CN);
    EXPECT_EQ(all.clashes[1].first.line, 3U);
    const LoadedLine &russian = recorder.lines[7].line;
    EXPECT_EQ(russian.outcome, LoadedLine::RuleDuplicate);
    ASSERT_EQ(russian.clashes.size(), 1U);
    EXPECT_EQ(russian.clashes[0].first.file, "two/b.cf");
    EXPECT_EQ(russian.clashes[0].first.line, 3U);
    EXPECT_EQ(log.records.size(), 4U);
}

TEST(LoadObserver, MarksLinesThatAreCut) {
    const std::string most(RuleFileParser::kMaxLineBytes - 1, 'x');
    for (const char *end : {"\n", "\r\n", ""}) {
        for (const std::size_t more : {0U, 1U}) {
            Recorder recorder;
            const Scanner scanner(
                {inMemory({{"a.cf", '#' + most.substr(1) + std::string(more, 'y') + end}})},
                recorder);
            ASSERT_EQ(recorder.lines.size(), 1U);
            EXPECT_EQ(recorder.lines[0].line.isCut, more > 0);
            EXPECT_EQ(recorder.lines[0].text.size(), most.size());
        }
    }
}

TEST(LoadObserver, HearsFilesInTheOrderOfReading) {
    Heuristic::RuleSet shipped("shipped");
    shipped.add("b.cf", "body B /x/\r\n\r\nscore B 0\r\n")
        .add("a.cf", "")
        .add("z.score", "score B 2")
        .add("a.cf2", "body C /x/\n")
        .add("README", "CF_MAJOR_VERSION=5\nCF_HR_VERSION=1\n");
    Heuristic::RuleSet local("local");
    local.addEncrypted("l.cf2", "body L /x/\n").add("heuristic.cf2", "").add("version", "");
    Recorder recorder;
    const LogCapture log;
    EXPECT_THROW(
        Scanner({{shipped.path().asString(), {}}, {local.path().asString(), {}}}, recorder),
        Exception)
        << "the marker is no cipher text";
    const std::string one = shipped.path().asString() + '/';
    const std::string two = local.path().asString() + '/';
    EXPECT_THAT(recorder.events,
                testing::ElementsAre("plain " + one + "a.cf", "plain " + one + "b.cf",
                                     "plain " + one + "z.score",
                                     "encrypted " + two + "heuristic.cf2"));
    local.addEncrypted("heuristic.cf2", "");
    Recorder second;
    const Scanner scanner({{shipped.path().asString(), {}}, {local.path().asString(), {}}}, second);
    EXPECT_EQ(second.events.back(), "loaded 2 2 (v5.1)");
    EXPECT_THAT(second.contents, testing::ElementsAre("", "body B /x/\r\n\r\nscore B 0\r\n",
                                                      "score B 2", "", "body L /x/\n"));
    EXPECT_EQ(second.lines.back().line.offset, 0U);
    ASSERT_EQ(log.records.size(), 1U);
    EXPECT_EQ(log.records[0].text, "2\x01"
                                   "2\x01 (v5.1)");
}

TEST(LoadObserver, HearsOfFilesThatCannotBeOpened) {
    Heuristic::RuleSet rules("gone");
    rules.add("a.cf", "body A /x/\n");
    // Gone between the look at the directory and the file.
    class Remover : public Recorder {
    public:
        void fileBegins(const std::string &path, bool isEncrypted) override {
            Recorder::fileBegins(path, isEncrypted);
            std::filesystem::remove(path);
        }
    };
    Remover remover;
    const LogCapture log;
    const Scanner scanner({{rules.path().asString(), {}}}, remover);
    EXPECT_EQ(scanner.ruleCount(), 0U);
    EXPECT_EQ(remover.events.at(1), "unreadable " + rules.path().asString() + "/a.cf for a reason");
}

TEST(LoadObserver, WhatItThrowsEndsTheLoad) {
    class Thrower : public LoadObserver {
        void line(const LoadedLine & /*line*/) override { throw std::runtime_error("enough"); }
    };
    Thrower thrower;
    EXPECT_THROW(Scanner({inMemory({{"a.cf", "body A /x/\n"}})}, thrower), std::runtime_error);
}

// From memory and from disk, with and without an observer: the same rules, scores and records.
TEST(LoadObserver, ChangesNothing) {
    const std::map<std::string, std::string> files = {
        {"a.cf", "body A /x/\nscore A 3\nbody A /y/\nbody B /(/\n#[lang section]\tALL\nmeta M A"},
        {"b.cf", "describe A a\nscore B 1\nbody B eval:x()\n"},
        {".c.cf", "body C /x/\n"},
        {"d.cf2", "body D /x/\n"},
        {"a.score", "score M 4\n"}};
    Heuristic::RuleSet onDisk("same");
    for (const auto &[name, text] : files) {
        onDisk.add(name, text);
    }
    const auto shownOf = [](const Scanner &scanner, const LogCapture &log) {
        std::string shown;
        for (int language = DEFAULT; language < ALL; ++language) {
            for (unsigned int kind = Rule::Header; kind <= Rule::Meta; ++kind) {
                for (const RefRule &rule : *scanner.rules().rules(static_cast<langID>(language),
                                                                  static_cast<Rule::Type>(kind))) {
                    shown += std::to_string(language) + rule->name() + rule->value() +
                             rule->description() + std::to_string(rule->ordinal()) +
                             std::to_string(rule->score()->value()) + '\n';
                }
            }
        }
        for (const LogRecord &record : log.records) {
            shown += std::to_string(record.id) + record.text + '\n';
        }
        return shown;
    };
    std::vector<std::string> shown;
    {
        const LogCapture log;
        shown.push_back(shownOf(Scanner(onDisk.path()), log));
    }
    for (const RuleSource &source :
         {RuleSource{onDisk.path().asString(), {}}, inMemory(files, onDisk.path().asString())}) {
        Recorder recorder;
        const LogCapture log;
        shown.push_back(shownOf(Scanner({source}, recorder), log));
        EXPECT_EQ(recorder.lines.size(), 10U);
    }
    EXPECT_NE(shown[0].find('B'), std::string::npos);
    EXPECT_EQ(shown[0], shown[1]);
    EXPECT_EQ(shown[0], shown[2]);
}

} // namespace
} // namespace Corvane::Heuristic
