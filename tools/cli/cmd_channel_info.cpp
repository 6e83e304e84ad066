// channel info [CHANNEL]
#include <memory>

#include "channel_info.h"
#include "options.h"
#include "runner.h"
#include "user_access.h"

namespace cli {

namespace {

using namespace rmcpp::commands;

const char *enabled(bool on) { return on ? "enabled" : "disabled"; }

std::string access_text(const char *title, const ChannelAccess &a)
{
    std::string t = std::string("  ") + title + "\n";
    t += std::string("    Alerting            : ") + enabled(a.alerting) + "\n";
    t += std::string("    Per-message Auth    : ") + enabled(a.per_message_auth) + "\n";
    t += std::string("    User Level Auth     : ") + enabled(a.user_level_auth) + "\n";
    t += std::string("    Access Mode         : ") + access_mode_text(a.access_mode) + "\n";
    return t;
}

nlohmann::json access_json(const std::optional<ChannelAccess> &a)
{
    if (!a) return nullptr;
    return {{"alerting", a->alerting},
            {"per_message_auth", a->per_message_auth},
            {"user_level_auth", a->user_level_auth},
            {"access_mode", access_mode_text(a->access_mode)},
            {"privilege_limit", privilege_limit_text(a->privilege_limit)}};
}

Printed print_channel(const ChannelReport &r)
{
    const ChannelInfo &i = r.info;
    char head[32];
    std::snprintf(head, sizeof head, "Channel 0x%x info:\n", i.channel);
    std::string t = head;
    t += std::string("  Channel Medium Type   : ") + channel_medium_text(i.medium) + "\n";
    t += std::string("  Channel Protocol Type : ") + channel_protocol_text(i.protocol) + "\n";
    t += std::string("  Session Support       : ") + session_support_text(i.session_support) + "\n";
    t += "  Active Session Count  : " + std::to_string(i.active_sessions) + "\n";
    t += "  Protocol Vendor ID    : " + std::to_string(i.vendor_id) + "\n";
    if (r.volatile_access) t += access_text("Volatile(active) Settings", *r.volatile_access);
    if (r.non_volatile_access) t += access_text("Non-Volatile Settings", *r.non_volatile_access);
    return {t,
            {{"channel", i.channel},
             {"medium_type", channel_medium_text(i.medium)},
             {"medium_type_number", i.medium},
             {"protocol_type", channel_protocol_text(i.protocol)},
             {"protocol_type_number", i.protocol},
             {"session_support", session_support_text(i.session_support)},
             {"active_session_count", i.active_sessions},
             {"protocol_vendor_id", i.vendor_id},
             {"volatile", access_json(r.volatile_access)},
             {"non_volatile", access_json(r.non_volatile_access)}}};
}

}  // namespace

void add_channel_info_command(CLI::App &channel, Runner &runner)
{
    add_channel_subcommand(channel, "info", "channel info and access (default: this channel)",
                           "channel number, 0 to 15 (14: the current channel)", kCurrentChannel, runner,
                           "channel info",
                           [](Transport &t, uint8_t number) { return print_channel(channel_info(t, number)); });
}

}  // namespace cli
