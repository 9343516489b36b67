#include "host/regex/AutomatonTable.h"

#include <algorithm>
#include <limits>

#include "host/parser/Exception.h"
#include "host/regex/Determinizer.h"
#include "host/regex/PatternParser.h"
#include "host/regex/PatternSteps.h"

namespace Corvane::Regex {

namespace {

// An automaton that accepts more texts than this is not worth the time to ask it.
constexpr double kMaxAcceptance = 0.7;
// All can be named by 16 bits.
constexpr std::size_t kMaxCells = std::size_t{std::numeric_limits<std::uint16_t>::max()} + 1;
// How many texts are read at once, since each byte has to wait for the one before it.
constexpr std::size_t kLanes = 4;
// So many bytes are read before it is asked whether the others matter.
constexpr std::size_t kStride = 32;

std::optional<DeterministicAutomaton> s_automaton(const std::string &text, unsigned int options,
                                                  TextKind kind) {
    try {
        const Definition definition = parseDefinition(text, options);
        const auto parsed = parsePattern(definition);
        if (!parsed.has_value()) {
            return std::nullopt;
        }
        // In UTF-8 the engine takes the valid parts of a subject for subjects of their own.
        const auto steps =
            PatternSteps::of(parsed->root, definition.utf ? PatternSteps::Edges::Ignored
                                                          : PatternSteps::Edges::Kept);
        return steps.has_value()
                   ? determinize(*steps, kind, {AutomatonTable::kMaxStates, kMaxCells})
                   : std::nullopt;
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
                                                 TextKind kind) {
    const auto made = text.empty() ? std::nullopt : s_automaton(text, options, kind);
    if (!made.has_value() || made->acceptance > kMaxAcceptance) {
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

void AutomatonTable::select(std::uint32_t number, const Text *texts,
                            std::vector<std::uint32_t> &numbers) const {
    constexpr std::uint32_t kRejected = 0xFFFFFFFF;
    const Reader reader(automata_[number], cells_);
    std::size_t next = 0;
    const auto take = [&] {
        const std::size_t place = next++;
        return reader.lane(texts[numbers[place]], place);
    };
    const auto judge = [&](const Reader::Lane &lane, bool accepted) {
        numbers[lane.place] = accepted ? numbers[lane.place] : kRejected;
    };
    std::array<Reader::Lane, kLanes> lanes;
    std::size_t open = 0;
    while (open < kLanes && next < numbers.size()) {
        lanes[open++] = take();
    }
    while (open == kLanes) {
        reader.advance(lanes);
        for (std::size_t i = 0; i < open; ++i) {
            if (reader.isDone(lanes[i])) {
                judge(lanes[i], reader.accepts(lanes[i]));
                lanes[i] = next < numbers.size() ? take() : lanes[--open];
            }
        }
    }
    for (std::size_t i = 0; i < open; ++i) {
        judge(lanes[i], reader.readToEnd(lanes[i]));
    }
    numbers.erase(std::remove(numbers.begin(), numbers.end(), kRejected), numbers.end());
}

std::size_t AutomatonTable::memoryBytes() const {
    return automata_.capacity() * sizeof(Automaton) + cells_.capacity() * sizeof(cells_[0]);
}

} // namespace Corvane::Regex
