#include "host/regex/PatternParser.h"

#include <algorithm>
#include <array>
#include <string>
#include <utility>

#include "host/parser/Text.h"
#include "host/regex/PatternClass.h"
#include "host/regex/PatternReader.h"

namespace Corvane::Regex {

namespace {

// Deeper nesting does not compile, and no greater number in braces.
constexpr unsigned int kMaxDepth = 250;
constexpr std::size_t kMaxRepeat = 65535;

bool s_isDigit(char c) {
    return c >= '0' && c <= '9';
}

class Parser {
public:
    explicit Parser(const Definition &definition)
        : pattern_(definition.pattern), reader_(definition.pattern, definition.utf),
          anyLineEnd_(definition.anyLineEnd),
          openings_(static_cast<std::size_t>(
              std::count(definition.pattern.begin(), definition.pattern.end(), '('))) {}

    std::optional<ParsedPattern> parse(const Definition &definition) {
        ParsedPattern parsed;
        parsed.root = parseAlternatives({definition.ignoreCase, definition.dotMatchesAll,
                                         definition.extended, definition.multiline});
        parsed.exact = exact_;
        parsed.greedy = greedy_;
        parsed.byteClass = byteClass_;
        if (reader_.failed() || !reader_.atEnd()) {
            return std::nullopt;
        }
        return parsed;
    }

private:
    using Kind = PatternNode::Kind;

    // What an option inside the pattern changes, until the end of its group.
    struct Options {
        bool ignoreCase;
        bool dotMatchesAll;
        bool extended;
        bool multiline;
    };
    struct Bounds {
        std::size_t least;
        std::size_t most;
    };

    // Groups and sequences.
    PatternNode parseAlternatives(Options options);
    PatternNode parseSequence(Options &options);
    PatternNode parseItem(Options &options, bool &repeatable);
    bool skipIgnored(const Options &options);
    bool appendQuoted(std::vector<PatternNode> &items, const Options &options);
    bool takeQuantifier(Bounds &bounds);
    bool takeBraces(Bounds &bounds);
    std::size_t numberInBraces();
    std::size_t number();
    PatternNode parseBrackets(const Options &options);
    PatternNode parseGroup(Options &options, bool &repeatable);
    PatternNode parseBody(const Options &options);
    PatternNode parseAssertion(const Options &options);
    PatternNode parseOptions(Options &options, bool &repeatable);
    PatternNode parseConditional(Options options);
    PatternNode parseVerb(bool &repeatable);
    PatternNode parseCallout(bool &repeatable);

    // Escapes and characters.
    PatternNode parseEscape(const Options &options, bool &repeatable);
    PatternNode parseNumericEscape(const Options &options);
    PatternNode parseNotLineEnd(const Options &options);
    PatternNode reference(char end);
    PatternNode parseReference();
    PatternNode literal(std::uint32_t code, const Options &options) const;
    PatternNode dot(bool matchesAll) const;
    PatternNode anything(std::size_t least);
    PatternNode zeroWidth(bool &repeatable);
    PatternNode edge(Kind kind, bool &repeatable);

    CharacterMode mode(const Options &options) const { return {options.ignoreCase, reader_.utf()}; }

    const std::string &pattern_;
    PatternReader reader_;
    bool anyLineEnd_;
    // No more capturing groups than this are in the pattern.
    std::size_t openings_;
    unsigned int depth_ = 0;
    bool exact_ = true;
    bool greedy_ = true;
    std::optional<std::size_t> byteClass_;
};

PatternNode Parser::parseAlternatives(Options options) {
    PatternNode node;
    node.kind = Kind::Alternation;
    do {
        node.children.push_back(parseSequence(options));
    } while (reader_.take("|"));
    return node;
}

PatternNode Parser::parseSequence(Options &options) {
    PatternNode node;
    node.kind = Kind::Sequence;
    bool repeatable = false;
    while (!reader_.atEnd() && reader_.peek() != '|' && reader_.peek() != ')') {
        Bounds bounds{};
        if (skipIgnored(options)) {
            continue;
        }
        if (reader_.take("\\Q")) {
            repeatable = appendQuoted(node.children, options) || repeatable;
        } else if (!takeQuantifier(bounds)) {
            node.children.push_back(parseItem(options, repeatable));
        } else if (!repeatable) {
            reader_.fail();
        } else {
            PatternNode repeat;
            repeat.kind = Kind::Repeat;
            repeat.least = bounds.least;
            repeat.most = bounds.most;
            repeat.children.push_back(std::move(node.children.back()));
            node.children.back() = std::move(repeat);
            repeatable = false;
        }
    }
    return node;
}

// Skips what stands for nothing and may even stand between an item and its quantifier.
bool Parser::skipIgnored(const Options &options) {
    if (reader_.take("\\E")) {
        return true;
    }
    if (reader_.take("(?#")) {
        reader_.takeThrough(')');
        return true;
    }
    if (!options.extended) {
        return false;
    }
    if (isWhiteSpace(static_cast<unsigned char>(reader_.peek()))) {
        reader_.next();
        return true;
    }
    if (reader_.take("#")) {
        while (!reader_.atEnd()) {
            const char c = reader_.next();
            if (c == '\n' || (c == '\r' && anyLineEnd_)) {
                break;
            }
        }
        return true;
    }
    // The engine skips this byte, too; not every release of it need do so.
    if (!reader_.utf() && reader_.looksAt("\x85")) {
        reader_.fail();
        return true;
    }
    // White space too, in UTF-8.
    for (const char *white :
         {"\xC2\x85", "\xE2\x80\x8E", "\xE2\x80\x8F", "\xE2\x80\xA8", "\xE2\x80\xA9"}) {
        if (reader_.utf() && reader_.take(white)) {
            return true;
        }
    }
    return false;
}

// Appends the characters up to \E, or to the end; answers whether there was one.
bool Parser::appendQuoted(std::vector<PatternNode> &items, const Options &options) {
    bool any = false;
    while (!reader_.atEnd() && !reader_.take("\\E")) {
        items.push_back(literal(reader_.character(), options));
        any = true;
    }
    return any;
}

std::size_t Parser::number() {
    constexpr std::size_t kTooLarge = 1000000;
    std::size_t value = 0;
    while (s_isDigit(reader_.peek())) {
        value = std::min(kTooLarge, value * 10 + static_cast<std::size_t>(reader_.next() - '0'));
    }
    return value;
}

// Newer releases of the engine allow blanks here, so that the brace may begin a quantifier or not.
std::size_t Parser::numberInBraces() {
    const std::size_t value = number();
    if (reader_.looksAt(" ") || reader_.looksAt("\t")) {
        reader_.fail();
    }
    return value;
}

// {n}, {n,} and {n,m}; every other brace is a literal. Those that are literals for some releases of the engine only are
// not understood.
bool Parser::takeBraces(Bounds &bounds) {
    const std::size_t start = reader_.position();
    for (const char *disputed : {"{,", "{ ", "{\t"}) {
        if (reader_.looksAt(disputed)) {
            reader_.fail();
            return false;
        }
    }
    bool isQuantifier = false;
    if (reader_.take("{") && s_isDigit(reader_.peek())) {
        bounds.least = numberInBraces();
        bounds.most = bounds.least;
        if (reader_.take(",")) {
            const bool isBounded = s_isDigit(reader_.peek());
            const std::size_t most = numberInBraces();
            bounds.most = isBounded ? most : PatternNode::kUnlimited;
        }
        isQuantifier = reader_.take("}");
    }
    if (!isQuantifier && !reader_.failed()) {
        reader_.position(start);
    }
    if (isQuantifier && (bounds.least > std::min(bounds.most, kMaxRepeat) ||
                         (bounds.most > kMaxRepeat && bounds.most != PatternNode::kUnlimited))) {
        reader_.fail();
    }
    return isQuantifier;
}

bool Parser::takeQuantifier(Bounds &bounds) {
    if (reader_.take("*")) {
        bounds = {0, PatternNode::kUnlimited};
    } else if (reader_.take("+")) {
        bounds = {1, PatternNode::kUnlimited};
    } else if (reader_.take("?")) {
        bounds = {0, 1};
    } else if (!takeBraces(bounds)) {
        return false;
    }
    if (reader_.take("+")) {
        exact_ = false;
    } else if (reader_.take("?")) {
        greedy_ = false;
    }
    return true;
}

PatternNode Parser::parseItem(Options &options, bool &repeatable) {
    repeatable = true;
    if (reader_.take("(")) {
        return parseGroup(options, repeatable);
    }
    if (reader_.take("[")) {
        return parseBrackets(options);
    }
    if (reader_.take("\\")) {
        return parseEscape(options, repeatable);
    }
    if (reader_.take(".")) {
        return dot(options.dotMatchesAll);
    }
    if (reader_.take("^")) {
        return edge(options.multiline ? Kind::Empty : Kind::Start, repeatable);
    }
    if (reader_.take("$")) {
        return edge(options.multiline ? Kind::Empty : Kind::End, repeatable);
    }
    return literal(reader_.character(), options);
}

// A class whose opening bracket has been read.
PatternNode Parser::parseBrackets(const Options &options) {
    constexpr unsigned char kAsciiEnd = 128;
    const std::size_t start = reader_.position();
    PatternNode node = parseClass(reader_, mode(options), exact_);
    const std::size_t end = std::min(reader_.position(), pattern_.size());
    if (!reader_.utf() && !byteClass_.has_value() &&
        std::any_of(pattern_.begin() + static_cast<std::ptrdiff_t>(start),
                    pattern_.begin() + static_cast<std::ptrdiff_t>(end),
                    [](unsigned char byte) { return byte >= kAsciiEnd; })) {
        byteClass_ = start - 1;
    }
    return node;
}

PatternNode Parser::parseBody(const Options &options) {
    if (++depth_ > kMaxDepth) {
        reader_.fail();
        return {};
    }
    PatternNode node = parseAlternatives(options);
    if (!reader_.take(")")) {
        reader_.fail();
    }
    --depth_;
    return node;
}

// An assertion of which nothing is claimed.
PatternNode Parser::parseAssertion(const Options &options) {
    exact_ = false;
    parseBody(options);
    return {};
}

PatternNode Parser::parseGroup(Options &options, bool &repeatable) {
    if (reader_.take("*")) {
        return parseVerb(repeatable);
    }
    if (!reader_.take("?") || reader_.take(":") || reader_.take("|")) {
        return parseBody(options);
    }
    if (reader_.take(">")) {
        exact_ = false;
        return parseBody(options);
    }
    if (reader_.take("=")) {
        exact_ = false;
        PatternNode ahead;
        ahead.kind = Kind::Ahead;
        ahead.children.push_back(parseBody(options));
        return ahead;
    }
    for (const char *start : {"!", "*", "<=", "<!", "<*"}) {
        if (reader_.take(start)) {
            return parseAssertion(options);
        }
    }
    if (reader_.take("(")) {
        return parseConditional(options);
    }
    for (const char *start : {"P=", "P>", "&", "R"}) {
        if (reader_.take(start)) {
            return reference(')');
        }
    }
    if (reader_.take("P<") || reader_.take("<")) {
        reader_.takeThrough('>');
        return parseBody(options);
    }
    if (reader_.take("'")) {
        reader_.takeThrough('\'');
        return parseBody(options);
    }
    return parseOptions(options, repeatable);
}

// Callouts and calls of numbered groups too, which begin alike.
PatternNode Parser::parseOptions(Options &options, bool &repeatable) {
    const std::size_t sign = reader_.peek() == '+' || reader_.peek() == '-' ? 1 : 0;
    if (s_isDigit(reader_.peek(sign))) {
        return reference(')');
    }
    if (reader_.take("C")) {
        return parseCallout(repeatable);
    }
    Options changed = reader_.take("^") ? Options{false, false, false, false} : options;
    bool on = true;
    while (!reader_.failed()) {
        switch (reader_.next()) {
        case ')':
            options = changed;
            repeatable = false;
            return {};
        case ':':
            return parseBody(changed);
        case '-':
            on = false;
            break;
        case 'i':
            changed.ignoreCase = on;
            break;
        case 's':
            changed.dotMatchesAll = on;
            break;
        case 'x':
            changed.extended = on;
            if (reader_.peek() == 'x') {
                reader_.fail();
            }
            break;
        case 'U':
            greedy_ = false;
            break;
        case 'm':
            changed.multiline = on;
            break;
        case 'n':
        case 'J':
            break;
        default:
            reader_.fail();
        }
    }
    return {};
}

PatternNode Parser::parseCallout(bool &repeatable) {
    number();
    if (!reader_.take(")")) {
        reader_.fail();
    }
    return zeroWidth(repeatable);
}

PatternNode Parser::parseConditional(Options options) {
    bool repeatable = true;
    exact_ = false;
    if (reader_.looksAt("?C") || reader_.looksAt("*")) {
        reader_.fail();
    } else if (reader_.looksAt("?")) {
        parseGroup(options, repeatable);
    } else {
        reader_.takeThrough(')');
    }
    PatternNode node = parseBody(options);
    if (node.children.size() < 2) {
        node.children.emplace_back();
    }
    return node;
}

// Verbs that only forbid matches may be ignored. All others, also the options that may stand first,
// change too much.
PatternNode Parser::parseVerb(bool &repeatable) {
    const std::string verb = reader_.takeThrough(')');
    const std::string name = verb.substr(0, verb.find(':'));
    constexpr std::array<const char *, 8> kHarmless = {"",      "F",    "FAIL", "COMMIT",
                                                       "PRUNE", "SKIP", "THEN", "MARK"};
    if (std::find(kHarmless.begin(), kHarmless.end(), name) == kHarmless.end()) {
        reader_.fail();
    }
    return zeroWidth(repeatable);
}

PatternNode Parser::edge(Kind kind, bool &repeatable) {
    PatternNode node = zeroWidth(repeatable);
    node.kind = kind;
    return node;
}

PatternNode Parser::zeroWidth(bool &repeatable) {
    repeatable = false;
    exact_ = false;
    return {};
}

PatternNode Parser::dot(bool matchesAll) const {
    ByteSet lineEnds;
    lineEnds.set('\n', !matchesAll);
    lineEnds.set('\r', !matchesAll && anyLineEnd_);
    return nodeOfClass(exactSet(lineEnds, false), true, {false, reader_.utf()});
}

PatternNode Parser::anything(std::size_t least) {
    exact_ = false;
    PatternNode node;
    node.kind = Kind::Repeat;
    node.least = least;
    node.most = PatternNode::kUnlimited;
    node.children.push_back(dot(true));
    return node;
}

PatternNode Parser::literal(std::uint32_t code, const Options &options) const {
    const std::uint32_t kAsciiEnd = 128;
    PatternNode node;
    const bool isByte = code < (reader_.utf() ? kAsciiEnd : ByteSet().size());
    if (isByte && !(reader_.utf() && options.ignoreCase)) {
        const char lower = toLowerAscii(static_cast<char>(code));
        node.kind = Kind::Set;
        node.bytes.set(code);
        if (options.ignoreCase && lower >= 'a' && lower <= 'z') {
            node.bytes.set(static_cast<unsigned char>(lower));
            node.bytes.set(static_cast<unsigned char>(lower - 'a' + 'A'));
        }
        return node;
    }
    if (!reader_.utf() || options.ignoreCase || code < kAsciiEnd) {
        CharacterSet set;
        set.addRange(code, code, reader_.utf());
        return nodeOfClass(set, false, mode(options));
    }
    node.kind = Kind::Sequence;
    for (const char byte : utf8Of(code)) {
        PatternNode one;
        one.kind = Kind::Set;
        one.bytes.set(static_cast<unsigned char>(byte));
        node.children.push_back(std::move(one));
    }
    return node;
}

// A back-reference or a call of a group; its name or number ends with the given byte.
PatternNode Parser::reference(char end) {
    reader_.takeThrough(end);
    return anything(0);
}

PatternNode Parser::parseReference() {
    if (reader_.take("{")) {
        return reference('}');
    }
    if (reader_.take("<")) {
        return reference('>');
    }
    if (reader_.take("'")) {
        return reference('\'');
    }
    if (!reader_.take("-")) {
        reader_.take("+");
    }
    if (!s_isDigit(reader_.peek())) {
        reader_.fail();
    }
    number();
    return anything(0);
}

PatternNode Parser::parseEscape(const Options &options, bool &repeatable) {
    const char letter = reader_.peek();
    if (letter >= '1' && letter <= '9') {
        return parseNumericEscape(options);
    }
    if (isSetEscape(letter)) {
        reader_.next();
        return nodeOfClass(setOfEscape(letter, reader_.utf()), false, {false, reader_.utf()});
    }
    if (reader_.take("A")) {
        return edge(Kind::Start, repeatable);
    }
    if (reader_.take("Z") || reader_.take("z")) {
        return edge(Kind::End, repeatable);
    }
    const std::string kAssertions = "GbBK";
    if (letter != '\0' && kAssertions.find(letter) != std::string::npos) {
        reader_.next();
        return zeroWidth(repeatable);
    }
    if (reader_.take("N")) {
        return parseNotLineEnd(options);
    }
    if (reader_.take("p") || reader_.take("P")) {
        exact_ = false;
        return nodeOfClass(parseProperty(reader_), false, {false, reader_.utf()});
    }
    if (reader_.take("g") || reader_.take("k")) {
        return parseReference();
    }
    if (reader_.take("R")) {
        PatternNode node = anything(1);
        node.most = 2;
        node.children[0] = nodeOfClass(setOfEscape('v', reader_.utf()), false, {false, false});
        return node;
    }
    if (reader_.take("X")) {
        return anything(1);
    }
    if (reader_.take("C")) {
        return reader_.utf() ? anything(0) : dot(true);
    }
    return literal(reader_.escapedCharacter(), options);
}

// \1 to \9 and what begins with 8 or 9 are back-references. The rest is one where so many groups
// stand before it, and octal otherwise.
PatternNode Parser::parseNumericEscape(const Options &options) {
    const std::size_t start = reader_.position();
    const char first = reader_.peek();
    const std::size_t group = number();
    if (group < 10 || first >= '8') {
        return anything(0);
    }
    if (group <= openings_) {
        reader_.fail();
        return {};
    }
    reader_.position(start);
    return literal(reader_.octal(), options);
}

PatternNode Parser::parseNotLineEnd(const Options &options) {
    const std::size_t start = reader_.position();
    Bounds bounds{};
    if (!reader_.looksAt("{") || takeBraces(bounds)) {
        reader_.position(start);
        return dot(false);
    }
    reader_.take("{");
    return literal(reader_.namedCodePoint(), options);
}

} // namespace

std::optional<ParsedPattern> parsePattern(const Definition &definition) {
    return Parser(definition).parse(definition);
}

} // namespace Corvane::Regex
