#include <gtest/gtest.h>

#include "runner_testkit.h"
#include "scripted_transport_testkit.h"

namespace {

using rmcpp::commands::Bytes;
using rmcpp::commands::Reply;
using rmcpp::commands::testkit::Request;
using rmcpp::commands::testkit::ScriptedTransport;

// Three user IDs: 1 "admin" (administrator), 2 "oper" (operator, link
// authentication, callback only), 3 unset.
Reply bmc(const Request &rq)
{
    if (rq.cmd == 0x44) {
        const uint8_t id = rq.data.at(1);
        const uint8_t access = id == 1 ? 0x14 : id == 2 ? 0x73 : 0x0F;
        return {0, 0, {0x03, static_cast<uint8_t>((id == 3 ? 0x80 : 0x40) | 2), 0x00, access}};
    }
    Bytes name(16, 0);
    const std::string n = rq.data.at(0) == 1 ? "admin" : rq.data.at(0) == 2 ? "oper" : "";
    std::copy(n.begin(), n.end(), name.begin());
    return {0, 0, name};
}

struct Fixture {
    ScriptedTransport t;
    cli::testkit::CapturingRunner runner{t};
    CLI::App app;
    Fixture()
    {
        t.answer = bmc;
        cli::add_user_commands(app, runner);
    }
};

TEST(UserList, PrintsIpmitoolLayoutAndJson)
{
    Fixture f;
    cli::testkit::parse(f.app, {"user", "list"});
    ASSERT_TRUE(f.runner.printed);
    EXPECT_EQ(f.t.asked.front(), (Request{0x06, 0x44, {0x01, 0x01}}));
    EXPECT_EQ(f.runner.printed->text,
              "ID  Name\t     Callin  Link Auth\tIPMI Msg   Channel Priv Limit\n"
              "1   admin            true    false      true       ADMINISTRATOR\n"
              "2   oper             false   true       true       OPERATOR\n"
              "3                    true    false      false      NO ACCESS\n");
    const auto &j = f.runner.printed->json;
    EXPECT_EQ(j["channel"], 1);
    EXPECT_EQ(j["max_user_ids"], 3);
    EXPECT_EQ(j["enabled_user_ids"], 2);
    ASSERT_EQ(j["users"].size(), 3u);
    EXPECT_EQ(j["users"][0]["name"], "admin");
    EXPECT_EQ(j["users"][0]["privilege_limit"], "ADMINISTRATOR");
    EXPECT_EQ(j["users"][0]["enable_status"], "enabled");
    EXPECT_EQ(j["users"][1]["callin"], false);
    EXPECT_EQ(j["users"][1]["link_auth"], true);
    EXPECT_EQ(j["users"][1]["privilege_limit_level"], 3);
    EXPECT_EQ(j["users"][2]["enable_status"], "disabled");
    EXPECT_EQ(j["users"][2]["ipmi_messaging"], false);
}

TEST(UserList, ChannelArgument)
{
    Fixture f;
    cli::testkit::parse(f.app, {"user", "list", "0x2"});
    ASSERT_TRUE(f.runner.printed);
    EXPECT_EQ(f.t.asked.front(), (Request{0x06, 0x44, {0x02, 0x01}}));
    EXPECT_EQ(f.runner.printed->json["channel"], 2);
}

TEST(UserList, BadChannelIsAUsageError)
{
    Fixture f;
    cli::testkit::parse(f.app, {"user", "list", "16"});
    EXPECT_TRUE(f.runner.usage);
    EXPECT_EQ(f.runner.exit_status(), 2);
    EXPECT_TRUE(f.t.asked.empty());
}

TEST(UserList, RefusedChannelIsAnError)
{
    ScriptedTransport t;
    t.queue(0xCC);
    cli::testkit::CapturingRunner runner(t);
    CLI::App app;
    cli::add_user_commands(app, runner);
    cli::testkit::parse(app, {"user", "list", "5"});
    ASSERT_TRUE(runner.error);
    EXPECT_EQ(runner.error->completion_code, 0xCC);
}

}  // namespace
