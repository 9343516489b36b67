#ifndef CORVANE_HOST_PARSER_CHARSET_H
#define CORVANE_HOST_PARSER_CHARSET_H

// Bytes in a named charset to UTF-8. Nothing here throws for any input: bytes that do not convert
// become U+FFFD, one for each byte (for each unit in UTF-16 and UTF-32, and one for a character
// that is cut off at the end). All of it takes time linear in the input.
//
// Names are looked up in a fixed table, as mail clients do, and never reach iconv: a message cannot
// load an exotic conversion module or smuggle in a "//TRANSLIT". Case, '-', '_', '.', ':' and a
// leading "x-" or "cs" do not matter. A charset that is often declared for text in a superset of it
// is read as the superset: iso-8859-1 as windows-1252, iso-8859-9 as windows-1254, iso-8859-11 and
// tis-620 as windows-874, gb2312 and gbk as gb18030, ks_c_5601-1987 and euc-kr as uhc, shift_jis as
// windows-31j, euc-jp and iso-2022-jp with the vendor characters of windows-31j, big5 as
// big5-hkscs.
//
// Threads: free functions. Converters are kept open per thread.

#include <cstddef>
#include <optional>
#include <string>

namespace Corvane {

constexpr char32_t kReplacementCharacter = 0xFFFD;

// Appends a code point; the replacement character where it is a surrogate or beyond U+10FFFF.
void appendUtf8(std::string &out, char32_t codePoint);

// Appends what a windows-1252 byte stands for; its five unassigned bytes give the replacement
// character.
void appendWindows1252(std::string &out, unsigned char byte);

// Bytes of the valid UTF-8 sequence that starts at text, of which available bytes exist; 0 where
// there is none. Overlong forms and surrogates are not valid, NUL is.
std::size_t utf8SequenceLength(const char *text, std::size_t available);

// How many ASCII bytes the text begins with.
std::size_t asciiLength(const char *data, std::size_t length);

bool isValidUtf8(const char *data, std::size_t length);

// The valid sequences, and the replacement character for each other byte.
std::string sanitizeUtf8(const char *data, std::size_t length);

// The same with what each other byte stands for in windows-1252.
std::string repairUtf8(const char *data, std::size_t length);

// Whether convertToUtf8() knows the charset.
bool isKnownCharset(const std::string &charset);

// The text in UTF-8, or nothing where the charset is not known.
std::optional<std::string> convertToUtf8(const char *data, std::size_t length,
                                         const std::string &charset);

// Like convertToUtf8(), but always an answer: a charset that is unknown or empty, or us-ascii for
// bytes above 127, is taken as UTF-8 where the bytes are valid, else as windows-1252. A byte order
// mark in front is dropped.
std::string decodeText(const char *data, std::size_t length, const std::string &charset);

} // namespace Corvane

#endif
