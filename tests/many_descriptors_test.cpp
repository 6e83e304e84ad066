// A host with many files open: the session's socket gets a descriptor
// number of 1024 or more, beyond what an fd_set can hold. Establishment,
// exchanges and Close Session must work all the same, against the BMC
// simulator on 127.0.0.150.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <unistd.h>

#include <memory>
#include <vector>

#include "bmcsim.h"
#include "packet_testkit.h"
#include "rmcpp.h"
#include "simulator_login.h"
#include "trace_capture.h"

namespace {

using namespace packettest;

constexpr uint8_t kSim = 150;
constexpr int kFiller = 1100;

class ManyDescriptors : public ::testing::Test {
protected:
    void SetUp() override
    {
        rlimit limit{};
        ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
        if (limit.rlim_max != RLIM_INFINITY && limit.rlim_max < 1200)
            GTEST_SKIP() << "the hard limit on open files is " << limit.rlim_max
                         << ", below the 1200 this test needs";
        saved_ = limit;
        if (limit.rlim_cur == RLIM_INFINITY || limit.rlim_cur < 1200) {
            limit.rlim_cur = limit.rlim_max;
            ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
            restore_ = true;
        }
        for (int i = 0; i < kFiller; ++i) {
            const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
            ASSERT_GE(fd, 0);
            filler_.push_back(fd);
        }
        ASSERT_GE(filler_.back(), FD_SETSIZE);

        bmcsim::Config c;
        c.address = testkit::loopback_text(kSim);
        c.users = {{"admin", "secret", 4, true}};
        sim_ = std::make_unique<bmcsim::Simulator>(c);
        sim_->start();
        testkit::clear_trace();
    }
    void TearDown() override
    {
        if (param_.session) IPMI_CloseSession(&param_);
        if (sim_) sim_->stop();
        for (int fd : filler_) close(fd);
        if (restore_) setrlimit(RLIMIT_NOFILE, &saved_);
    }

    int open_session(int suite)
    {
        param_ = testkit::simulator_login(kSim, suite, 2, 1);
        return IPMI_SetupSession(&param_);
    }

    std::vector<int> filler_;
    rlimit saved_{};
    bool restore_ = false;
    std::unique_ptr<bmcsim::Simulator> sim_;
    IPMI_SessionParam param_{};
};

TEST_F(ManyDescriptors, SessionOnADescriptorAbove1023WorksFromSetupToClose)
{
    for (int suite : {0, 3}) {
        SCOPED_TRACE(suite);
        ASSERT_EQ(open_session(suite), 0) << testkit::log_text();
        ASSERT_NE(param_.session, nullptr);
        EXPECT_GE(param_.session->socket_fd, FD_SETSIZE);

        for (uint8_t seq = 1; seq <= 3; ++seq) {
            const Bytes request = request_of(0x06, 0x01, seq);  // Get Device ID
            uint8_t response[64] = {};
            uint32_t length = 0;
            uint32_t released = 7;
            EXPECT_EQ(IPMI_Message_IF(&param_, request.data(), static_cast<uint32_t>(request.size()), response,
                                      sizeof response, &length, 0, &released, 1, 1),
                      0);
            EXPECT_EQ(released, 0u);
            ASSERT_GT(length, 7u);
            EXPECT_EQ(response[6], 0x00);  // completion code
            EXPECT_EQ(response[5], 0x01);  // command
        }
        EXPECT_EQ(IPMI_CloseSession(&param_), 0);
        EXPECT_EQ(param_.session, nullptr);
    }
}

TEST_F(ManyDescriptors, WaitsOnADescriptorAbove1023KeepTheirResults)
{
    int fd = -1;
    ASSERT_EQ(init_socket(&fd, testkit::loopback(151), 623, 0), 0);
    EXPECT_GE(fd, FD_SETSIZE);
    testkit::UdpPeer peer(151);

    // Nothing queued: a zero wait is a timeout at once.
    uint8_t buffer[64];
    uint32_t length = sizeof buffer;
    const timeval none = {0, 0};
    EXPECT_EQ(Receive_RMCP(fd, buffer, &length, 0, &none), 1);
    EXPECT_EQ(testkit::log_lines(), (std::vector<std::string>{"Timeout, could not receive any packet.\n"}));

    // A datagram that arrives within the wait is delivered whole.
    const uint8_t hello[3] = {1, 2, 3};
    ASSERT_EQ(Send_RMCP(fd, hello, sizeof hello, 0), 0);
    ASSERT_TRUE(peer.receive(1000));
    peer.reply({9, 8, 7, 6});
    const timeval second = {1, 0};
    length = sizeof buffer;
    EXPECT_EQ(Receive_RMCP(fd, buffer, &length, 0, &second), 0);
    EXPECT_EQ(Bytes(buffer, buffer + length), (Bytes{9, 8, 7, 6}));
    close(fd);
}

}  // namespace
