#ifndef CORVANE_SRC_HOST_PARSER_BYTEDECODER_H
#define CORVANE_SRC_HOST_PARSER_BYTEDECODER_H

// Decoders of charsets, which take their bytes in pieces. What does not convert becomes U+FFFD.
//
// Threads: one object is for one thread at a time.

#include <memory>
#include <string>
#include <string_view>

namespace Corvane {

class ByteDecoder {
public:
    ByteDecoder() = default;
    ByteDecoder(const ByteDecoder &) = delete;
    ByteDecoder &operator=(const ByteDecoder &) = delete;
    virtual ~ByteDecoder() = default;

    // Appends what the next bytes stand for, in UTF-8.
    virtual void decode(std::string_view bytes, std::string &out) = 0;

    // Appends what was held back for bytes to come. What is decoded from there on is a new text.
    virtual void finish(std::string &out) = 0;
};

// UTF-8. A byte of no valid sequence is taken as windows-1252, or becomes U+FFFD.
enum class InvalidBytes { Replaced, Windows1252 };
std::unique_ptr<ByteDecoder> makeUtf8Decoder(InvalidBytes invalid);

// UTF-7 (RFC 2152). A shift that is malformed or open ends where its digits do.
std::unique_ptr<ByteDecoder> makeUtf7Decoder();

// A charset of one byte a character, by iconv's name for it; what iconv leaves open in the pages of
// Windows is taken from the encoding standard. Null where iconv does not have it.
std::unique_ptr<ByteDecoder> makeSingleByteDecoder(const std::string &iconvName);

// Whatever iconv has, by its name. A character has unitBytes bytes, or a multiple. Of a malformed
// one all bytes above 127 are dropped, up to two, but none below, which may be an ASCII character.
// Null where iconv does not have it.
std::unique_ptr<ByteDecoder> makeIconvDecoder(const std::string &iconvName, std::size_t unitBytes);

// Charsets of two bytes a character that switch by escape sequences and shifts (RFC 1468, 1554,
// 1557, 1922; JIS X 0213). They are back in ASCII at each line end.
enum class Iso2022 { Jp, Kr, Cn };
std::unique_ptr<ByteDecoder> makeIso2022Decoder(Iso2022 variant);

// EUC-JP with the vendor characters that mail programs write.
std::unique_ptr<ByteDecoder> makeEucJpDecoder();

// HZ (RFC 1843), which switches by tildes, in the same way.
std::unique_ptr<ByteDecoder> makeHzDecoder();

// All of a text at once.
std::string decodeAll(ByteDecoder &decoder, std::string_view bytes);

} // namespace Corvane

#endif
