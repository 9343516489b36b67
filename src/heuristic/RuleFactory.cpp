#include "heuristic/RuleFactory.h"

#include <algorithm>
#include <array>
#include <list>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "heuristic/Failure.h"
#include "heuristic/LogRecords.h"
#include "heuristic/MetaRule.h"
#include "heuristic/WatchedRuleList.h"
#include "host/crypto/DecrypterMediaOut.h"
#include "host/parser/Buffer.h"
#include "host/parser/File.h"
#include "host/parser/Logger.h"
#include "host/parser/Media.h"
#include "host/parser/Text.h"

namespace Corvane::Heuristic {

namespace {

constexpr const char *kFile = "RuleFactory";
constexpr unsigned int kParseLine = 328;
constexpr std::string_view kSectionMarker = "#[lang section]\t";
constexpr std::string_view kDescribe = "describe";
constexpr std::string_view kScore = "score";
constexpr const char *kTemporaryPattern = "/var/spool/tmp/ruleXXXXXX";
constexpr unsigned int kVectorBytes = 16;
constexpr unsigned int kPieceBytes = 512;
constexpr const char *kDefaultScore = "1.0";

const std::map<std::string, Rule::Type> &s_keywords() {
    static const std::map<std::string, Rule::Type> s_table = {
        {"header", Rule::Header},   {"uri", Rule::Uri},   {"body", Rule::Body},
        {"rawbody", Rule::RawBody}, {"full", Rule::Full}, {"meta", Rule::Meta},
    };
    return s_table;
}

const std::map<std::string, langID> &s_languages() {
    static const std::map<std::string, langID> s_table = {
        {"DEFAULT", DEFAULT}, {"CN", CN}, {"JP", JP},   {"KO", KO},
        {"RU", RU},           {"TH", TH}, {"ALL", ALL},
    };
    return s_table;
}

bool s_holds(const File::Path &directory, const char *name) {
    return File::Path(directory.asString() + name).exists();
}

Buffer s_view(const char *text, int length) {
    return {text, length > 0 ? static_cast<unsigned int>(length) : 0U, true};
}

std::string s_slice(const char *text, int from, int to) {
    return {text + from, static_cast<std::size_t>(to - from)};
}

// Whether text begins with word, whatever the case of either.
bool s_startsWith(std::string_view text, std::string_view word) {
    return text.size() >= word.size() &&
           std::equal(word.begin(), word.end(), text.begin(),
                      [](char a, char b) { return toLowerAscii(a) == toLowerAscii(b); });
}

// An unknown name stands for the default language.
langID s_section(std::string_view text) {
    std::string name(text);
    stringRightTrim(name);
    const auto found = s_languages().find(name);
    return found == s_languages().end() ? DEFAULT : found->second;
}

// The rules of one language by name; where several kinds have one of a name, that of the kind that is searched first.
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

// Names the file that is read, for as long as it is. The file that is named already keeps its name
// while its decrypted copy is read: that one means nothing to whoever wrote the rules.
class Reading {
public:
    Reading(std::string &current, const std::string &file)
        : current_(current), isOuter_(current.empty()) {
        if (isOuter_) {
            current_ = file;
        }
    }
    Reading(const Reading &) = delete;
    Reading &operator=(const Reading &) = delete;
    ~Reading() {
        if (isOuter_) {
            current_.clear();
        }
    }

private:
    std::string &current_;
    bool isOuter_;
};

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

RuleFileParser::RuleFileParser(RuleContainer &container)
    : encrypted_(false), ruleCount_(0), container_(container), line_(0) {}

RuleFileParser::RuleFileParser(const File::Path &directory, RuleContainer &container)
    : RuleFileParser(container) {
    File::Selector selector(directory, *this);
    const bool third = s_holds(directory, "/heuristic.cf3");
    const bool second = s_holds(directory, "/heuristic.cf2");
    encrypted_ = s_holds(directory, "/version");
    std::list<std::string> patterns;
    if (third) {
        patterns = {"*.cf3", "*.cf2"};
    } else {
        patterns = {second ? "*.cf2" : "*.cf"};
    }
    // Last, so that score files win over score lines in rule files.
    patterns.emplace_back("*.score");
    selector.patterns(patterns);
    selector.start();
    activateMetaSubrules();
    assignScores();
}

RuleFileParser::~RuleFileParser() = default;

const Buffer &RuleFileParser::key() {
    static constexpr std::string_view kKey = "4402MeridianRd,EastDepot,K7qz2Tw";
    static const Buffer s_key(kKey.data(), static_cast<unsigned int>(kKey.size()), true);
    return s_key;
}

int RuleFileParser::process(const File::Path &file) {
    parse(file);
    return 0;
}

void RuleFileParser::parse(const File::Path &file) {
    const Reading reading(file_, file.asString());
    // The whole path counts, so that a directory of that name takes its score files along.
    if (encrypted_ && file.asString().find("cf") != std::string::npos) {
        parseEncrypted(file);
    } else {
        parse(file.asString());
    }
}

void RuleFileParser::parseEncrypted(const File::Path &file) {
    FileMediaIn in(file.asString());
    TempFileMediaOut plain(kTemporaryPattern, true);
    Buffer piece;
    in.read(piece, kVectorBytes);
    Crypto::DecrypterMediaOut decrypter(Crypto::Cipher::kAes256Cbc, key(), piece);
    decrypter.attach(plain);
    for (in.read(piece, kPieceBytes); !piece.isEmpty(); in.read(piece, kPieceBytes)) {
        decrypter.write(piece);
    }
    decrypter.end();
    plain.end();
    const Ref<TempFile> temporary = plain.tmpfile();
    plain.close();
    parse(temporary->name());
}

void RuleFileParser::parse(const std::string &fileName) {
    try {
        File::basic_ifstream<char> stream(File::Path(fileName), std::ios_base::in);
        if (!stream.is_open()) {
            return;
        }
        std::array<char, kMaxLineBytes> buffer{};
        langID language = DEFAULT;
        const Reading reading(file_, fileName);
        line_ = 0;
        while (!stream.eof()) {
            const int consumed = File::getline(stream, buffer.data(), kMaxLineBytes);
            if (consumed == 0) {
                break;
            }
            ++line_;
            parseLine(buffer.data(), consumed - 1, language);
        }
    } catch (const Exception &failure) {
        wrap(failure, "RuleFileParser::process", kFile, kParseLine);
    }
}

void RuleFileParser::parseLine(const char *line, int length, langID &language) {
    const std::string_view text(line, static_cast<std::size_t>(length));
    if (line[0] == '\0') {
        return;
    }
    if (line[0] == '#') {
        if (s_startsWith(text, kSectionMarker)) {
            language = s_section(text.substr(kSectionMarker.size()));
        }
    } else if (s_startsWith(text, kDescribe)) {
        // Descriptions are for whoever reads the file; no rule is given one, and the line is no
        // rule line either.
        return;
    } else if (s_startsWith(text, kScore)) {
        const auto skipped = static_cast<int>(kScore.size());
        parseScore(line + skipped, length - skipped);
    } else {
        place(parseRule(line, length), language);
    }
}

void RuleFileParser::place(const RefRule &rule, langID language) {
    if (rule.isNull()) {
        return;
    }
    if (language != ALL) {
        placeIn(rule, language);
        return;
    }
    for (int each = DEFAULT; each < ALL; ++each) {
        placeIn(rule, static_cast<langID>(each));
    }
}

void RuleFileParser::placeIn(const RefRule &rule, langID language) {
    RefRuleList &list = container_.rules(language, rule->type());
    Filed &filed = filedIn(list, language, rule->type());
    if (filed.names.insert(rule->name()).second) {
        list.add(rule);
        ++filed.accesses;
    } else {
        Logger::instance(false).log(kLogDuplicateRule, kLogLevel, "%s", rule->name().c_str());
    }
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
                filed.names.insert(rule->name());
            }
        }
    }
    return filed;
}

RefRule RuleFileParser::parseRule(const char *line, int length) {
    const Buffer buffer = s_view(line, length);
    const int start = buffer.findNonWhiteSpace(0);
    const int end = start < 0 ? -1 : buffer.findWhiteSpace(start);
    if (end < 0) {
        return {};
    }
    std::string keyword;
    copyStringToLower(line, keyword, static_cast<unsigned long>(start),
                      static_cast<unsigned long>(end - start));
    const auto kind = s_keywords().find(keyword);
    if (kind == s_keywords().end()) {
        return {};
    }
    const TypeAndValue statement = tokenize(line + end, length - end);
    if (statement.isNull()) {
        return {};
    }
    try {
        RefRule rule(kind->second, statement.type());
        rule->value(statement.value());
        rule->ordinal(++ruleCount_);
        return rule;
    } catch (const Exception &failure) {
        Exception located(failure);
        if (!file_.empty()) {
            located.stringParameter(file_ + ':' + std::to_string(line_));
        }
        Logger::instance(false).log(kLogRuleRefused, kLogLevel, "%s", located.asString().c_str());
        return {};
    }
}

void RuleFileParser::parseScore(const char *text, int length) {
    try {
        const TypeAndValue statement = tokenize(text, length);
        if (!statement.isNull()) {
            scores_[statement.type()] = RefScore(statement.value());
        }
    } catch (const Exception &failure) {
        Logger::instance(false).log(kLogScoreRefused, kLogLevel, "%s", failure.asString().c_str());
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

// The first word and the rest, which keeps its inner and trailing white space; null where either is
// missing.
TypeAndValue RuleFileParser::tokenize(const char *text, int length) const {
    const Buffer buffer = s_view(text, length);
    const int name = buffer.findNonWhiteSpace(0);
    const int nameEnd = name < 0 ? -1 : buffer.findWhiteSpace(name);
    const int value = nameEnd < 0 ? -1 : buffer.findNonWhiteSpace(nameEnd);
    if (value < 0) {
        return {};
    }
    return {s_slice(text, name, nameEnd), s_slice(text, value, length)};
}

} // namespace Corvane::Heuristic
