// rmcpp against OpenIPMI's ipmi_sim (a black box on 127.0.15.30), which looks
// users up by name and privilege unless told name-only: asking for
// ADMINISTRATOR by default, as ipmitool does, the tool gets in without -L.
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "bmcsim_clients.h"
#include "ipmi_sim_peer.h"
#include "run_program.h"

namespace {

using namespace std::chrono_literals;

constexpr const char *kBmc = "127.0.15.30";

bool contains(const std::string &text, const std::string &part) { return text.find(part) != std::string::npos; }

// The value of the first "Label : value" line with this label.
std::string field(const std::string &text, const std::string &label)
{
    size_t at = 0;
    while ((at = text.find(label, at)) != std::string::npos) {
        const size_t colon = text.find(':', at);
        const size_t end = text.find('\n', at);
        if (colon != std::string::npos && colon < end && text.find_first_not_of(' ', at + label.size()) == colon)
            return text.substr(colon + 2, end - colon - 2);
        at = end;
    }
    return "";
}

class CliIpmiSimPrivilege : public ::testing::Test {
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
        std::vector<std::string> a = {RMCPP_CLI, "-H", kBmc, "-U", "admin", "-P", "password", "-C", "3",
                                      "-R", "2", "-N", "1", "--standard-keys"};
        a.insert(a.end(), rest.begin(), rest.end());
        return testkit::run_program(a, 30s);
    }

    static std::unique_ptr<testkit::IpmiSimPeer> peer_;
    static std::string problem_;
};

std::unique_ptr<testkit::IpmiSimPeer> CliIpmiSimPrivilege::peer_;
std::string CliIpmiSimPrivilege::problem_;

TEST_F(CliIpmiSimPrivilege, NameAndPrivilegeLookupWorksWithoutDashL)
{
    const auto r = rmcpp({"session"});
    EXPECT_EQ(r.exit_code, 0) << r.err << peer_->log();
    EXPECT_EQ(field(r.out, "Granted Privilege"), "ADMINISTRATOR") << r.out;
    EXPECT_TRUE(contains(r.out, "Closed             : true\n")) << r.out;
}

// Privilege 0 ("the highest the BMC grants") under name-and-privilege
// look-up is refused by ipmi_sim with RMCP+ status 0x0D; that was the old
// default.
TEST_F(CliIpmiSimPrivilege, PrivilegeZeroIsStillAcceptedAndRefusedByThisBmc)
{
    const auto r = rmcpp({"-L", "0", "session"});
    EXPECT_EQ(r.exit_code, 1) << r.out;
    EXPECT_TRUE(contains(r.err, "RMCP+ status 0x0D")) << r.err;
    EXPECT_EQ(rmcpp({"-L", "0", "--name-only", "session"}).exit_code, 0);
}

// What the tool reads with the default privilege is what ipmitool reads.
TEST_F(CliIpmiSimPrivilege, McInfoAgreesWithIpmitool)
{
    ASSERT_FALSE(simtest::find_program("ipmitool").empty()) << "ipmitool is not installed (Debian package ipmitool)";
    const auto mine = rmcpp({"mc", "info"});
    ASSERT_EQ(mine.exit_code, 0) << mine.err;
    const auto theirs = testkit::run_program({"ipmitool", "-I", "lanplus", "-H", kBmc, "-U", "admin", "-P",
                                              "password", "-C", "3", "-N", "1", "-R", "2", "mc", "info"},
                                             30s);
    ASSERT_EQ(theirs.exit_code, 0) << simtest::output(theirs);
    for (const char *label : {"Device ID", "Manufacturer ID", "Product ID", "IPMI Version"}) {
        EXPECT_FALSE(field(mine.out, label).empty()) << label << "\n" << mine.out;
        // ipmitool adds the hexadecimal form of some numbers: "3842 (0x0f02)".
        const std::string their_value = field(theirs.out, label);
        EXPECT_EQ(field(mine.out, label), their_value.substr(0, their_value.find(" (")))
            << label << "\n" << mine.out << theirs.out;
    }
}

}  // namespace
