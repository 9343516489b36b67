#include "host/parser/html/CssText.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "host/parser/Charset.h"
#include "host/parser/Text.h"
#include "host/parser/html/CharacterClasses.h"

namespace Corvane::Html {

namespace {

constexpr ByteSet kBlanks = byteSet(" \t\n\f\r");

// The character that the escape in front stands for; takes it, but for its backslash.
std::string s_takeEscape(std::string_view &text) {
    constexpr std::size_t kMostDigits = 6;
    std::size_t digits = 0;
    while (digits < std::min(kMostDigits, text.size()) && hexValue(text[digits]) >= 0) {
        ++digits;
    }
    if (digits == 0) {
        const std::size_t length =
            std::max<std::size_t>(utf8SequenceLength(text.data(), text.size()), 1);
        const std::string character(text.substr(0, length));
        text.remove_prefix(std::min(length, text.size()));
        return character;
    }
    const std::string number(text.substr(0, digits));
    const auto code = static_cast<char32_t>(std::strtoul(number.c_str(), nullptr, 16));
    text.remove_prefix(digits);
    if (!text.empty() && isIn(kBlanks, text.front())) {
        text.remove_prefix(1);
    }
    std::string character;
    appendUtf8(character, code == 0 ? kReplacementCharacter : code);
    return character;
}

std::size_t s_digitsAt(std::string_view text, std::size_t at) {
    std::size_t end = at;
    while (end < text.size() && isDigit(text[end])) {
        ++end;
    }
    return end - at;
}

// The value of digits with a point in them, as exactly as anyone will ask.
double s_value(std::string_view digits) {
    constexpr double kBase = 10;
    double value = 0;
    double scale = 0;
    for (const char c : digits) {
        if (c == '.') {
            scale = 1;
            continue;
        }
        value = value * kBase + (c - '0');
        scale *= kBase;
    }
    return scale > 0 ? value / scale : value;
}

} // namespace

std::optional<CssNumber> cssNumber(std::string_view text) {
    constexpr double kBase = 10;
    const bool hasSign = !text.empty() && (text.front() == '-' || text.front() == '+');
    const std::size_t start = hasSign ? 1 : 0;
    std::size_t end = start + s_digitsAt(text, start);
    if (end < text.size() && text[end] == '.' && s_digitsAt(text, end + 1) > 0) {
        end += 1 + s_digitsAt(text, end + 1);
    }
    if (end == start) {
        return std::nullopt;
    }
    double value = s_value(text.substr(start, end - start));
    if (end + 1 < text.size() && toLowerAscii(text[end]) == 'e') {
        const bool signedPower = text[end + 1] == '-' || text[end + 1] == '+';
        const std::size_t power = end + 1 + (signedPower ? 1 : 0);
        if (const std::size_t digits = s_digitsAt(text, power); digits > 0) {
            const double exponent = s_value(text.substr(power, digits));
            value *= std::pow(kBase, text[end + 1] == '-' ? -exponent : exponent);
            end = power + digits;
        }
    }
    const std::string_view unit = text.substr(end);
    if (unit != "%" && !std::all_of(unit.begin(), unit.end(), isLetter)) {
        return std::nullopt;
    }
    return CssNumber{text.front() == '-' ? -value : value, unit};
}

std::string_view cssTrimmed(std::string_view text) {
    return trimmedOf(kBlanks, text);
}

std::string cssLower(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), toLowerAscii);
    return lower;
}

bool isCssNameByte(char c) {
    constexpr unsigned char kFirstNonAscii = 0x80;
    return isAlphanumeric(c) || c == '-' || c == '_' ||
           static_cast<unsigned char>(c) >= kFirstNonAscii;
}

bool isCssNameStart(char c) {
    return isCssNameByte(c) && !isDigit(c);
}

std::string takeCssName(std::string_view &text) {
    std::string name;
    while (!text.empty()) {
        if (text.front() == '\\' && text.size() > 1 && text[1] != '\n') {
            text.remove_prefix(1);
            name += s_takeEscape(text);
        } else if (isCssNameByte(text.front()) && (!name.empty() || !isDigit(text.front()))) {
            name += text.front();
            text.remove_prefix(1);
        } else {
            break;
        }
    }
    return name;
}

std::string cssUnescaped(std::string_view text) {
    std::string plain;
    while (!text.empty()) {
        const std::size_t length = std::min(text.find('\\'), text.size());
        plain.append(text.substr(0, length));
        text.remove_prefix(length);
        if (text.size() > 1) {
            text.remove_prefix(1);
            const std::string character = s_takeEscape(text);
            const bool isOfName = std::all_of(character.begin(), character.end(), isCssNameByte);
            plain += isOfName ? character : "\\" + character;
        } else if (!text.empty()) {
            plain += '\\';
            text.remove_prefix(1);
        }
    }
    return plain;
}

std::string cssWithoutComments(std::string_view text) {
    constexpr std::size_t kMarkBytes = 2;
    std::string plain;
    while (!text.empty()) {
        const std::size_t start = text.find("/*");
        plain.append(text.substr(0, start));
        if (start == std::string_view::npos) {
            break;
        }
        plain += ' ';
        const std::size_t end = text.find("*/", start + kMarkBytes);
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + kMarkBytes);
    }
    return plain;
}

std::vector<std::string_view> cssWords(std::string_view value) {
    std::vector<std::string_view> words;
    std::size_t start = std::string_view::npos;
    unsigned int depth = 0;
    char quote = '\0';
    const auto end = [&](std::size_t at) {
        if (start != std::string_view::npos) {
            words.push_back(value.substr(start, at - start));
        }
        start = std::string_view::npos;
    };
    for (std::size_t at = 0; at < value.size(); ++at) {
        const char c = value[at];
        if (quote == '\0' && depth == 0 && (isBlank(c) || c == ',' || c == '/')) {
            end(at);
            if (c == '/') {
                words.push_back(value.substr(at, 1));
            }
            continue;
        }
        start = start == std::string_view::npos ? at : start;
        if (c == '\\') {
            ++at;
        } else if (quote != '\0') {
            quote = c == quote ? '\0' : quote;
        } else if (c == '"' || c == '\'') {
            quote = c;
        } else if (c == '(') {
            ++depth;
        } else if (c == ')' && depth > 0) {
            --depth;
        }
    }
    end(value.size());
    return words;
}

namespace {

// The text of a string or of an unquoted URI in front, escapes decoded.
std::string s_uriText(std::string_view text) {
    text = cssTrimmed(text);
    const char quote =
        !text.empty() && (text.front() == '"' || text.front() == '\'') ? text.front() : '\0';
    text.remove_prefix(quote != '\0' ? 1 : 0);
    std::string uri;
    while (!text.empty() && text.front() != (quote != '\0' ? quote : ')')) {
        if (text.front() == '\\' && text.size() > 1) {
            text.remove_prefix(1);
            uri += s_takeEscape(text);
            continue;
        }
        // An unquoted URI holds no bracket; without this a pile of them would be read again and again.
        if (quote == '\0' && (isBlank(text.front()) || text.front() == '(')) {
            break;
        }
        uri += text.front();
        text.remove_prefix(1);
    }
    return uri;
}

} // namespace

void forEachCssUri(std::string_view text, const std::function<void(std::string_view)> &found) {
    constexpr std::string_view kUrl = "url(";
    constexpr std::string_view kImport = "@import";
    for (std::size_t at = text.find('('); at != std::string_view::npos;
         at = text.find('(', at + 1)) {
        const std::size_t length = kUrl.size() - 1;
        if (at >= length && cssLower(text.substr(at - length, kUrl.size())) == kUrl) {
            found(s_uriText(text.substr(at + 1)));
        }
    }
    const std::string_view trimmed = cssTrimmed(text);
    if (cssLower(trimmed.substr(0, kImport.size())) == kImport) {
        const std::string_view rest = cssTrimmed(trimmed.substr(kImport.size()));
        if (!rest.empty() && (rest.front() == '"' || rest.front() == '\'')) {
            found(s_uriText(rest));
        }
    }
}

} // namespace Corvane::Html
