#include "user_access.h"

#include <cstdio>

#include "user_name.h"
#include "wire.h"

namespace rmcpp::commands {

std::array<uint8_t, 2> build_get_user_access(uint8_t channel, uint8_t user_id)
{
    std::array<uint8_t, 2> out{};
    rmcpp::wire::Writer w(out.data(), out.size());
    w.u8(channel & 0x0F).u8(user_id & 0x3F);
    return out;
}

std::optional<UserAccess> decode_get_user_access(const uint8_t *data, size_t length)
{
    if (!data) return std::nullopt;
    rmcpp::wire::Reader r(data, length);
    const uint8_t b1 = r.u8(), b2 = r.u8(), b3 = r.u8(), b4 = r.u8();
    if (!r.ok() || r.remaining() != 0) return std::nullopt;
    UserAccess a;
    a.max_user_ids = b1 & 0x3F;
    a.enable_status = static_cast<UserEnableStatus>(b2 >> 6);
    a.enabled_user_ids = b2 & 0x3F;
    a.fixed_name_user_ids = b3 & 0x3F;
    a.callback_only = (b4 & 0x40) != 0;
    a.link_auth = (b4 & 0x20) != 0;
    a.ipmi_messaging = (b4 & 0x10) != 0;
    a.privilege_limit = b4 & 0x0F;
    return a;
}

std::string privilege_limit_text(uint8_t level)
{
    switch (level) {
    case 0x1: return "CALLBACK";
    case 0x2: return "USER";
    case 0x3: return "OPERATOR";
    case 0x4: return "ADMINISTRATOR";
    case 0x5: return "OEM";
    case 0xF: return "NO ACCESS";
    default: break;
    }
    char text[24];
    std::snprintf(text, sizeof text, "Unknown (0x%02X)", level);
    return text;
}

namespace {

UserAccess user_access(Transport &t, uint8_t channel, uint8_t id)
{
    const std::string step = "Get User Access";
    const auto rq = build_get_user_access(channel, id);
    const Bytes data = call(t, step, kAppNetFn, kGetUserAccessCmd, Bytes(rq.begin(), rq.end()));
    auto access = decode_get_user_access(data.data(), data.size());
    if (!access)
        throw CommandError(CommandError::Kind::malformed, step, 0, 0,
                           step + ": response is " + std::to_string(data.size()) + " bytes, not 4");
    return *access;
}

std::string user_name(Transport &t, uint8_t id)
{
    const std::string step = "Get User Name";
    const auto rq = build_get_user_name(id);
    Bytes data;
    try {
        data = call(t, step, kAppNetFn, kGetUserNameCmd, Bytes(rq.begin(), rq.end()));
    } catch (const CommandError &e) {
        if (e.kind == CommandError::Kind::completion_code && (e.completion_code == 0xCC || e.completion_code == 0xCB))
            return {};
        throw;
    }
    auto name = decode_get_user_name(data.data(), data.size());
    if (!name)
        throw CommandError(CommandError::Kind::malformed, step, 0, 0,
                           step + ": response is " + std::to_string(data.size()) + " bytes, not 16");
    return *name;
}

}  // namespace

UserList list_users(Transport &t, uint8_t channel)
{
    UserList list;
    list.channel = channel;
    const UserAccess first = user_access(t, channel, 1);
    list.max_user_ids = first.max_user_ids;
    list.enabled_user_ids = first.enabled_user_ids;
    list.fixed_name_user_ids = first.fixed_name_user_ids;
    for (uint8_t id = 1; id <= list.max_user_ids; ++id) {
        UserEntry e;
        e.id = id;
        e.access = id == 1 ? first : user_access(t, channel, id);
        e.name = user_name(t, id);
        list.users.push_back(std::move(e));
    }
    return list;
}

}  // namespace rmcpp::commands
