#include "host/regex/LiteralFrequency.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <sstream>
#include <vector>

#include "host/parser/Lasting.h"
#include "host/parser/Text.h"
#include "host/regex/FrequencyTables.h"

namespace Corvane::Regex {

namespace {

constexpr double kBitsPerLetter = 0.8;
constexpr double kMiBBits = 20;
constexpr double kMaxBits = 60;
// Longer literals are rare anyway.
// A scan first looks at the last bytes of a literal only; these should be rare, too.
constexpr std::size_t kTailBytes = 8;
constexpr double kRareTailPerMiB = 0.01;
constexpr std::size_t kMaxWeighedBytes = 64;
constexpr std::size_t kBytes = 256;

// Classes beyond the letters, in the order of the tables.
enum CharacterClass : unsigned char {
    kDigit = 26,
    kBlank,
    kLineEnd,
    kFirstMark, // each of the ten characters of kMarks is a class of its own
    kQueryMark = 39,
    kOtherMark,
    kControl,
    kContinuation, // bytes of UTF-8, by what they begin
    kTwoByteLead,
    kThreeByteLead,
    kOtherLead
};
constexpr const char *kMarks = ".,/:-=<>\"_";

unsigned char s_classOf(unsigned char byte) {
    const auto lower = static_cast<unsigned char>(toLowerAscii(static_cast<char>(byte)));
    if (lower >= 'a' && lower <= 'z') {
        return static_cast<unsigned char>(lower - 'a');
    }
    if (byte >= '0' && byte <= '9') {
        return kDigit;
    }
    if (byte == ' ' || byte == '\t') {
        return kBlank;
    }
    if (byte == '\r' || byte == '\n') {
        return kLineEnd;
    }
    const char *mark = std::strchr(kMarks, byte);
    if (mark != nullptr && byte != 0) {
        return static_cast<unsigned char>(kFirstMark + (mark - kMarks));
    }
    if (byte != 0 && std::strchr("&?;%#", byte) != nullptr) {
        return kQueryMark;
    }
    if (byte < ' ' || byte == 0x7F) {
        return kControl;
    }
    if (byte < 0x80) {
        return kOtherMark;
    }
    return byte < 0xC0   ? kContinuation
           : byte < 0xE0 ? kTwoByteLead
           : byte < 0xF0 ? kThreeByteLead
                         : kOtherLead;
}

// What it tells further to know the character of a class.
double s_bitsWithinClass(unsigned char characterClass) {
    switch (characterClass) {
    case kDigit:
        return 3.3;
    case kQueryMark:
        return 2.3;
    case kOtherMark:
        return 3.5;
    case kControl:
        return 4.5;
    case kContinuation:
        return 6;
    case kTwoByteLead:
    case kOtherLead:
        return 3;
    case kThreeByteLead:
        return 2.5;
    default:
        return 0;
    }
}

// A piece of furniture, or the end of one, with which a literal may begin.
struct Place {
    std::string text;
    double bits;
};

class Table {
public:
    explicit Table(const FrequencyTable &source) : pairs_(*source.pairs) {
        for (std::size_t row = 0; row < source.furnitureRows; ++row) {
            addFurniture(source.furniture[row]);
        }
        for (std::size_t byte = 0; byte < kBytes; ++byte) {
            const unsigned char within = s_classOf(static_cast<unsigned char>(byte));
            classes_[byte] = within;
            share_[byte] = std::exp2(-bits(kCharacterClasses, within));
        }
    }

    double share(std::size_t byte) const { return share_[byte]; }

    // The bits that at most kMaxWeighedBytes bytes in lower case tell in the most likely way to put them together from
    // furniture and from single characters that follow each other.
    double bits(const std::string &bytes) const {
        std::array<double, kMaxWeighedBytes + 1> least{};
        std::fill(least.begin() + 1, least.end(), std::numeric_limits<double>::infinity());
        for (std::size_t at = 0; at < bytes.size(); ++at) {
            const std::size_t before = at == 0 ? kCharacterClasses : classAt(bytes, at - 1);
            least[at + 1] = std::min(least[at + 1], least[at] + bits(before, classAt(bytes, at)));
            const auto &places = at == 0 ? places_ : starts_;
            for (const Place &place : places[static_cast<unsigned char>(bytes[at])]) {
                const std::size_t length = overlap(place, bytes, at);
                if (length > 0) {
                    least[at + length] = std::min(least[at + length], least[at] + place.bits);
                }
            }
        }
        return std::min(least[bytes.size()], kMaxBits);
    }

private:
    std::size_t classAt(const std::string &bytes, std::size_t at) const {
        return classes_[static_cast<unsigned char>(bytes[at])];
    }

    double bits(std::size_t before, std::size_t within) const {
        return (pairs_[before][within] - 'a') * kBitsPerLetter +
               s_bitsWithinClass(static_cast<unsigned char>(within));
    }

    // How many bytes at a position the furniture covers: up to its end or theirs, or none. The first is
    // the same.
    static std::size_t overlap(const Place &place, const std::string &bytes, std::size_t at) {
        const std::size_t length = std::min(place.text.size(), bytes.size() - at);
        for (std::size_t i = 1; i < length; ++i) {
            if (bytes[at + i] != place.text[i]) {
                return 0;
            }
        }
        return length;
    }

    void addFurniture(const Furniture &row) {
        std::istringstream texts(row.texts);
        for (std::string text; texts >> text;) {
            std::replace(text.begin(), text.end(), '~', ' ');
            for (std::size_t at = 0; at < text.size(); ++at) {
                places_[static_cast<unsigned char>(text[at])].push_back(
                    {text.substr(at), static_cast<double>(row.bits)});
            }
            const auto first = static_cast<unsigned char>(text.front());
            starts_[first].push_back({text, static_cast<double>(row.bits)});
        }
    }

    const PairTable &pairs_;
    // By their first byte. In the middle of a literal only whole pieces of furniture begin.
    std::array<std::vector<Place>, kBytes> places_;
    std::array<std::vector<Place>, kBytes> starts_;
    std::array<unsigned char, kBytes> classes_{};
    std::array<double, kBytes> share_{};
};

const Table &s_table(TextKind kind) {
    static const auto &s_tables = lasting(std::array<Table, 4>{
        Table(frequencyTable(TextKind::Text)), Table(frequencyTable(TextKind::RawText)),
        Table(frequencyTable(TextKind::Uri)), Table(frequencyTable(TextKind::HeaderText))});
    return s_tables[static_cast<std::size_t>(kind)];
}

} // namespace

double expectedPerMiB(const std::string &bytes, TextKind kind) {
    std::string lower;
    copyStringToLower(bytes.data(), lower, 0, std::min(bytes.size(), kMaxWeighedBytes));
    return std::exp2(kMiBBits - s_table(kind).bits(lower));
}

std::pair<std::size_t, std::size_t> rarestPart(const std::string &bytes, TextKind kind) {
    std::size_t best = bytes.size();
    double least = std::numeric_limits<double>::infinity();
    for (std::size_t end = bytes.size(); end >= kTailBytes && least > kRareTailPerMiB; --end) {
        const double hits = expectedPerMiB(bytes.substr(end - kTailBytes, kTailBytes), kind);
        if (hits < least) {
            least = hits;
            best = end;
        }
    }
    return {best - std::min(best, kMaxLiteralBytes), best};
}

double expectedShare(const ByteSet &set, TextKind kind) {
    const Table &table = s_table(kind);
    double share = 0;
    forEachByte(set, [&](std::size_t byte) { share += table.share(byte); });
    return share;
}

} // namespace Corvane::Regex
