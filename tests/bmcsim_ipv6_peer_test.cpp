// The simulator keys sessions and resent requests by the console's address
// and port and the address the request came to, IPv6 addresses (with their
// interface, for link-local ones) as IPv4 ones. Open Session requests are
// handed straight to the engine; nothing is bound.
#include <arpa/inet.h>

#include <gtest/gtest.h>

#include "bmcsim_console.h"
#include "engine.h"

namespace {

using bmcsim::detail::Address;
using bmcsim::detail::Peer;

Address v6(const char *text, uint32_t scope = 0)
{
    Address a;
    EXPECT_EQ(::inet_pton(AF_INET6, text, a.bytes.data()), 1) << text;
    a.scope = scope;
    return a;
}

class Ipv6Peers : public ::testing::Test {
protected:
    Ipv6Peers() { config_.users = {{"admin", "Secr3t-pw", 4, true}}; }

    // The managed system session ID of the answer (0 when refused).
    uint32_t open(const Peer &from, uint32_t console_id = 0xA0A2A3A4)
    {
        const auto o = engine_.handle(simtest::open_session_request(1, 4, console_id, 3, 4, 1), config_, from);
        if (o.out.size() != 1 || o.out[0].bytes.size() != 52 || o.out[0].bytes[17] != 0) return 0;
        return simtest::get_le32(o.out[0].bytes, 24);
    }

    bmcsim::Config config_;
    bmcsim::detail::Engine engine_{nullptr};
    const Address bmc_ = v6("::1");
};

TEST_F(Ipv6Peers, AnIpv6AddressIsNotTakenForAnIpv4One)
{
    EXPECT_FALSE(v6("::1").is_v4());
    EXPECT_FALSE(v6("fd00::7f00:1").is_v4());
    EXPECT_TRUE(Address::v4(0x7F000105).is_v4());
    EXPECT_EQ(Address::v4(0x7F000105).text(), "127.0.1.5");
    EXPECT_EQ(v6("fd00::623").text(), "fd00::623");
    EXPECT_EQ(v6("fe80::1", 1).text(), "fe80::1%lo");  // interface 1 is the loopback
}

TEST_F(Ipv6Peers, AResentRequestFromTheSameIpv6PeerKeepsItsSession)
{
    const uint32_t first = open({v6("::1"), 7001, bmc_});
    ASSERT_NE(first, 0u);
    EXPECT_EQ(open({v6("::1"), 7001, bmc_}), first);
    EXPECT_EQ(engine_.sessions().size(), 1u);
}

TEST_F(Ipv6Peers, TheSameIdFromAnotherIpv6AddressOrPortIsANewSession)
{
    const uint32_t first = open({v6("::1"), 7001, bmc_});
    const uint32_t other_port = open({v6("::1"), 7002, bmc_});
    const uint32_t other_address = open({v6("fd00::623"), 7001, bmc_});
    ASSERT_NE(first, 0u);
    ASSERT_NE(other_port, 0u);
    ASSERT_NE(other_address, 0u);
    EXPECT_NE(first, other_port);
    EXPECT_NE(first, other_address);
    EXPECT_NE(other_port, other_address);
    EXPECT_EQ(engine_.sessions().size(), 3u);
    EXPECT_EQ(open({v6("fd00::623"), 7001, bmc_}), other_address);
}

TEST_F(Ipv6Peers, TheSameLinkLocalAddressOnAnotherInterfaceIsANewSession)
{
    const uint32_t first = open({v6("fe80::1", 2), 7001, v6("fe80::2", 2)});
    const uint32_t second = open({v6("fe80::1", 3), 7001, v6("fe80::2", 3)});
    ASSERT_NE(first, 0u);
    ASSERT_NE(second, 0u);
    EXPECT_NE(first, second);
}

TEST_F(Ipv6Peers, AnIpv6PeerAndAnIpv4PeerWithTheSameIdAreTwoSessions)
{
    const uint32_t over_v6 = open({v6("::1"), 7001, bmc_});
    const uint32_t over_v4 = open({Address::v4(0x7F00010A), 7001, Address::v4(0x7F000116)});
    ASSERT_NE(over_v6, 0u);
    ASSERT_NE(over_v4, 0u);
    EXPECT_NE(over_v6, over_v4);
}

}  // namespace
