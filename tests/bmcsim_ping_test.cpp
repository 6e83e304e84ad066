// The simulator's presence pong and its faults, checked byte for byte with a
// plain UDP socket (loopback 127.0.0.40).
#include <sys/wait.h>

#include <cstdio>
#include <stdexcept>

#include <gtest/gtest.h>

#include "bmcsim.h"
#include "bmcsim_console.h"

namespace {

using bmcsim::Bytes;
using bmcsim::Kind;
using bmcsim::PongFault;
using namespace std::chrono_literals;

constexpr const char *kAddress = "127.0.0.40";

using simtest::Console;

Bytes ping(uint8_t tag) { return {0x06, 0x00, 0xFF, 0x06, 0x00, 0x00, 0x11, 0xBE, 0x80, tag, 0x00, 0x00}; }

Bytes pong(uint8_t tag)
{
    return {0x06, 0x00, 0xFF, 0x06, 0x00, 0x00, 0x11, 0xBE, 0x40, tag, 0x00, 0x10, 0x00, 0x00,
            0x11, 0xBE, 0x00, 0x00, 0x00, 0x00, 0x81, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00};
}

bmcsim::Config base()
{
    bmcsim::Config c;
    c.address = kAddress;
    return c;
}

struct Running {
    explicit Running(bmcsim::Config c) : sim(std::move(c)) { sim.start(); }
    bmcsim::Simulator sim;
};

TEST(BmcsimPing, AnswersWithThe28BytePongCarryingThePingsTag)
{
    Running r(base());
    Console console(kAddress);
    console.send(ping(0x01));
    auto got = console.receive(1000);
    ASSERT_TRUE(got);
    EXPECT_EQ(*got, pong(0x01));
    console.send(ping(0x7A));
    got = console.receive(1000);
    ASSERT_TRUE(got);
    EXPECT_EQ(*got, pong(0x7A));
    EXPECT_EQ(got->size(), 28u);
}

TEST(BmcsimPing, RecordsEachPingWithItsBytesAndTime)
{
    Running r(base());
    Console console(kAddress);
    auto before = bmcsim::Clock::now();
    console.send(ping(0x01));
    ASSERT_TRUE(console.receive(1000));
    console.send(ping(0x02));
    ASSERT_TRUE(console.receive(1000));
    auto stats = r.sim.stats();
    EXPECT_EQ(stats.count(Kind::Ping), 2u);
    ASSERT_EQ(stats.of(Kind::Ping).size(), 2u);
    EXPECT_EQ(stats.of(Kind::Ping)[0], ping(0x01));
    EXPECT_EQ(stats.of(Kind::Ping)[1], ping(0x02));
    auto times = stats.times(Kind::Ping);
    ASSERT_EQ(times.size(), 2u);
    EXPECT_GE(times[0], before);
    EXPECT_LE(times[0], times[1]);
    ASSERT_EQ(stats.sent.size(), 2u);
    EXPECT_EQ(stats.sent[1].bytes, pong(0x02));
    EXPECT_EQ(stats.sent[1].kind, Kind::Ping);
}

TEST(BmcsimPing, IgnoresWhatIsNotAPing)
{
    Running r(base());
    Console console(kAddress);
    Bytes not_ping = ping(0x01);
    not_ping[8] = 0x81;
    console.send(not_ping);
    EXPECT_FALSE(console.receive(200));
    EXPECT_EQ(r.sim.stats().count(Kind::Other), 1u);
    EXPECT_EQ(r.sim.stats().count(Kind::Ping), 0u);
}

struct FaultCase {
    PongFault fault;
    int index;
    int value;
    Bytes expected;
};

Bytes with(Bytes b, size_t at, uint8_t v)
{
    b[at] = v;
    return b;
}

Bytes resized(Bytes b, size_t n)
{
    b.resize(n, 0x00);
    return b;
}

TEST(BmcsimPing, EachPongFaultChangesExactlyItsField)
{
    const Bytes good = pong(0x01);
    std::vector<FaultCase> cases = {
        {PongFault::TooShort, 0, -1, resized(good, 27)},
        {PongFault::Length29, 0, -1, resized(good, 29)},
        {PongFault::Length40, 0, -1, resized(good, 40)},
        {PongFault::RmcpVersion, 0, -1, with(good, 0, 0x07)},
        {PongFault::RmcpReserved, 0, -1, with(good, 1, 0x01)},
        {PongFault::RmcpSequence, 0, -1, with(good, 2, 0xFE)},
        {PongFault::RmcpClass, 0, -1, with(good, 3, 0x07)},
        {PongFault::Iana, 0, -1, with(good, 7, 0xBF)},
        {PongFault::MessageType, 0, -1, with(good, 8, 0x41)},
        {PongFault::MessageTag, 0, -1, with(good, 9, 0x02)},
        {PongFault::MessageTag, 0, 0x09, with(good, 9, 0x09)},
        {PongFault::AsfReserved, 0, -1, with(good, 10, 0x01)},
        {PongFault::DataLength, 0, -1, with(good, 11, 0x11)},
        {PongFault::SecondIana, 0, -1, with(good, 15, 0xBF)},
        {PongFault::Oem, 0, -1, with(good, 19, 0x01)},
        {PongFault::SupportedEntities, 0, -1, with(good, 20, 0x80)},
        {PongFault::SupportedEntities, 0, 0x01, with(good, 20, 0x01)},
        {PongFault::SupportedInteractions, 0, -1, with(good, 21, 0x01)},
    };
    for (int i = 0; i < 6; ++i) cases.push_back({PongFault::TrailingReserved, i, -1, with(good, 22 + i, 0x01)});

    Running r(base());
    Console console(kAddress);
    for (const auto &c : cases) {
        r.sim.modify([&](bmcsim::Config &cfg) {
            cfg.ping.fault = c.fault;
            cfg.ping.index = c.index;
            cfg.ping.value = c.value;
        });
        console.send(ping(0x01));
        auto got = console.receive(1000);
        ASSERT_TRUE(got) << "fault " << static_cast<int>(c.fault);
        EXPECT_EQ(*got, c.expected) << "fault " << static_cast<int>(c.fault) << " index " << c.index;
    }
}

TEST(BmcsimPing, SilentSimulatorCountsThePingButDoesNotAnswer)
{
    auto c = base();
    c.ping.reply.silent = true;
    Running r(c);
    Console console(kAddress);
    console.send(ping(0x01));
    EXPECT_FALSE(console.receive(300));
    EXPECT_EQ(r.sim.stats().count(Kind::Ping), 1u);
    EXPECT_TRUE(r.sim.stats().sent.empty());
}

TEST(BmcsimPing, LateAnswerArrivesAfterTheDelay)
{
    auto c = base();
    c.ping.reply.delay_ms = 300;
    Running r(c);
    Console console(kAddress);
    auto start = bmcsim::Clock::now();
    console.send(ping(0x01));
    EXPECT_FALSE(console.receive(150));
    auto got = console.receive(1000);
    ASSERT_TRUE(got);
    EXPECT_EQ(*got, pong(0x01));
    EXPECT_GE(bmcsim::Clock::now() - start, 300ms);
}

TEST(BmcsimPing, LateAnswerDoesNotHoldBackOtherPings)
{
    auto c = base();
    c.ping.reply.delay_ms = 400;
    Running r(c);
    Console console(kAddress);
    console.send(ping(0x01));
    console.send(ping(0x02));
    auto first = console.receive(1000);
    auto second = console.receive(1000);
    ASSERT_TRUE(first && second);
    EXPECT_EQ(*first, pong(0x01));
    EXPECT_EQ(*second, pong(0x02));
    EXPECT_EQ(r.sim.stats().count(Kind::Ping), 2u);
}

TEST(BmcsimPing, AnswersSeveralTimes)
{
    auto c = base();
    c.ping.reply.copies = 3;
    Running r(c);
    Console console(kAddress);
    console.send(ping(0x05));
    for (int i = 0; i < 3; ++i) {
        auto got = console.receive(1000);
        ASSERT_TRUE(got) << i;
        EXPECT_EQ(*got, pong(0x05));
    }
    EXPECT_FALSE(console.receive(200));
}

TEST(BmcsimPing, StrayDatagramsComeBeforeTheAnswer)
{
    auto c = base();
    c.ping.reply.strays = 2;
    Running r(c);
    Console console(kAddress);
    console.send(ping(0x01));
    for (int i = 0; i < 2; ++i) {
        auto got = console.receive(1000);
        ASSERT_TRUE(got);
        EXPECT_EQ(*got, (Bytes{0xDE, 0xAD, 0xBE, 0xEF, 0x00}));
    }
    auto got = console.receive(1000);
    ASSERT_TRUE(got);
    EXPECT_EQ(*got, pong(0x01));

    r.sim.modify([](bmcsim::Config &cfg) {
        cfg.ping.reply.strays = 1;
        cfg.ping.reply.stray_kind = bmcsim::StrayKind::BadRmcpHeader;
    });
    console.send(ping(0x01));
    got = console.receive(1000);
    ASSERT_TRUE(got);
    EXPECT_EQ(*got, with(pong(0x01), 0, 0x05));
    got = console.receive(1000);
    ASSERT_TRUE(got);
    EXPECT_EQ(*got, pong(0x01));
}

TEST(BmcsimPing, IgnoresTheFirstPingsWhenAsked)
{
    auto c = base();
    c.ping.reply.ignore_first = 2;
    Running r(c);
    Console console(kAddress);
    console.send(ping(0x01));
    EXPECT_FALSE(console.receive(200));
    console.send(ping(0x01));
    EXPECT_FALSE(console.receive(200));
    console.send(ping(0x01));
    auto got = console.receive(1000);
    ASSERT_TRUE(got);
    EXPECT_EQ(*got, pong(0x01));
}

TEST(BmcsimPing, FaultOnlyOnTheFirstAnswersThenCorrect)
{
    auto c = base();
    c.ping.fault = PongFault::MessageTag;
    c.ping.value = 2;
    c.ping.reply.faulty_answers = 1;
    c.ping.reply.then_correct = true;
    Running r(c);
    Console console(kAddress);
    console.send(ping(0x01));
    auto got = console.receive(1000);
    ASSERT_TRUE(got);
    EXPECT_EQ(*got, with(pong(0x01), 9, 0x02));
    got = console.receive(1000);
    ASSERT_TRUE(got);
    EXPECT_EQ(*got, pong(0x01));
    console.send(ping(0x01));
    got = console.receive(1000);
    ASSERT_TRUE(got);
    EXPECT_EQ(*got, pong(0x01));
    EXPECT_FALSE(console.receive(200));
}

TEST(BmcsimPing, StartFailsWithAClearMessageWhenTheAddressIsTaken)
{
    Running r(base());
    bmcsim::Simulator second(base());
    try {
        second.start();
        FAIL() << "second bind succeeded";
    } catch (const std::runtime_error &e) {
        EXPECT_NE(std::string(e.what()).find("127.0.0.40:623"), std::string::npos) << e.what();
    }
}

TEST(BmcsimPing, StopsAndStartsAgain)
{
    bmcsim::Simulator sim(base());
    sim.start();
    EXPECT_TRUE(sim.running());
    sim.stop();
    EXPECT_FALSE(sim.running());
    sim.start();
    Console console(kAddress);
    console.send(ping(0x01));
    EXPECT_TRUE(console.receive(1000));
}

TEST(BmcsimProgram, AnswersPingsLogsThemAndStopsOnSigterm)
{
    bmcsim::ChildProcess child({"--address", kAddress, "--port", "6230"});
    Console console(kAddress, 6230);
    console.send(ping(0x01));
    auto got = console.receive(2000);
    ASSERT_TRUE(got);
    EXPECT_EQ(*got, pong(0x01));
    EXPECT_TRUE(child.wait_for_output("presence ping", 2000ms));
    int status = child.stop();
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_TRUE(child.wait_for_output("stopping on SIGTERM", 1000ms));
}

TEST(BmcsimProgram, TakesPingFaultsOnTheCommandLine)
{
    bmcsim::ChildProcess child(
        {"--address", kAddress, "--port", "6231", "--fault", "ping:supported-entities,value=0x01", "--reply", "ping:copies=2"});
    Console console(kAddress, 6231);
    console.send(ping(0x01));
    for (int i = 0; i < 2; ++i) {
        auto got = console.receive(2000);
        ASSERT_TRUE(got);
        EXPECT_EQ(*got, with(pong(0x01), 20, 0x01));
    }
}

TEST(BmcsimProgram, HelpDescribesTheOptions)
{
    std::string command = bmcsim::ChildProcess::default_program() + " --help";
    FILE *p = ::popen(command.c_str(), "r");
    ASSERT_NE(p, nullptr);
    std::string text;
    char buf[512];
    while (size_t n = std::fread(buf, 1, sizeof buf, p)) text.append(buf, n);
    EXPECT_EQ(::pclose(p), 0);
    for (const char *option : {"--address", "--port", "--user", "--kg", "--fault", "--reply"})
        EXPECT_NE(text.find(option), std::string::npos) << option;
}

TEST(BmcsimProgram, RefusesAnUnknownOption)
{
    std::string command = bmcsim::ChildProcess::default_program() + " --no-such-option 2>/dev/null";
    int status = std::system(command.c_str());
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 2);
}

}  // namespace
