#ifndef CORVANE_SRC_HOST_PARSER_CHARSET_H
#define CORVANE_SRC_HOST_PARSER_CHARSET_H

// Bytes in a named charset to UTF-8. Nothing here throws for any input: what does not convert
// becomes U+FFFD. All of it takes time linear in the input.
//
// Names and tables are those of the WHATWG encoding standard, which browsers and mail programs
// follow: a charset that is often declared for text in a superset of it is read as the superset,
// iso-8859-1 and us-ascii as windows-1252, iso-8859-9 as windows-1254, iso-8859-11 and tis-620 as
// windows-874, gb2312 and gbk as gb18030, ks_c_5601-1987 and euc-kr as uhc, and so on. Decoded
// beside these are UTF-7, UTF-32, ISO-2022-KR, ISO-2022-CN, HZ, EUC-TW, Johab and some pages of
// MS-DOS and the Macintosh. Letters of Vietnamese in windows-1258 are composed, as elsewhere.
// Charsets with shifts are back in their first state at each line end, and damage never reaches
// further than that.
//
// Names are looked up in a fixed table and never reach iconv: a message cannot load an exotic
// conversion module or smuggle in a "//TRANSLIT". Case, '-', '_', '.', ':' and a leading "x-" or
// "cs" do not matter.
//
// Threads: functions may be called by any number of threads at once, an object is for one thread.
// Converters are kept open per thread.

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "host/parser/ByteDecoder.h"
#include "host/parser/Utf8.h"

namespace Corvane {

// Whether convertToUtf8() knows the charset.
bool isKnownCharset(const std::string &charset);

// The text in UTF-8, or nothing where the charset is not known.
std::optional<std::string> convertToUtf8(const char *data, std::size_t length,
                                         const std::string &charset);

// Decodes a text as mail programs do, who do not believe everything that is declared:
//   - A byte order mark in front is dropped, and wins over any other name.
//   - A charset that is unknown or empty, or us-ascii for bytes above 127, is taken as UTF-8 where
//     the bytes are valid, else as windows-1252.
//   - So is a charset whose own bytes would hardly be valid UTF-8 by chance, as these are.
class TextDecoder {
public:
    // What is declared, and the first bytes of the text, by which doubts are settled; a character
    // at their end may be cut off.
    TextDecoder(const std::string &charset, std::string_view front);

    // Decodes the next bytes, the first ones included, and appends. A character that is cut off at
    // the end waits for the next call.
    void decode(std::string_view bytes, std::string &out);

    // Decodes what still waits.
    void finish(std::string &out);

private:
    std::unique_ptr<ByteDecoder> decoder_;
    bool isAtStart_ = true;
};

// The whole of a text by a TextDecoder.
std::string decodeText(const char *data, std::size_t length, const std::string &charset);

} // namespace Corvane

#endif
