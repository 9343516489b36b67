#ifndef CORVANE_HOST_CRYPTO_CIPHER_H
#define CORVANE_HOST_CRYPTO_CIPHER_H

// The number of a cipher, as OpenSSL counts them. Any number can be named; whoever uses it refuses
// the ones that are not supported.
//
// Threads: immutable.

#include "host/crypto/Export.h"

namespace Corvane {
namespace Crypto {

class CORVANE_CRYPTO_API Cipher {
public:
    // AES with a key of 256 bits in CBC mode, the only cipher supported.
    static constexpr int kAes256Cbc = 427;

    // Converts, so that a plain number serves as a cipher.
    constexpr Cipher(int number) : number_(number) {}
    constexpr int number() const { return number_; }

private:
    int number_;
};

} // namespace Crypto
} // namespace Corvane

#endif
