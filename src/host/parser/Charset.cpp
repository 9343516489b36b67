#include "host/parser/Charset.h"

#include <algorithm>
#include <map>

#include "host/parser/Lasting.h"
#include "host/parser/Text.h"

namespace Corvane {

namespace {

// No known name is longer; bounds the work on a hostile one.
constexpr std::size_t kMaxCharsetNameBytes = 40;

// How a charset is decoded.
enum class Kind {
    Utf8,
    Ascii,
    SingleByte,
    DoubleByte,
    EucJp,
    Other, // by iconv, which holds characters back
    Utf16,
    Utf32,
    Utf7,
    Iso2022Jp,
    Iso2022Kr,
    Iso2022Cn,
    Hz
};

// iconv's name where it is asked, and the keys (see s_key) of the declared names that it serves.
struct CharsetRow {
    Kind kind;
    const char *iconvName;
    const char *keys;
};

constexpr CharsetRow kRows[] = {
    {Kind::Utf8, "", "utf8 utf8mb4 unicode11utf8 unicode20utf8"},
    {Kind::Ascii, "", "usascii ascii ansix341968 ansix341986 iso646us ibm367 cp367 us"},
    {Kind::SingleByte, "CP1252",
     "latin1 l1 isolatin1 iso885911987 iso88591 88591 isoir100 ibm819 "
     "cp819 ansi windowslatin1"},
    {Kind::SingleByte, "ISO-8859-2", "latin2 l2 isolatin2 iso885921987 isoir101"},
    {Kind::SingleByte, "ISO-8859-3", "latin3 l3 isolatin3 iso885931988 isoir109"},
    {Kind::SingleByte, "ISO-8859-4", "latin4 l4 isolatin4 iso885941988 isoir110"},
    {Kind::SingleByte, "ISO-8859-5", "cyrillic isolatincyrillic iso885951988 isoir144"},
    {Kind::SingleByte, "ISO-8859-6",
     "arabic isolatinarabic iso88596i iso88596e iso885961987 "
     "isoir127 asmo708 ecma114"},
    {Kind::SingleByte, "ISO-8859-7",
     "greek greek8 isolatingreek iso885971987 isoir126 ecma118 "
     "elot928 suneugreek"},
    {Kind::SingleByte, "ISO-8859-8",
     "hebrew isolatinhebrew iso88598i iso88598e iso885981988 "
     "isoir138 logical visual"},
    {Kind::SingleByte, "CP1254", "latin5 l5 isolatin5 iso88599 iso885991989 isoir148"},
    {Kind::SingleByte, "ISO-8859-10", "latin6 l6 isolatin6 isoir157"},
    {Kind::SingleByte, "CP874", "iso885911 tis620 tis62025330 tis62025331 thai dos874"},
    {Kind::SingleByte, "ISO-8859-15", "latin9 latin0 l9 isolatin9"},
    {Kind::SingleByte, "ISO-8859-16", "latin10 l10"},
    {Kind::Utf7, "", "utf7 unicode11utf7 unicode20utf7"},
    {Kind::Utf16, "UTF-16LE", "utf16 utf16le ucs2 ucs2le unicode unicodefeff iso10646ucs2"},
    {Kind::Utf16, "UTF-16BE", "utf16be ucs2be unicodefffe"},
    {Kind::Utf32, "UTF-32LE", "utf32 utf32le ucs4 ucs4le iso10646ucs4"},
    {Kind::Utf32, "UTF-32BE", "utf32be ucs4be"},
    {Kind::DoubleByte, "GB18030",
     "gb18030 gbk gb2312 gb231280 cp936 ms936 windows936 euccn gb "
     "eucgb2312cn iso58gb231280 isoir58 chinese"},
    {Kind::DoubleByte, "BIG5-HKSCS",
     "big5 big5hkscs cnbig5 big5eten cp950 ms950 windows950 xxbig5"},
    {Kind::DoubleByte, "EUC-TW", "euctw"},
    {Kind::Iso2022Cn, "", "iso2022cn iso2022cnext"},
    {Kind::Hz, "", "hzgb2312 hz"},
    {Kind::DoubleByte, "CP932",
     "shiftjis sjis mskanji cp932 ms932 windows31j windows932 shiftjisms"},
    {Kind::EucJp, "", "eucjp eucjpms eucjpwin ujis cp51932 eucpkdfmtjapanese"},
    {Kind::Iso2022Jp, "",
     "iso2022jp iso2022jp1 iso2022jp2 iso2022jp3 iso2022jp2004 iso2022jpms "
     "cp50220 cp50221 cp50222 jis"},
    {Kind::DoubleByte, "UHC",
     "uhc euckr ksc56011987 ksc56011989 ksc5601 cp949 ms949 windows949 "
     "isoir149 korean kseuckr"},
    {Kind::Iso2022Kr, "", "iso2022kr"},
    {Kind::DoubleByte, "JOHAB", "johab cp1361 ms1361"},
    {Kind::SingleByte, "KOI8-R", "koi8r koi8 koi"},
    {Kind::SingleByte, "KOI8-U", "koi8u koi8ru"},
    {Kind::SingleByte, "KOI8-T", "koi8t"},
    {Kind::SingleByte, "MACINTOSH", "macintosh mac macroman"},
    {Kind::SingleByte, "MAC-UK", "maccyrillic macukrainian"},
    {Kind::SingleByte, "VISCII", "viscii viscii111"},
    {Kind::Other, "TCVN", "tcvn tcvn5712 tcvn57121"},
    {Kind::Other, "CP1258", "windows1258 cp1258 win1258 ms1258 ansi1258"},
    {Kind::SingleByte, "ARMSCII-8", "armscii8"},
    {Kind::SingleByte, "GEORGIAN-PS", "georgianps"},
    {Kind::SingleByte, "HP-ROMAN8", "hproman8 roman8"},
    {Kind::SingleByte, "PT154", "pt154 ptcp154"},
    {Kind::SingleByte, "RK1048", "rk1048"},
};

constexpr const char *kWindowsPages[] = {"874",  "1250", "1251", "1252", "1253",
                                         "1254", "1255", "1256", "1257"};
constexpr const char *kIbmPages[] = {"437", "737", "775", "850", "852", "855", "857", "858",
                                     "860", "861", "862", "863", "864", "865", "866", "869"};
constexpr const char *kIsoParts[] = {"2", "3",  "4",  "5",  "6",  "7",
                                     "8", "10", "13", "14", "15", "16"};

struct Charset {
    Kind kind;
    std::string iconvName;
};

// From key to charset.
using CharsetTable = std::map<std::string, Charset, std::less<>>;

CharsetTable s_makeTable() {
    CharsetTable table;
    for (const CharsetRow &row : kRows) {
        const std::string_view keys = row.keys;
        for (std::size_t from = 0, to = 0; to != std::string_view::npos; from = to + 1) {
            to = keys.find(' ', from);
            table.emplace(keys.substr(from, to - from), Charset{row.kind, row.iconvName});
        }
    }
    for (const std::string page : kWindowsPages) {
        for (const char *prefix : {"windows", "cp", "win", "ms", "ansi"}) {
            table.emplace(prefix + page, Charset{Kind::SingleByte, "CP" + page});
        }
    }
    for (const std::string page : kIbmPages) {
        for (const char *prefix : {"ibm", "cp", "dos", "pc", ""}) {
            table.emplace(prefix + page, Charset{Kind::SingleByte, "CP" + page});
        }
    }
    for (const std::string part : kIsoParts) {
        for (const char *prefix : {"iso8859", "8859"}) {
            table.emplace(prefix + part, Charset{Kind::SingleByte, "ISO-8859-" + part});
        }
    }
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

// What a declared name stands for, or null.
const Charset *s_find(const std::string &charset) {
    static const CharsetTable &s_table = lasting(s_makeTable());
    const auto found = s_table.find(s_key(charset));
    return found != s_table.end() ? &found->second : nullptr;
}

// Null where iconv lacks it.
std::unique_ptr<ByteDecoder> s_makeDecoder(const Charset &charset) {
    constexpr std::size_t kUtf16Unit = 2;
    constexpr std::size_t kUtf32Unit = 4;
    switch (charset.kind) {
    case Kind::Utf8:
    case Kind::Ascii:
        return makeUtf8Decoder(InvalidBytes::Replaced);
    case Kind::SingleByte:
        return makeSingleByteDecoder(charset.iconvName);
    case Kind::EucJp:
        return makeEucJpDecoder();
    case Kind::DoubleByte:
    case Kind::Other:
        return makeIconvDecoder(charset.iconvName, 1);
    case Kind::Utf16:
        return makeIconvDecoder(charset.iconvName, kUtf16Unit);
    case Kind::Utf32:
        return makeIconvDecoder(charset.iconvName, kUtf32Unit);
    case Kind::Utf7:
        return makeUtf7Decoder();
    case Kind::Iso2022Jp:
        return makeIso2022Decoder(Iso2022::Jp);
    case Kind::Iso2022Kr:
        return makeIso2022Decoder(Iso2022::Kr);
    case Kind::Iso2022Cn:
        return makeIso2022Decoder(Iso2022::Cn);
    case Kind::Hz:
        return makeHzDecoder();
    }
    return nullptr;
}

// A byte order mark, and the charset that it stands for.
struct ByteOrderMark {
    std::string_view bytes;
    Kind kind;
    const char *iconvName;
};

using namespace std::string_view_literals;

constexpr ByteOrderMark kUtf8Mark{"\xEF\xBB\xBF"sv, Kind::Utf8, ""};

constexpr ByteOrderMark kByteOrderMarks[] = {
    kUtf8Mark,
    {"\xFF\xFE"sv, Kind::Utf16, "UTF-16LE"},
    {"\xFE\xFF"sv, Kind::Utf16, "UTF-16BE"},
};

// Both marks of UTF-32 hold or look like one of UTF-16, so that only the declared name tells.
constexpr ByteOrderMark kUtf32Marks[] = {
    {"\xFF\xFE\0\0"sv, Kind::Utf32, "UTF-32LE"},
    {"\0\0\xFE\xFF"sv, Kind::Utf32, "UTF-32BE"},
};

template <std::size_t size>
std::optional<Charset> s_marked(const ByteOrderMark (&marks)[size], std::string_view front) {
    for (const ByteOrderMark &mark : marks) {
        if (front.starts_with(mark.bytes)) {
            return Charset{mark.kind, mark.iconvName};
        }
    }
    return std::nullopt;
}

// What the bytes of a text say about how they were encoded.
struct Utf8Signs {
    bool isValid = true;
    std::size_t ofTwo = 0;  // sequences of two bytes
    std::size_t longer = 0; // of three and four
    bool isLatin = false;   // letters and signs of Latin-1 are among them
};

Utf8Signs s_utf8Signs(std::string_view front) {
    constexpr char kLatinSigns = '\xC2';
    constexpr char kLatinLetters = '\xC3';
    constexpr unsigned char kFirstSmallLetter = 0xA0;
    Utf8Signs signs;
    const std::size_t length = utf8WholeLength(front.data(), front.size());
    for (std::size_t at = 0; at < length;) {
        at += asciiLength(front.data() + at, length - at);
        const std::size_t bytes = utf8SequenceLength(front.data() + at, length - at);
        if (bytes == 0 && at < length) {
            signs.isValid = false;
            return signs;
        }
        if (bytes == 2) {
            ++signs.ofTwo;
            const bool isLead = front[at] == kLatinSigns || front[at] == kLatinLetters;
            signs.isLatin = signs.isLatin || (isLead && static_cast<unsigned char>(front[at + 1]) >=
                                                            kFirstSmallLetter);
        } else if (bytes > 2) {
            ++signs.longer;
        }
        at += bytes;
    }
    return signs;
}

bool s_isAscii(std::string_view bytes) {
    return asciiLength(bytes.data(), bytes.size()) == bytes.size();
}

// Whether text in a charset of two bytes would be malformed.
bool s_isMalformed(const Charset &charset, std::string_view front) {
    constexpr std::size_t kLookedAt = 4096;
    constexpr std::string_view kReplacement = "\xEF\xBF\xBD";
    const auto decoder = s_makeDecoder(charset);
    std::string text;
    if (decoder != nullptr) {
        decoder->decode(front.substr(0, kLookedAt), text);
    }
    return text.find(kReplacement) != std::string::npos;
}

// Whether the bytes are UTF-8, which text in the declared charset would hardly be by chance: a text
// in a charset of one byte may hold a letter and a sign that make a sequence, but not several and
// nothing else; most charsets of two bytes have characters that are sequences too.
bool s_isRatherUtf8(const Charset &charset, std::string_view front) {
    constexpr std::size_t kFewSequences = 6;
    constexpr std::size_t kShortText = 16;
    const Utf8Signs signs = s_utf8Signs(front);
    if (!signs.isValid) {
        return false;
    }
    const std::size_t sequences = signs.ofTwo + signs.longer;
    switch (charset.kind) {
    case Kind::Utf8:
    case Kind::Ascii:
        return false;
    case Kind::SingleByte:
    case Kind::Other:
        return signs.longer > 0 || signs.ofTwo > 1 || signs.isLatin;
    case Kind::DoubleByte:
    case Kind::EucJp:
        return sequences >= kFewSequences || signs.longer > 1 ||
               (sequences > 0 && s_isMalformed(charset, front));
    case Kind::Utf16:
    case Kind::Utf32:
        return front.size() >= kShortText && front.find('\0') == std::string_view::npos;
    case Kind::Utf7:
    case Kind::Iso2022Jp:
    case Kind::Iso2022Kr:
    case Kind::Iso2022Cn:
    case Kind::Hz:
        return sequences > 0;
    }
    return false;
}

// The decoder for a text without a charset that can be believed.
std::unique_ptr<ByteDecoder> s_makeGuessingDecoder(std::string_view front) {
    return s_utf8Signs(front).isValid ? makeUtf8Decoder(InvalidBytes::Windows1252)
                                      : makeSingleByteDecoder("CP1252");
}

std::unique_ptr<ByteDecoder> s_makeBelievedDecoder(const std::string &name,
                                                   std::string_view front) {
    const Charset *charset = s_find(name);
    const bool isUtf32 = charset != nullptr && charset->kind == Kind::Utf32;
    const auto marked = isUtf32 ? s_marked(kUtf32Marks, front) : s_marked(kByteOrderMarks, front);
    if (marked) {
        return s_makeDecoder(*marked);
    }
    const bool isMislabelled =
        charset != nullptr &&
        (charset->kind == Kind::Ascii ? !s_isAscii(front) : s_isRatherUtf8(*charset, front));
    std::unique_ptr<ByteDecoder> decoder;
    if (charset != nullptr && !isMislabelled) {
        decoder = s_makeDecoder(*charset);
    }
    return decoder != nullptr ? std::move(decoder) : s_makeGuessingDecoder(front);
}

} // namespace

bool isKnownCharset(const std::string &charset) {
    const Charset *found = s_find(charset);
    return found != nullptr && s_makeDecoder(*found) != nullptr;
}

std::optional<std::string> convertToUtf8(const char *data, std::size_t length,
                                         const std::string &charset) {
    const Charset *found = s_find(charset);
    if (found == nullptr) {
        return std::nullopt;
    }
    const std::string_view bytes(data, length);
    const bool isWide = found->kind == Kind::Utf16 || found->kind == Kind::Utf32;
    const auto decoder = isWide ? s_makeBelievedDecoder(charset, bytes) : s_makeDecoder(*found);
    if (decoder == nullptr) {
        return std::nullopt;
    }
    std::string text = decodeAll(*decoder, bytes);
    if (isWide && text.starts_with(kUtf8Mark.bytes)) {
        text.erase(0, kUtf8Mark.bytes.size());
    }
    return text;
}

TextDecoder::TextDecoder(const std::string &charset, std::string_view front)
    : decoder_(s_makeBelievedDecoder(charset, front)) {}

void TextDecoder::decode(std::string_view bytes, std::string &out) {
    const std::size_t before = out.size();
    decoder_->decode(bytes, out);
    if (isAtStart_ && out.size() > before) {
        isAtStart_ = false;
        if (out.compare(before, kUtf8Mark.bytes.size(), kUtf8Mark.bytes) == 0) {
            out.erase(before, kUtf8Mark.bytes.size());
        }
    }
}

void TextDecoder::finish(std::string &out) {
    decoder_->finish(out);
}

std::string decodeText(const char *data, std::size_t length, const std::string &charset) {
    const std::string_view bytes(data, length);
    TextDecoder decoder(charset, bytes);
    std::string text;
    // What is not needed of it is never touched.
    constexpr std::size_t kMostPerByte = 3;
    text.reserve(length * kMostPerByte);
    decoder.decode(bytes, text);
    decoder.finish(text);
    return text;
}

} // namespace Corvane
