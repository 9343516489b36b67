#include "corvane/RuleSet.h"

#include <stdexcept>
#include <utility>

#include "corvane/LoadedRules.h"
#include "corvane/MessageExplanation.h"
#include "corvane/MessageScan.h"
#include "corvane/RuleSetLoader.h"
#include "host/parser/Lasting.h"

namespace corvane {

namespace {

using Corvane::Heuristic::RuleSource;

// What every set without rules that was not loaded shares.
const std::shared_ptr<const LoadedRules> &s_nothing() {
    static const auto &s_loaded = Corvane::lasting([] {
        auto loaded = std::make_shared<LoadedRules>();
        loaded->generation = RuleSetLoader::generationOfNothing();
        return std::shared_ptr<const LoadedRules>(loaded);
    }());
    return s_loaded;
}

} // namespace

RuleSet::RuleSet() : loaded_(s_nothing()) {}

RuleSet::RuleSet(std::shared_ptr<const LoadedRules> loaded) noexcept : loaded_(std::move(loaded)) {}

RuleSet RuleSet::load(const std::string &directory) {
    return load(std::vector<std::string>{directory});
}

RuleSet RuleSet::load(std::initializer_list<std::string> directories) {
    return load(std::vector<std::string>(directories));
}

RuleSet RuleSet::load(const std::vector<std::string> &directories) {
    std::vector<RuleSource> sources;
    sources.reserve(directories.size());
    for (const std::string &directory : directories) {
        sources.push_back({directory, {}});
    }
    return RuleSetLoader::load(sources);
}

RuleSet RuleSet::fromMemory(const std::map<std::string, std::string> &files) {
    return RuleSetLoader::load({{"", files}});
}

RuleSet RuleSet::fromFiles(const std::vector<RuleFiles> &directories) {
    std::vector<RuleSource> sources;
    sources.reserve(directories.size());
    for (const RuleFiles &files : directories) {
        sources.push_back({files.directory, files.files});
    }
    return RuleSetLoader::load(sources);
}

Verdict RuleSet::scan(std::string_view message, const ScanOptions &options) const {
    return MessageScan(*loaded_, options).scan(message);
}

Verdict RuleSet::scan(std::string_view message, const ScanOptions &options,
                      RuleProfile &profile) const {
    if (!profile.isOf(*loaded_)) {
        throw std::invalid_argument("the profile is of another rule set; make one of this set");
    }
    return MessageScan(*loaded_, options, &profile).scan(message);
}

Explanation RuleSet::explain(std::string_view message, const ScanOptions &options,
                             const std::vector<std::string> &names) const {
    return MessageExplanation(*loaded_, options).explain(message, names);
}

bool RuleSet::empty() const noexcept {
    return loaded_->rules.empty();
}

std::size_t RuleSet::size() const noexcept {
    return loaded_->rules.size();
}

const RuleCounts &RuleSet::counts() const noexcept {
    return loaded_->counts;
}

const std::vector<Rule> &RuleSet::rules() const noexcept {
    return loaded_->rules;
}

const std::vector<Problem> &RuleSet::problems() const noexcept {
    return loaded_->problems;
}

const std::vector<std::string_view> &RuleSet::languages() const noexcept {
    return loaded_->languages;
}

const std::string &RuleSet::version() const noexcept {
    return loaded_->version;
}

const std::string &RuleSet::generation() const noexcept {
    return loaded_->generation;
}

} // namespace corvane
