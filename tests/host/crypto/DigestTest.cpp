#include "host/crypto/Digest.h"

#include <string>

#include <gtest/gtest.h>

namespace Corvane::Crypto {
namespace {

// The examples of FIPS 180-2.
TEST(Digest, IsThatOfTheStandard) {
    EXPECT_EQ(Digest().hex(), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    Digest digest;
    digest.add("abc");
    EXPECT_EQ(digest.hex(), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

TEST(Digest, GoesOnAfterItWasAsked) {
    Digest pieces;
    pieces.add(std::string(999, 'a'));
    const std::string before = pieces.hex();
    pieces.add(std::string(999001, 'a'));
    EXPECT_NE(pieces.hex(), before);
    EXPECT_EQ(pieces.hex(), "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

} // namespace
} // namespace Corvane::Crypto
