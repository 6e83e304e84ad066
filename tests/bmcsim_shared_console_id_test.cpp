// Consoles that propose the same console session ID at the same time each
// get a session of their own: ipmitool always proposes the same ID, and two
// library processes started within the same two seconds do too. The
// simulator tells a resent Open Session from a new one by the console's
// address and port and the address it was sent to, not by the ID alone.
// Simulators on 127.0.0.136 (and 127.0.0.137 beside it).
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <future>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "bmcsim.h"
#include "bmcsim_clients.h"
#include "bmcsim_console.h"
#include "engine.h"
#include "loopback.h"
#include "rmcpp.h"
#include "run_program.h"
#include "trace_capture.h"

namespace {

using namespace std::chrono_literals;
using simtest::Bytes;

constexpr uint8_t kBmc = 136;
constexpr uint8_t kOtherBmcAddress = 137;
constexpr size_t kClients = 32;
constexpr auto kClientLimit = 60s;
constexpr int kLate = 300;  // ms before each establishment answer

// The console session ID every establishment of this program proposes.
std::atomic<uint32_t> g_console_id{0x5E55101D};

}  // namespace

// Replaces the library's session ID generator for this program, the way a
// host replaces putKivTrace: every library client below proposes the same
// console session ID. The simulator's log shows whether they did.
extern "C" uint32_t MakeSessionID(void) { return g_console_id.load(); }

namespace {

bmcsim::Config simulator_config()
{
    bmcsim::Config c;
    c.address = testkit::loopback_text(kBmc);
    c.users = {{"admin", "Secr3t-pw", 4, true}};
    c.standard_keys = true;  // what ipmitool expects
    c.max_sessions = 2 * kClients;
    return c;
}

// Console session IDs of every Open Session request the simulator received.
std::set<uint32_t> proposed_console_ids(const bmcsim::Stats &s)
{
    std::set<uint32_t> ids;
    for (const Bytes &d : s.of(bmcsim::Kind::OpenSession))
        if (d.size() >= 24) ids.insert(simtest::get_le32(d, 20));
    return ids;
}

std::string events(const bmcsim::Stats &s)
{
    std::string all;
    for (const auto &e : s.events) all += e + "\n";
    return all;
}

// A library client: establishes with cipher suite 3 from a port of its own,
// exchanges Get Device ID and closes. Empty when all went well, else what failed.
std::string library_client()
{
    IPMI_SessionParam p{};
    p.bmc_address = testkit::loopback(kBmc);
    p.user_name = "admin";
    p.user_password = "Secr3t-pw";
    p.privilege_level = 4;
    p.cipher_suite_id = 3;
    p.retry_count = 3;
    p.timeout_sec = 2;
    int r = IPMI_SetupSession(&p);
    if (r != 0) return "establishment failed with " + std::to_string(r);
    const IPMI_MsgHeader h = {0x06, 0x81, 0x01, 0, 1, 0x07, 0x20, 0};
    uint8_t request[16];
    int length = 0;
    r = MakeIPMIRequest(&h, nullptr, 0, request, sizeof request, &length);
    uint8_t response[256];
    uint32_t received = 0, released = 0;
    if (r == 0)
        r = IPMI_Message_IF(&p, request, static_cast<uint32_t>(length), response, sizeof response, &received, 0,
                            &released, 3, 2);
    std::string problem;
    if (r != 0) problem = "Get Device ID failed with " + std::to_string(r);
    else if (received < 8 || response[6] != 0x00 || response[7] != 0x20)
        problem = "Get Device ID answered wrongly (" + std::to_string(received) + " bytes)";
    if (released) return problem.empty() ? "the session was released" : problem;
    r = IPMI_CloseSession(&p);
    if (problem.empty() && r != 0) problem = "close failed with " + std::to_string(r);
    return problem;
}

// An ipmitool run of Get Device ID: empty when it printed the answer, else
// what went wrong.
std::string ipmitool_client()
{
    const auto r = testkit::run_program({"ipmitool", "-I", "lanplus", "-H", testkit::loopback_text(kBmc), "-U", "admin",
                                         "-P", "Secr3t-pw", "-C", "3", "-N", "2", "-R", "3", "raw", "6", "1"},
                                        kClientLimit);
    if (r.timed_out) return "ipmitool still running after the time limit";
    if (r.exit_code != 0 || r.out.find(" 20 01 02 15 02 bf") == std::string::npos)
        return "ipmitool exit " + std::to_string(r.exit_code) + ": " + simtest::output(r);
    return {};
}

class SharedConsoleId : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_FALSE(simtest::find_program("ipmitool").empty()) << "ipmitool is not installed (Debian package ipmitool)";
        testkit::clear_trace();
        IPMI_SetupStandardKeys(1);
        sim_.start();
    }
    void TearDown() override
    {
        sim_.stop();
        IPMI_SetupStandardKeys(0);
    }

    // Runs the clients at once, each on a thread of its own, and expects
    // every one to succeed with a session of its own, all proposing one
    // console session ID. The establishment answers come late, so each
    // establishment is under way while the others start; the library
    // clients start once ipmitool's Open Session has arrived, so theirs
    // come while its session is still being opened.
    void expect_all_succeed(size_t library_clients, size_t ipmitool_clients)
    {
        sim_.modify([](bmcsim::Config &c) {
            c.open_session.reply.delay_ms = c.rakp2.reply.delay_ms = c.rakp4.reply.delay_ms = kLate;
        });
        const bmcsim::Stats before = sim_.stats();
        std::vector<std::future<std::string>> runs;
        for (size_t i = 0; i < ipmitool_clients; ++i) runs.push_back(std::async(std::launch::async, ipmitool_client));
        if (ipmitool_clients > 0) {
            EXPECT_TRUE(sim_.wait_for(bmcsim::Kind::OpenSession, before.count(bmcsim::Kind::OpenSession) + 1, 20s));
        }
        for (size_t i = 0; i < library_clients; ++i) runs.push_back(std::async(std::launch::async, library_client));
        size_t succeeded = 0;
        for (size_t i = 0; i < runs.size(); ++i) {
            const std::string problem = runs[i].get();
            EXPECT_EQ(problem, "") << (i < ipmitool_clients ? "ipmitool " : "library client ") << i;
            succeeded += problem.empty();
        }
        EXPECT_EQ(succeeded, runs.size());
        const bmcsim::Stats s = sim_.stats();
        EXPECT_EQ(proposed_console_ids(s), std::set<uint32_t>{g_console_id.load()});
        EXPECT_EQ(s.sessions_established - before.sessions_established, runs.size()) << events(s);
        EXPECT_EQ(s.sessions_closed - before.sessions_closed, runs.size());
        EXPECT_TRUE(s.sessions.empty());
    }

    // The console session ID ipmitool proposes, from one run of its own.
    uint32_t ipmitool_console_id()
    {
        EXPECT_EQ(ipmitool_client(), "");
        const auto ids = proposed_console_ids(sim_.stats());
        EXPECT_EQ(ids.size(), 1u);
        return ids.empty() ? 0 : *ids.begin();
    }

    bmcsim::Simulator sim_{simulator_config()};
};

TEST_F(SharedConsoleId, IpmitoolAndThirtyOneLibraryClientsAtOnceAllSucceed)
{
    g_console_id = ipmitool_console_id();
    ASSERT_NE(g_console_id.load(), 0u);
    expect_all_succeed(kClients - 1, 1);
}

TEST_F(SharedConsoleId, ThirtyTwoIpmitoolRunsAtOnceAllSucceed)
{
    g_console_id = ipmitool_console_id();
    expect_all_succeed(0, kClients);
}

TEST_F(SharedConsoleId, ThirtyTwoLibraryClientsAtOnceAllSucceed)
{
    expect_all_succeed(kClients, 0);
}

// ------------------------------------------------------------ the rule itself

// Open Session requests handed straight to the simulator's engine.
class OpenSessionMatch : public ::testing::Test {
protected:
    OpenSessionMatch()
    {
        config_.users = {{"admin", "Secr3t-pw", 4, true}};
    }

    // The managed system session ID of the answer (0 when refused).
    uint32_t open(const bmcsim::detail::Peer &from, uint32_t console_id = 0xA0A2A3A4)
    {
        const auto o = engine_.handle(simtest::open_session_request(1, 4, console_id, 1, 1, 1), config_, from);
        if (o.out.size() != 1 || o.out[0].bytes.size() != 52 || o.out[0].bytes[17] != 0) return 0;
        return simtest::get_le32(o.out[0].bytes, 24);
    }

    bmcsim::Config config_;
    bmcsim::detail::Engine engine_{nullptr};
    const uint32_t console_ = testkit::loopback(10), bmc_ = testkit::loopback(kBmc),
                   other_bmc_ = testkit::loopback(kOtherBmcAddress);
};

TEST_F(OpenSessionMatch, AResentRequestKeepsItsSession)
{
    const uint32_t first = open({console_, 7001, bmc_});
    ASSERT_NE(first, 0u);
    EXPECT_EQ(open({console_, 7001, bmc_}), first);
    EXPECT_EQ(engine_.sessions().size(), 1u);
}

TEST_F(OpenSessionMatch, TheSameIdFromAnotherPortIsANewSession)
{
    const uint32_t first = open({console_, 7001, bmc_});
    const uint32_t second = open({console_, 7002, bmc_});
    ASSERT_NE(first, 0u);
    ASSERT_NE(second, 0u);
    EXPECT_NE(first, second);
    EXPECT_EQ(engine_.sessions().size(), 2u);
    EXPECT_EQ(open({console_, 7001, bmc_}), first);
    EXPECT_EQ(open({console_, 7002, bmc_}), second);
}

TEST_F(OpenSessionMatch, TheSameIdFromAnotherAddressIsANewSession)
{
    const uint32_t first = open({console_, 7001, bmc_});
    const uint32_t second = open({testkit::loopback(11), 7001, bmc_});
    ASSERT_NE(first, 0u);
    ASSERT_NE(second, 0u);
    EXPECT_NE(first, second);
}

TEST_F(OpenSessionMatch, TheSameIdSentToAnotherOfTheSimulatorsAddressesIsANewSession)
{
    const uint32_t first = open({console_, 7001, bmc_});
    const uint32_t second = open({console_, 7001, other_bmc_});
    ASSERT_NE(first, 0u);
    ASSERT_NE(second, 0u);
    EXPECT_NE(first, second);
    EXPECT_EQ(open({console_, 7001, other_bmc_}), second);
}

TEST_F(OpenSessionMatch, AnotherIdFromTheSamePortIsANewSession)
{
    const uint32_t first = open({console_, 7001, bmc_}, 1);
    const uint32_t second = open({console_, 7001, bmc_}, 2);
    ASSERT_NE(first, 0u);
    ASSERT_NE(second, 0u);
    EXPECT_NE(first, second);
}

TEST_F(OpenSessionMatch, EachNewConsoleTakesASlotOfTheTable)
{
    config_.max_sessions = 2;
    ASSERT_NE(open({console_, 7001, bmc_}), 0u);
    ASSERT_NE(open({console_, 7002, bmc_}), 0u);
    EXPECT_EQ(open({console_, 7003, bmc_}), 0u);
    EXPECT_NE(open({console_, 7001, bmc_}), 0u);  // a resend needs no new slot
}

TEST_F(OpenSessionMatch, AnAbandonedEstablishmentGivesItsSlotUpWhenTheTableIsFull)
{
    std::vector<std::string> lines;
    bmcsim::detail::Engine engine([&](const std::string &l) { lines.push_back(l); });
    config_.max_sessions = 2;
    config_.establishment_timeout_ms = 500;
    auto open_from = [&](uint16_t port) {
        const auto o = engine.handle(simtest::open_session_request(1, 4, 7, 1, 1, 1), config_, {console_, port, bmc_});
        return o.out.size() == 1 && o.out[0].bytes.size() == 52 && o.out[0].bytes[17] == 0;
    };
    ASSERT_TRUE(open_from(7001));
    ASSERT_TRUE(open_from(7002));
    EXPECT_FALSE(open_from(7003));  // not idle long enough yet
    std::this_thread::sleep_for(600ms);
    EXPECT_TRUE(open_from(7003));
    EXPECT_EQ(engine.sessions().size(), 2u);
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [](const std::string &l) { return l.find("abandoned: its slot is taken back") != std::string::npos; }),
              1);
}

TEST(SharedConsoleIdOverUdp, AnOpenSessionIsNeverTakenBackForANewOne)
{
    bmcsim::Config c = simulator_config();
    c.address = testkit::loopback_text(kOtherBmcAddress);
    c.standard_keys = false;
    c.max_sessions = 1;
    c.establishment_timeout_ms = 0;
    bmcsim::Simulator sim(c);
    sim.start();
    simtest::Console first(c.address), second(c.address);
    ASSERT_TRUE(simtest::establish(first, 3, "admin", "Secr3t-pw"));
    const Bytes refused = second.exchange(simtest::open_session_request(1, 4, 0xC0DE0001, 1, 1, 1));
    ASSERT_GE(refused.size(), 18u);
    EXPECT_EQ(refused[17], 0x01);  // no session slot available
    EXPECT_EQ(sim.stats().sessions.size(), 1u);
}

// Over UDP: two consoles with the same ID, their establishments interleaved.
TEST(SharedConsoleIdOverUdp, TwoInterleavedEstablishmentsKeepTheirOwnSessions)
{
    bmcsim::Config c = simulator_config();
    c.address = testkit::loopback_text(kOtherBmcAddress);
    c.standard_keys = false;
    bmcsim::Simulator sim(c);
    sim.start();
    simtest::Console a(c.address), b(c.address);
    constexpr uint32_t kId = 0xA0A2A3A4;
    const Bytes open = simtest::open_session_request(1, 4, kId, 1, 1, 1);
    const Bytes opened_a = a.exchange(open), opened_b = b.exchange(open);
    ASSERT_EQ(opened_a.size(), 52u);
    ASSERT_EQ(opened_b.size(), 52u);
    EXPECT_NE(simtest::get_le32(opened_a, 24), simtest::get_le32(opened_b, 24));
    // A resend from each console gets that console's session again.
    EXPECT_EQ(a.exchange(open), opened_a);
    EXPECT_EQ(b.exchange(open), opened_b);
}

}  // namespace
