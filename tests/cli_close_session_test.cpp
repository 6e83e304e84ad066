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

// Runs `mc info` against a simulator whose session answers go out late, so
// that `after_get_device_id` changes it after Get Device ID and before
// Close Session arrives.
struct Outcome {
    testkit::ProgramResult run;
    bmcsim::Stats stats;
};

Outcome mc_info_changing_after_get_device_id(int suite, void (*after_get_device_id)(bmcsim::Config &))
{
    bmcsim::Config c;
    c.address = kBmc;
    c.users = {{"admin", "secret", 4, true}};
    c.session.reply.delay_ms = 300;
    bmcsim::Simulator sim(c);
    sim.start();
    std::thread change([&] {
        if (sim.wait_for(bmcsim::Kind::SessionPacket, 1, std::chrono::seconds(10))) sim.modify(after_get_device_id);
    });
    Outcome o{testkit::run_program(mc_info(suite), std::chrono::seconds(30)), {}};
    change.join();
    o.stats = sim.stats();
    sim.stop();
    return o;
}

class CliCloseSession : public ::testing::TestWithParam<int> {};

TEST_P(CliCloseSession, UnansweredCloseSessionIsAWarningAfterTheCommandSucceeded)
{
    const Outcome o = mc_info_changing_after_get_device_id(
        GetParam(), [](bmcsim::Config &k) { k.session.reply.silent = true; });
    ASSERT_EQ(o.stats.count(bmcsim::Kind::SessionPacket), 2u) << "Get Device ID and Close Session";
    EXPECT_EQ(o.stats.sessions_closed, 0u) << "a silent simulator does not carry the request out";
    EXPECT_EQ(o.run.exit_code, 0) << o.run.err;
    EXPECT_TRUE(contains(o.run.out, "Device ID                 : 32\n")) << o.run.out;
    EXPECT_EQ(o.run.err, "rmcpp: warning: close session failed (4): " + std::string(rmcpp_strerror(4)) + "\n");
}

TEST_P(CliCloseSession, RefusedCloseSessionIsAWarningAfterTheCommandSucceeded)
{
    // After Get Device ID every answer carries completion code 0xC1.
    const Outcome o = mc_info_changing_after_get_device_id(
        GetParam(), [](bmcsim::Config &k) { k.session.fault = bmcsim::SessionFault::CompletionCode; });
    EXPECT_EQ(o.run.exit_code, 0) << o.run.err;
    EXPECT_TRUE(contains(o.run.out, "Device ID                 : 32\n")) << o.run.out;
    EXPECT_EQ(o.run.err, "rmcpp: warning: close session failed (67): " + std::string(rmcpp_strerror(67)) + "\n");
}

INSTANTIATE_TEST_SUITE_P(Suites, CliCloseSession, ::testing::Values(0, 3));

}  // namespace
