#include "tool.h"

namespace cli {

void register_command_groups(CLI::App &app, CLI::App &chassis, CLI::App &channel, Runner &runner)
{
    // The everyday command groups (add_*_commands in runner.h) are added here.
    (void)app, (void)chassis, (void)channel, (void)runner;
}

}  // namespace cli
