// The rmcpp tool when Close Session fails after the command succeeded: the
// command's result is what counts, and the failed close is a warning.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "bmcsim.h"
#include "rmcpp.h"
#include "run_program.h"

namespace {

const std::string kBmc = "127.0.4.2";

bool contains(const std::string &text, const std::string &part) { return text.find(part) != std::string::npos; }

std::vector<std::string> mc_info(int suite)
{
    return {RMCPP_CLI, "-H", kBmc, "-U", "admin", "-P", "secret", "-C", std::to_string(suite), "-R", "1", "-N", "1",
            "mc", "info"};
}

class CliCloseSession : public ::testing::TestWithParam<int> {};

TEST_P(CliCloseSession, UnansweredCloseSessionIsAWarningAfterTheCommandSucceeded)
{
    bmcsim::Config c;
    c.address = kBmc;
    c.users = {{"admin", "secret", 4, true}};
    // Session answers go out late, so the simulator can be told to stop
    // answering after Get Device ID and before Close Session arrives.
    c.session.reply.delay_ms = 300;
    bmcsim::Simulator sim(c);
    sim.start();
    std::thread silence([&] {
        if (sim.wait_for(bmcsim::Kind::SessionPacket, 1, std::chrono::seconds(10)))
            sim.modify([](bmcsim::Config &k) { k.session.reply.silent = true; });
    });
    const testkit::ProgramResult r = testkit::run_program(mc_info(GetParam()), std::chrono::seconds(30));
    silence.join();
    const bmcsim::Stats stats = sim.stats();
    sim.stop();

    ASSERT_EQ(stats.count(bmcsim::Kind::SessionPacket), 2u) << "Get Device ID and Close Session";
    EXPECT_EQ(stats.sessions_closed, 0u) << "a silent simulator does not carry the request out";
    EXPECT_EQ(r.exit_code, 0) << r.err;
    EXPECT_TRUE(contains(r.out, "Device ID                 : 32\n")) << r.out;
    EXPECT_EQ(r.err, "rmcpp: warning: close session failed (4): " + std::string(rmcpp_strerror(4)) + "\n");
}

TEST_P(CliCloseSession, RefusedCloseSessionIsAWarningAfterTheCommandSucceeded)
{
    bmcsim::Config c;
    c.address = kBmc;
    c.users = {{"admin", "secret", 4, true}};
    c.session.reply.delay_ms = 300;
    bmcsim::Simulator sim(c);
    sim.start();
    // After Get Device ID every answer carries completion code 0xC1.
    std::thread refuse([&] {
        if (sim.wait_for(bmcsim::Kind::SessionPacket, 1, std::chrono::seconds(10)))
            sim.modify([](bmcsim::Config &k) { k.session.fault = bmcsim::SessionFault::CompletionCode; });
    });
    const testkit::ProgramResult r = testkit::run_program(mc_info(GetParam()), std::chrono::seconds(30));
    refuse.join();
    sim.stop();

    EXPECT_EQ(r.exit_code, 0) << r.err;
    EXPECT_TRUE(contains(r.out, "Device ID                 : 32\n")) << r.out;
    EXPECT_EQ(r.err, "rmcpp: warning: close session failed (67): " + std::string(rmcpp_strerror(67)) + "\n");
}

INSTANTIATE_TEST_SUITE_P(Suites, CliCloseSession, ::testing::Values(0, 3));

}  // namespace
