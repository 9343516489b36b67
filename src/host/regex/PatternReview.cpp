#include "host/regex/PatternReview.h"

#include <algorithm>

#include "host/parser/Exception.h"
#include "host/regex/Definition.h"
#include "host/regex/PatternParser.h"

namespace Corvane::Regex {

namespace {

using Kind = PatternNode::Kind;

bool s_isNullable(const PatternNode &node) {
    switch (node.kind) {
    case Kind::Set:
        return false;
    case Kind::Sequence:
        return std::all_of(node.children.begin(), node.children.end(), s_isNullable);
    case Kind::Alternation:
        return std::any_of(node.children.begin(), node.children.end(), s_isNullable);
    case Kind::Repeat:
        return node.least == 0 || s_isNullable(node.children.front());
    default:
        return true;
    }
}

// The bytes that something which the node matches may begin with.
ByteSet s_firstBytes(const PatternNode &node) {
    ByteSet first;
    switch (node.kind) {
    case Kind::Set:
        return node.wide ? node.bytes | highBytes() : node.bytes;
    case Kind::Alternation:
        for (const PatternNode &child : node.children) {
            first |= s_firstBytes(child);
        }
        return first;
    case Kind::Sequence:
        for (const PatternNode &child : node.children) {
            first |= s_firstBytes(child);
            if (!s_isNullable(child)) {
                break;
            }
        }
        return first;
    case Kind::Repeat:
        return s_firstBytes(node.children.front());
    default:
        return first;
    }
}

bool s_isEndless(const PatternNode &node) {
    return node.kind == Kind::Repeat && node.most == PatternNode::kUnlimited;
}

// Whether the node may end in an endless repetition of something that may begin with one of the
// bytes.
bool s_mayEndInRepeat(const PatternNode &node, const ByteSet &bytes) {
    const auto ends = [&bytes](const PatternNode &child) { return s_mayEndInRepeat(child, bytes); };
    switch (node.kind) {
    case Kind::Alternation:
        return std::any_of(node.children.begin(), node.children.end(), ends);
    case Kind::Sequence:
        for (auto child = node.children.rbegin(); child != node.children.rend(); ++child) {
            if (ends(*child)) {
                return true;
            }
            if (!s_isNullable(*child)) {
                break;
            }
        }
        return false;
    case Kind::Repeat:
        return (s_isEndless(node) && (s_firstBytes(node) & bytes).any()) ||
               ends(node.children.front());
    default:
        return false;
    }
}

bool s_hasNestedRepeats(const PatternNode &node) {
    if (s_isEndless(node) &&
        s_mayEndInRepeat(node.children.front(), s_firstBytes(node.children.front()))) {
        return true;
    }
    return std::any_of(node.children.begin(), node.children.end(), s_hasNestedRepeats);
}

bool s_needsLineFeed(const PatternNode &node) {
    switch (node.kind) {
    case Kind::Set:
        return !node.wide && node.bytes.count() == 1 && node.bytes.test('\n');
    case Kind::Sequence:
        return std::any_of(node.children.begin(), node.children.end(), s_needsLineFeed);
    case Kind::Alternation:
        return std::all_of(node.children.begin(), node.children.end(), s_needsLineFeed);
    case Kind::Repeat:
        return node.least > 0 && s_needsLineFeed(node.children.front());
    default:
        return false;
    }
}

// Larger lengths count as this one.
constexpr std::size_t kMostBytes = std::size_t{1} << 30;

std::size_t s_minimumLength(const PatternNode &node) {
    std::size_t least = 0;
    switch (node.kind) {
    case Kind::Set:
        return 1;
    case Kind::Sequence:
        for (const PatternNode &child : node.children) {
            least = std::min(kMostBytes, least + s_minimumLength(child));
        }
        return least;
    case Kind::Alternation:
        least = kMostBytes;
        for (const PatternNode &child : node.children) {
            least = std::min(least, s_minimumLength(child));
        }
        return least;
    case Kind::Repeat:
        return std::min(kMostBytes, node.least * s_minimumLength(node.children.front()));
    default:
        return 0;
    }
}

bool s_holds(const std::string &text, const char *part) {
    return text.find(part) != std::string::npos;
}

bool s_beginsWithDots(const std::string &pattern) {
    const std::size_t at = pattern.compare(0, 1, "^") == 0 ? 1 : 0;
    return pattern.compare(at, 2, ".*") == 0 && pattern.compare(at + 2, 1, "+") != 0;
}

bool s_endsWithDots(const std::string &pattern) {
    std::size_t end = pattern.size();
    for (const char last : {'$', '?'}) {
        end -= end > 0 && pattern[end - 1] == last ? 1U : 0U;
    }
    if (end < 2 || pattern.compare(end - 2, 2, ".*") != 0) {
        return false;
    }
    // A dot behind a backslash is a full stop.
    std::size_t backslashes = 0;
    while (backslashes + 2 < end && pattern[end - 3 - backslashes] == '\\') {
        ++backslashes;
    }
    return backslashes % 2 == 0;
}

void s_review(PatternReview &review, const Definition &definition, std::size_t start) {
    const std::string &pattern = definition.pattern;
    // White space, comments and quotations would have to be told apart.
    if (!definition.extended && !s_holds(pattern, "\\Q") && !s_holds(pattern, "(?#")) {
        review.beginsWithDots = s_beginsWithDots(pattern);
        review.endsWithDots = s_endsWithDots(pattern);
    }
    const auto parsed = parsePattern(definition);
    if (!parsed.has_value()) {
        return;
    }
    review.isUnderstood = true;
    review.minimumLength = s_minimumLength(parsed->root);
    review.needsLineFeed = s_needsLineFeed(parsed->root);
    // What gives nothing back that it has taken takes no such number of steps.
    const bool keeps = s_holds(pattern, "(?>") || s_holds(pattern, "++") || s_holds(pattern, "*+");
    review.hasNestedRepeats = !keeps && s_hasNestedRepeats(parsed->root);
    if (parsed->byteClass.has_value()) {
        review.byteClass = *parsed->byteClass + start;
    }
}

} // namespace

PatternReview reviewPattern(const std::string &text, unsigned int options) {
    PatternReview review;
    if (text.empty()) {
        return review;
    }
    try {
        s_review(review, parseDefinition(text, options), text.front() == '/' ? 1 : 0);
    } catch (const Exception &) {
        return {};
    }
    return review;
}

} // namespace Corvane::Regex
