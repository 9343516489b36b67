#include "host/regex/PatternClass.h"

#include <algorithm>
#include <array>
#include <string>

namespace Corvane::Regex {

namespace {

constexpr unsigned int kAsciiEnd = 128;
constexpr unsigned int kByteEnd = 256;

ByteSet s_range(unsigned int first, unsigned int last) {
    ByteSet set;
    for (unsigned int byte = first; byte <= last; ++byte) {
        set.set(byte);
    }
    return set;
}

ByteSet s_of(const std::string &bytes) {
    ByteSet set;
    for (const char byte : bytes) {
        set.set(static_cast<unsigned char>(byte));
    }
    return set;
}

ByteSet s_letters() {
    return s_range('a', 'z') | s_range('A', 'Z');
}

ByteSet s_alphanumeric() {
    return s_letters() | s_range('0', '9');
}

ByteSet s_white() {
    return s_range('\t', '\r') | s_of(" ");
}

ByteSet s_complement(const ByteSet &set, bool utf) {
    return ~set & (utf ? s_range(0, kAsciiEnd - 1) : s_range(0, kByteEnd - 1));
}

// Bytes of the names; none has one above 127.
ByteSet s_ofPosixName(const std::string &name) {
    struct Row {
        const char *name;
        ByteSet set;
    };
    static const ByteSet s_graph = s_range('!', '~');
    static const std::array<Row, 14> s_rows = {{
        {"alpha", s_letters()},
        {"lower", s_range('a', 'z')},
        {"upper", s_range('A', 'Z')},
        {"alnum", s_alphanumeric()},
        {"ascii", s_range(0, kAsciiEnd - 1)},
        {"blank", s_of(" \t")},
        {"cntrl", s_range(0, ' ' - 1) | s_of("\x7f")},
        {"digit", s_range('0', '9')},
        {"graph", s_graph},
        {"print", s_graph | s_of(" ")},
        {"punct", s_graph & ~s_alphanumeric()},
        {"space", s_white()},
        {"word", s_alphanumeric() | s_of("_")},
        {"xdigit", s_range('0', '9') | s_range('a', 'f') | s_range('A', 'F')},
    }};
    const auto *found = std::find_if(s_rows.begin(), s_rows.end(),
                                     [&](const Row &row) { return name == row.name; });
    return found != s_rows.end() ? found->set : ByteSet();
}

void s_addOtherCases(ByteSet &set) {
    for (unsigned int lower = 'a'; lower <= 'z'; ++lower) {
        const unsigned int upper = lower - 'a' + 'A';
        const bool either = set[lower] || set[upper];
        set[lower] = either;
        set[upper] = either;
    }
}

// Reads a class token by token.
class ClassReader {
public:
    ClassReader(PatternReader &reader, const CharacterMode &mode) : reader_(reader), mode_(mode) {}

    PatternNode read(bool &exact);

private:
    struct Token {
        enum class Kind { Character, Hyphen, Set, End };
        Kind kind = Kind::End;
        std::uint32_t code = 0;
        CharacterSet set;
    };

    bool takeNegation();
    Token next();
    Token escape();
    bool posixNameFollows() const;
    Token posixName();
    void addHyphen();
    void addCharacter(std::uint32_t code);

    PatternReader &reader_;
    CharacterMode mode_;
    CharacterSet set_;
    bool exact_ = true;
    bool quoted_ = false; // between \Q and \E
    bool first_ = true;   // nothing has been read yet, so that ] is a character
    bool afterSet_ = false;
    // Whether a hyphen now makes a range, which begins with last_.
    bool mayRange_ = false;
    std::uint32_t last_ = 0;
};

bool ClassReader::takeNegation() {
    bool negated = false;
    while (!reader_.failed()) {
        if (reader_.take("\\E") || reader_.take("\\Q\\E")) {
            continue;
        }
        if (negated || !reader_.take("^")) {
            break;
        }
        negated = true;
    }
    return negated;
}

// Whether the bracket at the position opens a name such as [:alpha:]. Otherwise it is a character.
bool ClassReader::posixNameFollows() const {
    const char mark = reader_.peek(1);
    if (mark != ':' && mark != '.' && mark != '=') {
        return false;
    }
    for (std::size_t at = 2; reader_.peek(at) != ']'; ++at) {
        const char c = reader_.peek(at);
        const char after = reader_.peek(at + 1);
        if (reader_.endsWithin(at + 1) || (c == '[' && after == mark)) {
            return false;
        }
        if (c == mark && after == ']') {
            return true;
        }
        if (c == '\\' && (after == ']' || after == '\\')) {
            ++at;
        }
    }
    return false;
}

ClassReader::Token ClassReader::posixName() {
    reader_.next();
    const bool collating = !reader_.take(":");
    const bool negated = reader_.take("^");
    const std::string name = reader_.takeThrough(':');
    const bool anyCase = mode_.ignoreCase && (name == "lower" || name == "upper");
    const ByteSet bytes = s_ofPosixName(anyCase ? "alpha" : name);
    if (collating || bytes.none() || !reader_.take("]")) {
        reader_.fail();
    }
    return {Token::Kind::Set, 0,
            exactSet(negated ? s_complement(bytes, mode_.utf) : bytes, mode_.utf && negated)};
}

ClassReader::Token ClassReader::escape() {
    const char letter = reader_.peek();
    if (isSetEscape(letter)) {
        reader_.next();
        return {Token::Kind::Set, 0, setOfEscape(letter, mode_.utf)};
    }
    if (reader_.take("p") || reader_.take("P")) {
        exact_ = false;
        return {Token::Kind::Set, 0, parseProperty(reader_)};
    }
    if (reader_.take("b")) {
        return {Token::Kind::Character, '\b', {}};
    }
    if (letter >= '1' && letter <= '7') {
        return {Token::Kind::Character, reader_.octal(), {}};
    }
    if (letter == '8' || letter == '9') {
        return {Token::Kind::Character, reader_.character(), {}};
    }
    return {Token::Kind::Character, reader_.escapedCharacter(), {}};
}

ClassReader::Token ClassReader::next() {
    while (!reader_.atEnd()) {
        if (reader_.take("\\E")) {
            quoted_ = false;
        } else if (quoted_) {
            return {Token::Kind::Character, reader_.character(), {}};
        } else if (reader_.take("\\Q")) {
            quoted_ = true;
        } else if (!first_ && reader_.take("]")) {
            return {};
        } else if (reader_.take("-")) {
            return {Token::Kind::Hyphen, '-', {}};
        } else if (reader_.peek() == '[' && posixNameFollows()) {
            return posixName();
        } else if (reader_.take("\\")) {
            return escape();
        } else {
            return {Token::Kind::Character, reader_.character(), {}};
        }
    }
    reader_.fail();
    return {};
}

void ClassReader::addCharacter(std::uint32_t code) {
    set_.addRange(code, code, mode_.utf);
    last_ = code;
    mayRange_ = true;
}

// A hyphen is itself at the end of the class, behind a range and at the start; behind a set nothing
// but the end may follow.
void ClassReader::addHyphen() {
    if (!mayRange_ || reader_.peek() == ']') {
        if (afterSet_ && reader_.peek() != ']') {
            reader_.fail();
        }
        addCharacter('-');
        return;
    }
    const Token end = next();
    if (end.kind == Token::Kind::End) {
        // Only \E stood between the hyphen and the bracket; read the latter again.
        reader_.position(reader_.position() - 1);
        addCharacter('-');
    } else if (end.kind == Token::Kind::Set || end.code < last_) {
        reader_.fail();
    } else {
        set_.addRange(last_, end.code, mode_.utf);
        mayRange_ = false;
    }
}

PatternNode ClassReader::read(bool &exact) {
    if (reader_.looksAt("[:<:]]") || reader_.looksAt("[:>:]]")) {
        reader_.fail();
    }
    const bool negated = takeNegation();
    while (!reader_.failed()) {
        const Token token = next();
        first_ = false;
        if (token.kind == Token::Kind::End) {
            break;
        }
        if (token.kind == Token::Kind::Hyphen) {
            addHyphen();
        } else if (token.kind == Token::Kind::Character) {
            addCharacter(token.code);
        } else {
            set_.add(token.set);
            mayRange_ = false;
        }
        afterSet_ = token.kind == Token::Kind::Set;
    }
    exact = exact && exact_;
    return nodeOfClass(set_, negated, mode_);
}

} // namespace

void CharacterSet::add(const CharacterSet &other) {
    atMost |= other.atMost;
    atLeast |= other.atLeast;
    wide = wide || other.wide;
}

void CharacterSet::addRange(unsigned int first, unsigned int last, bool utf) {
    const unsigned int end = utf ? kAsciiEnd : kByteEnd;
    wide = wide || last >= end;
    if (first < end) {
        add(exactSet(s_range(first, std::min(last, end - 1)), false));
    }
}

CharacterSet exactSet(const ByteSet &bytes, bool wide) {
    return {bytes, bytes, wide};
}

bool isSetEscape(char letter) {
    return letter != '\0' && std::string("dDsSwWhHvV").find(letter) != std::string::npos;
}

CharacterSet setOfEscape(char letter, bool utf) {
    const char kind = static_cast<char>(letter | ('a' - 'A'));
    const bool negated = kind != letter;
    ByteSet set;
    switch (kind) {
    case 'd':
        set = s_range('0', '9');
        break;
    case 's':
        set = s_white();
        break;
    case 'w':
        set = s_alphanumeric() | s_of("_");
        break;
    case 'h':
        set = utf ? s_of("\t ") : s_of("\t \xa0");
        break;
    default:
        set = utf ? s_range('\n', '\r') : s_range('\n', '\r') | s_of("\x85");
        break;
    }
    // Outside ASCII only \h, \v and the complements match in UTF-8.
    const bool wide = utf && (negated || kind == 'h' || kind == 'v');
    return exactSet(negated ? s_complement(set, utf) : set, wide);
}

CharacterSet anyCharacter(bool utf) {
    return {s_complement(ByteSet(), utf), ByteSet(), utf};
}

PatternNode nodeOfClass(CharacterSet set, bool negated, const CharacterMode &mode) {
    if (mode.ignoreCase) {
        s_addOtherCases(set.atMost);
        s_addOtherCases(set.atLeast);
    }
    if (mode.ignoreCase && mode.utf) {
        // U+212A and U+017F are other cases of k and s.
        if (set.wide) {
            set.atMost |= s_of("kKsS");
        }
        set.wide = set.wide || (set.atMost & s_of("kKsS")).any();
    }
    PatternNode node;
    node.kind = PatternNode::Kind::Set;
    node.bytes = negated ? s_complement(set.atLeast, mode.utf) : set.atMost;
    node.wide = negated ? mode.utf : set.wide;
    return node;
}

CharacterSet parseProperty(PatternReader &reader) {
    if (reader.take("{")) {
        reader.takeThrough('}');
    } else {
        reader.next();
    }
    return anyCharacter(reader.utf());
}

PatternNode parseClass(PatternReader &reader, const CharacterMode &mode, bool &exact) {
    return ClassReader(reader, mode).read(exact);
}

} // namespace Corvane::Regex
