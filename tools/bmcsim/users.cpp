// Users and the LAN channel: Get User Access, Get User Name, Get Channel
// Info and Get Channel Access. User n is Config::users[n - 1].
#include "engine.h"

namespace bmcsim::detail {

namespace {

constexpr uint8_t kAppNetFn = 0x06;
constexpr uint8_t kGetChannelAccess = 0x41, kGetChannelInfo = 0x42, kGetUserAccess = 0x44, kGetUserName = 0x46;
constexpr uint8_t kOk = 0x00, kRequestLengthInvalid = 0xC7, kInvalidDataField = 0xCC;
constexpr uint8_t kCurrentChannel = 0x0E;
constexpr uint32_t kIpmiForumIana = 7154;
constexpr uint8_t kLanMedium = 0x04, kIpmbProtocol = 0x01, kMultiSession = 0x02, kAlwaysAvailable = 0x02;
constexpr uint8_t kNoAccess = 0x0F;

uint8_t max_user_ids(const Config &c)
{
    return static_cast<uint8_t>(std::min<size_t>(std::max<size_t>(c.max_user_ids, c.users.size()), 63));
}

}  // namespace

bool Engine::user_command(const IpmiRequest &rq, const Config &c, CommandResult &r)
{
    if (rq.netfn != kAppNetFn) return false;
    if (rq.cmd != kGetChannelAccess && rq.cmd != kGetChannelInfo && rq.cmd != kGetUserAccess && rq.cmd != kGetUserName)
        return false;
    auto answer = [&](uint8_t cc, const Bytes &data = {}) { r.response = response_to(rq, cc, data); };
    const uint8_t own = c.capabilities.channel & 0x0F;
    auto ours = [&](uint8_t channel) { return channel == own || channel == kCurrentChannel; };

    if (rq.cmd == kGetUserName) {
        if (rq.data.size() != 1) return answer(kRequestLengthInvalid), true;
        const uint8_t id = rq.data[0] & 0x3F;
        if (id == 0 || id > max_user_ids(c)) return answer(kInvalidDataField), true;
        Bytes name(16, 0);
        if (id <= c.users.size()) {
            const std::string &n = c.users[id - 1].name;
            std::copy(n.begin(), n.begin() + static_cast<long>(std::min<size_t>(n.size(), 16)), name.begin());
        }
        return answer(kOk, name), true;
    }
    if (rq.cmd == kGetUserAccess) {
        if (rq.data.size() != 2) return answer(kRequestLengthInvalid), true;
        const uint8_t id = rq.data[1] & 0x3F;
        if (!ours(rq.data[0] & 0x0F) || id == 0 || id > max_user_ids(c)) return answer(kInvalidDataField), true;
        size_t enabled = 0;
        for (const User &u : c.users) enabled += u.enabled;
        const User *u = id <= c.users.size() ? &c.users[id - 1] : nullptr;
        const bool on = u && u->enabled;
        const uint8_t status = u ? (on ? 0x40 : 0x80) : 0x80;
        const uint8_t access = on ? static_cast<uint8_t>(0x10 | (u->max_privilege & 0x0F)) : kNoAccess;
        return answer(kOk, {max_user_ids(c), static_cast<uint8_t>(status | (enabled & 0x3F)),
                            static_cast<uint8_t>(c.fixed_name_user_ids & 0x3F), access}),
               true;
    }
    if (rq.cmd == kGetChannelInfo) {
        if (rq.data.size() != 1) return answer(kRequestLengthInvalid), true;
        if (!ours(rq.data[0] & 0x0F)) return answer(kInvalidDataField), true;
        size_t active = 0;
        for (const auto &[id, s] : sessions_) active += s.active;
        return answer(kOk, {own, kLanMedium, kIpmbProtocol,
                            static_cast<uint8_t>((kMultiSession << 6) | (active & 0x3F)),
                            static_cast<uint8_t>(kIpmiForumIana), static_cast<uint8_t>(kIpmiForumIana >> 8),
                            static_cast<uint8_t>(kIpmiForumIana >> 16), 0x00, 0x00}),
               true;
    }
    // Get Channel Access: volatile (10b) or non-volatile (01b); both hold the same.
    if (rq.data.size() != 2) return answer(kRequestLengthInvalid), true;
    const uint8_t set = rq.data[1] >> 6;
    if (!ours(rq.data[0] & 0x0F) || (set != 1 && set != 2)) return answer(kInvalidDataField), true;
    const uint8_t modes = static_cast<uint8_t>((c.capabilities.per_message_auth_disabled ? 0x10 : 0) |
                                               (c.capabilities.user_auth_disabled ? 0x08 : 0) | kAlwaysAvailable);
    return answer(kOk, {modes, static_cast<uint8_t>(c.channel_max_privilege & 0x0F)}), true;
}

}  // namespace bmcsim::detail
