#include "heuristic/ScanMemory.h"

#include <utility>

#include "host/parser/Lasting.h"

namespace Corvane::Heuristic {

namespace {

// What a thread keeps of one pass at most, in bytes; a larger text is an exception whose memory is given back.
constexpr std::size_t kKeptBytes = std::size_t{1} << 20;

struct Idle {
    std::unique_ptr<ScanMemory> memory;
};

std::unique_ptr<ScanMemory> &s_idle() {
    return PerThread<Idle>::value().memory;
}

template <class T>
void s_trim(std::vector<T> &kept) {
    if (kept.capacity() * sizeof(T) > kKeptBytes) {
        std::vector<T>().swap(kept);
    }
}

} // namespace

std::size_t ScanMemory::memoryBytes() const {
    const auto bytes = [](const auto &...each) {
        return (... + (each.capacity() * sizeof(*each.data())));
    };
    // A node with its key and its place in the table, about.
    constexpr std::size_t kNodeBytes = 2 * sizeof(*selectors.begin());
    return sizeof(*this) + scratch.memoryBytes() + selectorNumbers * sizeof(std::uint32_t) +
           selectors.size() * kNodeBytes +
           bytes(texts, staged, squeezed, squeezedTexts, considered, candidates, matches, found,
                 known, lastSeen, lastMatched, lastFound, lowered, selectorsOfLongName);
}

ScanMemoryLease::ScanMemoryLease() : memory_(std::move(s_idle())) {
    if (memory_ == nullptr) {
        memory_ = std::make_unique<ScanMemory>();
    }
    memory_->texts.clear();
    memory_->staged.clear();
    memory_->candidates.clear();
    memory_->matches.clear();
}

ScanMemoryLease::~ScanMemoryLease() {
    // Left where a pass has failed.
    for (const UnitRule &match : memory_->matches) {
        if (match.rule < memory_->found.size()) {
            memory_->found[match.rule] = 0;
        }
    }
    s_trim(memory_->texts);
    s_trim(memory_->staged);
    s_trim(memory_->squeezed);
    s_trim(memory_->squeezedTexts);
    s_trim(memory_->candidates);
    s_trim(memory_->matches);
    s_trim(memory_->known);
    s_trim(memory_->lowered);
    s_idle() = std::move(memory_);
}

} // namespace Corvane::Heuristic
