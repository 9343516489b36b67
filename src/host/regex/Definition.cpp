#include "host/regex/Definition.h"

#include "host/parser/Exception.h"
#include "host/parser/Text.h"
#include "host/regex/Expression.h"

namespace Corvane::Regex {

namespace {

// How much of a faulty text an exception quotes.
constexpr std::size_t kQuotedTextBytes = 120;

// Whether an odd number of backslashes stands directly before position.
bool s_isEscaped(const std::string &text, std::size_t position) {
    std::size_t first = position;
    while (first > 0 && text[first - 1] == '\\') {
        --first;
    }
    return (position - first) % 2 == 1;
}

std::size_t s_closingSlash(const std::string &text) {
    std::size_t slash = text.rfind('/');
    while (slash > 0 && s_isEscaped(text, slash)) {
        slash = text.rfind('/', slash - 1);
    }
    if (slash == 0) {
        refuseExpression("the closing slash is missing", text, __LINE__);
    }
    return slash;
}

void s_applyModifier(Definition &definition, char letter, const std::string &text) {
    switch (letter) {
    case 'i':
        definition.ignoreCase = true;
        break;
    case 'm':
        definition.multiline = true;
        break;
    case 's':
        definition.dotMatchesAll = true;
        break;
    case 'x':
        definition.extended = true;
        break;
    case 'u':
        definition.utf = true;
        break;
    case 'g':
    case 'o':
        break;
    default:
        refuseExpression(std::string("unknown modifier '") + letter + "'; known are i m s x u g o",
                         text, __LINE__);
    }
}

Definition s_parseSlashForm(const std::string &text) {
    const std::size_t slash = s_closingSlash(text);
    std::string modifiers = text.substr(slash + 1);
    stringLeftTrim(modifiers);
    stringRightTrim(modifiers);
    Definition definition;
    definition.pattern = text.substr(1, slash - 1);
    for (const char letter : modifiers) {
        s_applyModifier(definition, letter, text);
    }
    return definition;
}

} // namespace

void refuseExpression(const std::string &reason, const std::string &text, unsigned int line) {
    Exception failure("Regex::Expression", Exception::kGeneral, "Expression", line);
    failure.stringParameter(reason);
    failure.stringParameter(
        text.size() <= kQuotedTextBytes ? text : text.substr(0, kQuotedTextBytes) + "...");
    throw failure;
}

Definition parseDefinition(const std::string &text, unsigned int options) {
    Definition definition;
    if (text.front() == '/') {
        definition = s_parseSlashForm(text);
    } else {
        definition.pattern = text;
    }
    const unsigned int lineEnd = options & kAnyLineEnd;
    if ((options & ~(kIgnoreCase | kDotMatchesAll | kAnyLineEnd)) != 0 ||
        (lineEnd != 0 && lineEnd != kAnyLineEnd)) {
        refuseExpression("unknown option word " + std::to_string(options), text, __LINE__);
    }
    definition.ignoreCase |= (options & kIgnoreCase) != 0;
    definition.dotMatchesAll |= (options & kDotMatchesAll) != 0;
    definition.anyLineEnd = lineEnd != 0;
    return definition;
}

} // namespace Corvane::Regex
