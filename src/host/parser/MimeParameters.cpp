#include "host/parser/MimeParameters.h"

#include <algorithm>
#include <charconv>

#include "host/parser/Text.h"

namespace Corvane {

namespace {

constexpr std::size_t kNone = std::string_view::npos;

bool s_isBlank(char c) {
    return isWhiteSpace(static_cast<unsigned char>(c)) || c == '\0';
}

void s_skipBlanks(std::string_view &text) {
    const auto *const end = std::find_if_not(text.begin(), text.end(), s_isBlank);
    text.remove_prefix(static_cast<std::size_t>(end - text.begin()));
}

// Length of the comment that the text begins with; 0 where it does not end.
std::size_t s_commentLength(std::string_view text) {
    std::size_t depth = 0;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] == '\\') {
            ++at;
        } else if (text[at] == '(') {
            ++depth;
        } else if (text[at] == ')' && --depth == 0) {
            return at + 1;
        }
    }
    return 0;
}

// Of a media type (RFC 2045, 5.1), or a NUL, which counts as nothing.
bool s_isTokenByte(char c) {
    constexpr char kDelete = 0x7F;
    return c == '\0' ||
           (c > ' ' && c < kDelete && std::string_view("()<>@,;:\\\"/[]?=").find(c) == kNone);
}

std::string s_takeToken(std::string_view &text) {
    constexpr std::size_t kMaxTokenBytes = 256;
    const auto *const end = std::find_if_not(text.begin(), text.end(), s_isTokenByte);
    const auto length = static_cast<std::size_t>(end - text.begin());
    std::string token;
    for (const char c : text.substr(0, std::min(length, kMaxTokenBytes))) {
        token.append(c == '\0' ? 0 : 1, toLowerAscii(c));
    }
    text.remove_prefix(length);
    return token;
}

std::string_view s_trimmed(std::string_view text) {
    s_skipBlanks(text);
    while (!text.empty() && s_isBlank(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

// Where the quoted text that begins at text ends: the place of the quote, or kNone.
std::size_t s_closingQuote(std::string_view text) {
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] == '\\') {
            ++at;
        } else if (text[at] == '"') {
            return at;
        }
    }
    return kNone;
}

int s_hexDigit(char c) {
    const char lower = toLowerAscii(c);
    constexpr int kTen = 10;
    return c >= '0' && c <= '9' ? c - '0' : lower >= 'a' && lower <= 'f' ? lower - 'a' + kTen : -1;
}

std::string s_percentDecoded(std::string_view text) {
    constexpr int kBase = 16;
    std::string decoded;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const bool isEscape = text[at] == '%' && at + 2 < text.size() &&
                              s_hexDigit(text[at + 1]) >= 0 && s_hexDigit(text[at + 2]) >= 0;
        if (isEscape) {
            decoded +=
                static_cast<char>(s_hexDigit(text[at + 1]) * kBase + s_hexDigit(text[at + 2]));
            at += 2;
        } else {
            decoded += text[at];
        }
    }
    return decoded;
}

// What follows the charset and the language in front of an extended value.
std::string_view s_withoutLanguage(std::string_view value) {
    const std::size_t first = value.find('\'');
    const std::size_t second = first == kNone ? kNone : value.find('\'', first + 1);
    return second == kNone ? value : value.substr(second + 1);
}

void s_addOnce(std::vector<std::string> &forms, std::string form) {
    if (std::find(forms.begin(), forms.end(), form) == forms.end()) {
        forms.push_back(std::move(form));
    }
}

} // namespace

void skipBlanksAndComments(std::string_view &value) {
    s_skipBlanks(value);
    while (!value.empty() && value.front() == '(') {
        const std::size_t length = s_commentLength(value);
        if (length == 0) {
            return;
        }
        value.remove_prefix(length);
        s_skipBlanks(value);
    }
}

bool readMediaType(std::string_view &value, std::pair<std::string, std::string> &type) {
    skipBlanksAndComments(value);
    type.first = s_takeToken(value);
    skipBlanksAndComments(value);
    if (type.first.empty() || value.empty() || value.front() != '/') {
        return false;
    }
    value.remove_prefix(1);
    skipBlanksAndComments(value);
    type.second = s_takeToken(value);
    if (type.second.empty()) {
        return false;
    }
    const std::size_t before = value.size();
    skipBlanksAndComments(value);
    return value.empty() || value.front() == ';' || value.front() == ',' ||
           (value.size() < before && s_isTokenByte(value.front()));
}

std::string trimmedOfQuotes(std::string_view text) {
    const auto isAround = [](char c) { return s_isBlank(c) || c == '"' || c == '\''; };
    while (!text.empty() && isAround(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && isAround(text.back())) {
        text.remove_suffix(1);
    }
    return std::string(text);
}

void MimeParameters::skipBlanksAndClosedComments() {
    for (s_skipBlanks(rest_); !rest_.empty() && rest_.front() == '(' && !hasOpenComment_;
         s_skipBlanks(rest_)) {
        const std::size_t length = s_commentLength(rest_);
        hasOpenComment_ = length == 0;
        rest_.remove_prefix(length);
    }
}

bool MimeParameters::next() {
    for (skipBlanksAndClosedComments(); !rest_.empty(); skipBlanksAndClosedComments()) {
        if (rest_.front() == ';' || rest_.front() == ',') {
            rest_.remove_prefix(1);
            continue;
        }
        name_ = rest_.substr(0, rest_.find_first_of("=; \t\r\n\v\f"));
        rest_.remove_prefix(name_.size());
        skipBlanksAndClosedComments();
        if (!rest_.empty() && rest_.front() == '=') {
            rest_.remove_prefix(1);
            readValue();
            return true;
        }
    }
    return false;
}

void MimeParameters::readValue() {
    skipBlanksAndClosedComments();
    const bool quoted = !rest_.empty() && rest_.front() == '"';
    if (quoted) {
        rest_.remove_prefix(1);
    }
    const std::size_t quote = quoted ? s_closingQuote(rest_) : kNone;
    isQuoted_ = quote != kNone;
    const std::size_t lineEnd = std::min(rest_.find(';'), rest_.size());
    line_ = isQuoted_ ? std::string_view() : s_trimmed(rest_.substr(0, lineEnd));
    value_ = rest_.substr(0, isQuoted_ ? quote : rest_.find_first_of("; \t\r\n\v\f"));
    const std::size_t closing = isQuoted_ ? 1 : 0;
    rest_.remove_prefix(std::min(value_.size() + closing, rest_.size()));
}

std::string MimeParameter::unescaped(std::string_view text) {
    std::string plain;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] == '\r' || text[at] == '\n') {
            continue;
        }
        if (plain.size() == maxBytes_) {
            isCut_ = true;
            break;
        }
        if (text[at] == '\\' && at + 1 < text.size()) {
            ++at;
        }
        plain += text[at];
    }
    return plain;
}

void MimeParameter::takeValue(const MimeParameters &parameters) {
    if (!values_.empty()) {
        return;
    }
    if (parameters.isQuoted()) {
        values_.push_back(std::string(s_trimmed(unescaped(parameters.value()))));
        return;
    }
    constexpr std::size_t kMaxVariedBytes = 256;
    const std::string_view value = parameters.value();
    isCut_ = isCut_ || value.size() > maxBytes_;
    const std::size_t comment = value.find('(');
    if (value.size() <= kMaxVariedBytes && comment != kNone && comment > 0) {
        values_.emplace_back(value.substr(0, comment));
    }
    values_.emplace_back(value.substr(0, maxBytes_));
    if (value.size() > kMaxVariedBytes) {
        return;
    }
    const std::string_view line = parameters.line();
    s_addOnce(values_, std::string(line.size() > kMaxVariedBytes ? value : line));
    for (std::size_t i = 0, count = values_.size(); i < count; ++i) {
        s_addOnce(values_, trimmedOfQuotes(values_[i]));
    }
}

// A piece is "*0", "*0*", "*1" and so on; "*" alone is a whole value.
void MimeParameter::takePiece(std::string_view marks, const MimeParameters &parameters) {
    constexpr unsigned int kMaxPieces = 100;
    unsigned int number = 0;
    const bool isEncoded = marks.back() == '*';
    marks.remove_prefix(1);
    if (!marks.empty() &&
        std::from_chars(marks.data(), marks.data() + marks.size(), number).ptr == marks.data()) {
        return;
    }
    const std::string_view text = parameters.value().substr(0, maxBytes_);
    isCut_ = isCut_ || text.size() < parameters.value().size();
    if (number >= kMaxPieces) {
        isCut_ = true;
        return;
    }
    pieces_.emplace(number, !isEncoded    ? unescaped(text)
                            : number == 0 ? s_percentDecoded(s_withoutLanguage(text))
                                          : s_percentDecoded(text));
}

void MimeParameter::take(const MimeParameters &parameters) {
    const std::string_view name = parameters.name();
    const bool isThis = name.size() >= name_.size() &&
                        std::equal(name_.begin(), name_.end(), name.begin(),
                                   [](char a, char b) { return a == toLowerAscii(b); });
    if (isThis && name.size() == name_.size()) {
        takeValue(parameters);
    } else if (isThis && name[name_.size()] == '*') {
        takePiece(name.substr(name_.size()), parameters);
    }
}

std::vector<std::string> MimeParameter::forms() const {
    std::vector<std::string> forms = values_;
    std::string whole;
    unsigned int expected = 0;
    for (const auto &[number, piece] : pieces_) {
        if (number != expected++) {
            break;
        }
        whole += piece;
    }
    if (expected > 0 && !pieces_.empty()) {
        s_addOnce(forms, whole.substr(0, maxBytes_));
    }
    return forms;
}

} // namespace Corvane
