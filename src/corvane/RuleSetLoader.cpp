#include "corvane/RuleSetLoader.h"

#include <algorithm>
#include <filesystem>
#include <limits>
#include <tuple>
#include <unordered_map>

#include "corvane/Failure.h"
#include "host/parser/Text.h"

namespace corvane {

namespace {

using Corvane::Exception;
using Corvane::Ref;
using Corvane::Heuristic::langID;
using Corvane::Heuristic::LoadedLine;
using Corvane::Heuristic::RefRule;
using Corvane::Heuristic::RuleContainer;
using Corvane::Heuristic::RuleList;
using Corvane::Heuristic::RulePlace;
using Corvane::Heuristic::RuleSource;

constexpr RuleKind kKinds[] = {RuleKind::Header,  RuleKind::Uri,  RuleKind::Body,
                               RuleKind::RawBody, RuleKind::Full, RuleKind::Meta};
constexpr std::size_t kShownDigits = 16;

// Keeps each text once.
class Texts {
public:
    // kept must outlive this object; its first entry becomes "".
    explicit Texts(std::vector<std::string> &kept) : kept_(kept) { (void)numberOf(std::string()); }

    std::uint32_t numberOf(const std::string &text) {
        const auto [entry, isNew] =
            numbers_.emplace(text, static_cast<std::uint32_t>(kept_.size()));
        if (isNew) {
            kept_.push_back(text);
        }
        return entry->second;
    }

private:
    std::vector<std::string> &kept_;
    std::unordered_map<std::string, std::uint32_t> numbers_;
};

// As it is hashed: the most significant byte first.
std::string s_lengthBytes(std::size_t length) {
    constexpr unsigned int kBytes = 8;
    constexpr unsigned int kBitsInByte = 8;
    std::string bytes(kBytes, '\0');
    for (auto byte = bytes.rbegin(); byte != bytes.rend(); ++byte) {
        *byte = static_cast<char>(length & std::numeric_limits<unsigned char>::max());
        length >>= kBitsInByte;
    }
    return bytes;
}

bool s_isFileName(const std::string &name) {
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos &&
           name.find('\0') == std::string::npos;
}

void s_requireNames(const RuleSource &source) {
    for (const auto &[name, bytes] : *source.files) {
        if (!s_isFileName(name)) {
            throw LoadError("'" + printable(name) + "' is no name of a file in a directory", name,
                            "", "name rule files as a directory would");
        }
    }
}

std::string s_refusal(const LoadedLine &line) {
    if (line.pattern.has_value()) {
        return printable(line.pattern->reason);
    }
    if (line.failure->message() == "MetaRule::value") {
        return "the expression holds a single & or |, or a byte 7";
    }
    return reasonOf(*line.failure);
}

// Not of descriptions and scores, which lose nothing but words by it.
bool s_isCutDefinition(const LoadedLine &line) {
    return line.isCut &&
           (line.outcome == LoadedLine::RuleRefused || line.outcome == LoadedLine::RuleFiled);
}

std::string s_duplicate(const LoadedLine &line, const std::vector<langID> &languages,
                        const RulePlace &first) {
    std::string names;
    if (line.language == Corvane::Heuristic::ALL) {
        for (const langID language : languages) {
            names += (names.empty() ? " in " : ", ") + std::string(languageName(language));
        }
    }
    std::string text = "defined already" + names;
    if (!first.file.empty()) {
        text += " at " + printable(first.file) + ':' + std::to_string(first.line);
    }
    return text + "; this one is left out" + (names.empty() ? "" : " there");
}

} // namespace

RuleSet RuleSetLoader::load(const std::vector<RuleSource> &sources) {
    RuleSetLoader loader(sources);
    loader.requireSources();
    loader.run();
    return RuleSet(std::move(loader.result_));
}

std::string RuleSetLoader::generationOfNothing() {
    return Corvane::Crypto::Digest().hex().substr(0, kShownDigits);
}

RuleSetLoader::RuleSetLoader(const std::vector<RuleSource> &sources)
    : sources_(sources), result_(std::make_shared<LoadedRules>()) {}

// A missing directory would count as one without rules.
void RuleSetLoader::requireSources() const {
    for (const RuleSource &source : sources_) {
        if (source.files.has_value()) {
            s_requireNames(source);
        } else {
            requireDirectory(source.directory);
        }
    }
}

void RuleSetLoader::run() {
    try {
        result_->scanner = Corvane::Heuristic::Scanner(sources_, *this);
    } catch (const Exception &failure) {
        explain(failure);
    }
    addRules();
    result_->generation = digest_.hex().substr(0, kShownDigits);
}

void RuleSetLoader::explain(const Exception &failure) const {
    const std::string reason = reasonOf(failure);
    if (isOfDirectory(failure)) {
        throw LoadError("cannot load the rules", "", reason,
                        "mend it or take it out of the directory");
    }
    if (file_.empty() || isOfTemporaryFile(failure)) {
        const std::string directory = sources_.empty() ? "" : sources_.front().directory;
        const std::string at = file_.empty() ? directory : file_;
        throw LoadError("cannot load the rules in '" + printable(at) + "'", at, reason, "");
    }
    const std::string name = std::filesystem::path(file_).filename().string();
    if (isEncrypted_ && name.find("cf") == std::string::npos) {
        // Nothing but the path of its directory marks it.
        throw LoadError("cannot read score file '" + printable(file_) + "'", file_,
                        "its path holds \"cf\", so that it is read as encrypted",
                        "load the directory by another path");
    }
    throw unreadableFile(file_, reason);
}

void RuleSetLoader::fileBegins(const std::string &path, bool isEncrypted) {
    file_ = path;
    isEncrypted_ = isEncrypted;
    ++result_->counts.files;
}

void RuleSetLoader::fileUnreadable(const std::string &path, int error) {
    throw unreadableFile(path, systemReason(error));
}

void RuleSetLoader::content(std::string_view bytes) {
    const std::string name = std::filesystem::path(file_).filename().string();
    digest_.add(name);
    digest_.add(std::string_view("\0", 1));
    digest_.add(s_lengthBytes(bytes.size()));
    digest_.add(bytes);
}

void RuleSetLoader::line(const LoadedLine &line) {
    if (s_isCutDefinition(line)) {
        addProblem(ProblemCode::LineCut, line, line.definition.column,
                   "the line is longer than " + std::to_string(line.text.size()) +
                       " bytes; what is behind them is not read");
    }
    switch (line.outcome) {
    case LoadedLine::Description: {
        std::string text(line.definition.text);
        Corvane::stringRightTrim(text);
        descriptions_[std::string(line.name.text)] = text;
        break;
    }
    case LoadedLine::RuleRefused:
        ++result_->counts.refused;
        addProblem(ProblemCode::RuleRefused, line, line.faultColumn(), s_refusal(line));
        break;
    case LoadedLine::RuleDuplicate:
        ++result_->counts.duplicates;
        addClashes(line);
        break;
    case LoadedLine::RuleFiled:
        notePlace(line);
        addClashes(line);
        if (line.isEval) {
            addProblem(ProblemCode::RuleEval, line, line.definition.column,
                       "there are no built-in tests for eval: to name; the rule never trips");
        }
        if (line.isMetaFault) {
            addProblem(ProblemCode::MetaFault, line, line.definition.column,
                       "the expression lacks an operand or a parenthesis, or is nested too deeply; "
                       "the rule never trips");
        }
        break;
    case LoadedLine::ScoreRefused:
        addProblem(ProblemCode::ScoreRefused, line, line.definition.column,
                   reasonOf(*line.failure));
        break;
    case LoadedLine::ScoreTaken:
        if (line.numbers.count == 0) {
            addProblem(ProblemCode::ScoreUnreadable, line, line.definition.column,
                       "no number where the score should be; it counts as 0");
        }
        break;
    default:
        break;
    }
}

void RuleSetLoader::loaded(unsigned int rules, int /*active*/, const std::string &version) {
    result_->origins.resize(rules + 1);
    places_.resize(rules + 1);
    result_->version = version;
}

void RuleSetLoader::addProblem(ProblemCode code, const LoadedLine &line, unsigned int column,
                               const std::string &text) {
    Problem problem;
    problem.code = code;
    problem.file = std::string(line.file);
    problem.line = line.number;
    problem.column = column;
    problem.rule = std::string(line.name.text);
    problem.text = text;
    result_->problems.push_back(std::move(problem));
}

// One problem for each rule that stands in the way: one in all languages may meet several.
void RuleSetLoader::addClashes(const LoadedLine &line) {
    std::vector<std::pair<RulePlace, std::vector<langID>>> byPlace;
    for (const LoadedLine::Clash &clash : line.clashes) {
        const auto same = std::find_if(byPlace.begin(), byPlace.end(), [&clash](const auto &entry) {
            return entry.first.file == clash.first.file && entry.first.line == clash.first.line;
        });
        auto &entry = same != byPlace.end()
                          ? *same
                          : byPlace.emplace_back(clash.first, std::vector<langID>());
        entry.second.push_back(clash.language);
    }
    for (const auto &[first, languages] : byPlace) {
        addProblem(ProblemCode::RuleDuplicate, line, line.name.column,
                   s_duplicate(line, languages, first));
        result_->problems.back().firstFile = first.file;
        result_->problems.back().firstLine = first.line;
    }
}

void RuleSetLoader::notePlace(const LoadedLine &line) {
    const std::size_t ordinal = line.rule->ordinal();
    places_.resize(std::max(places_.size(), ordinal + 1));
    places_[ordinal] = {std::string(line.file), line.number};
}

void RuleSetLoader::addRules() {
    using Corvane::Heuristic::ALL;
    using Corvane::Heuristic::DEFAULT;
    const RuleContainer &container = result_->scanner.rules();
    std::map<unsigned int, Rule> byOrdinal;
    Texts files(result_->files);
    Texts descriptions(result_->descriptions);
    for (int each = DEFAULT; each < ALL; ++each) {
        const auto language = static_cast<langID>(each);
        bool hasRules = false;
        for (const RuleKind kind : kKinds) {
            // As a plain handle, which does not note the access as a possible change.
            const Ref<RuleList> &list =
                container.rules(language, static_cast<Corvane::Heuristic::Rule::Type>(kind));
            hasRules = hasRules || !list->empty();
            for (const RefRule &rule : *list) {
                Rule &entry = byOrdinal[rule->ordinal()];
                describe(entry, *rule);
                entry.languages.push_back(languageName(language));
            }
        }
        if (hasRules) {
            result_->languages.push_back(languageName(language));
        }
    }
    for (auto &[ordinal, rule] : byOrdinal) {
        result_->origins[ordinal] = {files.numberOf(rule.file), rule.line,
                                     descriptions.numberOf(rule.description)};
        result_->counts.active += rule.active ? 1U : 0U;
        result_->rules.push_back(std::move(rule));
        result_->ordinals.push_back(ordinal);
    }
    result_->counts.loaded = result_->rules.size();
}

void RuleSetLoader::describe(Rule &entry, const Corvane::Heuristic::Rule &rule) const {
    if (!entry.languages.empty()) {
        return;
    }
    entry.name = rule.name();
    entry.kind = static_cast<RuleKind>(rule.type());
    entry.score = scoreOf(rule);
    entry.active = rule.active();
    const auto description = descriptions_.find(rule.name());
    entry.description = description != descriptions_.end() ? description->second : std::string();
    std::tie(entry.file, entry.line) = places_[rule.ordinal()];
}

} // namespace corvane
