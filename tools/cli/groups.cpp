#include "tool.h"

namespace cli {

void register_command_groups(CLI::App &app, CLI::App *chassis, CLI::App *channel, Runner &runner,
                             const CommandSet &wanted)
{
    if (wanted.has("sdr")) add_sdr_commands(app, runner);
    if (wanted.has("sel")) add_sel_commands(app, runner);
    if (wanted.has("fru")) add_fru_commands(app, runner);
    if (chassis != nullptr) add_boot_commands(*chassis, runner);
    if (wanted.has("user")) add_user_commands(app, runner);
    if (channel != nullptr) add_channel_info_command(*channel, runner);
    if (wanted.has("lan")) add_lan_commands(app, runner);
}

}  // namespace cli
