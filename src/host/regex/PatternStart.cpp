#include "host/regex/PatternStart.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <vector>

namespace Corvane::Regex {

namespace {

constexpr std::string_view kNotEmpty = "NOTEMPTY";
constexpr std::string_view kNotEmptyAtStart = "NOTEMPTY_ATSTART";

// What else stands in such brackets, without a colon: no option, wherever it is.
constexpr std::array<std::string_view, 7> kVerbs = {"ACCEPT", "COMMIT", "F",   "FAIL",
                                                    "PRUNE",  "SKIP",   "THEN"};

constexpr std::array<std::string_view, 6> kNonAtomicOpenings = {
    "(?*",
    "(?<*",
    "(*napla:",
    "(*naplb:",
    "(*non_atomic_positive_lookahead:",
    "(*non_atomic_positive_lookbehind:"};

// Engines to come may know others than this one: all are capitals, with a number where it takes one.
bool s_isStartOption(std::string_view word) {
    constexpr std::string_view kLetters = "ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_=";
    return word.find_first_not_of(kLetters) == std::string_view::npos &&
           std::find(kVerbs.begin(), kVerbs.end(), word) == kVerbs.end();
}

// Whether it may hold (?x) or the like.
bool s_mayBecomeExtended(const std::string &pattern) {
    constexpr std::string_view kOpening = "(?";
    constexpr std::string_view kOptions = "imsxnJU^-";
    for (std::size_t at = pattern.find(kOpening); at != std::string::npos;
         at = pattern.find(kOpening, at)) {
        at += kOpening.size();
        const std::size_t end = std::min(pattern.find_first_not_of(kOptions, at), pattern.size());
        if (pattern.find('x', at) < end) {
            return true;
        }
    }
    return false;
}

// Goes over a pattern, looking for what stands outside of classes, quotations and comments.
class LookaheadFinder {
public:
    explicit LookaheadFinder(const std::string &pattern) : pattern_(pattern) {}

    LookaheadCalls find() {
        while (at_ < pattern_.size()) {
            step();
        }
        return calls_;
    }

private:
    static constexpr std::string_view kCall = "(?C)";

    bool looksAt(std::string_view expected) const {
        return pattern_.compare(at_, expected.size(), expected) == 0;
    }

    void copy(std::size_t bytes) {
        calls_.pattern.append(pattern_, at_, bytes);
        at_ += std::min(bytes, pattern_.size() - at_);
    }

    void copyThrough(std::string_view end) {
        const std::size_t found = pattern_.find(end, at_);
        copy(found == std::string::npos ? pattern_.size() - at_ : found + end.size() - at_);
    }

    void copyEscape() {
        if (looksAt("\\Q")) {
            copyThrough("\\E");
        } else {
            copy(looksAt("\\c") ? 3 : 2);
        }
    }

    // A closing bracket that comes first is one of the class.
    void copyClass() {
        copy(looksAt("[^") ? 2 : 1);
        copy(looksAt("]") ? 1 : 0);
        while (at_ < pattern_.size() && !looksAt("]")) {
            if (looksAt("\\")) {
                copyEscape();
            } else if (looksAt("[:")) {
                const std::size_t end = pattern_.find(":]", at_);
                copy(end != std::string::npos ? end + 2 - at_ : 1);
            } else {
                copy(1);
            }
        }
        copy(1);
    }

    void open() {
        constexpr std::array<std::string_view, 6> kLookaheads = {
            "(?=", "(?!", "(*pla:", "(*nla:", "(*positive_lookahead:", "(*negative_lookahead:"};
        for (const std::string_view lookahead : kLookaheads) {
            if (looksAt(lookahead)) {
                copy(lookahead.size());
                calls_.pattern += kCall;
                groups_.push_back(true);
                return;
            }
        }
        groups_.push_back(!groups_.empty() && groups_.back());
        copy(1);
    }

    void step() {
        const char c = pattern_[at_];
        if (c == '\\') {
            copyEscape();
        } else if (c == '[') {
            copyClass();
        } else if (looksAt("(?#")) {
            copyThrough(")");
        } else if (c == '(') {
            open();
        } else {
            if (c == ')' && !groups_.empty()) {
                groups_.pop_back();
            } else if (c == '*' || c == '+' || c == '{') {
                calls_.isUnbounded |= !groups_.empty() && groups_.back();
            }
            copy(1);
        }
    }

    const std::string &pattern_;
    std::size_t at_ = 0;
    // Whether each group that is open is, or is in, a look-ahead.
    std::vector<bool> groups_;
    LookaheadCalls calls_;
};

// The pattern with another letter in each such escape.
std::string s_withEscape(const std::string &pattern, char letter, char other) {
    std::string result = pattern;
    bool quoted = false;
    for (std::size_t at = 0; at + 1 < result.size(); ++at) {
        if (result[at] != '\\') {
            continue;
        }
        char &escaped = result[++at];
        if (quoted) {
            // A backslash is a character here, and so may be the one behind it.
            quoted = escaped != 'E';
            at -= quoted ? 1 : 0;
        } else if (escaped == 'Q') {
            quoted = true;
        } else if (escaped == 'c') {
            ++at;
        } else if (escaped == letter) {
            escaped = other;
        }
    }
    return result;
}

} // namespace

StartOptions readStartOptions(const std::string &pattern) {
    constexpr std::string_view kOpening = "(*";
    StartOptions options;
    while (pattern.compare(options.end, kOpening.size(), kOpening) == 0) {
        const std::size_t word = options.end + kOpening.size();
        const std::size_t close = pattern.find(')', word);
        if (close == std::string::npos || close == word) {
            break;
        }
        const std::string_view name(pattern.data() + word, close - word);
        if (!s_isStartOption(name)) {
            break;
        }
        options.mindsEmpty = options.mindsEmpty || name.substr(0, kNotEmpty.size()) == kNotEmpty;
        if (name == kNotEmptyAtStart) {
            options.notEmptyAtStart = true;
        } else {
            options.others.append(pattern, options.end, close + 1 - options.end);
        }
        options.end = close + 1;
    }
    return options;
}

bool mayHoldNonAtomicLookaround(const std::string &pattern) {
    return std::any_of(kNonAtomicOpenings.begin(), kNonAtomicOpenings.end(),
                       [&pattern](std::string_view opening) {
                           return pattern.find(opening) != std::string::npos;
                       });
}

bool mayHoldVerb(const std::string &pattern) {
    constexpr std::string_view kOpening = "(*";
    constexpr std::string_view kFirst = "ABCDEFGHIJKLMNOPQRSTUVWXYZ:";
    std::size_t at = pattern.find(kOpening, readStartOptions(pattern).end);
    while (at != std::string::npos) {
        at += kOpening.size();
        if (at < pattern.size() && kFirst.find(pattern[at]) != std::string_view::npos) {
            return true;
        }
        at = pattern.find(kOpening, at);
    }
    return false;
}

std::string startingAtText(const std::string &pattern) {
    return s_withEscape(pattern, 'G', 'A');
}

std::string withoutResets(const std::string &pattern) {
    return s_withEscape(pattern, 'K', 'E');
}

LookaheadCalls callsInLookaheads(const std::string &pattern, bool isExtended) {
    const bool mayHoldComment = pattern.find('#') != std::string::npos;
    const bool mayBeExtended = isExtended || s_mayBecomeExtended(pattern);
    LookaheadCalls calls = LookaheadFinder(pattern).find();
    if (mayHoldComment && mayBeExtended) {
        calls.pattern = pattern;
        calls.isSure = false;
    }
    return calls;
}

} // namespace Corvane::Regex
