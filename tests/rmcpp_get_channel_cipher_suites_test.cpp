// rmcpp_get_channel_cipher_suites end to end: the simulator on 127.0.5.11
// (and on 127.0.0.1 at port 6241 for a host name), OpenIPMI's ipmi_sim on
// 127.0.5.13, nothing at all on 127.0.5.14.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "bmcsim.h"
#include "cipher_suites_testkit.h"
#include "ipmi_sim_peer.h"
#include "rmcpp.h"
#include "run_program.h"
#include "trace_capture.h"

namespace {

using ciphertest::Suite;
using ciphertest::suites_of;

const std::vector<Suite> kSimulatorSuites = {{0, 0, 0, 0},  {1, 1, 0, 0},  {2, 1, 1, 0}, {3, 1, 1, 1},
                                            {15, 3, 0, 0}, {16, 3, 4, 0}, {17, 3, 4, 1}};

IPMI_SessionParam param(const char *address)
{
    IPMI_SessionParam p{};
    p.bmc_address = ntohl(inet_addr(address));
    p.slave_address = 0x20;
    p.retry_count = 2;
    p.timeout_sec = 1;
    return p;
}

RMCPP_SessionOptions options(uint32_t flags = 0)
{
    RMCPP_SessionOptions o{};
    o.size = sizeof o;
    o.flags = flags;
    return o;
}

std::unique_ptr<bmcsim::Simulator> simulator(const std::string &address, uint16_t port = 623,
                                             void (*change)(bmcsim::Config &) = nullptr)
{
    bmcsim::Config c;
    c.address = address;
    c.port = port;
    c.users.push_back({"admin", "secret", 4, true});
    if (change != nullptr) change(c);
    auto sim = std::make_unique<bmcsim::Simulator>(c);
    sim->start();
    return sim;
}

class GetChannelCipherSuites : public ::testing::Test {
protected:
    void SetUp() override { testkit::clear_trace(); }
    RMCPP_ChannelCipherSuites out = ciphertest::empty_list();
};

TEST_F(GetChannelCipherSuites, ListsTheSimulatorsSuitesAndLeavesNoSocketOpen)
{
    auto sim = simulator("127.0.5.11");
    const int descriptors = testkit::open_descriptors();
    IPMI_SessionParam p = param("127.0.5.11");
    const IPMI_SessionParam before = p;
    ASSERT_EQ(rmcpp_get_channel_cipher_suites(&p, nullptr, 0x0E, &out), 0) << testkit::log_text();
    EXPECT_EQ(suites_of(out), kSimulatorSuites);
    EXPECT_EQ(testkit::open_descriptors(), descriptors);
    EXPECT_EQ(std::memcmp(&p, &before, sizeof p), 0);  // nothing kept, no session
    const auto stats = sim->stats();
    EXPECT_EQ(stats.count(bmcsim::Kind::Ping), 1u);
    EXPECT_EQ(stats.count(bmcsim::Kind::Sessionless), 3u);
    EXPECT_EQ(stats.sessions_established, 0u);

    // A zeroed record of size 0 reads as no options; channel 1 by number.
    RMCPP_SessionOptions unsized{};
    out = ciphertest::empty_list();
    ASSERT_EQ(rmcpp_get_channel_cipher_suites(&p, &unsized, 0x01, &out), 0) << testkit::log_text();
    EXPECT_EQ(suites_of(out), kSimulatorSuites);
}

TEST_F(GetChannelCipherSuites, NoPingReachesABmcThatNeverAnswersIt)
{
    auto sim = simulator("127.0.5.11", 623, [](bmcsim::Config &c) { c.ping.reply.silent = true; });
    IPMI_SessionParam p = param("127.0.5.11");
    p.retry_count = 1;
    EXPECT_EQ(rmcpp_get_channel_cipher_suites(&p, nullptr, 0x0E, &out), RMCPP_ERR_PING);
    EXPECT_EQ(out.count, 0u);
    EXPECT_EQ(sim->stats().count(bmcsim::Kind::Sessionless), 0u);

    sim->clear_stats();
    const RMCPP_SessionOptions o = options(RMCPP_OPT_NO_PING);
    ASSERT_EQ(rmcpp_get_channel_cipher_suites(&p, &o, 0x0E, &out), 0) << testkit::log_text();
    EXPECT_EQ(suites_of(out), kSimulatorSuites);
    EXPECT_EQ(sim->stats().count(bmcsim::Kind::Ping), 0u);
}

TEST_F(GetChannelCipherSuites, HostNameAndPortReplaceTheRecordsAddress)
{
    auto sim = simulator("127.0.0.1", 6241, [](bmcsim::Config &c) { c.cipher_suites = {1, 3}; });
    IPMI_SessionParam p = param("127.0.5.14");  // nothing listens there
    RMCPP_SessionOptions o = options(RMCPP_OPT_KERNEL_PORT);
    o.host = "localhost";
    o.port = 6241;
    ASSERT_EQ(rmcpp_get_channel_cipher_suites(&p, &o, 0x0E, &out), 0) << testkit::log_text();
    EXPECT_EQ(suites_of(out), (std::vector<Suite>{{1, 1, 0, 0}, {3, 1, 1, 1}}));

    o.host = "no-such-host.invalid";
    EXPECT_EQ(rmcpp_get_channel_cipher_suites(&p, &o, 0x0E, &out), RMCPP_ERR_RESOLVE);
}

TEST_F(GetChannelCipherSuites, BadOptionsAreRefusedBeforeAnythingIsSent)
{
    auto sim = simulator("127.0.5.11");
    IPMI_SessionParam p = param("127.0.5.11");
    RMCPP_SessionOptions o = options(0x100);
    EXPECT_EQ(rmcpp_get_channel_cipher_suites(&p, &o, 0x0E, &out), RMCPP_ERR_INVALID);
    EXPECT_TRUE(testkit::logged("Unknown flag in session options.\n"));
    // A newer caller's record: unknown members set are refused, zero ones are not.
    struct Newer {
        RMCPP_SessionOptions known;
        uint32_t later;
    } newer{options(), 1};
    newer.known.size = sizeof newer;
    EXPECT_EQ(rmcpp_get_channel_cipher_suites(&p, &newer.known, 0x0E, &out), RMCPP_ERR_INVALID);
    EXPECT_TRUE(testkit::logged("Unknown member set in session options.\n"));
    EXPECT_EQ(out.count, 0xFFFFu);
    EXPECT_EQ(sim->stats().datagrams.size(), 0u);

    newer.later = 0;
    ASSERT_EQ(rmcpp_get_channel_cipher_suites(&p, &newer.known, 0x0E, &out), 0) << testkit::log_text();
    EXPECT_EQ(suites_of(out), kSimulatorSuites);
}

TEST_F(GetChannelCipherSuites, SmallerOutputRecordTakesTheFirstSuites)
{
    auto sim = simulator("127.0.5.11");
    IPMI_SessionParam p = param("127.0.5.11");
    out.size = offsetof(RMCPP_ChannelCipherSuites, suites) + 3 * sizeof(RMCPP_CipherSuite);
    EXPECT_EQ(rmcpp_get_channel_cipher_suites(&p, nullptr, 0x0E, &out), RMCPP_ERR_BUFFER);
    EXPECT_EQ(suites_of(out), (std::vector<Suite>{kSimulatorSuites.begin(), kSimulatorSuites.begin() + 3}));
    EXPECT_EQ(out.suites[3].id, 0);
}

TEST_F(GetChannelCipherSuites, RefusedChannelGivesTheCompletionCode)
{
    auto sim = simulator("127.0.5.11");
    IPMI_SessionParam p = param("127.0.5.11");
    EXPECT_EQ(rmcpp_get_channel_cipher_suites(&p, nullptr, 0x03, &out), RMCPP_ERR_COMPLETION);
    EXPECT_EQ(out.count, 0u);
}

TEST_F(GetChannelCipherSuites, NothingThereRunsOutOfAttempts)
{
    IPMI_SessionParam p = param("127.0.5.14");
    p.retry_count = 1;
    EXPECT_EQ(rmcpp_get_channel_cipher_suites(&p, nullptr, 0x0E, &out), RMCPP_ERR_PING);
    const RMCPP_SessionOptions o = options(RMCPP_OPT_NO_PING);
    const auto started = std::chrono::steady_clock::now();
    EXPECT_EQ(rmcpp_get_channel_cipher_suites(&p, &o, 0x0E, &out), RMCPP_ERR_RETRY_OVER);
    EXPECT_GE(std::chrono::steady_clock::now() - started, std::chrono::milliseconds(900));
}

TEST_F(GetChannelCipherSuites, IpmiSimListsWhatIpmitoolPrints)
{
    testkit::IpmiSimPeer peer("127.0.5.13", testkit::default_ipmi_sim_users());
    std::string printed;
    const auto listed = ciphertest::ipmitool_getciphers("127.0.5.13", "admin", "password", printed);
    ASSERT_GE(listed.size(), 4u) << printed;

    IPMI_SessionParam p = param("127.0.5.13");
    RMCPP_SessionOptions o = options();
    o.host = "127.0.5.13";
    ASSERT_EQ(rmcpp_get_channel_cipher_suites(&p, &o, 0x0E, &out), 0) << testkit::log_text();
    const auto ours = suites_of(out);
    // ipmitool reads at most four responses of records; what it prints matches.
    ASSERT_GE(ours.size(), listed.size()) << printed;
    EXPECT_EQ(std::vector<Suite>(ours.begin(), ours.begin() + static_cast<long>(listed.size())), listed) << printed;
    EXPECT_EQ(ours.size(), 15u);
}

}  // namespace
