// What each waiting function does when the clock cannot be read. This
// program replaces gettimeofday for itself and for the library, and makes
// it fail on demand.
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "loopback.h"
#include "rmcpp.h"
#include "trace_capture.h"

namespace clock_fake {
// Calls numbered from 1 that fail: those from `fail_from` on (0: none).
int fail_from = 0;
int calls = 0;
}  // namespace clock_fake

extern "C" int gettimeofday(struct timeval *__restrict tv, void *__restrict) noexcept
{
    ++clock_fake::calls;
    if (clock_fake::fail_from > 0 && clock_fake::calls >= clock_fake::fail_from) return -1;
    return static_cast<int>(syscall(SYS_gettimeofday, tv, nullptr));
}

namespace {

using testkit::Bytes;
using Lines = std::vector<std::string>;

constexpr uint8_t kPeer = 22;

class ClockFailure : public ::testing::Test {
protected:
    void SetUp() override
    {
        testkit::clear_trace();
        ASSERT_EQ(init_socket(&fd_, testkit::loopback(kPeer), 623, 0), 0);
    }
    void TearDown() override
    {
        clock_fake::fail_from = 0;
        if (fd_ >= 0) close(fd_);
    }
    // Every clock read from now on fails.
    static void fail_now() { fail_after(0); }
    // The next n reads work, the ones after them fail.
    static void fail_after(int n)
    {
        clock_fake::calls = 0;
        clock_fake::fail_from = n + 1;
    }

    // A suite-0 session on this program's socket.
    RMCPp_Session *session()
    {
        auto *s = static_cast<RMCPp_Session *>(std::calloc(1, sizeof(RMCPp_Session)));
        s->socket_fd = fd_;
        s->send_seq_auth = s->send_seq_unauth = 1;
        s->recv_window_auth = s->recv_window_unauth = 0xFFFF;
        s->bmc_session_id = 0x0B0C0001;
        s->console_session_id = 0x12340000;
        fd_ = -1;  // the session owns the socket now
        return s;
    }

    testkit::UdpPeer peer_{kPeer};
    int fd_ = -1;
};

const uint8_t kGetDeviceId[] = {0x20, 0x18, 0xC8, 0x81, 0x04, 0x01, 0x7A};

TEST_F(ClockFailure, ReadTimerReportsIt)
{
    fail_now();
    const timeval start = {1, 0}, limit = {5, 0};
    timeval left = {9, 9};
    EXPECT_EQ(ReadTimer(&start, &limit, &left), -1);
    EXPECT_EQ(testkit::log_lines(), Lines{"Failed to get current time.\n"});
}

TEST_F(ClockFailure, PingAttemptWithoutStartTimeIsLost)
{
    fail_now();
    const timeval limit = {1, 0};
    EXPECT_EQ(RMCP_PingPong(fd_, 3, &limit), 1);
    EXPECT_EQ(testkit::log_lines(),
              (Lines{"RMCP_PingPong : Failed to get starting time.\n", "RMCP_PingPong : Failed to get starting time.\n",
                     "RMCP_PingPong : Failed to get starting time.\n",
                     "Failed to do Ping/Pong over limit of retries.\n"}));
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(peer_.receive(500)) << "ping " << i;
}

TEST_F(ClockFailure, PingKeepsTheOldTimeWhenNowCannotBeRead)
{
    const Bytes pong = {0x06, 0x00, 0xFF, 0x06, 0x00, 0x00, 0x11, 0xBE, 0x40, 0x01, 0x00, 0x10, 0x00, 0x00,
                        0x11, 0xBE, 0x00, 0x00, 0x00, 0x00, 0x81, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00};
    fail_after(1);  // the start time is read, every later read fails
    const timeval limit = {1, 0};
    std::thread bmc([&] {
        if (peer_.receive(2000)) peer_.reply(pong);
    });
    EXPECT_EQ(RMCP_PingPong(fd_, 1, &limit), 0);
    bmc.join();
    EXPECT_EQ(testkit::log_lines(), Lines{"RMCP_PingPong : Failed to get current time.\n"});
}

TEST_F(ClockFailure, RetryRoutineLosesTheAttempt)
{
    fail_now();
    RMCPp_SetupState s{};
    s.socket_fd = fd_;
    s.retry_count = 2;
    s.timeout_sec = 1;
    uint8_t request[4] = {0x06, 0x00, 0xFF, 0x07}, response[400];
    uint32_t length = 0, offset = 0;
    uint8_t status = 0;
    EXPECT_EQ(RetryRoutine_RAKP(&s, request, 4, response, 400, &length, 0x10, &offset, &status, 0, nullptr, 1), 4);
    EXPECT_EQ(testkit::log_lines(),
              (Lines{"Failed to get starting time.\n", "Failed to get starting time.\n", "Re-try over.\n"}));
    EXPECT_TRUE(peer_.receive(500));
    EXPECT_TRUE(peer_.receive(500));
}

TEST_F(ClockFailure, ExchangeLosesEachAttemptThenRunsOut)
{
    IPMI_SessionParam p{};
    p.session = session();
    fail_now();
    uint8_t response[64];
    uint32_t length = 0, released = 9;
    EXPECT_EQ(IPMI_Message_IF(&p, kGetDeviceId, sizeof kGetDeviceId, response, sizeof response, &length, 0, &released,
                              2, 1),
              4);
    EXPECT_EQ(testkit::count_logged("Failed to get starting time.\n"), 2);
    EXPECT_TRUE(peer_.receive(500));
    EXPECT_TRUE(peer_.receive(500));
    clock_fake::fail_from = 0;
    EXPECT_EQ(released, 0u);
    ASSERT_NE(p.session, nullptr);
    close(p.session->socket_fd);
    std::free(p.session);
}

TEST_F(ClockFailure, ReceiveWithoutStartTimeIsAnInternalFailure)
{
    IPMI_SessionParam p{};
    p.session = session();
    fail_now();
    uint8_t response[64], flags = 0;
    uint32_t length = 0, released = 9;
    EXPECT_EQ(Get_IPMI_Message(&p, response, sizeof response, &length, 1, &flags, &released), 3);
    EXPECT_EQ(testkit::log_lines(), Lines{"Failed to get start time.\n"});

    testkit::clear_trace();
    EXPECT_EQ(Get_IPMB_Response(&p, kGetDeviceId, sizeof kGetDeviceId, response, sizeof response, &length, &released,
                                0, 1),
              3);
    EXPECT_EQ(testkit::log_lines(), Lines{"Failed to get starting time @get-ipmb.\n"});
    clock_fake::fail_from = 0;
    close(p.session->socket_fd);
    std::free(p.session);
}

}  // namespace
