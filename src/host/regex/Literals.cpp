#include "host/regex/Literals.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <utility>

#include "host/parser/Exception.h"
#include "host/parser/Text.h"
#include "host/regex/EdgeFacts.h"
#include "host/regex/LiteralFacts.h"
#include "host/regex/LiteralFrequency.h"
#include "host/regex/PatternParser.h"
#include "host/regex/PhraseFinder.h"

namespace Corvane::Regex {

namespace {

// The squeezed text is made for literals that spare much work: those at most this frequent, where
// plain ones are that frequent and so many times more.
constexpr double kMaxSqueezedPerMiB = 1024;
constexpr double kFrequentPerMiB = 256;
constexpr double kSqueezedGain = 16;
// A phrase spares so much work that its literals may be found more often than others by this factor, or this often.
constexpr double kPhraseGain = 4;
constexpr double kRarePerMiB = 2;
// A match of so few steps is never given up; where one may be, a literal that is found is no match yet. Far below the
// steps that a try may take, since they are counted roughly.
constexpr unsigned int kMaxSureSteps = 2048;
// Steps to read each byte of a pattern, to look for the rarest part of a literal at each of its bytes, and to compare two
// literals or branches.
constexpr std::uint64_t kPatternByteSteps = 96;
constexpr std::uint64_t kPartByteSteps = 256;
constexpr std::uint64_t kComparisonSteps = 16;

// What is worked out of a pattern, and what that may cost.
struct Search {
    TextKind kind;
    WorkBudget &budget;
};

void s_shorten(Piece &piece, TextKind kind) {
    const auto [start, end] = rarestPart(piece.bytes, kind);
    const std::size_t first = piece.bytes.find_first_not_of('\0', start);
    if (first < end) {
        piece.bytes = piece.bytes.substr(first, end - first);
    }
}

Literal s_literal(const Piece &piece) {
    const bool letters = std::any_of(piece.bytes.begin(), piece.bytes.end(), [](char c) {
        return toLowerAscii(c) >= 'a' && toLowerAscii(c) <= 'z';
    });
    return {piece.bytes, piece.folds && letters};
}

void s_addLiteral(std::vector<Literal> &literals, const Piece &piece) {
    Literal literal = s_literal(piece);
    if (std::find(literals.begin(), literals.end(), literal) == literals.end()) {
        literals.push_back(std::move(literal));
    }
}

// Nothing where that costs too much.
std::vector<Literal> s_literals(const Pieces &pieces, const Search &search) {
    std::vector<Literal> literals;
    for (Piece piece : pieces) {
        if (!search.budget.takeSteps(piece.bytes.size() * kPartByteSteps +
                                     literals.size() * kComparisonSteps)) {
            return {};
        }
        s_shorten(piece, search.kind);
        s_addLiteral(literals, piece);
    }
    return literals;
}

double s_hitsPerMiB(const std::vector<Literal> &literals, const Search &search) {
    double hits = 0;
    for (const Literal &literal : literals) {
        search.budget.takeSteps(literal.bytes.size() * kPartByteSteps);
        hits += expectedPerMiB(literal.bytes, search.kind);
    }
    return hits;
}

// Whether nothing is left to ask once one of first has been found.
bool s_implies(const Factor &first, const Factor &second, WorkBudget &budget) {
    const std::size_t comparisons = first.pieces.size() * second.pieces.size();
    return !budget.takeSteps(comparisons * kComparisonSteps) ||
           std::all_of(first.pieces.begin(), first.pieces.end(), [&](const Piece &piece) {
               return std::any_of(second.pieces.begin(), second.pieces.end(),
                                  [&](const Piece &part) { return holds(piece, part); });
           });
}

// How a try at one position may go on: the paths through a part of a pattern, also those that read the same, and the
// steps on all of them.
struct Effort {
    double paths = 1;
    double steps = 0;
};

Effort s_then(const Effort &first, const Effort &second) {
    return {first.paths * second.paths, first.steps + first.paths * second.steps};
}

Effort s_effort(const PatternNode &node);

bool s_isTooMuch(const Effort &effort) {
    return effort.steps > kMaxSureSteps;
}

// This and s_effort answer soon where there are too many steps: each of theirs adds to those.
Effort s_repeated(const Effort &once, std::size_t least, std::size_t most) {
    Effort all{0, 0};
    Effort power;
    for (std::size_t times = 0; !s_isTooMuch(power); ++times) {
        all.paths += times >= least ? power.paths : 0;
        if (times == most) {
            break;
        }
        power = s_then(power, {once.paths, once.steps + 1});
    }
    all.steps = power.steps;
    return all;
}

Effort s_effort(const PatternNode &node) {
    Effort all;
    switch (node.kind) {
    case PatternNode::Kind::Sequence:
        for (const PatternNode &child : node.children) {
            if (s_isTooMuch(all)) {
                break;
            }
            all = s_then(all, s_effort(child));
        }
        return all;
    case PatternNode::Kind::Alternation:
        all.paths = 0;
        for (const PatternNode &child : node.children) {
            if (s_isTooMuch(all)) {
                break;
            }
            const Effort branch = s_effort(child);
            all = {all.paths + branch.paths, all.steps + branch.steps + 1};
        }
        return all;
    case PatternNode::Kind::Repeat:
        return s_repeated(s_effort(node.children.front()), node.least, node.most);
    default:
        return all;
    }
}

// The literals that an expression consists of, where finding one of them is a match.
bool s_isWhole(const Facts &facts, const FactFinder &finder, Factor &factor) {
    const bool comparable =
        std::none_of(facts.prefix.begin(), facts.prefix.end(), [](const Piece &piece) {
            return piece.bytes.empty() || piece.bytes[0] == '\0' || (piece.folds && piece.strict);
        });
    return facts.exact && comparable && !facts.prefix.empty() &&
           finder.makeFactor(facts.prefix, factor);
}

void s_chooseLiterals(const Facts &facts, const Search &search, RequiredLiterals &required) {
    if (facts.factors.empty()) {
        return;
    }
    const Factor &first = facts.factors.front();
    required.alternatives = s_literals(first.pieces, search);
    const auto second =
        std::find_if(facts.factors.begin() + 1, facts.factors.end(), [&](const Factor &factor) {
            return factor.run != first.run && factor.pieces.size() <= kMaxSecond &&
                   !s_implies(first, factor, search.budget);
        });
    if (second != facts.factors.end() && !required.alternatives.empty()) {
        required.second = s_literals(second->pieces, search);
    }
}

// The alternation that the pattern consists of but for assertions; null where it is something else.
const PatternNode *s_alternation(const PatternNode &root) {
    const PatternNode *node = &root;
    while (node->kind == PatternNode::Kind::Sequence ||
           (node->kind == PatternNode::Kind::Alternation && node->children.size() == 1)) {
        const PatternNode *only = nullptr;
        for (const PatternNode &child : node->children) {
            if (isZeroWidth(child)) {
                continue;
            }
            if (only != nullptr) {
                return nullptr;
            }
            only = &child;
        }
        if (only == nullptr) {
            return nullptr;
        }
        node = only;
    }
    return node->kind == PatternNode::Kind::Alternation ? node : nullptr;
}

// Adds the literals of one branch with what else it must hold; false where it has none.
bool s_addBranch(const PatternNode &branch, const Search &search, RequiredLiterals &required) {
    const Facts facts =
        FactFinder(search.kind, FactFinder::View::Plain, search.budget).find(branch);
    if (facts.factors.empty()) {
        return false;
    }
    const Factor &first = facts.factors.front();
    const auto second =
        std::find_if(facts.factors.begin() + 1, facts.factors.end(), [&](const Factor &factor) {
            return factor.run != first.run && factor.pieces.size() == 1 &&
                   !s_implies(first, factor, search.budget);
        });
    std::vector<Literal> companions;
    if (second != facts.factors.end()) {
        companions = s_literals(second->pieces, search);
    }
    const Literal companion = companions.empty() ? Literal() : companions.front();
    const std::vector<Literal> literals = s_literals(first.pieces, search);
    const std::size_t comparisons = literals.size() * required.alternatives.size();
    if (literals.empty() || !search.budget.takeSteps(comparisons * kComparisonSteps)) {
        return false;
    }
    for (const Literal &literal : literals) {
        const auto known =
            std::find(required.alternatives.begin(), required.alternatives.end(), literal);
        if (known == required.alternatives.end()) {
            required.alternatives.push_back(literal);
            required.companions.push_back(companion);
            continue;
        }
        Literal &other =
            required.companions[static_cast<std::size_t>(known - required.alternatives.begin())];
        other = other == companion ? other : Literal();
    }
    return required.alternatives.size() <= kMaxAlternatives;
}

// Where the pattern is a list of branches, some of which need two literals, asks for both.
void s_chooseByBranch(const PatternNode &root, const Search &search, RequiredLiterals &required) {
    const PatternNode *list = s_alternation(root);
    if (list == nullptr || required.alternatives.empty()) {
        return;
    }
    RequiredLiterals branches;
    for (const PatternNode &branch : list->children) {
        if (!s_addBranch(branch, search, branches)) {
            return;
        }
    }
    const bool asksForMore =
        std::any_of(branches.companions.begin(), branches.companions.end(),
                    [](const Literal &companion) { return !companion.bytes.empty(); });
    if (asksForMore) {
        required.alternatives = std::move(branches.alternatives);
        required.companions = std::move(branches.companions);
        required.second.clear();
    }
}

// Whether both branches may get beyond their first characters at the same place of a text.
bool s_mayMeet(const PhraseEffort &left, const PhraseEffort &right) {
    const std::size_t length = std::min(left.start.size(), right.start.size());
    for (std::size_t i = 0; i < length; ++i) {
        if ((left.start[i] & right.start[i]).none()) {
            return false;
        }
    }
    return true;
}

// The longest text on which the engine never gives up a try of the branches: at each place it takes a step for each item,
// and for each byte one in every branch that may read it, and in every optional item there.
std::size_t s_sureLength(const std::vector<PhraseEffort> &branches, WorkBudget &budget) {
    std::size_t items = 0;
    std::size_t ways = 1;
    std::size_t optional = 0;
    std::size_t repeated = 0;
    for (const PhraseEffort &branch : branches) {
        if (!branch.isKnown) {
            return 0;
        }
        if (!budget.takeSteps(branches.size() * (branch.start.size() + kComparisonSteps))) {
            return 0;
        }
        const auto meeting =
            std::count_if(branches.begin(), branches.end(),
                          [&](const PhraseEffort &other) { return s_mayMeet(branch, other); });
        items += branch.items + 1;
        ways = std::max(ways, static_cast<std::size_t>(meeting));
        optional = std::max(optional, branch.optional);
        repeated = std::max(repeated, branch.repeated);
    }
    if (items >= kMaxSureSteps) {
        return 0;
    }
    const std::size_t bytes = (kMaxSureSteps - items) / (ways * (1 + optional));
    return repeated <= bytes ? PatternNode::kUnlimited : bytes;
}

// Where the pattern is a phrase or a list of such, and their literals are about as rare, asks for the phrases.
void s_choosePhrases(const ParsedPattern &parsed, const Search &search,
                     RequiredLiterals &required) {
    const PatternNode *list = s_alternation(parsed.root);
    const auto *first = list == nullptr ? &parsed.root : list->children.data();
    const std::size_t count = list == nullptr ? 1 : list->children.size();
    if (required.alternatives.empty() || count > kMaxAlternatives) {
        return;
    }
    RequiredLiterals phrases;
    std::vector<PhraseEffort> efforts;
    bool asksForMore = false;
    for (const PatternNode *branch = first; branch != first + count; ++branch) {
        std::optional<AnchoredPhrase> found = findPhrase(*branch, search.kind, search.budget);
        if (!found.has_value()) {
            return;
        }
        asksForMore = asksForMore || !found->phrase.before.empty() || !found->phrase.after.empty();
        phrases.alternatives.push_back(s_literal(found->anchor));
        phrases.phrases.push_back(std::move(found->phrase));
        efforts.push_back(std::move(found->effort));
    }
    const double hits = s_hitsPerMiB(phrases.alternatives, search);
    if (!asksForMore || hits > required.alternativesPerMiB * kPhraseGain + kRarePerMiB) {
        return;
    }
    required.alternatives = std::move(phrases.alternatives);
    required.phrases = std::move(phrases.phrases);
    required.companions.clear();
    required.second.clear();
    required.alternativesPerMiB = hits;
    required.wholeUpTo = parsed.exact && parsed.greedy ? s_sureLength(efforts, search.budget) : 0;
    required.whole = required.wholeUpTo > 0;
}

void s_chooseSqueezed(const PatternNode &root, const Search &search, RequiredLiterals &required) {
    if (!required.alternatives.empty() && required.alternativesPerMiB < kFrequentPerMiB) {
        return;
    }
    const Facts facts =
        FactFinder(search.kind, FactFinder::View::Squeezed, search.budget).find(root);
    if (facts.factors.empty() || facts.factors.front().cost > kMaxSqueezedPerMiB) {
        return;
    }
    std::vector<Literal> literals = s_literals(facts.factors.front().pieces, search);
    const double hits = s_hitsPerMiB(literals, search);
    if (literals.empty()) {
        return;
    }
    if (required.alternatives.empty() || hits * kSqueezedGain < required.alternativesPerMiB) {
        required.squeezed = std::move(literals);
        required.squeezedPerMiB = hits;
    }
}

// Whether what the tree tells of matches is true of the pattern's.
bool s_isExact(const ParsedPattern &parsed, const Definition &definition) {
    // Where CR and LF both end a line, the engine begins no match between them.
    const bool mayBeginAtLf = definition.anyLineEnd && mayBeginWith(parsed.root, '\n');
    return parsed.exact && !definition.utf && !mayBeginAtLf;
}

RequiredLiterals s_find(ParsedPattern &parsed, const Definition &definition, const Search &search) {
    parsed.exact = s_isExact(parsed, definition);
    // The other half is for making use of the facts.
    const std::uint64_t half = search.budget.steps() / 2;
    WorkBudget budgetOfFacts(half);
    FactFinder finder(search.kind, FactFinder::View::Plain, budgetOfFacts);
    const Facts facts = finder.find(parsed.root);
    search.budget.takeSteps(half - budgetOfFacts.steps());
    RequiredLiterals required;
    required.minimumLength = facts.least;
    if (!definition.utf) {
        const EdgeFacts edges = findEdgeFacts(parsed.root);
        required.maximumLength = edges.maximumLength;
        required.firstBytes = edges.firstBytes.value_or(~ByteSet());
    }
    Factor whole;
    if (parsed.exact && !s_isTooMuch(s_effort(parsed.root)) && s_isWhole(facts, finder, whole)) {
        required.whole = true;
        for (const Piece &piece : whole.pieces) {
            s_addLiteral(required.alternatives, piece);
        }
    } else {
        s_chooseLiterals(facts, search, required);
        s_chooseByBranch(parsed.root, search, required);
    }
    required.alternativesPerMiB = s_hitsPerMiB(required.alternatives, search);
    if (!required.whole) {
        s_choosePhrases(parsed, search, required);
    }
    if (required.alternatives.empty()) {
        FactFinder byteFinder(search.kind, FactFinder::View::Bytes, search.budget);
        for (const RareSet &set : byteFinder.find(parsed.root).sets) {
            required.byteSets.push_back(set.bytes);
        }
    }
    if (!required.whole) {
        s_chooseSqueezed(parsed.root, search, required);
    }
    return required;
}

} // namespace

RequiredLiterals requiredLiterals(const std::string &text, unsigned int options, TextKind kind) {
    WorkBudget budget(kMaxPatternSteps);
    return requiredLiterals(text, options, kind, budget);
}

RequiredLiterals requiredLiterals(const std::string &text, unsigned int options, TextKind kind,
                                  WorkBudget &budget) {
    WorkBudget own(std::min(budget.steps(), kMaxPatternSteps));
    const std::uint64_t most = own.steps();
    RequiredLiterals required;
    if (!text.empty() && own.takeSteps(text.size() * kPatternByteSteps)) {
        try {
            const Definition definition = parseDefinition(text, options);
            auto parsed = parsePattern(definition);
            if (parsed.has_value()) {
                required = s_find(*parsed, definition, {kind, own});
            }
        } catch (const Exception &) {
        }
    }
    budget.takeSteps(most - own.steps());
    return required;
}

} // namespace Corvane::Regex
