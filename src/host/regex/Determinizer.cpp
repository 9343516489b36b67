#include "host/regex/Determinizer.h"

#include <algorithm>
#include <map>
#include <queue>
#include <unordered_set>
#include <utility>

#include "host/regex/LiteralFrequency.h"

namespace Corvane::Regex {

namespace {

using Number = PatternSteps::Number;
using State = DeterministicAutomaton::State;
// Steps that may come next, in ascending order.
using Steps = std::vector<Number>;

constexpr std::size_t kBytes = 256;
// Where the engine looks for the bytes that a match begins with.
constexpr std::size_t kFirstBytes = 4;
// Where more steps than this may come next, no byte is rare.
constexpr std::size_t kManySteps = 256;
// Beyond so many states those that are met less often than this in a text are not told apart.
constexpr std::size_t kCheapStates = 64;
constexpr double kLeastWeight = 1e-7;
// Steps that are looked at, over all states. Patterns with very many optional parts come to an end
// so.
constexpr std::size_t kMaxWork = 4'000'000;
// What each of these costs of the budget, and each set of bytes. Of the cost of a cell a part is for its making, and the
// rest for the rating.
constexpr std::uint64_t kWorkCost = 16;
constexpr std::uint64_t kSetCost = 768;
constexpr std::uint64_t kRatingCost = 64;
// For each class of bytes, each step that a match may begin with.
constexpr std::uint64_t kSearchedCost = 4;

// The classes of bytes that the steps do not tell apart.
class ByteClasses {
public:
    // Means nothing where that spends the budget.
    ByteClasses(const PatternSteps &steps, TextKind kind, WorkBudget &budget) {
        std::unordered_set<ByteSet> sets;
        for (std::size_t i = 0; i < steps.size() && budget.steps() > 0; ++i) {
            const auto step = static_cast<Number>(i);
            if (steps.isByte(step) && sets.insert(steps.bytes(step)).second) {
                split(steps.bytes(step));
                budget.takeSteps(kSetCost);
            }
        }
        ByteSet lineEnds;
        split(lineEnds.set('\r').set('\n'));
        weigh(kind);
        budget.takeSteps(size() * kSetCost);
    }

    std::size_t size() const { return first_.size(); }
    const std::array<std::uint8_t, kBytes> &numbers() const { return numbers_; }
    // One of the class.
    std::size_t byte(std::size_t number) const { return first_[number]; }
    // How many of all bytes of a text are of the class.
    double share(std::size_t number) const { return shares_[number]; }

private:
    void split(const ByteSet &set) {
        // By former number, outside and inside the set: the new one, and one more.
        std::array<std::array<std::uint16_t, 2>, kBytes> parts{};
        first_.clear();
        for (std::size_t byte = 0; byte < kBytes; ++byte) {
            std::uint16_t &part = parts[numbers_[byte]][set[byte] ? 1 : 0];
            if (part == 0) {
                first_.push_back(byte);
                part = static_cast<std::uint16_t>(first_.size());
            }
            numbers_[byte] = static_cast<std::uint8_t>(part - 1);
        }
    }

    void weigh(TextKind kind) {
        std::vector<ByteSet> sets(size());
        for (std::size_t byte = 0; byte < kBytes; ++byte) {
            sets[numbers_[byte]].set(byte);
        }
        double sum = 0;
        for (const ByteSet &set : sets) {
            shares_.push_back(expectedShare(set, kind));
            sum += shares_.back();
        }
        for (double &share : shares_) {
            share /= sum;
        }
    }

    std::array<std::uint8_t, kBytes> numbers_{};
    std::vector<std::size_t> first_;
    std::vector<double> shares_;
};

class Determinizer {
public:
    Determinizer(const PatternSteps &steps, TextKind kind, WorkBudget &budget)
        : steps_(steps), budget_(budget), classes_(steps, kind, budget), after_(steps.size()),
          begins_(steps.size()) {}

    std::optional<DeterministicAutomaton> run(const AutomatonLimits &limits);

private:
    static constexpr std::size_t kAccepts = static_cast<std::size_t>(-1);

    // A state: how far matches may have come. One may also begin anywhere, so the steps that it
    // begins with are part of every state, and not noted.
    struct Place {
        const Steps *steps;
        double weight = 0;             // how often it is met, roughly
        std::vector<std::size_t> next; // by class; empty until that was worked out
    };

    bool findBeginnings();
    const PatternSteps::Next &after(Number step);
    bool addAfter(Number step, Steps &next);
    std::size_t stateOf(Steps steps);
    void expand(std::size_t number);
    std::size_t nextOf(const Steps &steps, std::size_t byteClass);
    bool acceptsAtEnd(const Place &state) const;
    DeterministicAutomaton collect() const;
    void rate(DeterministicAutomaton &automaton) const;

    void work(std::size_t done) {
        work_ += done;
        budget_.takeSteps(done * kWorkCost);
    }
    bool isTired() const { return work_ > kMaxWork || budget_.steps() == 0; }

    const PatternSteps &steps_;
    WorkBudget &budget_;
    ByteClasses classes_;
    std::vector<std::optional<PatternSteps::Next>> after_; // by step
    std::vector<bool> begins_;                // by step: whether a match may begin with it
    std::vector<std::optional<Steps>> begun_; // by class: what follows there; nothing: a match
    std::map<Steps, std::size_t> numbers_;
    std::vector<Place> states_;
    std::vector<std::size_t> expanded_;
    std::size_t work_ = 0;
};

const PatternSteps::Next &Determinizer::after(Number step) {
    if (!after_[step].has_value()) {
        after_[step] = steps_.after(step);
        work(steps_.size());
    }
    return *after_[step];
}

// Adds what follows the step; answers false where that completes a match.
bool Determinizer::addAfter(Number step, Steps &next) {
    const PatternSteps::Next &follow = after(step);
    work(follow.steps.size() + 1);
    std::copy_if(follow.steps.begin(), follow.steps.end(), std::back_inserter(next),
                 [this](Number each) { return !begins_[each]; });
    return !follow.accepts;
}

// Answers false where every text has a match.
bool Determinizer::findBeginnings() {
    const PatternSteps::Next beginnings = steps_.elsewhere();
    for (const Number step : beginnings.steps) {
        begins_[step] = true;
    }
    const bool matchesEverywhere = beginnings.accepts || steps_.atStart().accepts ||
                                   std::any_of(beginnings.steps.begin(), beginnings.steps.end(),
                                               [this](Number step) { return steps_.isEnd(step); });
    for (std::size_t each = 0; each < classes_.size(); ++each) {
        std::optional<Steps> next = Steps();
        budget_.takeSteps(beginnings.steps.size() * kSearchedCost);
        for (const Number step : beginnings.steps) {
            if (next.has_value() && steps_.isByte(step) &&
                steps_.bytes(step)[classes_.byte(each)] && (isTired() || !addAfter(step, *next))) {
                next.reset();
            }
        }
        begun_.push_back(std::move(next));
    }
    return !matchesEverywhere;
}

std::size_t Determinizer::stateOf(Steps steps) {
    std::sort(steps.begin(), steps.end());
    steps.erase(std::unique(steps.begin(), steps.end()), steps.end());
    const auto [found, fresh] = numbers_.emplace(std::move(steps), states_.size());
    if (fresh) {
        states_.push_back({&found->first, 0, {}});
    }
    return found->second;
}

// The state after a byte of the class.
std::size_t Determinizer::nextOf(const Steps &steps, std::size_t byteClass) {
    if (isTired() || !begun_[byteClass].has_value()) {
        return kAccepts;
    }
    work(begun_[byteClass]->size() + steps.size());
    budget_.takeSteps(kCellSteps - kRatingCost);
    const std::size_t byte = classes_.byte(byteClass);
    Steps next = *begun_[byteClass];
    for (const Number step : steps) {
        if (steps_.isEnd(step)) {
            // Line ends at the end of the text count as its end.
            if (byte == '\r' || byte == '\n') {
                next.push_back(step);
            }
        } else if (steps_.bytes(step)[byte] && (isTired() || !addAfter(step, next))) {
            return kAccepts;
        }
    }
    return stateOf(std::move(next));
}

void Determinizer::expand(std::size_t number) {
    expanded_.push_back(number);
    const Steps &steps = *states_[number].steps;
    const double weight = states_[number].weight;
    std::vector<std::size_t> next;
    for (std::size_t each = 0; each < classes_.size(); ++each) {
        next.push_back(nextOf(steps, each));
        if (next.back() != kAccepts) {
            states_[next.back()].weight += weight * classes_.share(each);
        }
    }
    states_[number].next = std::move(next);
}

bool Determinizer::acceptsAtEnd(const Place &state) const {
    return std::any_of(state.steps->begin(), state.steps->end(),
                       [this](Number step) { return steps_.isEnd(step); });
}

std::optional<DeterministicAutomaton> Determinizer::run(const AutomatonLimits &limits) {
    const std::size_t mostStates = std::min(limits.states, limits.cells / (classes_.size() + 1));
    if (mostStates < 2 || !findBeginnings()) {
        return std::nullopt;
    }
    Steps first = steps_.atStart().steps;
    first.erase(
        std::remove_if(first.begin(), first.end(), [this](Number step) { return begins_[step]; }),
        first.end());
    // One more state is that which accepts, and one more cell of each is for the end.
    const std::size_t most = mostStates - 1;
    std::priority_queue<std::pair<double, std::size_t>> open;
    open.emplace(1, stateOf(std::move(first)));
    states_[0].weight = 1;
    const auto isEnough = [&] {
        return expanded_.size() >= most ||
               (expanded_.size() >= kCheapStates && open.top().first < kLeastWeight);
    };
    while (!open.empty() && !isEnough()) {
        const std::size_t number = open.top().second;
        open.pop();
        if (!states_[number].next.empty()) {
            continue;
        }
        expand(number);
        for (const std::size_t next : states_[number].next) {
            if (next != kAccepts && states_[next].next.empty()) {
                open.emplace(states_[next].weight, next);
            }
        }
    }
    if (!budget_.takeSteps(expanded_.size() * classes_.size() * kRatingCost)) {
        return std::nullopt;
    }
    DeterministicAutomaton automaton = collect();
    rate(automaton);
    return automaton;
}

DeterministicAutomaton Determinizer::collect() const {
    DeterministicAutomaton automaton;
    automaton.classes = classes_.numbers();
    automaton.classCount = classes_.size();
    std::vector<State> renumbered(states_.size(), DeterministicAutomaton::kAccepts);
    for (std::size_t i = 0; i < expanded_.size(); ++i) {
        renumbered[expanded_[i]] = static_cast<State>(i + 1);
    }
    automaton.start = renumbered[0];
    automaton.next.emplace_back(classes_.size() + 1, DeterministicAutomaton::kAccepts);
    for (const std::size_t number : expanded_) {
        const State own = renumbered[number];
        std::vector<State> row;
        for (const std::size_t next : states_[number].next) {
            row.push_back(next == kAccepts ? DeterministicAutomaton::kAccepts : renumbered[next]);
        }
        row.push_back(acceptsAtEnd(states_[number]) ? DeterministicAutomaton::kAccepts : own);
        if (std::all_of(row.begin(), row.end(), [own](State next) { return next == own; })) {
            automaton.dead = own;
        }
        automaton.next.push_back(std::move(row));
    }
    return automaton;
}

// Follows the shares of texts that are in each state.
void Determinizer::rate(DeterministicAutomaton &automaton) const {
    std::vector<double> shares(automaton.next.size(), 0);
    shares.at(automaton.start) = 1;
    automaton.bytesRead = 0;
    for (std::size_t taken = 0; taken < kUsualBytes; ++taken) {
        std::vector<double> later(shares.size(), 0);
        for (std::size_t state = 0; state < shares.size(); ++state) {
            const bool isSettled =
                state == DeterministicAutomaton::kAccepts || state == automaton.dead;
            automaton.bytesRead += isSettled ? 0 : shares[state];
            for (std::size_t each = 0; each < classes_.size() && shares[state] > 0; ++each) {
                later[automaton.next[state][each]] += shares[state] * classes_.share(each);
            }
        }
        shares.swap(later);
    }
    automaton.acceptance = 0;
    for (std::size_t state = 0; state < shares.size(); ++state) {
        const bool isAccepted = automaton.next[state].back() == DeterministicAutomaton::kAccepts;
        automaton.acceptance += isAccepted ? shares[state] : 0;
    }
}

// What may come after any of the steps, of which none is an end; in no order, and not all where they are too many.
PatternSteps::Next s_afterAll(const PatternSteps &steps, const Steps &before) {
    std::vector<bool> seen(steps.size());
    PatternSteps::Next next;
    for (const Number step : before) {
        const PatternSteps::Next after = steps.after(step);
        next.accepts = next.accepts || after.accepts;
        for (const Number later : after.steps) {
            if (!seen[later]) {
                seen[later] = true;
                next.steps.push_back(later);
            }
        }
        if (next.steps.size() > kManySteps) {
            break;
        }
    }
    return next;
}

} // namespace

double beginnings(const PatternSteps &steps, TextKind kind) {
    PatternSteps::Next next = steps.elsewhere();
    double first = 1;
    double second = 1;
    const auto isEnd = [&](Number step) { return steps.isEnd(step); };
    for (std::size_t place = 0; place < kFirstBytes; ++place) {
        if (next.accepts || next.steps.empty() || next.steps.size() > kManySteps ||
            std::any_of(next.steps.begin(), next.steps.end(), isEnd)) {
            break;
        }
        ByteSet bytes;
        for (const Number step : next.steps) {
            bytes |= steps.bytes(step);
        }
        const double share = expectedShare(bytes, kind);
        second = std::min(second, std::max(first, share));
        first = std::min(first, share);
        next = s_afterAll(steps, next.steps);
    }
    return first * second;
}

std::optional<DeterministicAutomaton> determinize(const PatternSteps &steps, TextKind kind,
                                                  const AutomatonLimits &limits,
                                                  WorkBudget &budget) {
    return Determinizer(steps, kind, budget).run(limits);
}

} // namespace Corvane::Regex
