#include "host/parser/KeyedHash.h"

#include <array>
#include <cstring>
#include <random>

namespace Corvane {

namespace {

__extension__ using Product = unsigned __int128;

using Key = std::array<std::uint64_t, 3>;

constexpr std::size_t kHalfBytes = sizeof(std::uint32_t);
constexpr std::size_t kWordBytes = sizeof(std::uint64_t);
constexpr std::size_t kBlockBytes = 2 * kWordBytes;

// Odd numbers, drawn from the system.
Key s_drawnKey() {
    std::random_device device;
    std::uniform_int_distribution<std::uint64_t> any;
    Key key{};
    for (std::uint64_t &word : key) {
        word = any(device) | 1U;
    }
    return key;
}

const Key &s_key() {
    static const Key s_drawn = s_drawnKey();
    return s_drawn;
}

// Both halves of the product: each bit of the result depends on all bits of both.
std::uint64_t s_mixed(std::uint64_t left, std::uint64_t right) {
    const Product product = Product{left} * right;
    return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64U);
}

template <class Number>
std::uint64_t s_load(const char *bytes) {
    Number number = 0;
    std::memcpy(&number, bytes, sizeof number);
    return number;
}

// The bytes of a text that is no longer than a block, in two words.
std::array<std::uint64_t, 2> s_words(std::string_view text) {
    const std::size_t length = text.size();
    if (length >= kWordBytes) {
        return {s_load<std::uint64_t>(text.data()),
                s_load<std::uint64_t>(text.data() + length - kWordBytes)};
    }
    if (length >= kHalfBytes) {
        return {s_load<std::uint32_t>(text.data()),
                s_load<std::uint32_t>(text.data() + length - kHalfBytes)};
    }
    std::uint64_t word = 0;
    for (const char c : text) {
        word = word << 8U | static_cast<unsigned char>(c);
    }
    return {word, 0};
}

} // namespace

std::uint64_t keyedHash(std::string_view text) {
    const Key &key = s_key();
    std::uint64_t hash = key[0] ^ text.size();
    for (; text.size() > kBlockBytes; text.remove_prefix(kBlockBytes)) {
        hash = s_mixed(s_load<std::uint64_t>(text.data()) ^ key[1],
                       s_load<std::uint64_t>(text.data() + kWordBytes) ^ hash);
    }
    const auto words = s_words(text);
    return s_mixed(s_mixed(words[0] ^ key[1], words[1] ^ hash), key[2]);
}

std::uint64_t keyedHash(std::uint64_t number) {
    const Key &key = s_key();
    return s_mixed(s_mixed(number ^ key[0], key[1]), key[2]);
}

} // namespace Corvane
