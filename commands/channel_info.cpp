#include "channel_info.h"

#include "user_access.h"
#include "wire.h"

namespace rmcpp::commands {

using rmcpp::wire::Reader;

std::array<uint8_t, 1> build_get_channel_info(uint8_t channel)
{
    return {static_cast<uint8_t>(channel & 0x0F)};
}

std::optional<ChannelInfo> decode_get_channel_info(const uint8_t *data, size_t length)
{
    if (!data) return std::nullopt;
    Reader r(data, length);
    ChannelInfo c;
    c.channel = r.u8() & 0x0F;
    c.medium = r.u8() & 0x7F;
    c.protocol = r.u8() & 0x1F;
    const uint8_t sessions = r.u8();
    const uint32_t v0 = r.u8(), v1 = r.u8(), v2 = r.u8();
    r.bytes(c.aux.data(), c.aux.size());
    if (!r.ok() || r.remaining() != 0) return std::nullopt;
    c.session_support = sessions >> 6;
    c.active_sessions = sessions & 0x3F;
    c.vendor_id = v0 | (v1 << 8) | (v2 << 16);
    return c;
}

const char *channel_medium_text(uint8_t medium)
{
    switch (medium) {
    case 0x00: return "reserved";
    case 0x01: return "IPMB (I2C)";
    case 0x02: return "ICMB v1.0";
    case 0x03: return "ICMB v0.9";
    case 0x04: return "802.3 LAN";
    case 0x05: return "Asynch. Serial/Modem (RS-232)";
    case 0x06: return "Other LAN";
    case 0x07: return "PCI SMBus";
    case 0x08: return "SMBus v1.0/1.1";
    case 0x09: return "SMBus v2.0";
    case 0x0A: return "USB 1.x";
    case 0x0B: return "USB 2.x";
    case 0x0C: return "System Interface (KCS, SMIC, or BT)";
    default: break;
    }
    return medium >= 0x60 ? "OEM" : "reserved";
}

const char *channel_protocol_text(uint8_t protocol)
{
    switch (protocol) {
    case 0x00: return "reserved";
    case 0x01: return "IPMB-1.0";
    case 0x02: return "ICMB-1.0";
    case 0x03: return "reserved";
    case 0x04: return "IPMI-SMBus";
    case 0x05: return "KCS";
    case 0x06: return "SMIC";
    case 0x07: return "BT-10";
    case 0x08: return "BT-15";
    case 0x09: return "TMode";
    default: break;
    }
    return protocol >= 0x1C ? "OEM" : "reserved";
}

const char *session_support_text(uint8_t support)
{
    switch (support & 0x03) {
    case 0: return "session-less";
    case 1: return "single-session";
    case 2: return "multi-session";
    default: return "session-based";
    }
}

std::array<uint8_t, 2> build_get_channel_access(uint8_t channel, ChannelAccessSet set)
{
    return {static_cast<uint8_t>(channel & 0x0F), static_cast<uint8_t>(static_cast<uint8_t>(set) << 6)};
}

std::optional<ChannelAccess> decode_get_channel_access(const uint8_t *data, size_t length)
{
    if (!data) return std::nullopt;
    Reader r(data, length);
    const uint8_t b1 = r.u8(), b2 = r.u8();
    if (!r.ok() || r.remaining() != 0) return std::nullopt;
    ChannelAccess a;
    a.alerting = (b1 & 0x20) == 0;
    a.per_message_auth = (b1 & 0x10) == 0;
    a.user_level_auth = (b1 & 0x08) == 0;
    a.access_mode = b1 & 0x07;
    a.privilege_limit = b2 & 0x0F;
    return a;
}

const char *access_mode_text(uint8_t mode)
{
    switch (mode) {
    case 0: return "disabled";
    case 1: return "pre-boot only";
    case 2: return "always available";
    case 3: return "shared";
    default: return "unknown";
    }
}

namespace {

std::optional<ChannelAccess> channel_access(Transport &t, uint8_t channel, ChannelAccessSet set)
{
    const std::string step = "Get Channel Access";
    const auto rq = build_get_channel_access(channel, set);
    Bytes data;
    try {
        data = call(t, step, kAppNetFn, kGetChannelAccessCmd, Bytes(rq.begin(), rq.end()));
    } catch (const CommandError &e) {
        // 82h: the channel has no access modes; CCh: no such settings here.
        if (e.kind == CommandError::Kind::completion_code && (e.completion_code == 0x82 || e.completion_code == 0xCC))
            return std::nullopt;
        throw;
    }
    auto access = decode_get_channel_access(data.data(), data.size());
    if (!access)
        throw CommandError(CommandError::Kind::malformed, step, 0, 0,
                           step + ": response is " + std::to_string(data.size()) + " bytes, not 2");
    return access;
}

}  // namespace

ChannelReport channel_info(Transport &t, uint8_t channel)
{
    const std::string step = "Get Channel Info";
    const auto rq = build_get_channel_info(channel);
    const Bytes data = call(t, step, kAppNetFn, kGetChannelInfoCmd, Bytes(rq.begin(), rq.end()));
    auto info = decode_get_channel_info(data.data(), data.size());
    if (!info)
        throw CommandError(CommandError::Kind::malformed, step, 0, 0,
                           step + ": response is " + std::to_string(data.size()) + " bytes, not 9");
    ChannelReport report;
    report.info = *info;
    if (info->session_support != 0) {
        report.volatile_access = channel_access(t, info->channel, ChannelAccessSet::Volatile);
        report.non_volatile_access = channel_access(t, info->channel, ChannelAccessSet::NonVolatile);
    }
    return report;
}

}  // namespace rmcpp::commands
