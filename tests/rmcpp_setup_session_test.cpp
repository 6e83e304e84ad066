// rmcpp_setup_session against the BMC simulator: a zeroed options record
// sets up the session IPMI_SetupSession would, and each option does what it
// says. The session it hands out is used and closed with the usual calls.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "bmcsim.h"
#include "rmcpp.h"
#include "simulator_login.h"
#include "trace_capture.h"

namespace {

// 127.0.6.last, host order, and as text.
uint32_t address(uint8_t last) { return (127u << 24) | (6u << 8) | last; }
std::string address_text(uint8_t last) { return "127.0.6." + std::to_string(last); }

IPMI_SessionParam login(uint8_t last, int suite)
{
    IPMI_SessionParam p = testkit::simulator_login(0, suite, 2, 1);
    p.bmc_address = address(last);
    return p;
}

RMCPP_SessionOptions options(uint32_t flags = 0)
{
    RMCPP_SessionOptions o;
    std::memset(&o, 0, sizeof o);
    o.size = sizeof o;
    o.flags = flags;
    return o;
}

std::unique_ptr<bmcsim::Simulator> simulator(uint8_t last, void (*adjust)(bmcsim::Config &) = nullptr)
{
    bmcsim::Config c;
    c.address = address_text(last);
    c.users = {{"admin", "secret", 4, true}};
    c.max_sessions = 128;
    if (adjust) adjust(c);
    auto sim = std::make_unique<bmcsim::Simulator>(c);
    sim->start();
    return sim;
}

// Get Device ID on the session, checked against the simulator's identity.
int get_device_id(IPMI_SessionParam &p)
{
    const IPMI_MsgHeader h = {6, 0x81, 0x01, 0, 5, 7, 0x20, 0};
    uint8_t request[16];
    int request_length = 0;
    MakeIPMIRequest(&h, nullptr, 0, request, sizeof request, &request_length);
    uint8_t response[64] = {};
    uint32_t length = 0, released = 0;
    const int r = IPMI_Message_IF(&p, request, static_cast<uint32_t>(request_length), response, sizeof response,
                                  &length, 0, &released, 2, 1);
    if (r != 0) return r;
    const bmcsim::DeviceIdentity id;
    // rsAddr netFn cs rqAddr seq cmd cc device-ID revision ...
    if (length < 9 || response[6] != 0 || response[7] != id.device_id || response[8] != id.device_revision)
        return -100;
    return 0;
}

uint16_t local_port(const RMCPp_Session *s)
{
    sockaddr_storage a{};
    socklen_t n = sizeof a;
    getsockname(s->socket_fd, reinterpret_cast<sockaddr *>(&a), &n);
    return ntohs(reinterpret_cast<const sockaddr_in &>(a).sin_port);
}

TEST(RmcppSetupSession, NullOrZeroedOptionsSetUpWhatIpmiSetupSessionDoes)
{
    auto sim = simulator(1);
    for (int suite = 0; suite <= 3; ++suite) {
        for (int zeroed = 0; zeroed < 2; ++zeroed) {
            SCOPED_TRACE("suite " + std::to_string(suite) + (zeroed ? " zeroed record" : " null record"));
            sim->clear_stats();
            IPMI_SessionParam p = login(1, suite);
            RMCPP_SessionOptions zero;
            std::memset(&zero, 0, sizeof zero);
            ASSERT_EQ(rmcpp_setup_session(&p, zeroed ? &zero : nullptr), 0);
            ASSERT_NE(p.session, nullptr);
            EXPECT_EQ(sim->stats().count(bmcsim::Kind::Ping), 1u);
            const uint16_t port = local_port(p.session);
            EXPECT_GE(port, 7001);
            EXPECT_LE(port, 7099);
            EXPECT_EQ(p.granted_privilege, 4u);
            EXPECT_EQ(get_device_id(p), 0);
            EXPECT_EQ(IPMI_CloseSession(&p), 0);
            EXPECT_EQ(p.session, nullptr);
        }
    }
}

TEST(RmcppSetupSession, RecordOfAnotherVersion)
{
    auto sim = simulator(2);
    // A newer caller's longer record: members this library does not know
    // are zero, so it is obeyed.
    struct Longer {
        RMCPP_SessionOptions known;
        uint64_t unknown;
    } longer;
    std::memset(&longer, 0, sizeof longer);
    longer.known.size = sizeof longer;
    longer.known.flags = RMCPP_OPT_NO_PING;
    IPMI_SessionParam p = login(2, 3);
    ASSERT_EQ(rmcpp_setup_session(&p, &longer.known), 0);
    EXPECT_EQ(sim->stats().count(bmcsim::Kind::Ping), 0u);
    EXPECT_EQ(IPMI_CloseSession(&p), 0);

    // One it does not know is set: refused, not half obeyed.
    longer.unknown = 1;
    testkit::clear_trace();
    p = login(2, 3);
    EXPECT_EQ(rmcpp_setup_session(&p, &longer.known), RMCPP_ERR_INVALID);
    EXPECT_TRUE(testkit::logged("Unknown member set in session options.\n"));

    // An older caller's record ending before `flags`: the rest counts as 0,
    // so the ping is sent even though the bytes beyond say otherwise.
    sim->clear_stats();
    RMCPP_SessionOptions older = options(RMCPP_OPT_NO_PING);
    older.size = sizeof older.size;
    p = login(2, 3);
    ASSERT_EQ(rmcpp_setup_session(&p, &older), 0);
    EXPECT_EQ(sim->stats().count(bmcsim::Kind::Ping), 1u);
    EXPECT_EQ(IPMI_CloseSession(&p), 0);

    // Size 0 is the zeroed record whatever the rest holds.
    sim->clear_stats();
    RMCPP_SessionOptions unsized = options(RMCPP_OPT_NO_PING);
    unsized.size = 0;
    p = login(2, 3);
    ASSERT_EQ(rmcpp_setup_session(&p, &unsized), 0);
    EXPECT_EQ(sim->stats().count(bmcsim::Kind::Ping), 1u);
    EXPECT_EQ(IPMI_CloseSession(&p), 0);
}

TEST(RmcppSetupSession, NoPingReachesABmcThatNeverAnswersIt)
{
    auto sim = simulator(3, [](bmcsim::Config &c) { c.ping.reply.silent = true; });
    IPMI_SessionParam p = login(3, 3);
    EXPECT_EQ(IPMI_SetupSession(&p), RMCPP_ERR_PING);
    p = login(3, 3);
    EXPECT_EQ(rmcpp_setup_session(&p, nullptr), RMCPP_ERR_PING);

    sim->clear_stats();
    p = login(3, 3);
    const RMCPP_SessionOptions o = options(RMCPP_OPT_NO_PING);
    ASSERT_EQ(rmcpp_setup_session(&p, &o), 0);
    EXPECT_EQ(sim->stats().count(bmcsim::Kind::Ping), 0u);
    EXPECT_EQ(get_device_id(p), 0);
    EXPECT_EQ(IPMI_CloseSession(&p), 0);
}

TEST(RmcppSetupSession, HostAndPortReplaceTheRecordsAddress)
{
    auto sim = simulator(4, [](bmcsim::Config &c) { c.port = 6230; });
    for (const std::string &host : {address_text(4), "[" + address_text(4) + "]"}) {
        SCOPED_TRACE(host);
        IPMI_SessionParam p = login(99, 3);  // nothing listens there
        RMCPP_SessionOptions o = options();
        o.host = host.c_str();
        o.port = 6230;
        ASSERT_EQ(rmcpp_setup_session(&p, &o), 0);
        EXPECT_EQ(get_device_id(p), 0);
        EXPECT_EQ(IPMI_CloseSession(&p), 0);
    }
}

TEST(RmcppSetupSession, KernelChosenPortsLiftTheNinetyNineSessionLimit)
{
    auto sim = simulator(5);
    constexpr int kSessions = 110;
    std::vector<IPMI_SessionParam> old(kSessions);
    int bound = 0, bind_failures = 0;
    for (auto &p : old) {
        p = login(5, 0);
        const int r = IPMI_SetupSession(&p);
        bound += r == 0;
        bind_failures += r == RMCPP_ERR_BIND;
    }
    // Other programs may hold some of 7001..7099; never more than 99 fit.
    EXPECT_LE(bound, 99);
    EXPECT_EQ(bound + bind_failures, kSessions);
    for (auto &p : old)
        if (p.session) IPMI_CloseSession(&p);

    std::vector<IPMI_SessionParam> sessions(kSessions);
    const RMCPP_SessionOptions o = options(RMCPP_OPT_KERNEL_PORT);
    for (auto &p : sessions) {
        p = login(5, 0);
        ASSERT_EQ(rmcpp_setup_session(&p, &o), 0);
        const uint16_t port = local_port(p.session);
        EXPECT_TRUE(port < 7001 || port > 7099) << port;
    }
    for (auto &p : sessions) {
        EXPECT_EQ(get_device_id(p), 0);
        EXPECT_EQ(IPMI_CloseSession(&p), 0);
    }
}

TEST(RmcppSetupSession, KeyModeIsTheSessionsOwn)
{
    struct Case {
        bool simulator_standard;
        uint8_t global;
        uint8_t key_mode;
        bool exchanges;
    };
    const Case cases[] = {
        {true, 0, RMCPP_KEYS_STANDARD, true},  {true, 0, RMCPP_KEYS_GLOBAL, false},
        {true, 1, RMCPP_KEYS_GLOBAL, true},    {false, 1, RMCPP_KEYS_LIBRARY, true},
        {false, 0, RMCPP_KEYS_STANDARD, false},
    };
    for (const Case &c : cases) {
        for (int suite : {2, 3}) {
            SCOPED_TRACE("simulator standard " + std::to_string(c.simulator_standard) + ", global " +
                         std::to_string(c.global) + ", key mode " + std::to_string(c.key_mode) + ", suite " +
                         std::to_string(suite));
            bmcsim::Config conf;
            conf.address = address_text(6);
            conf.users = {{"admin", "secret", 4, true}};
            conf.standard_keys = c.simulator_standard;
            bmcsim::Simulator sim(conf);
            sim.start();
            IPMI_SetupStandardKeys(c.global);
            IPMI_SessionParam p = login(6, suite);
            RMCPP_SessionOptions o = options();
            o.key_mode = c.key_mode;
            ASSERT_EQ(rmcpp_setup_session(&p, &o), 0);
            IPMI_SetupStandardKeys(0);
            EXPECT_EQ(get_device_id(p) == 0, c.exchanges);
            if (p.session) IPMI_CloseSession(&p);
            sim.stop();
        }
    }
}

// Each answer of the phase is first sent wrong, then right: the strict
// wait drops the wrong one and takes the right one; without it the wrong
// one ends the establishment.
struct StrictCase {
    const char *name;
    void (*spoil)(bmcsim::Config &);
};

class StrictPeer : public ::testing::TestWithParam<StrictCase> {};

TEST_P(StrictPeer, OneBadDatagramCannotAbortTheSetup)
{
    auto sim = simulator(7, GetParam().spoil);
    for (int suite : {1, 3}) {
        SCOPED_TRACE(suite);
        IPMI_SessionParam p = login(7, suite);
        EXPECT_NE(IPMI_SetupSession(&p), 0);
        p = login(7, suite);
        EXPECT_NE(rmcpp_setup_session(&p, nullptr), 0);

        p = login(7, suite);
        const RMCPP_SessionOptions o = options(RMCPP_OPT_STRICT_PEER);
        ASSERT_EQ(rmcpp_setup_session(&p, &o), 0);
        EXPECT_EQ(get_device_id(p), 0);
        EXPECT_EQ(IPMI_CloseSession(&p), 0);
    }
}

void wrong_then_right(bmcsim::EstablishmentBehaviour &b, bmcsim::EstFault fault)
{
    b.fault = fault;
    b.reply.then_correct = true;
}

INSTANTIATE_TEST_SUITE_P(
    Phases, StrictPeer,
    ::testing::Values(
        StrictCase{"OpenSessionTag", [](bmcsim::Config &c) { wrong_then_right(c.open_session, bmcsim::EstFault::Tag); }},
        StrictCase{"OpenSessionStatus",
                   [](bmcsim::Config &c) { wrong_then_right(c.open_session, bmcsim::EstFault::Status); }},
        StrictCase{"OpenSessionIntegrityAlgorithm", [](bmcsim::Config &c) {
                       wrong_then_right(c.open_session, bmcsim::EstFault::IntegrityAlgorithm);
                       c.open_session.value = 2;
                   }},
        StrictCase{"Rakp2ConsoleId",
                   [](bmcsim::Config &c) { wrong_then_right(c.rakp2, bmcsim::EstFault::ConsoleSessionId); }},
        StrictCase{"Rakp2Length", [](bmcsim::Config &c) {
                       wrong_then_right(c.rakp2, bmcsim::EstFault::PayloadLength);
                       c.rakp2.value = 59;
                   }},
        StrictCase{"Rakp2KeyExchangeCode",
                   [](bmcsim::Config &c) { wrong_then_right(c.rakp2, bmcsim::EstFault::KeyExchangeCode); }},
        StrictCase{"Rakp4Status", [](bmcsim::Config &c) { wrong_then_right(c.rakp4, bmcsim::EstFault::Status); }},
        StrictCase{"Rakp4IntegrityCheckValue",
                   [](bmcsim::Config &c) { wrong_then_right(c.rakp4, bmcsim::EstFault::IntegrityCheckValue); }}),
    [](const ::testing::TestParamInfo<StrictCase> &i) { return std::string(i.param.name); });

TEST(RmcppSetupSession, StrictPeerStillReportsARealRefusal)
{
    // Every RAKP 2 carries status 0x0D (unauthorized name): the BMC means it.
    auto sim = simulator(8, [](bmcsim::Config &c) {
        c.rakp2.fault = bmcsim::EstFault::Status;
        c.rakp2.value = 0x0D;
    });
    IPMI_SessionParam p = login(8, 3);
    p.retry_count = 5;
    const int lenient = IPMI_SetupSession(&p);
    EXPECT_EQ(lenient, RMCPP_ERR_STATUS);

    sim->clear_stats();
    testkit::clear_trace();
    p = login(8, 3);
    p.retry_count = 5;
    const RMCPP_SessionOptions o = options(RMCPP_OPT_STRICT_PEER);
    EXPECT_EQ(rmcpp_setup_session(&p, &o), lenient);
    // Taken once it came a second time, without using up the five attempts;
    // the one fresh establishment draws it twice again.
    EXPECT_EQ(sim->stats().count(bmcsim::Kind::Rakp1), 4u);
    EXPECT_EQ(sim->stats().count(bmcsim::Kind::OpenSession), 2u);
    EXPECT_TRUE(testkit::logged("The same refusal came again; taking it.\n"));
}

TEST(RmcppSetupSession, StrictPeerStartsAgainWhenAnOpenSessionResponseWasSpoiledUnseen)
{
    // The first Open Session response names another managed system session
    // ID: no check can see it, and every RAKP 1 then goes to a session the
    // BMC does not have.
    const auto spoil = [](bmcsim::Config &c) {
        c.open_session.fault = bmcsim::EstFault::PayloadByte;
        c.open_session.index = 8;
        c.open_session.value = 0x5A;
        c.open_session.reply.faulty_answers = 1;
    };
    {
        auto sim = simulator(9, spoil);
        IPMI_SessionParam p = login(9, 3);
        EXPECT_NE(IPMI_SetupSession(&p), 0);
    }
    auto sim = simulator(9, spoil);
    testkit::clear_trace();
    IPMI_SessionParam p = login(9, 3);
    const RMCPP_SessionOptions o = options(RMCPP_OPT_STRICT_PEER);
    ASSERT_EQ(rmcpp_setup_session(&p, &o), 0) << testkit::log_text();
    EXPECT_NE(testkit::log_text().find("starting again from Open Session"), std::string::npos);
    EXPECT_EQ(sim->stats().count(bmcsim::Kind::OpenSession), 2u);
    EXPECT_EQ(get_device_id(p), 0);
    EXPECT_EQ(IPMI_CloseSession(&p), 0);
}

}  // namespace
