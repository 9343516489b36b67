#include "RuleLint.h"

#include <algorithm>
#include <cctype>
#include <numeric>
#include <string_view>
#include <tuple>
#include <unordered_map>

#include "Failure.h"
#include "MetaLint.h"
#include "PatternLint.h"
#include "heuristic/HeaderRule.h"
#include "host/parser/Logger.h"

namespace Corvane::Cli {

namespace {

using Heuristic::LoadedLine;

constexpr std::string_view kKeywords[] = {"header", "uri",  "body",     "rawbody",
                                          "full",   "meta", "describe", "score"};
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view kSectionMark = "#[lang section]";
constexpr std::size_t kMostDifferences = 2;
constexpr unsigned char kDelete = 0x7F;

std::string s_lower(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char byte) { return static_cast<char>(std::tolower(byte)); });
    return lower;
}

// How many letters must be put in, taken out or changed to make one word of the other.
std::size_t s_differences(std::string_view one, std::string_view other) {
    std::vector<std::size_t> row(other.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    std::size_t last = other.size();
    for (std::size_t i = 0; i < one.size(); ++i) {
        std::size_t diagonal = row[0]++;
        for (std::size_t k = 0; k < other.size(); ++k) {
            const std::size_t changed = diagonal + (one[i] == other[k] ? 0 : 1);
            diagonal = row[k + 1];
            last = std::min({changed, row[k] + 1, row[k + 1] + 1});
            row[k + 1] = last;
        }
    }
    return last;
}

// The keyword that was likely meant; empty where none is near.
std::string_view s_nearestKeyword(std::string_view word) {
    const std::string lower = s_lower(word);
    const auto *const nearest = std::min_element(
        std::begin(kKeywords), std::end(kKeywords), [&lower](const auto &one, const auto &other) {
            return s_differences(lower, one) < s_differences(lower, other);
        });
    const std::size_t differences = s_differences(lower, *nearest);
    return differences <= kMostDifferences && differences < nearest->size() / 2
               ? *nearest
               : std::string_view();
}

std::string s_refusal(const LoadedLine &line) {
    if (line.pattern.has_value()) {
        return line.pattern->reason;
    }
    return line.failure->message() == "MetaRule::value" ? "it holds a single & or |, or a byte 7"
                                                        : line.failure->message();
}

// The languages in which a rule was filed.
std::uint8_t s_languages(const LoadedLine &line) {
    auto languages =
        line.language == Heuristic::ALL
            ? kAllLanguages
            : static_cast<std::uint8_t>(1U << static_cast<unsigned int>(line.language));
    for (const LoadedLine::Clash &each : line.clashes) {
        languages &= static_cast<std::uint8_t>(~(1U << static_cast<unsigned int>(each.language)));
    }
    return languages;
}

// Shows the part of the line around the fault.
void s_showFault(Finding &finding, std::string_view line) {
    constexpr std::size_t kBefore = 60;
    constexpr std::size_t kBehind = 20;
    const std::size_t at = std::min<std::size_t>(finding.column - 1, line.size());
    const std::size_t start = at > kBefore ? at - kBefore : 0;
    const std::string before = Logger::printable(std::string(line.substr(start, at - start)));
    finding.excerpt = before + Logger::printable(std::string(line.substr(at, kBehind)));
    finding.caret = before.size();
}

// Whether mail can hold a header of that name.
bool s_isHeaderName(const std::string &name) {
    return !name.empty() && std::all_of(name.begin(), name.end(), [](unsigned char byte) {
        return byte > ' ' && byte < kDelete && byte != ':';
    });
}

} // namespace

std::vector<Finding> RuleLint::findings() const {
    std::vector<Finding> all = findings_;
    SetLint(rules_, scores_, all).check();
    MetaLint(rules_, all).check();
    PatternLint(rules_, all).check();
    std::unordered_map<std::string, std::size_t> order;
    for (const std::string &file : files_) {
        order.emplace(file, order.size());
    }
    const auto place = [&order](const Finding &finding) {
        return std::make_tuple(order.at(finding.file), finding.line, finding.column);
    };
    std::stable_sort(all.begin(), all.end(), [&place](const Finding &one, const Finding &other) {
        return place(one) < place(other);
    });
    return all;
}

void RuleLint::fileBegins(const std::string &path, bool /*isEncrypted*/) {
    files_.push_back(path);
}

void RuleLint::fileUnreadable(const std::string &path, int error) {
    refuse("cannot read '" + Logger::printable(path) + "': " + systemReason(error));
}

void RuleLint::content(std::string_view bytes) {
    const std::size_t found = bytes.find("\r\n");
    if (found == std::string_view::npos) {
        return;
    }
    const std::string_view before = bytes.substr(0, found);
    const auto line = static_cast<unsigned int>(std::count(before.begin(), before.end(), '\n')) + 1;
    const std::size_t start = before.rfind('\n') + 1;
    findings_.push_back({files_.back(),
                         line,
                         static_cast<unsigned int>(found - start) + 1,
                         Level::Warning,
                         "crlf",
                         "lines of this file end in CR LF",
                         "save it with LF alone, as other tools expect rule files",
                         {},
                         0});
}

void RuleLint::line(const LoadedLine &line) {
    checkBytes(line);
    switch (line.outcome) {
    case LoadedLine::Comment:
        checkComment(line);
        break;
    case LoadedLine::UnknownSection:
        add(line, line.name.column, Level::Error, "unknown-section",
            "there is no language " + quoted(line.name.text) + "; what follows is read as DEFAULT",
            "write DEFAULT, CN, JP, KO, RU, TH or ALL, in capitals");
        break;
    case LoadedLine::RuleRefused:
        checkRefusal(line);
        break;
    case LoadedLine::RuleDuplicate:
    case LoadedLine::RuleFiled:
        checkRule(line);
        break;
    case LoadedLine::UnknownKeyword:
    case LoadedLine::MissingName:
    case LoadedLine::MissingDefinition:
    case LoadedLine::BareDescription:
        checkKeyword(line);
        break;
    case LoadedLine::ScoreTaken:
    case LoadedLine::BareScore:
    case LoadedLine::ScoreRefused:
        checkScore(line);
        break;
    default:
        break;
    }
}

void RuleLint::add(const LoadedLine &line, unsigned int column, Level level,
                   const std::string &code, const std::string &text, const std::string &remedy) {
    findings_.push_back({std::string(line.file),
                         line.number,
                         std::max(column, 1U),
                         level,
                         code,
                         Logger::printable(text),
                         remedy,
                         {},
                         0});
}

void RuleLint::checkBytes(const LoadedLine &line) {
    if (line.isCut) {
        add(line, static_cast<unsigned int>(line.text.size()) + 1, Level::Error, "line-too-long",
            "only " + std::to_string(line.text.size()) + " bytes of the line are read",
            "make it shorter, or more than one rule");
    }
    const std::size_t nul = line.text.find('\0');
    if (nul != std::string_view::npos) {
        add(line, static_cast<unsigned int>(nul) + 1, Level::Error, "nul-byte",
            "the line holds a NUL byte", "write \\x00 in a pattern; save the file as UTF-8");
    }
}

void RuleLint::checkComment(const LoadedLine &line) {
    if (s_lower(line.text.substr(0, kSectionMark.size())) == kSectionMark) {
        add(line, static_cast<unsigned int>(kSectionMark.size()) + 1, Level::Error,
            "section-without-tab", "without a tab behind the bracket this is a comment",
            "put one tab between ']' and the language");
    }
}

void RuleLint::checkRefusal(const LoadedLine &line) {
    add(line, line.faultColumn(), Level::Error, "rule-refused",
        "rule " + quoted(line.name.text) + " is left out: " + s_refusal(line),
        "correct the definition");
    if (line.pattern.has_value() && line.pattern->offset.has_value()) {
        s_showFault(findings_.back(), line.text);
    }
}

void RuleLint::checkDuplicate(const LoadedLine &line) {
    if (line.clashes.empty()) {
        return;
    }
    const Heuristic::RulePlace &first = line.clashes.front().first;
    add(line, line.name.column, Level::Error, "rule-duplicate",
        "rule " + quoted(line.name.text) + " is left out: defined already" +
            (first.file.empty() ? "" : " at " + first.file + ':' + std::to_string(first.line)),
        "rename one of the two, or take it out");
}

void RuleLint::checkRule(const LoadedLine &line) {
    checkDuplicate(line);
    if (line.outcome == LoadedLine::RuleFiled) {
        rules_.push_back({line.rule,
                          {std::string(line.file), line.number, line.name.column},
                          line.definition.column,
                          s_languages(line),
                          line.language == Heuristic::ALL,
                          line.isMetaFault,
                          line.isEval});
    }
    if (line.rule->type() == Heuristic::Rule::Header && !line.isEval) {
        checkHeader(line);
    }
    if (line.isEval) {
        add(line, line.definition.column, Level::Error, "rule-eval",
            "there are no built-in tests for eval: to name; the rule never trips",
            "write a pattern, or take the rule out");
    }
    if (line.isMetaFault) {
        add(line, line.definition.column, Level::Error, "meta-fault",
            "the expression lacks an operand or a parenthesis, or is nested too deeply; "
            "the rule never trips",
            "correct the expression");
    }
}

void RuleLint::checkHeader(const LoadedLine &line) {
    const auto &rule = static_cast<const Heuristic::HeaderRule &>(*line.rule);
    if (!rule.isComplete()) {
        add(line, line.definition.column, Level::Error, "header-no-pattern",
            "the definition lacks a header or a pattern of two bytes at least; the rule never "
            "trips",
            "write HEADER =~ /PATTERN/, or exists:HEADER");
        return;
    }
    const std::string *name = rule.headers().soleName();
    if (name != nullptr && !s_isHeaderName(*name)) {
        add(line, line.definition.column, Level::Error, "header-name",
            "no header can have the name " + quoted(*name) + "; the rule never trips",
            "write the name without a colon, with one of the suffixes :addr, :name and :raw at "
            "most, and "
            "no blank behind exists:");
    }
}

void RuleLint::checkKeyword(const LoadedLine &line) {
    const std::string word(line.keyword.text);
    const unsigned int column = line.keyword.column;
    const std::string lower = s_lower(word);
    if (line.number == 1 && word.rfind(kByteOrderMark, 0) == 0) {
        add(line, column, Level::Error, "byte-order-mark",
            "a byte order mark stands before the first word, so that the line is ignored",
            "save the file without one");
    } else if (line.outcome == LoadedLine::MissingName ||
               line.outcome == LoadedLine::BareDescription) {
        add(line, column, Level::Error, "missing-name",
            quoted(word) + " lacks a name or what belongs behind it; the line is ignored",
            "write KEYWORD NAME TEXT");
    } else if (line.outcome == LoadedLine::MissingDefinition) {
        add(line, line.name.column, Level::Error, "missing-definition",
            quoted(line.name.text) + " has no definition; the line is ignored",
            "write the definition behind the name, on the same line");
    } else if (column > 1 && (lower == "score" || lower == "describe")) {
        add(line, column, Level::Error, "indented-line",
            quoted(word) + " counts at the start of a line only; the line is ignored",
            "take out the white space before it");
    } else {
        const std::string_view meant = s_nearestKeyword(word);
        add(line, column, Level::Error, "unknown-keyword",
            "there is no keyword " + quoted(word) + "; the line is ignored",
            meant.empty() ? "begin the line with header, uri, body, rawbody, full, meta, describe, "
                            "score, or # for a comment"
                          : "did you mean '" + std::string(meant) + "'?");
    }
}

void RuleLint::checkScore(const LoadedLine &line) {
    const std::string name(line.name.text);
    if (line.outcome == LoadedLine::BareScore) {
        add(line, 1, Level::Error, "missing-score",
            "the line lacks a name or a number; it is ignored", "write score NAME NUMBER");
        return;
    }
    if (line.outcome == LoadedLine::ScoreRefused) {
        add(line, line.definition.column, Level::Error, "score-refused", line.failure->message(),
            "write one number");
        return;
    }
    scores_.push_back({name, {std::string(line.file), line.number, line.name.column}});
    constexpr std::size_t kWordLength = std::string_view("score").size();
    if (line.name.column == kWordLength + 1) {
        add(line, line.name.column, Level::Warning, "score-joined",
            "this is read as the score of a rule " + quoted(name), "put a blank behind 'score'");
    }
    if (line.numbers.count == 0) {
        add(line, line.definition.column, Level::Error, "score-unreadable",
            "no number where the score should be; it counts as 0", "write a number such as 1.5");
    } else if (!line.numbers.whole) {
        add(line, line.definition.column, Level::Error, "score-cut",
            "not all of " + quoted(line.definition.text) + " is read as a number",
            "write a number such as 1.5, with a point and nothing behind it");
    }
}

} // namespace Corvane::Cli
