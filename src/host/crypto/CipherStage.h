#ifndef CORVANE_HOST_CRYPTO_CIPHERSTAGE_H
#define CORVANE_HOST_CRYPTO_CIPHERSTAGE_H

// The stage behind DecrypterMediaOut and EncrypterMediaOut: the two differ in direction only.
//
// Threads: one at a time.

#include "host/crypto/Cipher.h"
#include "host/parser/Buffer.h"
#include "host/parser/Media.h"

namespace Corvane {
namespace Crypto {

enum class Direction { Decrypt, Encrypt };

// A fresh stage; throws as the constructors of DecrypterMediaOut and EncrypterMediaOut say. The
// caller adopts it.
MediaOutDecoratorImpl *newCipherStage(Direction direction, Cipher cipher, const Buffer &key,
                                      const Buffer &iv);

} // namespace Crypto
} // namespace Corvane

#endif
