#ifndef CORVANE_HOST_CRYPTO_DECRYPTERMEDIAOUT_H
#define CORVANE_HOST_CRYPTO_DECRYPTERMEDIAOUT_H

// A stage that decrypts what is written to it, in pieces of any size:
//
//     Crypto::DecrypterMediaOut decrypter(Crypto::Cipher::kAes256Cbc, key, iv);
//     decrypter.attach(plain);
//     decrypter.write(cipherText);
//     decrypter.end();
//     plain.end();
//
// The plain text is believed only after end() returned: a wrong key or a cut text shows there, and
// even then only by chance, because the cipher carries no checksum.
//
// Threads: one at a time.

#include "host/crypto/Cipher.h"
#include "host/crypto/Export.h"
#include "host/parser/Buffer.h"
#include "host/parser/Media.h"

namespace Corvane {
namespace Crypto {

class CORVANE_CRYPTO_API DecrypterMediaOut : public MediaOutDecorator {
public:
    // key has 32 bytes, iv (the initialisation vector) 16; both are copied. The cipher text is
    // padded as PKCS#7 says. Throws code 4 for any other cipher or length.
    //
    // Beyond what MediaOut says, write() and end() throw code 4 before an output is attached. After
    // end(), write() throws. end() throws where the cipher text was empty, no multiple of 16 bytes
    // or wrongly padded. Once write() or end() has thrown for anything but a missing output, both
    // always throw: what reached the output is not complete.
    //
    // The output gets views of memory that is wiped afterwards. end() does not end it.
    DecrypterMediaOut(Cipher cipher, const Buffer &key, const Buffer &iv);
};

} // namespace Crypto
} // namespace Corvane

#endif
