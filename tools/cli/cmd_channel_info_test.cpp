#include <gtest/gtest.h>

#include "runner_testkit.h"
#include "scripted_transport_testkit.h"

namespace {

using rmcpp::commands::testkit::Request;
using rmcpp::commands::testkit::ScriptedTransport;

struct Fixture {
    ScriptedTransport t;
    cli::testkit::CapturingRunner runner{t};
    CLI::App app;
    CLI::App *channel = app.add_subcommand("channel");
    Fixture() { cli::add_channel_info_command(*channel, runner); }
};

TEST(ChannelInfo, CurrentChannelByDefault)
{
    Fixture f;
    f.t.queue(0x00, {0x01, 0x04, 0x01, 0x81, 0xF2, 0x1B, 0x00, 0x00, 0x00});
    f.t.queue(0x00, {0x02, 0x04});
    f.t.queue(0x00, {0x3A, 0x04});
    cli::testkit::parse(f.app, {"channel", "info"});
    ASSERT_EQ(f.t.asked.size(), 3u);
    EXPECT_EQ(f.t.asked[0], (Request{0x06, 0x42, {0x0E}}));
    ASSERT_TRUE(f.runner.printed);
    EXPECT_EQ(f.runner.printed->text,
              "Channel 0x1 info:\n"
              "  Channel Medium Type   : 802.3 LAN\n"
              "  Channel Protocol Type : IPMB-1.0\n"
              "  Session Support       : multi-session\n"
              "  Active Session Count  : 1\n"
              "  Protocol Vendor ID    : 7154\n"
              "  Volatile(active) Settings\n"
              "    Alerting            : enabled\n"
              "    Per-message Auth    : enabled\n"
              "    User Level Auth     : enabled\n"
              "    Access Mode         : always available\n"
              "  Non-Volatile Settings\n"
              "    Alerting            : disabled\n"
              "    Per-message Auth    : disabled\n"
              "    User Level Auth     : disabled\n"
              "    Access Mode         : always available\n");
    const auto &j = f.runner.printed->json;
    EXPECT_EQ(j["channel"], 1);
    EXPECT_EQ(j["medium_type"], "802.3 LAN");
    EXPECT_EQ(j["session_support"], "multi-session");
    EXPECT_EQ(j["active_session_count"], 1);
    EXPECT_EQ(j["protocol_vendor_id"], 7154);
    EXPECT_EQ(j["volatile"]["alerting"], true);
    EXPECT_EQ(j["non_volatile"]["per_message_auth"], false);
    EXPECT_EQ(j["non_volatile"]["privilege_limit"], "ADMINISTRATOR");
}

TEST(ChannelInfo, SessionLessChannelHasNoAccessSettings)
{
    Fixture f;
    f.t.queue(0x00, {0x0F, 0x0C, 0x05, 0x00, 0xF2, 0x1B, 0x00, 0x00, 0x00});
    cli::testkit::parse(f.app, {"channel", "info", "15"});
    ASSERT_TRUE(f.runner.printed);
    EXPECT_EQ(f.t.asked[0], (Request{0x06, 0x42, {0x0F}}));
    EXPECT_EQ(f.runner.printed->text.find("Settings"), std::string::npos);
    EXPECT_TRUE(f.runner.printed->json["volatile"].is_null());
}

TEST(ChannelInfo, BadChannelIsAUsageError)
{
    Fixture f;
    cli::testkit::parse(f.app, {"channel", "info", "lan"});
    EXPECT_TRUE(f.runner.usage);
    EXPECT_TRUE(f.t.asked.empty());
}

TEST(ChannelInfo, MalformedAnswerIsAnError)
{
    Fixture f;
    f.t.queue(0x00, {0x01, 0x04});
    cli::testkit::parse(f.app, {"channel", "info"});
    ASSERT_TRUE(f.runner.error);
    EXPECT_EQ(f.runner.error->kind, rmcpp::commands::CommandError::Kind::malformed);
}

}  // namespace
