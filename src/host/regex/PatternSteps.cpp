#include "host/regex/PatternSteps.h"

#include <algorithm>
#include <utility>

namespace Corvane::Regex {

namespace {

constexpr std::size_t kMaxSteps = 8192;
// A repetition is told apart up to so many steps; beyond, more of it counts as any number.
constexpr std::size_t kRepeatedSteps = 192;
// For a set that matches sequences of several bytes too.
constexpr std::size_t kWideSteps = 4;
// What it costs to count or to make a step, to begin to look for what follows one, for each step that is met then, and for
// so many others.
constexpr std::uint64_t kStepCost = 16;
constexpr std::uint64_t kFollowCost = 128;
constexpr std::uint64_t kMetCost = 6;
constexpr std::uint64_t kOthers = 16;

// How often a repetition is told apart: least times, and then so many times more or any number.
struct Times {
    std::size_t least;
    std::size_t more; // kUnlimited: any number
};

Times s_times(const PatternNode &node, std::size_t size) {
    const std::size_t most =
        std::max<std::size_t>(1, kRepeatedSteps / std::max<std::size_t>(1, size));
    if (node.least > most) {
        return {most, PatternNode::kUnlimited};
    }
    const std::size_t more = node.most - node.least;
    const bool isFew = node.most != PatternNode::kUnlimited && more <= most - node.least;
    return {node.least, isFew ? more : PatternNode::kUnlimited};
}

// The steps that a node takes.
std::size_t s_size(const PatternNode &node) {
    std::size_t size = 1;
    switch (node.kind) {
    case PatternNode::Kind::Set:
        return node.wide ? kWideSteps : 1;
    case PatternNode::Kind::Sequence:
    case PatternNode::Kind::Alternation:
        for (const PatternNode &child : node.children) {
            size += s_size(child) + 1;
        }
        return size;
    case PatternNode::Kind::Repeat: {
        const std::size_t once = s_size(node.children.front()) + 1;
        const Times times = s_times(node, once);
        return times.more == PatternNode::kUnlimited
                   ? once * std::max<std::size_t>(1, times.least) + 1
                   : once * (times.least + times.more);
    }
    default:
        return 1;
    }
}

} // namespace

std::optional<PatternSteps> PatternSteps::of(const PatternNode &root, Edges edges,
                                             WorkBudget &budget) {
    const std::size_t size = s_size(root);
    if (size >= kMaxSteps || !budget.takeSteps(size * kStepCost)) {
        return std::nullopt;
    }
    PatternSteps steps(budget);
    const Number accept = steps.add({});
    steps.entry_ = steps.build(root, accept, edges);
    return budget.steps() > 0 ? std::make_optional(std::move(steps)) : std::nullopt;
}

PatternSteps::Number PatternSteps::add(const Step &step) {
    steps_.push_back(step);
    return static_cast<Number>(steps_.size() - 1);
}

// Answers the step that the node begins with; next is what follows it.
PatternSteps::Number PatternSteps::build(const PatternNode &node, Number next, Edges edges) {
    switch (node.kind) {
    case PatternNode::Kind::Start:
        return edges == Edges::Kept ? add({Step::Kind::Start, next, 0, nullptr}) : next;
    case PatternNode::Kind::End:
        return edges == Edges::Kept ? add({Step::Kind::End, next, 0, nullptr}) : next;
    case PatternNode::Kind::Set:
        return buildSet(node, next);
    case PatternNode::Kind::Sequence:
        std::for_each(node.children.rbegin(), node.children.rend(),
                      [&](const PatternNode &child) { next = build(child, next, edges); });
        return next;
    case PatternNode::Kind::Alternation: {
        Number first = build(node.children.back(), next, edges);
        std::for_each(node.children.rbegin() + 1, node.children.rend(),
                      [&](const PatternNode &child) {
                          const Number branch = build(child, next, edges);
                          first = add({Step::Kind::Either, branch, first, nullptr});
                      });
        return first;
    }
    case PatternNode::Kind::Repeat:
        return buildRepeat(node, next, edges);
    default:
        return next;
    }
}

PatternSteps::Number PatternSteps::buildSet(const PatternNode &node, Number next) {
    const Number narrow = add({Step::Kind::Bytes, next, 0, &node.bytes});
    if (!node.wide) {
        return narrow;
    }
    // A sequence of bytes above 127.
    const Number again = add({Step::Kind::Either, next, 0, nullptr});
    const Number high = add({Step::Kind::Bytes, again, 0, &highBytes()});
    steps_[again].other = high;
    return add({Step::Kind::Either, narrow, high, nullptr});
}

PatternSteps::Number PatternSteps::buildRepeat(const PatternNode &node, Number next, Edges edges) {
    const PatternNode &child = node.children.front();
    const std::size_t size = s_size(child) + 1;
    if (!budget_->takeSteps(size * kStepCost)) {
        return next;
    }
    const Times times = s_times(node, size);
    std::size_t copies = times.least;
    if (times.more == PatternNode::kUnlimited) {
        const Number again = add({Step::Kind::Either, next, next, nullptr});
        const Number once = build(child, again, edges);
        steps_[again].other = once;
        next = copies == 0 ? again : once;
        copies -= copies == 0 ? 0 : 1;
    } else {
        const Number done = next;
        for (std::size_t i = 0; i < times.more; ++i) {
            next = add({Step::Kind::Either, build(child, next, edges), done, nullptr});
        }
    }
    for (; copies > 0; --copies) {
        next = build(child, next, edges);
    }
    return next;
}

// What can be reached without taking a byte.
PatternSteps::Next PatternSteps::follow(Number first, bool start) const {
    Next next;
    std::size_t met = 0;
    std::vector<bool> seen(steps_.size());
    std::vector<Number> open{first};
    while (!open.empty()) {
        const Number number = open.back();
        open.pop_back();
        if (seen[number]) {
            continue;
        }
        seen[number] = true;
        ++met;
        const Step &step = steps_[number];
        switch (step.kind) {
        case Step::Kind::Accept:
            next.accepts = true;
            break;
        case Step::Kind::Either:
            open.push_back(step.other);
            open.push_back(step.next);
            break;
        case Step::Kind::Start:
            if (start) {
                open.push_back(step.next);
            }
            break;
        default:
            next.steps.push_back(number);
        }
    }
    std::sort(next.steps.begin(), next.steps.end());
    const bool suffices =
        budget_->takeSteps(kFollowCost + met * kMetCost + steps_.size() / kOthers);
    next.accepts = next.accepts || !suffices;
    return next;
}

} // namespace Corvane::Regex
