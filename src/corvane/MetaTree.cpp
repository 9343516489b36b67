#include "corvane/MetaTree.h"

#include <list>
#include <string>

namespace corvane {

namespace {

using Corvane::Heuristic::MetaRule;
using Corvane::Heuristic::RefMatches;
using Atom = MetaRule::Atom;
using Position = std::list<Atom>::const_iterator;

std::string s_written(const Atom &atom) {
    switch (atom.opvalue()) {
    case '&':
        return "&&";
    case '|':
        return "||";
    case 'L':
        return "<=";
    case 'G':
        return ">=";
    default:
        return std::string(1, atom.opvalue());
    }
}

// Where the group ends whose parenthesis was opened before at; the end of the expression where
// nothing closes it.
Position s_groupEnd(Position at, Position end) {
    unsigned int open = 1;
    for (; at != end; ++at) {
        open += at->is('(') ? 1U : 0U;
        open -= at->is(')') ? 1U : 0U;
        if (open == 0) {
            return at;
        }
    }
    return end;
}

class Tree {
public:
    Tree(const MetaRule &rule, const RefMatches &matches) : rule_(rule), matches_(matches) {}

    std::vector<MetaStep> take() {
        add();
        return std::move(steps_);
    }

private:
    // Goes through the expression once; the ends of the groups that are open give the depth.
    void add() {
        std::string operation;
        unsigned int depth = 0;
        const Position end = rule_.atoms().end();
        for (Position at = rule_.atoms().begin(); at != end; ++at) {
            if (at->is(')')) {
                depth -= depth > 0 ? 1U : 0U;
            } else if (at->is('(')) {
                const Position inner = std::next(at);
                addStep(depth++, operation, "(",
                        rule_.valueOf(inner, s_groupEnd(inner, end), matches_));
            } else if (at->type() == Atom::Operator) {
                operation.append(operation.empty() ? "" : " ").append(s_written(*at));
            } else {
                addStep(depth, operation, at->strvalue(),
                        rule_.valueOf(at, std::next(at), matches_));
            }
        }
    }

    void addStep(unsigned int depth, std::string &operation, const std::string &operand,
                 float value) {
        steps_.push_back({depth, operation, operand, value});
        operation.clear();
    }

    const MetaRule &rule_;
    const RefMatches &matches_;
    std::vector<MetaStep> steps_;
};

} // namespace

std::vector<MetaStep> metaTree(const MetaRule &rule, const RefMatches &matches) {
    return Tree(rule, matches).take();
}

} // namespace corvane
