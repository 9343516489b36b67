#include "host/regex/PhraseTable.h"

#include <algorithm>

namespace Corvane::Regex {

PhraseTable::PhraseTable() = default;
PhraseTable::PhraseTable(PhraseTable &&source) noexcept = default;
PhraseTable &PhraseTable::operator=(PhraseTable &&source) noexcept = default;
PhraseTable::~PhraseTable() = default;

std::uint32_t PhraseTable::add(const Phrase &phrase) {
    Entry entry{};
    entry.before = static_cast<std::uint32_t>(steps_.size());
    addSteps(phrase.before);
    entry.after = static_cast<std::uint32_t>(steps_.size());
    addSteps(phrase.after);
    entry.end = static_cast<std::uint32_t>(steps_.size());
    entries_.push_back(entry);
    return static_cast<std::uint32_t>(entries_.size() - 1);
}

void PhraseTable::addSteps(const std::vector<PhraseStep> &steps) {
    for (const PhraseStep &step : steps) {
        const auto next = static_cast<std::uint32_t>(sets_.size());
        const auto [found, fresh] = numbers_.emplace(step.bytes, next);
        if (fresh) {
            sets_.push_back(step.bytes);
        }
        steps_.push_back({found->second, step.least, step.most});
    }
}

// Takes the steps through the bytes that at(0), at(1) ... below room give.
template <class At>
PhraseTable::Verdict PhraseTable::follow(std::uint32_t first, std::uint32_t last, std::size_t room,
                                         std::size_t &read, At at) const {
    std::size_t done = 0;
    for (std::uint32_t each = first; each < last; ++each) {
        const Step &step = steps_[each];
        const Set &set = sets_[step.set];
        const std::size_t most = std::min<std::size_t>(step.most, room - done);
        const std::size_t limit = std::min<std::size_t>(most, kMaxRunBytes);
        std::size_t taken = 0;
        while (taken < limit && set[at(done + taken)]) {
            ++taken;
        }
        read += taken + 1;
        if (taken == kMaxRunBytes && taken < most) {
            return Verdict::Unknown;
        }
        if (taken < step.least) {
            return Verdict::No;
        }
        done += taken;
    }
    return Verdict::Yes;
}

PhraseTable::Verdict PhraseTable::check(std::uint32_t phrase, const unsigned char *text,
                                        std::size_t length, std::size_t start, std::size_t end,
                                        std::size_t &read) const {
    const Entry &entry = entries_[phrase];
    const Verdict after = follow(entry.after, entry.end, length - end, read,
                                 [&](std::size_t offset) { return text[end + offset]; });
    if (after == Verdict::No) {
        return after;
    }
    const Verdict before = follow(entry.before, entry.after, start, read,
                                  [&](std::size_t offset) { return text[start - 1 - offset]; });
    return before == Verdict::Yes ? after : before;
}

std::size_t PhraseTable::memoryBytes() const {
    return entries_.capacity() * sizeof(Entry) + steps_.capacity() * sizeof(Step) +
           sets_.capacity() * sizeof(Set) + numbers_.size() * sizeof(*numbers_.begin());
}

std::size_t PhraseTable::bytesOf(const std::vector<Phrase> &phrases) {
    std::size_t steps = 0;
    for (const Phrase &phrase : phrases) {
        steps += phrase.before.size() + phrase.after.size();
    }
    return phrases.size() * sizeof(Entry) + steps * sizeof(Step);
}

} // namespace Corvane::Regex
