// ipmitool (Debian's package, run as a black box) against the rmcpp-bmcsim
// program on 127.0.1.20 with cipher suites 15, 16 and 17: RAKP-HMAC-SHA256,
// HMAC-SHA256-128 and AES-CBC-128. The simulator runs in its default key
// mode, the one that is not IPMI v2.0's for suites 1 to 3, so a session
// only works if suites 15 to 17 take K1 and K2 as IPMI v2.0 makes them.
// What ipmitool prints must be the simulator's configured identity, and
// `channel getciphers` must list every suite the simulator serves.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <sstream>
#include <string>

#include "bmcsim.h"
#include "bmcsim_clients.h"
#include "run_program.h"

namespace {

using namespace std::chrono_literals;
using simtest::output;

constexpr const char *kAddress = "127.0.1.20";
constexpr auto kClientLimit = 30s;

const std::vector<std::string> kSimulator{
    "--address", kAddress, "--user", "admin:Secr3t-pw:4", "--user", "viewer:look:2",
    "--device-id", "0x42", "--device-revision", "3", "--firmware", "7.31", "--ipmi-version", "2.0",
    "--manufacturer", "0x12345", "--product", "0xBEEF", "--aux", "01020304"};

class IpmitoolSha256 : public ::testing::TestWithParam<int> {
protected:
    static void SetUpTestSuite()
    {
        if (simtest::find_program("ipmitool").empty()) return;
        sim_ = std::make_unique<bmcsim::ChildProcess>(kSimulator);
    }
    static void TearDownTestSuite() { sim_.reset(); }
    void SetUp() override
    {
        if (simtest::find_program("ipmitool").empty())
            GTEST_SKIP() << "ipmitool is not installed (Debian package ipmitool)";
        if (!sim_) GTEST_FAIL() << "the simulator did not start";
    }

    static std::vector<std::string> lanplus(int suite, const std::string &user, const std::string &password)
    {
        return {"ipmitool", "-I", "lanplus", "-H", kAddress, "-U", user, "-P", password,
                "-C", std::to_string(suite), "-N", "1", "-R", "2"};
    }

    // Runs one ipmitool command in a session of its own and checks that the
    // simulator saw that session established with this suite, in IPMI
    // v2.0's keys, and closed.
    testkit::ProgramResult ipmitool(const std::vector<std::string> &command, int suite, const std::string &user = "admin",
                                    const std::string &password = "Secr3t-pw")
    {
        std::string opened = "established for user '" + user + "': cipher suite " + std::to_string(suite) +
                             ", privilege up to ";
        std::string closed = "closed (user '" + user + "')";
        size_t opened_before = simtest::count_lines(*sim_, opened);
        size_t closed_before = simtest::count_lines(*sim_, closed);

        std::vector<std::string> argv = lanplus(suite, user, password);
        argv.insert(argv.end(), command.begin(), command.end());
        testkit::ProgramResult r = testkit::run_program(argv, kClientLimit);
        EXPECT_FALSE(r.timed_out) << "ipmitool still running after the time limit";
        EXPECT_EQ(r.exit_code, 0) << output(r);
        EXPECT_TRUE(simtest::wait_for_lines(*sim_, opened, opened_before + 1)) << simulator_output();
        EXPECT_TRUE(simtest::wait_for_lines(*sim_, closed, closed_before + 1)) << simulator_output();
        auto lines = sim_->output();
        auto established = std::find_if(lines.rbegin(), lines.rend(),
                                        [&](const std::string &l) { return l.find(opened) != std::string::npos; });
        if (established != lines.rend()) {
            EXPECT_NE(established->find(", standard keys"), std::string::npos) << *established;
        }
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

std::unique_ptr<bmcsim::ChildProcess> IpmitoolSha256::sim_;

TEST_P(IpmitoolSha256, RawGetDeviceIdPrintsTheConfiguredBytes)
{
    auto r = ipmitool({"raw", "6", "1"}, GetParam());
    EXPECT_NE(output(r).find(" 42 03 07 31 02 bf 45 23 01 ef be 01 02 03 04"), std::string::npos) << output(r);
}

TEST_P(IpmitoolSha256, McInfoDecodesTheConfiguredIdentity)
{
    auto r = ipmitool({"mc", "info"}, GetParam());
    EXPECT_EQ(simtest::field(output(r), "Device ID"), "66") << output(r);
    EXPECT_EQ(simtest::field(output(r), "Device Revision"), "3");
    EXPECT_EQ(simtest::field(output(r), "Firmware Revision"), "7.31");
    EXPECT_EQ(simtest::field(output(r), "IPMI Version"), "2.0");
    EXPECT_EQ(simtest::field(output(r), "Manufacturer ID"), "74565");
    EXPECT_EQ(simtest::field(output(r), "Product ID"), "48879 (0xbeef)");
}

TEST_P(IpmitoolSha256, AUserPrivilegeSessionWorks)
{
    auto r = ipmitool({"-L", "USER", "raw", "6", "1"}, GetParam(), "viewer", "look");
    EXPECT_NE(output(r).find(" 42 03 07 31"), std::string::npos) << output(r);
}

TEST_P(IpmitoolSha256, AWrongPasswordIsRefusedWithoutASession)
{
    size_t before = simtest::count_lines(*sim_, "established for user 'admin'");
    std::vector<std::string> argv = lanplus(GetParam(), "admin", "not-the-password");
    argv[argv.size() - 1] = "1";  // one retry is enough to be refused
    argv.insert(argv.end(), {"raw", "6", "1"});
    auto r = testkit::run_program(argv, kClientLimit);
    EXPECT_FALSE(r.timed_out);
    EXPECT_NE(r.exit_code, 0) << output(r);
    EXPECT_EQ(simtest::count_lines(*sim_, "established for user 'admin'"), before);
}

INSTANTIATE_TEST_SUITE_P(Suites, IpmitoolSha256, ::testing::Values(15, 16, 17),
                         [](const auto &info) { return "C" + std::to_string(info.param); });

using IpmitoolChannelCiphers = IpmitoolSha256;

// `channel getciphers ipmi` prints one row per suite: ID, IANA, then the
// three algorithm names.
TEST_F(IpmitoolChannelCiphers, GetciphersListsSuites0To3And15To17)
{
    auto r = ipmitool({"channel", "getciphers", "ipmi"}, 17);
    std::string rows;
    std::istringstream lines(output(r));
    std::string line;
    while (std::getline(lines, line)) {
        std::istringstream words(line);
        std::string id, iana, auth, integrity, confidentiality;
        if (!(words >> id >> iana >> auth >> integrity >> confidentiality) || id == "ID") continue;
        rows += id + " " + auth + " " + integrity + " " + confidentiality + "\n";
    }
    EXPECT_EQ(rows,
              "0 none none none\n"
              "1 hmac_sha1 none none\n"
              "2 hmac_sha1 hmac_sha1_96 none\n"
              "3 hmac_sha1 hmac_sha1_96 aes_cbc_128\n"
              "15 hmac_sha256 none none\n"
              "16 hmac_sha256 sha256_128 none\n"
              "17 hmac_sha256 sha256_128 aes_cbc_128\n")
        << output(r);
}

}  // namespace
