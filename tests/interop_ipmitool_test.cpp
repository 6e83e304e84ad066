// ipmitool (Debian's package, run as a black box) against the rmcpp-bmcsim
// program in standard-key mode on 127.0.0.80, cipher suites 0 to 3: what it
// prints must be the simulator's configured identity and chassis state, and
// the simulator must see each session opened and closed.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "bmcsim.h"
#include "bmcsim_clients.h"
#include "run_program.h"

namespace {

using namespace std::chrono_literals;
using simtest::output;

constexpr const char *kAddress = "127.0.0.80";
constexpr auto kClientLimit = 30s;

// An identity and chassis state unlike the defaults, so the output can only
// come from the configuration.
const std::vector<std::string> kSimulator{
    "--address", kAddress, "--standard-keys", "--user", "admin:Secr3t-pw:4", "--user", "viewer:look:2",
    "--device-id", "0x42", "--device-revision", "3", "--firmware", "7.31", "--ipmi-version", "2.0",
    "--manufacturer", "0x12345", "--product", "0xBEEF", "--aux", "01020304",
    "--power", "off", "--chassis", "policy=previous,overload,last-event=0x01,misc=0x01"};

class Ipmitool : public ::testing::TestWithParam<int> {
protected:
    static void SetUpTestSuite()
    {
        ASSERT_FALSE(simtest::find_program("ipmitool").empty()) << "ipmitool is not installed (Debian package ipmitool)";
        sim_ = std::make_unique<bmcsim::ChildProcess>(kSimulator);
    }
    static void TearDownTestSuite() { sim_.reset(); }
    void SetUp() override
    {
        if (!sim_) GTEST_FAIL() << "the simulator did not start";
    }

    // Runs one ipmitool command in a session of its own and checks that
    // the simulator saw that session established with this suite and closed.
    testkit::ProgramResult ipmitool(const std::vector<std::string> &command, const std::string &user = "admin",
                                const std::string &password = "Secr3t-pw")
    {
        int suite = GetParam();
        std::string opened = "established for user '" + user + "': cipher suite " + std::to_string(suite) +
                             ", privilege up to ";
        std::string closed = "closed (user '" + user + "')";
        size_t opened_before = simtest::count_lines(*sim_, opened);
        size_t closed_before = simtest::count_lines(*sim_, closed);

        std::vector<std::string> argv{"ipmitool", "-I", "lanplus", "-H", kAddress, "-U", user, "-P", password,
                                      "-C", std::to_string(suite), "-N", "1", "-R", "2"};
        argv.insert(argv.end(), command.begin(), command.end());
        testkit::ProgramResult r = testkit::run_program(argv, kClientLimit);
        EXPECT_FALSE(r.timed_out) << "ipmitool still running after the time limit";
        EXPECT_EQ(r.exit_code, 0) << output(r);
        EXPECT_TRUE(simtest::wait_for_lines(*sim_, opened, opened_before + 1)) << simulator_output();
        EXPECT_TRUE(simtest::wait_for_lines(*sim_, closed, closed_before + 1)) << simulator_output();
        return r;
    }

    static std::string simulator_output()
    {
        std::string all;
        for (const auto &l : sim_->output()) all += l + "\n";
        return all;
    }

    static std::unique_ptr<bmcsim::ChildProcess> sim_;
};

std::unique_ptr<bmcsim::ChildProcess> Ipmitool::sim_;

TEST_P(Ipmitool, RawGetDeviceIdPrintsTheConfiguredBytes)
{
    auto r = ipmitool({"raw", "6", "1"});
    EXPECT_NE(output(r).find(" 42 03 07 31 02 bf 45 23 01 ef be 01 02 03 04"), std::string::npos) << output(r);
}

TEST_P(Ipmitool, McInfoDecodesTheConfiguredIdentity)
{
    auto r = ipmitool({"mc", "info"});
    EXPECT_EQ(simtest::field(output(r), "Device ID"), "66") << output(r);
    EXPECT_EQ(simtest::field(output(r), "Device Revision"), "3");
    EXPECT_EQ(simtest::field(output(r), "Firmware Revision"), "7.31");
    EXPECT_EQ(simtest::field(output(r), "IPMI Version"), "2.0");
    EXPECT_EQ(simtest::field(output(r), "Manufacturer ID"), "74565");
    EXPECT_EQ(simtest::field(output(r), "Product ID"), "48879 (0xbeef)");
    EXPECT_EQ(simtest::field(output(r), "Provides Device SDRs"), "no");
    EXPECT_NE(output(r).find("0x01\n    0x02\n    0x03\n    0x04"), std::string::npos) << output(r);
}

TEST_P(Ipmitool, ChassisStatusDecodesTheConfiguredState)
{
    auto r = ipmitool({"chassis", "status"});
    EXPECT_EQ(simtest::field(output(r), "System Power"), "off") << output(r);
    EXPECT_EQ(simtest::field(output(r), "Power Overload"), "true");
    EXPECT_EQ(simtest::field(output(r), "Power Interlock"), "inactive");
    EXPECT_EQ(simtest::field(output(r), "Main Power Fault"), "false");
    EXPECT_EQ(simtest::field(output(r), "Power Restore Policy"), "previous");
    EXPECT_EQ(simtest::field(output(r), "Last Power Event"), "ac-failed");
    EXPECT_EQ(simtest::field(output(r), "Chassis Intrusion"), "active");
    EXPECT_EQ(simtest::field(output(r), "Front-Panel Lockout"), "inactive");
}

TEST_P(Ipmitool, ChassisPowerStatusIsTheConfiguredPowerState)
{
    auto r = ipmitool({"chassis", "power", "status"});
    EXPECT_NE(output(r).find("Chassis Power is off"), std::string::npos) << output(r);
}

TEST_P(Ipmitool, AUserPrivilegeSessionWorksAndIsClosed)
{
    auto r = ipmitool({"-L", "USER", "raw", "6", "1"}, "viewer", "look");
    EXPECT_NE(output(r).find(" 42 03 07 31"), std::string::npos) << output(r);
}

TEST_P(Ipmitool, AWrongPasswordIsRefusedWithoutASession)
{
    int suite = GetParam();
    if (suite == 0) {
        // RAKP-none proves nothing about the password: the session opens.
        auto r = ipmitool({"raw", "6", "1"}, "admin", "not-the-password");
        EXPECT_EQ(r.exit_code, 0);
        return;
    }
    size_t before = simtest::count_lines(*sim_, "established for user 'admin'");
    auto r = testkit::run_program({"ipmitool", "-I", "lanplus", "-H", kAddress, "-U", "admin", "-P", "not-the-password",
                           "-C", std::to_string(suite), "-N", "1", "-R", "1", "raw", "6", "1"},
                          kClientLimit);
    EXPECT_FALSE(r.timed_out);
    EXPECT_NE(r.exit_code, 0) << output(r);
    EXPECT_EQ(simtest::count_lines(*sim_, "established for user 'admin'"), before);
}

INSTANTIATE_TEST_SUITE_P(Suites, Ipmitool, ::testing::Values(0, 1, 2, 3),
                         [](const auto &info) { return "C" + std::to_string(info.param); });

}  // namespace
