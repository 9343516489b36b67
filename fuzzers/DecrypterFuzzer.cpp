#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

#include "Require.h"
#include "host/crypto/DecrypterMediaOut.h"
#include "host/parser/Exception.h"
#include "host/parser/Media.h"

namespace {

using namespace Corvane;

constexpr unsigned int kKeyBytes = 32;
constexpr unsigned int kIvBytes = 16;

Buffer s_slice(const std::uint8_t *data, std::size_t size, std::size_t from, std::size_t length) {
    const std::size_t start = std::min(from, size);
    return {data + start, static_cast<unsigned int>(std::min(length, size - start)), true};
}

} // namespace

// The first byte is the size of the pieces that are written, then come the vector and the cipher
// text.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::string key(kKeyBytes, 'k');
    const std::size_t piece = std::size_t{data[0]} + 1;
    try {
        TempFileMediaOut plain("/tmp/corvane-fuzzXXXXXX", true);
        Crypto::DecrypterMediaOut decrypter(Crypto::Cipher::kAes256Cbc,
                                            Buffer(key.data(), kKeyBytes, true),
                                            s_slice(data, size, 1, kIvBytes));
        decrypter.attach(plain);
        for (std::size_t at = 1 + kIvBytes; at < size; at += piece) {
            decrypter.write(s_slice(data, size, at, piece));
        }
        decrypter.end();
        plain.end();
        require((size - 1 - kIvBytes) % kIvBytes == 0, "only whole blocks decrypt");
    } catch (const Exception &failure) {
        require(failure.code() == Exception::kGeneral, "failures have code 4");
    }
    return 0;
}
