#include "Reloader.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <exception>
#include <memory>
#include <utility>

#include <malloc.h>

#include "report/SavedSets.h"

namespace Corvane::Milter {

namespace {

// Free memory is given back first, which would pass for some that is in use.
std::size_t s_resident() {
    malloc_trim(0);
    return residentBytes();
}

void s_require(std::size_t bytes, std::size_t most, const char *how) {
    constexpr unsigned int kMebibyteBits = 20;
    if (most != 0 && bytes > most) {
        throw MemoryError(
            std::string("the new rules ") + how + " " + std::to_string(bytes >> kMebibyteBits) +
            " MiB, and limits.memory_bytes "
            "allows " +
            std::to_string(most >> kMebibyteBits) + " MiB; give it more, or load fewer rules");
    }
}

// What rules made of so many bytes take: as much for a byte as the old ones, where these are not so
// few that something else made up most of it, and the bytes themselves at least.
std::size_t s_expected(std::size_t fileBytes, const Setup *old) {
    constexpr std::size_t kTellingBytes = 65536;
    const bool tells = old != nullptr && old->fileBytes >= kTellingBytes;
    const double each =
        tells ? static_cast<double>(old->memoryBytes) / static_cast<double>(old->fileBytes) : 1.0;
    return static_cast<std::size_t>(static_cast<double>(fileBytes) * std::max(each, 1.0));
}

std::vector<corvane::RuleFiles> s_read(const std::vector<std::string> &directories,
                                       std::size_t &fileBytes) {
    std::vector<corvane::RuleFiles> files;
    for (const std::string &directory : directories) {
        files.push_back(corvane::RuleFiles::read(directory));
        for (const auto &[name, bytes] : files.back().files) {
            fileBytes += bytes.size();
        }
    }
    return files;
}

} // namespace

Loaded loadSetup(const std::string &configFile, const Setup *old) {
    auto setup = std::make_shared<Setup>();
    Loaded loaded;
    setup->config = Config::read(configFile);
    loaded.files = s_read(setup->config.rules, setup->fileBytes);
    const std::vector<corvane::RuleFiles> shadow =
        s_read(setup->config.shadow.rules, setup->fileBytes);
    const std::size_t most = setup->config.bounds.memory;
    const std::size_t before = s_resident();
    s_require(before + s_expected(setup->fileBytes, old), most, "would take the process to about");
    // Of the bytes that were read, so that what is saved is what is used.
    setup->rules = corvane::RuleSet::fromFiles(loaded.files);
    setup->shadow = corvane::RuleSet::fromFiles(shadow);
    if (setup->shadow.empty() && !setup->config.shadow.rules.empty()) {
        throw std::runtime_error("there are no rules in the directories of shadow.rules; see that "
                                 "they hold some, or take the key out");
    }
    const std::size_t after = s_resident();
    s_require(after, most, "have taken the process to");
    setup->memoryBytes = after - std::min(before, after);
    loaded.setup = std::move(setup);
    return loaded;
}

void saveRules(const Loaded &loaded, const Log &log) {
    const Config::Sets &config = loaded.setup->config.sets;
    const corvane::RuleSet &rules = loaded.setup->rules;
    if (config.keep == 0 || rules.empty()) {
        return;
    }
    try {
        const SavedSets sets(config.directory);
        sets.save(rules.generation(), loaded.files);
        sets.prune(config.keep, {rules.generation()});
    } catch (const std::exception &failure) {
        log.write(LogLine(LogLevel::Error, "rules_not_saved")
                      .add("generation", rules.generation())
                      .add("reason", failure.what()));
    }
}

void logRules(const corvane::RuleSet &rules, const Log &log) {
    constexpr std::size_t kMostProblems = 20;
    const auto &problems = rules.problems();
    for (std::size_t each = 0; each < std::min(problems.size(), kMostProblems); ++each) {
        log.write(LogLine(LogLevel::Info, "rule_problem").add("text", toString(problems[each])));
    }
    log.write(LogLine(rules.empty() ? LogLevel::Error : LogLevel::Info, "rules")
                  .add("generation", rules.generation())
                  .add("loaded", std::uint64_t{rules.counts().loaded})
                  .add("active", std::uint64_t{rules.counts().active})
                  .add("refused", std::uint64_t{rules.counts().refused})
                  .add("duplicates", std::uint64_t{rules.counts().duplicates})
                  .add("problems", std::uint64_t{problems.size()}));
}

std::string_view nameOf(Reloader::Outcome outcome) {
    constexpr std::array<std::string_view, 4> kNames = {"replaced", "failed", "empty", "memory"};
    return kNames.at(static_cast<std::size_t>(outcome));
}

Reloader::Result Reloader::load() {
    const SetupRef old = shared_.live.current();
    Result result;
    result.former = old->rules.generation();
    result.current = result.former;
    try {
        const Loaded loaded = loadSetup(old->config.file, old.get());
        const SetupRef &fresh = loaded.setup;
        if (fresh->rules.empty() && !old->rules.empty()) {
            result.outcome = Outcome::KeptEmpty;
            result.reason = "the new rule set has no rules; see that the directories in the "
                            "configuration hold some";
            return result;
        }
        saveRules(loaded, log_);
        result.current = fresh->rules.generation();
        log_.configure(fresh->config.log.format, fresh->config.log.level);
        shared_.slots.resize(fresh->config.bounds.scans);
        shared_.live.replace(fresh);
        shared_.profiler.follow(fresh->rules);
        shared_.metrics.generation(fresh->rules);
        logRules(fresh->rules, log_);
    } catch (const MemoryError &failure) {
        result.outcome = Outcome::KeptMemory;
        result.reason = failure.what();
    } catch (const std::bad_alloc &) {
        result.outcome = Outcome::KeptMemory;
        result.reason = "out of memory; let the daemon have more";
    } catch (const std::exception &failure) {
        result.outcome = Outcome::KeptFailed;
        result.reason = failure.what();
    }
    return result;
}

Reloader::Result Reloader::reload() {
    const std::lock_guard<std::mutex> one(one_);
    const auto begun = std::chrono::steady_clock::now();
    Result result = load();
    const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - begun;
    shared_.metrics.reloaded(nameOf(result.outcome));
    LogLine line(result.reason.empty() ? LogLevel::Info : LogLevel::Error, "reload");
    line.add("result", nameOf(result.outcome))
        .add("former", result.former)
        .add("current", result.current)
        .addMillis("took_ms", took.count());
    if (!result.reason.empty()) {
        line.add("reason", result.reason);
    }
    log_.write(line);
    return result;
}

} // namespace Corvane::Milter
