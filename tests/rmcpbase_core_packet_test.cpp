// Building and sending RMCP+ session packets: the whole datagram of each
// cipher suite against bytes computed with OpenSSL, the protection rule,
// the pads, the counters and the exhaustion flag.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "packet_testkit.h"
#include "rmcpp.h"
#include "trace_capture.h"

namespace {

using namespace packettest;
using Lines = std::vector<std::string>;

constexpr uint8_t kPeer = 70;

struct SessionPtr {
    RMCPp_Session *s;
    explicit SessionPtr(int suite, int fd = -1) : s(make_session(suite, fd)) {}
    ~SessionPtr() { std::free(s); }
    RMCPp_Session *operator->() const { return s; }
};

Bytes build(RMCPp_Session *s, const Bytes &message, uint32_t size = 1024, int *result = nullptr)
{
    Bytes buffer(size);
    uint32_t length = 0;
    const int r = MakeRMCP_pluse_Packet(s, message.data(), static_cast<uint32_t>(message.size()), buffer.data(), size,
                                        &length);
    if (result) *result = r;
    if (r != 0) return {};
    buffer.resize(length);
    return buffer;
}

Bytes iv_in(const Bytes &d) { return Bytes(d.begin() + 16, d.begin() + 32); }

Bytes message_of(size_t data_length)
{
    Bytes data(data_length);
    for (size_t i = 0; i < data_length; ++i) data[i] = static_cast<uint8_t>(0xA0 + i);
    return request_of(0x06, 0x01, 5, data);
}

// ------------------------------------------------------------ known answers

TEST(MakeRMCP_pluse_Packet, WholeDatagramOfEachSuiteEqualsIndependentBytes)
{
    for (int suite = 0; suite <= 3; ++suite) {
        SessionPtr s(suite);
        s->send_seq_auth = 0x01020304;
        s->send_seq_unauth = 0x0A0B0C0D;
        const Bytes message = request_of(0x06, 0x01, 9);
        const Bytes d = build(s.s, message);
        const uint8_t type = protection_of(suite);
        const uint32_t sequence = integrity_of(suite) ? 0x01020304 : 0x0A0B0C0D;
        const Bytes iv = confidentiality_of(suite) ? iv_in(d) : Bytes{};
        EXPECT_EQ(d, session_datagram(type, kBmcSessionId, sequence, message, iv)) << "suite " << suite;
        // Building changes no counter.
        EXPECT_EQ(s->send_seq_auth, 0x01020304u);
        EXPECT_EQ(s->send_seq_unauth, 0x0A0B0C0Du);
    }
}

TEST(MakeRMCP_pluse_Packet, EveryPadLengthOfSuitesTwoAndThree)
{
    for (int suite = 2; suite <= 3; ++suite)
        for (size_t n = 0; n <= 40; ++n) {
            SessionPtr s(suite);
            const Bytes message = message_of(n);
            const Bytes d = build(s.s, message);
            const Bytes iv = suite == 3 ? iv_in(d) : Bytes{};
            EXPECT_EQ(d, session_datagram(protection_of(suite), kBmcSessionId, 1, message, iv))
                << "suite " << suite << " data " << n;
            EXPECT_EQ((d.size() - 4 - 12) % 4, 0u);
        }
}

TEST(MakeRMCP_pluse_Packet, FreshIvForEveryPacket)
{
    SessionPtr s(3);
    const Bytes a = build(s.s, message_of(0)), b = build(s.s, message_of(0));
    EXPECT_NE(iv_in(a), iv_in(b));
}

// ------------------------------------------------------------ layouts

TEST(MakeRMCP_pluse_Packet, SuiteZeroSevenByteMessageIs23Bytes)
{
    SessionPtr s(0);
    const Bytes m = message_of(0);
    const Bytes d = build(s.s, m);
    ASSERT_EQ(d.size(), 23u);
    EXPECT_EQ(d[5], 0x00);
    EXPECT_EQ(d[14], 7);
    EXPECT_EQ(d[15], 0);
    EXPECT_EQ(Bytes(d.begin() + 16, d.end()), m);
}

TEST(MakeRMCP_pluse_Packet, IntegrityOnlySevenByteMessageIs40Bytes)
{
    SessionPtr s(2);
    const Bytes d = build(s.s, message_of(0));
    ASSERT_EQ(d.size(), 40u);
    EXPECT_EQ(d[5], 0x40);
    EXPECT_EQ(d[14], 7);
    EXPECT_EQ(Bytes(d.begin() + 23, d.begin() + 28), (Bytes{0xFF, 0xFF, 0xFF, 0x03, 0x07}));
    const Bytes code = hmac_sha1(test_sik(), Bytes(d.begin() + 4, d.begin() + 28));
    EXPECT_EQ(Bytes(d.begin() + 28, d.end()), Bytes(code.begin(), code.begin() + 12));
}

TEST(MakeRMCP_pluse_Packet, IntegrityAndConfidentialitySevenByteMessage)
{
    SessionPtr s(3);
    const Bytes d = build(s.s, message_of(0));
    EXPECT_EQ(d[5], 0xC0);
    EXPECT_EQ(d[14], 32);
    ASSERT_EQ(d.size(), 16u + 32 + 2 + 2 + 12);
    EXPECT_EQ(Bytes(d.begin() + 48, d.begin() + 52), (Bytes{0xFF, 0xFF, 0x02, 0x07}));
    const auto o = open_datagram(d);
    ASSERT_TRUE(o);
    EXPECT_EQ(o->message, message_of(0));
    const Bytes clear = aes_cbc(aes_key(), iv_in(d),
                                Bytes(d.begin() + 32, d.begin() + 48), false);
    EXPECT_EQ(Bytes(clear.begin() + 7, clear.end()), (Bytes{1, 2, 3, 4, 5, 6, 7, 8, 8}));
}

TEST(MakeRMCP_pluse_Packet, ConfidentialityPadForFifteenSixteenAndZeroBytes)
{
    struct Case {
        size_t n;
        size_t field;
        uint8_t pad;
    };
    for (const Case c : {Case{15, 32, 0}, Case{16, 48, 15}, Case{0, 32, 15}}) {
        SessionPtr s(3);
        s->integrity_alg = 0;
        s->auth_option = 0;
        Bytes message(c.n, 0x5A);
        const Bytes d = build(s.s, message);
        ASSERT_EQ(d.size(), 16 + c.field) << c.n;
        EXPECT_EQ(d[5], 0x80);
        const Bytes clear = aes_cbc(aes_key(), iv_in(d),
                                    Bytes(d.begin() + 32, d.end()), false);
        EXPECT_EQ(clear.back(), c.pad) << c.n;
        for (size_t i = 1; i <= c.pad; ++i) EXPECT_EQ(clear[c.n + i - 1], i);
        EXPECT_EQ(Bytes(clear.begin(), clear.begin() + static_cast<long>(c.n)), message);
    }
}

// ------------------------------------------------------------ protection rule

struct RuleCase {
    int suite;
    uint8_t last;
    uint8_t type;
    bool trailer;
};

TEST(MakeRMCP_pluse_Packet, ProtectionFollowsTheLastPacketSent)
{
    const RuleCase cases[] = {
        {3, 0x00, 0xC0, true},  {3, 0x10, 0x40, true},  {3, 0x20, 0x80, false}, {3, 0x30, 0xC0, true},
        {3, 0x01, 0x00, false}, {2, 0x20, 0x00, false}, {2, 0x30, 0x40, true},  {1, 0x00, 0x00, false},
        {0, 0x10, 0x40, false}, {0, 0x30, 0x40, false}, {1, 0x20, 0x00, false},
    };
    for (const auto &c : cases) {
        SessionPtr s(c.suite);
        s->auth_option = c.last;
        s->send_seq_auth = 0x100;
        s->send_seq_unauth = 0x200;
        const Bytes message = message_of(3);
        const Bytes d = build(s.s, message);
        const std::string what = "suite " + std::to_string(c.suite) + " last " + std::to_string(c.last);
        ASSERT_GE(d.size(), 16u) << what;
        EXPECT_EQ(d[5], c.type) << what;
        EXPECT_EQ(get_le32(d, 10), (c.type & 0x40) ? 0x100u : 0x200u) << what;
        const size_t payload = d[14] | (d[15] << 8);
        EXPECT_EQ(d.size() > 16 + payload, c.trailer) << what;
        const Bytes iv = (c.type & 0x80) ? iv_in(d) : Bytes{};
        Bytes expected = session_datagram(static_cast<uint8_t>(c.type & 0x80), kBmcSessionId, get_le32(d, 10),
                                          message, iv);
        expected[5] = c.type;
        if (c.trailer) add_trailer(expected, test_sik());
        EXPECT_EQ(d, expected) << what;
    }
}

// ------------------------------------------------------------ failures

struct SizeCase {
    int suite;
    uint32_t size;
    Lines messages;
};

TEST(MakeRMCP_pluse_Packet, EveryShortBufferIsRefusedWithItsMessage)
{
    const SizeCase cases[] = {
        {0, 3, {"Insufficinet size of Data [Make RMCP Header]\n", "Failed to Make RMCP Header.\n"}},
        {0, 15, {"Insufficient Data Size.\n"}},
        {3, 31, {"Insufficient Data Size.\n"}},
        {0, 16 + 6, {"Insufficient Data Size.\n"}},
        {3, 32 + 6, {"Insufficient Data Size.\n"}},
        {3, 32 + 7 + 8, {"Insufficient Data Size.\n"}},
        {2, 16 + 7 + 3 + 14 - 1, {"Insufficient Data Size.\n"}},
        {3, 32 + 7 + 9 + 2 + 14 - 1, {"Insufficient Data Size.\n"}},
    };
    for (const auto &c : cases) {
        SessionPtr s(c.suite);
        testkit::clear_trace();
        int result = -9;
        build(s.s, message_of(0), c.size, &result);
        EXPECT_EQ(result, 1) << c.size;
        EXPECT_EQ(testkit::log_lines(), c.messages) << c.size;
    }
    // One byte more than each limit is enough.
    for (const auto &[suite, size] : {std::pair{0, 23u}, {2, 40u}, {3, 64u}}) {
        SessionPtr s(suite);
        int result = -9;
        EXPECT_EQ(build(s.s, message_of(0), size, &result).size(), size);
        EXPECT_EQ(result, 0);
    }
}

TEST(MakeRMCP_pluse_Packet, UnsupportedConfidentialityAlgorithm)
{
    SessionPtr s(3);
    s->confidentiality_alg = 2;
    testkit::clear_trace();
    int result = -9;
    build(s.s, message_of(0), 1024, &result);
    EXPECT_EQ(result, 1);
    EXPECT_EQ(testkit::log_lines(), Lines{"Type 02 is Not supported Confidentiality algorithm.\n"});
}

TEST(MakeRMCP_pluse_Packet, UnsupportedIntegrityAlgorithm)
{
    SessionPtr s(2);
    s->integrity_alg = 2;
    testkit::clear_trace();
    int result = -9;
    build(s.s, message_of(0), 1024, &result);
    EXPECT_EQ(result, 1);
    EXPECT_EQ(testkit::log_lines(), Lines{"This program not support Integrity algorithm.\n"});
}

// ------------------------------------------------------------ sending

struct Wire {
    testkit::UdpPeer peer{kPeer};
    int fd = connected_socket(kPeer);
    ~Wire() { ::close(fd); }
};

TEST(RMCPp_Send_Message, SendsTheBuiltPacketAndAdvancesTheCounterUsed)
{
    for (int suite = 0; suite <= 3; ++suite) {
        Wire w;
        SessionPtr s(suite, w.fd);
        const Bytes message = message_of(2);
        ASSERT_EQ(RMCPp_Send_Message(s.s, message.data(), static_cast<uint32_t>(message.size())), 0);
        auto d = w.peer.receive(1000);
        ASSERT_TRUE(d) << suite;
        auto o = open_datagram(*d);
        ASSERT_TRUE(o) << suite;
        EXPECT_EQ(o->message, message);
        EXPECT_EQ(o->sequence, 1u);
        EXPECT_EQ(o->session_id, kBmcSessionId);
        EXPECT_EQ(s->send_seq_auth, integrity_of(suite) ? 2u : 1u);
        EXPECT_EQ(s->send_seq_unauth, integrity_of(suite) ? 1u : 2u);
        EXPECT_EQ(s->auth_option, static_cast<uint8_t>(protection_of(suite) >> 2));
        EXPECT_EQ(s->closed, 0);
        // The second packet repeats the protection of the first.
        ASSERT_EQ(RMCPp_Send_Message(s.s, message.data(), static_cast<uint32_t>(message.size())), 0);
        d = w.peer.receive(1000);
        ASSERT_TRUE(d);
        o = open_datagram(*d);
        ASSERT_TRUE(o);
        EXPECT_EQ(o->payload_type, protection_of(suite));
        EXPECT_EQ(o->sequence, 2u);
    }
}

TEST(RMCPp_Send_Message, LargestRequestIs65471Bytes)
{
    Wire w;
    SessionPtr s(0, w.fd);
    Bytes data(65472, 0x11);
    testkit::clear_trace();
    EXPECT_EQ(RMCPp_Send_Message(s.s, data.data(), 65472), 2);
    EXPECT_EQ(testkit::log_lines(), Lines{"Request data size is over lmitation(65471).\n"});
    EXPECT_EQ(s->send_seq_unauth, 1u);
    EXPECT_EQ(RMCPp_Send_Message(s.s, data.data(), 65471), 0);
    const auto d = w.peer.receive(1000);
    ASSERT_TRUE(d);
    EXPECT_EQ(d->size(), 65471u + 16);
    EXPECT_EQ(w.peer.received_count(), 1);
}

TEST(RMCPp_Send_Message, ExhaustedSessionSendsNothing)
{
    Wire w;
    SessionPtr s(2, w.fd);
    s->closed = 1;
    testkit::clear_trace();
    const Bytes m = message_of(0);
    EXPECT_EQ(RMCPp_Send_Message(s.s, m.data(), 7), 5);
    EXPECT_TRUE(testkit::log_lines().empty());
    EXPECT_FALSE(w.peer.receive(100));
    EXPECT_EQ(s->send_seq_auth, 1u);
}

TEST(RMCPp_Send_Message, BuildFailureIsCodeThreeAndChangesNothing)
{
    Wire w;
    SessionPtr s(2, w.fd);
    s->integrity_alg = 2;
    testkit::clear_trace();
    const Bytes m = message_of(0);
    EXPECT_EQ(RMCPp_Send_Message(s.s, m.data(), 7), 3);
    EXPECT_EQ(testkit::log_lines(),
              (Lines{"This program not support Integrity algorithm.\n", "Failed to make RMCP+ packet.\n"}));
    EXPECT_EQ(s->send_seq_auth, 1u);
    EXPECT_EQ(s->auth_option, 0);
    EXPECT_FALSE(w.peer.receive(100));
}

TEST(RMCPp_Send_Message, SendFailureIsCodeEightAndChangesNothing)
{
    // A connected socket whose peer port is closed: the first send succeeds
    // and draws an ICMP refusal, which the next send reports.
    const int fd = connected_socket(kPeer, 6232);
    SessionPtr s(3, fd);
    const Bytes m = message_of(0);
    ::send(fd, m.data(), m.size(), 0);
    rakptest::sleep_ms(50);
    testkit::clear_trace();
    EXPECT_EQ(RMCPp_Send_Message(s.s, m.data(), 7), 8);
    EXPECT_EQ(testkit::log_lines(), Lines{"Failed to send RMCP packet\n"});
    EXPECT_EQ(s->send_seq_auth, 1u);
    EXPECT_EQ(s->send_seq_unauth, 1u);
    EXPECT_EQ(s->auth_option, 0);
    ::close(fd);
}

TEST(RMCPp_Send_Message, CounterWrappingToZeroSpendsTheSession)
{
    for (int suite : {0, 2, 3}) {
        Wire w;
        SessionPtr s(suite, w.fd);
        (integrity_of(suite) ? s->send_seq_auth : s->send_seq_unauth) = 0xFFFFFFFF;
        const Bytes m = message_of(1);
        EXPECT_EQ(RMCPp_Send_Message(s.s, m.data(), static_cast<uint32_t>(m.size())), 0);
        const auto d = w.peer.receive(1000);
        ASSERT_TRUE(d);
        EXPECT_EQ(get_le32(*d, 10), 0xFFFFFFFFu);
        EXPECT_EQ(s->closed, 1);
        testkit::clear_trace();
        EXPECT_EQ(RMCPp_Send_Message(s.s, m.data(), static_cast<uint32_t>(m.size())), 5);
        EXPECT_TRUE(testkit::log_lines().empty());
        EXPECT_FALSE(w.peer.receive(100)) << suite;
    }
}

TEST(RMCPp_Send_Message, EitherCounterAtZeroSpendsTheSession)
{
    Wire w;
    SessionPtr s(2, w.fd);
    s->send_seq_unauth = 0;
    const Bytes m = message_of(1);
    EXPECT_EQ(RMCPp_Send_Message(s.s, m.data(), static_cast<uint32_t>(m.size())), 0);
    EXPECT_EQ(s->send_seq_auth, 2u);
    EXPECT_EQ(s->closed, 1);
}

}  // namespace
