#include <gtest/gtest.h>

#include <map>

#include "runner_testkit.h"
#include "scripted_transport_testkit.h"

namespace {

using rmcpp::commands::Bytes;
using rmcpp::commands::Reply;
using rmcpp::commands::testkit::Request;
using rmcpp::commands::testkit::ScriptedTransport;

struct Fixture {
    ScriptedTransport t;
    cli::testkit::CapturingRunner runner{t};
    CLI::App app;
    explicit Fixture(std::map<uint8_t, Bytes> params)
    {
        t.answer = [params](const Request &rq) -> Reply {
            auto it = params.find(rq.data.at(1));
            if (it == params.end()) return {0, 0x80, {}};
            Bytes d = {0x11};
            d.insert(d.end(), it->second.begin(), it->second.end());
            return {0, 0, d};
        };
        cli::add_lan_commands(app, runner);
    }
};

const std::map<uint8_t, Bytes> kFull = {{0, {0x00}},
                                        {1, {0x15}},
                                        {2, {0x00, 0x04, 0x14, 0x15, 0x00}},
                                        {3, {192, 168, 0, 9}},
                                        {4, {0x01}},
                                        {5, {0x02, 0x00, 0x00, 0xAA, 0xBB, 0xCC}},
                                        {6, {255, 255, 255, 0}},
                                        {12, {192, 168, 0, 1}},
                                        {20, {0x2C, 0x81}},
                                        {22, {0x02}},
                                        {23, {0x00, 3, 17}},
                                        {24, {0x00, 0x34, 0, 0, 0, 0, 0, 0, 0}}};

TEST(LanPrint, PrintsEveryParameter)
{
    Fixture f(kFull);
    cli::testkit::parse(f.app, {"lan", "print"});
    ASSERT_TRUE(f.runner.printed);
    for (const auto &rq : f.t.asked) EXPECT_EQ(rq.data.at(0), 1);
    EXPECT_EQ(f.runner.printed->text,
              "Set in Progress         : Set Complete\n"
              "Auth Type Support       : NONE MD5 PASSWORD\n"
              "Auth Type Enable        : Callback :\n"
              "                        : User     : MD5\n"
              "                        : Operator : MD5 PASSWORD\n"
              "                        : Admin    : NONE MD5 PASSWORD\n"
              "                        : OEM      :\n"
              "IP Address Source       : Static Address\n"
              "IP Address              : 192.168.0.9\n"
              "Subnet Mask             : 255.255.255.0\n"
              "MAC Address             : 02:00:00:aa:bb:cc\n"
              "Default Gateway IP      : 192.168.0.1\n"
              "802.1q VLAN ID          : 300\n"
              "RMCP+ Cipher Suites     : 3,17\n"
              "Cipher Suite Priv Max   : aoXXXXXXXXXXXXXX\n"
              "                        :     X=Cipher Suite Unused\n"
              "                        :     c=CALLBACK\n"
              "                        :     u=USER\n"
              "                        :     o=OPERATOR\n"
              "                        :     a=ADMIN\n"
              "                        :     O=OEM\n");
    const auto &j = f.runner.printed->json;
    EXPECT_EQ(j["channel"], 1);
    EXPECT_EQ(j["set_in_progress"], "Set Complete");
    EXPECT_EQ(j["auth_type_support"], nlohmann::json({"NONE", "MD5", "PASSWORD"}));
    EXPECT_EQ(j["auth_type_enables"]["operator"], nlohmann::json({"MD5", "PASSWORD"}));
    EXPECT_EQ(j["auth_type_enables"]["callback"], nlohmann::json::array());
    EXPECT_EQ(j["ip_address_source"], "Static Address");
    EXPECT_EQ(j["ip_address"], "192.168.0.9");
    EXPECT_EQ(j["subnet_mask"], "255.255.255.0");
    EXPECT_EQ(j["mac_address"], "02:00:00:aa:bb:cc");
    EXPECT_EQ(j["default_gateway_ip"], "192.168.0.1");
    EXPECT_EQ(j["vlan_id"], 300);
    EXPECT_EQ(j["cipher_suites"], nlohmann::json({3, 17}));
    ASSERT_EQ(j["cipher_suite_privileges"].size(), 2u);
    EXPECT_EQ(j["cipher_suite_privileges"][0]["cipher_suite"], 3);
    EXPECT_EQ(j["cipher_suite_privileges"][0]["max_privilege"], "ADMINISTRATOR");
    EXPECT_EQ(j["cipher_suite_privileges"][1]["cipher_suite"], 17);
    EXPECT_EQ(j["cipher_suite_privileges"][1]["max_privilege"], "OPERATOR");
}

TEST(LanPrint, UnsupportedParametersAreNotAvailable)
{
    Fixture f({{3, {10, 0, 0, 2}}, {20, {0x00, 0x00}}});
    cli::testkit::parse(f.app, {"lan", "print", "2"});
    ASSERT_TRUE(f.runner.printed);
    for (const auto &rq : f.t.asked) EXPECT_EQ(rq.data.at(0), 2);
    const std::string &text = f.runner.printed->text;
    EXPECT_NE(text.find("IP Address              : 10.0.0.2\n"), std::string::npos);
    EXPECT_NE(text.find("MAC Address             : Not Available\n"), std::string::npos);
    EXPECT_NE(text.find("802.1q VLAN ID          : Disabled\n"), std::string::npos);
    const auto &j = f.runner.printed->json;
    EXPECT_EQ(j["ip_address"], "10.0.0.2");
    EXPECT_TRUE(j["mac_address"].is_null());
    EXPECT_TRUE(j["vlan_id"].is_null());
    EXPECT_TRUE(j["cipher_suites"].is_null());
    EXPECT_TRUE(j["auth_type_enables"].is_null());
}

TEST(LanPrint, BadChannelIsAUsageError)
{
    Fixture f(kFull);
    cli::testkit::parse(f.app, {"lan", "print", "0x10"});
    EXPECT_TRUE(f.runner.usage);
    EXPECT_TRUE(f.t.asked.empty());
}

TEST(LanPrint, RefusalIsAnError)
{
    ScriptedTransport t;
    t.queue(0xCC);
    cli::testkit::CapturingRunner runner(t);
    CLI::App app;
    cli::add_lan_commands(app, runner);
    cli::testkit::parse(app, {"lan", "print", "3"});
    ASSERT_TRUE(runner.error);
    EXPECT_EQ(runner.error->completion_code, 0xCC);
}

}  // namespace
