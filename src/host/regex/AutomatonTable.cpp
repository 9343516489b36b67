#include "host/regex/AutomatonTable.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "host/parser/Exception.h"
#include "host/regex/Determinizer.h"
#include "host/regex/PatternParser.h"
#include "host/regex/PatternSteps.h"

namespace Corvane::Regex {

namespace {

// An automaton that accepts more texts than this is not worth the time to ask it.
constexpr double kMaxAcceptance = 0.7;
// Where the first few bytes settle it, the engine is as fast.
constexpr double kFewBytesRead = 24;
// The engine looks for the first bytes of a match many at a time: where no more places than this
// come into question, it is faster.
constexpr double kFewBeginnings = 1.0 / 128;
// All can be named by 16 bits.
constexpr std::size_t kMaxCells = std::size_t{std::numeric_limits<std::uint16_t>::max()} + 1;
// Steps to read each byte of a pattern.
constexpr std::uint64_t kPatternByteSteps = 96;
// How many texts are read at once, since each byte has to wait for the one before it.
constexpr std::size_t kLanes = 4;
// So many bytes are read before it is asked whether the others matter.
constexpr std::size_t kStride = 32;

bool s_isFaster(const DeterministicAutomaton &automaton) {
    return automaton.acceptance <= kMaxAcceptance && automaton.bytesRead >= kFewBytesRead;
}

std::optional<DeterministicAutomaton> s_automaton(const std::string &text, unsigned int options,
                                                  TextKind kind, AutomatonTable::When when,
                                                  WorkBudget &budget) {
    const bool always = when == AutomatonTable::When::Possible;
    const std::uint64_t cells =
        std::min({std::uint64_t{kMaxCells}, budget.bytes() / sizeof(std::uint16_t),
                  budget.steps() / kCellSteps});
    if (text.empty() || cells == 0 || !budget.takeSteps(text.size() * kPatternByteSteps)) {
        return std::nullopt;
    }
    try {
        const Definition definition = parseDefinition(text, options);
        const auto parsed = parsePattern(definition);
        if (!parsed.has_value()) {
            return std::nullopt;
        }
        // In UTF-8 the engine takes the valid parts of a subject for subjects of their own.
        const auto steps = PatternSteps::of(
            parsed->root, definition.utf ? PatternSteps::Edges::Ignored : PatternSteps::Edges::Kept,
            budget);
        if (!steps.has_value() || !(always || beginnings(*steps, kind) > kFewBeginnings)) {
            return std::nullopt;
        }
        auto made = determinize(*steps, kind, {AutomatonTable::kMaxStates, cells}, budget);
        return made.has_value() && (always || s_isFaster(*made)) ? std::move(made) : std::nullopt;
    } catch (const Exception &) {
        return std::nullopt;
    }
}

} // namespace

AutomatonTable::AutomatonTable() = default;
AutomatonTable::AutomatonTable(AutomatonTable &&source) noexcept = default;
AutomatonTable &AutomatonTable::operator=(AutomatonTable &&source) noexcept = default;
AutomatonTable::~AutomatonTable() = default;

std::optional<std::uint32_t> AutomatonTable::add(const std::string &text, unsigned int options,
                                                 TextKind kind, When when) {
    WorkBudget budget(kMaxSteps, kMaxCells * sizeof(std::uint16_t) + sizeof(Automaton));
    return add(text, options, kind, when, budget);
}

std::optional<std::uint32_t> AutomatonTable::add(const std::string &text, unsigned int options,
                                                 TextKind kind, When when, WorkBudget &budget) {
    const std::uint64_t bytes =
        budget.bytes() - std::min<std::uint64_t>(budget.bytes(), sizeof(Automaton));
    WorkBudget own(std::min(budget.steps(), kMaxSteps), bytes);
    const std::uint64_t most = own.steps();
    const auto made = s_automaton(text, options, kind, when, own);
    budget.takeSteps(most - own.steps());
    const bool fits = cells_.size() <= std::numeric_limits<std::uint32_t>::max() - kMaxCells;
    if (!made.has_value() || !fits) {
        return std::nullopt;
    }
    const std::size_t width = made->classCount + 1;
    // The dead state changes places with the first one.
    const DeterministicAutomaton::State dead = made->dead.value_or(1);
    const auto cellOf = [&](DeterministicAutomaton::State state) {
        const std::size_t place = state == dead ? 1 : state == 1 ? dead : state;
        return static_cast<std::uint16_t>(place * width);
    };
    Automaton automaton{};
    automaton.classes = made->classes;
    automaton.cells = static_cast<std::uint32_t>(cells_.size());
    automaton.start = cellOf(made->start);
    automaton.settled = made->dead.has_value() ? cellOf(dead) : 0;
    automaton.end = static_cast<std::uint16_t>(made->classCount);
    cells_.resize(cells_.size() + made->next.size() * width);
    budget.takeBytes(sizeof(Automaton) + made->next.size() * width * sizeof(cells_[0]));
    std::uint16_t *cells = cells_.data() + automaton.cells;
    for (std::size_t state = 0; state < made->next.size(); ++state) {
        std::transform(made->next[state].begin(), made->next[state].end(),
                       cells + cellOf(static_cast<DeterministicAutomaton::State>(state)), cellOf);
    }
    automata_.push_back(automaton);
    return static_cast<std::uint32_t>(automata_.size() - 1);
}

// Reads texts from the start state on.
class AutomatonTable::Reader {
public:
    // A text, and the place of its number among those asked for.
    struct Lane {
        const unsigned char *data = nullptr;
        std::size_t left = 0;
        std::size_t state = 0;
        std::size_t place = 0;
    };

    Reader(const Automaton &automaton, const std::vector<std::uint16_t> &cells)
        : automaton_(automaton), cells_(cells.data() + automaton.cells) {}

    Lane lane(const Text &text, std::size_t place) const {
        return {text.data, text.length, automaton_.start, place};
    }

    // Whether the bytes that are left make no difference.
    bool isDone(const Lane &lane) const {
        return lane.left == 0 || lane.state <= automaton_.settled;
    }

    bool accepts(const Lane &lane) const { return cells_[lane.state + automaton_.end] == 0; }

    // In each lane the same number of bytes: as many as the shortest has left, or kStride.
    template <std::size_t kCount>
    void advance(std::array<Lane, kCount> &lanes) const {
        std::size_t bytes = kStride;
        for (const Lane &lane : lanes) {
            bytes = std::min(bytes, lane.left);
        }
        for (std::size_t at = 0; at < bytes; ++at) {
            for (Lane &lane : lanes) {
                lane.state = cells_[lane.state + automaton_.classes[lane.data[at]]];
            }
        }
        for (Lane &lane : lanes) {
            lane.data += bytes;
            lane.left -= bytes;
        }
    }

    bool readToEnd(const Lane &lane) const {
        std::array<Lane, 1> lanes{lane};
        while (!isDone(lanes[0])) {
            advance(lanes);
        }
        return accepts(lanes[0]);
    }

private:
    const Automaton &automaton_;
    const std::uint16_t *cells_;
};

bool AutomatonTable::mayMatch(std::uint32_t number, const Text &text) const {
    const Reader reader(automata_[number], cells_);
    return reader.readToEnd(reader.lane(text, 0));
}

void AutomatonTable::select(std::uint32_t number, std::vector<Text> &texts) const {
    // No text is that long.
    constexpr std::size_t kRejected = std::numeric_limits<std::size_t>::max();
    const Reader reader(automata_[number], cells_);
    std::array<Reader::Lane, kLanes> lanes;
    std::size_t open = 0;
    std::size_t next = 0;
    const auto take = [&](Reader::Lane &lane) {
        lane = reader.lane(texts[next], next);
        ++next;
    };
    const auto judge = [&](const Reader::Lane &lane, bool accepted) {
        texts[lane.place].length = accepted ? texts[lane.place].length : kRejected;
    };
    while (open < kLanes && next < texts.size()) {
        take(lanes[open++]);
    }
    while (open == kLanes) {
        reader.advance(lanes);
        for (std::size_t i = 0; i < open; ++i) {
            if (!reader.isDone(lanes[i])) {
                continue;
            }
            judge(lanes[i], reader.accepts(lanes[i]));
            if (next < texts.size()) {
                take(lanes[i]);
            } else {
                lanes[i] = lanes[--open];
            }
        }
    }
    for (std::size_t i = 0; i < open; ++i) {
        judge(lanes[i], reader.readToEnd(lanes[i]));
    }
    texts.erase(std::remove_if(texts.begin(), texts.end(),
                               [](const Text &text) { return text.length == kRejected; }),
                texts.end());
}

void AutomatonTable::shrinkToFit() {
    automata_.shrink_to_fit();
    cells_.shrink_to_fit();
}

std::size_t AutomatonTable::memoryBytes() const {
    return automata_.capacity() * sizeof(Automaton) + cells_.capacity() * sizeof(cells_[0]);
}

} // namespace Corvane::Regex
