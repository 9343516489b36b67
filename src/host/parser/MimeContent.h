#ifndef CORVANE_SRC_HOST_PARSER_MIMECONTENT_H
#define CORVANE_SRC_HOST_PARSER_MIMECONTENT_H

// What the headers of a part say about its content, and the content's transfer decoding.
//
// Threads: free functions; any number of threads at once.

#include <cstddef>
#include <string>
#include <string_view>

#include "host/parser/Header.h"

namespace Corvane {

enum class TransferEncoding { None, Base64, QuotedPrintable, Uuencode };

struct MimeContent {
    std::string type; // both in lower case
    std::string subtype;
    std::string charset;  // as declared, without quotes and surrounding white space
    std::string boundary; // empty where there is none
    TransferEncoding encoding;
    bool isAttachment;
};

// Reads Content-Type, Content-Transfer-Encoding and Content-Disposition. A part without a usable
// type is text/plain.
MimeContent mimeContentOf(const HeaderContainer &headers);

struct DecodedContent {
    std::string_view bytes; // in storage, or in the encoded bytes where there is nothing to decode
    bool isCut;
};

// Decodes until maxBytes are there; a cut falls behind the last line end where there is one. Bytes
// that do not belong to the encoding are passed over; base64 may lack its padding, or go on behind
// it.
DecodedContent decodeTransfer(std::string_view encoded, TransferEncoding encoding,
                              std::size_t maxBytes, std::string &storage);

} // namespace Corvane

#endif
