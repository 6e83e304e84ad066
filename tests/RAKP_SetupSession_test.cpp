// The establishment driver and its send, wait and retry routine.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "loopback.h"
#include "run_program.h"
#include "rmcpp.h"
#include "trace_capture.h"

namespace {

using testkit::Bytes;
using testkit::loopback;

// Peers of this program: 127.0.0.14 (scripted), 127.0.0.15 (nobody).
constexpr uint8_t kPeer = 14;
constexpr uint8_t kNobody = 15;


RMCPp_SetupState state_toward(uint8_t last, uint16_t retries = 1, uint16_t timeout = 1)
{
    RMCPp_SetupState s{};
    s.bmc_address = loopback(last);
    s.retry_count = retries;
    s.timeout_sec = timeout;
    s.rs_addr = 0x20;
    return s;
}

TEST(CheckSelfTypes, PassesOnThisHost)
{
    testkit::clear_trace();
    EXPECT_EQ(CheckSelfTypes(), 0);
    EXPECT_TRUE(testkit::trace().empty());
}

TEST(SetupSession, SelfCheckRunsUntilItFirstPasses)
{
    do_self_check = 1;
    RMCPp_SetupState s = state_toward(kNobody);
    uint32_t granted = 77;
    EXPECT_EQ(SetupSession(&s, 623, 4, 0, 0, &granted), 34);
    EXPECT_EQ(do_self_check, 0);
    EXPECT_EQ(SetupSession(&s, 623, 4, 0, 0, &granted), 34);
    EXPECT_EQ(do_self_check, 0);
    EXPECT_EQ(granted, 77u);
}

TEST(SetupSession, SocketFailureIsReturnedAsItIs)
{
    testkit::clear_trace();
    RMCPp_SetupState holder = state_toward(kNobody);
    holder.local_port = 47201;
    ASSERT_EQ(init_socket(&holder.socket_fd, holder.bmc_address, 623, holder.local_port), 0);

    RMCPp_SetupState s = state_toward(kNobody);
    s.local_port = 47201;
    uint32_t granted = 0;
    EXPECT_EQ(SetupSession(&s, 623, 4, 0, 0, &granted), 40);
    EXPECT_EQ(testkit::log_lines(),
              (std::vector<std::string>{"Failed to bind the socket\n", "Failed to initialize socket.\n"}));
    close(holder.socket_fd);
}

TEST(SetupSession, UnansweredPingFailsWith34AndClosesTheSocket)
{
    testkit::clear_trace();
    const int before = testkit::open_descriptors();
    RMCPp_SetupState s = state_toward(kNobody, 2, 1);
    uint32_t granted = 0;
    EXPECT_EQ(SetupSession(&s, 623, 4, 0, 0, &granted), 34);
    EXPECT_EQ(testkit::open_descriptors(), before);
    const auto lines = testkit::log_lines();
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines[lines.size() - 2], "Failed to do Ping/Pong over limit of retries.\n");
    EXPECT_EQ(lines.back(), "Failed to ping-pong.\n");
}

TEST(IPMI_SetupSession, DriverFailureLeavesNoSession)
{
    testkit::clear_trace();
    IPMI_SessionParam p{};
    p.bmc_address = loopback(kNobody);
    p.cipher_suite_id = 3;
    p.slave_address = 0x20;
    p.retry_count = 1;
    p.timeout_sec = 1;
    p.session = nullptr;
    const int before = testkit::open_descriptors();
    EXPECT_EQ(IPMI_SetupSession(&p), 34);
    EXPECT_EQ(p.session, nullptr);
    EXPECT_EQ(testkit::open_descriptors(), before);
    EXPECT_EQ(testkit::log_lines().back(), "Failed to set up session.\n");
}

// --- RetryRoutine_RAKP --------------------------------------------------

class RetryRoutine : public ::testing::Test {
protected:
    void SetUp() override
    {
        testkit::clear_trace();
        state_ = state_toward(kPeer, 2, 1);
        ASSERT_EQ(init_socket(&state_.socket_fd, state_.bmc_address, 623, 0), 0);
    }
    void TearDown() override { close(state_.socket_fd); }

    int run(uint8_t type, uint8_t send_only = 0)
    {
        return RetryRoutine_RAKP(&state_, request_.data(), static_cast<uint32_t>(request_.size()), response_,
                                 sizeof response_, &response_length_, type, &payload_offset_, &rakp_status_,
                                 send_only, nullptr, 1);
    }

    testkit::UdpPeer peer_{kPeer};
    RMCPp_SetupState state_{};
    Bytes request_ = {0x06, 0x00, 0xFF, 0x07, 0x06, 0x10, 0xAB};
    uint8_t response_[400] = {};
    uint32_t response_length_ = 0;
    uint32_t payload_offset_ = 0;
    uint8_t rakp_status_ = 0;
};

TEST_F(RetryRoutine, SendOnlySendsOnceAndReturns)
{
    EXPECT_EQ(run(0x14, 1), 0);
    EXPECT_EQ(peer_.receive(1000), request_);
    EXPECT_FALSE(peer_.receive(200));
    EXPECT_TRUE(testkit::log_lines().empty());
}

TEST_F(RetryRoutine, ResendsTheSameBytesUntilRetriesRunOut)
{
    const auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(run(0x10), 4);
    const auto elapsed = std::chrono::steady_clock::now() - t0;
    EXPECT_GE(elapsed, std::chrono::milliseconds(1900));
    EXPECT_EQ(peer_.receive(100), request_);
    EXPECT_EQ(peer_.receive(100), request_);
    EXPECT_FALSE(peer_.receive(100));
    EXPECT_EQ(testkit::count_logged("Timeout, now retrying ...\n"), 2);
    EXPECT_EQ(testkit::log_lines().back(), "Re-try over.\n");
}

TEST_F(RetryRoutine, BadRmcpHeaderIsSkippedAndTheWaitGoesOn)
{
    std::thread bmc([&] {
        if (!peer_.receive(2000)) return;
        peer_.reply({0x06, 0x00, 0xFF, 0x06, 0x00});  // ASF class, not IPMI
        peer_.reply({0x05, 0x00, 0xFF, 0x07, 0x00});
        peer_.reply({0x06, 0x00});
    });
    state_.retry_count = 1;
    EXPECT_EQ(run(0x10), 4);
    bmc.join();
    EXPECT_EQ(testkit::count_logged("Receive Packet with Invalid RMCP Header.\n"), 3);
    EXPECT_TRUE(testkit::logged("Received Unexpected Packet.(R_H Class)\n"));
    EXPECT_TRUE(testkit::logged("Received Unexpected Packet.(R_H Version)\n"));
    EXPECT_TRUE(testkit::logged("Received Unexpected Packet.(R_H length)\n"));
    EXPECT_EQ(peer_.received_count(), 1);
}

TEST_F(RetryRoutine, UndefinedResponseTypeEndsWith69)
{
    std::thread bmc([&] {
        if (peer_.receive(2000)) peer_.reply({0x06, 0x00, 0xFF, 0x07, 0x06, 0x11});
    });
    EXPECT_EQ(run(0x16), 69);
    bmc.join();
    EXPECT_EQ(testkit::log_lines(), std::vector<std::string>{"Undefined Response Type.\n"});
    EXPECT_EQ(payload_offset_, 4u);
    EXPECT_EQ(response_length_, 2u);
}

TEST_F(RetryRoutine, FailedSendsMoveToTheNextAttemptWithoutWaiting)
{
    close(state_.socket_fd);
    const int closed = state_.socket_fd;
    state_.socket_fd = -1;
    state_.retry_count = 3;
    const auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(run(0x10), 4);
    EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::milliseconds(500));
    EXPECT_EQ(testkit::count_logged("Failed to send RMCP packet\n"), 3);
    EXPECT_EQ(testkit::log_lines().back(), "Re-try over.\n");
    state_.socket_fd = closed;
    ASSERT_EQ(init_socket(&state_.socket_fd, state_.bmc_address, 623, 0), 0);
}

// The attempt counter is 8 bits wide: 255 attempts run out, 256 never do.
bool attempts_run_out(uint16_t retries)
{
    const pid_t child = fork();
    if (child == 0) {
        IPMI_SetupConnectSA(0x24);  // keep the child's log from growing
        RMCPp_SetupState s = state_toward(kNobody, retries, 1);
        s.socket_fd = -1;  // every send fails at once
        uint8_t request[4] = {6, 0, 0xFF, 7}, response[400];
        uint32_t length = 0, offset = 0;
        uint8_t status = 0;
        const int r = RetryRoutine_RAKP(&s, request, 4, response, 400, &length, 0x10, &offset, &status, 0, nullptr, 1);
        _exit(r == 4 ? 0 : 1);
    }
    for (int i = 0; i < 40; ++i) {
        int status = 0;
        if (waitpid(child, &status, WNOHANG) == child) return WIFEXITED(status) && WEXITSTATUS(status) == 0;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    return false;
}

TEST(RetryRoutineCounter, RetryCountAbove255NeverRunsOut)
{
    EXPECT_TRUE(attempts_run_out(255));
    EXPECT_FALSE(attempts_run_out(256));
}

}  // namespace
