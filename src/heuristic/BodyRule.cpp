#include "heuristic/BodyRule.h"

#include <algorithm>
#include <cstdint>

#include "heuristic/Definition.h"
#include "heuristic/Failure.h"
#include "heuristic/LogRecords.h"
#include "host/parser/Logger.h"

namespace Corvane::Heuristic {

namespace {

constexpr const char *kFile = "BodyRule";
constexpr unsigned int kValueLine = 42;
constexpr unsigned int kCheckLine = 219;
constexpr unsigned char kLineFeed = '\n';

// Cuts every CR and LF off the end.
void s_stripLineEnd(Buffer &line) {
    unsigned int length = line.length();
    while (length > 0 && (line.data()[length - 1] == '\r' || line.data()[length - 1] == '\n')) {
        --length;
    }
    line.length(length);
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

BodyCheck::BodyCheck(const BodyCheck &) = default;
BodyCheck &BodyCheck::operator=(const BodyCheck &) = default;
BodyCheck::~BodyCheck() = default;

void BodyCheck::check(const Buffer &body, bool raw) {
    try {
        checkLines(body, raw);
    } catch (const Exception &failure) {
        wrap(failure, "BodyCheck::body", kFile, kCheckLine);
    }
}

void BodyCheck::checkLines(const Buffer &body, bool raw) {
    const unsigned int limit = raw ? kMaxRawBytes : kMaxDecodedBytes;
    LineBuffer lines(body);
    for (std::uint64_t total = 0; total < limit;) {
        lines.getLine(work_, kLineFeed);
        if (work_.isEmpty()) {
            if (!lines.endOfBuffer()) {
                // The unterminated rest is neither cut nor counted, and what it matches is not
                // erased.
                work_.append(lines.mid(lines.startOfLine()));
                tryAll(work_);
            }
            return;
        }
        if (!raw) {
            s_stripLineEnd(work_);
        }
        total += work_.length();
        if (checkLine(work_)) {
            return;
        }
    }
}

// Tries one complete line in pieces; answers whether the match set has tripped.
bool BodyCheck::checkLine(const Buffer &line) {
    unsigned int length = 0;
    for (unsigned int offset = 0; offset < line.length(); offset += length) {
        length = std::min(kMaxPieceBytes, line.length() - offset);
        if (checkPiece(Buffer(line.data() + offset, length, true))) {
            return true;
        }
    }
    return false;
}

bool BodyCheck::checkPiece(const Buffer &piece) {
    eraseAll(rules_, tryAll(piece));
    return matches_->tripped();
}

std::list<RefRule> BodyCheck::tryAll(const Buffer &text) {
    return tryRules(rules_, [&text](const Rule &rule) {
        return static_cast<const BodyRule &>(rule).matches(text);
    });
}

} // namespace Corvane::Heuristic
