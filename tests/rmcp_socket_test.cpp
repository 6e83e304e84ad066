// The session's UDP socket: binding, connecting, sending and receiving.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "loopback.h"
#include "rmcpp.h"
#include "bind_spy.h"
#include "trace_capture.h"

namespace {

using testkit::Bytes;
using testkit::loopback;

// Peers of this program listen on 127.0.0.10 and .11.
constexpr uint8_t kPeer = 10;
constexpr uint8_t kSilent = 11;

sockaddr_in local_name(int fd)
{
    sockaddr_in a{};
    socklen_t n = sizeof a;
    getsockname(fd, reinterpret_cast<sockaddr *>(&a), &n);
    return a;
}

bool is_open(int fd) { return fcntl(fd, F_GETFD) != -1; }

class Socket : public ::testing::Test {
protected:
    void SetUp() override
    {
        testkit::clear_trace();
        bind_calls().clear();
    }
    void TearDown() override
    {
        if (fd_ >= 0) close(fd_);
    }
    int fd_ = -1;
};

TEST_F(Socket, LoopbackPeerIsAnsweredFromLoopback)
{
    ASSERT_EQ(init_socket(&fd_, 0x7F000001u, 623, 0), 0);
    const sockaddr_in a = local_name(fd_);
    EXPECT_EQ(ntohl(a.sin_addr.s_addr), 0x7F000001u);
    EXPECT_GE(ntohs(a.sin_port), 7001);
    EXPECT_LE(ntohs(a.sin_port), 7099);
    // Other test programs may hold the first ports of the search.
    ASSERT_FALSE(bind_calls().empty());
    for (const auto &b : bind_calls()) EXPECT_EQ(ntohl(b.sin_addr.s_addr), 0x7F000001u);
    EXPECT_EQ(bind_calls().back().sin_port, a.sin_port);
}

TEST_F(Socket, OtherAddressBindsTheWildcard)
{
    ASSERT_EQ(init_socket(&fd_, loopback(kPeer), 623, 0), 0);
    const sockaddr_in a = local_name(fd_);
    ASSERT_FALSE(bind_calls().empty());
    for (const auto &b : bind_calls()) EXPECT_EQ(b.sin_addr.s_addr, htonl(INADDR_ANY));
    EXPECT_EQ(bind_calls().back().sin_port, a.sin_port);
    EXPECT_GE(ntohs(a.sin_port), 7001);
    EXPECT_LE(ntohs(a.sin_port), 7099);
}

TEST_F(Socket, GivenLocalPortIsBound)
{
    ASSERT_EQ(init_socket(&fd_, loopback(kPeer), 623, 47123), 0);
    EXPECT_EQ(ntohs(local_name(fd_).sin_port), 47123);
}

TEST_F(Socket, TakenLocalPortFailsWith40AndClosesTheSocket)
{
    int first = -1;
    ASSERT_EQ(init_socket(&first, loopback(kPeer), 623, 47124), 0);
    int second = -1;
    EXPECT_EQ(init_socket(&second, loopback(kPeer), 623, 47124), 40);
    EXPECT_FALSE(is_open(second));
    EXPECT_EQ(testkit::log_lines(), std::vector<std::string>{"Failed to bind the socket\n"});
    close(first);
}

TEST_F(Socket, ConnectRefusedFailsWith33AndClosesTheSocket)
{
    // A datagram socket may not be connected to the broadcast address
    // without SO_BROADCAST.
    EXPECT_EQ(init_socket(&fd_, 0xFFFFFFFFu, 623, 47125), 33);
    EXPECT_FALSE(is_open(fd_));
    EXPECT_EQ(testkit::log_lines(), std::vector<std::string>{"Returned error from inner \"connect\".\n"});
    fd_ = -1;
}

TEST_F(Socket, NoDescriptorLeftFailsWith33)
{
    // The lowest free descriptor becomes the limit, so socket() must fail.
    const int probe = dup(0);
    ASSERT_GE(probe, 0);
    close(probe);
    rlimit saved{};
    getrlimit(RLIMIT_NOFILE, &saved);
    rlimit low = saved;
    low.rlim_cur = static_cast<rlim_t>(probe);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &low), 0);
    int fd = 12345;
    const int r = init_socket(&fd, loopback(kPeer), 623, 0);
    setrlimit(RLIMIT_NOFILE, &saved);
    EXPECT_EQ(r, 33);
    EXPECT_LT(fd, 0);
    EXPECT_EQ(testkit::log_lines(), std::vector<std::string>{"Failed to make socket\n"});
}

TEST_F(Socket, SendAndReceiveOneDatagram)
{
    testkit::UdpPeer peer(kPeer);
    ASSERT_EQ(init_socket(&fd_, loopback(kPeer), 623, 0), 0);
    const Bytes hello = {1, 2, 3, 4, 5};
    EXPECT_EQ(Send_RMCP(fd_, hello.data(), 5, 0), 0);
    auto got = peer.receive(2000);
    ASSERT_TRUE(got.has_value());
    EXPECT_EQ(*got, hello);

    peer.reply({9, 8, 7});
    uint8_t buffer[16];
    uint32_t length = sizeof buffer;
    const timeval limit = {2, 0};
    EXPECT_EQ(Receive_RMCP(fd_, buffer, &length, 0, &limit), 0);
    EXPECT_EQ(Bytes(buffer, buffer + length), (Bytes{9, 8, 7}));
    EXPECT_EQ(limit.tv_sec, 2);
    EXPECT_TRUE(testkit::log_lines().empty());
}

// Never handed on cut: dropped whole, reported as a receive failure with
// the datagram's full size.
TEST_F(Socket, LongDatagramIsDroppedNotCut)
{
    testkit::UdpPeer peer(kPeer);
    ASSERT_EQ(init_socket(&fd_, loopback(kPeer), 623, 0), 0);
    const uint8_t x = 0;
    Send_RMCP(fd_, &x, 1, 0);
    ASSERT_TRUE(peer.receive(2000));
    peer.reply(Bytes(40, 0xAB));
    uint8_t buffer[30];
    uint32_t length = sizeof buffer;
    const timeval limit = {2, 0};
    EXPECT_EQ(Receive_RMCP(fd_, buffer, &length, 0, &limit), 2);
    EXPECT_EQ(length, 40u);
}

TEST_F(Socket, ZeroLimitPollsAndTimesOutAtOnce)
{
    ASSERT_EQ(init_socket(&fd_, loopback(kSilent), 623, 0), 0);
    uint8_t buffer[16];
    uint32_t length = sizeof buffer;
    const timeval limit = {0, 0};
    timeval before, after;
    gettimeofday(&before, nullptr);
    EXPECT_EQ(Receive_RMCP(fd_, buffer, &length, 0, &limit), 1);
    gettimeofday(&after, nullptr);
    EXPECT_LT((after.tv_sec - before.tv_sec) * 1000000 + (after.tv_usec - before.tv_usec), 200000);
    EXPECT_EQ(length, sizeof buffer);
    EXPECT_EQ(testkit::log_lines(), std::vector<std::string>{"Timeout, could not receive any packet.\n"});
}

TEST_F(Socket, WaitsForTheLimit)
{
    ASSERT_EQ(init_socket(&fd_, loopback(kSilent), 623, 0), 0);
    uint8_t buffer[16];
    uint32_t length = sizeof buffer;
    const timeval limit = {0, 300000};
    timeval before, after;
    gettimeofday(&before, nullptr);
    EXPECT_EQ(Receive_RMCP(fd_, buffer, &length, 0, &limit), 1);
    gettimeofday(&after, nullptr);
    EXPECT_GE((after.tv_sec - before.tv_sec) * 1000000 + (after.tv_usec - before.tv_usec), 290000);
    EXPECT_EQ(limit.tv_usec, 300000);
}

TEST_F(Socket, EmptyDatagramIsAReceiveFailure)
{
    testkit::UdpPeer peer(kPeer);
    ASSERT_EQ(init_socket(&fd_, loopback(kPeer), 623, 0), 0);
    const uint8_t x = 0;
    Send_RMCP(fd_, &x, 1, 0);
    ASSERT_TRUE(peer.receive(2000));
    peer.reply({});
    uint8_t buffer[16];
    uint32_t length = sizeof buffer;
    const timeval limit = {2, 0};
    EXPECT_EQ(Receive_RMCP(fd_, buffer, &length, 0, &limit), 2);
    EXPECT_EQ(testkit::log_lines(), std::vector<std::string>{"Could not receive packet.\n"});
}

TEST_F(Socket, RecvErrorIsReported)
{
    // Nobody listens on 127.0.0.11:623: the port-unreachable answer to our
    // datagram turns into a recv error on the connected socket.
    ASSERT_EQ(init_socket(&fd_, loopback(kSilent), 623, 0), 0);
    const uint8_t x = 0;
    ASSERT_EQ(Send_RMCP(fd_, &x, 1, 0), 0);
    uint8_t buffer[16];
    uint32_t length = sizeof buffer;
    const timeval limit = {2, 0};
    EXPECT_EQ(Receive_RMCP(fd_, buffer, &length, 0, &limit), 2);
    EXPECT_EQ(testkit::log_lines(), std::vector<std::string>{"Returned error from inner [ recv ].\n"});
}

TEST_F(Socket, SelectFailureIsSilent)
{
    ASSERT_EQ(init_socket(&fd_, loopback(kSilent), 623, 0), 0);
    const int closed_fd = fd_;
    close(fd_);
    fd_ = -1;
    uint8_t buffer[16];
    uint32_t length = sizeof buffer;
    const timeval limit = {0, 100000};
    EXPECT_EQ(Receive_RMCP(closed_fd, buffer, &length, 0, &limit), 2);
    EXPECT_TRUE(testkit::log_lines().empty());
}

TEST_F(Socket, SendFailureIsReported)
{
    const uint8_t x = 0;
    EXPECT_EQ(Send_RMCP(-1, &x, 1, 0), 1);
    EXPECT_EQ(testkit::log_lines(), std::vector<std::string>{"Failed to send RMCP packet\n"});
}

TEST_F(Socket, ShortSendIsReportedWithBothCounts)
{
    // A non-blocking stream socket with a small buffer takes only part of a
    // large send.
    int pair[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
    int small = 4096;
    setsockopt(pair[0], SOL_SOCKET, SO_SNDBUF, &small, sizeof small);
    const Bytes big(1 << 20, 0x55);
    const int r = Send_RMCP(pair[0], big.data(), static_cast<uint32_t>(big.size()), MSG_DONTWAIT);
    EXPECT_EQ(r, 1);
    ASSERT_EQ(testkit::log_lines().size(), 1u);
    const std::string line = testkit::log_lines()[0];
    EXPECT_EQ(line.rfind("Number of sent paket = ", 0), 0u) << line;
    EXPECT_NE(line.find(" (expected 1048576)\n"), std::string::npos) << line;
    close(pair[0]);
    close(pair[1]);
}

}  // namespace
