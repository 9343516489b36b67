#include "LogSummary.h"

#include "Files.h"
#include "heuristic/LogRecords.h"

namespace Corvane::Cli {

namespace {

// Takes "file:line" out of the text, where it stands as the last parameter in the brackets of a
// failure and its file is in the directory, and answers it; answers "" where there is none.
std::string s_cutPlace(std::string &text, const std::string &directory) {
    if (directory.empty()) {
        return {};
    }
    const std::string start = joined(directory, {});
    for (const std::string separator : {"; ", " ("}) {
        const std::size_t found = text.find(separator + start);
        const std::size_t end = text.find(") [", found);
        if (found == std::string::npos || end == std::string::npos) {
            continue;
        }
        const std::size_t begin = found + separator.size();
        std::string place = text.substr(begin, end - begin);
        const std::size_t colon = place.find_last_not_of("0123456789");
        if (colon != std::string::npos && colon + 1 < place.size() && place[colon] == ':') {
            text.erase(begin, end - begin);
            return place;
        }
    }
    return {};
}

// What a record says to whoever wrote the rules; its own text is for programs that filter logs.
const char *s_meaning(unsigned int id) {
    switch (id) {
    case Heuristic::kLogEvalValue:
        return "an eval: rule is loaded but never matches";
    case Heuristic::kLogMetaFailed:
        return "a meta rule's expression has no value and counts as false";
    case Heuristic::kLogNoExpression:
        return "a rule without expression was tried";
    case Heuristic::kLogScoreRefused:
        return "a score line was left out";
    case Heuristic::kLogRuleRefused:
        return "a rule was left out";
    case Heuristic::kLogDuplicateRule:
        return "a rule's name is taken, the first one counts";
    default:
        return "log";
    }
}

} // namespace

LogSummary::LogSummary()
    : former_(Logger::instance(false).sink(
          [this](unsigned int id, int /*level*/, const std::string &text) { take(id, text); })) {}

LogSummary::~LogSummary() {
    Logger::instance(false).sink(former_);
}

void LogSummary::rules(const std::string &directory) {
    const Synchronized lock(mutex_);
    directory_ = directory;
}

void LogSummary::take(unsigned int id, const std::string &record) {
    if (id == Heuristic::kLogRulesLoaded) {
        return;
    }
    const Synchronized lock(mutex_);
    std::string text = record;
    const std::string place = s_cutPlace(text, directory_);
    const auto [found, isNew] = index_.emplace(std::make_pair(id, text), entries_.size());
    if (isNew) {
        entries_.push_back({id, text, place, 0});
    }
    ++entries_[found->second].count;
}

void LogSummary::show(std::ostream &out) {
    std::vector<Entry> entries;
    {
        Synchronized lock(mutex_);
        entries.swap(entries_);
        index_.clear();
    }
    for (const Entry &entry : entries) {
        out << "corvane: " << s_meaning(entry.id);
        if (entry.count > 1) {
            out << ", " << entry.count << " times";
        }
        if (!entry.firstPlace.empty()) {
            out << (entry.count > 1 ? ", first in " : ", in ")
                << Logger::printable(entry.firstPlace);
        }
        out << ": " << Logger::printable(entry.text) << " (log record 0x" << std::hex << entry.id
            << std::dec << ")\n";
    }
}

} // namespace Corvane::Cli
