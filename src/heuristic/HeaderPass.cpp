#include "heuristic/HeaderPass.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <string_view>

#include "host/parser/HeaderText.h"

namespace Corvane::Heuristic {

namespace {

// Room for a header value in UTF-8, its terminator included; a longer value is checked as far as it fits.
constexpr int kHeaderRoomBytes = 2048;

constexpr unsigned int s_bit(HeaderForm form) {
    return 1U << static_cast<unsigned int>(form);
}

constexpr unsigned int kAddressForms = s_bit(HeaderForm::Addr) | s_bit(HeaderForm::Name);

// A high bit is left for each byte above 127, and for a zero byte.
std::uint64_t s_oddBytes(const char *data, std::size_t count) {
    constexpr std::uint64_t kLowBits = 0x0101010101010101;
    constexpr std::uint64_t kHighBits = 0x8080808080808080;
    std::uint64_t bytes = kLowBits;
    std::memcpy(&bytes, data, count);
    return (bytes | (bytes - kLowBits)) & kHighBits;
}

// Whether the conversion to UTF-8 leaves the value as it is, as far as that can be told at a glance.
bool s_isShortAscii(const std::string &value) {
    constexpr std::size_t kWord = sizeof(std::uint64_t);
    const std::size_t size = value.size();
    if (size >= kHeaderRoomBytes) {
        return false;
    }
    if (size < kWord) {
        return s_oddBytes(value.data(), size) == 0;
    }
    // The last word may overlap the one before: whole words are read many at a time.
    std::uint64_t odd = s_oddBytes(value.data() + size - kWord, kWord);
    for (std::size_t at = 0; at + kWord < size; at += kWord) {
        odd |= s_oddBytes(value.data() + at, kWord);
    }
    return odd == 0;
}

// Whether the name, before a value, has no part in the decoding of encoded words.
bool s_isPlainName(const std::string &name) {
    return !name.empty() && s_isShortAscii(name) && !mayHoldEncodedWord(name);
}

constexpr std::string_view kWordBegin = "=?";
constexpr std::string_view kWordEnd = "?=";
constexpr std::size_t kEncodingBytes = 3;

// Where such a beginning stands, of which the second byte is the rarer one.
std::size_t s_findWordBegin(std::string_view text) {
    for (std::size_t at = text.find('?', 1); at != text.npos; at = text.find('?', at + 1)) {
        if (text[at - 1] == '=') {
            return at - 1;
        }
    }
    return text.npos;
}

// What is behind the first letter for an encoding that stands between question marks; empty where there is none.
std::string_view s_behindEncoding(std::string_view text) {
    for (std::size_t at = text.find('?'); at != text.npos; at = text.find('?', at + 1)) {
        const std::string_view encoding = text.substr(at, kEncodingBytes);
        if (encoding.size() == kEncodingBytes && encoding.back() == '?' &&
            std::string_view("BbQq").find(encoding[1]) != text.npos) {
            return text.substr(at + kEncodingBytes);
        }
    }
    return {};
}

std::string_view s_view(const Buffer &buffer) {
    return {reinterpret_cast<const char *>(buffer.data()), buffer.length()};
}

} // namespace

std::string headerValueInUtf8(const std::string &value) {
    if (s_isShortAscii(value)) {
        return value;
    }
    std::array<char, kHeaderRoomBytes> text{};
    tessel_to_utf8(value.c_str(), text.data(), kHeaderRoomBytes, 0);
    return std::string(text.data());
}

bool mayHoldEncodedWord(std::string_view text) {
    return s_findWordBegin(text) != text.npos;
}

// In each line the first of everything leaves most for what must follow.
bool holdsEncodedWord(std::string_view text) {
    for (std::size_t at = s_findWordBegin(text); at != text.npos; at = s_findWordBegin(text)) {
        text.remove_prefix(at + kWordBegin.size());
        const std::string_view line = text.substr(0, text.find('\n'));
        if (s_behindEncoding(line).find(kWordEnd) != text.npos) {
            return true;
        }
        text.remove_prefix(line.size());
    }
    return false;
}

Header headerFor(const Header &header, HeaderValues values) {
    return values == HeaderValues::AsTheyAre
               ? header
               : Header(header.type(), headerValueInUtf8(header.value()));
}

bool HeaderPass::isTooLong(const Header &header, HeaderValues values) {
    const std::size_t value = values == HeaderValues::AsTheyAre ? header.value().size() : 0;
    return header.type().size() + value > FilteredList::kMaxStagedBytes;
}

void HeaderPass::add(const Header &header, HeaderValues values) {
    const auto number = static_cast<std::uint32_t>(headers_.units.size());
    FilteredPass::HeaderUnit &unit = headers_.units.emplace_back();
    unit.firstSelector = headers_.selectors.size();
    unsigned int wanted = 0;
    // The conversion makes an empty header of a null one.
    if (!header.isNull() || values == HeaderValues::InUtf8) {
        for (const std::uint32_t each : pass_.selectorsOf(header.type())) {
            const HeaderSelectors::Selector &selector = list_.index().headers().at(each);
            pass_.alsoTry(number, selector.unfiltered);
            wanted |= formsOf(selector);
            headers_.selectors.push_back(each);
        }
    }
    unit.lastSelector = headers_.selectors.size();
    if (wanted == 0 || list_.counts().all.rules == 0) {
        return;
    }
    if (values == HeaderValues::AsTheyAre || s_isShortAscii(header.value())) {
        stageForms(header, header.value(), wanted);
    } else {
        stageForms(header, headerValueInUtf8(header.value()), wanted);
    }
}

// The forms that rules still to be tried may look at. Addresses, which are slow to parse, only
// where there is such a rule.
unsigned int HeaderPass::formsOf(const HeaderSelectors::Selector &selector) const {
    const bool isAsked = std::any_of(selector.ofAddress.begin(), selector.ofAddress.end(),
                                     [this](std::uint32_t rule) { return list_.admits(rule); });
    return isAsked ? selector.forms : selector.forms & ~kAddressForms;
}

// Puts the wanted forms of the latest unit's header behind the texts of the pass.
void HeaderPass::stageForms(const Header &header, const std::string &value, unsigned int wanted) {
    const bool encoded = holdsEncodedWord(value);
    const unsigned int values = wanted & (s_bit(HeaderForm::Value) | s_bit(HeaderForm::Raw));
    const unsigned int all = wanted & s_bit(HeaderForm::All);
    // Owns what was decoded, or views the value.
    const Buffer decoded =
        encoded ? headerValueDecode(value)
                : Buffer(value.data(), static_cast<unsigned int>(value.size()), true);
    unsigned int decodedValues = values;
    if (encoded) {
        stageText({}, value, values & s_bit(HeaderForm::Raw));
        decodedValues &= s_bit(HeaderForm::Value);
    }
    if (s_isPlainName(header.type())) {
        stageText(header.type(), s_view(decoded), decodedValues | all);
    } else {
        stageText({}, s_view(decoded), decodedValues);
        stageText({}, s_view(headerValueDecode(header.type() + ": " + value)), all);
    }
    if ((wanted & kAddressForms) != 0) {
        addressBytes_ += value.size();
        const EmailAddress parsed = EmailAddress::rfc5322Parse(value, true);
        const bool isNull = parsed.isNull();
        stageText({}, isNull ? std::string_view() : parsed.address(),
                  wanted & s_bit(HeaderForm::Addr));
        stageText({}, isNull ? std::string_view() : parsed.displayName(),
                  wanted & s_bit(HeaderForm::Name));
    }
}

// One text for several forms: with a name the text is behind it in the form that begins with the name.
void HeaderPass::stageText(std::string_view name, std::string_view text, unsigned int forms) {
    if (forms == 0) {
        return;
    }
    const auto unit = static_cast<std::uint32_t>(headers_.units.size() - 1);
    FilteredPass::Forms &ranges = headers_.units.back().forms;
    const bool isNamed = !name.empty() && (forms & s_bit(HeaderForm::All)) != 0;
    const unsigned int main = isNamed ? static_cast<unsigned int>(HeaderForm::All)
                                      : static_cast<unsigned int>(std::countr_zero(forms));
    const std::string_view separator = isNamed ? ": " : "";
    const std::string_view before = isNamed ? name : "";
    ranges[main] = pass_.stage({before, separator, text}, unit, static_cast<HeaderForm>(main));
    const unsigned int others = forms & ~(1U << main);
    if (others != 0) {
        const auto inner = static_cast<std::uint32_t>(before.size() + separator.size());
        const FilteredPass::Range range = pass_.alsoForms(inner, others);
        for (std::size_t form = 0; form < ranges.size(); ++form) {
            if ((others >> form & 1U) != 0) {
                ranges[form] = range;
            }
        }
    }
}

void HeaderPass::select() {
    pass_.selectHeaders(headers_);
}

bool HeaderPass::turns(std::uint32_t first) {
    const auto units = static_cast<std::uint32_t>(headers_.units.size());
    bool tripped = false;
    for (std::uint32_t unit = first; unit < units && !tripped;
         unit = pass_.nextUnit(unit + 1, units)) {
        pass_.addMatches(unit, Buffer(), matches_);
        tripped = matches_->tripped();
    }
    clear();
    return tripped;
}

void HeaderPass::clear() {
    headers_.units.clear();
    headers_.selectors.clear();
    pass_.clear();
    mostAddressBytes_ = std::max(mostAddressBytes_, 2 * addressBytes_);
    addressBytes_ = 0;
}

} // namespace Corvane::Heuristic
