#include "host/crypto/DecrypterMediaOut.h"

#include <algorithm>
#include <array>
#include <memory>
#include <string>

#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/evp.h>

#include "host/parser/Exception.h"

namespace Corvane {
namespace Crypto {

namespace {

struct ContextDeleter {
    void operator()(EVP_CIPHER_CTX *context) const { EVP_CIPHER_CTX_free(context); }
};

Exception s_failure(const std::string &detail) {
    Exception failure("Crypto::DecrypterMediaOut", Exception::kGeneral, "DecrypterMediaOut",
                      __LINE__);
    failure.stringParameter(detail);
    return failure;
}

// A failure that OpenSSL explains; empties the thread's queue of its errors.
Exception s_libraryFailure(const std::string &detail) {
    const char *reason = ERR_reason_error_string(ERR_peek_last_error());
    Exception failure = s_failure(reason == nullptr ? detail : detail + ": " + reason);
    ERR_clear_error();
    return failure;
}

// OpenSSL would read as many bytes as the cipher takes, whatever the buffer holds.
void s_checkLength(const char *what, const Buffer &bytes, int wanted) {
    if (bytes.length() != static_cast<unsigned int>(wanted)) {
        throw s_failure(std::string(what) + " has " + std::to_string(bytes.length()) +
                        " bytes instead of " + std::to_string(wanted));
    }
}

// Room for the plain text of one piece, which may include a block held back before.
class PlainText {
public:
    static constexpr unsigned int kPieceBytes = 4096;

    PlainText() = default;
    PlainText(const PlainText &) = delete;
    PlainText &operator=(const PlainText &) = delete;
    ~PlainText() { OPENSSL_cleanse(bytes_.data(), bytes_.size()); }

    unsigned char *bytes() { return bytes_.data(); }
    Buffer view(int length) const {
        return {bytes_.data(), static_cast<unsigned int>(length), true};
    }

private:
    std::array<unsigned char, kPieceBytes + EVP_MAX_BLOCK_LENGTH> bytes_;
};

class Decrypter final : public MediaOutDecoratorImpl {
public:
    Decrypter(Cipher cipher, const Buffer &key, const Buffer &iv);

    void write(const Buffer &bytes) override;
    void end() override;

private:
    enum class State { kOpen, kEnded, kFailed };

    void requireUsable();
    void decrypt(const unsigned char *bytes, unsigned int length);
    void pass(const Buffer &plain);

    std::unique_ptr<EVP_CIPHER_CTX, ContextDeleter> context_;
    State state_ = State::kOpen;
};

Decrypter::Decrypter(Cipher cipher, const Buffer &key, const Buffer &iv)
    : context_(EVP_CIPHER_CTX_new()) {
    const EVP_CIPHER *method =
        cipher.number() == Cipher::kAes256Cbc ? EVP_get_cipherbynid(cipher.number()) : nullptr;
    if (method == nullptr) {
        throw s_failure("cipher " + std::to_string(cipher.number()) + " is not supported");
    }
    s_checkLength("the key", key, EVP_CIPHER_get_key_length(method));
    s_checkLength("the initialisation vector", iv, EVP_CIPHER_get_iv_length(method));
    if (context_ == nullptr ||
        EVP_DecryptInit_ex(context_.get(), method, nullptr, key.data(), iv.data()) != 1) {
        throw s_libraryFailure("the cipher cannot be set up");
    }
}

void Decrypter::requireUsable() {
    if (state_ == State::kFailed) {
        throw s_failure("used after a failure");
    }
    if (output().isNull()) {
        throw s_failure("no output is attached");
    }
}

void Decrypter::write(const Buffer &bytes) {
    requireUsable();
    if (state_ == State::kEnded) {
        throw s_failure("write after the end");
    }
    // Until all is passed on; the output may throw anything.
    state_ = State::kFailed;
    for (unsigned int done = 0; done < bytes.length();) {
        const unsigned int piece = std::min(bytes.length() - done, PlainText::kPieceBytes);
        decrypt(bytes.data() + done, piece);
        done += piece;
    }
    state_ = State::kOpen;
}

void Decrypter::decrypt(const unsigned char *bytes, unsigned int length) {
    PlainText plain;
    int given = 0;
    if (EVP_DecryptUpdate(context_.get(), plain.bytes(), &given, bytes, static_cast<int>(length)) !=
        1) {
        throw s_libraryFailure("cannot decrypt");
    }
    pass(plain.view(given));
}

void Decrypter::end() {
    requireUsable();
    if (state_ == State::kEnded) {
        return;
    }
    state_ = State::kFailed;
    PlainText plain;
    int given = 0;
    if (EVP_DecryptFinal_ex(context_.get(), plain.bytes(), &given) != 1) {
        throw s_libraryFailure("the cipher text is cut off, or was made with another key");
    }
    pass(plain.view(given));
    state_ = State::kEnded;
}

void Decrypter::pass(const Buffer &plain) {
    if (!plain.isEmpty()) {
        output().write(plain);
    }
}

} // namespace

DecrypterMediaOut::DecrypterMediaOut(Cipher cipher, const Buffer &key, const Buffer &iv)
    : MediaOutDecorator(new Decrypter(cipher, key, iv)) {}

} // namespace Crypto
} // namespace Corvane
