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

// Whether each match of the node holds the assertion before (in the order of the iterators, behind) any byte.
template <class Children>
bool s_isBound(const PatternNode &node, PatternNode::Kind edge, Children children) {
    const auto isBound = [&](const PatternNode &child) { return s_isBound(child, edge, children); };
    switch (node.kind) {
    case PatternNode::Kind::Sequence: {
        const auto [first, last] = children(node);
        for (auto child = first; child != last; ++child) {
            if (isBound(*child)) {
                return true;
            }
            if (s_most(*child) > 0) {
                break;
            }
        }
        return false;
    }
    case PatternNode::Kind::Alternation:
        return std::all_of(node.children.begin(), node.children.end(), isBound);
    case PatternNode::Kind::Repeat:
        return node.least > 0 && isBound(node.children.front());
    default:
        return node.kind == edge;
    }
}

bool s_isBoundToStart(const PatternNode &root) {
    return s_isBound(root, PatternNode::Kind::Start, [](const PatternNode &node) {
        return std::pair(node.children.begin(), node.children.end());
    });
}

bool s_isBoundToEnd(const PatternNode &root) {
    return s_isBound(root, PatternNode::Kind::End, [](const PatternNode &node) {
        return std::pair(node.children.rbegin(), node.children.rend());
    });
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
