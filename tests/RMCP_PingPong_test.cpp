// ASF presence ping against the simulator: every field of the pong checked,
// attempts and their timing.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <vector>

#include "bmcsim.h"
#include "loopback.h"
#include "rmcpp.h"
#include "trace_capture.h"

namespace {

using bmcsim::PongFault;
using std::chrono::milliseconds;

constexpr uint8_t kBmc = 16;

class PingPong : public ::testing::Test {
protected:
    void SetUp() override
    {
        bmcsim::Config c;
        c.address = testkit::loopback_text(kBmc);
        sim_ = std::make_unique<bmcsim::Simulator>(c);
        sim_->start();
        ASSERT_EQ(init_socket(&fd_, testkit::loopback(kBmc), 623, 0), 0);
        testkit::clear_trace();
    }
    void TearDown() override
    {
        // Stop first: a delayed pong still queued in the simulator must not
        // reach whichever socket takes this local port next.
        sim_->stop();
        close(fd_);
        RMCPtimeout = {5, 0};
    }

    int ping(int attempts, long seconds = 1)
    {
        const timeval limit = {seconds, 0};
        return RMCP_PingPong(fd_, attempts, &limit);
    }

    // One wrong pong, then the right one: the wrong one is refused with its
    // message and the same attempt goes on to accept the right one.
    void expect_refused_then_accepted(PongFault fault, int value, const std::string &message, int index = 0)
    {
        sim_->modify([&](bmcsim::Config &c) {
            c.ping.fault = fault;
            c.ping.value = value;
            c.ping.index = index;
            c.ping.reply.faulty_answers = 1;
            c.ping.reply.then_correct = true;
        });
        sim_->clear_stats();
        testkit::clear_trace();
        EXPECT_EQ(ping(1), 0) << message;
        EXPECT_EQ(testkit::log_lines(), std::vector<std::string>{message});
        EXPECT_EQ(sim_->stats().count(bmcsim::Kind::Ping), 1u);
    }

    std::unique_ptr<bmcsim::Simulator> sim_;
    int fd_ = -1;
};

TEST_F(PingPong, ValidPongIsAccepted)
{
    EXPECT_EQ(ping(3), 0);
    EXPECT_TRUE(testkit::log_lines().empty());
    const auto pings = sim_->stats().of(bmcsim::Kind::Ping);
    ASSERT_EQ(pings.size(), 1u);
    EXPECT_EQ(pings[0], (bmcsim::Bytes{0x06, 0x00, 0xFF, 0x06, 0x00, 0x00, 0x11, 0xBE, 0x80, 0x01, 0x00, 0x00}));
}

TEST_F(PingPong, WrongLengths)
{
    expect_refused_then_accepted(PongFault::TooShort, -1, "RMCP_PingPong : Invalid lenght = 27 (expected 28)\n");
    expect_refused_then_accepted(PongFault::Length29, -1, "RMCP_PingPong : Invalid lenght = 29 (expected 28)\n");
    // 40 bytes arrive cut to the 30-byte buffer.
    expect_refused_then_accepted(PongFault::Length40, -1, "RMCP_PingPong : Invalid lenght = 30 (expected 28)\n");
}

TEST_F(PingPong, WrongRmcpHeaderBytes)
{
    expect_refused_then_accepted(PongFault::RmcpVersion, 0x07,
                                 "RMCP_PingPong : Header-Version = 07h (expected 06h)\n");
    expect_refused_then_accepted(PongFault::RmcpReserved, 0x01,
                                 "RMCP_PingPong : Header-Reserved = 01h (expected 00h)\n");
    expect_refused_then_accepted(PongFault::RmcpSequence, 0xFE,
                                 "RMCP_PingPong : Header-Seq. Number = feh (expected FFh)\n");
    expect_refused_then_accepted(PongFault::RmcpClass, 0x07, "RMCP_PingPong : Header-Class = 07h (expected 06h)\n");
}

TEST_F(PingPong, WrongAsfHeader)
{
    expect_refused_then_accepted(PongFault::Iana, 4543,
                                 "RMCP_PingPong : ASF-IANA Enterprise Number = 4543 (expected 4542)\n");
    expect_refused_then_accepted(PongFault::MessageType, 0x41,
                                 "RMCP_PingPong : ASF-Message Type = 41h (expected 40h)\n");
    expect_refused_then_accepted(PongFault::MessageTag, 0x02, "RMCP_PingPong : ASF-Message Tag = 02h (expected 01h)\n");
    expect_refused_then_accepted(PongFault::AsfReserved, 0x01, "RMCP_PingPong ASF-Reserved = 01h (expected 00h)\n");
    expect_refused_then_accepted(PongFault::DataLength, 0x11, "RMCP_PingPong : ASF-Data Length = 11h (expected 10h)\n");
}

TEST_F(PingPong, WrongPongData)
{
    expect_refused_then_accepted(PongFault::SecondIana, 0,
                                 "RMCP_PingPong : ASF-IANA Enterprise Number = 0 (expected 4542)\n");
    expect_refused_then_accepted(PongFault::Oem, 7, "RMCP_PingPong : ASF-OEM defined = 7 (expected 0)\n");
}

TEST_F(PingPong, SupportedEntitiesMessageShowsTheByteBefore)
{
    // The value printed is the last OEM byte (00), not the refused 01.
    expect_refused_then_accepted(PongFault::SupportedEntities, 0x01,
                                 "RMCP_PingPong : ASF-Supported Entities = 00h (expected 81h)\n");
}

TEST_F(PingPong, SupportedInteractionsMessageShowsTheByteBefore)
{
    // The value printed is the supported-entities byte (81).
    expect_refused_then_accepted(PongFault::SupportedInteractions, 0x01,
                                 "RMCP_PingPong : ASF-Supported Interactions = 81h (expected 00h)\n");
}

TEST_F(PingPong, EachTrailingReservedByte)
{
    const char *values[] = {"5a", "5b", "5c", "5d", "5e", "5f"};
    for (int i = 0; i < 6; ++i)
        expect_refused_then_accepted(PongFault::TrailingReserved, 0x5A + i,
                                     std::string("RMCP_PingPong : ASF-Reserved  = ") + values[i] + "h (expected 00h)\n",
                                     i);
}

TEST_F(PingPong, StrayDatagramsAreRefusedAndTheWaitGoesOn)
{
    sim_->modify([](bmcsim::Config &c) {
        c.ping.reply.strays = 2;
        c.ping.reply.stray_kind = bmcsim::StrayKind::Garbage;
    });
    EXPECT_EQ(ping(1), 0);
    EXPECT_EQ(sim_->stats().count(bmcsim::Kind::Ping), 1u);
    const auto lines = testkit::log_lines();
    ASSERT_EQ(lines.size(), 2u);
    for (const auto &line : lines) EXPECT_EQ(line.rfind("RMCP_PingPong : Invalid lenght = ", 0), 0u) << line;
}

TEST_F(PingPong, SeveralAnswersAreFine)
{
    sim_->modify([](bmcsim::Config &c) { c.ping.reply.copies = 3; });
    EXPECT_EQ(ping(1), 0);
}

TEST_F(PingPong, SilenceUsesEveryAttemptThenFails)
{
    sim_->modify([](bmcsim::Config &c) { c.ping.reply.silent = true; });
    const auto t0 = bmcsim::Clock::now();
    EXPECT_EQ(ping(3), 1);
    const auto elapsed = bmcsim::Clock::now() - t0;
    EXPECT_GE(elapsed, milliseconds(2900));
    EXPECT_LT(elapsed, milliseconds(4500));
    const auto times = sim_->stats().times(bmcsim::Kind::Ping);
    ASSERT_EQ(times.size(), 3u);
    for (size_t i = 1; i < times.size(); ++i) {
        EXPECT_GE(times[i] - times[i - 1], milliseconds(950));
        EXPECT_LE(times[i] - times[i - 1], milliseconds(1300));
    }
    EXPECT_EQ(testkit::log_lines().back(), "Failed to do Ping/Pong over limit of retries.\n");
    EXPECT_EQ(testkit::count_logged("Timeout, could not receive any packet.\n"), 3);
}

TEST_F(PingPong, ZeroAttemptsSendNothing)
{
    EXPECT_EQ(ping(0), 1);
    EXPECT_EQ(testkit::log_lines(), std::vector<std::string>{"Failed to do Ping/Pong over limit of retries.\n"});
    EXPECT_FALSE(sim_->wait_for(bmcsim::Kind::Ping, 1, milliseconds(200)));
}

TEST_F(PingPong, LatePongFromAnEarlierAttemptIsAccepted)
{
    // The first pong arrives 1.5 s after its ping, during the second
    // attempt's wait; every ping carries tag 1, so it is taken.
    sim_->modify([](bmcsim::Config &c) {
        c.ping.reply.delay_ms = 1500;
        c.ping.reply.ignore_first = 0;
    });
    const auto t0 = bmcsim::Clock::now();
    EXPECT_EQ(ping(3), 0);
    const auto elapsed = bmcsim::Clock::now() - t0;
    EXPECT_GE(elapsed, milliseconds(1400));
    EXPECT_LT(elapsed, milliseconds(2000));
    EXPECT_EQ(sim_->stats().count(bmcsim::Kind::Ping), 2u);
}

TEST_F(PingPong, RMCPtimeoutDoesNotShortenTheWait)
{
    RMCPtimeout = {0, 1};
    sim_->modify([](bmcsim::Config &c) { c.ping.reply.delay_ms = 400; });
    EXPECT_EQ(ping(1), 0);
}

TEST_F(PingPong, SendFailureEndsAtOnce)
{
    const timeval limit = {1, 0};
    EXPECT_EQ(RMCP_PingPong(-1, 3, &limit), 1);
    EXPECT_EQ(testkit::log_lines(), std::vector<std::string>{"Failed to send RMCP packet\n"});
}

}  // namespace
