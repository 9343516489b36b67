#include "heuristic/BodyRule.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

#include "heuristic/Definition.h"
#include "heuristic/Failure.h"
#include "heuristic/FilteredList.h"
#include "heuristic/LogRecords.h"
#include "host/parser/Logger.h"

namespace Corvane::Heuristic {

namespace {

constexpr const char *kFile = "BodyRule";
constexpr unsigned int kValueLine = 42;
constexpr unsigned int kCheckLine = 219;
constexpr unsigned char kLineFeed = '\n';

// A part of a body that rules are tried on at once. The unterminated rest of the body is one, whatever its length.
struct Piece {
    unsigned int start;
    unsigned int length;
    bool isRest;
};

// The length of a line without the CRs and LFs at its end.
unsigned int s_lengthStripped(const unsigned char *line, unsigned int length) {
    while (length > 0 && (line[length - 1] == '\r' || line[length - 1] == '\n')) {
        --length;
    }
    return length;
}

// Calls take for each piece in order, until it answers true. Complete lines are read until they come to the limit; the
// rest only where they do not.
template <class Take>
void s_cut(const Buffer &body, bool raw, Take take) {
    const unsigned int limit = raw ? BodyCheck::kMaxRawBytes : BodyCheck::kMaxDecodedBytes;
    unsigned int start = 0;
    for (std::uint64_t total = 0; total < limit && start < body.length();) {
        const unsigned char *line = body.data() + start;
        const void *found = std::memchr(line, kLineFeed, body.length() - start);
        if (found == nullptr) {
            take(Piece{start, body.length() - start, true});
            return;
        }
        const auto whole =
            static_cast<unsigned int>(static_cast<const unsigned char *>(found) - line) + 1;
        const unsigned int length = raw ? whole : s_lengthStripped(line, whole);
        for (unsigned int offset = 0; offset < length; offset += BodyCheck::kMaxPieceBytes) {
            const unsigned int size = std::min(BodyCheck::kMaxPieceBytes, length - offset);
            if (take(Piece{start + offset, size, false})) {
                return;
            }
        }
        total += length;
        start += whole;
    }
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

void BodyCheck::checkPieces(const Buffer &body, bool raw) {
    s_cut(body, raw, [&](const Piece &piece) {
        const Buffer text(body.data() + piece.start, piece.length, true);
        if (piece.isRest) {
            // What the rest matches is not erased.
            tryAll(text);
            return true;
        }
        eraseAll(rules_, tryAll(text));
        return matches_->tripped();
    });
}

void BodyCheck::checkFiltered(const Buffer &body, bool raw) {
    FilteredPass pass(*filtered_);
    s_cut(body, raw, [&](const Piece &piece) {
        pass.add(piece.start, piece.length);
        return false;
    });
    pass.select(body.data(), body.length(), FilteredPass::Wanted::FirstMatch);
    // The end of a first piece that nothing matches may be the end of the pass as well.
    for (std::uint32_t piece = 0; piece < pass.size();
         piece = pass.nextUnit(piece + 1, pass.size())) {
        pass.addMatches(piece, pass.text(piece, body.data()), matches_);
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
