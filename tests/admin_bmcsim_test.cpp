// The tool's chassis bootdev / bootparam, user list, channel info and lan
// print against the simulator (in-process, 127.0.14.1), next to what
// ipmitool and FreeIPMI print for the same simulator.
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <sstream>

#include "admin_testkit.h"
#include "bmcsim.h"
#include "bmcsim_clients.h"
#include "run_program.h"

namespace {

using namespace std::chrono_literals;
using simtest::field;

constexpr const char *kBmc = "127.0.14.1";

bmcsim::Config config()
{
    bmcsim::Config c;
    c.address = kBmc;
    c.standard_keys = true;  // as ipmitool and FreeIPMI key suite 3
    c.users = {{"admin", "secret", 4, true}, {"oper", "pw", 3, true}, {"off", "pw", 2, false}, {"viewer", "pw", 2, true}};
    c.max_user_ids = 6;
    c.lan.subnet_mask = {255, 255, 0, 0};
    c.lan.default_gateway = {127, 0, 14, 254};
    c.lan.mac_address = {0x02, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E};
    c.lan.vlan_id = 300;
    c.lan.auth_type_enables = {0x00, 0x04, 0x14, 0x15, 0x00};
    c.lan.cipher_suite_privileges = {{0, 2}, {1, 3}};
    return c;
}

class AdminBmcsim : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        sim_ = std::make_unique<bmcsim::Simulator>(config());
        sim_->start();
    }
    static void TearDownTestSuite() { sim_.reset(); }

    static cli::Options options()
    {
        cli::Options o;
        o.host = kBmc;
        o.user = "admin";
        o.password = "secret";
        o.cipher_suite = 3;
        o.standard_keys = true;
        o.attempts = 2;
        return o;
    }
    static testkit::ProgramResult ipmitool(std::vector<std::string> rest)
    {
        std::vector<std::string> a = {"ipmitool", "-I", "lanplus", "-H", kBmc, "-U", "admin", "-P", "secret",
                                      "-C", "3", "-N", "1", "-R", "2"};
        a.insert(a.end(), rest.begin(), rest.end());
        return testkit::run_program(a, 20s);
    }
    static testkit::ProgramResult freeipmi(const std::string &program, std::vector<std::string> rest)
    {
        std::vector<std::string> a = {program, "-D", "LAN_2_0", "-h", kBmc, "-u", "admin", "-p", "secret",
                                      "-I", "3", "-l", "ADMIN"};
        a.insert(a.end(), rest.begin(), rest.end());
        return testkit::run_program(a, 20s);
    }
    void SetUp() override
    {
        if (simtest::find_program("ipmitool").empty()) GTEST_FAIL() << "ipmitool is not installed";
        if (simtest::find_program("ipmi-config").empty()) GTEST_FAIL() << "ipmi-config is not installed (freeipmi-tools)";
    }

    static std::unique_ptr<bmcsim::Simulator> sim_;
};

std::unique_ptr<bmcsim::Simulator> AdminBmcsim::sim_;

void expect_boot_flags_agree(const nlohmann::json &mine, const std::string &theirs)
{
    const auto &f = mine["boot_flags"];
    EXPECT_EQ(field(theirs, "Boot parameter data"), mine["data"].get<std::string>()) << theirs;
    EXPECT_NE(theirs.find(f["valid"].get<bool>() ? "- Boot Flag Valid" : "- Boot Flag Invalid"), std::string::npos)
        << theirs;
    EXPECT_NE(theirs.find(f["persistent"].get<bool>() ? "- Options apply to all future boots"
                                                       : "- Options apply to only next boot"),
              std::string::npos)
        << theirs;
    EXPECT_NE(theirs.find(f["efi"].get<bool>() ? "- BIOS EFI boot" : "- BIOS PC Compatible (legacy) boot"),
              std::string::npos)
        << theirs;
    EXPECT_EQ(field(theirs, "   - Boot Device Selector"), f["boot_device_text"].get<std::string>()) << theirs;
}

TEST_F(AdminBmcsim, BootdevIsWhatIpmitoolReadsBack)
{
    const struct {
        std::vector<std::string> args;
        const char *data;
    } cases[] = {
        {{"pxe", "--persistent", "--efi"}, "e004000000"},
        {{"bios"}, "8018000000"},
        {{"disk", "--persistent"}, "c008000000"},
        {{"cdrom", "--efi"}, "a014000000"},
        {{"none"}, "8000000000"},
    };
    for (const auto &c : cases) {
        std::vector<std::string> args = {"chassis", "bootdev"};
        args.insert(args.end(), c.args.begin(), c.args.end());
        const auto set = admintest::run_tool(options(), args);
        EXPECT_EQ(set.text, "Set Boot Device to " + c.args[0] + "\n");

        const auto theirs = ipmitool({"chassis", "bootparam", "get", "5"});
        ASSERT_EQ(theirs.exit_code, 0) << simtest::output(theirs);
        EXPECT_EQ(field(theirs.out, "Boot parameter data"), c.data) << theirs.out;
        const auto mine = admintest::run_tool(options(), {"chassis", "bootparam", "get", "5"});
        expect_boot_flags_agree(mine.json, theirs.out);
        EXPECT_EQ(mine.json["boot_flags"]["boot_device"], c.args[0]);

        // Set complete again: the next set in progress is taken.
        const auto progress = admintest::run_tool(options(), {"chassis", "bootparam", "get", "0"});
        EXPECT_EQ(progress.json["set_in_progress"], "Set Complete");
    }
}

// Every other boot flag, set in the simulator: the same lines as ipmitool's
// (trailing blanks aside), and one more for the device instance, which
// ipmitool does not show.
TEST_F(AdminBmcsim, EveryBootFlagReadsAsIpmitoolPrintsIt)
{
    const std::array<uint8_t, 5> cases[] = {
        {0xE0, 0xC7, 0xFF, 0x0F, 0x1F}, {0xE0, 0x00, 0x20, 0x01, 0x00}, {0x80, 0x08, 0x41, 0x02, 0x00},
        {0x40, 0x3C, 0x00, 0x00, 0x00}, {0x00, 0x24, 0x62, 0x00, 0x03}};
    for (const auto &flags : cases) {
        sim_->modify([&](bmcsim::Config &c) { c.boot.boot_flags = flags; });
        const auto theirs = ipmitool({"chassis", "bootparam", "get", "5"});
        ASSERT_EQ(theirs.exit_code, 0) << simtest::output(theirs);
        const auto mine = admintest::run_tool(options(), {"chassis", "bootparam", "get", "5"});
        std::istringstream a(mine.text), b(theirs.out);
        std::vector<std::string> ours, ipmitools;
        for (std::string line; std::getline(a, line);)
            if (line.find("Device Instance Selector") == std::string::npos) ours.push_back(line);
        for (std::string line; std::getline(b, line);) {
            line.erase(line.find_last_not_of(' ') + 1);
            if (!line.empty()) ipmitools.push_back(line);
        }
        EXPECT_EQ(ours, ipmitools) << mine.text << "\n" << theirs.out;
        EXPECT_EQ(mine.json["boot_flags"]["device_instance"], flags[4] & 0x1F);
    }
    sim_->modify([](bmcsim::Config &c) { c.boot = {}; });
}

TEST_F(AdminBmcsim, BootFlagsAgreeWithFreeipmi)
{
    admintest::run_tool(options(), {"chassis", "bootdev", "cdrom", "--efi"});
    const auto theirs = freeipmi("ipmi-chassis", {"--get-boot-flags"});
    ASSERT_EQ(theirs.exit_code, 0) << simtest::output(theirs);
    const auto mine = admintest::run_tool(options(), {"chassis", "bootparam", "get", "5"});
    const auto &f = mine.json["boot_flags"];
    EXPECT_EQ(field(theirs.out, "BIOS boot type"), f["efi"].get<bool>() ? "Extensible firmware Interface boot" : "PC compatible boot")
        << theirs.out;
    EXPECT_EQ(field(theirs.out, "Lock keyboard"), f["lock_keyboard"].get<bool>() ? "Enabled" : "Disabled");
    EXPECT_EQ(field(theirs.out, "Clear CMOS"), f["cmos_clear"].get<bool>() ? "Enabled" : "Disabled");
    EXPECT_EQ(field(theirs.out, "Screen blank"), f["screen_blank"].get<bool>() ? "Enabled" : "Disabled");
    // FreeIPMI's words for the device: CD/DVD.
    EXPECT_NE(field(theirs.out, "Boot device selector").find("CD/DVD"), std::string::npos) << theirs.out;
    EXPECT_EQ(f["boot_device"], "cdrom");
}

TEST_F(AdminBmcsim, UserListAgreesWithIpmitoolAndFreeipmi)
{
    const auto mine = admintest::run_tool(options(), {"user", "list"});
    const auto theirs = ipmitool({"user", "list", "1"});
    ASSERT_EQ(theirs.exit_code, 0) << simtest::output(theirs);
    const auto rows = admintest::user_rows(theirs.out);
    const auto &users = mine.json["users"];
    ASSERT_EQ(rows.size(), 6u) << theirs.out;
    ASSERT_EQ(users.size(), rows.size()) << mine.text;
    for (size_t i = 0; i < rows.size(); ++i) {
        SCOPED_TRACE("user " + std::to_string(rows[i].id));
        EXPECT_EQ(users[i]["id"], rows[i].id);
        EXPECT_EQ(users[i]["name"], rows[i].name);
        EXPECT_EQ(users[i]["callin"].get<bool>() ? "true" : "false", rows[i].callin);
        EXPECT_EQ(users[i]["link_auth"].get<bool>() ? "true" : "false", rows[i].link_auth);
        EXPECT_EQ(users[i]["ipmi_messaging"].get<bool>() ? "true" : "false", rows[i].ipmi_msg);
        EXPECT_EQ(users[i]["privilege_limit"], rows[i].limit);
    }
    // The same rows as text.
    EXPECT_EQ(mine.text, theirs.out);
    EXPECT_EQ(mine.json["max_user_ids"], 6);
    EXPECT_EQ(mine.json["enabled_user_ids"], 3);

    for (int id : {2, 3}) {
        const std::string section = "User" + std::to_string(id);
        // ipmi-config ends with status 1 when some key of the section (the
        // session limit, which this BMC does not have) cannot be read.
        const auto fi = freeipmi("ipmi-config", {"--category=core", "--checkout", "--section=" + section});
        ASSERT_FALSE(fi.timed_out) << simtest::output(fi);
        auto v = admintest::checkout_values(fi.out, section);
        ASSERT_TRUE(v.count("Username")) << simtest::output(fi);
        const auto &u = users[id - 1];
        SCOPED_TRACE(fi.out);
        EXPECT_EQ(v["Username"], u["name"].get<std::string>());
        EXPECT_EQ(v["Enable_User"], admintest::yes_no(u["enable_status"] == "enabled"));
        EXPECT_EQ(v["Lan_Enable_IPMI_Msgs"], admintest::yes_no(u["ipmi_messaging"].get<bool>()));
        EXPECT_EQ(v["Lan_Enable_Link_Auth"], admintest::yes_no(u["link_auth"].get<bool>()));
        EXPECT_EQ(v["Lan_Enable_Restricted_to_Callback"], admintest::yes_no(!u["callin"].get<bool>()));
    }
}

TEST_F(AdminBmcsim, ChannelInfoAgreesWithIpmitoolAndFreeipmi)
{
    const auto mine = admintest::run_tool(options(), {"channel", "info"});
    const auto theirs = ipmitool({"channel", "info"});
    ASSERT_EQ(theirs.exit_code, 0) << simtest::output(theirs);
    // One session each, at the time each asked.
    for (const char *label : {"  Channel Medium Type", "  Channel Protocol Type", "  Session Support",
                              "  Active Session Count", "  Protocol Vendor ID"})
        EXPECT_EQ(field(mine.text, label), field(theirs.out, label)) << label << "\n" << theirs.out;
    EXPECT_EQ(mine.text.substr(0, mine.text.find('\n')), theirs.out.substr(0, theirs.out.find('\n')));
    EXPECT_EQ(mine.text, theirs.out);
    EXPECT_EQ(mine.json["medium_type"], field(theirs.out, "  Channel Medium Type"));
    EXPECT_EQ(mine.json["protocol_vendor_id"], std::stoi(field(theirs.out, "  Protocol Vendor ID")));

    const auto fi = freeipmi("ipmi-config", {"--category=core", "--checkout", "--section=Lan_Channel"});
    ASSERT_EQ(fi.exit_code, 0) << simtest::output(fi);
    auto v = admintest::checkout_values(fi.out, "Lan_Channel");
    for (const auto &[prefix, key] : {std::pair{"Volatile", "volatile"}, std::pair{"Non_Volatile", "non_volatile"}}) {
        const auto &a = mine.json[key];
        const std::string p = prefix;
        EXPECT_EQ(v[p + "_Enable_User_Level_Auth"], admintest::yes_no(a["user_level_auth"].get<bool>())) << fi.out;
        EXPECT_EQ(v[p + "_Enable_Per_Message_Auth"], admintest::yes_no(a["per_message_auth"].get<bool>()));
        EXPECT_EQ(v[p + "_Enable_Pef_Alerting"], admintest::yes_no(a["alerting"].get<bool>()));
        EXPECT_EQ(v[p + "_Access_Mode"], "Always_Available");
        EXPECT_EQ(a["access_mode"], "always available");
    }
}

TEST_F(AdminBmcsim, LanPrintAgreesWithIpmitoolAndFreeipmi)
{
    const auto mine = admintest::run_tool(options(), {"lan", "print"});
    const auto theirs = ipmitool({"lan", "print", "1"});
    ASSERT_EQ(theirs.exit_code, 0) << simtest::output(theirs);
    for (const char *label : {"Set in Progress", "Auth Type Support", "IP Address Source", "IP Address", "Subnet Mask",
                              "MAC Address", "Default Gateway IP", "802.1q VLAN ID", "RMCP+ Cipher Suites"})
        EXPECT_EQ(field(mine.text, label), field(theirs.out, label)) << label << "\n" << theirs.out;
    // ipmitool shows the first fifteen entries.
    EXPECT_EQ(field(mine.text, "Cipher Suite Priv Max").substr(0, 15), field(theirs.out, "Cipher Suite Priv Max"));
    // The authentication type enables, line by line.
    for (const char *level : {"Callback :", "User     :", "Operator :", "Admin    :", "OEM      :"}) {
        auto line_of = [&](const std::string &text) {
            const size_t at = text.find(level);
            std::string rest = at == std::string::npos ? "?" : text.substr(at, text.find('\n', at) - at);
            rest.erase(rest.find_last_not_of(' ') + 1);
            return rest;
        };
        EXPECT_EQ(line_of(mine.text), line_of(theirs.out)) << theirs.out;
    }
    const auto &j = mine.json;
    EXPECT_EQ(j["ip_address"], field(theirs.out, "IP Address"));
    EXPECT_EQ(j["ip_address"], kBmc);  // the address it listens on
    EXPECT_EQ(j["subnet_mask"], "255.255.0.0");
    EXPECT_EQ(j["mac_address"], field(theirs.out, "MAC Address"));
    EXPECT_EQ(j["default_gateway_ip"], field(theirs.out, "Default Gateway IP"));
    EXPECT_EQ(j["vlan_id"], std::stoi(field(theirs.out, "802.1q VLAN ID")));

    // ipmi-config also asks for SOL and IPv6 parameters this BMC does not
    // have, and then ends with status 1.
    const auto fi = freeipmi("ipmi-config", {"--category=core", "--checkout", "--verbose", "--section=Lan_Conf"});
    ASSERT_FALSE(fi.timed_out) << simtest::output(fi);
    auto v = admintest::checkout_values(fi.out, "Lan_Conf");
    ASSERT_TRUE(v.count("IP_Address")) << simtest::output(fi);
    SCOPED_TRACE(fi.out);
    EXPECT_EQ(v["IP_Address_Source"], "Static");
    EXPECT_EQ(j["ip_address_source"], "Static Address");
    EXPECT_EQ(v["IP_Address"], j["ip_address"].get<std::string>());
    EXPECT_EQ(v["Subnet_Mask"], j["subnet_mask"].get<std::string>());
    std::string mac = j["mac_address"];
    for (char &ch : mac) ch = static_cast<char>(std::toupper(static_cast<unsigned char>(ch)));
    EXPECT_EQ(v["MAC_Address"], mac);
    EXPECT_EQ(v["Default_Gateway_IP_Address"], j["default_gateway_ip"].get<std::string>());
    EXPECT_EQ(v["Vlan_id"], std::to_string(j["vlan_id"].get<int>()));
    EXPECT_EQ(v["Vlan_Id_Enable"], "Yes");

    const auto fp = freeipmi("ipmi-config", {"--category=core", "--checkout", "--section=Rmcpplus_Conf_Privilege"});
    ASSERT_FALSE(fp.timed_out) << simtest::output(fp);
    auto p = admintest::checkout_values(fp.out, "Rmcpplus_Conf_Privilege");
    ASSERT_TRUE(p.count("Maximum_Privilege_Cipher_Suite_Id_0")) << simtest::output(fp);
    const std::map<std::string, std::string> words = {{"USER", "User"}, {"OPERATOR", "Operator"},
                                                      {"ADMINISTRATOR", "Administrator"}};
    // Suites 0 to 3; FreeIPMI does not show 16 and 17.
    for (const auto &e : j["cipher_suite_privileges"]) {
        const int suite = e["cipher_suite"];
        if (suite > 3) continue;
        EXPECT_EQ(p["Maximum_Privilege_Cipher_Suite_Id_" + std::to_string(suite)], words.at(e["max_privilege"]))
            << fp.out;
    }
}

}  // namespace
