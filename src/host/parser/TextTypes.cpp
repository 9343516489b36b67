#include "host/parser/TextTypes.h"

#include <algorithm>
#include <array>
#include <iterator>

#include "host/parser/HeaderBlock.h"
#include "host/parser/Text.h"

namespace Corvane {

namespace {

constexpr std::size_t kNone = std::string_view::npos;

// No command is longer; what is, is text.
constexpr std::size_t kMaxCommandBytes = 60;

std::string s_lower(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), toLowerAscii);
    return lower;
}

// Walks over text and commands in angle brackets; at least one byte at a time.
class Commands {
public:
    explicit Commands(std::string_view text) : rest_(text) {}

    // Gives the text up to the next command and the command in lower case, empty at the end.
    bool next() {
        if (rest_.empty()) {
            return false;
        }
        text_ = rest_.substr(0, rest_.find('<'));
        rest_.remove_prefix(text_.size());
        command_.clear();
        if (rest_.empty()) {
            return true;
        }
        const std::size_t end = rest_.substr(0, kMaxCommandBytes + 2).find('>');
        const std::string_view name = end == kNone ? std::string_view() : rest_.substr(1, end - 1);
        isText_ = name.empty() || name.find_first_of(" \t\r\n<") != kNone;
        command_ = isText_ ? "<" : s_lower(name);
        // The bracket of a pair stands for one.
        const bool isPair = rest_.size() > 1 && rest_[1] == '<';
        rest_.remove_prefix(isText_ ? (isPair ? 2 : 1) : end + 1);
        return true;
    }

    std::string_view text() const { return text_; }
    const std::string &command() const { return command_; }
    // Whether the command is none, but an angle bracket.
    bool isText() const { return isText_; }

private:
    std::string_view rest_;
    std::string_view text_;
    std::string command_;
    bool isText_ = false;
};

// Line ends as text/enriched has them; they may come in several pieces.
class EnrichedLines {
public:
    void append(std::string_view text) {
        for (const char c : text) {
            if (c == '\n') {
                ++lineEnds_;
            } else if (c != '\r') {
                flush();
                text_ += c;
            }
        }
    }

    // As they stand.
    void appendFilled(std::string_view text) {
        flush();
        text_.append(text);
    }

    std::string take() {
        flush();
        return std::move(text_);
    }

private:
    void flush() {
        if (lineEnds_ == 1) {
            text_ += ' ';
        } else if (lineEnds_ > 1) {
            text_.append(lineEnds_ - 1, '\n');
        }
        lineEnds_ = 0;
    }

    std::string text_;
    std::size_t lineEnds_ = 0;
};

// A line of a calendar: its name without parameters, and its value.
struct CalendarLine {
    std::string name;
    std::string_view value;
};

CalendarLine s_calendarLine(std::string_view line) {
    constexpr std::size_t kMaxNameBytes = 32;
    const std::size_t end = line.find_first_of(":;");
    if (end == kNone || end > kMaxNameBytes) {
        return {};
    }
    // Colons inside the quotes of a parameter do not begin the value.
    bool isQuoted = false;
    for (std::size_t at = end; at < line.size(); ++at) {
        if (line[at] == '"') {
            isQuoted = !isQuoted;
        } else if (line[at] == ':' && !isQuoted) {
            return {s_lower(line.substr(0, end)), line.substr(at + 1)};
        }
    }
    return {};
}

std::string s_withoutEscapes(std::string_view value) {
    std::string text;
    for (std::size_t at = 0; at < value.size(); ++at) {
        if (value[at] != '\\' || at + 1 == value.size()) {
            text += value[at];
            continue;
        }
        ++at;
        text += toLowerAscii(value[at]) == 'n' ? '\n' : value[at];
    }
    return text;
}

} // namespace

std::string enrichedText(std::string_view text) {
    EnrichedLines lines;
    std::size_t parameters = 0;
    std::size_t unfilled = 0;
    for (Commands at(text); at.next();) {
        if (parameters == 0) {
            unfilled == 0 ? lines.append(at.text()) : lines.appendFilled(at.text());
        }
        const std::string &command = at.command();
        if (command.empty()) {
            break;
        }
        if (at.isText()) {
            lines.append(parameters == 0 ? "<" : "");
        } else if (command == "param") {
            ++parameters;
        } else if (command == "/param") {
            parameters -= parameters > 0 ? 1 : 0;
        } else if (command == "nofill") {
            ++unfilled;
        } else if (command == "/nofill") {
            unfilled -= unfilled > 0 ? 1 : 0;
        }
    }
    return lines.take();
}

std::string richText(std::string_view text) {
    std::string out;
    std::size_t comments = 0;
    for (Commands at(text); at.next();) {
        if (comments == 0) {
            std::replace_copy_if(
                at.text().begin(), at.text().end(), std::back_inserter(out),
                [](char c) { return c == '\n' || c == '\r'; }, ' ');
        }
        const std::string &command = at.command();
        if (command == "comment") {
            ++comments;
        } else if (command == "/comment") {
            comments -= comments > 0 ? 1 : 0;
        } else if (comments == 0 && (at.isText() || command == "lt")) {
            out += '<';
        } else if (comments == 0 &&
                   (command == "nl" || command == "/paragraph" || command == "np")) {
            out += '\n';
        }
        if (command.empty()) {
            break;
        }
    }
    return out;
}

std::string unfoldedCalendar(std::string_view text) {
    std::string unfolded;
    LineReader lines(text);
    for (std::string_view line; lines.next(line);) {
        const bool isFolded = !line.empty() && (line.front() == ' ' || line.front() == '\t');
        if (isFolded) {
            line.remove_prefix(1);
        } else if (!unfolded.empty()) {
            unfolded += '\n';
        }
        unfolded.append(line);
    }
    return unfolded;
}

std::string calendarText(std::string_view unfolded) {
    constexpr std::array<std::string_view, 3> kShown{"summary", "location", "description"};
    std::string out;
    LineReader lines(unfolded);
    for (std::string_view line; lines.next(line);) {
        const CalendarLine entry = s_calendarLine(line);
        if (std::find(kShown.begin(), kShown.end(), entry.name) != kShown.end()) {
            out += s_withoutEscapes(entry.value);
            out += '\n';
        }
    }
    return out;
}

bool looksLikeHtml(std::string_view bytes) {
    constexpr std::array<std::string_view, 27> kTags{"!doctype html",
                                                     "html",
                                                     "head",
                                                     "body",
                                                     "table",
                                                     "tr",
                                                     "td",
                                                     "div",
                                                     "p",
                                                     "br",
                                                     "a",
                                                     "img",
                                                     "font",
                                                     "span",
                                                     "center",
                                                     "b",
                                                     "i",
                                                     "u",
                                                     "h1",
                                                     "h2",
                                                     "h3",
                                                     "ul",
                                                     "li",
                                                     "style",
                                                     "title",
                                                     "meta",
                                                     "strong"};
    constexpr std::size_t kLongest = 15;
    for (std::size_t at = bytes.find('<'); at != kNone; at = bytes.find('<', at + 1)) {
        const std::string front = s_lower(bytes.substr(at + 1, kLongest));
        const auto isTag = [&front](std::string_view tag) {
            return front.starts_with(tag) && front.size() > tag.size() &&
                   std::string_view(" \t\r\n/>").find(front[tag.size()]) != kNone;
        };
        if (std::any_of(kTags.begin(), kTags.end(), isTag)) {
            return true;
        }
    }
    return false;
}

} // namespace Corvane
