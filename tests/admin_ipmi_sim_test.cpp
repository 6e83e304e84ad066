// The tool's user list, channel info and lan print against OpenIPMI's
// ipmi_sim (a black box on 127.0.14.2), next to what ipmitool and FreeIPMI
// print for it. Its LAN parameters start empty: ipmitool sets them first.
#include <gtest/gtest.h>

#include <chrono>
#include <memory>

#include "admin_testkit.h"
#include "bmcsim_clients.h"
#include "ipmi_sim_peer.h"
#include "run_program.h"

namespace {

using namespace std::chrono_literals;
using simtest::field;

constexpr const char *kBmc = "127.0.14.2";

testkit::ProgramResult ipmitool(std::vector<std::string> rest)
{
    std::vector<std::string> a = {"ipmitool", "-I", "lanplus", "-H", kBmc, "-U", "admin", "-P", "password",
                                  "-C", "3", "-N", "1", "-R", "2"};
    a.insert(a.end(), rest.begin(), rest.end());
    return testkit::run_program(a, 20s);
}

testkit::ProgramResult freeipmi(const std::string &program, std::vector<std::string> rest)
{
    std::vector<std::string> a = {program, "-D", "LAN_2_0", "-h", kBmc, "-u", "admin", "-p", "password",
                                  "-I", "3", "-l", "ADMIN", "-W", "opensesspriv"};
    a.insert(a.end(), rest.begin(), rest.end());
    return testkit::run_program(a, 20s);
}

class AdminIpmiSim : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        try {
            peer_ = std::make_unique<testkit::IpmiSimPeer>(std::string(kBmc), testkit::default_ipmi_sim_users());
        } catch (const std::exception &e) {
            problem_ = e.what();
            return;
        }
        for (const std::vector<std::string> &set :
             {std::vector<std::string>{"ipsrc", "static"}, {"ipaddr", "10.14.2.7"}, {"netmask", "255.255.240.0"},
              {"macaddr", "02:14:02:00:00:07"}, {"defgw", "ipaddr", "10.14.0.1"}}) {
            std::vector<std::string> args = {"lan", "set", "1"};
            args.insert(args.end(), set.begin(), set.end());
            const auto r = ipmitool(args);
            if (r.exit_code != 0) problem_ += "ipmitool lan set " + set[0] + ": " + simtest::output(r);
        }
    }
    static void TearDownTestSuite() { peer_.reset(); }
    void SetUp() override
    {
        if (!peer_) GTEST_FAIL() << "ipmi_sim did not start: " << problem_;
        if (simtest::find_program("ipmitool").empty()) GTEST_FAIL() << "ipmitool is not installed";
        if (simtest::find_program("ipmi-config").empty()) GTEST_FAIL() << "ipmi-config is not installed";
    }

    static cli::Options options()
    {
        cli::Options o;
        o.host = kBmc;
        o.user = "admin";
        o.password = "password";
        o.cipher_suite = 3;
        o.standard_keys = true;
        o.name_only = true;  // ipmi_sim looks users up by name only
        o.privilege = 4;
        o.attempts = 2;
        return o;
    }

    static std::unique_ptr<testkit::IpmiSimPeer> peer_;
    static std::string problem_;
};

std::unique_ptr<testkit::IpmiSimPeer> AdminIpmiSim::peer_;
std::string AdminIpmiSim::problem_;

TEST_F(AdminIpmiSim, LanPrintAgreesWithIpmitoolAndFreeipmi)
{
    ASSERT_EQ(problem_, "");
    const auto mine = admintest::run_tool(options(), {"lan", "print", "1"});
    const auto theirs = ipmitool({"lan", "print", "1"});
    ASSERT_EQ(theirs.exit_code, 0) << simtest::output(theirs);
    for (const char *label : {"IP Address Source", "IP Address", "Subnet Mask", "MAC Address", "Default Gateway IP"})
        EXPECT_EQ(field(mine.text, label), field(theirs.out, label)) << label << "\n" << mine.text << "\n" << theirs.out;
    const auto &j = mine.json;
    EXPECT_EQ(j["ip_address"], "10.14.2.7");
    EXPECT_EQ(j["subnet_mask"], "255.255.240.0");
    EXPECT_EQ(j["mac_address"], "02:14:02:00:00:07");
    EXPECT_EQ(j["default_gateway_ip"], "10.14.0.1");
    EXPECT_EQ(j["ip_address_source"], field(theirs.out, "IP Address Source"));

    const auto fi = freeipmi("ipmi-config", {"--category=core", "--checkout", "--section=Lan_Conf"});
    ASSERT_FALSE(fi.timed_out) << simtest::output(fi);
    auto v = admintest::checkout_values(fi.out, "Lan_Conf");
    SCOPED_TRACE(simtest::output(fi));
    EXPECT_EQ(v["IP_Address"], j["ip_address"].get<std::string>());
    EXPECT_EQ(v["Subnet_Mask"], j["subnet_mask"].get<std::string>());
    EXPECT_EQ(v["Default_Gateway_IP_Address"], j["default_gateway_ip"].get<std::string>());
    std::string mac = j["mac_address"];
    for (char &ch : mac) ch = static_cast<char>(std::toupper(static_cast<unsigned char>(ch)));
    EXPECT_EQ(v["MAC_Address"], mac);
}

TEST_F(AdminIpmiSim, UserListAgreesWithIpmitoolAndFreeipmi)
{
    const auto mine = admintest::run_tool(options(), {"user", "list", "1"});
    const auto theirs = ipmitool({"user", "list", "1"});
    ASSERT_EQ(theirs.exit_code, 0) << simtest::output(theirs);
    const auto rows = admintest::user_rows(theirs.out);
    const auto &users = mine.json["users"];
    ASSERT_GE(rows.size(), 4u) << theirs.out;
    ASSERT_EQ(users.size(), rows.size()) << mine.text << "\n" << theirs.out;
    for (size_t i = 0; i < rows.size(); ++i) {
        SCOPED_TRACE("user " + std::to_string(rows[i].id));
        EXPECT_EQ(users[i]["id"], rows[i].id);
        EXPECT_EQ(users[i]["name"], rows[i].name);
        EXPECT_EQ(users[i]["callin"].get<bool>() ? "true" : "false", rows[i].callin);
        EXPECT_EQ(users[i]["link_auth"].get<bool>() ? "true" : "false", rows[i].link_auth);
        EXPECT_EQ(users[i]["ipmi_messaging"].get<bool>() ? "true" : "false", rows[i].ipmi_msg);
        EXPECT_EQ(users[i]["privilege_limit"], rows[i].limit);
    }
    EXPECT_EQ(users[1]["name"], "admin");
    EXPECT_EQ(users[1]["privilege_limit"], "ADMINISTRATOR");
    EXPECT_EQ(users[2]["name"], "oper");
    EXPECT_EQ(users[2]["privilege_limit"], "OPERATOR");

    for (int id : {2, 3, 4}) {
        const std::string section = "User" + std::to_string(id);
        const auto fi = freeipmi("ipmi-config", {"--category=core", "--checkout", "--section=" + section});
        ASSERT_FALSE(fi.timed_out) << simtest::output(fi);
        auto v = admintest::checkout_values(fi.out, section);
        ASSERT_TRUE(v.count("Username")) << simtest::output(fi);
        const auto &u = users[id - 1];
        SCOPED_TRACE(fi.out);
        EXPECT_EQ(v["Username"], u["name"].get<std::string>());
        EXPECT_EQ(v["Lan_Enable_IPMI_Msgs"], admintest::yes_no(u["ipmi_messaging"].get<bool>()));
        EXPECT_EQ(v["Lan_Enable_Link_Auth"], admintest::yes_no(u["link_auth"].get<bool>()));
        EXPECT_EQ(v["Lan_Enable_Restricted_to_Callback"], admintest::yes_no(!u["callin"].get<bool>()));
    }
}

TEST_F(AdminIpmiSim, ChannelInfoAgreesWithIpmitoolAndFreeipmi)
{
    for (const std::vector<std::string> &args : {std::vector<std::string>{"channel", "info"}, {"channel", "info", "1"}}) {
        const auto mine = admintest::run_tool(options(), args);
        const auto theirs = ipmitool(args);
        ASSERT_EQ(theirs.exit_code, 0) << simtest::output(theirs);
        for (const char *label : {"  Channel Medium Type", "  Channel Protocol Type", "  Session Support",
                                  "  Active Session Count", "  Protocol Vendor ID"})
            EXPECT_EQ(field(mine.text, label), field(theirs.out, label)) << label << "\n" << mine.text << theirs.out;
        EXPECT_EQ(mine.text, theirs.out);
    }
    const auto mine = admintest::run_tool(options(), {"channel", "info", "1"});
    const auto fi = freeipmi("ipmi-config", {"--category=core", "--checkout", "--section=Lan_Channel"});
    ASSERT_FALSE(fi.timed_out) << simtest::output(fi);
    auto v = admintest::checkout_values(fi.out, "Lan_Channel");
    ASSERT_TRUE(v.count("Volatile_Access_Mode")) << simtest::output(fi);
    for (const auto &[prefix, key] : {std::pair{"Volatile", "volatile"}, std::pair{"Non_Volatile", "non_volatile"}}) {
        const auto &a = mine.json[key];
        ASSERT_TRUE(a.is_object()) << mine.text;
        const std::string p = prefix;
        EXPECT_EQ(v[p + "_Enable_User_Level_Auth"], admintest::yes_no(a["user_level_auth"].get<bool>())) << fi.out;
        EXPECT_EQ(v[p + "_Enable_Per_Message_Auth"], admintest::yes_no(a["per_message_auth"].get<bool>()));
        EXPECT_EQ(v[p + "_Enable_Pef_Alerting"], admintest::yes_no(a["alerting"].get<bool>()));
    }
}

}  // namespace
