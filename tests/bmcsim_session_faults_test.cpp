// Each session fault of the simulator, seen from a console built here
// (loopback 127.0.0.45).
#include <gtest/gtest.h>

#include "bmcsim.h"
#include "bmcsim_console.h"

namespace {

using bmcsim::SessionFault;
using simtest::Bytes;
using simtest::Console;
using simtest::ipmi_request;
using simtest::ipmi_response;

constexpr const char *kAddress = "127.0.0.45";

const Bytes kDeviceId{0x20, 0x01, 0x02, 0x15, 0x02, 0xBF, 0x5A, 0x5A, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00};

class BmcsimSessionFaults : public ::testing::Test {
protected:
    void open(int suite, SessionFault fault, int index = -1, int value = -1)
    {
        bmcsim::Config c;
        c.address = kAddress;
        c.users = {{"admin", "secret", 4, true}};
        c.session.fault = fault;
        c.session.index = index;
        c.session.value = value;
        sim = std::make_unique<bmcsim::Simulator>(c);
        sim->start();
        auto established = simtest::establish(console, suite, "admin", "secret");
        ASSERT_TRUE(established);
        e = *established;
        bits = simtest::suite_bits(suite);
    }
    Bytes send(const Bytes &message, uint32_t seq, int timeout_ms = 1000)
    {
        return console.exchange(simtest::session_packet(e, bits, seq, message), timeout_ms);
    }
    simtest::Opened ask(const Bytes &message, uint32_t seq) { return simtest::open_packet(e, send(message, seq)); }

    Console console{kAddress};
    std::unique_ptr<bmcsim::Simulator> sim;
    simtest::Established e;
    uint8_t bits = 0;
};

TEST_F(BmcsimSessionFaults, WrongSessionIdKeepsAValidIntegrityCode)
{
    open(3, SessionFault::WrongSessionId);
    auto o = ask(ipmi_request(0x06, 0x01), 1);
    EXPECT_EQ(o.session_id, e.console_id + 1);
    EXPECT_TRUE(o.code_ok);
    EXPECT_EQ(o.message, ipmi_response(0x06, 0x01, 0x00, kDeviceId));
}

TEST_F(BmcsimSessionFaults, BadIntegrityCodeDiffersInItsTwelfthByte)
{
    open(2, SessionFault::BadIntegrity);
    Bytes answer = send(ipmi_request(0x06, 0x01), 1);
    EXPECT_FALSE(simtest::open_packet(e, answer).code_ok);
    answer.back() ^= 0x01;
    EXPECT_TRUE(simtest::open_packet(e, answer).code_ok);
}

TEST_F(BmcsimSessionFaults, BadIntegrityCodeAtAChosenByte)
{
    open(2, SessionFault::BadIntegrity, 0);
    Bytes answer = send(ipmi_request(0x06, 0x01), 1);
    ASSERT_GE(answer.size(), 12u);
    answer[answer.size() - 12] ^= 0x01;
    EXPECT_TRUE(simtest::open_packet(e, answer).code_ok);
}

TEST_F(BmcsimSessionFaults, IntegrityPadPadLengthAndNextHeader)
{
    // Get Device ID's answer has L = 23, so three pad bytes.
    open(2, SessionFault::BadIntegrityPad);
    auto o = ask(ipmi_request(0x06, 0x01), 1);
    EXPECT_TRUE(o.code_ok);
    EXPECT_EQ(o.trailer, (Bytes{0xFE, 0xFF, 0xFF, 0x03, 0x07}));

    sim->modify([](bmcsim::Config &c) { c.session.fault = SessionFault::BadIntegrityPadLength; });
    o = ask(ipmi_request(0x06, 0x01), 2);
    EXPECT_TRUE(o.code_ok);
    EXPECT_EQ(o.trailer, (Bytes{0xFF, 0xFF, 0xFF, 0x04, 0x07}));

    sim->modify([](bmcsim::Config &c) { c.session.fault = SessionFault::BadNextHeader; });
    o = ask(ipmi_request(0x06, 0x01), 3);
    EXPECT_TRUE(o.code_ok);
    EXPECT_EQ(o.trailer, (Bytes{0xFF, 0xFF, 0xFF, 0x03, 0x08}));
}

TEST_F(BmcsimSessionFaults, ConfidentialityPadAndPadLength)
{
    // Get Device ID's answer is 23 bytes: pad 1..8 and 8.
    open(3, SessionFault::BadConfidentialityPad);
    auto o = ask(ipmi_request(0x06, 0x01), 1);
    EXPECT_TRUE(o.code_ok);
    Bytes want = simtest::cat(ipmi_response(0x06, 0x01, 0x00, kDeviceId), {0x81, 2, 3, 4, 5, 6, 7, 8, 8});
    EXPECT_EQ(o.plain, want);
    EXPECT_TRUE(o.message.empty());

    sim->modify([](bmcsim::Config &c) { c.session.fault = SessionFault::BadConfidentialityPadLength; });
    o = ask(ipmi_request(0x06, 0x01), 2);
    EXPECT_TRUE(o.code_ok);
    want = simtest::cat(ipmi_response(0x06, 0x01, 0x00, kDeviceId), {1, 2, 3, 4, 5, 6, 7, 8, 16});
    EXPECT_EQ(o.plain, want);
}

TEST_F(BmcsimSessionFaults, ConfidentialityPayloadLengths)
{
    open(3, SessionFault::BadConfidentialityPayloadLength);
    auto o = ask(ipmi_request(0x06, 0x01), 1);
    EXPECT_TRUE(o.code_ok);
    EXPECT_EQ(o.length, 16 + 32 + 1);

    sim->modify([](bmcsim::Config &c) { c.session.fault = SessionFault::ShortConfidentialityPayload; });
    o = ask(ipmi_request(0x06, 0x01), 2);
    EXPECT_TRUE(o.code_ok);
    EXPECT_EQ(o.length, 16);
}

TEST_F(BmcsimSessionFaults, OtherProtection)
{
    open(3, SessionFault::OtherProtection);
    auto o = ask(ipmi_request(0x06, 0x04), 1);
    EXPECT_EQ(o.bits, 0x00);
    EXPECT_EQ(o.message, ipmi_response(0x06, 0x04, 0x00, {0x55, 0x00}));

    sim->modify([](bmcsim::Config &c) { c.session.value = 1; });
    o = ask(ipmi_request(0x06, 0x04), 2);
    EXPECT_EQ(o.bits, 0x40);
    EXPECT_TRUE(o.code_ok);
    EXPECT_EQ(o.message, ipmi_response(0x06, 0x04, 0x00, {0x55, 0x00}));
}

TEST_F(BmcsimSessionFaults, CompletionCodeThenTheCorrectAnswer)
{
    open(1, SessionFault::CompletionCode);
    EXPECT_EQ(ask(ipmi_request(0x06, 0x04), 1).message, ipmi_response(0x06, 0x04, 0xC1, {0x55, 0x00}));
    sim->modify([](bmcsim::Config &c) {
        c.session.value = 0xD4;
        c.session.reply.then_correct = true;
    });
    auto o = ask(ipmi_request(0x06, 0x04), 2);
    EXPECT_EQ(o.message, ipmi_response(0x06, 0x04, 0xD4, {0x55, 0x00}));
    auto next = console.receive();
    ASSERT_TRUE(next);
    auto c = simtest::open_packet(e, *next);
    EXPECT_EQ(c.message, ipmi_response(0x06, 0x04, 0x00, {0x55, 0x00}));
    EXPECT_EQ(c.seq, o.seq + 1);
}

TEST_F(BmcsimSessionFaults, ReorderSendsTheHeldAnswerAfterTheNextOne)
{
    open(3, SessionFault::Reorder);
    EXPECT_TRUE(send(ipmi_request(0x06, 0x04, {}, 1), 1, 200).empty());
    auto first = simtest::open_packet(e, send(ipmi_request(0x06, 0x04, {}, 2), 2));
    auto second = console.receive();
    ASSERT_TRUE(second);
    auto held = simtest::open_packet(e, *second);
    EXPECT_EQ(first.message, ipmi_response(0x06, 0x04, 0x00, {0x55, 0x00}, 2));
    EXPECT_EQ(first.seq, 2u);
    EXPECT_EQ(held.message, ipmi_response(0x06, 0x04, 0x00, {0x55, 0x00}, 1));
    EXPECT_EQ(held.seq, 1u);
}

TEST_F(BmcsimSessionFaults, ReplaySendsThePreviousAnswerAgainFirst)
{
    open(2, SessionFault::None);
    Bytes earlier = send(ipmi_request(0x06, 0x04, {}, 1), 1);
    ASSERT_FALSE(earlier.empty());
    sim->modify([](bmcsim::Config &c) { c.session.fault = SessionFault::Replay; });
    EXPECT_EQ(send(ipmi_request(0x06, 0x01, {}, 2), 2), earlier);
    auto now = console.receive();
    ASSERT_TRUE(now);
    auto o = simtest::open_packet(e, *now);
    EXPECT_EQ(o.seq, 2u);
    EXPECT_EQ(o.message, ipmi_response(0x06, 0x01, 0x00, kDeviceId, 2));
}

TEST_F(BmcsimSessionFaults, DropDuplicateAndDelay)
{
    open(3, SessionFault::None);
    sim->modify([](bmcsim::Config &c) { c.session.reply.silent = true; });
    EXPECT_TRUE(send(ipmi_request(0x06, 0x04), 1, 200).empty());
    sim->modify([](bmcsim::Config &c) {
        c.session.reply.silent = false;
        c.session.reply.copies = 2;
    });
    Bytes one = send(ipmi_request(0x06, 0x04), 2);
    auto two = console.receive();
    ASSERT_TRUE(two);
    EXPECT_EQ(one, *two);
    sim->modify([](bmcsim::Config &c) {
        c.session.reply.copies = 1;
        c.session.reply.delay_ms = 250;
    });
    auto start = bmcsim::Clock::now();
    EXPECT_FALSE(send(ipmi_request(0x06, 0x04), 3).empty());
    EXPECT_GE(bmcsim::Clock::now() - start, std::chrono::milliseconds(240));
}

}  // namespace
