#ifndef CORVANE_HOST_CRYPTO_ENCRYPTERMEDIAOUT_H
#define CORVANE_HOST_CRYPTO_ENCRYPTERMEDIAOUT_H

// A stage that encrypts what is written to it, in pieces of any size; DecrypterMediaOut undoes it:
//
//     const Buffer iv = Crypto::randomBytes(16);
//     Crypto::EncrypterMediaOut encrypter(Crypto::Cipher::kAes256Cbc, key, iv);
//     encrypter.attach(file);
//     encrypter.write(plainText);
//     encrypter.end();
//     file.end();
//
// Threads: one at a time.

#include "host/crypto/Cipher.h"
#include "host/crypto/Export.h"
#include "host/parser/Buffer.h"
#include "host/parser/Media.h"

namespace Corvane {
namespace Crypto {

class CORVANE_CRYPTO_API EncrypterMediaOut : public MediaOutDecorator {
public:
    // key has 32 bytes, iv (the initialisation vector, which must be another one for every text) 16;
    // both are copied. The text is padded as PKCS#7 says. Throws code 4 for any other cipher or
    // length; write() and end() throw as those of DecrypterMediaOut, except that every text can be
    // encrypted. end() does not end the output.
    EncrypterMediaOut(Cipher cipher, const Buffer &key, const Buffer &iv);
};

// length bytes from the system's cryptographic random generator; throws code 4 where it fails.
CORVANE_CRYPTO_API Buffer randomBytes(unsigned int length);

} // namespace Crypto
} // namespace Corvane

#endif
