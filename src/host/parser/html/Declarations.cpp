#include "host/parser/html/Declarations.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <optional>
#include <string>
#include <utility>

#include "host/parser/ByteScan.h"
#include "host/parser/html/CharacterClasses.h"
#include "host/parser/html/CssText.h"

namespace Corvane::Html {

namespace {

using Values = std::optional<Value>;

struct NamedKeyword {
    std::string_view name;
    Keyword keyword;
};

template <std::size_t size>
Values s_keyword(const NamedKeyword (&table)[size], std::string_view word) {
    const auto *const found =
        std::find_if(std::begin(table), std::end(table),
                     [word](const NamedKeyword &one) { return one.name == word; });
    return found == std::end(table) ? Values() : Value{found->keyword, {}};
}

Values s_display(std::string_view word) {
    static constexpr NamedKeyword kWords[] = {
        {"none", Keyword::None},
        {"inline", Keyword::Inline},
        {"block", Keyword::Block},
        {"inline-block", Keyword::InlineBlock},
        {"list-item", Keyword::Block},
        {"flow-root", Keyword::Block},
        {"flex", Keyword::Block},
        {"grid", Keyword::Block},
        {"inline-flex", Keyword::InlineBlock},
        {"inline-grid", Keyword::InlineBlock},
        {"-webkit-box", Keyword::Block},
        {"-webkit-flex", Keyword::Block},
        {"-webkit-inline-box", Keyword::InlineBlock},
        {"-webkit-inline-flex", Keyword::InlineBlock},
        {"table", Keyword::TablePart},
        {"inline-table", Keyword::Inline},
        {"table-row", Keyword::TablePart},
        {"table-cell", Keyword::Cell},
        {"table-row-group", Keyword::TablePart},
        {"table-header-group", Keyword::TablePart},
        {"table-footer-group", Keyword::TablePart},
        {"table-caption", Keyword::TablePart},
        {"table-column", Keyword::None},
        {"table-column-group", Keyword::None},
        {"contents", Keyword::Inline},
        {"ruby", Keyword::Inline},
        {"ruby-text", Keyword::Inline},
    };
    return s_keyword(kWords, word);
}

Values s_visibility(std::string_view word) {
    static constexpr NamedKeyword kWords[] = {
        {"visible", Keyword::Visible}, {"hidden", Keyword::Hidden}, {"collapse", Keyword::Hidden}};
    return s_keyword(kWords, word);
}

Values s_overflow(std::string_view word) {
    static constexpr NamedKeyword kWords[] = {
        {"visible", Keyword::Visible}, {"hidden", Keyword::Hidden}, {"clip", Keyword::Hidden},
        {"auto", Keyword::Other},      {"scroll", Keyword::Other},  {"overlay", Keyword::Other}};
    return s_keyword(kWords, word);
}

Values s_whiteSpace(std::string_view word) {
    static constexpr NamedKeyword kWords[] = {
        {"normal", Keyword::Other},       {"nowrap", Keyword::Other},
        {"pre", Keyword::Preserved},      {"pre-wrap", Keyword::Preserved},
        {"pre-line", Keyword::Preserved}, {"break-spaces", Keyword::Preserved}};
    return s_keyword(kWords, word);
}

Values s_float(std::string_view word) {
    static constexpr NamedKeyword kWords[] = {
        {"left", Keyword::Block}, {"right", Keyword::Block}, {"none", Keyword::Other}};
    return s_keyword(kWords, word);
}

Values s_position(std::string_view word) {
    static constexpr NamedKeyword kWords[] = {{"static", Keyword::Other},
                                              {"relative", Keyword::Other},
                                              {"sticky", Keyword::Other},
                                              {"absolute", Keyword::OutOfFlow},
                                              {"fixed", Keyword::OutOfFlow}};
    return s_keyword(kWords, word);
}

bool s_isOneOf(std::string_view word, std::initializer_list<std::string_view> words) {
    return std::find(words.begin(), words.end(), word) != words.end();
}

bool s_isFunction(std::string_view word) {
    return word.find('(') != std::string_view::npos && isLetter(word.front());
}

bool s_isRelativeUnit(std::string_view unit) {
    return s_isOneOf(unit, {"em", "ex", "ch", "%", "lh", "cap", "ic"});
}

bool s_isLengthUnit(std::string_view unit) {
    return s_isRelativeUnit(unit) ||
           s_isOneOf(unit,
                     {"px",   "pt",   "pc", "cm", "mm",  "q",   "in",  "rem", "rlh", "vw", "vh",
                      "vmin", "vmax", "vi", "vb", "svw", "svh", "lvw", "lvh", "dvw", "dvh"});
}

// A length that is not negative. Style attributes and quirky documents get by without a unit.
Values s_length(std::string_view word) {
    const auto number = cssNumber(word);
    if (!number) {
        return s_isFunction(word) ? Value{Keyword::Other, {}} : Values();
    }
    const bool isLength = number->unit.empty() || s_isLengthUnit(number->unit);
    if (!isLength || number->value < 0) {
        return std::nullopt;
    }
    return Value{number->value == 0 ? Keyword::Zero : Keyword::Other, {}};
}

// A width or a height. A percentage of a height that nobody knows is none.
Values s_extent(std::string_view word, bool isHeight) {
    if (s_isOneOf(word, {"auto", "none", "min-content", "max-content", "fit-content", "stretch",
                         "-webkit-fill-available"})) {
        return Value{Keyword::None, {}};
    }
    return isHeight && word.back() == '%' ? Value{Keyword::None, {}} : s_length(word);
}

Values s_fontSize(std::string_view word) {
    if (s_isOneOf(word, {"xx-small", "x-small", "small", "medium", "large", "x-large", "xx-large",
                         "xxx-large"})) {
        return Value{Keyword::Other, {}};
    }
    if (word == "smaller" || word == "larger") {
        return Value{Keyword::Relative, {}};
    }
    Values size = s_length(word);
    const auto number = cssNumber(word);
    if (size && size->keyword != Keyword::Zero && number && s_isRelativeUnit(number->unit)) {
        size->keyword = Keyword::Relative;
    }
    return size;
}

Values s_opacity(std::string_view word) {
    const auto number = cssNumber(word);
    if (!number) {
        return s_isFunction(word) ? Value{Keyword::Other, {}} : Values();
    }
    if (!number->unit.empty() && number->unit != "%") {
        return std::nullopt;
    }
    return Value{number->value <= 0 ? Keyword::Zero : Keyword::Other, {}};
}

Values s_colour(std::string_view word) {
    const auto colour = cssColour(word);
    return colour ? Value{Keyword::Colour, *colour} : Values();
}

Values s_paint(std::string_view word) {
    return Value{word == "none" ? Keyword::None : Keyword::Other, {}};
}

using OneWord = Values (*)(std::string_view);

struct Reader {
    std::string_view name;
    Property property;
    OneWord read;
};

constexpr Reader kReaders[] = {
    {"display", Property::Display, s_display},
    {"visibility", Property::Visibility, s_visibility},
    {"font-size", Property::FontSize, s_fontSize},
    {"opacity", Property::Opacity, s_opacity},
    {"color", Property::Colour, s_colour},
    {"background-color", Property::Background, s_colour},
    {"background-image", Property::BackgroundImage, s_paint},
    {"width", Property::Width, [](std::string_view word) { return s_extent(word, false); }},
    {"max-width", Property::MaxWidth, [](std::string_view word) { return s_extent(word, false); }},
    {"min-width", Property::MinWidth, [](std::string_view word) { return s_extent(word, false); }},
    {"height", Property::Height, [](std::string_view word) { return s_extent(word, true); }},
    {"max-height", Property::MaxHeight, [](std::string_view word) { return s_extent(word, true); }},
    {"min-height", Property::MinHeight, [](std::string_view word) { return s_extent(word, true); }},
    {"overflow-x", Property::OverflowX, s_overflow},
    {"overflow-y", Property::OverflowY, s_overflow},
    {"padding-top", Property::PaddingTop, s_length},
    {"padding-right", Property::PaddingRight, s_length},
    {"padding-bottom", Property::PaddingBottom, s_length},
    {"padding-left", Property::PaddingLeft, s_length},
    {"text-shadow", Property::Paint, s_paint},
    {"-webkit-text-fill-color", Property::Paint, s_paint},
    {"-webkit-text-stroke", Property::Paint, s_paint},
    {"-webkit-background-clip", Property::Paint, s_paint},
    {"background-clip", Property::Paint, s_paint},
    {"white-space", Property::WhiteSpace, s_whiteSpace},
    {"float", Property::Float, s_float},
    {"position", Property::Position, s_position},
};

Values s_common(std::string_view word) {
    if (word == "inherit") {
        return Value{Keyword::Inherit, {}};
    }
    const bool isReset = s_isOneOf(word, {"initial", "revert", "revert-layer"});
    return isReset || word == "unset" ? Value{Keyword::Initial, {}} : Values();
}

// One declaration with its value in words, in lower case.
class Shorthand {
public:
    Shorthand(const std::vector<std::string_view> &words, bool isImportant,
              std::vector<Declaration> &out)
        : words_(words), isImportant_(isImportant), out_(out) {}

    void add(Property property, const Values &value) {
        if (value) {
            out_.push_back({property, *value, isImportant_});
        }
    }

    static bool isOne(std::string_view name) {
        return s_isOneOf(name, {"overflow", "padding", "background", "font"});
    }

    void take(std::string_view name) {
        if (name == "overflow") {
            overflow();
        } else if (name == "padding") {
            padding();
        } else if (name == "background") {
            background();
        } else if (name == "font") {
            font();
        }
    }

private:
    void overflow() {
        const Values x = s_wide(words_.front(), s_overflow);
        const Values y = s_wide(words_.back(), s_overflow);
        if (x && y && words_.size() <= 2) {
            add(Property::OverflowX, x);
            add(Property::OverflowY, y);
        }
    }

    void padding() {
        constexpr std::size_t kSides = 4;
        if (words_.size() > kSides) {
            return;
        }
        std::array<Values, kSides> sides;
        std::size_t count = 0;
        for (const std::string_view word : words_) {
            sides[count] = s_wide(word, s_length);
            if (!sides[count++]) {
                return;
            }
        }
        const std::size_t last = count - 1;
        constexpr std::size_t kBottom = 2;
        constexpr std::size_t kLeft = 3;
        add(Property::PaddingTop, sides[0]);
        add(Property::PaddingRight, sides[std::min<std::size_t>(1, last)]);
        add(Property::PaddingBottom, sides[last >= kBottom ? kBottom : 0]);
        add(Property::PaddingLeft, sides[last >= kLeft ? kLeft : std::min<std::size_t>(1, last)]);
    }

    // A colour in it is the last word in real mail, but may stand anywhere; without one it is none.
    void background() {
        Value colour{Keyword::Initial, {}};
        Value image{Keyword::None, {}};
        for (const std::string_view word : words_) {
            if (const auto found = s_wide(word, s_colour)) {
                colour = *found;
            } else if (s_isFunction(word)) {
                image = Value{Keyword::Other, {}};
            } else if (!isBackgroundWord(word)) {
                return;
            }
        }
        add(Property::Background, colour);
        add(Property::BackgroundImage, image);
    }

    static bool isBackgroundWord(std::string_view word) {
        return s_length(word) || cssNumber(word) ||
               s_isOneOf(word, {"none",        "/",          "left",   "right",    "top",
                                "bottom",      "center",     "repeat", "repeat-x", "repeat-y",
                                "no-repeat",   "space",      "round",  "scroll",   "fixed",
                                "local",       "auto",       "cover",  "contain",  "border-box",
                                "padding-box", "content-box"});
    }

    // Size, perhaps a line height behind a '/', and at least one family; style, variant and weight
    // may stand before it.
    void font() {
        constexpr std::size_t kMostBefore = 4;
        if (const auto common = s_common(words_.front()); common && words_.size() == 1) {
            add(Property::FontSize, common);
            return;
        }
        for (std::size_t place = 0; place < std::min(words_.size(), kMostBefore + 1); ++place) {
            const std::string_view word = words_[place];
            const auto number = cssNumber(word);
            const bool isWeight = number && number->unit.empty() && number->value >= 1;
            const auto size = isWeight ? Values() : s_fontSize(word);
            if (!size) {
                continue;
            }
            const bool hasHeight = place + 1 < words_.size() && words_[place + 1] == "/";
            const std::size_t family = place + (hasHeight ? 3 : 1);
            if (family < words_.size()) {
                add(Property::FontSize, size);
            }
            return;
        }
    }

    static Values s_wide(std::string_view word, OneWord read) {
        const Values common = s_common(word);
        return common ? common : read(word);
    }

    const std::vector<std::string_view> &words_;
    bool isImportant_;
    std::vector<Declaration> &out_;
};

// Takes "!important" from the end; nothing where something else stands behind a '!'.
std::optional<bool> s_takeImportant(std::string_view &value) {
    const std::size_t mark = value.rfind('!');
    if (mark == std::string_view::npos) {
        return false;
    }
    if (cssTrimmed(value.substr(mark + 1)) != "important") {
        return std::nullopt;
    }
    value = cssTrimmed(value.substr(0, mark));
    return true;
}

const Reader *s_readerOf(std::string_view name) {
    const auto *const found =
        std::find_if(std::begin(kReaders), std::end(kReaders), [name](const Reader &one) {
            return one.name.size() == name.size() && one.name.front() == name.front() &&
                   one.name == name;
        });
    return found == std::end(kReaders) ? nullptr : found;
}

// Whether a value is one word that stands for itself.
bool s_isOneWord(std::string_view value) {
    static constexpr ByteSet kOther = byteSet(" \t\n\f,/\\\"'()");
    return findIn(kOther, value) == value.size();
}

// In lower case, with escapes decoded.
std::string s_plain(std::string_view css, bool hasEscape) {
    return hasEscape ? cssLower(cssUnescaped(css)) : cssLower(css);
}

constexpr ByteSet kCssBlanks = byteSet(" \t\n\f\r");

// Most declarations are of other things: their first letter tells.
bool s_mayConcern(std::string_view declaration) {
    static constexpr ByteSet kFirst = byteSet("dvfocbwmhptDVFOCBWMHPT-\\");
    return !declaration.empty() && isIn(kFirst, declaration.front());
}

} // namespace

void Declarations::set(Property property, const Value &value, std::uint64_t priority) {
    const auto place = static_cast<std::size_t>(property);
    if (priority >= priorities_[place]) {
        values_[place] = value;
        priorities_[place] = priority;
        isEmpty_ = false;
    }
}

void declare(std::string_view declaration, std::vector<Declaration> &out) {
    declaration.remove_prefix(findNotIn(kCssBlanks, declaration));
    if (!s_mayConcern(declaration)) {
        return;
    }
    const std::size_t colon = findFirst<':'>(declaration);
    if (colon == declaration.size()) {
        return;
    }
    const bool hasEscape = findFirst<'\\'>(declaration) != declaration.size();
    const std::string name =
        s_plain(trimmedOf(kCssBlanks, declaration.substr(0, colon)), hasEscape);
    const Reader *reader = s_readerOf(name);
    const bool isShorthand = reader == nullptr && Shorthand::isOne(name);
    if (reader == nullptr && !isShorthand) {
        return;
    }
    const std::string lower = s_plain(declaration.substr(colon + 1), hasEscape);
    std::string_view value = cssTrimmed(lower);
    const auto important = s_takeImportant(value);
    if (!important || value.empty()) {
        return;
    }
    if (!isShorthand && s_isOneWord(value)) {
        const Values common = s_common(value);
        const Values own = common ? common : reader->read(value);
        if (own) {
            out.push_back({reader->property, *own, *important});
        }
        return;
    }
    const auto words = cssWords(value);
    if (words.empty()) {
        return;
    }
    Shorthand one(words, *important, out);
    if (isShorthand) {
        one.take(name);
        return;
    }
    if (reader->property == Property::Paint || reader->property == Property::BackgroundImage) {
        const Values common = s_common(value);
        one.add(reader->property, common ? common : s_paint(value));
    } else if (words.size() == 1) {
        const Values common = s_common(words.front());
        one.add(reader->property, common ? common : reader->read(words.front()));
    }
}

namespace {

constexpr ByteSet kStyleMarks = byteSet(";\"'()");

} // namespace

void declareStyle(std::string_view style, std::vector<Declaration> &out) {
    while (!style.empty()) {
        std::size_t end = findIn(kStyleMarks, style);
        unsigned int depth = 0;
        char quote = '\0';
        for (; end < style.size() && (style[end] != ';' || depth > 0 || quote != '\0'); ++end) {
            const char c = style[end];
            if (quote != '\0') {
                quote = c == quote || c == '\n' ? '\0' : quote;
            } else if (c == '"' || c == '\'') {
                quote = c;
            } else if (c == '(' || c == ')') {
                depth = c == '(' ? depth + 1 : depth - std::min(depth, 1U);
            }
        }
        declare(style.substr(0, end), out);
        style.remove_prefix(std::min(end + 1, style.size()));
    }
}

} // namespace Corvane::Html
