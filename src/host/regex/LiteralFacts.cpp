#include "host/regex/LiteralFacts.h"

#include <algorithm>
#include <utility>

#include "host/parser/Text.h"
#include "host/regex/LiteralFrequency.h"

namespace Corvane::Regex {

namespace {

// Longer strings are not followed further; what is known of them is enough.
constexpr std::size_t kMaxPieceBytes = 128;
// How many strings may come of combining others. (A list that the pattern itself spells out may be
// longer.)
constexpr std::size_t kMaxProduct = 32;
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

constexpr std::size_t kCaseBit = 0x20;

bool s_isLower(std::size_t byte) {
    return byte >= 'a' && byte <= 'z';
}

bool s_isLetter(std::size_t byte) {
    return s_isLower(byte) || (byte >= 'A' && byte <= 'Z');
}

bool s_isAlphanumeric(std::size_t byte) {
    return s_isLetter(byte) || (byte >= '0' && byte <= '9');
}

const ByteSet &s_alphanumeric() {
    static const ByteSet s_set = [] {
        ByteSet set;
        for (std::size_t byte = 0; byte < set.size(); ++byte) {
            set[byte] = s_isAlphanumeric(byte);
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

bool s_isOnlyEmpty(const Pieces &pieces) {
    return pieces.size() == 1 && pieces.front().bytes.empty();
}

void s_addNew(Pieces &pieces, const Piece &piece) {
    const auto same = [&](const Piece &other) {
        return other.bytes == piece.bytes && other.folds == piece.folds &&
               other.strict == piece.strict;
    };
    if (std::none_of(pieces.begin(), pieces.end(), same)) {
        pieces.push_back(piece);
    }
}

bool s_isTooMany(const Pieces &left, const Pieces &right) {
    const bool multiplies = left.size() > 1 && right.size() > 1;
    return left.size() * right.size() > (multiplies ? kMaxProduct : kMaxAlternatives);
}

// All of left before all of right. False, and joined is useless, where that is too much.
bool s_join(const Pieces &left, const Pieces &right, Pieces &joined) {
    joined.clear();
    if (s_isTooMany(left, right)) {
        return false;
    }
    for (const Piece &first : left) {
        for (const Piece &second : right) {
            if (first.bytes.size() + second.bytes.size() > kMaxPieceBytes) {
                return false;
            }
            s_addNew(joined, {first.bytes + second.bytes, first.folds || second.folds,
                              first.strict || second.strict, -1});
        }
    }
    return true;
}

// Adds the pieces of one more branch. Too many, or a branch that may begin (end) with anything,
// leave nothing known.
void s_unite(Pieces &pieces, const Pieces &more) {
    for (const Piece &piece : more) {
        s_addNew(pieces, piece);
    }
    if (pieces.size() > kMaxAlternatives) {
        pieces.assign(1, Piece());
    }
}

// The strings that least to most of the pieces make, one after another. False where there are too
// many: all begin and end with what all then holds.
bool s_repeat(const Pieces &pieces, std::size_t least, std::size_t most, Pieces &all) {
    Pieces longer;
    std::size_t times = 0;
    all.assign(1, Piece());
    while (times < least && s_join(all, pieces, longer)) {
        all = longer;
        ++times;
    }
    if (times < least || most - least > kMaxProduct) {
        return false;
    }
    Pieces power = all;
    Pieces united = all;
    for (; times < most; ++times) {
        if (!s_join(power, pieces, longer) || united.size() + longer.size() > kMaxProduct) {
            return false;
        }
        s_unite(united, longer);
        power = longer;
    }
    all = united;
    return true;
}

// Brings a piece to the form of a literal.
void s_normalise(Piece &piece) {
    if (piece.perMiB >= 0) {
        return;
    }
    piece.bytes.erase(0, piece.bytes.find_first_not_of('\0'));
    if (piece.folds) {
        std::string lower;
        copyStringToLower(piece.bytes.data(), lower, 0, piece.bytes.size());
        piece.bytes = lower;
        piece.folds = std::any_of(lower.begin(), lower.end(),
                                  [](char c) { return s_isLower(static_cast<unsigned char>(c)); });
    }
}

// Drops pieces that hold another one, so that the other is found wherever they are.
Pieces s_withoutHolders(const Pieces &pieces) {
    Pieces left;
    for (const Piece &piece : pieces) {
        const auto held = [&](const Piece &other) { return holds(piece, other); };
        if (std::any_of(left.begin(), left.end(), held)) {
            continue;
        }
        left.erase(std::remove_if(left.begin(), left.end(),
                                  [&](const Piece &other) { return holds(other, piece); }),
                   left.end());
        left.push_back(piece);
    }
    return left;
}

// Shortens pieces until few enough are left; false where that does not help.
bool s_shrink(Pieces &pieces) {
    for (const std::size_t length : {kMaxPieceBytes, std::size_t{8}, std::size_t{6}, std::size_t{5},
                                     std::size_t{4}, std::size_t{3}}) {
        for (Piece &piece : pieces) {
            if (piece.bytes.size() > length) {
                piece.bytes.resize(length);
                piece.perMiB = -1;
            }
        }
        pieces = s_withoutHolders(pieces);
        if (pieces.size() <= kMaxAlternatives) {
            return true;
        }
    }
    return false;
}

// A single byte must not be one that words and the space between them consist of, whatever the tables say.
bool s_isTooShort(const Piece &piece) {
    if (piece.bytes.size() != 1) {
        return piece.bytes.empty();
    }
    const auto byte = static_cast<unsigned char>(piece.bytes[0]);
    return isWhiteSpace(byte) || s_isAlphanumeric(byte);
}

} // namespace

void addCharacters(const ByteSet &set, Pieces &pieces) {
    std::size_t left = set.count();
    for (std::size_t byte = 0; left > 0; ++byte) {
        if (!set[byte]) {
            continue;
        }
        --left;
        const std::size_t other = s_isLetter(byte) ? byte ^ kCaseBit : byte;
        const bool folds = other != byte && set[other];
        if (!folds || s_isLower(byte)) {
            const auto character = static_cast<char>(byte);
            pieces.push_back({std::string(1, character), folds, other != byte && !folds, -1});
        }
    }
}

bool holds(const Piece &piece, const Piece &part) {
    if (piece.bytes.size() < part.bytes.size() || (piece.folds && !part.folds)) {
        return false;
    }
    if (piece.folds == part.folds) {
        return piece.bytes.find(part.bytes) != std::string::npos;
    }
    std::string lower;
    copyStringToLower(piece.bytes.data(), lower, 0, piece.bytes.size());
    return lower.find(part.bytes) != std::string::npos;
}

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
    for (Piece &piece : pieces) {
        s_normalise(piece);
    }
    if (std::any_of(pieces.begin(), pieces.end(), s_isTooShort)) {
        return false;
    }
    factor.pieces = s_withoutHolders(pieces);
    if (!s_shrink(factor.pieces)) {
        return false;
    }
    factor.cost = 0;
    for (Piece &piece : factor.pieces) {
        if (piece.perMiB < 0) {
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
        run.tail = s_join(run.tail, next, joined) ? joined : next;
    }
    if (s_join(run.pieces, next, joined)) {
        run.pieces = std::move(joined);
        return;
    }
    addRun(run, facts);
    if (run.fromStart) {
        facts.prefix = run.pieces;
        facts.prefixRun = run.number;
        run.fromStart = false;
    }
    if (!s_isTooMany(run.pieces, next)) {
        run.parts.assign(1, next);
    }
    run.pieces = next;
    std::size_t first = run.parts.size() - 1;
    while (first > 0 && s_join(run.parts[first - 1], run.pieces, joined)) {
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
        const Facts next = of(child);
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

// One factor from each branch; nothing where a branch has none. Branches with a single factor give
// that one for every rank.
void FactFinder::addUnion(Facts &facts, const std::vector<Facts> &branches, std::size_t rank) {
    Pieces all;
    for (const Facts &branch : branches) {
        if (branch.factors.empty()) {
            return;
        }
        const Factor &factor = branch.factors[std::min(rank, branch.factors.size() - 1)];
        all.insert(all.end(), factor.pieces.begin(), factor.pieces.end());
    }
    addFactor(facts, std::move(all), ++runs_);
}

Facts FactFinder::ofAlternation(const PatternNode &node) {
    std::vector<Facts> branches;
    Facts facts;
    facts.least = PatternNode::kUnlimited;
    facts.prefix.clear();
    facts.suffix.clear();
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
    }
    facts.exact = facts.exact && strings <= kMaxAlternatives;
    for (const Facts &branch : branches) {
        s_unite(facts.prefix, branch.prefix);
        s_unite(facts.suffix, branch.suffix);
    }
    for (std::size_t rank = 0; rank < 2; ++rank) {
        addUnion(facts, branches, rank);
    }
    if (everySet) {
        addSet(facts, united);
    }
    return facts;
}

Facts FactFinder::ofRepeat(const PatternNode &node) {
    Facts child = of(node.children.front());
    Facts facts;
    facts.least = s_times(child.least, node.least);
    if (child.exact && s_isOnlyEmpty(child.prefix)) {
        return facts;
    }
    facts.exact = node.most == 0;
    if (child.exact) {
        facts.exact = s_repeat(child.prefix, node.least, node.most, facts.prefix);
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
