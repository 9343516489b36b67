#include "host/parser/Charset.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <map>
#include <memory>
#include <string_view>

#include <iconv.h>

#include "host/parser/Text.h"

namespace Corvane {

namespace {

constexpr unsigned char kFirstNonAscii = 0x80;
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

// No known name is longer; bounds the work on a hostile one.
constexpr std::size_t kMaxCharsetNameBytes = 40;

// Charsets that need no iconv, by the names that the table gives them.
constexpr std::string_view kAscii = "US-ASCII";
constexpr std::string_view kUtf8 = "UTF-8";
constexpr std::string_view kWindows1252 = "CP1252";

// iconv's name, and the keys (see s_key) of the declared names that it serves.
struct CharsetRow {
    const char *iconvName;
    const char *keys;
};

constexpr CharsetRow kRows[] = {
    {kUtf8.data(), "utf8 utf8mb4 unicode11utf8 unicode20utf8"},
    {kAscii.data(), "usascii ascii ansix341968 ansix341986 iso646us ibm367 cp367 us"},
    {kWindows1252.data(), "latin1 l1 isolatin1 iso885911987 88591 ansi windowslatin1"},
    {"ISO-8859-2", "latin2 l2 isolatin2 iso885921987"},
    {"ISO-8859-3", "latin3 l3 isolatin3"},
    {"ISO-8859-4", "latin4 l4 isolatin4"},
    {"ISO-8859-5", "cyrillic isolatincyrillic"},
    {"ISO-8859-6", "arabic isolatinarabic iso88596i iso88596e"},
    {"ISO-8859-7", "greek greek8 isolatingreek"},
    {"ISO-8859-8", "hebrew isolatinhebrew iso88598i iso88598e logical visual"},
    {"CP1254", "latin5 l5 isolatin5 iso88599"},
    {"ISO-8859-10", "latin6 l6 isolatin6"},
    {"CP874", "iso885911 tis620 tis62025330 tis62025331 thai"},
    {"ISO-8859-15", "latin9 latin0 l9"},
    {"ISO-8859-16", "latin10 l10"},
    {"UTF-7", "utf7 unicode11utf7 unicode20utf7"},
    {"UTF-16", "utf16"},
    {"UTF-16LE", "utf16le ucs2 ucs2le unicode iso10646ucs2"},
    {"UTF-16BE", "utf16be ucs2be"},
    {"UTF-32", "utf32 ucs4 iso10646ucs4"},
    {"UTF-32LE", "utf32le ucs4le"},
    {"UTF-32BE", "utf32be ucs4be"},
    {"GB18030", "gb18030 gbk gb2312 gb231280 gb231280 cp936 ms936 windows936 euccn gb eucgb2312cn "
                "iso58gb231280 isoir58 chinese"},
    {"BIG5-HKSCS", "big5 big5hkscs cnbig5 big5eten cp950 ms950 windows950 xxbig5"},
    {"EUC-TW", "euctw"},
    {"ISO-2022-CN", "iso2022cn"},
    {"CP932", "shiftjis sjis mskanji cp932 ms932 windows31j windows932 shiftjisms"},
    {"EUC-JP-MS", "eucjp eucjpms eucjpwin ujis cp51932 eucpkdfmtjapanese"},
    {"ISO-2022-JP-3", "iso2022jp iso2022jp1 iso2022jp2 iso2022jp3 iso2022jpms cp50220 cp50221 "
                      "cp50222 jis"},
    {"UHC", "uhc euckr ksc56011987 ksc56011989 ksc5601 cp949 ms949 windows949 isoir149 korean "
            "kseuckr"},
    {"ISO-2022-KR", "iso2022kr"},
    {"JOHAB", "johab cp1361 ms1361"},
    {"KOI8-R", "koi8r koi8 koi"},
    {"KOI8-U", "koi8u"},
    {"KOI8-RU", "koi8ru"},
    {"KOI8-T", "koi8t"},
    {"MACINTOSH", "macintosh mac macroman"},
    {"MAC-CYRILLIC", "maccyrillic macukrainian"},
    {"VISCII", "viscii viscii111"},
    {"TCVN", "tcvn tcvn5712 tcvn57121"},
    {"ARMSCII-8", "armscii8"},
    {"GEORGIAN-PS", "georgianps"},
    {"HP-ROMAN8", "hproman8 roman8"},
    {"PT154", "pt154 ptcp154"},
    {"RK1048", "rk1048"},
};

constexpr const char *kWindowsPages[] = {"874",  "1250", "1251", "1252", "1253",
                                         "1254", "1255", "1256", "1257", "1258"};
constexpr const char *kIbmPages[] = {"437", "737", "775", "850", "852", "855", "857", "858",
                                     "860", "861", "862", "863", "864", "865", "866", "869"};
constexpr const char *kIsoParts[] = {"2", "3",  "4",  "5",  "6",  "7",
                                     "8", "10", "13", "14", "15", "16"};

// From key to iconv's name.
using CharsetTable = std::map<std::string, std::string, std::less<>>;

CharsetTable s_makeTable() {
    CharsetTable table;
    for (const CharsetRow &row : kRows) {
        const std::string_view keys = row.keys;
        for (std::size_t from = 0, to = 0; to != std::string_view::npos; from = to + 1) {
            to = keys.find(' ', from);
            table.emplace(keys.substr(from, to - from), row.iconvName);
        }
    }
    for (const std::string page : kWindowsPages) {
        for (const char *prefix : {"windows", "cp", "win", "ms", "ansi"}) {
            table.emplace(prefix + page, "CP" + page);
        }
    }
    for (const std::string page : kIbmPages) {
        for (const char *prefix : {"ibm", "cp", "dos", "pc"}) {
            table.emplace(prefix + page, "CP" + page);
        }
    }
    for (const std::string part : kIsoParts) {
        table.emplace("iso8859" + part, "ISO-8859-" + part);
        table.emplace("8859" + part, "ISO-8859-" + part);
    }
    table.emplace("iso88591", kWindows1252);
    return table;
}

bool s_isSeparator(char c) {
    return c == '-' || c == '_' || c == '.' || c == ':';
}

bool s_isLetterOrDigit(char c) {
    return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
}

// The letters and digits of a declared name in lower case, without a leading "x-" or "cs"; empty
// where it holds anything that no charset name holds.
std::string s_key(const std::string &charset) {
    std::string key;
    if (charset.size() > kMaxCharsetNameBytes) {
        return key;
    }
    for (const char c : charset) {
        const char lower = toLowerAscii(c);
        if (s_isLetterOrDigit(lower)) {
            key += lower;
        } else if (!s_isSeparator(c)) {
            return {};
        } else if (key == "x") {
            key.clear();
        }
    }
    constexpr std::string_view kAliasPrefix = "cs";
    return key.starts_with(kAliasPrefix) ? key.substr(kAliasPrefix.size()) : key;
}

// iconv's name of a declared charset, or null.
const std::string *s_find(const std::string &charset) {
    static const CharsetTable s_table = s_makeTable();
    const auto found = s_table.find(s_key(charset));
    return found != s_table.end() ? &found->second : nullptr;
}

bool s_isBuiltIn(const std::string &name) {
    return name == kUtf8 || name == kWindows1252;
}

struct CloseIconv {
    void operator()(void *converter) const { iconv_close(converter); }
};
using Converter = std::unique_ptr<void, CloseIconv>;

Converter s_open(const std::string &name) {
    iconv_t converter = iconv_open(kUtf8.data(), name.c_str());
    // iconv's "none" is a pointer of all ones.
    const bool failed = reinterpret_cast<std::intptr_t>(converter) == -1;
    return Converter(failed ? nullptr : converter);
}

// This thread's converter, in its initial state, or null. Kept open: opening one for each of
// thousands of encoded words would load and unload its module each time. The table bounds how many.
iconv_t s_converter(const std::string &name) {
    thread_local std::map<std::string, Converter> s_open_converters;
    auto found = s_open_converters.find(name);
    if (found == s_open_converters.end()) {
        found = s_open_converters.emplace(name, s_open(name)).first;
    }
    if (found->second != nullptr) {
        iconv(found->second.get(), nullptr, nullptr, nullptr, nullptr);
    }
    return found->second.get();
}

std::size_t s_unitBytes(const std::string &name) {
    constexpr std::size_t kUtf16Unit = 2;
    constexpr std::size_t kUtf32Unit = 4;
    return name.starts_with("UTF-16") ? kUtf16Unit : name.starts_with("UTF-32") ? kUtf32Unit : 1;
}

// One call of iconv, its output appended. With null input it flushes what a stateful charset holds
// back. Answers errno, or 0.
int s_step(iconv_t converter, char **input, std::size_t *left, std::string &out) {
    constexpr std::size_t kChunkBytes = 8192;
    std::array<char, kChunkBytes> chunk;
    char *output = chunk.data();
    std::size_t room = chunk.size();
    const bool failed =
        iconv(converter, input, left, &output, &room) == static_cast<std::size_t>(-1);
    const int error = failed ? errno : 0;
    out.append(chunk.data(), chunk.size() - room);
    return error;
}

std::string s_convert(iconv_t converter, const char *data, std::size_t length, std::size_t unit) {
    std::string out;
    out.reserve(length);
    // iconv takes its input by a pointer to non-const, but only reads it.
    char *input = const_cast<char *>(data);
    std::size_t left = length;
    while (left > 0) {
        const int error = s_step(converter, &input, &left, out);
        if (error == E2BIG || left == 0) {
            continue;
        }
        appendUtf8(out, kReplacementCharacter);
        const std::size_t skipped = error == EINVAL ? left : std::min(unit, left);
        input += skipped;
        left -= skipped;
    }
    s_step(converter, nullptr, nullptr, out);
    return out;
}

template <class Otherwise>
std::string s_validOr(const char *data, std::size_t length, Otherwise otherwise) {
    std::string out;
    out.reserve(length);
    std::size_t done = 0;
    for (std::size_t at = 0; at < length;) {
        at += asciiLength(data + at, length - at);
        const std::size_t valid = utf8SequenceLength(data + at, length - at);
        if (valid == 0 && at < length) {
            out.append(data + done, at - done);
            otherwise(out, static_cast<unsigned char>(data[at]));
            done = at + 1;
        }
        at += std::max<std::size_t>(valid, 1);
    }
    return out.append(data + done, length - done);
}

std::string s_fromWindows1252(const char *data, std::size_t length) {
    std::string out;
    out.reserve(length);
    for (std::size_t at = 0; at < length; ++at) {
        appendWindows1252(out, static_cast<unsigned char>(data[at]));
    }
    return out;
}

std::string s_decodeUnlabelled(const char *data, std::size_t length) {
    return isValidUtf8(data, length) ? std::string(data, length) : s_fromWindows1252(data, length);
}

bool s_isAscii(const char *data, std::size_t length) {
    return std::all_of(data, data + length,
                       [](char c) { return static_cast<unsigned char>(c) < kFirstNonAscii; });
}

// Bytes that the lead byte of a sequence announces; 0 where it cannot lead one.
std::size_t s_announcedLength(unsigned char lead) {
    constexpr unsigned char kFirstLead = 0xC2;
    constexpr unsigned char kFirstLeadOfThree = 0xE0;
    constexpr unsigned char kFirstLeadOfFour = 0xF0;
    constexpr unsigned char kLastLead = 0xF4;
    constexpr std::size_t kThree = 3;
    constexpr std::size_t kFour = 4;
    if (lead < kFirstNonAscii) {
        return 1;
    }
    if (lead < kFirstLead || lead > kLastLead) {
        return 0;
    }
    return lead < kFirstLeadOfThree ? 2 : lead < kFirstLeadOfFour ? kThree : kFour;
}

// What the second byte may be after a lead byte that also begins overlong forms, surrogates, or
// code points beyond the last.
bool s_isSecondByte(unsigned char lead, unsigned char second) {
    switch (lead) {
    case 0xE0:
        return second >= 0xA0;
    case 0xED:
        return second < 0xA0;
    case 0xF0:
        return second >= 0x90;
    case 0xF4:
        return second < 0x90;
    default:
        return true;
    }
}

} // namespace

void appendUtf8(std::string &out, char32_t codePoint) {
    constexpr char32_t kFirstOfTwo = 0x80;
    constexpr char32_t kFirstOfThree = 0x800;
    constexpr char32_t kFirstOfFour = 0x10000;
    constexpr char32_t kLast = 0x10FFFF;
    constexpr unsigned kTrailBits = 6;
    if (codePoint > kLast || (codePoint >= 0xD800 && codePoint <= 0xDFFF)) {
        codePoint = kReplacementCharacter;
    }
    const auto trail = [codePoint](unsigned index) {
        return static_cast<char>(0x80 | ((codePoint >> (index * kTrailBits)) & 0x3F));
    };
    if (codePoint < kFirstOfTwo) {
        out += static_cast<char>(codePoint);
    } else if (codePoint < kFirstOfThree) {
        out += static_cast<char>(0xC0 | (codePoint >> kTrailBits));
        out += trail(0);
    } else if (codePoint < kFirstOfFour) {
        out += static_cast<char>(0xE0 | (codePoint >> (2 * kTrailBits)));
        out += {trail(1), trail(0)};
    } else {
        out += static_cast<char>(0xF0 | (codePoint >> (3 * kTrailBits)));
        out += {trail(2), trail(1), trail(0)};
    }
}

void appendWindows1252(std::string &out, unsigned char byte) {
    constexpr unsigned char kFirstLatin1 = 0xA0;
    static constexpr char16_t kC1[kFirstLatin1 - kFirstNonAscii] = {
        0x20AC, 0xFFFD, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
        0x2039, 0x0152, 0xFFFD, 0x017D, 0xFFFD, 0xFFFD, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
        0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0xFFFD, 0x017E, 0x0178};
    const bool remapped = byte >= kFirstNonAscii && byte < kFirstLatin1;
    appendUtf8(out, remapped ? kC1[byte - kFirstNonAscii] : byte);
}

std::size_t utf8SequenceLength(const char *text, std::size_t available) {
    const auto byteAt = [text](std::size_t at) { return static_cast<unsigned char>(text[at]); };
    const std::size_t length = available > 0 ? s_announcedLength(byteAt(0)) : 0;
    if (length > available || (length > 1 && !s_isSecondByte(byteAt(0), byteAt(1)))) {
        return 0;
    }
    for (std::size_t at = 1; at < length; ++at) {
        if ((byteAt(at) & 0xC0U) != 0x80U) {
            return 0;
        }
    }
    return length;
}

std::size_t asciiLength(const char *data, std::size_t length) {
    constexpr std::uint64_t kHighBits = 0x8080808080808080;
    std::size_t at = 0;
    for (std::uint64_t bytes = 0; at + sizeof bytes <= length; at += sizeof bytes) {
        std::memcpy(&bytes, data + at, sizeof bytes);
        if ((bytes & kHighBits) != 0) {
            break;
        }
    }
    while (at < length && static_cast<unsigned char>(data[at]) < kFirstNonAscii) {
        ++at;
    }
    return at;
}

bool isValidUtf8(const char *data, std::size_t length) {
    for (std::size_t at = 0; at < length;) {
        const std::size_t valid = utf8SequenceLength(data + at, length - at);
        if (valid == 0) {
            return false;
        }
        at += valid;
    }
    return true;
}

std::string sanitizeUtf8(const char *data, std::size_t length) {
    return s_validOr(data, length, [](std::string &out, unsigned char) {
        appendUtf8(out, kReplacementCharacter);
    });
}

std::string repairUtf8(const char *data, std::size_t length) {
    return s_validOr(data, length, appendWindows1252);
}

bool isKnownCharset(const std::string &charset) {
    const std::string *name = s_find(charset);
    return name != nullptr && (s_isBuiltIn(*name) || s_converter(*name) != nullptr);
}

std::optional<std::string> convertToUtf8(const char *data, std::size_t length,
                                         const std::string &charset) {
    const std::string *name = s_find(charset);
    if (name == nullptr) {
        return std::nullopt;
    }
    if (*name == kUtf8) {
        return sanitizeUtf8(data, length);
    }
    if (*name == kWindows1252) {
        return s_fromWindows1252(data, length);
    }
    iconv_t converter = s_converter(*name);
    if (converter == nullptr) {
        return std::nullopt;
    }
    return s_convert(converter, data, length, s_unitBytes(*name));
}

std::string decodeText(const char *data, std::size_t length, const std::string &charset) {
    const std::string *name = s_find(charset);
    const bool mislabelled = name != nullptr && *name == kAscii && !s_isAscii(data, length);
    std::optional<std::string> converted;
    if (!mislabelled) {
        converted = convertToUtf8(data, length, charset);
    }
    std::string text = converted ? std::move(*converted) : s_decodeUnlabelled(data, length);
    if (text.starts_with(kByteOrderMark)) {
        text.erase(0, kByteOrderMark.size());
    }
    return text;
}

} // namespace Corvane
