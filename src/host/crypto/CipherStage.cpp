#include "host/crypto/CipherStage.h"

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

Exception s_failure(Direction direction, const std::string &detail) {
    const std::string name =
        direction == Direction::Decrypt ? "DecrypterMediaOut" : "EncrypterMediaOut";
    Exception failure("Crypto::" + name, Exception::kGeneral, name.c_str(), __LINE__);
    failure.stringParameter(detail);
    return failure;
}

// A failure that OpenSSL explains; empties the thread's queue of its errors.
Exception s_libraryFailure(Direction direction, const std::string &detail) {
    const char *reason = ERR_reason_error_string(ERR_peek_last_error());
    Exception failure = s_failure(direction, reason == nullptr ? detail : detail + ": " + reason);
    ERR_clear_error();
    return failure;
}

// OpenSSL would read as many bytes as the cipher takes, whatever the buffer holds.
void s_checkLength(Direction direction, const char *what, const Buffer &bytes, int wanted) {
    if (bytes.length() != static_cast<unsigned int>(wanted)) {
        throw s_failure(direction, std::string(what) + " has " + std::to_string(bytes.length()) +
                                       " bytes instead of " + std::to_string(wanted));
    }
}

// Room for what becomes of one piece, which may include a block held back before.
class Piece {
public:
    static constexpr unsigned int kMaxBytes = 4096;

    Piece() = default;
    Piece(const Piece &) = delete;
    Piece &operator=(const Piece &) = delete;
    ~Piece() { OPENSSL_cleanse(bytes_.data(), bytes_.size()); }

    unsigned char *bytes() { return bytes_.data(); }
    Buffer view(int length) const {
        return {bytes_.data(), static_cast<unsigned int>(length), true};
    }

private:
    std::array<unsigned char, kMaxBytes + EVP_MAX_BLOCK_LENGTH> bytes_;
};

class CipherStage final : public MediaOutDecoratorImpl {
public:
    CipherStage(Direction direction, Cipher cipher, const Buffer &key, const Buffer &iv);

    void write(const Buffer &bytes) override;
    void end() override;

private:
    enum class State { kOpen, kEnded, kFailed };

    void requireUsable();
    void convert(const unsigned char *bytes, unsigned int length);
    void pass(const Buffer &bytes);

    Direction direction_;
    std::unique_ptr<EVP_CIPHER_CTX, ContextDeleter> context_;
    State state_ = State::kOpen;
};

CipherStage::CipherStage(Direction direction, Cipher cipher, const Buffer &key, const Buffer &iv)
    : direction_(direction), context_(EVP_CIPHER_CTX_new()) {
    const EVP_CIPHER *method =
        cipher.number() == Cipher::kAes256Cbc ? EVP_get_cipherbynid(cipher.number()) : nullptr;
    if (method == nullptr) {
        throw s_failure(direction_,
                        "cipher " + std::to_string(cipher.number()) + " is not supported");
    }
    s_checkLength(direction_, "the key", key, EVP_CIPHER_get_key_length(method));
    s_checkLength(direction_, "the initialisation vector", iv, EVP_CIPHER_get_iv_length(method));
    if (context_ == nullptr ||
        EVP_CipherInit_ex(context_.get(), method, nullptr, key.data(), iv.data(),
                          direction == Direction::Encrypt ? 1 : 0) != 1) {
        throw s_libraryFailure(direction_, "the cipher cannot be set up");
    }
}

void CipherStage::requireUsable() {
    if (state_ == State::kFailed) {
        throw s_failure(direction_, "used after a failure");
    }
    if (output().isNull()) {
        throw s_failure(direction_, "no output is attached");
    }
}

void CipherStage::write(const Buffer &bytes) {
    requireUsable();
    if (state_ == State::kEnded) {
        throw s_failure(direction_, "write after the end");
    }
    // Until all is passed on; the output may throw anything.
    state_ = State::kFailed;
    for (unsigned int done = 0; done < bytes.length();) {
        const unsigned int piece = std::min(bytes.length() - done, Piece::kMaxBytes);
        convert(bytes.data() + done, piece);
        done += piece;
    }
    state_ = State::kOpen;
}

void CipherStage::convert(const unsigned char *bytes, unsigned int length) {
    Piece converted;
    int given = 0;
    if (EVP_CipherUpdate(context_.get(), converted.bytes(), &given, bytes,
                         static_cast<int>(length)) != 1) {
        throw s_libraryFailure(direction_, "the cipher fails");
    }
    pass(converted.view(given));
}

void CipherStage::end() {
    requireUsable();
    if (state_ == State::kEnded) {
        return;
    }
    state_ = State::kFailed;
    Piece converted;
    int given = 0;
    if (EVP_CipherFinal_ex(context_.get(), converted.bytes(), &given) != 1) {
        throw s_libraryFailure(direction_,
                               "the cipher text is cut off, or was made with another key");
    }
    pass(converted.view(given));
    state_ = State::kEnded;
}

void CipherStage::pass(const Buffer &bytes) {
    if (!bytes.isEmpty()) {
        output().write(bytes);
    }
}

} // namespace

MediaOutDecoratorImpl *newCipherStage(Direction direction, Cipher cipher, const Buffer &key,
                                      const Buffer &iv) {
    return new CipherStage(direction, cipher, key, iv);
}

} // namespace Crypto
} // namespace Corvane
