#include "host/crypto/Digest.h"

#include <array>

#include <openssl/evp.h>

#include "host/parser/Exception.h"

namespace Corvane {
namespace Crypto {

namespace {

struct ContextDeleter {
    void operator()(EVP_MD_CTX *context) const { EVP_MD_CTX_free(context); }
};

using ContextHandle = std::unique_ptr<EVP_MD_CTX, ContextDeleter>;

void s_require(bool good, unsigned int line) {
    if (!good) {
        throw Exception("Crypto::Digest", Exception::kGeneral, "Digest", line);
    }
}

} // namespace

struct Digest::Context {
    ContextHandle handle{EVP_MD_CTX_new()};
};

Digest::Digest() : context_(std::make_unique<Context>()) {
    s_require(context_->handle != nullptr &&
                  EVP_DigestInit_ex(context_->handle.get(), EVP_sha256(), nullptr) == 1,
              __LINE__);
}

Digest::~Digest() = default;

void Digest::add(std::string_view bytes) {
    s_require(EVP_DigestUpdate(context_->handle.get(), bytes.data(), bytes.size()) == 1, __LINE__);
}

std::string Digest::hex() const {
    constexpr const char *kDigits = "0123456789abcdef";
    constexpr unsigned int kBase = 16;
    std::array<unsigned char, EVP_MAX_MD_SIZE> bytes{};
    unsigned int length = 0;
    // Finishing ends a context, so that a copy is finished.
    const ContextHandle copy(EVP_MD_CTX_new());
    s_require(copy != nullptr && EVP_MD_CTX_copy_ex(copy.get(), context_->handle.get()) == 1 &&
                  EVP_DigestFinal_ex(copy.get(), bytes.data(), &length) == 1,
              __LINE__);
    std::string hex;
    for (unsigned int i = 0; i < length; ++i) {
        hex += kDigits[bytes.at(i) / kBase];
        hex += kDigits[bytes.at(i) % kBase];
    }
    return hex;
}

} // namespace Crypto
} // namespace Corvane
