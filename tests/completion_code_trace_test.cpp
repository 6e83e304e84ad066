// The completion-code trace of an exchange looks only at a response that
// was accepted: after a failed exchange the response buffer holds nothing
// of this exchange (or a skipped answer), and its byte 6 must not be read
// as a completion code. Peer on 127.0.0.154.
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <thread>
#include <vector>

#include "packet_testkit.h"
#include "rmcpp.h"
#include "trace_capture.h"

namespace {

using namespace packettest;

constexpr uint8_t kPeer = 154;
constexpr uint8_t kSentinel = 0xC1;

class CompletionCodeTrace : public ::testing::Test {
protected:
    void SetUp() override
    {
        param_.session = make_session(0, connected_socket(kPeer));
        param_.slave_address = 0x20;
        std::memset(response_, kSentinel, sizeof response_);
        testkit::clear_trace();
    }
    void TearDown() override
    {
        if (param_.session) {
            close(param_.session->socket_fd);
            std::free(param_.session);
        }
    }

    int exchange(int attempts, int wait)
    {
        return IPMI_Message_IF(&param_, request_.data(), static_cast<uint32_t>(request_.size()), response_,
                               sizeof response_, &length_, 0, &released_, attempts, wait);
    }

    static int channel0_lines()
    {
        int n = 0;
        for (const auto &line : testkit::trace()) n += line.channel == 0;
        return n;
    }

    testkit::UdpPeer peer_{kPeer};
    IPMI_SessionParam param_{};
    Bytes request_ = request_of(0x06, 0x01, 5);
    uint8_t response_[64];
    uint32_t length_ = 0;
    uint32_t released_ = 9;
};

TEST_F(CompletionCodeTrace, NoTraceWhenNothingWasReceived)
{
    EXPECT_EQ(exchange(2, 0), 4);
    EXPECT_EQ(released_, 0u);
    EXPECT_EQ(channel0_lines(), 0);
    EXPECT_TRUE(testkit::lookups().empty());
    for (uint8_t b : response_) ASSERT_EQ(b, kSentinel);
}

TEST_F(CompletionCodeTrace, NoTraceOfASkippedAnswerWhenTheWaitRunsOut)
{
    // An answer to another request (rqSeq 6) with a non-zero completion
    // code is written into the buffer and skipped; then nothing comes.
    std::thread bmc([&] {
        if (!peer_.receive(2000)) return;
        peer_.reply(session_datagram(0x00, kConsoleSessionId, 1, response_to(request_of(0x06, 0x01, 6), 0xD5), {}));
    });
    EXPECT_EQ(exchange(1, 1), 4);
    bmc.join();
    EXPECT_EQ(response_[6], 0xD5);  // the skipped answer is there
    EXPECT_EQ(channel0_lines(), 0);
    EXPECT_TRUE(testkit::lookups().empty());
}

TEST_F(CompletionCodeTrace, AnAcceptedAnswerWithANonZeroCodeIsTraced)
{
    std::thread bmc([&] {
        if (!peer_.receive(2000)) return;
        peer_.reply(session_datagram(0x00, kConsoleSessionId, 1, response_to(request_, 0xC9), {}));
    });
    EXPECT_EQ(exchange(1, 1), 0);
    bmc.join();
    EXPECT_EQ(length_, 8u);
    EXPECT_EQ(response_[6], 0xC9);
    ASSERT_EQ(testkit::lookups().size(), 1u);
    EXPECT_EQ(testkit::lookups()[0].number, 20020);
    EXPECT_EQ(testkit::lookups()[0].argument, "CC=0xC9:2018c88114016a");
    EXPECT_EQ(channel0_lines(), 1);
}

TEST_F(CompletionCodeTrace, AnAcceptedAnswerWithCodeZeroIsNotTraced)
{
    std::thread bmc([&] {
        if (!peer_.receive(2000)) return;
        peer_.reply(session_datagram(0x00, kConsoleSessionId, 1, response_to(request_, 0x00, {0x01}), {}));
    });
    EXPECT_EQ(exchange(1, 1), 0);
    bmc.join();
    EXPECT_EQ(channel0_lines(), 0);
    EXPECT_TRUE(testkit::lookups().empty());
}

}  // namespace
