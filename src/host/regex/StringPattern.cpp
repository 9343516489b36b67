#include "host/regex/StringPattern.h"

#include "host/parser/Text.h"

namespace Corvane {

namespace {

// Matches name against wild, in which * stands for any run. A mismatch goes back to the latest *
// only, which is enough and keeps the work within the product of both lengths.
template <class Fold>
bool s_matchesWild(const std::string &wild, const std::string &name, Fold fold) {
    std::size_t w = 0;
    std::size_t n = 0;
    std::size_t afterStar = std::string::npos;
    std::size_t starEnd = 0;
    while (n < name.size()) {
        if (w < wild.size() && wild[w] == '*') {
            afterStar = ++w;
            starEnd = n;
        } else if (w < wild.size() && wild[w] == fold(name[n])) {
            ++w;
            ++n;
        } else if (afterStar != std::string::npos) {
            w = afterStar;
            n = ++starEnd;
        } else {
            return false;
        }
    }
    return wild.find_first_not_of('*', w) == std::string::npos;
}

} // namespace

StringPattern::StringPattern() : kind_(Kind::Null) {}

StringPattern::StringPattern(const std::string &pattern, bool ignoreCase, bool isRegex)
    : kind_(isRegex ? Kind::Regex : (ignoreCase ? Kind::PlainIgnoringCase : Kind::Plain)) {
    if (isRegex) {
        text_ = ignoreCase ? "i/" : "/";
        text_ += pattern;
        expression_ =
            Regex::Expression(pattern, ignoreCase ? Regex::kIgnoreCase : Regex::kNoOptions, true);
    } else if (ignoreCase) {
        copyStringToLower(pattern.data(), text_, 0, pattern.size());
    } else {
        text_ = pattern;
    }
}

bool StringPattern::matches(const std::string &name) const {
    switch (kind_) {
    case Kind::Plain:
        return s_matchesWild(text_, name, [](char c) { return c; });
    case Kind::PlainIgnoringCase:
        return s_matchesWild(text_, name, toLowerAscii);
    case Kind::Regex:
        return expression_(name, nullptr);
    default:
        return false;
    }
}

std::string StringPattern::key() const {
    std::string key = std::to_string(static_cast<int>(kind_));
    key += text_;
    return key;
}

const std::string *StringPattern::soleName() const {
    const bool sole = kind_ == Kind::PlainIgnoringCase && text_.find('*') == std::string::npos;
    return sole ? &text_ : nullptr;
}

} // namespace Corvane
