#include "host/regex/LiteralFacts.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <utility>

#include "host/regex/LiteralFrequency.h"

namespace Corvane::Regex {

namespace {

// A set of more bytes than this ends a string.
constexpr std::size_t kMaxSetBytes = 10;
// How many factors and byte sets a part of a pattern hands up.
constexpr std::size_t kMaxFactors = 4;
// Literals that are found more often are not worth a look.
constexpr double kMaxHitsPerMiB = 4096;
// What one more literal costs, in hits.
constexpr double kPieceCost = 4;
// Sets with more of all bytes than this are in almost every text.
constexpr double kMaxSetShare = 0.1;
// Steps to look at a part of a pattern, and to tell how frequent each byte of a literal is, and a set.
constexpr std::uint64_t kNodeSteps = 256;
constexpr std::uint64_t kWeighedByteSteps = 64;
constexpr std::uint64_t kSetSteps = 256;

const ByteSet &s_alphanumeric() {
    static const ByteSet s_set = [] {
        ByteSet set;
        for (std::size_t byte = 0; byte < set.size(); ++byte) {
            set[byte] = isAsciiAlphanumeric(byte);
        }
        return set;
    }();
    return s_set;
}

std::size_t s_times(std::size_t left, std::size_t right) {
    return right != 0 && left > PatternNode::kUnlimited / right ? PatternNode::kUnlimited
                                                                : left * right;
}

std::size_t s_plus(std::size_t left, std::size_t right) {
    return left > PatternNode::kUnlimited - right ? PatternNode::kUnlimited : left + right;
}

// Where nothing is known.
Facts s_anything() {
    Facts facts;
    facts.exact = false;
    return facts;
}

} // namespace

// A run of parts that each match few strings, so that the strings of the run are known.
struct FactFinder::Run {
    std::vector<Pieces> parts;
    Pieces pieces{Piece()};
    // The one string that the parts at its end make: often a better literal than all of them.
    Pieces tail{Piece()};
    unsigned int number = 0;
    // Whether the run began where the sequence did.
    bool fromStart = true;
};

bool FactFinder::makeFactor(Pieces pieces, Factor &factor) const {
    if (!makeLiterals(pieces, budget_)) {
        return false;
    }
    factor.pieces = std::move(pieces);
    factor.cost = 0;
    for (Piece &piece : factor.pieces) {
        if (piece.perMiB < 0) {
            if (!budget_.takeSteps(piece.bytes.size() * kWeighedByteSteps)) {
                return false;
            }
            piece.perMiB = expectedPerMiB(piece.bytes, kind_);
        }
        factor.cost += piece.perMiB + kPieceCost;
        if (factor.cost > kMaxHitsPerMiB) {
            return false;
        }
    }
    return true;
}

void FactFinder::addFactor(Facts &facts, Pieces pieces, unsigned int run) {
    Factor factor;
    factor.run = run;
    if (makeFactor(std::move(pieces), factor)) {
        addFactor(facts, factor);
    }
}

// Keeps the cheapest factor of each run.
void FactFinder::addFactor(Facts &facts, const Factor &factor) {
    const auto known = std::find_if(facts.factors.begin(), facts.factors.end(),
                                    [&](const Factor &other) { return other.run == factor.run; });
    if (known != facts.factors.end() && known->cost <= factor.cost) {
        return;
    }
    if (known != facts.factors.end()) {
        facts.factors.erase(known);
    }
    const auto behind =
        std::upper_bound(facts.factors.begin(), facts.factors.end(), factor.cost,
                         [](double cost, const Factor &other) { return cost < other.cost; });
    facts.factors.insert(behind, factor);
    if (facts.factors.size() > kMaxFactors) {
        facts.factors.pop_back();
    }
}

// What a match begins and ends with.
void FactFinder::addEnds(Facts &facts) {
    addFactor(facts, facts.prefix, facts.prefixRun != 0 ? facts.prefixRun : ++runs_);
    if (!facts.exact) {
        addFactor(facts, facts.suffix, facts.suffixRun != 0 ? facts.suffixRun : ++runs_);
    }
}

void FactFinder::addSet(Facts &facts, const ByteSet &set) const {
    if (!budget_.takeSteps(kSetSteps)) {
        return;
    }
    const RareSet rare{set, expectedShare(set, kind_)};
    const auto same = [&](const RareSet &other) { return other.bytes == set; };
    if (rare.share > kMaxSetShare || std::any_of(facts.sets.begin(), facts.sets.end(), same)) {
        return;
    }
    const auto behind =
        std::upper_bound(facts.sets.begin(), facts.sets.end(), rare.share,
                         [](double share, const RareSet &other) { return share < other.share; });
    facts.sets.insert(behind, rare);
    if (facts.sets.size() > kMaxByteSets) {
        facts.sets.pop_back();
    }
}

Facts FactFinder::of(const PatternNode &node) {
    if (!budget_.takeSteps(kNodeSteps)) {
        return s_anything();
    }
    switch (node.kind) {
    case PatternNode::Kind::Set:
        return ofSet(node);
    case PatternNode::Kind::Sequence:
        return ofSequence(node);
    case PatternNode::Kind::Alternation:
        return node.children.size() == 1 ? of(node.children.front()) : ofAlternation(node);
    case PatternNode::Kind::Repeat:
        return ofRepeat(node);
    case PatternNode::Kind::Ahead:
        return ofAhead(node);
    default:
        return {};
    }
}

Facts FactFinder::ofSet(const PatternNode &node) {
    Facts facts;
    facts.least = 1;
    if (view_ == View::Bytes) {
        facts.exact = false;
        addSet(facts, node.wide ? node.bytes | highBytes() : node.bytes);
        return facts;
    }
    const bool squeezed = view_ == View::Squeezed;
    const ByteSet seen = squeezed ? node.bytes & s_alphanumeric() : node.bytes;
    facts.exact = seen.count() <= kMaxSetBytes && (squeezed || !node.wide);
    if (facts.exact) {
        facts.prefix.clear();
        addCharacters(seen, facts.prefix);
        if (squeezed && (node.wide || seen != node.bytes)) {
            facts.prefix.emplace_back();
        }
        facts.suffix = facts.prefix;
    }
    return facts;
}

void FactFinder::addRun(const Run &run, Facts &facts) {
    addFactor(facts, run.pieces, run.number);
    if (run.pieces.size() > 1) {
        addFactor(facts, run.tail, run.number);
    }
}

// Makes the run longer. One that grows too wide ends, and goes on without its oldest parts.
void FactFinder::extend(Run &run, const Pieces &next, Facts &facts) {
    Pieces joined;
    run.parts.push_back(next);
    if (next.size() > 1) {
        addRun(run, facts);
        run.tail.assign(1, Piece());
    } else {
        run.tail = joinPieces(run.tail, next, joined, budget_) ? joined : next;
    }
    if (joinPieces(run.pieces, next, joined, budget_)) {
        run.pieces = std::move(joined);
        return;
    }
    addRun(run, facts);
    if (run.fromStart) {
        facts.prefix = run.pieces;
        facts.prefixRun = run.number;
        run.fromStart = false;
    }
    if (!isTooMany(run.pieces, next)) {
        run.parts.assign(1, next);
    }
    run.pieces = next;
    std::size_t first = run.parts.size() - 1;
    while (first > 0 && joinPieces(run.parts[first - 1], run.pieces, joined, budget_)) {
        run.pieces = joined;
        --first;
    }
    run.number = first + 1 < run.parts.size() ? run.number : ++runs_;
    run.parts.erase(run.parts.begin(), run.parts.begin() + static_cast<std::ptrdiff_t>(first));
}

Facts FactFinder::ofSequence(const PatternNode &node) {
    Facts facts;
    Run run;
    run.number = ++runs_;
    for (const PatternNode &child : node.children) {
        const bool isSpent = budget_.steps() == 0;
        const Facts next = isSpent ? s_anything() : of(child);
        facts.least = s_plus(facts.least, next.least);
        for (const Factor &factor : next.factors) {
            addFactor(facts, factor);
        }
        for (const RareSet &set : next.sets) {
            addSet(facts, set.bytes);
        }
        extend(run, next.prefix, facts);
        if (next.exact) {
            continue;
        }
        addRun(run, facts);
        if (run.fromStart) {
            facts.prefix = run.pieces;
            facts.prefixRun = run.number;
        }
        run.fromStart = false;
        run.number = ++runs_;
        run.parts.assign(1, next.suffix);
        run.pieces = next.suffix;
        run.tail = next.suffix.size() == 1 ? next.suffix : Pieces(1, Piece());
        if (isSpent) {
            // Nothing is known of the other children either.
            break;
        }
    }
    addRun(run, facts);
    facts.exact = run.fromStart;
    if (facts.exact) {
        facts.prefix = run.pieces;
        facts.prefixRun = run.number;
    }
    facts.suffixRun = run.number;
    facts.suffix = std::move(run.pieces);
    return facts;
}

// Adds one factor from each branch; nothing where a branch has none. Branches with a single factor give that one for
// every rank.
void FactFinder::addUnion(Facts &facts, const std::vector<Facts> &branches) {
    constexpr std::size_t kRanks = 2;
    Factor factor;
    bool isNew = true;
    bool isMade = false;
    for (std::size_t rank = 0; rank < kRanks; ++rank) {
        if (isNew) {
            Pieces all;
            isNew = false;
            for (const Facts &branch : branches) {
                if (branch.factors.empty()) {
                    return;
                }
                const std::size_t chosen = std::min(rank, branch.factors.size() - 1);
                const Pieces &pieces = branch.factors[chosen].pieces;
                all.insert(all.end(), pieces.begin(), pieces.end());
                isNew = isNew || chosen + 1 < branch.factors.size();
            }
            isMade = makeFactor(std::move(all), factor);
        }
        factor.run = ++runs_;
        if (isMade) {
            addFactor(facts, factor);
        }
    }
}

// What the branches begin or end with.
Pieces FactFinder::unite(const std::vector<Facts> &branches, Pieces Facts::*end) const {
    std::vector<const Pieces *> lists;
    std::transform(branches.begin(), branches.end(), std::back_inserter(lists),
                   [&](const Facts &branch) { return &(branch.*end); });
    return unitePieces(lists, budget_);
}

Facts FactFinder::ofAlternation(const PatternNode &node) {
    std::vector<Facts> branches;
    Facts facts;
    facts.least = PatternNode::kUnlimited;
    std::size_t strings = 0;
    ByteSet united;
    bool everySet = true;
    for (const PatternNode &child : node.children) {
        branches.push_back(of(child));
        Facts &branch = branches.back();
        facts.least = std::min(facts.least, branch.least);
        facts.exact = facts.exact && branch.exact;
        strings += branch.prefix.size();
        addEnds(branch);
        everySet = everySet && !branch.sets.empty();
        united |= branch.sets.empty() ? ByteSet() : branch.sets.front().bytes;
        if (budget_.steps() == 0) {
            return s_anything();
        }
    }
    facts.exact = facts.exact && strings <= kMaxAlternatives;
    facts.prefix = unite(branches, &Facts::prefix);
    facts.suffix = unite(branches, &Facts::suffix);
    addUnion(facts, branches);
    if (everySet) {
        addSet(facts, united);
    }
    return facts;
}

Facts FactFinder::ofRepeat(const PatternNode &node) {
    Facts child = of(node.children.front());
    Facts facts;
    facts.least = s_times(child.least, node.least);
    if (child.exact && isOnlyEmpty(child.prefix)) {
        return facts;
    }
    facts.exact = node.most == 0;
    if (child.exact) {
        facts.exact = repeatPieces(child.prefix, node.least, node.most, facts.prefix, budget_);
        facts.suffix = facts.prefix;
    } else if (node.least > 0) {
        facts.prefix = std::move(child.prefix);
        facts.suffix = std::move(child.suffix);
    }
    if (node.least > 0) {
        facts.factors = std::move(child.factors);
        facts.sets = std::move(child.sets);
    }
    return facts;
}

Facts FactFinder::ofAhead(const PatternNode &node) {
    Facts child = of(node.children.front());
    addEnds(child);
    Facts facts;
    facts.factors = std::move(child.factors);
    facts.sets = std::move(child.sets);
    return facts;
}

Facts FactFinder::find(const PatternNode &root) {
    Facts facts = of(root);
    addEnds(facts);
    return facts;
}

} // namespace Corvane::Regex
