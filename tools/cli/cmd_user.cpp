// user list [CHANNEL]
#include <cstdio>
#include <memory>

#include "options.h"
#include "runner.h"
#include "user_access.h"

namespace cli {

namespace {

using namespace rmcpp::commands;

const char *enable_status_text(UserEnableStatus s)
{
    switch (s) {
    case UserEnableStatus::Enabled: return "enabled";
    case UserEnableStatus::Disabled: return "disabled";
    case UserEnableStatus::Unspecified: return "unspecified";
    case UserEnableStatus::Reserved: break;
    }
    return "reserved";
}

Printed print_users(const UserList &list)
{
    std::string t = "ID  Name\t     Callin  Link Auth\tIPMI Msg   Channel Priv Limit\n";
    nlohmann::json users = nlohmann::json::array();
    for (const auto &u : list.users) {
        const auto &a = u.access;
        const std::string limit = privilege_limit_text(a.privilege_limit);
        char row[128];
        std::snprintf(row, sizeof row, "%-4u%-17s%-8s%-11s%-11s%s\n", u.id, u.name.c_str(),
                      a.callback_only ? "false" : "true", a.link_auth ? "true" : "false",
                      a.ipmi_messaging ? "true" : "false", limit.c_str());
        t += row;
        users.push_back({{"id", u.id},
                         {"name", u.name},
                         {"enable_status", enable_status_text(a.enable_status)},
                         {"callin", !a.callback_only},
                         {"link_auth", a.link_auth},
                         {"ipmi_messaging", a.ipmi_messaging},
                         {"privilege_limit", limit},
                         {"privilege_limit_level", a.privilege_limit}});
    }
    return {t,
            {{"channel", list.channel},
             {"max_user_ids", list.max_user_ids},
             {"enabled_user_ids", list.enabled_user_ids},
             {"fixed_name_user_ids", list.fixed_name_user_ids},
             {"users", users}}};
}

}  // namespace

void add_user_commands(CLI::App &app, Runner &runner)
{
    CLI::App *user = app.add_subcommand("user", "users of a channel");
    user->require_subcommand(1);
    add_channel_subcommand(*user, "list", "list the users of CHANNEL (default 1)", "channel number, 0 to 15", 1,
                           runner, "user list",
                           [](Transport &t, uint8_t channel) { return print_users(list_users(t, channel)); });
}

}  // namespace cli
