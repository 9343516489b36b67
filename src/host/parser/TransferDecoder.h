#ifndef CORVANE_SRC_HOST_PARSER_TRANSFERDECODER_H
#define CORVANE_SRC_HOST_PARSER_TRANSFERDECODER_H

// Undoes the transfer encoding of a part, in pieces, so that a large part needs no memory:
//
//     TransferDecoder decoder(entity.bytes, entity.content.encoding);
//     for (std::string piece; decoder.next(piece); piece.clear()) { ... }
//
// Never fails: bytes that do not belong to the encoding are passed over, or stand for themselves in
// quoted-printable. base64 may lack its padding, or go on behind it; the equals sign of a soft line
// break may have blanks behind it. Takes time linear in the bytes.
//
// Threads: one object is for one thread at a time.

#include <cstddef>
#include <string>
#include <string_view>

namespace Corvane {

enum class TransferEncoding { None, Base64, QuotedPrintable, Uuencode };

class TransferDecoder {
public:
    // The encoded bytes belong to the caller.
    TransferDecoder(std::string_view encoded, TransferEncoding encoding);

    // Appends the next piece, of some kPieceBytes; false where nothing is left.
    bool next(std::string &out);

    // The same as a piece by itself, which lasts until the next call. It stands in the storage, or
    // among the encoded bytes where those are not encoded.
    bool next(std::string_view &piece, std::string &storage);

    static constexpr std::size_t kPieceBytes = std::size_t{64} << 10U;

private:
    void nextOfBase64(std::string &out);
    void nextOfQuotedPrintable(std::string &out);
    void nextLineOfUuencode(std::string &out);

    std::string_view rest_;
    TransferEncoding encoding_;
    // Bits of base64 digits that do not make a byte yet.
    unsigned int held_ = 0;
    unsigned int heldBits_ = 0;
};

struct DecodedContent {
    std::string_view bytes; // in storage, or in the encoded bytes where there is nothing to decode
    bool isCut;
};

// Decodes until maxBytes are there; a cut falls behind the last line end where there is one.
DecodedContent decodeTransfer(std::string_view encoded, TransferEncoding encoding,
                              std::size_t maxBytes, std::string &storage);

} // namespace Corvane

#endif
