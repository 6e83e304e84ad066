#include "user_access.h"

#include <gtest/gtest.h>

#include "scripted_transport_testkit.h"
#include "user_name.h"

using namespace rmcpp::commands;
using rmcpp::commands::testkit::Request;
using rmcpp::commands::testkit::ScriptedTransport;

namespace {

Bytes name_bytes(const std::string &name)
{
    Bytes b(16, 0);
    std::copy(name.begin(), name.end(), b.begin());
    return b;
}

}  // namespace

TEST(GetUserAccess, BuildsChannelAndUser)
{
    EXPECT_EQ(build_get_user_access(1, 2), (std::array<uint8_t, 2>{0x01, 0x02}));
    EXPECT_EQ(build_get_user_access(0xFE, 0xFF), (std::array<uint8_t, 2>{0x0E, 0x3F}));
}

TEST(GetUserAccess, DecodesEveryField)
{
    const Bytes d = {0xCA, 0x43, 0xC1, 0xB4};
    auto a = decode_get_user_access(d.data(), d.size());
    ASSERT_TRUE(a);
    EXPECT_EQ(a->max_user_ids, 10);
    EXPECT_EQ(a->enable_status, UserEnableStatus::Enabled);
    EXPECT_EQ(a->enabled_user_ids, 3);
    EXPECT_EQ(a->fixed_name_user_ids, 1);
    EXPECT_FALSE(a->callback_only);
    EXPECT_TRUE(a->link_auth);
    EXPECT_TRUE(a->ipmi_messaging);
    EXPECT_EQ(a->privilege_limit, 4);

    const Bytes other = {0x0F, 0x80, 0x00, 0x4F};
    a = decode_get_user_access(other.data(), other.size());
    ASSERT_TRUE(a);
    EXPECT_EQ(a->enable_status, UserEnableStatus::Disabled);
    EXPECT_TRUE(a->callback_only);
    EXPECT_FALSE(a->link_auth);
    EXPECT_FALSE(a->ipmi_messaging);
    EXPECT_EQ(a->privilege_limit, 0xF);
}

TEST(GetUserAccess, RefusesAnyLengthButFour)
{
    const Bytes d = {0x0A, 0x02, 0x01, 0x14, 0x00};
    for (size_t n = 0; n <= d.size(); ++n)
        if (n != 4) {
            EXPECT_FALSE(decode_get_user_access(d.data(), n)) << n;
        }
}

TEST(PrivilegeLimit, Words)
{
    EXPECT_EQ(privilege_limit_text(4), "ADMINISTRATOR");
    EXPECT_EQ(privilege_limit_text(2), "USER");
    EXPECT_EQ(privilege_limit_text(0xF), "NO ACCESS");
    EXPECT_EQ(privilege_limit_text(6), "Unknown (0x06)");
}

TEST(ListUsers, CountsFromUserOneThenEachId)
{
    ScriptedTransport t;
    t.answer = [](const Request &rq) -> Reply {
        if (rq.cmd == kGetUserAccessCmd) {
            const uint8_t id = rq.data.at(1);
            const uint8_t limit = id == 2 ? 0x04 : id == 3 ? 0x02 : 0x0F;
            return {0, 0, {0x03, 0x42, 0x01, static_cast<uint8_t>(0x30 | limit)}};
        }
        const uint8_t id = rq.data.at(0);
        return {0, 0, name_bytes(id == 2 ? "admin" : id == 3 ? "operator" : "")};
    };
    auto list = list_users(t, 1);
    EXPECT_EQ(list.channel, 1);
    EXPECT_EQ(list.max_user_ids, 3);
    EXPECT_EQ(list.enabled_user_ids, 2);
    EXPECT_EQ(list.fixed_name_user_ids, 1);
    ASSERT_EQ(list.users.size(), 3u);
    EXPECT_EQ(list.users[0].name, "");
    EXPECT_EQ(list.users[1].name, "admin");
    EXPECT_EQ(list.users[1].access.privilege_limit, 4);
    EXPECT_EQ(list.users[2].name, "operator");
    EXPECT_EQ(list.users[2].access.privilege_limit, 2);
    // User 1's access is asked once.
    const std::vector<Request> expected = {
        {kAppNetFn, kGetUserAccessCmd, {0x01, 0x01}}, {kAppNetFn, kGetUserNameCmd, {0x01}},
        {kAppNetFn, kGetUserAccessCmd, {0x01, 0x02}}, {kAppNetFn, kGetUserNameCmd, {0x02}},
        {kAppNetFn, kGetUserAccessCmd, {0x01, 0x03}}, {kAppNetFn, kGetUserNameCmd, {0x03}},
    };
    EXPECT_EQ(t.asked, expected);
}

TEST(ListUsers, UnsetNameIsEmpty)
{
    ScriptedTransport t;
    t.queue(0x00, {0x01, 0x01, 0x00, 0x14});
    t.queue(0xCC);
    auto list = list_users(t, 2);
    ASSERT_EQ(list.users.size(), 1u);
    EXPECT_EQ(list.users[0].name, "");
}

TEST(ListUsers, ShortAccessAnswerIsMalformed)
{
    ScriptedTransport t;
    t.queue(0x00, {0x02, 0x01, 0x00});
    try {
        list_users(t, 1);
        FAIL() << "no error";
    } catch (const CommandError &e) {
        EXPECT_EQ(e.kind, CommandError::Kind::malformed);
        EXPECT_EQ(e.step, "Get User Access");
    }
}

TEST(ListUsers, RefusedChannelThrows)
{
    ScriptedTransport t;
    t.queue(0xCC);
    try {
        list_users(t, 7);
        FAIL() << "no error";
    } catch (const CommandError &e) {
        EXPECT_EQ(e.kind, CommandError::Kind::completion_code);
        EXPECT_EQ(e.completion_code, 0xCC);
    }
}

TEST(ListUsers, LostExchangeMidwayThrows)
{
    ScriptedTransport t;
    t.queue(0x00, {0x02, 0x01, 0x00, 0x14});
    t.queue(0x00, name_bytes(""));
    t.queue(0x00, {0x02, 0x01, 0x00, 0x14});
    // the name of user 2 is never answered
    EXPECT_THROW(list_users(t, 1), CommandError);
}

TEST(ListUsers, LongNameAnswerIsMalformed)
{
    ScriptedTransport t;
    t.queue(0x00, {0x01, 0x01, 0x00, 0x14});
    t.queue(0x00, Bytes(17, 'a'));
    try {
        list_users(t, 1);
        FAIL() << "no error";
    } catch (const CommandError &e) {
        EXPECT_EQ(e.kind, CommandError::Kind::malformed);
        EXPECT_EQ(e.step, "Get User Name");
    }
}
