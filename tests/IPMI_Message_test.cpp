// The message exchange API over a socket, against a scripted managed system
// that opens and builds its packets with OpenSSL directly.
#include <fcntl.h>
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <vector>

#include "packet_testkit.h"
#include "rmcpp.h"
#include "trace_capture.h"

namespace {

using namespace packettest;
using Lines = std::vector<std::string>;
using rakptest::ScriptedPeer;

constexpr uint8_t kPeer = 72;

// The managed system's side of one session: opens each request, answers it
// with the same protection and its own outbound sequence numbers.
struct Bmc {
    std::atomic<uint32_t> sequence{1};
    uint8_t completion_code = 0x00;
    Bytes data = {0x51, 0x01};

    Bytes answer(const Opened &request, uint8_t type, uint32_t seq, uint8_t cc, const Bytes &d) const
    {
        return session_datagram(type, kConsoleSessionId, seq, response_to(request.message, cc, d),
                                (type & 0x80) ? fixed_iv(static_cast<uint8_t>(seq)) : Bytes{});
    }
    std::vector<Bytes> operator()(const Bytes &datagram)
    {
        const auto o = open_datagram(datagram);
        if (!o) return {};
        return {answer(*o, o->payload_type & 0xC0, sequence++, completion_code, data)};
    }
};

// A caller's record with a session of the given suite whose socket talks
// to the scripted peer.
struct Caller {
    IPMI_SessionParam param{};
    int fd;
    explicit Caller(int suite)
    {
        fd = connected_socket(kPeer);
        param.slave_address = 0x20;
        param.lun = 0;
        param.session = make_session(suite, fd);
    }
    ~Caller()
    {
        if (param.session) {
            ::close(param.session->socket_fd);
            std::free(param.session);
        }
    }
    RMCPp_Session *s() const { return param.session; }
    bool socket_closed() const { return ::fcntl(fd, F_GETFD) == -1; }
};

struct Exchange {
    int result;
    Bytes response;
    uint32_t released;
};

Exchange exchange(Caller &c, const Bytes &request, int auth_option = 0, int attempts = 2, int wait = 1,
                  uint32_t size = 64)
{
    Exchange e{-9, Bytes(size, 0), 77};
    uint32_t length = 0;
    e.result = IPMI_Message_IF(&c.param, request.data(), static_cast<uint32_t>(request.size()), e.response.data(),
                               size, &length, auth_option, &e.released, attempts, wait);
    e.response.resize(e.result == 0 ? length : 0);
    return e;
}

const Bytes kGetDeviceId = request_of(0x06, 0x01, 1);

// Stops the peer once it has taken n datagrams (or after two seconds).
void stop_after(ScriptedPeer &peer, size_t n)
{
    for (int i = 0; i < 200 && peer.requests().size() < n; ++i) rakptest::sleep_ms(10);
    peer.stop();
}

// ------------------------------------------------------------ exchanges

TEST(IPMI_Message_IF, ExchangesOnEachSuite)
{
    for (int suite = 0; suite <= 3; ++suite) {
        Bmc bmc;
        ScriptedPeer peer(kPeer, [&](const Bytes &d, int) { return bmc(d); });
        Caller c(suite);
        for (uint8_t seq = 0; seq < 20; ++seq) {
            const Bytes request = request_of(0x06, 0x01, seq);
            const Exchange e = exchange(c, request);
            ASSERT_EQ(e.result, 0) << suite;
            EXPECT_EQ(e.released, 0u);
            EXPECT_EQ(e.response, response_to(request, 0x00, bmc.data));
        }
        peer.stop();
        const auto requests = peer.requests();
        ASSERT_EQ(requests.size(), 20u);
        for (size_t i = 0; i < requests.size(); ++i) {
            const auto o = open_datagram(requests[i]);
            ASSERT_TRUE(o);
            EXPECT_EQ(o->payload_type, protection_of(suite));
            EXPECT_EQ(o->sequence, i + 1);
        }
        EXPECT_EQ(c.s()->recv_seq_auth + c.s()->recv_seq_unauth, 20u);
    }
}

TEST(IPMI_Message_IF, NullInputs)
{
    Caller c(0);
    uint8_t response[32];
    uint32_t length = 0, released = 0;
    const uint8_t *req = kGetDeviceId.data();
    const uint32_t n = 7;
    testkit::clear_trace();
    EXPECT_EQ(IPMI_Message_IF(nullptr, req, n, response, 32, &length, 0, &released, 1, 1), 1);
    EXPECT_EQ(IPMI_Message_IF(&c.param, nullptr, n, response, 32, &length, 0, &released, 1, 1), 1);
    EXPECT_EQ(IPMI_Message_IF(&c.param, req, n, nullptr, 32, &length, 0, &released, 1, 1), 1);
    EXPECT_EQ(IPMI_Message_IF(&c.param, req, n, response, 32, nullptr, 0, &released, 1, 1), 1);
    EXPECT_EQ(IPMI_Message_IF(&c.param, req, n, response, 32, &length, 0, nullptr, 1, 1), 1);
    IPMI_SessionParam none{};
    EXPECT_EQ(IPMI_Message_IF(&none, req, n, response, 32, &length, 0, &released, 1, 1), 1);
    EXPECT_EQ(testkit::log_lines(), Lines(6, "Null input data.\n"));
}

TEST(IPMI_Message_IF, UnansweredRequestIsSentAgain)
{
    Bmc bmc;
    ScriptedPeer peer(kPeer, [&](const Bytes &d, int index) { return index == 0 ? std::vector<Bytes>{} : bmc(d); });
    Caller c(3);
    const Exchange e = exchange(c, kGetDeviceId, 0, 2, 1);
    EXPECT_EQ(e.result, 0);
    EXPECT_EQ(e.response, response_to(kGetDeviceId, 0, bmc.data));
    peer.stop();
    ASSERT_EQ(peer.requests().size(), 2u);
    // Each attempt is a fresh packet with the next sequence number.
    EXPECT_EQ(open_datagram(peer.requests()[1])->sequence, 2u);
}

TEST(IPMI_Message_IF, AttemptsUsedUpIsFour)
{
    ScriptedPeer peer(kPeer, [](const Bytes &, int) { return std::vector<Bytes>{}; });
    Caller c(2);
    EXPECT_EQ(exchange(c, kGetDeviceId, 0, 2, 1).result, 4);
    EXPECT_EQ(exchange(c, kGetDeviceId, 0, 0, 1).result, 4);
    stop_after(peer, 2);
    EXPECT_EQ(peer.requests().size(), 2u);
    EXPECT_NE(c.s(), nullptr);
}

TEST(IPMI_Message_IF, AttemptsAndWaitAreCutToEightBits)
{
    ScriptedPeer peer(kPeer, [](const Bytes &, int) { return std::vector<Bytes>{}; });
    Caller c(0);
    EXPECT_EQ(exchange(c, kGetDeviceId, 0, 0x100, 1).result, 4);
    EXPECT_EQ(exchange(c, kGetDeviceId, 0, 0x101, 0x100).result, 4);
    stop_after(peer, 1);
    EXPECT_EQ(peer.requests().size(), 1u);
}

TEST(IPMI_Message_IF, ResponseWithOtherProtectionIsSkipped)
{
    Bmc bmc;
    ScriptedPeer peer(kPeer, [&](const Bytes &d, int) {
        const auto o = open_datagram(d);
        return std::vector<Bytes>{bmc.answer(*o, 0x00, 1, 0, {0xEE}), bmc.answer(*o, 0x40, 1, 0, {0xAA}),
                                  bmc.answer(*o, 0xC0, 2, 0, {0x11})};
    });
    Caller c(3);
    const Exchange e = exchange(c, kGetDeviceId);
    EXPECT_EQ(e.result, 0);
    EXPECT_EQ(e.response, response_to(kGetDeviceId, 0, {0x11}));
}

TEST(IPMI_Message_IF, ExplicitOptionWithPerMessageAuthenticationExpectsClearResponses)
{
    Bmc bmc;
    ScriptedPeer peer(kPeer, [&](const Bytes &d, int) {
        const auto o = open_datagram(d);
        return std::vector<Bytes>{bmc.answer(*o, 0xC0, 1, 0, {0xAA}), bmc.answer(*o, 0x00, 1, 0, {0x22})};
    });
    Caller c(3);
    c.s()->per_msg_auth_status = 0x10;
    const Exchange e = exchange(c, kGetDeviceId, 0x30);
    EXPECT_EQ(e.result, 0);
    EXPECT_EQ(e.response, response_to(kGetDeviceId, 0, {0x22}));
}

TEST(IPMI_Message_IF, ResponseToAnotherRequestIsSkipped)
{
    Bmc bmc;
    ScriptedPeer peer(kPeer, [&](const Bytes &d, int) {
        const auto o = open_datagram(d);
        Opened other = *o;
        other.message = request_of(0x06, 0x01, 9);
        return std::vector<Bytes>{bmc.answer(other, 0x40, 1, 0, {0xAA}), bmc.answer(*o, 0x40, 2, 0, {0x33})};
    });
    Caller c(2);
    testkit::clear_trace();
    const Exchange e = exchange(c, kGetDeviceId);
    EXPECT_EQ(e.result, 0);
    EXPECT_EQ(e.response, response_to(kGetDeviceId, 0, {0x33}));
    EXPECT_TRUE(testkit::logged("[ Invalid Response ] IPMI Message : rqSeq/rsLUN = 24h (expected 04h)\n"));
}

// ------------------------------------------------------------ completion-code trace

std::string hex_of(const Bytes &b, size_t from, size_t n)
{
    std::string s;
    char two[3];
    for (size_t i = from; i < from + n; ++i) {
        std::snprintf(two, sizeof two, "%02x", b[i]);
        s += two;
    }
    return s;
}

std::vector<testkit::TraceLine> channel0()
{
    std::vector<testkit::TraceLine> out;
    for (const auto &l : testkit::trace())
        if (l.channel == 0) out.push_back(l);
    return out;
}

TEST(IPMI_Message_IF, NonZeroCompletionCodeIsTraced)
{
    Bmc bmc;
    bmc.completion_code = 0xC1;
    bmc.data = {};
    ScriptedPeer peer(kPeer, [&](const Bytes &d, int) { return bmc(d); });
    Caller c(1);
    testkit::clear_trace();
    const Exchange e = exchange(c, kGetDeviceId);
    EXPECT_EQ(e.result, 0);
    EXPECT_EQ(e.response.at(6), 0xC1);
    const std::string line = "CC=0xC1:" + hex_of(kGetDeviceId, 0, 7);
    ASSERT_EQ(testkit::lookups().size(), 1u);
    EXPECT_EQ(testkit::lookups()[0].number, 20020);
    EXPECT_EQ(testkit::lookups()[0].argument, line);
    const auto lines = channel0();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].text, "MSG20020 " + line);
    EXPECT_EQ(lines[0].record.kind, 2);
    EXPECT_EQ(lines[0].record.format, 1);
    EXPECT_EQ(lines[0].record.code, 0);
    EXPECT_EQ(lines[0].record.detail, 0);
}

TEST(IPMI_Message_IF, LongRequestTraceContinuesIn56ByteLines)
{
    Bmc bmc;
    bmc.completion_code = 0xCC;
    ScriptedPeer peer(kPeer, [&](const Bytes &d, int) { return bmc(d); });
    Caller c(2);
    Bytes data(93);
    for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<uint8_t>(i);
    const Bytes request = request_of(0x2E, 0x01, 2, data);
    ASSERT_EQ(request.size(), 100u);
    testkit::clear_trace();
    EXPECT_EQ(exchange(c, request, 0, 1, 1, 128).result, 0);
    const auto lines = channel0();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(testkit::lookups().at(0).argument, "CC=0xCC:" + hex_of(request, 0, 40));
    EXPECT_EQ(lines[1].text, hex_of(request, 40, 56));
    EXPECT_EQ(lines[2].text, hex_of(request, 96, 4));
    for (const auto &l : lines) EXPECT_EQ(l.record.kind, 2);
}

TEST(IPMI_Message_IF, ZeroCompletionCodeIsNotTraced)
{
    Bmc bmc;
    ScriptedPeer peer(kPeer, [&](const Bytes &d, int) { return bmc(d); });
    Caller c(3);
    testkit::clear_trace();
    EXPECT_EQ(exchange(c, kGetDeviceId).result, 0);
    EXPECT_TRUE(channel0().empty());
    EXPECT_TRUE(testkit::lookups().empty());
}

// ------------------------------------------------------------ exhaustion

TEST(IPMI_Message_IF, LastInboundNumberReleasesTheSessionAfterTheResponse)
{
    Bmc bmc;
    bmc.sequence = 0xFFFFFFFF;
    ScriptedPeer peer(kPeer, [&](const Bytes &d, int) { return bmc(d); });
    Caller c(3);
    c.s()->recv_seq_auth = 0xFFFFFFF0;
    const Exchange e = exchange(c, kGetDeviceId);
    EXPECT_EQ(e.result, 0);
    EXPECT_EQ(e.released, 1u);
    EXPECT_EQ(e.response, response_to(kGetDeviceId, 0, bmc.data));
    EXPECT_EQ(c.param.session, nullptr);
    EXPECT_TRUE(c.socket_closed());
    testkit::clear_trace();
    EXPECT_EQ(exchange(c, kGetDeviceId).result, 1);
    EXPECT_EQ(testkit::log_lines(), Lines{"Null input data.\n"});
}

TEST(IPMI_Message_IF, WrappedOutboundCounterReleasesTheSessionAfterTheSend)
{
    Bmc bmc;
    ScriptedPeer peer(kPeer, [&](const Bytes &d, int) { return bmc(d); });
    Caller c(2);
    c.s()->send_seq_auth = 0xFFFFFFFF;
    const Exchange e = exchange(c, kGetDeviceId);
    EXPECT_EQ(e.result, 5);
    EXPECT_EQ(e.released, 1u);
    EXPECT_EQ(c.param.session, nullptr);
    EXPECT_TRUE(c.socket_closed());
    stop_after(peer, 1);
    ASSERT_EQ(peer.requests().size(), 1u);
    EXPECT_EQ(open_datagram(peer.requests()[0])->sequence, 0xFFFFFFFFu);
}

TEST(IPMI_Message_IF, SpentWhileWaitingIsFive)
{
    Bmc bmc;
    ScriptedPeer peer(kPeer, [&](const Bytes &d, int) {
        const auto o = open_datagram(d);
        Opened other = *o;
        other.message = request_of(0x06, 0x02, 1);
        return std::vector<Bytes>{bmc.answer(other, 0x40, 0xFFFFFFFF, 0, {})};
    });
    Caller c(2);
    c.s()->recv_seq_auth = 0xFFFFFFF0;
    const Exchange e = exchange(c, kGetDeviceId);
    EXPECT_EQ(e.result, 5);
    EXPECT_EQ(e.released, 1u);
    EXPECT_EQ(c.param.session, nullptr);
}

// ------------------------------------------------------------ sending alone

TEST(Send_IPMI_Message, ArgumentChecks)
{
    Caller c(0);
    uint32_t released = 99;
    testkit::clear_trace();
    EXPECT_EQ(Send_IPMI_Message(nullptr, kGetDeviceId.data(), 7, 0, &released), 1);
    EXPECT_EQ(released, 0u);
    EXPECT_EQ(Send_IPMI_Message(&c.param, nullptr, 7, 0, &released), 1);
    EXPECT_EQ(Send_IPMI_Message(&c.param, kGetDeviceId.data(), 7, 0, nullptr), 1);
    EXPECT_EQ(Send_IPMI_Message(&c.param, kGetDeviceId.data(), 6, 0, &released), 1);
    EXPECT_EQ(Send_IPMI_Message(&c.param, kGetDeviceId.data(), 7, 2, &released), 1);
    EXPECT_EQ(Send_IPMI_Message(&c.param, kGetDeviceId.data(), 7, 0x40, &released), 1);
    EXPECT_EQ(testkit::log_lines(),
              (Lines{"Null input data.\n", "Null input data.\n", "Null input data.\n",
                     "Invalid Request Data Length.\n", "No specified auth_option.\n", "No specified auth_option.\n"}));
    EXPECT_EQ(c.s()->send_seq_unauth, 1u);
}

TEST(Send_IPMI_Message, AuthOptionChoosesTheProtection)
{
    struct Case {
        uint8_t per_msg;
        int option;
        uint8_t type;
    };
    const Case cases[] = {{0, 0, 0xC0},    {0, 1, 0xC0},    {0x10, 1, 0x00}, {0x10, 0, 0xC0},
                          {0, 0x10, 0x40}, {0, 0x20, 0x80}, {0, 0x30, 0xC0}, {0x10, 0x20, 0x80}};
    ScriptedPeer peer(kPeer, [](const Bytes &, int) { return std::vector<Bytes>{}; });
    for (const auto &k : cases) {
        Caller c(3);
        c.s()->per_msg_auth_status = k.per_msg;
        uint32_t released = 9;
        EXPECT_EQ(Send_IPMI_Message(&c.param, kGetDeviceId.data(), 7, k.option, &released), 0);
        EXPECT_EQ(released, 0u);
        EXPECT_EQ(c.s()->auth_option, k.type >> 2);
    }
    stop_after(peer, std::size(cases));
    const auto requests = peer.requests();
    ASSERT_EQ(requests.size(), std::size(cases));
    for (size_t i = 0; i < requests.size(); ++i) {
        EXPECT_EQ(requests[i][5], cases[i].type) << i;
        const auto o = open_datagram(requests[i]);
        ASSERT_TRUE(o) << i;
        EXPECT_EQ(o->message, kGetDeviceId);
    }
}

TEST(Send_IPMI_Message, SendFailureIsReported)
{
    Caller c(0);
    ::close(c.s()->socket_fd);
    c.s()->socket_fd = connected_socket(kPeer, 6235);
    c.fd = c.s()->socket_fd;
    ::send(c.fd, kGetDeviceId.data(), 7, 0);
    rakptest::sleep_ms(50);
    uint32_t released = 9;
    testkit::clear_trace();
    EXPECT_EQ(Send_IPMI_Message(&c.param, kGetDeviceId.data(), 7, 0, &released), 8);
    EXPECT_EQ(released, 0u);
    EXPECT_EQ(testkit::log_lines(), (Lines{"Failed to send RMCP packet\n", "Failed to do IPMI Message.\n"}));
}

TEST(Send_IPMI_Message, SpentSessionIsReleased)
{
    Caller c(2);
    c.s()->closed = 1;
    uint32_t released = 9;
    testkit::clear_trace();
    EXPECT_EQ(Send_IPMI_Message(&c.param, kGetDeviceId.data(), 7, 0, &released), 5);
    EXPECT_EQ(released, 1u);
    EXPECT_EQ(c.param.session, nullptr);
    EXPECT_TRUE(c.socket_closed());
    EXPECT_EQ(testkit::log_lines(), Lines{"Failed to do IPMI Message.\n"});
}

TEST(Send_IPMI_Message, WrappingSendSucceedsAndReleases)
{
    ScriptedPeer peer(kPeer, [](const Bytes &, int) { return std::vector<Bytes>{}; });
    Caller c(0);
    c.s()->send_seq_unauth = 0xFFFFFFFF;
    uint32_t released = 9;
    EXPECT_EQ(Send_IPMI_Message(&c.param, kGetDeviceId.data(), 7, 0, &released), 0);
    EXPECT_EQ(released, 1u);
    EXPECT_EQ(c.param.session, nullptr);
    stop_after(peer, 1);
    EXPECT_EQ(peer.requests().size(), 1u);
}

// ------------------------------------------------------------ receiving alone

TEST(Get_IPMI_Message, ReceivesWithItsPayloadFlags)
{
    Bmc bmc;
    ScriptedPeer peer(kPeer, [&](const Bytes &d, int) { return bmc(d); });
    Caller c(3);
    uint32_t released = 9;
    ASSERT_EQ(Send_IPMI_Message(&c.param, kGetDeviceId.data(), 7, 0, &released), 0);
    uint8_t response[64];
    uint32_t length = 0;
    uint8_t flags = 0;
    EXPECT_EQ(Get_IPMI_Message(&c.param, response, sizeof response, &length, 1, &flags, &released), 0);
    EXPECT_EQ(Bytes(response, response + length), response_to(kGetDeviceId, 0, bmc.data));
    EXPECT_EQ(flags, 0x30);
    EXPECT_EQ(released, 0u);

    testkit::clear_trace();
    EXPECT_EQ(Get_IPMI_Message(&c.param, response, sizeof response, &length, 1, &flags, &released), 7);
    EXPECT_EQ(testkit::log_lines(),
              (Lines{"Timeout, could not receive any packet.\n", "Failed to do IPMI Message.\n"}));
}

TEST(Get_IPMI_Message, NullInputs)
{
    Caller c(0);
    uint8_t response[16], flags = 0;
    uint32_t length = 0, released = 9;
    testkit::clear_trace();
    EXPECT_EQ(Get_IPMI_Message(nullptr, response, 16, &length, 1, &flags, &released), 1);
    EXPECT_EQ(released, 0u);
    EXPECT_EQ(Get_IPMI_Message(&c.param, nullptr, 16, &length, 1, &flags, &released), 1);
    EXPECT_EQ(Get_IPMI_Message(&c.param, response, 16, nullptr, 1, &flags, &released), 1);
    EXPECT_EQ(Get_IPMI_Message(&c.param, response, 16, &length, 1, nullptr, &released), 1);
    EXPECT_EQ(Get_IPMI_Message(&c.param, response, 16, &length, 1, &flags, nullptr), 1);
    EXPECT_EQ(Get_IPMI_Message_Nowait(nullptr, response, 16, &length, &released), 1);
    EXPECT_EQ(Get_IPMI_Message_Nowait(&c.param, nullptr, 16, &length, &released), 1);
    EXPECT_EQ(Get_IPMI_Message_Nowait(&c.param, response, 16, nullptr, &released), 1);
    EXPECT_EQ(Get_IPMI_Message_Nowait(&c.param, response, 16, &length, nullptr), 1);
    EXPECT_EQ(testkit::log_lines(), Lines(9, "Null input data.\n"));
}

TEST(Get_IPMI_Message, SpentByTheResponseReleases)
{
    Bmc bmc;
    bmc.sequence = 0xFFFFFFFF;
    ScriptedPeer peer(kPeer, [&](const Bytes &d, int) { return bmc(d); });
    Caller c(0);
    c.s()->recv_seq_unauth = 0xFFFFFFF0;
    uint32_t released = 9;
    ASSERT_EQ(Send_IPMI_Message(&c.param, kGetDeviceId.data(), 7, 0, &released), 0);
    uint8_t response[64], flags = 9;
    uint32_t length = 0;
    EXPECT_EQ(Get_IPMI_Message(&c.param, response, sizeof response, &length, 1, &flags, &released), 0);
    EXPECT_EQ(released, 1u);
    EXPECT_EQ(flags, 0);
    EXPECT_EQ(c.param.session, nullptr);
}

TEST(Get_IPMI_Message_Nowait, StoresTheReceivedProtectionForTheNextSend)
{
    Bmc bmc;
    ScriptedPeer peer(kPeer, [&](const Bytes &d, int) {
        const auto o = open_datagram(d);
        return std::vector<Bytes>{bmc.answer(*o, 0x40, 1, 0, {0x01})};
    });
    Caller c(3);
    uint32_t released = 9;
    ASSERT_EQ(Send_IPMI_Message(&c.param, kGetDeviceId.data(), 7, 0, &released), 0);
    EXPECT_EQ(c.s()->auth_option, 0x30);
    rakptest::sleep_ms(100);
    uint8_t response[64];
    uint32_t length = 0;
    EXPECT_EQ(Get_IPMI_Message_Nowait(&c.param, response, sizeof response, &length, &released), 0);
    EXPECT_EQ(Bytes(response, response + length), response_to(kGetDeviceId, 0, {0x01}));
    EXPECT_EQ(c.s()->auth_option, 0x10);
    EXPECT_EQ(released, 0u);
    // Nothing waiting: 7, and the option stays.
    EXPECT_EQ(Get_IPMI_Message_Nowait(&c.param, response, sizeof response, &length, &released), 7);
    EXPECT_EQ(c.s()->auth_option, 0x10);
    // The next packet repeats the received protection.
    ASSERT_EQ(RMCPp_Send_Message(c.s(), kGetDeviceId.data(), 7), 0);
    stop_after(peer, 2);
    EXPECT_EQ(peer.requests().back()[5], 0x40);
}

// ------------------------------------------------------------ bridged responses

TEST(Get_IPMB_Response, ReceivesTheBridgedAnswerLater)
{
    // Send Message (App 0x34) carrying Get Device ID for the IPMB; its own
    // answer comes first, the embedded response later as its own message.
    const Bytes bridged = rakptest::ipmi_message(0x72, 0x18, 0x20, 0x14, 0x01, {});
    const Bytes send_message = request_of(0x06, 0x34, 4, cat({{0x40}, bridged}));
    Bmc bmc;
    ScriptedPeer peer(kPeer, [&](const Bytes &d, int) {
        const auto o = open_datagram(d);
        Opened inner = *o;
        inner.message = bridged;
        return std::vector<Bytes>{bmc.answer(*o, 0xC0, 1, 0, {}), bmc.answer(inner, 0xC0, 2, 0, {0x20, 0x81})};
    });
    Caller c(3);
    const Exchange e = exchange(c, send_message);
    ASSERT_EQ(e.result, 0);
    uint8_t response[64];
    uint32_t length = 0, released = 9;
    EXPECT_EQ(Get_IPMB_Response(&c.param, bridged.data(), 6, response, sizeof response, &length, &released, 0x30, 1),
              0);
    EXPECT_EQ(Bytes(response, response + length), response_to(bridged, 0, {0x20, 0x81}));
    EXPECT_EQ(released, 0u);
}

TEST(Get_IPMB_Response, ArgumentChecksAndTimeout)
{
    Caller c(0);
    uint8_t response[64];
    uint32_t length = 0, released = 9;
    const uint8_t *req = kGetDeviceId.data();
    testkit::clear_trace();
    EXPECT_EQ(Get_IPMB_Response(nullptr, req, 7, response, 64, &length, &released, 0, 1), 1);
    EXPECT_EQ(released, 0u);
    EXPECT_EQ(Get_IPMB_Response(&c.param, nullptr, 7, response, 64, &length, &released, 0, 1), 1);
    EXPECT_EQ(Get_IPMB_Response(&c.param, req, 7, nullptr, 64, &length, &released, 0, 1), 1);
    EXPECT_EQ(Get_IPMB_Response(&c.param, req, 7, response, 64, nullptr, &released, 0, 1), 1);
    EXPECT_EQ(Get_IPMB_Response(&c.param, req, 7, response, 64, &length, nullptr, 0, 1), 1);
    EXPECT_EQ(Get_IPMB_Response(&c.param, req, 5, response, 64, &length, &released, 0, 1), 1);
    EXPECT_EQ(testkit::log_lines(), (Lines{"Null input data.\n", "Null input data.\n", "Null input data.\n",
                                           "Null input data.\n", "Null input data.\n", "Header size is small.\n"}));
    testkit::UdpPeer quiet(kPeer);
    EXPECT_EQ(Get_IPMB_Response(&c.param, req, 6, response, 64, &length, &released, 0, 1), 7);
    EXPECT_EQ(released, 0u);
}

// ------------------------------------------------------------ Close Session

const Bytes kCloseSession = rakptest::ipmi_message(0x20, 0x18, 0x71, 0x04, 0x3C, le32(kBmcSessionId));

TEST(IPMI_CloseSession, SendsCloseSessionAndReleases)
{
    for (int suite = 0; suite <= 3; ++suite) {
        Bmc bmc;
        bmc.data = {};
        ScriptedPeer peer(kPeer, [&](const Bytes &d, int) { return bmc(d); });
        Caller c(suite);
        testkit::clear_trace();
        EXPECT_EQ(IPMI_CloseSession(&c.param), 0);
        EXPECT_EQ(c.param.session, nullptr);
        EXPECT_TRUE(c.socket_closed());
        EXPECT_TRUE(testkit::log_lines().empty());
        peer.stop();
        ASSERT_EQ(peer.requests().size(), 1u);
        const auto o = open_datagram(peer.requests()[0]);
        ASSERT_TRUE(o);
        EXPECT_EQ(o->message, kCloseSession);
        EXPECT_EQ(o->payload_type, protection_of(suite));
    }
}

TEST(IPMI_CloseSession, UsesTheRequesterAddressAndTheResponderOfTheRecord)
{
    Bmc bmc;
    bmc.data = {};
    ScriptedPeer peer(kPeer, [&](const Bytes &d, int) { return bmc(d); });
    Caller c(1);
    c.param.slave_address = 0x82;
    c.param.lun = 2;
    IPMI_SetupConnectSA(0x81);
    EXPECT_EQ(IPMI_CloseSession(&c.param), 0);
    IPMI_SetupConnectSA(0x71);
    peer.stop();
    EXPECT_EQ(open_datagram(peer.requests().at(0))->message,
              rakptest::ipmi_message(0x82, 0x1A, 0x81, 0x04, 0x3C, le32(kBmcSessionId)));
}

TEST(IPMI_CloseSession, RefusedCloseIs67AndStillReleases)
{
    Bmc bmc;
    bmc.completion_code = 0x87;
    bmc.data = {};
    ScriptedPeer peer(kPeer, [&](const Bytes &d, int) { return bmc(d); });
    Caller c(3);
    testkit::clear_trace();
    EXPECT_EQ(IPMI_CloseSession(&c.param), 67);
    EXPECT_EQ(c.param.session, nullptr);
    EXPECT_TRUE(c.socket_closed());
    EXPECT_EQ(testkit::log_lines(), Lines{"Error CompCode for Close Session.\n"});
    EXPECT_EQ(testkit::lookups().size(), 1u);
}

TEST(IPMI_CloseSession, UnansweredCloseIsFourAndStillReleases)
{
    ScriptedPeer peer(kPeer, [](const Bytes &, int) { return std::vector<Bytes>{}; });
    Caller c(2);
    EXPECT_EQ(IPMI_CloseSession(&c.param), 4);
    EXPECT_EQ(c.param.session, nullptr);
    EXPECT_TRUE(c.socket_closed());
    peer.stop();
    EXPECT_EQ(peer.requests().size(), 1u);
}

TEST(IPMI_CloseSession, SessionSpentInsideTheExchangeIsReleasedOnce)
{
    {
        ScriptedPeer peer(kPeer, [](const Bytes &, int) { return std::vector<Bytes>{}; });
        Caller c(3);
        c.s()->send_seq_auth = 0xFFFFFFFF;
        EXPECT_EQ(IPMI_CloseSession(&c.param), 5);
        EXPECT_EQ(c.param.session, nullptr);
        EXPECT_TRUE(c.socket_closed());
    }
    {
        Bmc bmc;
        bmc.sequence = 0xFFFFFFFF;
        bmc.data = {};
        ScriptedPeer peer(kPeer, [&](const Bytes &d, int) { return bmc(d); });
        Caller c(0);
        c.s()->recv_seq_unauth = 0xFFFFFFF8;
        EXPECT_EQ(IPMI_CloseSession(&c.param), 0);
        EXPECT_EQ(c.param.session, nullptr);
        EXPECT_TRUE(c.socket_closed());
    }
}

TEST(IPMI_CloseSession, NullInputs)
{
    testkit::clear_trace();
    EXPECT_EQ(IPMI_CloseSession(nullptr), 1);
    IPMI_SessionParam none{};
    EXPECT_EQ(IPMI_CloseSession(&none), 1);
    EXPECT_EQ(testkit::log_lines(), Lines(2, "Null input data.\n"));
}

}  // namespace
