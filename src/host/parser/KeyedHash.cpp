#include "host/parser/KeyedHash.h"

#include <array>
#include <bit>
#include <cstring>
#include <random>

namespace Corvane {

namespace {

// A Mersenne prime: polynomials over its field are hashes whose collisions depend on the key.
constexpr unsigned int kBits = 61;
constexpr std::uint64_t kPrime = (std::uint64_t{1} << kBits) - 1;

// Words of the text are smaller than the prime.
constexpr std::size_t kWordBytes = 7;

__extension__ using Product = unsigned __int128;

std::uint64_t s_reduced(std::uint64_t number) {
    return number >= kPrime ? number - kPrime : number;
}

// Both below the prime.
std::uint64_t s_product(std::uint64_t left, std::uint64_t right) {
    const Product product = Product{left} * right;
    return s_reduced((static_cast<std::uint64_t>(product) & kPrime) +
                     static_cast<std::uint64_t>(product >> kBits));
}

std::uint64_t s_drawnKey() {
    std::random_device device;
    return std::uniform_int_distribution<std::uint64_t>(kPrime / 2, kPrime - 1)(device);
}

std::uint64_t s_key() {
    static const std::uint64_t s_drawn = s_drawnKey();
    return s_drawn;
}

} // namespace

std::uint64_t keyedHash(std::string_view text) {
    const std::uint64_t key = s_key();
    const std::size_t length = text.size();
    std::uint64_t hash = 0;
    for (; text.size() > kWordBytes; text.remove_prefix(kWordBytes)) {
        std::uint64_t word = 0;
        std::memcpy(&word, text.data(), kWordBytes);
        hash = s_product(s_reduced(hash + word), key);
    }
    std::array<char, sizeof(std::uint64_t)> last{};
    text.copy(last.data(), kWordBytes);
    hash = s_product(s_reduced(hash + std::bit_cast<std::uint64_t>(last)), key);
    return s_reduced(hash + length);
}

std::uint64_t keyedHash(std::uint64_t number) {
    const std::uint64_t key = s_key();
    const std::uint64_t low = s_product(number & kPrime, key);
    return s_product(s_reduced(low + (number >> kBits)), key);
}

} // namespace Corvane
