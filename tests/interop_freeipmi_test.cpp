// FreeIPMI's ipmi-raw (Debian's freeipmi-tools, run as a black box) against
// the rmcpp-bmcsim program in standard-key mode on 127.0.0.82 and
// 127.0.0.83, cipher suites 0 to 3, with no workaround flag. FreeIPMI takes
// 127.0.0.1 for the local machine, hence the other loopback addresses; its
// home and configuration file are a temporary directory and an empty file.
#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <sstream>
#include <string>

#include "bmcsim.h"
#include "bmcsim_clients.h"
#include "run_program.h"

namespace {

using namespace std::chrono_literals;
using simtest::output;

constexpr const char *kAddress = "127.0.0.82";
constexpr const char *kControlAddress = "127.0.0.83";
constexpr auto kClientLimit = 30s;

std::vector<std::string> simulator(const std::string &address)
{
    return {"--address", address, "--standard-keys", "--user", "admin:Secr3t-pw:4", "--user", "viewer:look:2",
            "--device-id", "0x42", "--device-revision", "3", "--firmware", "7.31", "--manufacturer", "0x12345",
            "--product", "0xBEEF", "--aux", "01020304", "--power", "off",
            "--chassis", "policy=previous,overload,last-event=0x01,misc=0x01"};
}

std::vector<int> received(const std::string &output) { return simtest::ipmi_raw_received(output); }
std::vector<int> received(const testkit::ProgramResult &r) { return received(output(r)); }

class FreeIpmi : public ::testing::TestWithParam<int> {
protected:
    static void SetUpTestSuite()
    {
        ASSERT_FALSE(simtest::find_program("ipmi-raw").empty())
            << "ipmi-raw is not installed (Debian package freeipmi-tools)";
        home_ = std::make_unique<simtest::TempDir>();
        ASSERT_FALSE(home_->path().empty());
        std::FILE *f = std::fopen(config_file().c_str(), "w");
        ASSERT_NE(f, nullptr);
        std::fclose(f);
        sim_ = std::make_unique<bmcsim::ChildProcess>(simulator(kAddress));
    }
    static void TearDownTestSuite()
    {
        sim_.reset();
        home_.reset();
    }
    void SetUp() override
    {
        if (!sim_) GTEST_FAIL() << "the simulator did not start";
    }

    static std::string config_file() { return home_->path() + "/freeipmi.conf"; }

    // Runs ipmi-raw with one request in a session of its own and checks
    // that the simulator saw that session established with this suite and
    // closed.
    testkit::ProgramResult raw(bmcsim::ChildProcess &sim, const std::string &address,
                           const std::vector<std::string> &request, const std::string &user = "admin",
                           const std::string &password = "Secr3t-pw")
    {
        int suite = GetParam();
        std::string opened = "established for user '" + user + "': cipher suite " + std::to_string(suite) +
                             ", privilege up to ";
        std::string closed = "closed (user '" + user + "')";
        size_t opened_before = simtest::count_lines(sim, opened);
        size_t closed_before = simtest::count_lines(sim, closed);

        std::vector<std::string> argv{"ipmi-raw", "-D", "LAN_2_0", "-h", address, "-u", user, "-p", password,
                                      "-I", std::to_string(suite), "--config-file", config_file()};
        if (user != "admin") argv.insert(argv.end(), {"-l", "USER"});
        argv.insert(argv.end(), request.begin(), request.end());
        testkit::ProgramResult r = testkit::run_program(argv, kClientLimit, {{"HOME", home_->path()}});
        EXPECT_FALSE(r.timed_out) << "ipmi-raw still running after the time limit";
        EXPECT_EQ(r.exit_code, 0) << output(r);
        EXPECT_TRUE(simtest::wait_for_lines(sim, opened, opened_before + 1)) << output_of(sim);
        EXPECT_TRUE(simtest::wait_for_lines(sim, closed, closed_before + 1)) << output_of(sim);
        return r;
    }

    static std::string output_of(const bmcsim::ChildProcess &sim)
    {
        std::string all;
        for (const auto &l : sim.output()) all += l + "\n";
        return all;
    }

    static std::unique_ptr<simtest::TempDir> home_;
    static std::unique_ptr<bmcsim::ChildProcess> sim_;
};

std::unique_ptr<simtest::TempDir> FreeIpmi::home_;
std::unique_ptr<bmcsim::ChildProcess> FreeIpmi::sim_;

TEST_P(FreeIpmi, GetDeviceIdAnswersTheConfiguredIdentity)
{
    auto r = raw(*sim_, kAddress, {"0", "6", "1"});
    EXPECT_EQ(received(output(r)), (std::vector<int>{0x01, 0x00, 0x42, 0x03, 0x07, 0x31, 0x02, 0xBF, 0x45, 0x23, 0x01,
                                                    0xEF, 0xBE, 0x01, 0x02, 0x03, 0x04}))
        << output(r);
}

TEST_P(FreeIpmi, GetChassisStatusAnswersTheConfiguredState)
{
    auto r = raw(*sim_, kAddress, {"0", "0", "1"});
    // Power off, overload, restore policy "previous"; AC failed; intrusion.
    EXPECT_EQ(received(output(r)), (std::vector<int>{0x01, 0x00, 0x22, 0x01, 0x01, 0x00})) << output(r);
}

TEST_P(FreeIpmi, GetChannelCipherSuitesListsSuites0To3And15To17)
{
    // Five bytes a suite (C0, ID, authentication, integrity, confidentiality),
    // sixteen to an answer.
    auto first = raw(*sim_, kAddress, {"0", "6", "54", "0E", "00", "80"});
    EXPECT_EQ(received(output(first)), (std::vector<int>{0x54, 0x00, 0x01, 0xC0, 0x00, 0x00, 0x40, 0x80, 0xC0, 0x01,
                                                        0x01, 0x40, 0x80, 0xC0, 0x02, 0x01, 0x41, 0x80, 0xC0}))
        << output(first);
    auto second = raw(*sim_, kAddress, {"0", "6", "54", "0E", "00", "81"});
    EXPECT_EQ(received(output(second)), (std::vector<int>{0x54, 0x00, 0x01, 0x03, 0x01, 0x41, 0x81, 0xC0, 0x0F, 0x03,
                                                         0x40, 0x80, 0xC0, 0x10, 0x03, 0x44, 0x80, 0xC0, 0x11}))
        << output(second);
    auto rest = raw(*sim_, kAddress, {"0", "6", "54", "0E", "00", "82"});
    EXPECT_EQ(received(output(rest)), (std::vector<int>{0x54, 0x00, 0x01, 0x03, 0x44, 0x81})) << output(rest);
}

TEST_P(FreeIpmi, GetSessionInfoShowsTheSessionAtTheLevelItAskedFor)
{
    auto admin = received(raw(*sim_, kAddress, {"0", "6", "3D", "00"}));
    ASSERT_EQ(admin.size(), 20u);
    EXPECT_EQ(admin[1], 0x00);
    EXPECT_NE(admin[2], 0x00);  // a session handle
    EXPECT_EQ(admin[5], 1);     // user ID
    EXPECT_EQ(admin[6], 4);     // ADMINISTRATOR, set by Set Session Privilege Level
    EXPECT_EQ(admin[7], 0x11);  // IPMI v2.0 / RMCP+ on channel 1
    auto viewer = received(raw(*sim_, kAddress, {"0", "6", "3D", "00"}, "viewer", "look"));
    ASSERT_EQ(viewer.size(), 20u);
    EXPECT_EQ(viewer[5], 2);
    EXPECT_EQ(viewer[6], 2);  // USER
}

TEST_P(FreeIpmi, UnknownCommandsGetC1)
{
    auto r = raw(*sim_, kAddress, {"0", "6", "77"});
    EXPECT_EQ(received(output(r)), (std::vector<int>{0x77, 0xC1})) << output(r);
}

TEST_P(FreeIpmi, ChassisControlChangesThePowerState)
{
    // A simulator of its own, so the shared one keeps its configured state.
    bmcsim::ChildProcess sim(simulator(kControlAddress));
    EXPECT_EQ(received(raw(sim, kControlAddress, {"0", "0", "2", "01"})), (std::vector<int>{0x02, 0x00}));
    EXPECT_EQ(received(raw(sim, kControlAddress, {"0", "0", "1"})),
              (std::vector<int>{0x01, 0x00, 0x23, 0x11, 0x01, 0x00}));  // on, powered up by command
    EXPECT_EQ(received(raw(sim, kControlAddress, {"0", "0", "2", "00"})), (std::vector<int>{0x02, 0x00}));
    EXPECT_EQ(received(raw(sim, kControlAddress, {"0", "0", "1"})),
              (std::vector<int>{0x01, 0x00, 0x22, 0x11, 0x01, 0x00}));
    EXPECT_TRUE(sim.wait_for_output("chassis control 00 (power down): power off", 2s));
}

INSTANTIATE_TEST_SUITE_P(Suites, FreeIpmi, ::testing::Values(0, 1, 2, 3),
                         [](const auto &info) { return "I" + std::to_string(info.param); });

}  // namespace
