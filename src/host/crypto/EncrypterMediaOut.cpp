#include "host/crypto/EncrypterMediaOut.h"

#include <vector>

#include <openssl/rand.h>

#include "host/crypto/CipherStage.h"
#include "host/parser/Exception.h"

namespace Corvane {
namespace Crypto {

EncrypterMediaOut::EncrypterMediaOut(Cipher cipher, const Buffer &key, const Buffer &iv)
    : MediaOutDecorator(newCipherStage(Direction::Encrypt, cipher, key, iv)) {}

Buffer randomBytes(unsigned int length) {
    std::vector<unsigned char> bytes(length);
    if (RAND_bytes(bytes.data(), static_cast<int>(length)) != 1) {
        throw Exception("Crypto::randomBytes", Exception::kGeneral, "EncrypterMediaOut", __LINE__);
    }
    return {bytes.data(), length, false};
}

} // namespace Crypto
} // namespace Corvane
