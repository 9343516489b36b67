#include "LogSummary.h"

#include <algorithm>

#include "heuristic/LogRecords.h"

namespace Corvane::Cli {

namespace {

// Takes "; file:line" out of the text and answers "file:line"; answers "" where the text does not
// name the file.
std::string s_cutPlace(std::string &text, const std::string &file) {
    const std::string separator = "; ";
    const std::string mark = separator + file + ':';
    const std::size_t start = file.empty() ? std::string::npos : text.find(mark);
    if (start == std::string::npos) {
        return {};
    }
    const std::size_t digits = start + mark.size();
    const std::size_t end = std::min(text.find_first_not_of("0123456789", digits), text.size());
    std::string place = text.substr(start + separator.size(), end - start - separator.size());
    text.erase(start, end - start);
    return place;
}

// What a record says to whoever wrote the rules; its own text is for programs that filter logs.
const char *s_meaning(unsigned int id) {
    switch (id) {
    case Heuristic::kLogEvalValue:
        return "an eval: rule is loaded but never matches";
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

void LogSummary::file(const std::string &file) {
    Synchronized lock(mutex_);
    file_ = file;
}

void LogSummary::take(unsigned int id, const std::string &record) {
    Synchronized lock(mutex_);
    std::string text = record;
    std::string place = s_cutPlace(text, file_);
    if (place.empty()) {
        place = file_;
    }
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
