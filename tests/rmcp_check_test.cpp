// Receiving RMCP+ session packets: the sequence-number windows, the session
// header and trailer checks in their order, the confidentiality payload
// checks, and both receive functions over a socket.
#include <gtest/gtest.h>
#include <sys/time.h>

#include <string>
#include <vector>

#include "packet_testkit.h"
#include "rmcpp.h"
#include "trace_capture.h"

namespace {

using namespace packettest;
using Lines = std::vector<std::string>;

constexpr uint8_t kPeer = 71;

struct SessionPtr {
    RMCPp_Session *s;
    explicit SessionPtr(int suite, int fd = -1) : s(make_session(suite, fd)) {}
    ~SessionPtr() { std::free(s); }
    RMCPp_Session *operator->() const { return s; }
};

const Bytes kMessage = response_to(request_of(0x06, 0x01, 3), 0x00, {0x20, 0x01, 0x02});

// A datagram from the managed system to this console.
Bytes inbound(int suite, uint32_t sequence, const Bytes &message = kMessage, uint8_t iv_start = 0x70)
{
    return session_datagram(protection_of(suite), kConsoleSessionId, sequence, message,
                            confidentiality_of(suite) ? fixed_iv(iv_start) : Bytes{});
}

// Re-signs a datagram after a change to its covered bytes.
Bytes resigned(Bytes d)
{
    d.resize(d.size() - 12);
    const Bytes code = hmac_sha1(test_sik(), Bytes(d.begin() + 4, d.end()));
    d.insert(d.end(), code.begin(), code.begin() + 12);
    return d;
}

// ------------------------------------------------------------ window

TEST(CheckSessSeqNum, WindowCasesAroundOneHundred)
{
    SessionPtr s(2);
    s->recv_seq_auth = 100;
    s->recv_window_auth = 0xFFFF;
    EXPECT_EQ(CheckSessSeqNum(s.s, 116, 0x40), 1);
    EXPECT_EQ(s->recv_seq_auth, 100u);
    EXPECT_EQ(CheckSessSeqNum(s.s, 115, 0x40), 0);
    EXPECT_EQ(s->recv_seq_auth, 115u);
    EXPECT_EQ(s->recv_window_auth, 0x0003);
    EXPECT_EQ(CheckSessSeqNum(s.s, 100, 0x40), 1);
    EXPECT_EQ(CheckSessSeqNum(s.s, 99, 0x40), 1);
    EXPECT_EQ(CheckSessSeqNum(s.s, 114, 0x40), 0);
    EXPECT_EQ(s->recv_window_auth, 0x8003);
    EXPECT_EQ(CheckSessSeqNum(s.s, 114, 0x40), 1);
    EXPECT_EQ(CheckSessSeqNum(s.s, 98, 0x40), 1);
    EXPECT_EQ(CheckSessSeqNum(s.s, 101, 0x40), 0);
    EXPECT_EQ(s->recv_window_auth, 0x8007);
    EXPECT_EQ(s->recv_seq_auth, 115u);
    EXPECT_EQ(s->closed, 0);
}

TEST(CheckSessSeqNum, DuplicateOfTheHighestIsAlwaysRejected)
{
    SessionPtr s(0);
    s->recv_seq_unauth = 7;
    s->recv_window_unauth = 0;
    EXPECT_EQ(CheckSessSeqNum(s.s, 7, 0x00), 1);
    EXPECT_EQ(CheckSessSeqNum(s.s, 8, 0x00), 0);
    EXPECT_EQ(CheckSessSeqNum(s.s, 8, 0x00), 1);
    EXPECT_EQ(s->recv_window_unauth, 0x8000);
}

TEST(CheckSessSeqNum, StepsOfOneShiftInTheOldHighest)
{
    SessionPtr s(0);
    s->recv_window_unauth = 0x0000;
    EXPECT_EQ(CheckSessSeqNum(s.s, 1, 0x00), 0);
    EXPECT_EQ(s->recv_window_unauth, 0x8000);
    EXPECT_EQ(CheckSessSeqNum(s.s, 2, 0x00), 0);
    EXPECT_EQ(s->recv_window_unauth, 0xC000);
    EXPECT_EQ(CheckSessSeqNum(s.s, 4, 0x00), 0);
    EXPECT_EQ(s->recv_window_unauth, 0x7000);
    EXPECT_EQ(CheckSessSeqNum(s.s, 3, 0x00), 0);
    EXPECT_EQ(s->recv_window_unauth, 0xF000);
}

TEST(CheckSessSeqNum, SixteenBehindIsTheOldestAccepted)
{
    SessionPtr s(0);
    s->recv_seq_unauth = 200;
    s->recv_window_unauth = 0x0000;
    EXPECT_EQ(CheckSessSeqNum(s.s, 183, 0x00), 1);
    EXPECT_EQ(CheckSessSeqNum(s.s, 184, 0x00), 0);
    EXPECT_EQ(s->recv_window_unauth, 0x0001);
    EXPECT_EQ(CheckSessSeqNum(s.s, 199, 0x00), 0);
    EXPECT_EQ(s->recv_window_unauth, 0x8001);
}

TEST(CheckSessSeqNum, FirstNumbersOfASessionFromZero)
{
    // Establishment leaves the highest number 0 with a full window.
    SessionPtr s(2);
    EXPECT_EQ(CheckSessSeqNum(s.s, 0, 0x40), 1);
    EXPECT_EQ(CheckSessSeqNum(s.s, 16, 0x40), 1);
    EXPECT_EQ(CheckSessSeqNum(s.s, 15, 0x40), 0);
    EXPECT_EQ(s->recv_window_auth, 0x0003);
    EXPECT_EQ(CheckSessSeqNum(s.s, 1, 0x40), 0);
}

TEST(CheckSessSeqNum, AuthenticatedAndUnauthenticatedWindowsAreSeparate)
{
    SessionPtr s(3);
    EXPECT_EQ(CheckSessSeqNum(s.s, 5, 0xC0), 0);
    EXPECT_EQ(s->recv_seq_auth, 5u);
    EXPECT_EQ(s->recv_seq_unauth, 0u);
    EXPECT_EQ(CheckSessSeqNum(s.s, 5, 0x80), 0);
    EXPECT_EQ(s->recv_seq_unauth, 5u);
    EXPECT_EQ(CheckSessSeqNum(s.s, 5, 0x40), 1);
    EXPECT_EQ(CheckSessSeqNum(s.s, 5, 0x00), 1);
}

TEST(CheckSessSeqNum, AcceptingTheLastNumberSpendsTheSession)
{
    SessionPtr s(2);
    s->recv_seq_auth = 0xFFFFFFF0;
    EXPECT_EQ(CheckSessSeqNum(s.s, 0xFFFFFFFE, 0x40), 0);
    EXPECT_EQ(s->closed, 0);
    EXPECT_EQ(CheckSessSeqNum(s.s, 0xFFFFFFFF, 0x40), 0);
    EXPECT_EQ(s->closed, 1);
    EXPECT_EQ(CheckSessSeqNum(s.s, 0xFFFFFFFF, 0x40), 1);
    // Near the top, "more than 15 ahead" cannot overflow.
    SessionPtr t(0);
    t->recv_seq_unauth = 0xFFFFFFF8;
    EXPECT_EQ(CheckSessSeqNum(t.s, 0xFFFFFFFF, 0x00), 0);
    EXPECT_EQ(t->closed, 1);
}

TEST(CheckSessSeqNum, FifteenAheadKeepsOnlyTheTwoNewestBits)
{
    SessionPtr s(0);
    s->recv_seq_unauth = 10;
    EXPECT_EQ(CheckSessSeqNum(s.s, 25, 0x00), 0);
    EXPECT_EQ(s->recv_window_unauth, 0x0003);
    s->recv_seq_unauth = 0xFFFFFFF0;
    s->recv_window_unauth = 0x0000;
    EXPECT_EQ(CheckSessSeqNum(s.s, 0xFFFFFFFF, 0x00), 0);
    EXPECT_EQ(s->recv_window_unauth, 0x0002);
}

// ------------------------------------------------------------ session header and trailer

struct Checked {
    int result;
    uint32_t length;
    uint32_t header_length;
    uint8_t payload_type;
    Lines lines;
};

Checked head_tail(RMCPp_Session *s, const Bytes &datagram)
{
    testkit::clear_trace();
    Checked c{-9, static_cast<uint32_t>(datagram.size() - 4), 99, 0xEE, {}};
    c.result = Check_IPMIHeadTail(s, datagram.data() + 4, &c.length, &c.header_length, &c.payload_type);
    c.lines = testkit::log_lines();
    return c;
}

TEST(Check_IPMIHeadTail, AcceptsEachSuite)
{
    for (int suite = 0; suite <= 3; ++suite) {
        SessionPtr s(suite);
        const Bytes d = inbound(suite, 1);
        const Checked c = head_tail(s.s, d);
        EXPECT_EQ(c.result, 0) << suite;
        EXPECT_EQ(c.header_length, 12u);
        EXPECT_EQ(c.length, static_cast<uint32_t>(d[14] | (d[15] << 8)));
        EXPECT_EQ(c.payload_type, protection_of(suite));
        EXPECT_TRUE(c.lines.empty());
        EXPECT_EQ(integrity_of(suite) ? s->recv_seq_auth : s->recv_seq_unauth, 1u);
    }
}

TEST(Check_IPMIHeadTail, ShorterThanASessionHeader)
{
    SessionPtr s(0);
    const Bytes d = inbound(0, 1);
    const Checked c = head_tail(s.s, Bytes(d.begin(), d.begin() + 15));
    EXPECT_EQ(c.result, 1);
    EXPECT_EQ(c.lines, Lines{"Received Unexpected Packet.(S_H length)\n"});
    EXPECT_EQ(c.payload_type, 0xEE);
}

TEST(Check_IPMIHeadTail, PayloadLengthBeyondTheDatagram)
{
    SessionPtr s(2);
    Bytes d = inbound(2, 1);
    d[14] = static_cast<uint8_t>(d.size() - 16 + 1);
    const Checked c = head_tail(s.s, d);
    EXPECT_EQ(c.result, 1);
    EXPECT_EQ(c.lines, Lines{"Received Invalid Packet.(S_H Payload length)\n"});
    EXPECT_EQ(c.payload_type, 0xEE);
}

TEST(Check_IPMIHeadTail, AuthenticatedPacketOnASessionWithoutIntegrity)
{
    SessionPtr s(1);
    const Checked c = head_tail(s.s, inbound(2, 1));
    EXPECT_EQ(c.result, 1);
    EXPECT_EQ(c.lines, Lines{"Unsupported Integrity Algorithm.\n"});
    EXPECT_EQ(c.payload_type, 0x40);
}

TEST(Check_IPMIHeadTail, TrailerLengthMustMatchExactly)
{
    SessionPtr s(2);
    for (int extra : {-1, 1, 4}) {
        Bytes d = inbound(2, 1);
        if (extra < 0)
            d.pop_back();
        else
            d.insert(d.end(), static_cast<size_t>(extra), 0x00);
        const Checked c = head_tail(s.s, d);
        EXPECT_EQ(c.result, 1);
        EXPECT_EQ(c.lines, Lines{"Received Unexpected Packet.(S_T Payload length)\n"}) << extra;
    }
    EXPECT_EQ(s->recv_seq_auth, 0u);
}

TEST(Check_IPMIHeadTail, IntegrityCodeDifferingInItsTwelfthByte)
{
    SessionPtr s(2);
    Bytes d = inbound(2, 1);
    d.back() ^= 0x01;
    const Checked c = head_tail(s.s, d);
    EXPECT_EQ(c.result, 1);
    EXPECT_EQ(c.lines, Lines{"Invalid Integrity Code in received packet.\n"});
    EXPECT_EQ(s->recv_seq_auth, 0u);
    EXPECT_EQ(s->recv_window_auth, 0xFFFF);
}

TEST(Check_IPMIHeadTail, IntegrityIsKeyedWithTheSik)
{
    SessionPtr s(2);
    Bytes other = test_sik();
    other[0] ^= 0x80;
    const Bytes d = session_datagram(0x40, kConsoleSessionId, 1, kMessage, {}, other);
    EXPECT_EQ(head_tail(s.s, d).lines, Lines{"Invalid Integrity Code in received packet.\n"});
}

TEST(Check_IPMIHeadTail, IntegrityIsJudgedBeforeSessionIdAndSequenceNumber)
{
    SessionPtr s(3);
    Bytes d = session_datagram(0xC0, kConsoleSessionId + 1, 0, kMessage, fixed_iv(1));
    d[d.size() - 5] ^= 0x10;
    const Checked c = head_tail(s.s, d);
    EXPECT_EQ(c.lines, Lines{"Invalid Integrity Code in received packet.\n"});
}

TEST(Check_IPMIHeadTail, UnauthenticatedLengthMustMatchExactly)
{
    SessionPtr s(0);
    Bytes d = inbound(0, 1);
    d.push_back(0);
    const Checked c = head_tail(s.s, d);
    EXPECT_EQ(c.result, 1);
    EXPECT_EQ(c.lines, Lines{"Received Invalid Packet.(S_H Payload length)\n"});
    EXPECT_EQ(c.payload_type, 0x00);
}

TEST(Check_IPMIHeadTail, AuthenticationFormat)
{
    for (int suite : {0, 2}) {
        SessionPtr s(suite);
        Bytes d = inbound(suite, 1);
        d[4] = 0x00;
        if (suite == 2) d = resigned(d);
        const Checked c = head_tail(s.s, d);
        EXPECT_EQ(c.result, 1);
        EXPECT_EQ(c.lines, Lines{"Received Unexpected Packet.(S_H Auth Format)\n"});
    }
}

TEST(Check_IPMIHeadTail, EncryptedPacketOnASessionWithoutConfidentiality)
{
    SessionPtr s(2);
    const Checked c = head_tail(s.s, inbound(3, 1));
    EXPECT_EQ(c.result, 1);
    EXPECT_EQ(c.lines, Lines{"Received Unexpected Packet.(S_H Payload Type)\n"});
    EXPECT_EQ(s->recv_seq_auth, 0u);
}

TEST(Check_IPMIHeadTail, PayloadTypeProperIsNotJudged)
{
    SessionPtr s(0);
    Bytes d = inbound(0, 1);
    d[5] = 0x3F;
    const Checked c = head_tail(s.s, d);
    EXPECT_EQ(c.result, 0);
    EXPECT_EQ(c.payload_type, 0x3F);
}

TEST(Check_IPMIHeadTail, SessionIdMustBeTheConsoleOne)
{
    for (int suite = 0; suite <= 3; ++suite) {
        SessionPtr s(suite);
        const Bytes d = session_datagram(protection_of(suite), kBmcSessionId, 1, kMessage,
                                         confidentiality_of(suite) ? fixed_iv(3) : Bytes{});
        const Checked c = head_tail(s.s, d);
        EXPECT_EQ(c.result, 1);
        EXPECT_EQ(c.lines, Lines{"Received Unexpected Packet.(S_H SessID)\n"});
        EXPECT_EQ(s->recv_seq_auth + s->recv_seq_unauth, 0u);
    }
}

TEST(Check_IPMIHeadTail, SequenceNumberOutsideTheWindow)
{
    SessionPtr s(2);
    EXPECT_EQ(head_tail(s.s, inbound(2, 3)).result, 0);
    const Checked again = head_tail(s.s, inbound(2, 3));
    EXPECT_EQ(again.result, 1);
    EXPECT_EQ(again.lines, Lines{"Received Unexpected Packet.(S_H SessSeqNum)\n"});
    const Checked ahead = head_tail(s.s, inbound(2, 19));
    EXPECT_EQ(ahead.lines, Lines{"Received Unexpected Packet.(S_H SessSeqNum)\n"});
    EXPECT_EQ(s->recv_seq_auth, 3u);
}

// Trailer faults in a packet whose code covers them: the window moves first.
TEST(Check_IPMIHeadTail, TrailerPadsAreCheckedAfterTheWindowMoved)
{
    struct Fault {
        size_t from_end;  // offset from the end of the datagram
        uint8_t value;
        const char *message;
    };
    // kMessage is 11 bytes: L = 11, q = 3.
    const Fault faults[] = {
        {12 + 2 + 3, 0xFE, "Received Unexpected Packet.(S_T Pad value)\n"},
        {12 + 2 + 1, 0x7F, "Received Unexpected Packet.(S_T Pad value)\n"},
        {12 + 2, 0x02, "Received Unexpected Packet.(S_T Pad Length)\n"},
        {12 + 1, 0x06, "Received Unexpected Packet.(S_T Next Header)\n"},
    };
    uint32_t sequence = 1;
    for (const auto &f : faults) {
        SessionPtr s(2);
        Bytes d = inbound(2, sequence);
        ASSERT_EQ(d[14], 11);
        d[d.size() - f.from_end] = f.value;
        d = resigned(d);
        const Checked c = head_tail(s.s, d);
        EXPECT_EQ(c.result, 1);
        EXPECT_EQ(c.lines, Lines{f.message});
        EXPECT_EQ(c.length, 11u);
        EXPECT_EQ(c.header_length, 12u);
        EXPECT_EQ(s->recv_seq_auth, sequence);
        ++sequence;
    }
}

// ------------------------------------------------------------ payload

struct PayloadResult {
    int result;
    Bytes output;
    uint32_t output_length;
    uint32_t data_offset;
    Lines lines;
};

PayloadResult payload(RMCPp_Session *s, Bytes field, uint8_t type, uint32_t output_size = 64)
{
    testkit::clear_trace();
    PayloadResult p{-9, Bytes(output_size + 1, 0xEE), 999, 999, {}};
    p.result = Check_IPMIPayload(s, field.data(), static_cast<uint32_t>(field.size()), p.output.data(),
                                 &p.output_length, output_size, &p.data_offset, type);
    p.lines = testkit::log_lines();
    return p;
}

Bytes encrypted_field(const Bytes &clear, const Bytes &iv = fixed_iv(0x21))
{
    return cat({iv, aes_cbc(aes_key(), iv, clear, true)});
}

TEST(Check_IPMIPayload, ClearPayloadIsCopied)
{
    SessionPtr s(2);
    const PayloadResult p = payload(s.s, kMessage, 0x40);
    EXPECT_EQ(p.result, 0);
    EXPECT_EQ(p.output_length, kMessage.size());
    EXPECT_EQ(p.data_offset, 0u);
    EXPECT_EQ(Bytes(p.output.begin(), p.output.begin() + static_cast<long>(kMessage.size())), kMessage);
    EXPECT_EQ(p.output[kMessage.size()], 0xEE);
}

TEST(Check_IPMIPayload, EncryptedPayloadIsDecrypted)
{
    SessionPtr s(3);
    const PayloadResult p = payload(s.s, confidentiality_payload(test_k2(), fixed_iv(9), kMessage), 0xC0);
    EXPECT_EQ(p.result, 0);
    EXPECT_EQ(p.data_offset, 16u);
    EXPECT_EQ(p.output_length, kMessage.size());
    EXPECT_EQ(Bytes(p.output.begin(), p.output.begin() + static_cast<long>(kMessage.size())), kMessage);
}

TEST(Check_IPMIPayload, ThirtyTwoBytesWithPadFifteenIsAnEmptyMessage)
{
    SessionPtr s(3);
    Bytes clear;
    for (uint8_t i = 1; i <= 15; ++i) clear.push_back(i);
    clear.push_back(15);
    const PayloadResult p = payload(s.s, encrypted_field(clear), 0x80);
    EXPECT_EQ(p.result, 0);
    EXPECT_EQ(p.output_length, 0u);
    EXPECT_EQ(p.output[0], 0xEE);
}

TEST(Check_IPMIPayload, EncryptedPayloadOnASessionWithoutConfidentiality)
{
    SessionPtr s(2);
    const PayloadResult p = payload(s.s, confidentiality_payload(test_k2(), fixed_iv(9), kMessage), 0xC0);
    EXPECT_EQ(p.result, 1);
    EXPECT_EQ(p.lines, Lines{"Type 00 is Not supported Confidentiality Algorithm.\n"});
}

TEST(Check_IPMIPayload, EncryptedLengthLimits)
{
    SessionPtr s(3);
    EXPECT_EQ(payload(s.s, Bytes(16, 0), 0x80).lines,
              Lines{"Invalid Payload Data Length = 16 (expected > 32).\n"});
    EXPECT_EQ(payload(s.s, Bytes(31, 0), 0x80).lines,
              Lines{"Invalid Payload Data Length = 31 (expected > 32).\n"});
    EXPECT_EQ(payload(s.s, Bytes(33, 0), 0x80).lines,
              Lines{"Invalid Payload Data Length = 33 (expected multiple 16 Bytes).\n"});
    EXPECT_EQ(payload(s.s, Bytes(40, 0), 0x80).result, 1);
}

TEST(Check_IPMIPayload, PadLengthFifteenPassesSixteenFails)
{
    SessionPtr s(3);
    Bytes clear(16, 0x00);
    clear[15] = 16;
    PayloadResult p = payload(s.s, encrypted_field(clear), 0x80);
    EXPECT_EQ(p.result, 1);
    EXPECT_EQ(p.lines, Lines{"Invalid value = 10 (expected < 0F) in [Confidentiality Pad Length Field].\n"});
    EXPECT_EQ(p.data_offset, 16u);
    clear = Bytes(32, 0x00);
    clear[31] = 0xFF;
    EXPECT_EQ(payload(s.s, encrypted_field(clear), 0x80).lines,
              Lines{"Invalid value = ff (expected < 0F) in [Confidentiality Pad Length Field].\n"});
}

TEST(Check_IPMIPayload, PadBytesMustCountUpFromOne)
{
    SessionPtr s(3);
    Bytes clear = {0xAA, 0xBB, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 9, 13};
    const PayloadResult p = payload(s.s, encrypted_field(clear), 0x80);
    EXPECT_EQ(p.result, 1);
    EXPECT_EQ(p.lines, Lines{"Invalid confidentiality padding data 09h (expexted 0dh).\n"});
    clear = {0xAA, 0xBB, 0, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 13};
    EXPECT_EQ(payload(s.s, encrypted_field(clear), 0x80).lines,
              Lines{"Invalid confidentiality padding data 00h (expexted 01h).\n"});
}

TEST(Check_IPMIPayload, OutputTooSmall)
{
    for (int suite : {0, 3}) {
        SessionPtr s(suite);
        const Bytes field =
            suite == 3 ? confidentiality_payload(test_k2(), fixed_iv(9), kMessage) : kMessage;
        const uint8_t type = suite == 3 ? 0x80 : 0x00;
        PayloadResult p = payload(s.s, field, type, static_cast<uint32_t>(kMessage.size() - 1));
        EXPECT_EQ(p.result, 6);
        EXPECT_EQ(p.output_length, kMessage.size());
        EXPECT_EQ(p.lines, Lines{"Insufficient output buffer size.\n"});
        EXPECT_EQ(p.output[0], 0xEE);
        p = payload(s.s, field, type, static_cast<uint32_t>(kMessage.size()));
        EXPECT_EQ(p.result, 0);
    }
}

// ------------------------------------------------------------ receiving over a socket

struct Wire {
    testkit::UdpPeer peer{kPeer};
    int fd = connected_socket(kPeer);
    Wire()
    {
        // The peer answers whoever spoke last: say something first.
        const uint8_t hello = 0;
        ::send(fd, &hello, 1, 0);
        peer.receive(1000);
    }
    ~Wire() { ::close(fd); }
};

struct Received {
    int result;
    Bytes message;
    uint8_t bits;
};

Received get(RMCPp_Session *s, int wait_ms = 300, uint32_t output_size = 64)
{
    Bytes out(output_size);
    uint32_t length = 0;
    uint8_t bits = 0xEE;
    struct timeval start;
    gettimeofday(&start, nullptr);
    const struct timeval limit = {wait_ms / 1000, (wait_ms % 1000) * 1000};
    const int r = RMCPp_Get_Message(s, out.data(), &length, output_size, &start, &limit, &bits);
    out.resize(r == 0 ? length : 0);
    return {r, out, bits};
}

Received get_nowait(RMCPp_Session *s, uint32_t output_size = 64)
{
    Bytes out(output_size);
    uint32_t length = 0;
    uint8_t bits = 0xEE;
    const int r = RMCPp_Get_Message_Nowait(s, out.data(), &length, output_size, &bits);
    out.resize(r == 0 ? length : 0);
    return {r, out, bits};
}

TEST(RMCPp_Get_Message, AcceptsIndependentlyBuiltPacketsOfEachSuite)
{
    for (int suite = 0; suite <= 3; ++suite) {
        Wire w;
        SessionPtr s(suite, w.fd);
        w.peer.reply(inbound(suite, 1));
        const Received r = get(s.s);
        EXPECT_EQ(r.result, 0) << suite;
        EXPECT_EQ(r.message, kMessage);
        EXPECT_EQ(r.bits, protection_of(suite) >> 2);
    }
}

TEST(RMCPp_Get_Message, SkipsRejectedDatagramsAndKeepsWaiting)
{
    Wire w;
    SessionPtr s(3, w.fd);
    Bytes bad_rmcp = inbound(3, 1);
    bad_rmcp[0] = 0x05;
    Bytes bad_code = inbound(3, 2);
    bad_code.back() ^= 1;
    // An encrypted payload of 16 bytes: an IV and nothing else.
    Bytes bad_payload = cat({{0x06, 0x00, 0xFF, 0x07, 0x06, 0xC0}, le32(kConsoleSessionId), le32(3), {16, 0},
                             fixed_iv(5)});
    add_trailer(bad_payload, test_sik());
    w.peer.reply(bad_rmcp);
    w.peer.reply(bad_code);
    w.peer.reply(bad_payload);
    w.peer.reply(inbound(3, 4));
    testkit::clear_trace();
    const Received r = get(s.s);
    EXPECT_EQ(r.result, 0);
    EXPECT_EQ(r.message, kMessage);
    EXPECT_EQ(testkit::log_lines(),
              (Lines{"Received Unexpected Packet.(R_H Version)\n", "Invalid RMCP Header.\n",
                     "Invalid Integrity Code in received packet.\n", "Invalid IPMI Session Header or Trailer.\n",
                     "Invalid Payload Data Length = 16 (expected > 32).\n", "Invalid Payload data.\n"}));
    EXPECT_EQ(s->recv_seq_auth, 4u);
}

TEST(RMCPp_Get_Message, TimeUpIsSeven)
{
    Wire w;
    SessionPtr s(2, w.fd);
    testkit::clear_trace();
    EXPECT_EQ(get(s.s, 100).result, 7);
    EXPECT_EQ(testkit::log_lines(), Lines{"Timeout, could not receive any packet.\n"});
    // Rejected datagrams do not extend the wait.
    Bytes bad = inbound(2, 1);
    bad.back() ^= 1;
    w.peer.reply(bad);
    EXPECT_EQ(get(s.s, 100).result, 7);
}

TEST(RMCPp_Get_Message, ReceiveErrorIsNine)
{
    const int fd = connected_socket(kPeer, 6233);
    const uint8_t hello = 0;
    ::send(fd, &hello, 1, 0);
    rakptest::sleep_ms(50);
    SessionPtr s(0, fd);
    testkit::clear_trace();
    EXPECT_EQ(get(s.s).result, 9);
    EXPECT_EQ(testkit::log_lines(), Lines{"Returned error from inner [ recv ].\n"});
    ::close(fd);
}

TEST(RMCPp_Get_Message, OutputTooSmallIsSix)
{
    Wire w;
    SessionPtr s(3, w.fd);
    w.peer.reply(inbound(3, 1));
    EXPECT_EQ(get(s.s, 300, static_cast<uint32_t>(kMessage.size() - 1)).result, 6);
}

TEST(RMCPp_Get_Message, LastSequenceNumberIsAcceptedThenTheSessionIsSpent)
{
    Wire w;
    SessionPtr s(2, w.fd);
    s->recv_seq_auth = 0xFFFFFFF0;
    w.peer.reply(inbound(2, 0xFFFFFFFF));
    const Received r = get(s.s);
    EXPECT_EQ(r.result, 0);
    EXPECT_EQ(r.message, kMessage);
    EXPECT_EQ(s->closed, 1);
    // The next rejected datagram ends the wait with 5.
    Bytes bad = inbound(2, 0xFFFFFFF5);
    bad.back() ^= 1;
    w.peer.reply(bad);
    w.peer.reply(inbound(2, 0xFFFFFFF6));
    EXPECT_EQ(get(s.s).result, 5);
}

TEST(RMCPp_Get_Message, WindowMovedByAPacketWithBadPadsOnASpentSession)
{
    Wire w;
    SessionPtr s(2, w.fd);
    s->recv_seq_auth = 0xFFFFFFF0;
    Bytes d = inbound(2, 0xFFFFFFFF);
    d[d.size() - 13] = 0x06;  // next header
    w.peer.reply(resigned(d));
    testkit::clear_trace();
    EXPECT_EQ(get(s.s).result, 5);
    EXPECT_EQ(s->recv_seq_auth, 0xFFFFFFFFu);
    EXPECT_EQ(s->closed, 1);
    EXPECT_EQ(testkit::log_lines(), (Lines{"Received Unexpected Packet.(S_T Next Header)\n",
                                           "Invalid IPMI Session Header or Trailer.\n"}));
}

TEST(RMCPp_Get_Message_Nowait, EachOutcome)
{
    Wire w;
    SessionPtr s(3, w.fd);
    testkit::clear_trace();
    EXPECT_EQ(get_nowait(s.s).result, 7);
    EXPECT_EQ(testkit::log_lines(), Lines{"Timeout, could not receive any packet.\n"});

    Bytes bad_rmcp = inbound(3, 1);
    bad_rmcp[3] = 0x08;
    w.peer.reply(bad_rmcp);
    rakptest::sleep_ms(20);
    testkit::clear_trace();
    EXPECT_EQ(get_nowait(s.s).result, 1);
    EXPECT_EQ(testkit::log_lines(), (Lines{"Received Unexpected Packet.(R_H Class)\n", "Invalid RMCP Header.\n"}));

    w.peer.reply(session_datagram(0xC0, kBmcSessionId, 1, kMessage, fixed_iv(1)));
    rakptest::sleep_ms(20);
    testkit::clear_trace();
    EXPECT_EQ(get_nowait(s.s).result, 5);
    EXPECT_EQ(testkit::log_lines(), (Lines{"Received Unexpected Packet.(S_H SessID)\n",
                                           "Invalid IPMI Session Header or Trailer.\n"}));

    w.peer.reply(session_datagram(0xC0, kConsoleSessionId, 1, kMessage, fixed_iv(1), test_sik(), test_sik()));
    rakptest::sleep_ms(20);
    testkit::clear_trace();
    EXPECT_EQ(get_nowait(s.s).result, 5);
    ASSERT_EQ(testkit::log_lines().size(), 2u);
    EXPECT_EQ(testkit::log_lines()[1], "Invalid Payload data.\n");
    EXPECT_EQ(s->closed, 0);

    w.peer.reply(inbound(3, 2));
    rakptest::sleep_ms(20);
    EXPECT_EQ(get_nowait(s.s, 4).result, 6);

    w.peer.reply(inbound(3, 3));
    rakptest::sleep_ms(20);
    const Received r = get_nowait(s.s);
    EXPECT_EQ(r.result, 0);
    EXPECT_EQ(r.message, kMessage);
    EXPECT_EQ(r.bits, 0x30);
}

TEST(RMCPp_Get_Message_Nowait, ReceiveErrorIsNine)
{
    const int fd = connected_socket(kPeer, 6234);
    const uint8_t hello = 0;
    ::send(fd, &hello, 1, 0);
    rakptest::sleep_ms(50);
    SessionPtr s(0, fd);
    EXPECT_EQ(get_nowait(s.s).result, 9);
    ::close(fd);
}

}  // namespace
