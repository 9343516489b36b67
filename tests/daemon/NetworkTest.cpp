#include "Network.h"

#include <gtest/gtest.h>

namespace Corvane::Milter {
namespace {

TEST(Network, HoldsWhatSharesItsBits) {
    struct Case {
        const char *network;
        const char *address;
        bool holds;
    };
    const Case cases[] = {
        {"192.0.2.0/24", "192.0.2.255", true},
        {"192.0.2.0/24", "192.0.3.0", false},
        {"192.0.2.128/25", "192.0.2.128", true},
        {"192.0.2.128/25", "192.0.2.127", false},
        {"192.0.2.7", "192.0.2.7", true},
        {"192.0.2.7", "192.0.2.6", false},
        {"0.0.0.0/0", "203.0.113.1", true},
        {"0.0.0.0/0", "2001:db8::1", false},
        {"2001:db8::/33", "2001:db8::1", true},
        {"2001:db8::/33", "2001:db8:8000::", false},
        {"::/0", "192.0.2.1", true},
        {"::ffff:192.0.2.0/120", "192.0.2.9", true},
    };
    for (const Case &each : cases) {
        const auto network = Network::parse(each.network);
        const auto address = addressOf(std::string(each.address));
        ASSERT_TRUE(network.has_value() && address.has_value()) << each.network;
        EXPECT_EQ(network->holds(*address), each.holds) << each.network << ' ' << each.address;
    }
}

TEST(Network, RefusesWhatIsNone) {
    for (const char *text :
         {"", "/", "192.0.2.0/33", "192.0.2.1/24", "2001:db8::/129", "2001:db8::1/64", "192.0.2",
          "192.0.2.0/", "192.0.2.0/24x", "192.0.2.0/-1", "localhost"}) {
        EXPECT_FALSE(Network::parse(text).has_value()) << text;
    }
}

TEST(Network, ShowsAddressesAsTheyAreWritten) {
    EXPECT_EQ(toString(addressOf(std::string("192.0.2.1"))), "192.0.2.1");
    EXPECT_EQ(toString(addressOf(std::string("2001:db8::1"))), "2001:db8::1");
    EXPECT_EQ(toString(addressOf(static_cast<const sockaddr *>(nullptr))), "-");
}

} // namespace
} // namespace Corvane::Milter
