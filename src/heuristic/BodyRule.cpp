#include "heuristic/BodyRule.h"

#include <algorithm>
#include <cstdint>
#include <vector>

#include "heuristic/Definition.h"
#include "heuristic/Failure.h"
#include "heuristic/FilteredList.h"
#include "heuristic/LogRecords.h"
#include "heuristic/Pieces.h"
#include "host/parser/Logger.h"
#include "host/regex/LiteralMatcher.h"

namespace Corvane::Heuristic {

namespace {

constexpr const char *kFile = "BodyRule";
constexpr unsigned int kValueLine = 42;
constexpr unsigned int kCheckLine = 219;

// Bodies up to this are copied rather than scanned without bytes behind them.
constexpr std::size_t kMaxCopiedBytes = FilteredPass::kPassBytes;

// The pieces of a decoded text that will be copied to that offset; not all where it is too long for
// that.
void s_addPieces(FilteredPass &pass, const Buffer &body, std::size_t offset) {
    cutIntoPieces(body, false, [&](const Piece &piece) {
        pass.add(static_cast<std::uint32_t>(offset) + piece.start, piece.length);
        return pass.endOfTexts() > kMaxCopiedBytes;
    });
}

} // namespace

BodyRule::BodyRule() : BodyRule(std::string()) {}

BodyRule::BodyRule(const std::string &name) : Rule(Body, name) {}

BodyRule::~BodyRule() = default;

void BodyRule::value(const std::string &definition) {
    try {
        expression_ = isEval(definition) ? Regex::Expression()
                                         : compileTrimmed(definition, Regex::kAnyLineEnd);
        Rule::value(definition);
    } catch (const Exception &failure) {
        wrap(failure, "BodyRule::Value", kFile, kValueLine, name());
    }
}

bool BodyRule::matches(const Buffer &text) const {
    if (!active()) {
        return false;
    }
    if (expression_.isNull()) {
        Logger::instance(false).log(kLogNoExpression, kLogLevel, "%s", value().c_str());
        return false;
    }
    bool failed = false;
    const bool matched = expression_->matches(text, 0, &failed);
    return matched && !failed;
}

BodyCheck::BodyCheck(RefRuleList &rules, RefMatches &matches, unsigned int ordinalCutoff,
                     bool verbose)
    : RuleCheck(matches, ordinalCutoff, verbose), rules_(rules, false) {}

BodyCheck::BodyCheck(FilteredList &filtered, RefMatches &matches) : RuleCheck(filtered, matches) {}

BodyCheck::BodyCheck(const BodyCheck &) = default;
BodyCheck &BodyCheck::operator=(const BodyCheck &) = default;
BodyCheck::~BodyCheck() = default;

void BodyCheck::check(const Buffer &body, bool raw) {
    if (Budget::isOver()) {
        return;
    }
    try {
        if (filtered_ != nullptr) {
            checkFiltered(body, raw);
        } else {
            checkPieces(body, raw);
        }
    } catch (const Exception &failure) {
        wrap(failure, "BodyCheck::body", kFile, kCheckLine);
    }
}

void BodyCheck::checkBoth(const Buffer &first, const Buffer &second) {
    if (Budget::isOver()) {
        return;
    }
    try {
        if (filtered_ != nullptr && checkBothFiltered(first, second)) {
            return;
        }
    } catch (const Exception &failure) {
        wrap(failure, "BodyCheck::body", kFile, kCheckLine);
    }
    if (filtered_ == nullptr) {
        check(first, false);
    }
    check(second, false);
}

void BodyCheck::checkPieces(const Buffer &body, bool raw) {
    cutIntoPieces(body, raw, [&](const Piece &piece) {
        const Buffer text(body.data() + piece.start, piece.length, true);
        if (piece.isRest) {
            // What the rest matches is not erased.
            tryAll(text);
            return true;
        }
        eraseAll(rules_, tryAll(text));
        return isOver();
    });
}

// In portions where the body is of a length that none has which was read with limits.
void BodyCheck::checkFiltered(const Buffer &body, bool raw) {
    FilteredPass pass(*filtered_);
    bool tripped = false;
    cutIntoPieces(body, raw, [&](const Piece &piece) {
        if (pass.isFullAt(piece.start)) {
            pass.select(body.data(), body.length());
            addMatches(pass, 0, pass.size());
            pass.clear();
            tripped = matches_->tripped();
        }
        if (!tripped) {
            pass.add(piece.start, piece.length);
        }
        return tripped;
    });
    if (!tripped) {
        checkLast(pass, body);
    }
}

void BodyCheck::checkLast(FilteredPass &pass, const Buffer &body) {
    const std::size_t end = pass.endOfTexts();
    if (end > kMaxCopiedBytes || end + Regex::LiteralMatcher::kPaddingBytes <= body.length() ||
        !pass.isWorthSearching()) {
        pass.select(body.data(), body.length());
    } else {
        pass.stageBytes(body.data(), end);
        pass.selectStaged();
    }
    addMatches(pass, 0, pass.size());
}

// Answers false, with nothing done but the first, where the second has to be checked on its own.
bool BodyCheck::checkBothFiltered(const Buffer &first, const Buffer &second) {
    bool areSearched = false;
    {
        FilteredPass pass(*filtered_);
        s_addPieces(pass, first, 0);
        const std::uint32_t firstPieces = pass.size();
        const std::size_t firstEnd = pass.endOfTexts();
        s_addPieces(pass, second, firstEnd);
        areSearched = pass.endOfTexts() <= kMaxCopiedBytes && pass.isWorthSearching();
        if (areSearched) {
            pass.stageBytes(first.data(), firstEnd);
            pass.stageBytes(second.data(), pass.endOfTexts() - firstEnd);
            pass.selectStaged();
            addMatches(pass, 0, firstPieces);
            // What tripped the match set may have kept rules of the first from being added, and the
            // second has a piece tried yet.
            if (matches_->tripped()) {
                return false;
            }
            addMatches(pass, firstPieces, pass.size());
        }
    }
    if (!areSearched) {
        checkFiltered(first, false);
    }
    return areSearched;
}

// The end of a first piece that nothing matches may be the end as well.
void BodyCheck::addMatches(FilteredPass &pass, std::uint32_t from, std::uint32_t to) {
    for (std::uint32_t piece = from; piece < to; piece = pass.nextUnit(piece + 1, to)) {
        pass.addMatches(piece, pass.text(piece), matches_);
        if (matches_->tripped()) {
            return;
        }
    }
}

std::list<RefRule> BodyCheck::tryAll(const Buffer &text) {
    return tryRules(rules_, [&text](const Rule &rule) {
        return static_cast<const BodyRule &>(rule).matches(text);
    });
}

} // namespace Corvane::Heuristic
