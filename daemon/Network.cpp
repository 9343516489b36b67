#include "Network.h"

#include <algorithm>
#include <charconv>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace Corvane::Milter {

namespace {

constexpr unsigned int kByteBits = 8;
constexpr unsigned int kAddressBits = 128;
// In front of the 32 bits of IPv4.
constexpr unsigned int kMappedBits = 96;
constexpr std::size_t kMappedBytes = kMappedBits / kByteBits;
constexpr Address kMapped = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 0, 0, 0, 0};

Address s_mapped(const in_addr &from) {
    Address address = kMapped;
    const auto *bytes = reinterpret_cast<const std::uint8_t *>(&from);
    std::copy_n(bytes, sizeof(from), address.begin() + kMappedBytes);
    return address;
}

Address s_address(const in6_addr &from) {
    Address address{};
    std::copy_n(std::begin(from.s6_addr), address.size(), address.begin());
    return address;
}

bool s_bit(const Address &address, unsigned int at) {
    const unsigned int byte = address.at(at / kByteBits);
    return ((byte >> (kByteBits - 1 - at % kByteBits)) & 1U) != 0;
}

} // namespace

std::optional<Address> addressOf(const sockaddr *from) {
    if (from != nullptr && from->sa_family == AF_INET) {
        sockaddr_in address{};
        std::copy_n(reinterpret_cast<const char *>(from), sizeof(address),
                    reinterpret_cast<char *>(&address));
        return s_mapped(address.sin_addr);
    }
    if (from != nullptr && from->sa_family == AF_INET6) {
        sockaddr_in6 address{};
        std::copy_n(reinterpret_cast<const char *>(from), sizeof(address),
                    reinterpret_cast<char *>(&address));
        return s_address(address.sin6_addr);
    }
    return {};
}

std::optional<Address> addressOf(const std::string &text) {
    in_addr four{};
    if (inet_pton(AF_INET, text.c_str(), &four) == 1) {
        return s_mapped(four);
    }
    in6_addr six{};
    if (inet_pton(AF_INET6, text.c_str(), &six) == 1) {
        return s_address(six);
    }
    return {};
}

std::string toString(const std::optional<Address> &address) {
    if (!address.has_value()) {
        return "-";
    }
    std::array<char, INET6_ADDRSTRLEN> text{};
    const bool isMapped =
        std::equal(kMapped.begin(), kMapped.begin() + kMappedBytes, address->begin());
    const std::uint8_t *bytes = address->data() + (isMapped ? kMappedBytes : 0);
    inet_ntop(isMapped ? AF_INET : AF_INET6, bytes, text.data(), text.size());
    return text.data();
}

std::optional<Network> Network::parse(const std::string &text) {
    const std::size_t slash = std::min(text.find('/'), text.size());
    const std::optional<Address> address = addressOf(text.substr(0, slash));
    if (!address.has_value()) {
        return {};
    }
    const bool isFour = text.find(':') == std::string::npos;
    unsigned int bits = kAddressBits;
    if (slash < text.size()) {
        const char *end = text.data() + text.size();
        const auto read = std::from_chars(text.data() + slash + 1, end, bits);
        const unsigned int most = isFour ? kAddressBits - kMappedBits : kAddressBits;
        if (read.ec != std::errc() || read.ptr != end || bits > most) {
            return {};
        }
        bits += isFour ? kMappedBits : 0;
    }
    for (unsigned int each = bits; each < kAddressBits; ++each) {
        if (s_bit(*address, each)) {
            return {};
        }
    }
    return Network(*address, bits);
}

bool Network::holds(const Address &address) const {
    const unsigned int whole = bits_ / kByteBits;
    if (!std::equal(address_.begin(), address_.begin() + whole, address.begin())) {
        return false;
    }
    for (unsigned int each = whole * kByteBits; each < bits_; ++each) {
        if (s_bit(address_, each) != s_bit(address, each)) {
            return false;
        }
    }
    return true;
}

} // namespace Corvane::Milter
