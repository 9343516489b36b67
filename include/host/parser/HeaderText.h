#ifndef CORVANE_HOST_PARSER_HEADERTEXT_H
#define CORVANE_HOST_PARSER_HEADERTEXT_H

// Texts of headers to UTF-8. The two steps are separate, because some rules look at the encoded
// form: tessel_to_utf8() repairs the bytes of a received header and leaves encoded words alone,
// stringDecodeRfc2047() decodes them:
//
//     char utf8[2048] = {};
//     tessel_to_utf8("=?utf-8?Q?caf=C3=A9?= \xE9", utf8, sizeof utf8, 0);
//     const Buffer decoded = stringDecodeRfc2047(utf8);
//
// gives "=?utf-8?Q?caf=C3=A9?= é" and then "café é".
//
// Both take time linear in the text.
//
// Threads: free functions; any thread may call them.

#include <string>

#include "host/parser/Buffer.h"
#include "host/parser/Export.h"

namespace Corvane {

// The text with its encoded words (RFC 2047) decoded, in UTF-8; the buffer owns its bytes.
//   - White space between two words is dropped. Adjacent words of one charset are joined before
//     conversion, so a character that is split over two words is whole again.
//   - Accepted: words glued to text, blanks in a Q word, a language suffix, missing base64 padding.
//   - Bytes that do not convert become U+FFFD.
//   - Text outside of words that is not UTF-8 is taken as windows-1252, as by tessel_to_utf8().
//   - A word of an unknown charset or with a malformed text stays as it stands.
// Throws code 4 where the text holds words and none of them could be decoded.
CORVANE_PARSER_API Buffer stringDecodeRfc2047(const std::string &text);

// Writes in as UTF-8 to out, which has room for outSize bytes, and ends it with a NUL; nothing is
// written where outSize is below 1. Valid UTF-8 stays as it is; every other byte above 127 is taken
// as windows-1252, whose five unassigned bytes become U+FFFD. Stops before the first character that
// does not fit. A null in counts as empty; flag has no effect.
CORVANE_PARSER_API void tessel_to_utf8(const char *in, char *out, int outSize, int flag);

} // namespace Corvane

#endif
