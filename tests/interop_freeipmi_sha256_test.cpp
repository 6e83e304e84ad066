// FreeIPMI's ipmi-raw (Debian's freeipmi-tools, run as a black box) against
// the rmcpp-bmcsim program on 127.0.1.21 with cipher suites 15, 16 and 17
// (RAKP-HMAC-SHA256, HMAC-SHA256-128, AES-CBC-128), no workaround flag. The
// simulator runs in its default key mode: suites 15 to 17 must still use
// IPMI v2.0's K1 and K2. Its home and configuration file are a temporary
// directory and an empty file.
#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <string>

#include "bmcsim.h"
#include "bmcsim_clients.h"
#include "run_program.h"

namespace {

using namespace std::chrono_literals;
using simtest::output;

constexpr const char *kAddress = "127.0.1.21";
constexpr auto kClientLimit = 30s;

const std::vector<std::string> kSimulator{
    "--address", kAddress, "--user", "admin:Secr3t-pw:4", "--user", "viewer:look:2",
    "--device-id", "0x42", "--device-revision", "3", "--firmware", "7.31", "--manufacturer", "0x12345",
    "--product", "0xBEEF", "--aux", "01020304", "--power", "off",
    "--chassis", "policy=previous,overload,last-event=0x01,misc=0x01"};

class FreeIpmiSha256 : public ::testing::TestWithParam<int> {
protected:
    static void SetUpTestSuite()
    {
        if (simtest::find_program("ipmi-raw").empty()) return;
        home_ = std::make_unique<simtest::TempDir>();
        if (home_->path().empty()) return;
        std::FILE *f = std::fopen(config_file().c_str(), "w");
        if (!f) return;
        std::fclose(f);
        sim_ = std::make_unique<bmcsim::ChildProcess>(kSimulator);
    }
    static void TearDownTestSuite()
    {
        sim_.reset();
        home_.reset();
    }
    void SetUp() override
    {
        if (simtest::find_program("ipmi-raw").empty())
            GTEST_SKIP() << "ipmi-raw is not installed (Debian package freeipmi-tools)";
        if (!sim_) GTEST_FAIL() << "no temporary home, or the simulator did not start";
    }

    static std::string config_file() { return home_->path() + "/freeipmi.conf"; }

    static std::vector<std::string> command(const std::string &user, const std::string &password)
    {
        std::vector<std::string> argv{"ipmi-raw", "-D", "LAN_2_0", "-h", kAddress, "-u", user, "-p", password,
                                      "-I", std::to_string(GetParam()), "--config-file", config_file()};
        if (user != "admin") argv.insert(argv.end(), {"-l", "USER"});
        return argv;
    }

    // Runs ipmi-raw with one request in a session of its own; checks that
    // the simulator saw that session established with this suite in IPMI
    // v2.0's keys, and closed; returns the bytes ipmi-raw received.
    std::vector<int> raw(const std::vector<std::string> &request, const std::string &user = "admin",
                         const std::string &password = "Secr3t-pw")
    {
        std::string opened = "established for user '" + user + "': cipher suite " + std::to_string(GetParam()) +
                             ", privilege up to ";
        std::string closed = "closed (user '" + user + "')";
        size_t opened_before = simtest::count_lines(*sim_, opened);
        size_t closed_before = simtest::count_lines(*sim_, closed);

        std::vector<std::string> argv = command(user, password);
        argv.insert(argv.end(), request.begin(), request.end());
        testkit::ProgramResult r = testkit::run_program(argv, kClientLimit, {{"HOME", home_->path()}});
        EXPECT_FALSE(r.timed_out) << "ipmi-raw still running after the time limit";
        EXPECT_EQ(r.exit_code, 0) << output(r);
        EXPECT_TRUE(simtest::wait_for_lines(*sim_, opened, opened_before + 1)) << simulator_output();
        EXPECT_TRUE(simtest::wait_for_lines(*sim_, closed, closed_before + 1)) << simulator_output();
        EXPECT_EQ(simtest::count_lines(*sim_, opened + "ADMINISTRATOR, standard keys") +
                      simtest::count_lines(*sim_, opened + "USER, standard keys"),
                  simtest::count_lines(*sim_, opened))
            << simulator_output();
        return simtest::ipmi_raw_received(output(r));
    }

    static std::string simulator_output()
    {
        std::string all;
        for (const auto &l : sim_->output()) all += l + "\n";
        return all;
    }

    static std::unique_ptr<simtest::TempDir> home_;
    static std::unique_ptr<bmcsim::ChildProcess> sim_;
};

std::unique_ptr<simtest::TempDir> FreeIpmiSha256::home_;
std::unique_ptr<bmcsim::ChildProcess> FreeIpmiSha256::sim_;

TEST_P(FreeIpmiSha256, GetDeviceIdAnswersTheConfiguredIdentity)
{
    EXPECT_EQ(raw({"0x00", "0x06", "0x01"}), (std::vector<int>{0x01, 0x00, 0x42, 0x03, 0x07, 0x31, 0x02, 0xBF, 0x45, 0x23,
                                                      0x01, 0xEF, 0xBE, 0x01, 0x02, 0x03, 0x04}));
}

TEST_P(FreeIpmiSha256, GetChassisStatusAnswersTheConfiguredState)
{
    // Power off, overload, restore policy "previous"; AC failed; intrusion.
    EXPECT_EQ(raw({"0x00", "0x00", "0x01"}), (std::vector<int>{0x01, 0x00, 0x22, 0x01, 0x01, 0x00}));
}

TEST_P(FreeIpmiSha256, AUserPrivilegeSessionWorks)
{
    auto got = raw({"0x00", "0x06", "0x01"}, "viewer", "look");
    ASSERT_GE(got.size(), 3u);
    EXPECT_EQ(got[1], 0x00);
    EXPECT_EQ(got[2], 0x42);
}

TEST_P(FreeIpmiSha256, AWrongPasswordIsRefusedWithoutASession)
{
    size_t before = simtest::count_lines(*sim_, "established for user 'admin'");
    std::vector<std::string> argv = command("admin", "not-the-password");
    argv.insert(argv.end(), {"0x00", "0x06", "0x01"});
    auto r = testkit::run_program(argv, kClientLimit, {{"HOME", home_->path()}});
    EXPECT_FALSE(r.timed_out);
    EXPECT_NE(r.exit_code, 0) << output(r);
    EXPECT_TRUE(simtest::ipmi_raw_received(output(r)).empty()) << output(r);
    EXPECT_EQ(simtest::count_lines(*sim_, "established for user 'admin'"), before);
}

INSTANTIATE_TEST_SUITE_P(Suites, FreeIpmiSha256, ::testing::Values(15, 16, 17),
                         [](const auto &info) { return "I" + std::to_string(info.param); });

}  // namespace
