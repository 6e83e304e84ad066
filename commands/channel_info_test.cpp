#include "channel_info.h"

#include <gtest/gtest.h>

#include "scripted_transport_testkit.h"
#include "user_access.h"

using namespace rmcpp::commands;
using rmcpp::commands::testkit::Request;
using rmcpp::commands::testkit::ScriptedTransport;

namespace {
const Bytes kLanInfo = {0x01, 0x04, 0x01, 0x82, 0xF2, 0x1B, 0x00, 0x00, 0x00};
}

TEST(GetChannelInfo, DecodesEveryField)
{
    const Bytes d = {0xF1, 0x84, 0xE1, 0x82, 0xF2, 0x1B, 0x00, 0x12, 0x34};
    auto c = decode_get_channel_info(d.data(), d.size());
    ASSERT_TRUE(c);
    EXPECT_EQ(c->channel, 1);
    EXPECT_EQ(c->medium, 4);
    EXPECT_EQ(c->protocol, 1);
    EXPECT_EQ(c->session_support, 2);
    EXPECT_EQ(c->active_sessions, 2);
    EXPECT_EQ(c->vendor_id, 7154u);
    EXPECT_EQ(c->aux, (std::array<uint8_t, 2>{0x12, 0x34}));
    EXPECT_EQ(build_get_channel_info(0x0E)[0], 0x0E);
}

TEST(GetChannelInfo, RefusesAnyLengthButNine)
{
    Bytes d = kLanInfo;
    d.push_back(0);
    for (size_t n = 0; n <= d.size(); ++n)
        if (n != 9) {
            EXPECT_FALSE(decode_get_channel_info(d.data(), n)) << n;
        }
}

TEST(ChannelWords, MediumProtocolSessions)
{
    EXPECT_STREQ(channel_medium_text(0x04), "802.3 LAN");
    EXPECT_STREQ(channel_medium_text(0x0C), "System Interface (KCS, SMIC, or BT)");
    EXPECT_STREQ(channel_medium_text(0x30), "reserved");
    EXPECT_STREQ(channel_medium_text(0x60), "OEM");
    EXPECT_STREQ(channel_protocol_text(0x01), "IPMB-1.0");
    EXPECT_STREQ(channel_protocol_text(0x05), "KCS");
    EXPECT_STREQ(session_support_text(0), "session-less");
    EXPECT_STREQ(session_support_text(2), "multi-session");
    EXPECT_STREQ(access_mode_text(2), "always available");
}

TEST(GetChannelAccess, BuildsAndDecodes)
{
    EXPECT_EQ(build_get_channel_access(1, ChannelAccessSet::Volatile), (std::array<uint8_t, 2>{0x01, 0x80}));
    EXPECT_EQ(build_get_channel_access(1, ChannelAccessSet::NonVolatile), (std::array<uint8_t, 2>{0x01, 0x40}));
    const Bytes d = {0x12, 0x04};
    auto a = decode_get_channel_access(d.data(), d.size());
    ASSERT_TRUE(a);
    EXPECT_TRUE(a->alerting);
    EXPECT_FALSE(a->per_message_auth);
    EXPECT_TRUE(a->user_level_auth);
    EXPECT_EQ(a->access_mode, 2);
    EXPECT_EQ(a->privilege_limit, 4);
    const Bytes off = {0x28, 0x02};
    a = decode_get_channel_access(off.data(), off.size());
    ASSERT_TRUE(a);
    EXPECT_FALSE(a->alerting);
    EXPECT_TRUE(a->per_message_auth);
    EXPECT_FALSE(a->user_level_auth);
    EXPECT_EQ(a->access_mode, 0);
    EXPECT_FALSE(decode_get_channel_access(d.data(), 1));
    const Bytes three = {0, 0, 0};
    EXPECT_FALSE(decode_get_channel_access(three.data(), 3));
}

TEST(ChannelInfoProcedure, InfoThenBothAccessSetsOfTheNamedChannel)
{
    ScriptedTransport t;
    t.queue(0x00, kLanInfo);
    t.queue(0x00, {0x02, 0x04});
    t.queue(0x00, {0x22, 0x03});
    auto r = channel_info(t, kCurrentChannel);
    const std::vector<Request> expected = {
        {kAppNetFn, kGetChannelInfoCmd, {0x0E}},
        {kAppNetFn, kGetChannelAccessCmd, {0x01, 0x80}},
        {kAppNetFn, kGetChannelAccessCmd, {0x01, 0x40}},
    };
    EXPECT_EQ(t.asked, expected);
    EXPECT_EQ(r.info.channel, 1);
    ASSERT_TRUE(r.volatile_access);
    ASSERT_TRUE(r.non_volatile_access);
    EXPECT_TRUE(r.volatile_access->alerting);
    EXPECT_FALSE(r.non_volatile_access->alerting);
    EXPECT_EQ(r.non_volatile_access->privilege_limit, 3);
}

TEST(ChannelInfoProcedure, SessionLessChannelHasNoAccess)
{
    ScriptedTransport t;
    t.queue(0x00, {0x0F, 0x0C, 0x05, 0x00, 0xF2, 0x1B, 0x00, 0x00, 0x00});
    auto r = channel_info(t, 0x0F);
    EXPECT_EQ(t.asked.size(), 1u);
    EXPECT_FALSE(r.volatile_access);
    EXPECT_FALSE(r.non_volatile_access);
}

TEST(ChannelInfoProcedure, AccessNotKeptIsNotAFailure)
{
    ScriptedTransport t;
    t.queue(0x00, kLanInfo);
    t.queue(0x82);
    t.queue(0xCC);
    auto r = channel_info(t, 1);
    EXPECT_FALSE(r.volatile_access);
    EXPECT_FALSE(r.non_volatile_access);
}

TEST(ChannelInfoProcedure, MisbehaviourThrows)
{
    {
        ScriptedTransport t;
        t.queue(0xCC);
        EXPECT_THROW(channel_info(t, 9), CommandError);
    }
    {
        ScriptedTransport t;
        t.queue(0x00, {0x01, 0x04, 0x01});
        try {
            channel_info(t, 1);
            FAIL();
        } catch (const CommandError &e) {
            EXPECT_EQ(e.kind, CommandError::Kind::malformed);
        }
    }
    {
        ScriptedTransport t;
        t.queue(0x00, kLanInfo);
        t.queue(0x00, {0x02});
        EXPECT_THROW(channel_info(t, 1), CommandError);
    }
    {
        ScriptedTransport t;
        t.queue(0x00, kLanInfo);
        t.queue(0xC0);
        EXPECT_THROW(channel_info(t, 1), CommandError);
    }
}
