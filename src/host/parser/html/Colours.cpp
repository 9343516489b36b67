#include "host/parser/html/Colours.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string>

#include "host/parser/html/CharacterClasses.h"
#include "host/parser/html/CssText.h"

namespace Corvane::Html {

namespace {

struct NamedColour {
    std::string_view name;
    std::uint32_t rgb;
};

// In the order of their names.
constexpr NamedColour kNames[] = {
    {"aliceblue", 0xF0F8FF},
    {"antiquewhite", 0xFAEBD7},
    {"aqua", 0x00FFFF},
    {"aquamarine", 0x7FFFD4},
    {"azure", 0xF0FFFF},
    {"beige", 0xF5F5DC},
    {"bisque", 0xFFE4C4},
    {"black", 0x000000},
    {"blanchedalmond", 0xFFEBCD},
    {"blue", 0x0000FF},
    {"blueviolet", 0x8A2BE2},
    {"brown", 0xA52A2A},
    {"burlywood", 0xDEB887},
    {"cadetblue", 0x5F9EA0},
    {"chartreuse", 0x7FFF00},
    {"chocolate", 0xD2691E},
    {"coral", 0xFF7F50},
    {"cornflowerblue", 0x6495ED},
    {"cornsilk", 0xFFF8DC},
    {"crimson", 0xDC143C},
    {"cyan", 0x00FFFF},
    {"darkblue", 0x00008B},
    {"darkcyan", 0x008B8B},
    {"darkgoldenrod", 0xB8860B},
    {"darkgray", 0xA9A9A9},
    {"darkgreen", 0x006400},
    {"darkgrey", 0xA9A9A9},
    {"darkkhaki", 0xBDB76B},
    {"darkmagenta", 0x8B008B},
    {"darkolivegreen", 0x556B2F},
    {"darkorange", 0xFF8C00},
    {"darkorchid", 0x9932CC},
    {"darkred", 0x8B0000},
    {"darksalmon", 0xE9967A},
    {"darkseagreen", 0x8FBC8F},
    {"darkslateblue", 0x483D8B},
    {"darkslategray", 0x2F4F4F},
    {"darkslategrey", 0x2F4F4F},
    {"darkturquoise", 0x00CED1},
    {"darkviolet", 0x9400D3},
    {"deeppink", 0xFF1493},
    {"deepskyblue", 0x00BFFF},
    {"dimgray", 0x696969},
    {"dimgrey", 0x696969},
    {"dodgerblue", 0x1E90FF},
    {"firebrick", 0xB22222},
    {"floralwhite", 0xFFFAF0},
    {"forestgreen", 0x228B22},
    {"fuchsia", 0xFF00FF},
    {"gainsboro", 0xDCDCDC},
    {"ghostwhite", 0xF8F8FF},
    {"gold", 0xFFD700},
    {"goldenrod", 0xDAA520},
    {"gray", 0x808080},
    {"green", 0x008000},
    {"greenyellow", 0xADFF2F},
    {"grey", 0x808080},
    {"honeydew", 0xF0FFF0},
    {"hotpink", 0xFF69B4},
    {"indianred", 0xCD5C5C},
    {"indigo", 0x4B0082},
    {"ivory", 0xFFFFF0},
    {"khaki", 0xF0E68C},
    {"lavender", 0xE6E6FA},
    {"lavenderblush", 0xFFF0F5},
    {"lawngreen", 0x7CFC00},
    {"lemonchiffon", 0xFFFACD},
    {"lightblue", 0xADD8E6},
    {"lightcoral", 0xF08080},
    {"lightcyan", 0xE0FFFF},
    {"lightgoldenrodyellow", 0xFAFAD2},
    {"lightgray", 0xD3D3D3},
    {"lightgreen", 0x90EE90},
    {"lightgrey", 0xD3D3D3},
    {"lightpink", 0xFFB6C1},
    {"lightsalmon", 0xFFA07A},
    {"lightseagreen", 0x20B2AA},
    {"lightskyblue", 0x87CEFA},
    {"lightslategray", 0x778899},
    {"lightslategrey", 0x778899},
    {"lightsteelblue", 0xB0C4DE},
    {"lightyellow", 0xFFFFE0},
    {"lime", 0x00FF00},
    {"limegreen", 0x32CD32},
    {"linen", 0xFAF0E6},
    {"magenta", 0xFF00FF},
    {"maroon", 0x800000},
    {"mediumaquamarine", 0x66CDAA},
    {"mediumblue", 0x0000CD},
    {"mediumorchid", 0xBA55D3},
    {"mediumpurple", 0x9370DB},
    {"mediumseagreen", 0x3CB371},
    {"mediumslateblue", 0x7B68EE},
    {"mediumspringgreen", 0x00FA9A},
    {"mediumturquoise", 0x48D1CC},
    {"mediumvioletred", 0xC71585},
    {"midnightblue", 0x191970},
    {"mintcream", 0xF5FFFA},
    {"mistyrose", 0xFFE4E1},
    {"moccasin", 0xFFE4B5},
    {"navajowhite", 0xFFDEAD},
    {"navy", 0x000080},
    {"oldlace", 0xFDF5E6},
    {"olive", 0x808000},
    {"olivedrab", 0x6B8E23},
    {"orange", 0xFFA500},
    {"orangered", 0xFF4500},
    {"orchid", 0xDA70D6},
    {"palegoldenrod", 0xEEE8AA},
    {"palegreen", 0x98FB98},
    {"paleturquoise", 0xAFEEEE},
    {"palevioletred", 0xDB7093},
    {"papayawhip", 0xFFEFD5},
    {"peachpuff", 0xFFDAB9},
    {"peru", 0xCD853F},
    {"pink", 0xFFC0CB},
    {"plum", 0xDDA0DD},
    {"powderblue", 0xB0E0E6},
    {"purple", 0x800080},
    {"rebeccapurple", 0x663399},
    {"red", 0xFF0000},
    {"rosybrown", 0xBC8F8F},
    {"royalblue", 0x4169E1},
    {"saddlebrown", 0x8B4513},
    {"salmon", 0xFA8072},
    {"sandybrown", 0xF4A460},
    {"seagreen", 0x2E8B57},
    {"seashell", 0xFFF5EE},
    {"sienna", 0xA0522D},
    {"silver", 0xC0C0C0},
    {"skyblue", 0x87CEEB},
    {"slateblue", 0x6A5ACD},
    {"slategray", 0x708090},
    {"slategrey", 0x708090},
    {"snow", 0xFFFAFA},
    {"springgreen", 0x00FF7F},
    {"steelblue", 0x4682B4},
    {"tan", 0xD2B48C},
    {"teal", 0x008080},
    {"thistle", 0xD8BFD8},
    {"tomato", 0xFF6347},
    {"turquoise", 0x40E0D0},
    {"violet", 0xEE82EE},
    {"wheat", 0xF5DEB3},
    {"white", 0xFFFFFF},
    {"whitesmoke", 0xF5F5F5},
    {"yellow", 0xFFFF00},
    {"yellowgreen", 0x9ACD32},
};

constexpr unsigned int kHexBits = 4;
constexpr unsigned int kByteBits = 8;

std::optional<Colour> s_named(std::string_view lower) {
    const auto *const found = std::lower_bound(
        std::begin(kNames), std::end(kNames), lower,
        [](const NamedColour &one, std::string_view name) { return one.name < name; });
    if (found == std::end(kNames) || found->name != lower) {
        return std::nullopt;
    }
    return Colour{ColourKind::Known, found->rgb};
}

bool s_isHex(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return hexValue(c) >= 0; });
}

std::uint32_t s_hex(std::string_view digits) {
    std::uint32_t value = 0;
    for (const char c : digits) {
        value = value << kHexBits | static_cast<std::uint32_t>(hexValue(c));
    }
    return value;
}

std::uint32_t s_doubled(std::string_view digits) {
    std::uint32_t value = 0;
    for (const char c : digits) {
        const auto digit = static_cast<std::uint32_t>(hexValue(c));
        value = value << kByteBits | digit << kHexBits | digit;
    }
    return value;
}

// Of three or six digits, or one or two more for how opaque it is.
std::optional<Colour> s_hexColour(std::string_view digits) {
    constexpr std::size_t kShort = 3;
    constexpr std::size_t kLong = 6;
    if (!s_isHex(digits)) {
        return std::nullopt;
    }
    const bool isShort = digits.size() == kShort || digits.size() == kShort + 1;
    if (!isShort && digits.size() != kLong && digits.size() != kLong + 2) {
        return std::nullopt;
    }
    const std::size_t length = isShort ? kShort : kLong;
    const std::string_view opaque = digits.substr(length);
    const std::uint32_t rgb =
        isShort ? s_doubled(digits.substr(0, length)) : s_hex(digits.substr(0, length));
    if (opaque.find_first_not_of('0') == std::string_view::npos && !opaque.empty()) {
        return Colour{ColourKind::Transparent, rgb};
    }
    const bool isOpaque = opaque.find_first_not_of("fF") == std::string_view::npos;
    return Colour{isOpaque ? ColourKind::Known : ColourKind::Unknown, rgb};
}

// The arguments of rgb() and rgba(), with commas or blanks between them.
std::optional<Colour> s_function(std::string_view lower) {
    constexpr std::size_t kChannels = 3;
    constexpr double kMost = 255;
    constexpr double kPercent = 100;
    const std::size_t open = lower.find('(');
    const std::string_view inside = lower.substr(open + 1, lower.rfind(')') - open - 1);
    if (lower.back() != ')') {
        return std::nullopt;
    }
    std::array<double, kChannels + 1> values{0, 0, 0, 1};
    std::size_t count = 0;
    std::size_t at = 0;
    while ((at = inside.find_first_not_of(" \t\n\f,/", at)) != std::string_view::npos) {
        const std::size_t end = std::min(inside.find_first_of(" \t\n\f,/", at), inside.size());
        const std::optional<CssNumber> number = cssNumber(inside.substr(at, end - at));
        if (!number || count == values.size()) {
            return Colour{ColourKind::Unknown, 0};
        }
        const double most = count < kChannels ? kMost : 1;
        const double value = number->unit == "%" ? number->value * most / kPercent : number->value;
        values[count++] = std::clamp(value, 0.0, most);
        at = end;
    }
    if (count < kChannels) {
        return std::nullopt;
    }
    std::uint32_t rgb = 0;
    for (std::size_t channel = 0; channel < kChannels; ++channel) {
        rgb = rgb << kByteBits | static_cast<std::uint32_t>(std::lround(values[channel]));
    }
    if (values[kChannels] <= 0) {
        return Colour{ColourKind::Transparent, rgb};
    }
    return Colour{values[kChannels] < 1 ? ColourKind::Unknown : ColourKind::Known, rgb};
}

} // namespace

std::optional<Colour> cssColour(std::string_view lower) {
    if (lower.empty()) {
        return std::nullopt;
    }
    if (lower.front() == '#') {
        return s_hexColour(lower.substr(1));
    }
    if (lower == "transparent") {
        return Colour{ColourKind::Transparent, 0};
    }
    if (lower.substr(0, 4) == "rgb(" || lower.substr(0, 5) == "rgba(") {
        return s_function(lower);
    }
    // Names of the system's colours, and functions that nobody needs for black and white.
    constexpr std::string_view kOthers[] = {
        "currentcolor", "hsl(",     "hsla(",  "hwb(",       "lab(",       "lch(",
        "oklab(",       "oklch(",   "color(", "color-mix(", "var(",       "canvas",
        "canvastext",   "linktext", "window", "windowtext", "buttontext", "buttonface"};
    for (const std::string_view other : kOthers) {
        if (other.back() == '(' ? lower.substr(0, other.size()) == other : lower == other) {
            return Colour{ColourKind::Unknown, 0};
        }
    }
    return s_named(lower);
}

// As the standard makes a colour of anything: digits are cut out of it in thirds.
std::optional<Colour> attributeColour(std::string_view value) {
    constexpr std::size_t kMostChannelDigits = 8;
    constexpr std::size_t kMostBytes = 128;
    constexpr std::size_t kShort = 4;
    constexpr std::size_t kThirds = 3;
    const std::string lower = cssLower(cssTrimmed(value.substr(0, 2 * kMostBytes)));
    if (lower.empty() || lower == "transparent") {
        return std::nullopt;
    }
    if (const auto named = s_named(lower)) {
        return named;
    }
    if (lower.size() == kShort && lower.front() == '#' &&
        s_isHex(std::string_view(lower).substr(1))) {
        return Colour{ColourKind::Known, s_doubled(std::string_view(lower).substr(1))};
    }
    std::string digits = lower.substr(lower.front() == '#' ? 1 : 0, kMostBytes);
    std::replace_if(
        digits.begin(), digits.end(), [](char c) { return hexValue(c) < 0; }, '0');
    digits.append(digits.empty() ? kThirds : (kThirds - digits.size() % kThirds) % kThirds, '0');
    const std::size_t length = digits.size() / kThirds;
    std::array<std::string_view, kThirds> channels;
    for (std::size_t third = 0; third < kThirds; ++third) {
        channels[third] = std::string_view(digits).substr(third * length, length);
        channels[third].remove_prefix(length - std::min(length, kMostChannelDigits));
    }
    while (channels[0].size() > 2 &&
           std::all_of(channels.begin(), channels.end(),
                       [](std::string_view channel) { return channel.front() == '0'; })) {
        for (std::string_view &channel : channels) {
            channel.remove_prefix(1);
        }
    }
    std::uint32_t rgb = 0;
    for (const std::string_view channel : channels) {
        rgb = rgb << kByteBits | s_hex(channel.substr(0, 2));
    }
    return Colour{ColourKind::Known, rgb};
}

} // namespace Corvane::Html
