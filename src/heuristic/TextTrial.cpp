#include "heuristic/TextTrial.h"

#include <string>

#include "heuristic/BodyRule.h"
#include "heuristic/FullRule.h"
#include "heuristic/HeaderRule.h"
#include "heuristic/UriRule.h"
#include "host/parser/Lasting.h"

namespace Corvane::Heuristic {

const Regex::Expression &expressionOf(const Rule &rule) {
    static const auto &s_none = lasting(Regex::Expression());
    switch (rule.type()) {
    case Rule::Header:
        return static_cast<const HeaderRule &>(rule).compiled();
    case Rule::Uri:
        return static_cast<const UriRule &>(rule).compiled();
    case Rule::Body:
    case Rule::RawBody:
        return static_cast<const BodyRule &>(rule).compiled();
    case Rule::Full:
        return static_cast<const FullRule &>(rule).compiled();
    default:
        return s_none;
    }
}

bool isTriedOn(const Rule &rule, const ScannedText &text) {
    if (rule.type() != text.kind) {
        return false;
    }
    if (rule.type() != Rule::Header) {
        return true;
    }
    const auto &header = static_cast<const HeaderRule &>(rule);
    return header.form() == text.form && !header.headers().isNull() &&
           header.headers().matches(std::string(text.header));
}

TextTrial tryOn(const Rule &rule, const ScannedText &text) {
    TextTrial trial;
    const bool isHeader = rule.type() == Rule::Header;
    if (isHeader && static_cast<const HeaderRule &>(rule).asksForPresence()) {
        trial.trips = true;
        return trial;
    }
    const Regex::Expression &expression = expressionOf(rule);
    if (expression.isNull()) {
        return trial;
    }
    trial.range = expression->find(text.text.data(), text.text.length());
    trial.failed = trial.range.failed;
    const bool isPositive = !isHeader || static_cast<const HeaderRule &>(rule).isPositive();
    trial.trips = !trial.failed && trial.range.matched == isPositive;
    return trial;
}

} // namespace Corvane::Heuristic
