#include "host/crypto/EncrypterMediaOut.h"

#include <string>

#include <gtest/gtest.h>

#include "host/crypto/DecrypterMediaOut.h"
#include "host/parser/Exception.h"
#include "support/TempDir.h"

namespace Corvane {
namespace Crypto {
namespace {

const std::string kKey(32, 'k');

Buffer viewOf(const std::string &text) {
    return {text.data(), static_cast<unsigned int>(text.size()), true};
}

// Writes text through a stage into a file and answers what arrived.
template <class Stage>
std::string through(Stage stage, const std::string &text, std::size_t piece) {
    const TempDir directory;
    TempFileMediaOut out(directory.path("outXXXXXX"), true);
    stage.attach(out);
    for (std::size_t at = 0; at < text.size(); at += piece) {
        stage.write(viewOf(text.substr(at, piece)));
    }
    stage.end();
    out.end();
    return TempDir::read(out.tmpfile()->name());
}

TEST(EncrypterMediaOut, IsUndoneByTheDecrypter) {
    for (const std::size_t length : {0U, 1U, 15U, 16U, 17U, 5000U}) {
        const Buffer iv = randomBytes(16);
        const std::string text(length, 'x');
        const std::string hidden =
            through(EncrypterMediaOut(Cipher::kAes256Cbc, viewOf(kKey), iv), text, 7);
        EXPECT_EQ(hidden.size(), (length / 16 + 1) * 16);
        EXPECT_EQ(through(DecrypterMediaOut(Cipher::kAes256Cbc, viewOf(kKey), iv), hidden, 512),
                  text);
    }
}

TEST(EncrypterMediaOut, NamesItselfInItsFailures) {
    try {
        EncrypterMediaOut(Cipher::kAes256Cbc, viewOf(kKey), viewOf("short"));
        FAIL() << "a short vector must be refused";
    } catch (const Exception &failure) {
        EXPECT_EQ(failure.message(), "Crypto::EncrypterMediaOut");
    }
}

TEST(RandomBytes, DifferEachTime) {
    EXPECT_NE(randomBytes(16), randomBytes(16));
    EXPECT_EQ(randomBytes(0).length(), 0U);
}

} // namespace
} // namespace Crypto
} // namespace Corvane
