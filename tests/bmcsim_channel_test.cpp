// The simulator's Get Channel Authentication Capabilities answer (IPMI v1.5
// framing), its status bits and its faults (loopback 127.0.0.41).
#include <gtest/gtest.h>

#include "bmcsim.h"
#include "bmcsim_console.h"

namespace {

using bmcsim::CapsFault;
using bmcsim::Kind;
using simtest::Bytes;
using simtest::Console;

constexpr const char *kAddress = "127.0.0.41";

bmcsim::Config base()
{
    bmcsim::Config c;
    c.address = kAddress;
    c.users.push_back({"admin", "secret", 4, true});
    return c;
}

// The answer written out by hand: v1.5 header, IPMI response to rqAddr 0x81
// from 0x20, netFn 7, rqSeq 1, command 0x38, then the data.
Bytes expected(uint8_t cc, Bytes data)
{
    Bytes m{0x81, 0x07 << 2, 0x00, 0x20, 0x01 << 2, 0x38, cc};
    m = simtest::cat(m, data);
    m[2] = simtest::sum_neg(m, 0, 2);
    m.push_back(simtest::sum_neg(m, 3, m.size()));
    Bytes b{0x06, 0x00, 0xFF, 0x07, 0x00, 0, 0, 0, 0, 0, 0, 0, 0, static_cast<uint8_t>(m.size())};
    return simtest::cat(b, m);
}

struct Running {
    explicit Running(bmcsim::Config c) : sim(std::move(c)) { sim.start(); }
    bmcsim::Simulator sim;
};

TEST(BmcsimChannel, AnswersWithV20SupportAndNoStatusBits)
{
    Running r(base());
    Console console(kAddress);
    Bytes got = console.exchange(simtest::capabilities_request(4));
    EXPECT_EQ(got, expected(0x00, {0x01, 0x81, 0x04, 0x03, 0, 0, 0, 0}));
    EXPECT_EQ(got.size(), 30u);
    auto s = r.sim.stats();
    EXPECT_EQ(s.count(Kind::Capabilities), 1u);
    EXPECT_EQ(s.of(Kind::Capabilities).at(0), simtest::capabilities_request(4));
}

TEST(BmcsimChannel, StatusBitsFollowTheConfiguration)
{
    auto c = base();
    c.kg = {0x01, 0x02};
    c.capabilities.per_message_auth_disabled = true;
    c.capabilities.user_auth_disabled = true;
    c.users.push_back({"", "", 2, true});
    Running r(c);
    Console console(kAddress);
    EXPECT_EQ(console.exchange(simtest::capabilities_request(4)),
              expected(0x00, {0x01, 0x81, 0x20 | 0x10 | 0x08 | 0x04 | 0x01, 0x03, 0, 0, 0, 0}));

    r.sim.modify([](bmcsim::Config &c) {
        c.kg = Bytes(20, 0x00);  // an all-zero Kg is no Kg
        c.capabilities = {};
    });
    EXPECT_EQ(console.exchange(simtest::capabilities_request(4)),
              expected(0x00, {0x01, 0x81, 0x04 | 0x01, 0x03, 0, 0, 0, 0}));

    r.sim.modify([](bmcsim::Config &c) { c.capabilities.kg_set = true; });
    EXPECT_EQ(console.exchange(simtest::capabilities_request(4)),
              expected(0x00, {0x01, 0x81, 0x20 | 0x04 | 0x01, 0x03, 0, 0, 0, 0}));
}

TEST(BmcsimChannel, V20BitsCompletionCodeAndDataLength)
{
    Running r(base());
    Console console(kAddress);
    r.sim.modify([](bmcsim::Config &c) {
        c.capabilities = {};
        c.capabilities.ipmi20_extended = false;
    });
    EXPECT_EQ(console.exchange(simtest::capabilities_request(4)), expected(0x00, {0x01, 0x01, 0x04, 0x03, 0, 0, 0, 0}));
    r.sim.modify([](bmcsim::Config &c) {
        c.capabilities = {};
        c.capabilities.ipmi20_connections = false;
    });
    EXPECT_EQ(console.exchange(simtest::capabilities_request(4)), expected(0x00, {0x01, 0x81, 0x04, 0x01, 0, 0, 0, 0}));
    r.sim.modify([](bmcsim::Config &c) {
        c.capabilities = {};
        c.capabilities.completion_code = 0xC1;
    });
    EXPECT_EQ(console.exchange(simtest::capabilities_request(4)), expected(0xC1, {0x01, 0x81, 0x04, 0x03, 0, 0, 0, 0}));
    r.sim.modify([](bmcsim::Config &c) {
        c.capabilities = {};
        c.capabilities.data_length = 7;
    });
    EXPECT_EQ(console.exchange(simtest::capabilities_request(4)), expected(0x00, {0x01, 0x81, 0x04, 0x03, 0, 0, 0}));
    r.sim.modify([](bmcsim::Config &c) {
        c.capabilities = {};
        c.capabilities.data_length = 9;
    });
    EXPECT_EQ(console.exchange(simtest::capabilities_request(4)), expected(0x00, {0x01, 0x81, 0x04, 0x03, 0, 0, 0, 0, 0}));
}

TEST(BmcsimChannel, AnswersTheRequestersAddressesAndSequence)
{
    Running r(base());
    Console console(kAddress);
    Bytes got = console.exchange(simtest::capabilities_request(2, 0x71, 0x22));
    ASSERT_EQ(got.size(), 30u);
    EXPECT_EQ(got[14], 0x71);
    EXPECT_EQ(got[17], 0x22);
    EXPECT_EQ(got[18], 0x04);
}

TEST(BmcsimChannel, IgnoresARequestWithABadChecksum)
{
    Running r(base());
    Console console(kAddress);
    Bytes rq = simtest::capabilities_request(4);
    rq[22] ^= 1;
    EXPECT_TRUE(console.exchange(rq, 200).empty());
    EXPECT_TRUE(r.sim.stats().logged("bad IPMI message"));
}

Bytes with(Bytes b, size_t at, uint8_t v)
{
    b.at(at) = v;
    return b;
}

// Changes message byte `at` (offset 14 + at) and recomputes both checksums.
Bytes with_field(Bytes b, size_t at, uint8_t v)
{
    b.at(14 + at) = v;
    b[16] = simtest::sum_neg(b, 14, 16);
    b.back() = simtest::sum_neg(b, 17, b.size() - 1);
    return b;
}

TEST(BmcsimChannel, EachFaultChangesExactlyItsField)
{
    const Bytes good = expected(0x00, {0x01, 0x81, 0x04, 0x03, 0, 0, 0, 0});
    struct Case {
        CapsFault fault;
        Bytes want;
    };
    std::vector<Case> cases = {
        {CapsFault::RmcpVersion, with(good, 0, 0x07)},
        {CapsFault::RmcpReserved, with(good, 1, 0x01)},
        {CapsFault::RmcpSequence, with(good, 2, 0xFE)},
        {CapsFault::RmcpClass, with(good, 3, 0x06)},
        {CapsFault::AuthType, with(good, 4, 0x02)},
        {CapsFault::SessionSequence, with(good, 5, 0x01)},
        {CapsFault::SessionId, with(good, 9, 0x01)},
        {CapsFault::MessageLength, with(good, 13, 17)},
        {CapsFault::Checksum1, with(good, 16, good[16] ^ 1)},
        {CapsFault::Checksum2, with(good, 29, good[29] ^ 1)},
        {CapsFault::RqAddr, with_field(good, 0, 0x83)},
        {CapsFault::NetFn, with_field(good, 1, 0x20)},
        {CapsFault::RqLun, with_field(good, 1, 0x1D)},
        {CapsFault::RsAddr, with_field(good, 3, 0x22)},
        {CapsFault::RqSeq, with_field(good, 4, 0x08)},
        {CapsFault::RsLun, with_field(good, 4, 0x05)},
        {CapsFault::Command, with_field(good, 5, 0x39)},
    };
    Running r(base());
    Console console(kAddress);
    for (const auto &c : cases) {
        r.sim.modify([&](bmcsim::Config &cfg) { cfg.capabilities.fault = c.fault; });
        EXPECT_EQ(console.exchange(simtest::capabilities_request(4)), c.want) << static_cast<int>(c.fault);
    }
}

TEST(BmcsimChannel, LateSilentAndRepeatedAnswers)
{
    auto c = base();
    c.capabilities.reply.ignore_first = 1;
    c.capabilities.reply.copies = 2;
    c.capabilities.reply.strays = 1;
    c.capabilities.reply.stray_kind = bmcsim::StrayKind::OtherClass;
    Running r(c);
    Console console(kAddress);
    const Bytes good = expected(0x00, {0x01, 0x81, 0x04, 0x03, 0, 0, 0, 0});
    EXPECT_TRUE(console.exchange(simtest::capabilities_request(4), 200).empty());
    EXPECT_EQ(console.exchange(simtest::capabilities_request(4)), with(good, 3, 0x08));
    EXPECT_EQ(console.receive(), good);
    EXPECT_EQ(console.receive(), good);
    EXPECT_FALSE(console.receive(200));
    EXPECT_EQ(r.sim.stats().count(Kind::Capabilities), 2u);
}

}  // namespace
