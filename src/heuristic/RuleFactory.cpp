#include "heuristic/RuleFactory.h"

#include <algorithm>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "heuristic/Failure.h"
#include "heuristic/LoadObserver.h"
#include "heuristic/LogRecords.h"
#include "heuristic/MetaRule.h"
#include "heuristic/NumberStream.h"
#include "heuristic/PatternFaults.h"
#include "heuristic/WatchedRuleList.h"
#include "host/parser/Buffer.h"
#include "host/parser/Lasting.h"
#include "host/parser/Logger.h"
#include "host/parser/Text.h"

namespace Corvane::Heuristic {

namespace {

constexpr std::string_view kSectionMarker = "#[lang section]\t";
constexpr std::string_view kDescribe = "describe";
constexpr std::string_view kScore = "score";
constexpr std::string_view kEval = "eval:";
constexpr const char *kDefaultScore = "1.0";

const std::map<std::string, Rule::Type> &s_keywords() {
    static const auto &s_table = lasting(std::map<std::string, Rule::Type>{
        {"header", Rule::Header},
        {"uri", Rule::Uri},
        {"body", Rule::Body},
        {"rawbody", Rule::RawBody},
        {"full", Rule::Full},
        {"meta", Rule::Meta},
    });
    return s_table;
}

const std::map<std::string, langID> &s_languages() {
    static const auto &s_table = lasting(std::map<std::string, langID>{
        {"DEFAULT", DEFAULT},
        {"CN", CN},
        {"JP", JP},
        {"KO", KO},
        {"RU", RU},
        {"TH", TH},
        {"ALL", ALL},
    });
    return s_table;
}

// Where the first word of a text begins and ends, and where the rest begins; -1 for what is
// missing.
struct Words {
    int name = -1;
    int nameEnd = -1;
    int rest = -1;
};

Words s_words(std::string_view text) {
    const Buffer buffer(text.data(), static_cast<unsigned int>(text.size()), true);
    Words words;
    words.name = buffer.findNonWhiteSpace(0);
    words.nameEnd = words.name < 0 ? -1 : buffer.findWhiteSpace(words.name);
    words.rest = words.nameEnd < 0 ? -1 : buffer.findNonWhiteSpace(words.nameEnd);
    return words;
}

// The piece of a text from one offset to another (-1: its end), which lies in line.
LinePart s_part(const LoadedLine &line, std::string_view text, int from, int to) {
    const auto begin = static_cast<std::size_t>(from);
    const auto end = to < 0 ? text.size() : static_cast<std::size_t>(to);
    const std::string_view piece = text.substr(begin, end - begin);
    return {piece, static_cast<unsigned int>(piece.data() - line.text.data()) + 1};
}

// Reads name and definition of a statement behind its keyword, as far as they are there; answers
// whether they both are. The definition keeps its inner and trailing white space.
bool s_takeStatement(LoadedLine &line, std::size_t skipped) {
    const std::string_view text = line.text.substr(skipped);
    const Words words = s_words(text);
    if (words.name >= 0) {
        line.name = s_part(line, text, words.name, words.nameEnd);
    }
    if (words.rest >= 0) {
        line.definition = s_part(line, text, words.rest, -1);
    }
    return words.rest >= 0;
}

// Whether text begins with word, whatever the case of either.
bool s_startsWith(std::string_view text, std::string_view word) {
    return text.size() >= word.size() &&
           std::equal(word.begin(), word.end(), text.begin(),
                      [](char a, char b) { return toLowerAscii(a) == toLowerAscii(b); });
}

// How many numbers of a score are read, and whether nothing else stands there.
LoadedLine::Numbers s_numbers(std::string_view text) {
    constexpr unsigned int kMostNumbers = 4;
    LoadedLine::Numbers numbers;
    NumberStream all{std::string(text)};
    for (float number = 0.0F; numbers.count < kMostNumbers && all >> number;) {
        ++numbers.count;
    }
    NumberStream words{std::string(text)};
    unsigned int count = 0;
    for (std::string word; words >> word; ++count) {
        NumberStream one(word);
        float number = 0.0F;
        numbers.whole =
            numbers.whole && one >> number && one.peek() == std::istream::traits_type::eof();
    }
    numbers.whole = numbers.whole && count == numbers.count;
    return numbers;
}

bool s_isEval(const Rule &rule) {
    return rule.type() != Rule::Uri && rule.type() != Rule::Meta &&
           rule.value().compare(0, kEval.size(), kEval) == 0;
}

// The rules of one language by name; where several kinds have one of a name, that of the kind that
// is searched first.
using RulesByName = std::unordered_map<std::string, RefRule>;

RulesByName s_byName(const RuleContainer &container, langID language) {
    RulesByName rules;
    for (unsigned int kind = Rule::Header; kind <= Rule::Meta; ++kind) {
        for (const RefRule &rule : *container.rules(language, static_cast<Rule::Type>(kind))) {
            if (!rule.isNull()) {
                rules.emplace(rule->name(), rule);
            }
        }
    }
    return rules;
}

// Gives the rules that it is applied to the scores of their names.
class ScoreAssigner {
public:
    ScoreAssigner(const std::map<std::string, RefScore> &scores, const RefScore &otherwise)
        : scores_(scores), otherwise_(otherwise) {}

    void operator()(const RefRule &rule) const {
        if (rule.isNull()) {
            return;
        }
        const auto found = scores_.find(rule->name());
        if (found != scores_.end()) {
            rule->score(found->second);
        } else if (!rule->metasubrule()) {
            rule->score(otherwise_);
        }
    }

private:
    const std::map<std::string, RefScore> &scores_;
    const RefScore &otherwise_;
};

} // namespace

void RuleFileParser::parseLine(LoadedLine &line, langID &language) {
    const std::string_view text = line.text;
    line.language = language;
    if (text.empty() || text.front() == '\0') {
        return;
    }
    if (text.front() == '#') {
        parseComment(line, language);
    } else if (s_startsWith(text, kDescribe)) {
        parseDescription(line);
    } else if (s_startsWith(text, kScore)) {
        line.keyword = {text.substr(0, kScore.size()), 1};
        takeScore(line, kScore.size());
    } else {
        buildRule(line);
        place(line);
    }
}

// An unknown name stands for the default language.
void RuleFileParser::parseComment(LoadedLine &line, langID &language) {
    line.outcome = LoadedLine::Comment;
    if (!s_startsWith(line.text, kSectionMarker)) {
        return;
    }
    std::string name(line.text.substr(kSectionMarker.size()));
    stringRightTrim(name);
    const auto found = s_languages().find(name);
    language = found == s_languages().end() ? DEFAULT : found->second;
    line.outcome = found == s_languages().end() ? LoadedLine::UnknownSection : LoadedLine::Section;
    line.language = language;
    line.keyword = {line.text.substr(0, kSectionMarker.size()), 1};
    line.name = {line.text.substr(kSectionMarker.size(), name.size()),
                 static_cast<unsigned int>(kSectionMarker.size()) + 1};
}

// Descriptions are for whoever reads the file; no rule is given one, and the line is no rule line
// either.
void RuleFileParser::parseDescription(LoadedLine &line) {
    line.keyword = {line.text.substr(0, kDescribe.size()), 1};
    line.outcome = s_takeStatement(line, kDescribe.size()) ? LoadedLine::Description
                                                           : LoadedLine::BareDescription;
}

void RuleFileParser::place(LoadedLine &line) {
    if (line.rule.isNull()) {
        return;
    }
    bool filed = false;
    const int last = line.language == ALL ? TH : line.language;
    for (int each = line.language == ALL ? DEFAULT : line.language; each <= last; ++each) {
        filed = placeIn(line, static_cast<langID>(each)) || filed;
    }
    line.outcome = filed ? LoadedLine::RuleFiled : LoadedLine::RuleDuplicate;
}

bool RuleFileParser::placeIn(LoadedLine &line, langID language) {
    const RefRule &rule = line.rule;
    RefRuleList &list = container_.rules(language, rule->type());
    Filed &filed = filedIn(list, language, rule->type());
    const auto [entry, isNew] = filed.names.emplace(rule->name(), rule->ordinal());
    if (isNew) {
        list.add(rule);
        ++filed.accesses;
        return true;
    }
    Logger::instance(false).log(kLogDuplicateRule, kLogLevel, "%s", rule->name().c_str());
    if (observer_ != nullptr) {
        line.clashes.push_back({language, placeOf(entry->second)});
    }
    return false;
}

RuleFileParser::Filed &RuleFileParser::filedIn(const RefRuleList &list, langID language,
                                               Rule::Type kind) {
    Filed &filed = filed_[{language, kind}];
    const RuleList &rules = list.peek();
    const auto *watched = dynamic_cast<const WatchedRuleList *>(&rules);
    const bool known = watched != nullptr && !filed.list.isNull() &&
                       &filed.list.peek() == watched && filed.accesses == watched->accesses();
    if (!known) {
        filed.list = RefRuleList(list, false);
        filed.accesses = watched != nullptr ? watched->accesses() : 0;
        filed.names.clear();
        for (const RefRule &rule : rules) {
            if (!rule.isNull()) {
                filed.names.emplace(rule->name(), rule->ordinal());
            }
        }
    }
    return filed;
}

RefRule RuleFileParser::parseRule(const char *line, int length) {
    LoadedLine statement;
    statement.text = {line, length > 0 ? static_cast<std::size_t>(length) : 0U};
    buildRule(statement);
    return statement.rule;
}

void RuleFileParser::buildRule(LoadedLine &line) {
    const Words words = s_words(line.text);
    if (words.name < 0) {
        return;
    }
    line.keyword = s_part(line, line.text, words.name, words.nameEnd);
    std::string keyword;
    copyStringToLower(line.keyword.text.data(), keyword, 0, line.keyword.text.size());
    const auto kind = s_keywords().find(keyword);
    if (kind == s_keywords().end()) {
        line.outcome = LoadedLine::UnknownKeyword;
    } else if (words.nameEnd < 0) {
        line.outcome = LoadedLine::MissingName;
    } else if (s_takeStatement(line, static_cast<std::size_t>(words.nameEnd))) {
        buildRule(line, kind->second);
    } else {
        line.outcome =
            line.name.column == 0 ? LoadedLine::MissingName : LoadedLine::MissingDefinition;
    }
}

void RuleFileParser::buildRule(LoadedLine &line, Rule::Type kind) {
    try {
        RefRule rule(kind, std::string(line.name.text));
        rule->value(std::string(line.definition.text));
        rule->ordinal(++ruleCount_);
        line.rule = rule;
        line.outcome = LoadedLine::RuleFiled;
        line.isEval = s_isEval(*rule);
        if (observer_ != nullptr) {
            notePlace(line);
            noteMetaFault(line);
        }
    } catch (const Exception &failure) {
        Exception located(failure);
        if (!file_.empty()) {
            located.stringParameter(file_ + ':' + std::to_string(line_));
        }
        Logger::instance(false).log(kLogRuleRefused, kLogLevel, "%s", located.asString().c_str());
        line.outcome = LoadedLine::RuleRefused;
        if (observer_ != nullptr) {
            line.failure = failure;
            notePatternFault(line, kind);
        }
    }
}

// Whether an expression has a value depends on its form alone, so that it shows with an empty match
// set.
void RuleFileParser::noteMetaFault(LoadedLine &line) {
    if (line.rule->type() != Rule::Meta) {
        return;
    }
    try {
        (void)static_cast<const MetaRule &>(*line.rule).evaluate(RefMatches::create());
    } catch (const Exception &failure) {
        line.isMetaFault = true;
        line.failure = failure;
    }
}

void RuleFileParser::notePlace(const LoadedLine &line) {
    places_.resize(ruleCount_);
    places_.back() = {files_.size(), line.number, line.name.column};
}

RulePlace RuleFileParser::placeOf(unsigned int ordinal) const {
    if (ordinal == 0 || ordinal > places_.size() || places_[ordinal - 1].file == 0) {
        return {};
    }
    const Position &position = places_[ordinal - 1];
    return {files_[position.file - 1], position.line, position.column};
}

void RuleFileParser::parseScore(const char *text, int length) {
    LoadedLine line;
    line.text = {text, length > 0 ? static_cast<std::size_t>(length) : 0U};
    takeScore(line, 0);
}

void RuleFileParser::takeScore(LoadedLine &line, std::size_t skipped) {
    line.outcome = LoadedLine::BareScore;
    if (!s_takeStatement(line, skipped)) {
        return;
    }
    try {
        scores_[std::string(line.name.text)] = RefScore(std::string(line.definition.text));
        line.outcome = LoadedLine::ScoreTaken;
        if (observer_ != nullptr) {
            line.numbers = s_numbers(line.definition.text);
        }
    } catch (const Exception &failure) {
        Logger::instance(false).log(kLogScoreRefused, kLogLevel, "%s", failure.asString().c_str());
        line.outcome = LoadedLine::ScoreRefused;
        line.failure = failure;
    }
}

void RuleFileParser::activateMetaSubrules() {
    for (int each = DEFAULT; each < ALL; ++each) {
        const auto language = static_cast<langID>(each);
        const RulesByName rules = s_byName(container_, language);
        for (const RefRule &rule : *container_.metaRules(language)) {
            if (rule.isNull()) {
                continue;
            }
            for (const std::string &name : static_cast<const MetaRule &>(*rule).names()) {
                const auto found = rules.find(name);
                if (found != rules.end()) {
                    found->second->used(true);
                }
            }
        }
    }
}

void RuleFileParser::assignScores() {
    const RefScore otherwise{std::string(kDefaultScore)};
    const ScoreAssigner assign(scores_, otherwise);
    for (unsigned int kind = Rule::Header; kind <= Rule::Meta; ++kind) {
        for (int language = DEFAULT; language < ALL; ++language) {
            const RefRuleList &list =
                container_.rules(static_cast<langID>(language), static_cast<Rule::Type>(kind));
            std::for_each(list->begin(), list->end(), assign);
        }
    }
}

} // namespace Corvane::Heuristic
