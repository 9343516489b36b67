#include "MailboxMark.h"

#include <algorithm>
#include <array>

namespace Corvane::Cli {

namespace {

constexpr std::string_view kBlanks = " \t";

bool s_isDigit(char byte) {
    return byte >= '0' && byte <= '9';
}

bool s_isCapital(char byte) {
    return byte >= 'A' && byte <= 'Z';
}

bool s_areDigits(std::string_view word, std::size_t least, std::size_t most) {
    return word.size() >= least && word.size() <= most &&
           std::all_of(word.begin(), word.end(), s_isDigit);
}

template <std::size_t N>
bool s_isOneOf(std::string_view word, const std::array<std::string_view, N> &words) {
    return std::find(words.begin(), words.end(), word) != words.end();
}

bool s_isMonth(std::string_view word) {
    static constexpr std::array<std::string_view, 12> kMonths = {
        "Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    return s_isOneOf(word, kMonths);
}

bool s_isWeekday(std::string_view word) {
    static constexpr std::array<std::string_view, 7> kDays = {"Mon", "Tue", "Wed", "Thu",
                                                              "Fri", "Sat", "Sun"};
    return s_isOneOf(word, kDays);
}

bool s_isDay(std::string_view word) {
    constexpr std::size_t kDigits = 2;
    return s_areDigits(word, 1, kDigits);
}

bool s_isYear(std::string_view word) {
    constexpr std::size_t kDigits = 4;
    return s_areDigits(word, kDigits, kDigits);
}

// "9:01", "09:01" or "09:01:00".
bool s_isTime(std::string_view word) {
    constexpr std::size_t kMostParts = 3;
    constexpr std::size_t kDigits = 2;
    std::size_t parts = 0;
    for (bool more = true; more; ++parts) {
        const std::size_t colon = word.find(':');
        if (!s_areDigits(word.substr(0, colon), parts == 0 ? 1 : kDigits, kDigits)) {
            return false;
        }
        more = colon != std::string_view::npos;
        word.remove_prefix(more ? colon + 1 : word.size());
    }
    return parts > 1 && parts <= kMostParts;
}

// "+0200", "CEST", "(UTC)" or "MET" of "MET DST".
bool s_isZone(std::string_view word) {
    constexpr std::size_t kOffsetDigits = 4;
    constexpr std::size_t kMostLetters = 5;
    if (word.front() == '+' || word.front() == '-') {
        return s_areDigits(word.substr(1), kOffsetDigits, kOffsetDigits);
    }
    if (word.front() == '(' && word.back() == ')') {
        word = word.substr(1, word.size() - 2);
    }
    return !word.empty() && word.size() <= kMostLetters &&
           std::all_of(word.begin(), word.end(), s_isCapital);
}

// Takes the next word off the line, a comma behind it left out; "" at the end.
std::string_view s_takeWord(std::string_view &line) {
    line.remove_prefix(std::min(line.find_first_not_of(kBlanks), line.size()));
    std::string_view word = line.substr(0, line.find_first_of(kBlanks));
    line.remove_prefix(word.size());
    if (word.size() > 1 && word.back() == ',') {
        word.remove_suffix(1);
    }
    return word;
}

struct DatePart {
    bool (*isWord)(std::string_view);
    std::size_t least;
    std::size_t most;
};

// A word counts as the first part that it can be.
constexpr std::array<DatePart, 6> kDateParts = {{{s_isMonth, 1, 1},
                                                 {s_isWeekday, 0, 1},
                                                 {s_isTime, 1, 1},
                                                 {s_isDay, 1, 1},
                                                 {s_isYear, 1, 1},
                                                 {s_isZone, 0, 2}}};

// Whether the line is a date to its end.
bool s_isDate(std::string_view line) {
    std::array<std::size_t, kDateParts.size()> counts{};
    for (std::string_view word = s_takeWord(line); !word.empty() && word != "remote";
         word = s_takeWord(line)) {
        const auto part = std::find_if(kDateParts.begin(), kDateParts.end(),
                                       [word](const DatePart &each) { return each.isWord(word); });
        if (part == kDateParts.end()) {
            return false;
        }
        ++counts.at(static_cast<std::size_t>(part - kDateParts.begin()));
    }
    return std::equal(counts.begin(), counts.end(), kDateParts.begin(),
                      [](std::size_t count, const DatePart &part) {
                          return count >= part.least && count <= part.most;
                      });
}

// Takes the sender off the line: one word, in which a quoted name may hold blanks.
void s_takeSender(std::string_view &line) {
    bool quoted = false;
    std::size_t at = 0;
    while (at < line.size() && (quoted || kBlanks.find(line[at]) == std::string_view::npos)) {
        quoted = line[at] == '"' ? !quoted : quoted;
        ++at;
    }
    line.remove_prefix(at);
}

} // namespace

bool isMailboxMark(std::string_view line) {
    if (line.substr(0, kMarkStart.size()) != kMarkStart) {
        return false;
    }
    line.remove_prefix(kMarkStart.size());
    line = line.substr(0, line.find_last_not_of(" \t\r\n") + 1);
    line.remove_prefix(std::min(line.find_first_not_of(kBlanks), line.size()));
    if (s_isDate(line)) {
        return true;
    }
    s_takeSender(line);
    return s_isDate(line);
}

} // namespace Corvane::Cli
