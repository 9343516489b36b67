#include "host/regex/PhraseFinder.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <string>
#include <utility>

#include "host/regex/LiteralFrequency.h"

namespace Corvane::Regex {

namespace {

// Longer phrases are left to the engine.
constexpr std::size_t kMaxItems = 128;
// Steps for each item.
constexpr std::uint64_t kItemSteps = 512;

// A repeated character of a branch.
struct Item {
    ByteSet bytes;
    std::size_t least = 1;
    std::size_t most = 1;

    bool isVariable() const { return least != most; }
    bool isSingle() const { return least == 1 && most == 1; }
};
struct Items : std::vector<Item> {
    // Whether the engine has no more ways through them than there are bytes: no group is repeated, or has branches, or comes
    // after a character, from where it might be entered time and again.
    bool isPlain = true;
    std::size_t groups = 0;
};

// Appends the items that the node is; false where it is anything else.
bool s_flatten(const PatternNode &node, Items &items);

// The one character that the node is.
std::optional<ByteSet> s_character(const PatternNode &node) {
    Items items;
    if (!s_flatten(node, items) || items.size() != 1 || !items.front().isSingle()) {
        return std::nullopt;
    }
    return items.front().bytes;
}

bool s_flattenAlternation(const PatternNode &node, Items &items) {
    if (node.children.size() == 1) {
        items.isPlain = items.isPlain && items.empty();
        ++items.groups;
        return s_flatten(node.children.front(), items);
    }
    Item any;
    items.isPlain = false;
    for (const PatternNode &child : node.children) {
        const std::optional<ByteSet> character = s_character(child);
        if (!character.has_value()) {
            return false;
        }
        any.bytes |= *character;
    }
    items.push_back(any);
    return true;
}

bool s_flattenRepeat(const PatternNode &node, Items &items) {
    Items once;
    if (node.most == 0) {
        return true;
    }
    if (!s_flatten(node.children.front(), once)) {
        return false;
    }
    items.isPlain = items.isPlain && node.children.front().kind == PatternNode::Kind::Set;
    if (once.size() == 1 && once.front().isSingle()) {
        items.push_back({once.front().bytes, node.least, node.most});
        return true;
    }
    if (once.empty()) {
        return true;
    }
    for (std::size_t times = 0; times < node.most && items.size() <= kMaxItems; ++times) {
        items.insert(items.end(), once.begin(), once.end());
    }
    return node.least == node.most && items.size() <= kMaxItems;
}

bool s_flatten(const PatternNode &node, Items &items) {
    if (items.size() > kMaxItems) {
        return false;
    }
    switch (node.kind) {
    case PatternNode::Kind::Set:
        items.push_back({node.bytes, 1, 1});
        return !node.wide;
    case PatternNode::Kind::Sequence:
        return std::all_of(node.children.begin(), node.children.end(),
                           [&](const PatternNode &child) { return s_flatten(child, items); });
    case PatternNode::Kind::Alternation:
        return s_flattenAlternation(node, items);
    case PatternNode::Kind::Repeat:
        return s_flattenRepeat(node, items);
    default:
        return true;
    }
}

// Whether the item that starts at first ends in one place only: where what may follow cannot begin with one of its bytes.
bool s_endsOnce(std::vector<Item>::const_iterator first, std::vector<Item>::const_iterator last) {
    for (auto next = first + 1; next != last; ++next) {
        if ((first->bytes & next->bytes).any()) {
            return false;
        }
        if (next->least > 0) {
            return true;
        }
    }
    return true;
}

std::uint32_t s_times(std::size_t number) {
    return static_cast<std::uint32_t>(std::min<std::size_t>(number, PhraseStep::kUnlimited));
}

// Makes steps of items in the order away from the anchor; false where one could end in several places.
bool s_makeSteps(std::vector<Item> items, std::vector<PhraseStep> &steps) {
    // What comes last matches as soon as it has the least that it takes.
    while (!items.empty() && items.back().least == 0) {
        items.pop_back();
    }
    if (!items.empty()) {
        items.back().most = items.back().least;
    }
    for (auto item = items.cbegin(); item != items.cend(); ++item) {
        if (item->isVariable() && !s_endsOnce(item, items.cend())) {
            return false;
        }
        steps.push_back({item->bytes, s_times(item->least), s_times(item->most)});
    }
    return true;
}

PhraseEffort s_effort(const Items &items) {
    PhraseEffort effort;
    effort.isKnown = items.isPlain;
    effort.items = items.size() + items.groups;
    bool started = false;
    for (const Item &item : items) {
        started = started || item.isVariable();
        if (!started) {
            effort.start.insert(effort.start.end(), std::min(item.least, kMaxItems), item.bytes);
        }
        effort.optional += item.least == 0 ? 1 : 0;
        if (item.isVariable()) {
            const std::size_t left = PatternNode::kUnlimited - effort.repeated;
            effort.repeated += std::min(item.most, left);
        }
    }
    return effort;
}

// Reads literals off the items.
class AnchorFinder {
public:
    AnchorFinder(const Items &items, TextKind kind, WorkBudget &budget)
        : items_(items), kind_(kind), facts_(kind, FactFinder::View::Plain, budget) {}

    // The range of the items that make the rarest literal, which is put into anchor; empty where none is rare enough.
    std::pair<std::size_t, std::size_t> find(Piece &anchor) {
        for (std::size_t i = 0; i < items_.size(); ++i) {
            take(i);
        }
        close(items_.size());
        anchor = best_;
        return {bestStart_, bestStart_ + best_.bytes.size()};
    }

private:
    // The literal under way ends before an item that is no such character, or whose case counts otherwise.
    void take(std::size_t number) {
        const Item &item = items_[number];
        Pieces characters;
        if (item.isSingle() && item.bytes.any() && item.bytes.count() <= 2) {
            addCharacters(item.bytes, characters);
        }
        const bool fits = characters.size() == 1 && characters.front().bytes[0] != '\0';
        if (!fits || (characters.front().folds && current_.strict) ||
            (characters.front().strict && current_.folds)) {
            close(number);
        }
        if (fits) {
            current_.bytes += characters.front().bytes;
            current_.folds = current_.folds || characters.front().folds;
            current_.strict = current_.strict || characters.front().strict;
        }
    }

    void close(std::size_t end) {
        const Piece whole = std::exchange(current_, Piece());
        if (whole.bytes.empty()) {
            return;
        }
        const auto [first, last] = rarestPart(whole.bytes, kind_);
        Piece piece{whole.bytes.substr(first, last - first), whole.folds, whole.strict, -1};
        Factor factor;
        if (!facts_.makeFactor({piece}, factor)) {
            return;
        }
        const double cost = factor.pieces.front().perMiB;
        if (best_.bytes.empty() || cost < best_.perMiB) {
            best_ = std::move(piece);
            best_.perMiB = cost;
            bestStart_ = end - whole.bytes.size() + first;
        }
    }

    const Items &items_;
    TextKind kind_;
    FactFinder facts_;
    Piece current_;
    Piece best_;
    std::size_t bestStart_ = 0;
};

} // namespace

std::optional<AnchoredPhrase> findPhrase(const PatternNode &branch, TextKind kind,
                                         WorkBudget &budget) {
    Items items;
    if (!s_flatten(branch, items) || items.size() > kMaxItems ||
        !budget.takeSteps(items.size() * kItemSteps)) {
        return std::nullopt;
    }
    AnchoredPhrase found;
    const auto [first, last] = AnchorFinder(items, kind, budget).find(found.anchor);
    if (first == last) {
        return std::nullopt;
    }
    const auto anchorStart = items.begin() + static_cast<std::ptrdiff_t>(first);
    const auto anchorEnd = items.begin() + static_cast<std::ptrdiff_t>(last);
    if (!s_makeSteps({std::make_reverse_iterator(anchorStart), items.rend()},
                     found.phrase.before) ||
        !s_makeSteps({anchorEnd, items.end()}, found.phrase.after)) {
        return std::nullopt;
    }
    found.effort = s_effort(items);
    return found;
}

} // namespace Corvane::Regex
