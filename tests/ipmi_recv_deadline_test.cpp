// The deadline of ipmi_recv after it skipped an answer: the wait is counted
// from the caller's start time, not restarted, and once it is over ipmi_recv
// itself ends with 7 before asking the packet layer again. This program
// replaces gettimeofday with a clock that moves 0.4 s on every reading (on
// the test's thread, while the test asks for it). Peer on 127.0.0.156.
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "packet_testkit.h"
#include "rmcpp.h"
#include "trace_capture.h"

namespace stepping_clock {
thread_local bool on = false;
thread_local timeval now{};
thread_local int readings = 0;
constexpr long kStepUs = 400000;
}  // namespace stepping_clock

extern "C" int gettimeofday(struct timeval *__restrict tv, void *__restrict) noexcept
{
    using namespace stepping_clock;
    if (!on) return static_cast<int>(syscall(SYS_gettimeofday, tv, nullptr));
    ++readings;
    now.tv_usec += kStepUs;
    now.tv_sec += now.tv_usec / 1000000;
    now.tv_usec %= 1000000;
    *tv = now;
    return 0;
}

namespace {

using namespace packettest;
using Lines = std::vector<std::string>;

constexpr uint8_t kPeer = 156;

class IpmiRecvDeadline : public ::testing::Test {
protected:
    void SetUp() override
    {
        session_ = make_session(0, connected_socket(kPeer));
        const uint8_t hello[1] = {0};
        ASSERT_EQ(Send_RMCP(session_->socket_fd, hello, sizeof hello, 0), 0);
        ASSERT_TRUE(peer_.receive(1000));
        testkit::clear_trace();
    }
    void TearDown() override
    {
        stepping_clock::on = false;
        close(session_->socket_fd);
        std::free(session_);
    }

    // Queues `datagram` at the library's socket and waits until it is there.
    void queue(const Bytes &datagram)
    {
        peer_.reply(datagram);
        uint8_t probe[1];
        for (int i = 0; i < 200 && recv(session_->socket_fd, probe, 1, MSG_PEEK | MSG_DONTWAIT) < 0; ++i)
            usleep(5000);
    }

    int receive_with_stepping_clock(const Bytes &request, uint8_t wait_sec)
    {
        timeval start;
        syscall(SYS_gettimeofday, &start, nullptr);
        stepping_clock::now = start;
        stepping_clock::readings = 0;
        stepping_clock::on = true;
        const int r = ipmi_recv(session_, request.data(), &start, wait_sec, response_, sizeof response_, &length_, 0);
        stepping_clock::on = false;
        return r;
    }

    testkit::UdpPeer peer_{kPeer};
    RMCPp_Session *session_ = nullptr;
    uint8_t response_[64] = {};
    uint32_t length_ = 0;
};

TEST_F(IpmiRecvDeadline, EndsWith7AtTheCallersDeadlineAfterASkippedAnswer)
{
    const Bytes request = request_of(0x06, 0x01, 5);
    // An answer to rqSeq 6 is waiting; the one to rqSeq 5 never comes.
    queue(session_datagram(0x00, kConsoleSessionId, 1, response_to(request_of(0x06, 0x01, 6), 0x00), {}));

    // Readings: ipmi_recv at +0.4 s, the packet layer at +0.8 s (the
    // skipped answer is taken at once), ipmi_recv again at +1.2 s: over.
    EXPECT_EQ(receive_with_stepping_clock(request, 1), 7);
    EXPECT_EQ(stepping_clock::readings, 3);
    EXPECT_EQ(testkit::log_lines(),
              (Lines{"[ Invalid Response ] IPMI Message : rqSeq/rsLUN = 18h (expected 14h)\n"}));
    EXPECT_EQ(session_->recv_seq_unauth, 1u);
}

TEST_F(IpmiRecvDeadline, TheRightAnswerWithinTheDeadlineIsTaken)
{
    const Bytes request = request_of(0x06, 0x01, 5);
    const Bytes answer = response_to(request, 0x00, {0x42});
    queue(session_datagram(0x00, kConsoleSessionId, 1, answer, {}));

    EXPECT_EQ(receive_with_stepping_clock(request, 1), 0);
    EXPECT_EQ(stepping_clock::readings, 2);
    EXPECT_EQ(Bytes(response_, response_ + length_), answer);
    EXPECT_TRUE(testkit::log_lines().empty());
}

}  // namespace
