#include "host/crypto/DecrypterMediaOut.h"

#include "host/crypto/CipherStage.h"

namespace Corvane {
namespace Crypto {

DecrypterMediaOut::DecrypterMediaOut(Cipher cipher, const Buffer &key, const Buffer &iv)
    : MediaOutDecorator(newCipherStage(Direction::Decrypt, cipher, key, iv)) {}

} // namespace Crypto
} // namespace Corvane
