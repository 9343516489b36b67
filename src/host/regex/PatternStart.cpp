#include "host/regex/PatternStart.h"

#include <algorithm>
#include <array>
#include <string_view>

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

} // namespace Corvane::Regex
