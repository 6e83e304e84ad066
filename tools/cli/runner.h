// How the tool's command groups run. Each group's file adds its subcommands
// to the command line (add_<group>_commands) and runs its procedure through
// the Runner, which owns the session and the output.
#pragma once

#include <functional>
#include <string>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "transport.h"

namespace cli {

// What a command shows: text for people and one JSON document for
// programs, both made from the same decoded struct so they never disagree.
struct Printed {
    std::string text;  // printed as it is; ends with a newline
    nlohmann::json json;
};

using SessionBody = std::function<Printed(rmcpp::commands::Transport &)>;

class Runner {
public:
    virtual ~Runner() = default;

    // Opens a session with the tool's options, runs `body` on it and closes
    // the session whatever happened; prints body's result as text, or as
    // JSON under --json, or the error (a rmcpp::commands::CommandError
    // thrown by body, or the session's own failure). Sets exit_status().
    virtual void in_session(const std::string &what, const SessionBody &body) = 0;

    // A usage error found after parsing (a bad CHANNEL, say): one line and
    // exit status 2.
    virtual void usage_error(const std::string &text) = 0;

    virtual int exit_status() const = 0;
};

// Adds `name [CHANNEL]` to `parent`: CHANNEL is 0..15 (decimal or 0x..),
// `default_channel` when left out; the callback runs `body` with it in a
// session, or reports a bad CHANNEL as a usage error.
void add_channel_subcommand(CLI::App &parent, const std::string &name, const std::string &description,
                            const std::string &channel_help, uint8_t default_channel, Runner &runner,
                            const std::string &what,
                            std::function<Printed(rmcpp::commands::Transport &, uint8_t)> body);

// The command groups.
void add_sdr_commands(CLI::App &app, Runner &runner);      // sdr list, sensor list
void add_sel_commands(CLI::App &app, Runner &runner);      // sel info|list|clear
void add_fru_commands(CLI::App &app, Runner &runner);      // fru print
void add_boot_commands(CLI::App &chassis, Runner &runner); // chassis bootdev, chassis bootparam
void add_user_commands(CLI::App &app, Runner &runner);     // user list
void add_channel_info_command(CLI::App &channel, Runner &runner);  // channel info
void add_lan_commands(CLI::App &app, Runner &runner);      // lan print

}  // namespace cli
