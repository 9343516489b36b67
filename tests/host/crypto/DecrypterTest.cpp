#include "host/crypto/DecrypterMediaOut.h"

#include <memory>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/evp.h>

#include "host/parser/Exception.h"

namespace Corvane {
namespace Crypto {
namespace {

using testing::HasSubstr;

Buffer viewOf(const std::string &text) {
    return {text.data(), static_cast<unsigned int>(text.size()), true};
}

const unsigned char *bytesOf(const std::string &text) {
    return reinterpret_cast<const unsigned char *>(text.data());
}

std::string fromHex(const std::string &digits) {
    std::string bytes;
    for (std::size_t at = 0; at < digits.size(); at += 2) {
        bytes += static_cast<char>(std::stoi(digits.substr(at, 2), nullptr, 16));
    }
    return bytes;
}

const std::string kKey = "0123456789abcdef0123456789ABCDEF";
const std::string kIv = "initial vector 1";

std::string encrypt(const std::string &plain, bool padded = true) {
    const std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> context(
        EVP_CIPHER_CTX_new(), EVP_CIPHER_CTX_free);
    EVP_EncryptInit_ex(context.get(), EVP_aes_256_cbc(), nullptr, bytesOf(kKey), bytesOf(kIv));
    EVP_CIPHER_CTX_set_padding(context.get(), padded ? 1 : 0);
    std::string cipherText(plain.size() + EVP_MAX_BLOCK_LENGTH, '\0');
    auto *out = reinterpret_cast<unsigned char *>(cipherText.data());
    int length = 0;
    int last = 0;
    EVP_EncryptUpdate(context.get(), out, &length, bytesOf(plain), static_cast<int>(plain.size()));
    EVP_EncryptFinal_ex(context.get(), out + length, &last);
    cipherText.resize(static_cast<std::size_t>(length) + static_cast<std::size_t>(last));
    return cipherText;
}

// Appends to a string of the test's; with room set, throws when that would be exceeded.
class StringOut : public MediaOutImpl {
public:
    StringOut(std::string &text, int &ends, std::size_t room)
        : text_(text), ends_(ends), room_(room) {}

    void write(const Buffer &bytes) override {
        if (text_.size() + bytes.length() > room_) {
            throw Exception("StringOut", Exception::kGeneral, nullptr, 0);
        }
        text_ += bytes.asString();
    }
    void end() override { ++ends_; }

private:
    std::string &text_;
    int &ends_;
    std::size_t room_;
};

class Decrypter : public testing::Test {
protected:
    void attach(std::size_t room = std::string::npos) {
        stage.attach(MediaOut(new StringOut(plain, ends, room)));
    }

    // The whole way from cipher text to plain text, in writes of piece bytes.
    std::string decrypt(const std::string &cipherText, std::size_t piece = std::string::npos) {
        plain.clear();
        stage = DecrypterMediaOut(Cipher::kAes256Cbc, viewOf(kKey), viewOf(kIv));
        attach();
        for (std::string rest = cipherText; !rest.empty();) {
            stage.write(viewOf(rest.substr(0, piece)));
            rest.erase(0, piece);
        }
        stage.end();
        return plain;
    }

    template <class Operation>
    std::string failureOf(Operation operation) {
        try {
            operation();
        } catch (const Exception &failure) {
            EXPECT_EQ(failure.code(), Exception::kGeneral);
            EXPECT_EQ(ERR_peek_error(), 0U);
            return failure.asString();
        }
        return "no failure";
    }

    std::string plain;
    int ends = 0;
    DecrypterMediaOut stage{Cipher::kAes256Cbc, viewOf(kKey), viewOf(kIv)};
};

// NIST SP 800-38A, F.2.6; the standard has no padding block, so the text arrives but end() fails.
TEST_F(Decrypter, AnswersPublishedVectors) {
    const std::string key =
        fromHex("603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4");
    const std::string iv = fromHex("000102030405060708090a0b0c0d0e0f");
    stage = DecrypterMediaOut(427, viewOf(key), viewOf(iv));
    attach();
    stage.write(
        viewOf(fromHex("f58c4c04d6e5f1ba779eabfb5f7bfbd69cfc4e967edb808d679f777bc6702c7d"
                       "39f23369a9d9bacfa530e26304231461b2eb05e2c39be9fcda6c19078c6a9d1b")));
    EXPECT_EQ(plain, fromHex("6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51"
                             "30c81c46a35ce411e5fbc1191a0a52ef"));
    EXPECT_THAT(failureOf([&] { stage.end(); }), HasSubstr("cipher text is cut off"));
}

TEST_F(Decrypter, TakesTextOfAnyLength) {
    for (const std::size_t length : {0U, 1U, 15U, 16U, 17U, 4095U, 4096U, 4097U, 100000U}) {
        const std::string text(length, 'x');
        EXPECT_EQ(decrypt(encrypt(text)), text) << length;
    }
}

TEST_F(Decrypter, TakesTextInAnyPieces) {
    std::string text;
    for (int i = 0; i < 70; ++i) {
        text += static_cast<char>(i * 37);
    }
    const std::string cipherText = encrypt(text);
    for (std::size_t piece = 1; piece <= cipherText.size(); ++piece) {
        EXPECT_EQ(decrypt(cipherText, piece), text) << piece;
    }
    for (std::size_t cut = 0; cut <= cipherText.size(); ++cut) {
        plain.clear();
        stage = DecrypterMediaOut(Cipher::kAes256Cbc, viewOf(kKey), viewOf(kIv));
        attach();
        stage.write(viewOf(cipherText.substr(0, cut)));
        stage.write(viewOf(cipherText.substr(cut)));
        stage.end();
        EXPECT_EQ(plain, text) << cut;
    }
}

TEST_F(Decrypter, RefusesDamagedText) {
    const std::string whole = encrypt("a text of more than one block");
    const std::string wrongPadding = encrypt(std::string(31, 'x') + '\x11', false);
    const std::string noPadding = encrypt(std::string(31, 'x') + '\0', false);
    for (const std::string &text : {std::string(), whole.substr(0, 15), whole.substr(0, 16),
                                    whole.substr(0, 31), whole + 'x', wrongPadding, noPadding}) {
        EXPECT_THAT(failureOf([&] { decrypt(text); }), HasSubstr("cipher text is cut off"))
            << text.size();
    }
}

TEST_F(Decrypter, RefusesOtherCiphersAndLengths) {
    const auto make = [this](Cipher cipher, const std::string &key, const std::string &iv) {
        return failureOf([&] { DecrypterMediaOut(cipher, viewOf(key), viewOf(iv)); });
    };
    for (const int number : {0, -1, 426, 428}) {
        EXPECT_THAT(make(number, kKey, kIv), HasSubstr(std::to_string(number) + " is not support"));
    }
    EXPECT_THAT(make(427, kKey.substr(1), kIv), HasSubstr("the key has 31 bytes instead of 32"));
    EXPECT_THAT(make(427, kKey + 'x', kIv), HasSubstr("the key has 33 bytes"));
    EXPECT_THAT(make(427, kKey, ""), HasSubstr("vector has 0 bytes instead of 16"));
    EXPECT_THAT(make(427, kKey, kIv.substr(1)), HasSubstr("vector has 15 bytes"));
    EXPECT_THAT(make(427, kKey, kIv + 'x'), HasSubstr("vector has 17 bytes"));
}

TEST_F(Decrypter, NeedsAnOutput) {
    EXPECT_THAT(failureOf([&] { stage.write(viewOf("x")); }), HasSubstr("no output is attached"));
    EXPECT_THAT(failureOf([&] { stage.end(); }), HasSubstr("no output is attached"));
    attach();
    stage.write(viewOf(encrypt("text")));
    stage.end();
    EXPECT_EQ(plain, "text");
}

TEST_F(Decrypter, EndsOnceAndLeavesItsOutputOpen) {
    decrypt(encrypt("text"));
    stage.end();
    EXPECT_EQ(plain, "text");
    EXPECT_EQ(ends, 0);
    EXPECT_THAT(failureOf([&] { stage.write(Buffer()); }), HasSubstr("write after the end"));
}

TEST_F(Decrypter, StaysFailedWhenItsOutputFails) {
    const std::string cipherText = encrypt(std::string(64, 'x'));
    attach(16);
    EXPECT_THAT(failureOf([&] { stage.write(viewOf(cipherText)); }), HasSubstr("StringOut"));
    EXPECT_THAT(failureOf([&] { stage.write(viewOf(cipherText)); }),
                HasSubstr("used after a failure"));
    EXPECT_THAT(failureOf([&] { stage.end(); }), HasSubstr("used after a failure"));
    EXPECT_EQ(plain, "");

    stage = DecrypterMediaOut(Cipher::kAes256Cbc, viewOf(kKey), viewOf(kIv));
    attach(19);
    stage.write(viewOf(encrypt(std::string(20, 'x'))));
    EXPECT_THAT(failureOf([&] { stage.end(); }), HasSubstr("StringOut"));
    EXPECT_THAT(failureOf([&] { stage.end(); }), HasSubstr("used after a failure"));
}

} // namespace
} // namespace Crypto
} // namespace Corvane
