// One simulator serving a fleet: every address a BMC of its own, a flood on
// one address leaving another's session served, and the address ranges
// --address takes (loopback 127.0.19.x, and 127.2.x.x for large sets).
#include <sys/resource.h>

#include <atomic>
#include <chrono>
#include <set>
#include <stdexcept>
#include <thread>

#include <gtest/gtest.h>

#include "bmcsim.h"
#include "bmcsim_console.h"
#include "run_program.h"

namespace {

using simtest::Bytes;
using simtest::Console;
using simtest::ipmi_request;
using simtest::ipmi_response;

bmcsim::Config fleet(const std::string &list)
{
    std::vector<std::string> all = bmcsim::expand_addresses(list);
    bmcsim::Config c;
    c.address = all.front();
    c.extra_addresses.assign(all.begin() + 1, all.end());
    c.users = {{"admin", "secret", 4, true}};
    return c;
}

// An established suite 3 session and a way to ask it things.
struct Session {
    Session(Console &console, uint32_t console_id = 0xC0DE0001) : console(console)
    {
        auto established = simtest::establish(console, 3, "admin", "secret", 4, false, {}, console_id);
        if (!established) throw std::runtime_error("establishment failed");
        e = *established;
    }
    // The clear response, or empty when none came.
    Bytes ask(const Bytes &message)
    {
        Bytes answer = console.exchange(simtest::session_packet(e, simtest::suite_bits(3), ++seq, message));
        if (answer.empty()) return {};
        return simtest::open_packet(e, answer).message;
    }
    Console &console;
    uint32_t seq = 0;
    simtest::Established e;
};

const Bytes kGetDeviceId = ipmi_request(0x06, 0x01);

bool is_device_id(const Bytes &message)
{
    return message.size() == 23 && message == ipmi_response(0x06, 0x01, 0x00, Bytes(message.begin() + 7, message.end() - 1));
}

// ------------------------------------------------------------------ address lists

TEST(BmcsimAddressList, TakesListsRangesAndHostranges)
{
    using V = std::vector<std::string>;
    EXPECT_EQ(bmcsim::expand_addresses("127.0.19.1"), V{"127.0.19.1"});
    EXPECT_EQ(bmcsim::expand_addresses("127.0.19.1,::1,[::1]"), (V{"127.0.19.1", "::1", "[::1]"}));
    EXPECT_EQ(bmcsim::expand_addresses("127.2.0.254-127.2.1.1"),
              (V{"127.2.0.254", "127.2.0.255", "127.2.1.0", "127.2.1.1"}));
    EXPECT_EQ(bmcsim::expand_addresses("127.2.0.9-127.2.0.9"), V{"127.2.0.9"});
    EXPECT_EQ(bmcsim::expand_addresses("127.2.[0-1].[1-2]"),
              (V{"127.2.0.1", "127.2.0.2", "127.2.1.1", "127.2.1.2"}));
    EXPECT_EQ(bmcsim::expand_addresses("127.0.19.[1-3,7],127.0.19.9"),
              (V{"127.0.19.1", "127.0.19.2", "127.0.19.3", "127.0.19.7", "127.0.19.9"}));
    EXPECT_EQ(bmcsim::expand_addresses("bmc[08-10]"), (V{"bmc08", "bmc09", "bmc10"}));
}

TEST(BmcsimAddressList, TenThousandAddressesFitInOneArgument)
{
    const std::vector<std::string> all = bmcsim::expand_addresses("127.1.0.1-127.1.39.16");
    ASSERT_EQ(all.size(), 10000u);
    EXPECT_EQ(all.front(), "127.1.0.1");
    EXPECT_EQ(all[254], "127.1.0.255");
    EXPECT_EQ(all[255], "127.1.1.0");
    EXPECT_EQ(all.back(), "127.1.39.16");
    EXPECT_EQ(std::set<std::string>(all.begin(), all.end()).size(), all.size());
}

TEST(BmcsimAddressList, RefusesBadListsNamingTheFault)
{
    auto fault = [](const std::string &list) {
        try {
            bmcsim::expand_addresses(list);
        } catch (const std::invalid_argument &e) {
            return std::string(e.what());
        }
        return std::string("(accepted)");
    };
    EXPECT_EQ(fault("127.2.0.9-127.2.0.1"), "range '127.2.0.9-127.2.0.1' ends before it starts");
    EXPECT_EQ(fault("127.2.0.1-banana"),
              "'127.2.0.1-banana' is not a range of IPv4 addresses (FIRST-LAST, e.g. 127.1.0.1-127.1.39.16)");
    EXPECT_EQ(fault("127.2.0.1-127.2.0.300"),
              "'127.2.0.1-127.2.0.300' is not a range of IPv4 addresses (FIRST-LAST, e.g. 127.1.0.1-127.1.39.16)");
    EXPECT_EQ(fault("127.2.0.[1-3"), "bad hostrange 127.2.0.[1-3: '[' is not closed");
    EXPECT_EQ(fault("127.2.0.1-3]"), "']' without '[' in '127.2.0.1-3]'");
    EXPECT_EQ(fault("127.2.0.[3-1]"), "bad hostrange 127.2.0.[3-1]: 3-1 counts down; write 1-3");
    EXPECT_EQ(fault("127.2.0.[a-b]"), "bad hostrange 127.2.0.[a-b]: 'a' is not a number");
    EXPECT_EQ(fault("127.2.0.[]"), "bad hostrange 127.2.0.[]: empty brackets");
    EXPECT_EQ(fault("127.0.19.1,,127.0.19.2"), "empty address in '127.0.19.1,,127.0.19.2'");
    EXPECT_EQ(fault(""), "empty address in ''");
    EXPECT_EQ(fault("127.0.0.0-127.1.0.0"), "range '127.0.0.0-127.1.0.0' holds more than 65536 addresses");
    EXPECT_EQ(fault("127.2.[0-255].[0-255],127.3.0.1"), "more than 65536 addresses in one simulator");
}

// ------------------------------------------------------------------ one BMC per address

TEST(BmcsimFleet, EveryAddressKeepsItsOwnSessionsAndSessionIds)
{
    // A thousand sessions at once: far more than one BMC's table holds.
    bmcsim::Config c = fleet("127.2.0.1-127.2.3.232");
    ASSERT_EQ(c.extra_addresses.size(), 999u);
    ASSERT_LT(c.max_sessions, 1000);
    bmcsim::Simulator sim(c);
    sim.start();
    std::vector<std::string> all = bmcsim::expand_addresses("127.2.0.1-127.2.3.232");
    size_t answered = 0;
    std::set<uint32_t> ids;
    for (const std::string &address : all) {
        Console console(address);
        Session s(console);
        ids.insert(s.e.bmc_id);
        if (is_device_id(s.ask(kGetDeviceId))) ++answered;
    }
    EXPECT_EQ(answered, all.size());
    // Each BMC numbers its sessions itself, so all start alike.
    EXPECT_EQ(ids.size(), 1u);
    const bmcsim::Stats st = sim.stats();
    EXPECT_EQ(st.sessions_established, all.size());
    EXPECT_EQ(st.sessions.size(), all.size());
    EXPECT_EQ(st.sessions_closed, 0u);
}

TEST(BmcsimFleet, ASessionBelongsToTheAddressThatOpenedIt)
{
    bmcsim::Simulator sim(fleet("127.0.19.1,127.0.19.2"));
    sim.start();
    Console first("127.0.19.1"), second("127.0.19.2");
    Session a(first);
    // The same packet sent to the other BMC: it knows that session ID only
    // as its own (when it has one), with other keys, so it stays unanswered.
    Session b(second);
    ASSERT_EQ(a.e.bmc_id, b.e.bmc_id);
    const size_t rejected_before = sim.stats().rejected_packets;
    Bytes crossed = simtest::session_packet(a.e, simtest::suite_bits(3), 1, kGetDeviceId);
    EXPECT_TRUE(second.exchange(crossed, 300).empty());
    EXPECT_EQ(sim.stats().rejected_packets, rejected_before + 1);
    EXPECT_TRUE(is_device_id(a.ask(kGetDeviceId)));
    EXPECT_TRUE(is_device_id(b.ask(kGetDeviceId)));
    // Closing one leaves the other open.
    Bytes close_a = Bytes{0x00, 0x00, 0x00, 0x00};
    for (size_t i = 0; i < 4; ++i) close_a[i] = static_cast<uint8_t>(a.e.bmc_id >> (8 * i));
    EXPECT_EQ(a.ask(ipmi_request(0x06, 0x3C, close_a)), ipmi_response(0x06, 0x3C, 0x00));
    EXPECT_TRUE(is_device_id(b.ask(kGetDeviceId)));
    EXPECT_EQ(sim.stats().sessions.size(), 1u);
}

TEST(BmcsimFleet, AFloodOnOneAddressLeavesAnotherAddressServed)
{
    bmcsim::Config c = fleet("127.0.19.3,127.0.19.4");
    bmcsim::Simulator sim(c);
    sim.start();
    Console calm("127.0.19.3");
    Session s(calm);

    std::atomic<bool> done{false};
    std::atomic<size_t> flooded{0};
    std::thread flood([&] {
        Console loud("127.0.19.4");
        const Bytes ping{0x06, 0x00, 0xFF, 0x06, 0x00, 0x00, 0x11, 0xBE, 0x80, 0x00, 0x00, 0x00};
        try {
            while (!done.load()) {
                loud.send(ping);
                ++flooded;
            }
        } catch (const std::exception &) {
            // A refused send ends the flood; the count says how far it got.
        }
    });
    size_t answered = 0;
    const size_t kAsks = 300;
    for (size_t i = 0; i < kAsks; ++i)
        if (is_device_id(s.ask(kGetDeviceId))) ++answered;
    done = true;
    flood.join();
    EXPECT_EQ(answered, kAsks);
    EXPECT_GT(flooded.load(), kAsks);
    // The flood was served too, not just skipped.
    EXPECT_GT(sim.stats().count(bmcsim::Kind::Ping), kAsks);
}

TEST(BmcsimFleet, AnAnswerHeldBackOnOneAddressDelaysNoOther)
{
    // Every open session answer waits 400 ms; session packets are not held.
    bmcsim::Config c = fleet("127.0.19.5,127.0.19.6");
    bmcsim::Simulator sim(c);
    sim.start();
    Console calm("127.0.19.5");
    Session s(calm);
    sim.modify([](bmcsim::Config &k) { k.open_session.reply.delay_ms = 400; });
    Console slow("127.0.19.6");
    slow.send(simtest::open_session_request(1, 4, 0xC0DE0009, 1, 1, 1));
    const auto before = std::chrono::steady_clock::now();
    EXPECT_TRUE(is_device_id(s.ask(kGetDeviceId)));
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(400));
    EXPECT_TRUE(slow.receive(2000).has_value());
}

TEST(BmcsimFleet, ServerThreadsShareTheAddresses)
{
    bmcsim::Config c = fleet("127.0.19.[10-17]");
    c.server_threads = 3;
    bmcsim::Simulator sim(c);
    sim.start();
    size_t answered = 0;
    for (int round = 0; round < 2; ++round)
        for (const std::string &address : bmcsim::expand_addresses("127.0.19.[10-17]")) {
            Console console(address);
            Session s(console, 0xC0DE0100 + static_cast<uint32_t>(round));
            if (is_device_id(s.ask(kGetDeviceId))) ++answered;
        }
    EXPECT_EQ(answered, 16u);
    EXPECT_EQ(sim.stats().sessions_established, 16u);
}

// ------------------------------------------------------------------ the program

TEST(BmcsimFleetProgram, ServesTenThousandAddressesGivenAsOneRange)
{
    rlimit r{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &r), 0);
    if (r.rlim_max != RLIM_INFINITY && r.rlim_max < 10100)
        GTEST_SKIP() << "the descriptor limit (hard " << r.rlim_max << ") is below 10,100";
    bmcsim::ChildProcess sim({"--address", "127.2.100.1-127.2.139.16", "--user", "admin:secret:4", "--quiet"},
                             std::chrono::seconds(30));
    EXPECT_TRUE(sim.wait_for_output("listening on 127.2.139.16:623", std::chrono::seconds(10)));
    for (const char *address : {"127.2.100.1", "127.2.119.200", "127.2.139.16"}) {
        Console console(address);
        Session s(console);
        EXPECT_TRUE(is_device_id(s.ask(kGetDeviceId))) << address;
    }
    // --quiet leaves out the session lines.
    for (const std::string &line : sim.output()) EXPECT_EQ(line.find("established"), std::string::npos) << line;
}

TEST(BmcsimFleetProgram, ABadRangeIsAUsageError)
{
    const testkit::ProgramResult r = testkit::run_program(
        {bmcsim::ChildProcess::default_program(), "--address", "127.0.19.20-127.0.19.10"}, std::chrono::seconds(10));
    EXPECT_FALSE(r.timed_out);
    EXPECT_EQ(r.exit_code, 2);
    EXPECT_NE(r.err.find("--address: range '127.0.19.20-127.0.19.10' ends before it starts"), std::string::npos)
        << r.err;
}

TEST(BmcsimFleetProgram, HelpDescribesTheRanges)
{
    const testkit::ProgramResult r =
        testkit::run_program({bmcsim::ChildProcess::default_program(), "--help"}, std::chrono::seconds(10));
    EXPECT_EQ(r.exit_code, 0);
    EXPECT_NE(r.out.find("IPv4 range FIRST-LAST (127.1.0.1-127.1.39.16)"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("--threads N"), std::string::npos);
}

}  // namespace
