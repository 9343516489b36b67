#ifndef CORVANE_HOST_PARSER_ENCODEDWORD_H
#define CORVANE_HOST_PARSER_ENCODEDWORD_H

// Finds encoded words, "=?charset*language?Q?text?=", in the text of a header. It is as tolerant as
// mail clients are: words may be glued to other text, of any length, and hold blanks; the language
// may be missing.
//
// Threads: free functions without state.

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace Corvane {

// Views into the searched text; charset comes without the language.
struct EncodedWord {
    std::size_t begin;
    std::size_t end;
    std::string_view charset;
    // 'b' or 'q'.
    char encoding;
    std::string_view text;
};

// The first word that begins at or after from. Walking over all words of a text, each time from the
// end of the last, takes time linear in the text.
std::optional<EncodedWord> findEncodedWord(std::string_view text, std::size_t from);

// The bytes that the word stands for, in its charset. Nothing where it is malformed: a byte outside
// the alphabet of base64, or a '=' without two hexadecimal digits. Base64 may lack its padding.
std::optional<std::string> encodedWordBytes(const EncodedWord &word);

} // namespace Corvane

#endif
