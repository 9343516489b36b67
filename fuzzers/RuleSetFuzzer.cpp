#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <string_view>

#include "Require.h"
#include "RuleChecks.h"
#include "heuristic/LoadObserver.h"
#include "heuristic/MetaRule.h"
#include "heuristic/RuleFactory.h"
#include "heuristic/Scanner.h"
#include "host/parser/Exception.h"
#include "support/TempDir.h"

namespace {

using namespace Corvane;
using namespace Corvane::Heuristic;

constexpr std::size_t kSettingsBytes = 3;
constexpr std::array<const char *, 5> kFiles = {"a.cf", "b.cf2", "c.cf3", "d.score", "README"};
constexpr std::string_view kFileEnd = "\n%%\n";

// The first byte chooses the marker files; the rest of the text is cut into the files.
void s_write(const TempDir &directory, unsigned int markers, const std::string &text) {
    if ((markers & 1U) != 0) {
        directory.write("heuristic.cf2", "");
    }
    if ((markers & 2U) != 0) {
        directory.write("heuristic.cf3", "");
    }
    std::size_t from = 0;
    for (const char *file : kFiles) {
        const std::size_t end = std::min(text.find(kFileEnd, from), text.size());
        directory.write(file, text.substr(from, end - from));
        from = end + kFileEnd.size();
        if (from > text.size()) {
            break;
        }
    }
}

template <class Visit>
void s_forEachList(const RuleContainer &rules, Visit visit) {
    for (int language = DEFAULT; language < ALL; ++language) {
        for (unsigned int kind = Rule::Header; kind <= Rule::Meta; ++kind) {
            visit(static_cast<langID>(language), static_cast<Rule::Type>(kind),
                  rules.rules(static_cast<langID>(language), static_cast<Rule::Type>(kind)));
        }
    }
}

// Everything that a set says, to compare two of them.
std::string s_listing(const RuleContainer &rules) {
    std::ostringstream text;
    s_forEachList(rules, [&text](langID language, Rule::Type kind, const RefRuleList &list) {
        for (const RefRule &rule : *list) {
            text << language << ' ' << kind << ' ' << rule->name() << ' ' << rule->ordinal() << ' '
                 << rule->active() << ' ' << rule->value();
            if (!rule->score().isNull()) {
                text << ' ' << rule->score()->value();
            }
            text << '\n';
        }
    });
    return text.str();
}

void s_requireRule(const RuleContainer &rules, langID language, const RefRule &rule) {
    require(!rule->name().empty() && !rule->value().empty(), "a rule has name and value");
    require(rule->metasubrule() || !rule->score().isNull(), "rules but meta sub-rules have scores");
    const RefRule any = rules.find(rule->name(), language, false);
    require(any == rule && any->type() <= rule->type(), "find answers the first kind");
    const RefRule pattern = rules.find(rule->name(), language, true);
    require(pattern.isNull() == (any->type() > Rule::RawBody), "find tells pattern kinds apart");
}

void s_requireSet(const Scanner &scanner) {
    const RuleContainer &rules = scanner.rules();
    s_forEachList(rules, [&](langID language, Rule::Type kind, const RefRuleList &list) {
        std::set<std::string> names;
        unsigned int last = 0;
        for (const RefRule &rule : *list) {
            require(rule->type() == kind, "a list holds one kind");
            require(names.insert(rule->name()).second, "a name stands once in a list");
            require(rule->ordinal() > last, "rules stand in the order of loading");
            last = rule->ordinal();
            s_requireRule(rules, language, rule);
        }
        require(last <= scanner.ruleCount(), "ordinals are counted");
        require(rules.find("", language, false).isNull(), "no rule has an empty name");
    });
}

template <class Call>
void s_requireThrows(int code, Call call) {
    try {
        call();
    } catch (const Exception &failure) {
        require(failure.code() == code, "failures have their code");
        return;
    }
    require(false, "what is no language or kind throws");
}

void s_requireRefusals(const RuleContainer &rules) {
    s_requireThrows(Exception::kGeneral, [&] { rules.metaRules(ALL); });
    s_requireThrows(Exception::kGeneral, [&] { rules.find("A", ALL, false); });
    s_requireThrows(Exception::kUnknownEnumerator, [&] { rules.rules(DEFAULT, Rule::None); });
}

// Some rules of one language, chosen by the bits of the mask, as if a message had tripped them.
RefMatches s_matches(const RuleContainer &rules, langID language, unsigned int mask) {
    constexpr unsigned int kBits = 8;
    RefMatches matches = RefMatches::create();
    for (unsigned int kind = Rule::Header; kind < Rule::Meta; ++kind) {
        for (const RefRule &rule : *rules.rules(language, static_cast<Rule::Type>(kind))) {
            if (((mask >> (rule->ordinal() % kBits)) & 1U) != 0) {
                matches.add(rule);
            }
        }
    }
    return matches;
}

void s_requireMeta(const Scanner &scanner, langID language, unsigned int mask,
                   unsigned int percent) {
    const RuleContainer &rules = scanner.rules();
    const RefRuleList &list = rules.metaRules(language);
    for (const RefRule &rule : *list) {
        for (const std::string &name : static_cast<const MetaRule &>(*rule).names()) {
            const RefRule part = rules.find(name, language, false);
            require(part.isNull() || part->active(), "parts of meta rules are active");
        }
    }
    RefMatches matches = s_matches(rules, language, mask);
    RefMatches again = s_matches(rules, language, mask);
    const std::size_t before = matches->size();
    const unsigned int cutoff = scanner.getordinalCutoff(percent);
    MetaCheck(list, matches, cutoff, false).check();
    MetaCheck(list, again, cutoff, false).check();
    require(matches->size() <= before + list->size(), "a meta rule counts once");
    require(std::equal(matches->begin(), matches->end(), again->begin(), again->end()),
            "the same rules trip again");
    requireScore(matches);
}

// Requires of each line that its pieces stand where they are said to.
class Watcher final : public LoadObserver {
public:
    void content(std::string_view bytes) override {
        bytes_ = bytes;
        next_ = 0;
    }

    void line(const LoadedLine &line) override {
        require(line.offset >= next_, "lines come in their order");
        require(bytes_.substr(line.offset, line.text.size()) == line.text, "lines are of the file");
        next_ = line.offset + 1;
        for (const LinePart *part : {&line.keyword, &line.name, &line.definition}) {
            require(part->column == 0 ||
                        line.text.substr(part->column - 1, part->text.size()) == part->text,
                    "pieces are of the line");
        }
        require(line.faultColumn() >= 1 && line.faultColumn() <= line.text.size() + 1,
                "a fault lies in the line");
        filed_ += line.outcome == LoadedLine::RuleFiled || line.outcome == LoadedLine::RuleDuplicate
                      ? 1U
                      : 0U;
    }

    unsigned int built() const { return filed_; }

private:
    std::string_view bytes_;
    std::size_t next_ = 0;
    unsigned int filed_ = 0;
};

// Requires that the same files in memory, under the eyes of an observer, make the same set.
void s_requireSameInMemory(const TempDir &directory, const Scanner &scanner) {
    RuleSource source{directory.path(), std::map<std::string, std::string>()};
    for (const auto &entry : std::filesystem::directory_iterator(directory.path())) {
        (*source.files)[entry.path().filename().string()] = TempDir::read(entry.path().string());
    }
    Watcher watcher;
    const Scanner again({source}, watcher);
    require(watcher.built() == scanner.ruleCount(), "each rule built is told");
    require(s_listing(scanner.rules()) == s_listing(again.rules()), "memory gives the same set");
}

} // namespace

// The first byte chooses marker files, the second the rules that have tripped, the third the
// percentage of meta rules that are tried; the rest are the files of a rule set, between lines
// "%%".
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static const bool s_silent = (silenceLog(), true);
    require(s_silent, "the log is silent");
    if (size < kSettingsBytes) {
        return 0;
    }
    const TempDir directory;
    s_write(directory, data[0],
            {reinterpret_cast<const char *>(data) + kSettingsBytes, size - kSettingsBytes});
    const Scanner scanner{File::Path(directory.path())};
    RuleContainer again;
    const RuleFileParser parser(File::Path(directory.path()), again);
    require(parser.ruleCount() == scanner.ruleCount(), "a set loads with the same count again");
    require(s_listing(scanner.rules()) == s_listing(again), "a set loads the same again");
    s_requireSameInMemory(directory, scanner);
    s_requireSet(scanner);
    s_requireRefusals(scanner.rules());
    for (int language = DEFAULT; language < ALL; ++language) {
        s_requireMeta(scanner, static_cast<langID>(language), data[1], data[2]);
    }
    return 0;
}
