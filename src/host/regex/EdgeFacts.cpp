#include "host/regex/EdgeFacts.h"

#include <algorithm>
#include <utility>

namespace Corvane::Regex {

namespace {

// A dollar sign also matches before the last line end of the subject.
constexpr std::size_t kLineEndBytes = 2;
constexpr std::size_t kMaxWideBytes = 4;

constexpr std::size_t kUnlimited = PatternNode::kUnlimited;

// The most bytes that the node matches.
std::size_t s_most(const PatternNode &node) {
    std::size_t most = 0;
    switch (node.kind) {
    case PatternNode::Kind::Set:
        return node.wide ? kMaxWideBytes : 1;
    case PatternNode::Kind::Sequence:
        for (const PatternNode &child : node.children) {
            const std::size_t more = s_most(child);
            most = more > kUnlimited - most ? kUnlimited : most + more;
        }
        return most;
    case PatternNode::Kind::Alternation:
        for (const PatternNode &child : node.children) {
            most = std::max(most, s_most(child));
        }
        return most;
    case PatternNode::Kind::Repeat:
        most = s_most(node.children.front());
        return most != 0 && node.most > kUnlimited / most ? kUnlimited : most * node.most;
    default:
        return 0;
    }
}

// What a part of a pattern has before its first byte (in the order of the iterators, behind its last one).
struct Edge {
    bool isBound; // each match holds the assertion there
    bool isEmpty; // no match has a byte
};

template <class Children>
Edge s_edgeOf(const PatternNode &node, PatternNode::Kind kind, Children children) {
    const auto edgeOf = [&](const PatternNode &child) { return s_edgeOf(child, kind, children); };
    switch (node.kind) {
    case PatternNode::Kind::Set:
        return {false, false};
    case PatternNode::Kind::Sequence: {
        const auto [first, last] = children(node);
        Edge all{false, true};
        for (auto child = first; child != last && all.isEmpty; ++child) {
            const Edge edge = edgeOf(*child);
            all = {all.isBound || edge.isBound, edge.isEmpty};
        }
        return all;
    }
    case PatternNode::Kind::Alternation: {
        Edge all{true, true};
        for (const PatternNode &child : node.children) {
            const Edge edge = edgeOf(child);
            all = {all.isBound && edge.isBound, all.isEmpty && edge.isEmpty};
        }
        return all;
    }
    case PatternNode::Kind::Repeat: {
        const Edge once = edgeOf(node.children.front());
        return {node.least > 0 && once.isBound, node.most == 0 || once.isEmpty};
    }
    default:
        return {node.kind == kind, true};
    }
}

bool s_isBoundToStart(const PatternNode &root) {
    const auto children = [](const PatternNode &node) {
        return std::pair(node.children.begin(), node.children.end());
    };
    return s_edgeOf(root, PatternNode::Kind::Start, children).isBound;
}

bool s_isBoundToEnd(const PatternNode &root) {
    const auto children = [](const PatternNode &node) {
        return std::pair(node.children.rbegin(), node.children.rend());
    };
    return s_edgeOf(root, PatternNode::Kind::End, children).isBound;
}

// Adds the bytes that matches of the node begin with; answers whether one may have none.
bool s_addFirst(const PatternNode &node, ByteSet &first) {
    switch (node.kind) {
    case PatternNode::Kind::Set:
        first |= node.wide ? node.bytes | highBytes() : node.bytes;
        return false;
    case PatternNode::Kind::Sequence:
        return std::all_of(node.children.begin(), node.children.end(),
                           [&](const PatternNode &child) { return s_addFirst(child, first); });
    case PatternNode::Kind::Alternation:
        // Every branch counts.
        return std::count_if(node.children.begin(), node.children.end(),
                             [&](const PatternNode &child) { return s_addFirst(child, first); }) >
               0;
    case PatternNode::Kind::Repeat:
        return s_addFirst(node.children.front(), first) || node.least == 0;
    default:
        return true;
    }
}

} // namespace

bool mayBeginWith(const PatternNode &root, unsigned char byte) {
    ByteSet first;
    return s_addFirst(root, first) || first[byte];
}

EdgeFacts findEdgeFacts(const PatternNode &root) {
    EdgeFacts facts;
    if (!s_isBoundToStart(root)) {
        return facts;
    }
    ByteSet first;
    if (!s_addFirst(root, first)) {
        facts.firstBytes = first;
    }
    const std::size_t most = s_most(root);
    if (s_isBoundToEnd(root) && most < kUnlimited - kLineEndBytes) {
        facts.maximumLength = most + kLineEndBytes;
    }
    return facts;
}

} // namespace Corvane::Regex
