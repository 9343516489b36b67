#include "host/regex/HeldPattern.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>
#include <vector>

#include "host/regex/PatternStart.h"

namespace Corvane::Regex {

namespace {

using Place = std::size_t;

constexpr std::string_view kCall = "(?C)";
constexpr std::array<char, 1> kNulByte = {'\0'};
constexpr std::string_view kNul(kNulByte.data(), kNulByte.size());
constexpr std::string_view kDigits = "0123456789";

// Where a comment of an extended pattern may end: at any of some texts.
std::vector<std::string_view> s_lineEnds(const Definition &definition, const std::string &options) {
    const struct {
        std::string_view option;
        std::vector<std::string_view> ends;
    } rows[] = {{"(*CR)", {"\r"}},
                {"(*LF)", {"\n"}},
                {"(*CRLF)", {"\r\n"}},
                {"(*ANYCRLF)", {"\r", "\n"}},
                {"(*NUL)", {kNul}},
                {"(*ANY)", {"\r", "\n", "\v", "\f", definition.utf ? "\xC2\x85" : "\x85"}}};
    std::vector<std::string_view> ends = {"\n"};
    if (definition.anyLineEnd) {
        ends.emplace_back("\r");
    }
    // The last such option holds.
    Place last = 0;
    for (const auto &row : rows) {
        const Place at = options.rfind(row.option);
        if (at != std::string::npos && at >= last) {
            last = at;
            ends = row.ends;
        }
    }
    return ends;
}

// Goes over a pattern once, telling groups from what stands in classes, quotations and comments.
class PatternHolder {
public:
    PatternHolder(const Definition &definition, const StartOptions &start)
        : pattern_(definition.pattern), at_(start.end), dropsResets_(!start.mindsEmpty),
          lineEnds_(s_lineEnds(definition, start.others)) {
        groups_.push_back({kNowhere, false, false, definition.extended, false});
    }

    HeldPattern hold() {
        while (at_ < pattern_.size()) {
            step();
        }
        return {withCalls(), rereads_ || (callsItself_ && groups_.front().readsOn)};
    }

private:
    static constexpr Place kNowhere = std::string::npos;

    struct Group {
        // Where in the text that is written its callback goes.
        Place call;
        bool isLookahead;
        // Whether it holds a repetition that takes as much as there is.
        bool readsOn;
        // Whether white space and comments in it mean nothing, and white space in its classes neither.
        bool isExtended;
        bool isMoreExtended;
    };
    struct Call {
        Place place;
        bool isInLoop;
    };

    bool looksAt(std::string_view expected) const {
        return pattern_.compare(at_, expected.size(), expected) == 0;
    }

    char peek(Place further) const {
        return at_ + further < pattern_.size() ? pattern_[at_ + further] : '\0';
    }

    void copy(Place bytes) {
        written_.append(pattern_, at_, bytes);
        at_ += std::min(bytes, pattern_.size() - at_);
    }

    // To the end where it is not found.
    void copyThrough(std::string_view end, Place further) {
        const Place found = pattern_.find(end, at_ + further);
        copy(found == std::string::npos ? pattern_.size() - at_ : found + end.size() - at_);
    }

    void copyEscape() {
        const char letter = peek(1);
        if (letter == 'Q') {
            copyThrough("\\E", 2);
        } else if (letter == 'G') {
            written_ += "\\A";
            at_ += 2;
        } else if (letter == 'K' && dropsResets_) {
            written_ += "(?:)";
            at_ += 2;
        } else {
            callsItself_ |= letter == 'g' && (peek(2) == '<' || peek(2) == '\'');
            copy(letter == 'c' ? 3 : 2);
        }
    }

    // What a class may begin with and still have its first character before it.
    void copyNothingInClass() {
        const bool skipsSpace = groups_.back().isMoreExtended;
        while (looksAt("\\E") || (skipsSpace && (looksAt(" ") || looksAt("\t")))) {
            copy(looksAt("\\E") ? 2 : 1);
        }
    }

    // A closing bracket that comes first is one of the class.
    void copyClass() {
        copy(1);
        copyNothingInClass();
        copy(looksAt("^") ? 1 : 0);
        copyNothingInClass();
        copy(looksAt("]") ? 1 : 0);
        while (at_ < pattern_.size() && !looksAt("]")) {
            if (looksAt("\\")) {
                copyEscapeInClass();
            } else {
                copy(looksAt("[") ? namedClassBytes() : 1);
            }
        }
        copy(1);
    }

    void copyEscapeInClass() {
        if (looksAt("\\Q")) {
            copyThrough("\\E", 2);
        } else {
            copy(looksAt("\\c") ? 3 : 2);
        }
    }

    // The bytes of [:alpha:] and the like, or 1 where there is nothing of the kind.
    Place namedClassBytes() const {
        const char mark = peek(1);
        if (mark != ':' && mark != '.' && mark != '=') {
            return 1;
        }
        for (Place at = at_ + 2; at + 1 < pattern_.size(); ++at) {
            if (pattern_[at] == mark && pattern_[at + 1] == ']') {
                return at + 2 - at_;
            }
            if (pattern_[at] == ']' || (pattern_[at] == '[' && pattern_[at + 1] == mark)) {
                break;
            }
            const bool isEscape =
                pattern_[at] == '\\' && (pattern_[at + 1] == ']' || pattern_[at + 1] == '\\');
            at += isEscape ? 1 : 0;
        }
        return 1;
    }

    // Copies white space and comments where they mean nothing; answers whether there were any.
    bool copyNothing() {
        constexpr std::string_view kSpace = " \t\n\v\f\r";
        const Place before = at_;
        while (at_ < pattern_.size()) {
            if (looksAt("(?#")) {
                copyThrough(")", 0);
            } else if (groups_.back().isExtended && looksAt("#")) {
                copyLine();
            } else if (groups_.back().isExtended &&
                       kSpace.find(pattern_[at_]) != std::string_view::npos) {
                copy(1);
            } else {
                break;
            }
        }
        return at_ > before;
    }

    void copyLine() {
        Place end = pattern_.size();
        for (const std::string_view each : lineEnds_) {
            end = std::min(end, pattern_.find(each, at_));
        }
        copy(end - at_);
    }

    // Whether a quantifier stands here that takes as much as there is, or very often.
    bool repeatsOn() const {
        constexpr Place kFewDigits = 2;
        if (peek(0) != '{') {
            return peek(0) == '*' || peek(0) == '+';
        }
        const Place end = pattern_.find_first_not_of("0123456789, ", at_ + 1);
        if (end == std::string::npos || pattern_[end] != '}') {
            return false;
        }
        const Place last = pattern_.find_last_not_of(kDigits, end - 1) + 1;
        return end == last || end - last > kFewDigits;
    }

    void open() {
        if (peek(1) == '*') {
            openNamed();
        } else if (peek(1) == '?') {
            openSpecial();
        } else {
            begin(1, false);
        }
    }

    // (*pla:...) and the like are groups, (*SKIP) and the like are none.
    void openNamed() {
        constexpr std::array<std::string_view, 6> kLookaheads = {
            "(*pla:",
            "(*nla:",
            "(*positive_lookahead:",
            "(*negative_lookahead:",
            "(*napla:",
            "(*non_atomic_positive_lookahead:"};
        if (peek(2) < 'a' || peek(2) > 'z') {
            copyThrough(")", 0);
            return;
        }
        const bool isLookahead =
            std::any_of(kLookaheads.begin(), kLookaheads.end(),
                        [this](std::string_view opening) { return looksAt(opening); });
        const Place colon = pattern_.find(':', at_);
        begin(std::min(colon, pattern_.size()) + 1 - at_, isLookahead);
    }

    // What begins with a bracket and a question mark.
    void openSpecial() {
        const char c = peek(2);
        const char further = peek(3);
        const bool isName = c == '\'' || (c == 'P' && further == '<') ||
                            (c == '<' && further != '=' && further != '!' && further != '*');
        const bool isSigned = (c == '+' || c == '-') && kDigits.find(further) != kNowhere;
        if (c == '(') {
            openConditional();
        } else if (isName) {
            const char close = c == '\'' ? '\'' : '>';
            begin(std::min(pattern_.find(close, at_ + 3), pattern_.size()) + 1 - at_, false);
        } else if (c == '=' || c == '!' || c == '*') {
            begin(3, true);
        } else if (c == '>' || c == ':' || c == '|') {
            begin(3, false);
        } else if (c == '<') {
            begin(4, false);
        } else if (c == 'C') {
            copyCall();
        } else if (c == 'P' || c == 'R' || c == '&' || isSigned || kDigits.find(c) != kNowhere) {
            callsItself_ |= c != 'P' || further != '=';
            copyThrough(")", 0);
        } else {
            openOptions();
        }
    }

    // Of a condition that is looked for in the text the callback is in there.
    void openConditional() {
        if (peek(3) == '?' || peek(3) == '*') {
            begin(2, false);
            groups_.back().call = kNowhere;
        } else {
            const Place close = pattern_.find(')', at_);
            begin(std::min(close, pattern_.size()) + 1 - at_, false);
        }
    }

    // A callback of the pattern's own, with a number or a text in quotes, in which one that is doubled stands for
    // itself.
    void copyCall() {
        const char quote = peek(3) == '{' ? '}' : peek(3);
        if (quote == ')' || kDigits.find(quote) != kNowhere) {
            copyThrough(")", 0);
            return;
        }
        copy(4);
        do {
            copyThrough(std::string_view(&quote, 1), 0);
        } while (looksAt(std::string_view(&quote, 1)) && (copy(1), true));
        copy(1);
    }

    // (?i) for the rest of the group, (?i:...) for one of its own.
    void openOptions() {
        const Place end = std::min(pattern_.find_first_of(":)", at_), pattern_.size());
        Group options = groups_.back();
        bool isOn = true;
        for (Place at = at_ + 2; at < end; ++at) {
            const bool isReset = pattern_[at] == '^';
            isOn = isOn && pattern_[at] != '-';
            if (isReset || pattern_[at] == 'x') {
                const bool isDoubled = at + 1 < end && pattern_[at + 1] == 'x';
                options.isExtended = isOn && !isReset;
                options.isMoreExtended = isOn && isDoubled;
                at += isDoubled && !isReset ? 1 : 0;
            }
        }
        if (end < pattern_.size() && pattern_[end] == ')') {
            copy(end + 1 - at_);
        } else {
            begin(end + 1 - at_, false);
        }
        groups_.back().isExtended = options.isExtended;
        groups_.back().isMoreExtended = options.isMoreExtended;
    }

    // A group whose opening has so many bytes.
    void begin(Place opening, bool isLookahead) {
        copy(opening);
        Group &outer = groups_.back();
        if (outer.call == kNowhere) {
            outer.call = written_.size();
        }
        groups_.push_back(
            {written_.size(), isLookahead, false, outer.isExtended, outer.isMoreExtended});
    }

    void close() {
        copy(1);
        if (groups_.size() == 1) {
            return;
        }
        const Group group = groups_.back();
        groups_.pop_back();
        copyNothing();
        const bool isInLoop = group.isLookahead || repeatsOn();
        calls_.push_back({group.call, isInLoop});
        rereads_ |= isInLoop && group.readsOn;
        groups_.back().readsOn |= group.readsOn;
    }

    void step() {
        if (copyNothing()) {
            return;
        }
        switch (peek(0)) {
        case '\\':
            copyEscape();
            break;
        case '[':
            copyClass();
            break;
        case '(':
            open();
            break;
        case ')':
            close();
            break;
        default:
            groups_.back().readsOn |= repeatsOn();
            copy(1);
        }
    }

    // A pattern that calls parts of itself may repeat any of them.
    std::string withCalls() {
        std::sort(calls_.begin(), calls_.end(),
                  [](const Call &a, const Call &b) { return a.place < b.place; });
        std::string text;
        Place done = 0;
        Place last = kNowhere;
        for (const Call &call : calls_) {
            if ((call.isInLoop || callsItself_) && call.place != last) {
                text.append(written_, done, call.place - done).append(kCall);
                done = last = call.place;
            }
        }
        return text.append(written_, done);
    }

    const std::string &pattern_;
    Place at_;
    bool dropsResets_;
    std::vector<std::string_view> lineEnds_;
    std::string written_;
    // Those that are open; the first is the pattern.
    std::vector<Group> groups_;
    std::vector<Call> calls_;
    bool rereads_ = false;
    bool callsItself_ = false;
};

} // namespace

HeldPattern heldPattern(const Definition &definition) {
    return PatternHolder(definition, readStartOptions(definition.pattern)).hold();
}

} // namespace Corvane::Regex
