// The rmcpp tool's command line: its options, its commands and their help.
#pragma once

#include <memory>
#include <string_view>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "fleet.h"
#include "options.h"
#include "tool_runner.h"

namespace cli {

// Which top-level commands a Tool builds: all, or only those named.
class CommandSet {
public:
    CommandSet() = default;  // all
    // The commands a command line can reach: those it names (a word equal
    // to a command's name or alias), or all of them when it names none or
    // may ask for help. A word that only happens to equal a command's name
    // (an option's value) adds that command, which changes nothing.
    static CommandSet reached_by(const std::vector<std::string> &args);
    bool has(std::string_view command) const;

private:
    bool all_ = true;
    std::vector<std::string> named_;
};

// Adds the command groups of runner.h: sdr, sensor, sel, fru, user and lan
// to app, bootdev and bootparam to chassis, info to channel (each only if
// `wanted` has it; chassis and channel may then be null).
void register_command_groups(CLI::App &app, CLI::App *chassis, CLI::App *channel, Runner &runner,
                             const CommandSet &wanted = {});

// The Runner the commands' callbacks see while the command line is parsed:
// a usage error is reported at once, the session's work is kept as the
// Command to run, for one host or for each of many.
class CommandRecorder : public Runner {
public:
    CommandRecorder(ToolRunner &now, Command &command) : now_(now), command_(command) {}
    void in_session(const std::string &what, const SessionBody &body) override
    {
        command_ = [what, body](const Options &, ToolRunner &runner) { runner.in_session(what, body); };
    }
    void usage_error(const std::string &text) override { now_.usage_error(text); }
    int exit_status() const override { return now_.exit_status(); }

private:
    ToolRunner &now_;
    Command &command_;
};

class Tool {
public:
    explicit Tool(std::FILE *out = stdout, std::FILE *err = stderr, const CommandSet &commands = {});

    // Parses the command line and runs the command; returns the exit status
    // (0 done, 1 the BMC or the network failed, 2 usage error).
    int run(int argc, char **argv);
    int run(std::vector<std::string> args);  // without the program name

    CLI::App &app() { return *app_; }

    // What `rmcpp ARGS --help` shows (ARGS: the command path).
    std::string help(const std::vector<std::string> &command);

    // Every command path: {"ping"}, {"chassis"}, {"chassis", "power"}, ...
    std::vector<std::vector<std::string>> commands() const;

    // The text of `rmcpp --help`.
    std::string overview() const;

private:
    void add_commands(const CommandSet &wanted);
    void add_raw();
    void add_mc();
    void add_chassis();
    void add_channel();
    void after_parse();
    std::string synopsis(const CLI::App &command, const std::string &path) const;

    int run_command();

    std::FILE *out_;
    std::FILE *err_;
    Options o_;
    OptionText text_;
    ToolRunner runner_;
    Command command_;  // what the command line asks, once parsed
    CommandRecorder recorder_;
    std::unique_ptr<CLI::App> app_;
    CLI::App *chassis_ = nullptr;
    CLI::App *channel_ = nullptr;
    bool version_ = false;
    // Arguments of the built-in commands.
    std::string netfn_, cmd_;
    std::vector<std::string> raw_data_, channel_args_;
};

}  // namespace cli
