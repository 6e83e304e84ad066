#include "tool.h"

namespace cli {

void register_command_groups(CLI::App &app, CLI::App &chassis, CLI::App &channel, Runner &runner)
{
    add_sdr_commands(app, runner);
    add_sel_commands(app, runner);
    add_fru_commands(app, runner);
    add_boot_commands(chassis, runner);
    add_user_commands(app, runner);
    add_channel_info_command(channel, runner);
    add_lan_commands(app, runner);
}

}  // namespace cli
