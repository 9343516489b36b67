#ifndef CORVANE_HOST_CRYPTO_DIGEST_H
#define CORVANE_HOST_CRYPTO_DIGEST_H

// The SHA-256 digest of bytes that come in pieces:
//
//     Crypto::Digest digest;
//     digest.add("abc");
//     digest.hex(); // "ba7816bf..."
//
// Threads: one at a time.

#include <memory>
#include <string>
#include <string_view>

#include "host/crypto/Export.h"

namespace Corvane {
namespace Crypto {

class CORVANE_CRYPTO_API Digest {
public:
    // Of no bytes yet. Throws code 4 where the cryptographic library fails, as add() and hex() do.
    Digest();
    Digest(const Digest &) = delete;
    Digest &operator=(const Digest &) = delete;
    ~Digest();

    void add(std::string_view bytes);

    // The digest of all bytes added so far, in 64 lower-case hexadecimal digits; more may follow.
    std::string hex() const;

private:
    struct Context;

    std::unique_ptr<Context> context_;
};

} // namespace Crypto
} // namespace Corvane

#endif
