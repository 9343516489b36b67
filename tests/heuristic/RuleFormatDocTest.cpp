// What docs/rule-format.md shows is what happens: every example on it is loaded and scanned as the command does it.
//
//   ```rules     a rule file, or several, each below a line "--- NAME"; in force up to the next block of the kind
//   ```log       the identifiers of the records that loading it writes, besides the one that tells its counts
//   ```message   a message; "message crlf" with CR LF line ends; {x*N} is N times the text x
//   ```trips     the rules that the message before it trips, one a line, each with its score where that is of interest;
//                "total N", "language NAME"; "nothing" for none. "trips percent=P threshold=T" scans with these.

#include <algorithm>
#include <map>
#include <memory>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "heuristic/BodyRule.h"
#include "heuristic/FullRule.h"
#include "heuristic/HeaderRule.h"
#include "heuristic/LogRecords.h"
#include "heuristic/MetaRule.h"
#include "heuristic/RuleFactory.h"
#include "heuristic/Scanner.h"
#include "heuristic/UriRule.h"
#include "host/parser/MailReader.h"
#include "support/DocPage.h"
#include "support/LogCapture.h"
#include "support/RuleSet.h"
#include "support/Rules.h"

namespace Corvane::Heuristic {
namespace {

const char *const kLanguages[] = {"DEFAULT", "CN", "JP", "KO", "RU", "TH"};

const DocPage &s_page() {
    static const DocPage s_format("rule-format.md");
    return s_format;
}

std::vector<std::string> s_words(const std::string &text) {
    std::istringstream stream(text);
    return {std::istream_iterator<std::string>(stream), {}};
}

std::string s_lineEnds(const std::string &text, const std::string &end) {
    return std::regex_replace(text, std::regex("\n"), end);
}

// Writes out each {x*N}.
std::string s_repeats(std::string text) {
    const std::regex form("\\{([^{}*]+)\\*(\\d+)\\}");
    for (std::smatch found; std::regex_search(text, found, form);) {
        std::string all;
        for (int count = std::stoi(found[2]); count > 0; --count) {
            all += found[1];
        }
        text = found.prefix().str() + all + found.suffix().str();
    }
    return text;
}

// The escapes of a text in a table.
std::string s_unescaped(std::string text) {
    for (const auto &[form, byte] : {std::pair("\\r", "\r"), {"\\n", "\n"}, {"\\t", "\t"}}) {
        for (std::size_t at = 0; (at = text.find(form, at)) != std::string::npos;) {
            text.replace(at, 2, byte);
        }
    }
    return text;
}

// The examples in the order of the page: what one block sets up, the next ones are scanned with.
class Examples {
public:
    void take(const DocBlock &block) {
        const std::vector<std::string> words = s_words(block.info);
        SCOPED_TRACE("rule-format.md:" + std::to_string(block.line));
        if (block.info == "rules") {
            load(block.text);
        } else if (block.info == "log") {
            compareLog(block.text);
        } else if (!words.empty() && words[0] == "message") {
            message_ = s_repeats(words.size() > 1 ? s_lineEnds(block.text, "\r\n") : block.text);
        } else if (!words.empty() && words[0] == "trips") {
            compare(block.text, scan(setting(words, "percent="), setting(words, "threshold=")));
            ++count_;
        }
    }

    unsigned int count() const { return count_; }

private:
    static unsigned int setting(const std::vector<std::string> &words, const std::string &key) {
        for (const std::string &word : words) {
            if (word.rfind(key, 0) == 0) {
                return static_cast<unsigned int>(std::stoul(word.substr(key.size())));
            }
        }
        return 0;
    }

    void load(const std::string &text) {
        set_.reset();
        set_ = std::make_unique<RuleSet>("doc");
        std::map<std::string, std::string> files;
        std::string *file = &files["example.rules"];
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);) {
            if (line.rfind("--- ", 0) == 0) {
                file = &files[line.substr(4)];
            } else {
                *file += line + '\n';
            }
        }
        if (files.size() == 1) {
            files = {{"example.cf", *file}};
        }
        for (const auto &[name, content] : files) {
            set_->add(name, content);
        }
        log_.records.clear();
        scanner_ = Scanner(set_->path());
        loaded_ = log_.records;
    }

    void compareLog(const std::string &text) {
        std::vector<std::string> written;
        for (const LogRecord &record : loaded_) {
            if (record.id != kLogRulesLoaded) {
                std::ostringstream number;
                number << "0x" << std::hex << std::uppercase << record.id;
                written.push_back(number.str());
            }
        }
        EXPECT_EQ(written, s_words(text));
    }

    RefMatches scan(unsigned int percent, unsigned int threshold) {
        RefMatches matches = RefMatches::create();
        matches->threshold(static_cast<float>(threshold));
        const Mail mail = MailReader().read(message_.data(), message_.size());
        language_ = Scanner::selectLanguage(mail.properties()->part().operator->());
        FullTap tap(scanner_, scanner_.rules().fullRules(language_), matches, 0, false);
        tap.write(viewOf(message_));
        tap.end();
        scanner_.process(matches, mail.properties(), mail.sender(), percent, false);
        return matches;
    }

    void compare(const std::string &text, const RefMatches &matches) {
        Names expected;
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);) {
            const std::vector<std::string> words = s_words(line);
            if (words.at(0) == "total") {
                EXPECT_FLOAT_EQ(matches.score(false), std::stof(words.at(1)));
            } else if (words[0] == "language") {
                EXPECT_EQ(kLanguages[language_], words.at(1));
            } else if (words[0] != "nothing") {
                expected.push_back(words[0]);
                compareScore(words, matches);
            }
        }
        std::sort(expected.begin(), expected.end());
        EXPECT_EQ(namesOf(*matches), expected);
    }

    static void compareScore(const std::vector<std::string> &words, const RefMatches &matches) {
        const RefRule rule = matches.find(words[0]);
        if (words.size() > 1 && !rule.isNull()) {
            EXPECT_FLOAT_EQ(rule->score()->value(), std::stof(words[1])) << words[0];
        }
    }

    LogCapture log_;
    std::unique_ptr<RuleSet> set_;
    Scanner scanner_;
    std::vector<LogRecord> loaded_;
    std::string message_;
    langID language_ = DEFAULT;
    unsigned int count_ = 0;
};

TEST(RuleFormatDoc, ExamplesTripWhatThePageSays) {
    constexpr unsigned int kAtLeast = 25;
    Examples examples;
    for (const DocBlock &block : s_page().blocks()) {
        examples.take(block);
    }
    EXPECT_GE(examples.count(), kAtLeast) << "examples are no longer found on the page";
}

void s_try(const RefRule &rule, const std::string &text, RefMatches &matches) {
    RefRuleList list = RefRuleList::create();
    list.add(rule);
    const std::size_t colon = text.find(": ");
    switch (rule->type()) {
    case Rule::Header:
        ASSERT_NE(colon, std::string::npos) << text;
        HeaderCheck(list, matches, 0,
                    false)(Corvane::Header(text.substr(0, colon), text.substr(colon + 2)));
        break;
    case Rule::Uri:
        UriCheck(list, matches, 0, false)(Corvane::Uri(text));
        break;
    case Rule::Full:
        FullCheck(list, matches, 0, false).check(viewOf(text));
        break;
    default:
        BodyCheck(list, matches, 0, false).check(viewOf(text), rule->type() == Rule::RawBody);
    }
}

TEST(RuleFormatDoc, TablesOfPatternsAreTrue) {
    const std::vector<DocRow> rows = s_page().rows({"rule", "tried on", "matches"});
    EXPECT_FALSE(rows.empty());
    const LogCapture log;
    for (const DocRow &row : rows) {
        SCOPED_TRACE("rule-format.md:" + std::to_string(row.line));
        RuleContainer container;
        const std::string &statement = row.cells.at(0);
        const RefRule rule = RuleFileParser(container).parseRule(
            statement.data(), static_cast<int>(statement.size()));
        ASSERT_EQ(rule.isNull(), row.cells.at(2) == "refused") << statement;
        if (!rule.isNull()) {
            rule->score(RefScore("1"));
            RefMatches matches = RefMatches::create();
            s_try(rule, s_unescaped(s_repeats(row.cells.at(1))), matches);
            EXPECT_EQ(matches->empty() ? "no" : "yes", row.cells.at(2)) << statement;
        }
    }
}

TEST(RuleFormatDoc, TablesOfMetaExpressionsAreTrue) {
    const std::vector<DocRow> rows = s_page().rows({"expression", "tripped", "value", "why"});
    EXPECT_FALSE(rows.empty());
    for (const DocRow &row : rows) {
        SCOPED_TRACE("rule-format.md:" + std::to_string(row.line));
        LogCapture log;
        RefMatches matches = RefMatches::create();
        for (const std::string &name : s_words(row.cells.at(1))) {
            matches.add(makeRule(Rule::Body, name, "x"));
        }
        const RefRule rule(Rule::Meta, "M");
        rule->score(RefScore("1"));
        try {
            rule->value(row.cells.at(0));
            const bool value = static_cast<const MetaRule &>(*rule).matches(matches);
            const char *const answer = value ? "true" : "false";
            EXPECT_EQ(answer + std::string(log.records.empty() ? "" : ", logged"), row.cells.at(2));
        } catch (const Exception &) {
            EXPECT_EQ(row.cells.at(2), "refused");
        }
    }
}

} // namespace
} // namespace Corvane::Heuristic
