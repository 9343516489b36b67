#include "host/parser/TransferDecoder.h"

#include <string>

#include <gtest/gtest.h>

#include "support/ReadMail.h"

namespace Corvane {
namespace {

std::string decoded(const std::string &encoded, TransferEncoding encoding) {
    std::string all;
    TransferDecoder decoder(encoded, encoding);
    for (std::string piece; decoder.next(piece); piece.clear()) {
        EXPECT_LE(piece.size(), 2 * TransferDecoder::kPieceBytes);
        all += piece;
    }
    return all;
}

TEST(TransferDecoder, UndoesEachEncoding) {
    struct Row {
        TransferEncoding encoding;
        std::string encoded;
        std::string expected;
    };
    constexpr auto kQuoted = TransferEncoding::QuotedPrintable;
    constexpr auto kBase64 = TransferEncoding::Base64;
    constexpr auto kUuencode = TransferEncoding::Uuencode;
    const Row rows[] = {{TransferEncoding::None, "a=41\n", "a=41\n"},
                        {kQuoted, "a=3D=e9=E9\n", "a=\xE9\xE9\n"},
                        {kQuoted, "one=\ntwo=\r\nthree=\rfour", "onetwothreefour"},
                        {kQuoted, "one= \t\ntwo=  \r\nthree= ", "onetwothree"},
                        {kQuoted, "a= b=4=ZZ=", "a= b=4=ZZ"},
                        {kBase64, "aGVs\r\nbG8=", "hello"},
                        {kBase64, std::string("aG*V s\0bG8", 10), "hello"},
                        {kBase64, "aA==ZWxsbw", "hello"},
                        {kBase64, "====", ""},
                        {kUuencode, "words\nbegin 644 x\n%:&5L;&\\`\n`\nend\nmore", "hello"},
                        {kUuencode, "%:&5L;&\\\r\n", "hello"}};
    for (const Row &row : rows) {
        EXPECT_EQ(decoded(row.encoded, row.encoding), row.expected) << row.encoded;
    }
}

// Longer than a piece, with escapes and digits across their borders.
TEST(TransferDecoder, PiecesJoinToTheWhole) {
    constexpr std::size_t kMany = 50000;
    EXPECT_EQ(decoded(repeated("x=C3=A9=\n", kMany), TransferEncoding::QuotedPrintable),
              repeated("x\u00E9", kMany));
    EXPECT_EQ(decoded(repeated("aGVsbG8h", kMany), TransferEncoding::Base64),
              repeated("hello!", kMany));
    EXPECT_EQ(decoded(std::string(300000, 'x'), TransferEncoding::None), std::string(300000, 'x'));
}

TEST(TransferDecoder, CutsBehindALineEnd) {
    std::string storage;
    for (const TransferEncoding encoding :
         {TransferEncoding::None, TransferEncoding::QuotedPrintable}) {
        const DecodedContent cut = decodeTransfer("one\ntwo\n", encoding, 6, storage);
        EXPECT_TRUE(cut.isCut);
        EXPECT_EQ(cut.bytes, "one\n");
        EXPECT_FALSE(decodeTransfer("one\ntwo\n", encoding, 8, storage).isCut);
        EXPECT_EQ(decodeTransfer("onetwo", encoding, 3, storage).bytes, "one");
    }
}

} // namespace
} // namespace Corvane
