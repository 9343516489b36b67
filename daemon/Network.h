#ifndef CORVANE_DAEMON_NETWORK_H
#define CORVANE_DAEMON_NETWORK_H

// Addresses of clients and the networks they lie in.
//
// Threads: plain values.

#include <array>
#include <cstdint>
#include <optional>
#include <string>

struct sockaddr;

namespace Corvane::Milter {

// An address of IPv6, or of IPv4 as IPv6 maps it.
using Address = std::array<std::uint8_t, 16>;

// The address of a client as a mail server tells it; none where it is a local process.
std::optional<Address> addressOf(const sockaddr *from);

// "192.0.2.1" or "2001:db8::1"; none for any other text.
std::optional<Address> addressOf(const std::string &text);

// As addressOf takes it; "-" for none.
std::string toString(const std::optional<Address> &address);

class Network {
public:
    // "192.0.2.0/24", "2001:db8::/32" or an address alone; none for any other text, and where the
    // address has bits behind those of the network.
    static std::optional<Network> parse(const std::string &text);

    bool holds(const Address &address) const;

private:
    Network(const Address &address, unsigned int bits) : address_(address), bits_(bits) {}

    Address address_;
    unsigned int bits_;
};

} // namespace Corvane::Milter

#endif
