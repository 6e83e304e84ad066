// The simulator's RMCP+ session packets for suites 0 to 3, checked with keys,
// integrity codes and AES-CBC computed here (loopback 127.0.0.44).
#include <gtest/gtest.h>

#include "bmcsim.h"
#include "bmcsim_console.h"

namespace {

using bmcsim::Kind;
using simtest::Bytes;
using simtest::Console;
using simtest::Established;
using simtest::ipmi_request;
using simtest::ipmi_response;

constexpr const char *kAddress = "127.0.0.44";

const Bytes kDeviceId{0x20, 0x01, 0x02, 0x15, 0x02, 0xBF, 0x5A, 0x5A, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00};

bmcsim::Config base()
{
    bmcsim::Config c;
    c.address = kAddress;
    c.users = {{"admin", "secret", 4, true}};
    return c;
}

class BmcsimSession : public ::testing::TestWithParam<int> {
protected:
    void open(bmcsim::Config c = base())
    {
        sim = std::make_unique<bmcsim::Simulator>(c);
        sim->start();
        auto established = simtest::establish(console, suite(), "admin", "secret");
        ASSERT_TRUE(established);
        e = *established;
    }
    int suite() const { return GetParam(); }
    uint8_t bits() const { return simtest::suite_bits(suite()); }

    // Sends a request in the session and takes the answer apart.
    simtest::Opened ask(const Bytes &message, uint32_t seq)
    {
        Bytes answer = console.exchange(simtest::session_packet(e, bits(), seq, message));
        return simtest::open_packet(e, answer);
    }

    Console console{kAddress};
    std::unique_ptr<bmcsim::Simulator> sim;
    Established e;
};

TEST_P(BmcsimSession, AnswersGetDeviceIdWithTheSuitesProtection)
{
    open();
    auto o = ask(ipmi_request(0x06, 0x01), 1);
    EXPECT_EQ(o.bits, bits());
    EXPECT_EQ(o.session_id, e.console_id);
    EXPECT_EQ(o.seq, 1u);
    if (bits() & 0x40) {
        EXPECT_TRUE(o.code_ok);
    }
    EXPECT_EQ(o.message, ipmi_response(0x06, 0x01, 0x00, kDeviceId));
    auto s = sim->stats();
    ASSERT_EQ(s.messages().size(), 1u);
    EXPECT_EQ(s.messages()[0], ipmi_request(0x06, 0x01));
    ASSERT_EQ(s.sessions.size(), 1u);
    EXPECT_EQ(simtest::bytes(s.sessions[0].sik), e.sik);
    EXPECT_EQ(simtest::bytes(s.sessions[0].k2), e.k2);
}

TEST_P(BmcsimSession, CountersAdvanceOnEachAnswer)
{
    open();
    for (uint32_t seq = 1; seq <= 5; ++seq) {
        auto o = ask(ipmi_request(0x06, 0x04, {}, static_cast<uint8_t>(seq)), seq);
        EXPECT_EQ(o.seq, seq);
        EXPECT_EQ(o.message, ipmi_response(0x06, 0x04, 0x00, {0x55, 0x00}, static_cast<uint8_t>(seq)));
    }
}

TEST_P(BmcsimSession, ChassisCommandsAndUnknownCommand)
{
    open();
    EXPECT_EQ(ask(ipmi_request(0x00, 0x01), 1).message, ipmi_response(0x00, 0x01, 0x00, {0x01, 0x00, 0x00, 0x00}));
    EXPECT_EQ(ask(ipmi_request(0x00, 0x02, {0x00}), 2).message, ipmi_response(0x00, 0x02, 0x00));
    EXPECT_EQ(ask(ipmi_request(0x00, 0x01), 3).message, ipmi_response(0x00, 0x01, 0x00, {0x00, 0x00, 0x00, 0x00}));
    EXPECT_EQ(ask(ipmi_request(0x00, 0x02, {0x09}), 4).message, ipmi_response(0x00, 0x02, 0xCC));
    EXPECT_EQ(ask(ipmi_request(0x00, 0x02), 5).message, ipmi_response(0x00, 0x02, 0xC7));
    EXPECT_EQ(ask(ipmi_request(0x06, 0x77), 6).message, ipmi_response(0x06, 0x77, 0xC1));
}

TEST_P(BmcsimSession, CloseSessionEndsIt)
{
    open();
    Bytes wrong_id;
    simtest::le32(wrong_id, e.bmc_id + 1);
    EXPECT_EQ(ask(ipmi_request(0x06, 0x3C, wrong_id), 1).message, ipmi_response(0x06, 0x3C, 0x87));
    Bytes id;
    simtest::le32(id, e.bmc_id);
    EXPECT_EQ(ask(ipmi_request(0x06, 0x3C, id), 2).message, ipmi_response(0x06, 0x3C, 0x00));
    auto s = sim->stats();
    EXPECT_EQ(s.sessions_closed, 1u);
    EXPECT_TRUE(s.sessions.empty());
    EXPECT_TRUE(console.exchange(simtest::session_packet(e, bits(), 3, ipmi_request(0x06, 0x01)), 200).empty());
    EXPECT_EQ(sim->stats().rejected_packets, 1u);
}

TEST_P(BmcsimSession, BridgedResponseArrivesLaterAsItsOwnMessage)
{
    auto c = base();
    c.session.bridge_delay_ms = 100;
    open(c);
    // Send Message on channel 0: an embedded Get Device ID for 0x72 from 0x81.
    Bytes inner{0x72, 0x06 << 2, 0, 0x81, 0x05 << 2, 0x01};
    inner[2] = simtest::sum_neg(inner, 0, 2);
    inner.push_back(simtest::sum_neg(inner, 3, inner.size()));
    auto start = bmcsim::Clock::now();
    auto o = ask(ipmi_request(0x06, 0x34, simtest::cat({0x40}, inner)), 1);
    EXPECT_EQ(o.message, ipmi_response(0x06, 0x34, 0x00));
    auto later = console.receive(1000);
    ASSERT_TRUE(later);
    EXPECT_GE(bmcsim::Clock::now() - start, std::chrono::milliseconds(90));
    auto b = simtest::open_packet(e, *later);
    EXPECT_EQ(b.seq, 2u);
    Bytes want{0x81, 0x07 << 2, 0, 0x72, 0x05 << 2, 0x01, 0x00};
    want[2] = simtest::sum_neg(want, 0, 2);
    want = simtest::cat(want, kDeviceId);
    want.push_back(simtest::sum_neg(want, 3, want.size()));
    EXPECT_EQ(b.message, want);
}

TEST_P(BmcsimSession, InboundWindowTakesEachNumberOnceWithinSixteen)
{
    open();
    Bytes rq = ipmi_request(0x06, 0x04);
    auto answered = [&](uint32_t seq) {
        return !console.exchange(simtest::session_packet(e, bits(), seq, rq), 150).empty();
    };
    EXPECT_TRUE(answered(1));
    EXPECT_FALSE(answered(1));    // repeat
    EXPECT_FALSE(answered(18));   // 17 ahead
    EXPECT_TRUE(answered(17));    // 16 ahead
    EXPECT_TRUE(answered(5));     // behind, not seen
    EXPECT_FALSE(answered(5));    // seen
    EXPECT_TRUE(answered(2));     // 15 behind
    EXPECT_FALSE(answered(0));
    EXPECT_TRUE(answered(18));
    EXPECT_FALSE(answered(1));    // 17 behind
    EXPECT_EQ(sim->stats().rejected_packets, 5u);
}

TEST_P(BmcsimSession, LenientWindowTakesAJumpAhead)
{
    auto c = base();
    c.session.strict_inbound_window = false;
    open(c);
    EXPECT_EQ(ask(ipmi_request(0x06, 0x04), 0xFFFFFFF0).seq, 1u);
    EXPECT_EQ(ask(ipmi_request(0x06, 0x04), 0xFFFFFFFF).seq, 2u);
}

TEST_P(BmcsimSession, OutboundNumbersNearTheEndWrapToZero)
{
    auto c = base();
    c.session.outbound_sequence_start = 0xFFFFFFFE;
    open(c);
    EXPECT_EQ(ask(ipmi_request(0x06, 0x04), 1).seq, 0xFFFFFFFEu);
    EXPECT_EQ(ask(ipmi_request(0x06, 0x04), 2).seq, 0xFFFFFFFFu);
    EXPECT_EQ(ask(ipmi_request(0x06, 0x04), 3).seq, 0u);
}

TEST_P(BmcsimSession, RefusesPacketsThatFailTheChecks)
{
    open();
    Bytes rq = ipmi_request(0x06, 0x01);
    auto refused = [&](const Bytes &d) { return console.exchange(d, 150).empty(); };
    EXPECT_TRUE(refused(simtest::session_packet(e, bits(), 1, rq, Bytes(16, 0x5C), e.bmc_id + 1)));
    Bytes bad_checksum = rq;
    bad_checksum.back() ^= 1;
    EXPECT_TRUE(refused(simtest::session_packet(e, bits(), 2, bad_checksum)));
    // The other protection than negotiated.
    EXPECT_TRUE(refused(simtest::session_packet(e, static_cast<uint8_t>(bits() ^ 0x40), 3, rq)));
    if (bits() & 0x40) {
        Bytes bad_code = simtest::session_packet(e, bits(), 4, rq);
        bad_code.back() ^= 1;
        EXPECT_TRUE(refused(bad_code));
    }
    if (bits() & 0x80) {
        Bytes plain = simtest::session_packet(e, static_cast<uint8_t>(bits() & 0x40), 5, rq);
        EXPECT_TRUE(refused(plain));
    }
    EXPECT_FALSE(refused(simtest::session_packet(e, bits(), 6, rq)));
    EXPECT_GE(sim->stats().rejected_packets, 3u);
}

INSTANTIATE_TEST_SUITE_P(Suites, BmcsimSession, ::testing::Values(0, 1, 2, 3),
                         [](const auto &info) { return "Suite" + std::to_string(info.param); });

// A whole answer datagram for suite 2 (no random IV) written out here.
TEST(BmcsimSessionBytes, Suite2AnswerIsExactlyTheseBytes)
{
    auto c = base();
    bmcsim::Simulator sim(c);
    sim.start();
    Console console(kAddress);
    auto e = simtest::establish(console, 2, "admin", "secret");
    ASSERT_TRUE(e);
    Bytes answer = console.exchange(simtest::session_packet(*e, 0x40, 1, ipmi_request(0x06, 0x04)));
    Bytes message = ipmi_response(0x06, 0x04, 0x00, {0x55, 0x00});  // 10 bytes
    ASSERT_EQ(message.size(), 10u);
    Bytes want{0x06, 0x00, 0xFF, 0x07, 0x06, 0x40};
    simtest::le32(want, e->console_id);
    simtest::le32(want, 1);
    want = simtest::cat(want, {0x0A, 0x00});
    want = simtest::cat(want, message);
    want = simtest::cat(want, {0x00, 0x07});  // 12 + 10 + 2 = 24: no integrity pad
    Bytes code = simtest::hmac_sha1(e->sik, Bytes(want.begin() + 4, want.end()));
    want.insert(want.end(), code.begin(), code.begin() + 12);
    EXPECT_EQ(answer, want);
    EXPECT_EQ(answer.size(), 40u);
}

// Suite 3: everything but the IV is fixed, so given the IV the whole answer
// is known: IV | AES-CBC(data | pad 1..p | p) and the trailer.
TEST(BmcsimSessionBytes, Suite3AnswerIsExactlyTheseBytesGivenItsIv)
{
    bmcsim::Simulator sim(base());
    sim.start();
    Console console(kAddress);
    auto e = simtest::establish(console, 3, "admin", "secret");
    ASSERT_TRUE(e);
    Bytes answer = console.exchange(simtest::session_packet(*e, 0xC0, 1, ipmi_request(0x06, 0x04)));
    ASSERT_GE(answer.size(), 32u);
    Bytes iv(answer.begin() + 16, answer.begin() + 32);
    Bytes plain = ipmi_response(0x06, 0x04, 0x00, {0x55, 0x00});  // 10 bytes, p = 5
    plain = simtest::cat(plain, {1, 2, 3, 4, 5, 5});
    Bytes want{0x06, 0x00, 0xFF, 0x07, 0x06, 0xC0};
    simtest::le32(want, e->console_id);
    simtest::le32(want, 1);
    want = simtest::cat(want, {0x20, 0x00});
    want = simtest::cat(want, simtest::cat(iv, simtest::aes_cbc(simtest::first16(e->k2), iv, plain, true)));
    want = simtest::cat(want, {0xFF, 0xFF, 0x02, 0x07});  // 12 + 32 + 2 + 2 = 48
    Bytes code = simtest::hmac_sha1(e->sik, Bytes(want.begin() + 4, want.end()));
    want.insert(want.end(), code.begin(), code.begin() + 12);
    EXPECT_EQ(answer, want);
    EXPECT_EQ(answer.size(), 64u);
}

}  // namespace
