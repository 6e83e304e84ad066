// The rmcpp tool's `channel ciphers` and its choice of suite without -C
// against OpenIPMI's ipmi_sim (a black box on 127.0.3.30), next to what
// ipmitool prints for the same BMC. ipmi_sim looks users up by name only.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "bmcsim_clients.h"
#include "cipher_suites_testkit.h"
#include "ipmi_sim_peer.h"
#include "run_program.h"

namespace {

using namespace std::chrono_literals;

constexpr const char *kBmc = "127.0.3.30";

bool contains(const std::string &text, const std::string &part) { return text.find(part) != std::string::npos; }

class CliIpmiSim : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        try {
            peer_ = std::make_unique<testkit::IpmiSimPeer>(std::string(kBmc), testkit::default_ipmi_sim_users());
        } catch (const std::exception &e) {
            problem_ = e.what();
        }
    }
    static void TearDownTestSuite() { peer_.reset(); }
    void SetUp() override
    {
        if (!peer_) GTEST_FAIL() << "ipmi_sim did not start: " << problem_;
    }

    static testkit::ProgramResult rmcpp(std::vector<std::string> rest)
    {
        std::vector<std::string> a = {RMCPP_CLI, "-H", kBmc, "-U", "admin", "-P", "password", "-R", "2", "-N", "1"};
        a.insert(a.end(), rest.begin(), rest.end());
        return testkit::run_program(a, 30s);
    }
    static testkit::ProgramResult ipmitool_getciphers()
    {
        return testkit::run_program({"ipmitool", "-I", "lanplus", "-H", kBmc, "-U", "admin", "-P", "password", "-C",
                                     "3", "-N", "1", "-R", "2", "channel", "getciphers", "ipmi"},
                                    30s);
    }

    static std::unique_ptr<testkit::IpmiSimPeer> peer_;
    static std::string problem_;
};

std::unique_ptr<testkit::IpmiSimPeer> CliIpmiSim::peer_;
std::string CliIpmiSim::problem_;

TEST_F(CliIpmiSim, ChannelCiphersAgreesWithIpmitool)
{
    ASSERT_FALSE(simtest::find_program("ipmitool").empty()) << "ipmitool is not installed (Debian package ipmitool)";
    const auto mine = rmcpp({"channel", "ciphers"});
    ASSERT_EQ(mine.exit_code, 0) << mine.err;
    const auto theirs = ipmitool_getciphers();
    ASSERT_EQ(theirs.exit_code, 0) << simtest::output(theirs) << peer_->log();
    // ipmitool reads at most four responses of records (twelve suites
    // here); what it prints is the start of the tool's list.
    const auto listed = ciphertest::table_rows(mine.out, false);
    const auto printed = ciphertest::table_rows(theirs.out, true);
    ASSERT_GE(printed.size(), 4u) << theirs.out;
    ASSERT_GE(listed.size(), printed.size()) << mine.out << "\n" << theirs.out;
    EXPECT_EQ(std::vector<std::vector<std::string>>(listed.begin(), listed.begin() + static_cast<long>(printed.size())),
              printed)
        << mine.out << "\n"
        << theirs.out;
    EXPECT_EQ(listed.size(), 15u) << "ipmi_sim offers suites 0 to 14\n" << mine.out;
    EXPECT_EQ(mine.out.substr(0, mine.out.find('\n')), "ID   Auth Alg        Integrity Alg   Confidentiality Alg");
}

// The suite the tool takes without -C is the strongest of those ipmitool
// sees listed: 17 if it is there, else 3.
TEST_F(CliIpmiSim, WithoutSuiteTheStrongestListedIsTaken)
{
    ASSERT_FALSE(simtest::find_program("ipmitool").empty()) << "ipmitool is not installed (Debian package ipmitool)";
    const auto theirs = ipmitool_getciphers();
    ASSERT_EQ(theirs.exit_code, 0) << simtest::output(theirs);
    const auto listed = ciphertest::table_rows(theirs.out, true);
    const bool has17 =
        std::any_of(listed.begin(), listed.end(), [](const auto &row) { return !row.empty() && row[0] == "17"; });
    const auto r = rmcpp({"--standard-keys", "--name-only", "session"});
    EXPECT_EQ(r.exit_code, 0) << r.err << peer_->log();
    EXPECT_TRUE(contains(r.out, std::string("Cipher Suite       : ") + (has17 ? "17" : "3") + "\n"))
        << r.out << "\n" << theirs.out;
}

}  // namespace
