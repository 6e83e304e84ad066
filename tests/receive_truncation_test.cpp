// Datagrams longer than the receive buffer. The system would hand over
// only the first bytes; the library must never take those for the whole
// datagram. A raw UDP peer on 127.0.0.152 sends them.
#include <gtest/gtest.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "packet_testkit.h"
#include "rmcpp.h"
#include "trace_capture.h"

namespace {

using namespace packettest;
using rakptest::OpenSessionResponse;
using rakptest::ScriptedPeer;
using rakptest::SessionHeader;
using Lines = std::vector<std::string>;

constexpr uint8_t kPeer = 152;

Bytes padded_to(Bytes b, size_t n)
{
    b.resize(n, 0x5A);
    return b;
}

class Truncation : public ::testing::Test {
protected:
    void SetUp() override
    {
        fd_ = connected_socket(kPeer);
        // The peer learns where to answer from a first datagram.
        const uint8_t hello[1] = {0};
        ASSERT_EQ(Send_RMCP(fd_, hello, sizeof hello, 0), 0);
        ASSERT_TRUE(peer_.receive(1000));
        testkit::clear_trace();
    }
    void TearDown() override
    {
        if (session_) {
            std::free(session_);
        }
        if (fd_ >= 0) close(fd_);
    }

    testkit::UdpPeer peer_{kPeer};
    int fd_ = -1;
    RMCPp_Session *session_ = nullptr;
};

TEST_F(Truncation, ReceiveDropsALongerDatagramWholeAndReportsItsSize)
{
    const Bytes valid_start = {0x06, 0x00, 0xFF, 0x07, 0x00, 0x00, 0x00, 0x00};
    peer_.reply(padded_to(valid_start, 100));
    peer_.reply({0x01, 0x02, 0x03});

    uint8_t buffer[40];
    std::memset(buffer, 0xEE, sizeof buffer);
    uint32_t length = sizeof buffer;
    const timeval wait = {1, 0};
    EXPECT_EQ(Receive_RMCP(fd_, buffer, &length, 0, &wait), 2);
    EXPECT_EQ(length, 100u);

    // Nothing of the long datagram is left for the next receive.
    length = sizeof buffer;
    EXPECT_EQ(Receive_RMCP(fd_, buffer, &length, 0, &wait), 0);
    EXPECT_EQ(Bytes(buffer, buffer + length), (Bytes{0x01, 0x02, 0x03}));
    EXPECT_TRUE(testkit::log_lines().empty());
}

TEST_F(Truncation, ADatagramThatExactlyFillsTheBufferIsWhole)
{
    peer_.reply(padded_to({0x06}, 40));
    uint8_t buffer[40];
    uint32_t length = sizeof buffer;
    const timeval wait = {1, 0};
    EXPECT_EQ(Receive_RMCP(fd_, buffer, &length, 0, &wait), 0);
    EXPECT_EQ(length, 40u);
}

// The first 160 bytes (the buffer for a 32-byte output) read as a complete
// unauthenticated packet with a 144-byte message; cut there, it would end
// the wait with "output too small". Dropped, it lets the wait go on to the
// real answer.
Bytes cut_to_look_whole(size_t buffer_size)
{
    const Bytes message(buffer_size - 16, 0x20);
    const Bytes head = session_datagram(0x00, kConsoleSessionId, 1, message, {});
    return padded_to(head, buffer_size + 60);
}

TEST_F(Truncation, PacketWaitSkipsALongerDatagramAndTakesTheNextOne)
{
    session_ = make_session(0, fd_);
    const Bytes answer = response_to(request_of(0x06, 0x01, 1), 0x00, {0x11, 0x22});
    peer_.reply(cut_to_look_whole(32 + 128));
    peer_.reply(session_datagram(0x00, kConsoleSessionId, 2, answer, {}));

    uint8_t output[32];
    uint32_t output_length = 0;
    uint8_t bits = 0xEE;
    timeval start;
    gettimeofday(&start, nullptr);
    const timeval limit = {1, 0};
    EXPECT_EQ(RMCPp_Get_Message(session_, output, &output_length, sizeof output, &start, &limit, &bits), 0);
    EXPECT_EQ(Bytes(output, output + output_length), answer);
    EXPECT_EQ(bits, 0);
    EXPECT_EQ(testkit::log_lines(),
              (Lines{"Received packet of 220 bytes is longer than the receive buffer (160 bytes).\n"}));
}

TEST_F(Truncation, PacketWaitWithOnlyALongerDatagramRunsOutOfTime)
{
    session_ = make_session(0, fd_);
    peer_.reply(cut_to_look_whole(32 + 128));

    uint8_t output[32];
    uint32_t output_length = 0;
    uint8_t bits = 0;
    timeval start;
    gettimeofday(&start, nullptr);
    const timeval limit = {0, 300000};
    EXPECT_EQ(RMCPp_Get_Message(session_, output, &output_length, sizeof output, &start, &limit, &bits), 7);
    EXPECT_EQ(session_->recv_seq_unauth, 0u);  // the window never saw it
    EXPECT_EQ(testkit::count_logged("Received packet of 220 bytes is longer than the receive buffer (160 bytes).\n"),
              1);
}

TEST_F(Truncation, NoWaitRefusesALongerDatagramAsARejectedPacket)
{
    session_ = make_session(0, fd_);
    peer_.reply(cut_to_look_whole(32 + 128));
    usleep(100000);

    uint8_t output[32];
    uint32_t output_length = 0;
    uint8_t bits = 0;
    EXPECT_EQ(RMCPp_Get_Message_Nowait(session_, output, &output_length, sizeof output, &bits), 1);
    EXPECT_EQ(session_->recv_seq_unauth, 0u);
    EXPECT_EQ(testkit::log_lines(),
              (Lines{"Received packet of 220 bytes is longer than the receive buffer (160 bytes).\n"}));
}

// Establishment reads into 400 bytes. A 450-byte datagram whose first 400
// bytes carry an Open Session response with a 384-byte payload would, cut,
// end the phase with 66; dropped, the real response that follows is taken.
TEST(TruncationInEstablishment, OpenSessionSkipsALongerDatagramAndTakesTheNextOne)
{
    constexpr uint8_t kBmc = 153;
    RMCPp_SetupState state{};
    state.bmc_address = testkit::loopback(kBmc);
    state.retry_count = 1;
    state.timeout_sec = 1;
    state.console_session_id = 0x0A0B0C0D;

    OpenSessionResponse good;
    good.console_sid = state.console_session_id;
    good.bmc_sid = 0x55667788;
    SessionHeader h;
    h.payload_type = 0x11;
    h.length_adjust = 384 - 36;
    const Bytes oversize = padded_to(rakptest::rmcp_plus(h, good.payload()), 450);

    ScriptedPeer peer(kBmc, [&](const Bytes &, int) { return std::vector<Bytes>{oversize, good.datagram()}; });
    state.socket_fd = connected_socket(kBmc);
    testkit::clear_trace();

    Bytes request = {0x06, 0x00, 0xFF, 0x07, 0x06, 0x10, 0x00};
    uint8_t response[400];
    uint32_t response_length = 0;
    uint32_t payload_offset = 0;
    uint8_t rakp_status = 0;
    EXPECT_EQ(RetryRoutine_RAKP(&state, request.data(), static_cast<uint32_t>(request.size()),
                                response, sizeof response, &response_length, 0x10, &payload_offset, &rakp_status, 0,
                                nullptr, 1),
              0);
    peer.stop();
    EXPECT_EQ(state.bmc_session_id, 0x55667788u);
    EXPECT_EQ(response_length, 48u);
    EXPECT_FALSE(testkit::logged("Received Packet with number of Invalid Payload Length.\n"));
    close(state.socket_fd);
}

}  // namespace
