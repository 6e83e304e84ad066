// Running the tool's administrator commands (chassis bootdev/bootparam,
// user list, channel info, lan print) in-process over a real session, and
// reading ipmitool's and FreeIPMI's output for the same BMC.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "runner_testkit.h"
#include "session.h"

namespace admintest {

// Parses args on an app holding every administrator command and runs the
// command over a new session with `options`; the printed result, or a
// failed assertion.
inline cli::Printed run_tool(const cli::Options &options, const std::vector<std::string> &args)
{
    cli::Session session(options);
    const int opened = session.open();
    EXPECT_EQ(opened, 0) << "session to " << options.host << " failed";
    if (opened != 0) return {};
    // ipmi_sim's sessions start at User level: the session raises itself
    // when a command is refused for insufficient privilege.
    cli::testkit::CapturingRunner runner(session);
    CLI::App app;
    cli::add_boot_commands(*app.add_subcommand("chassis"), runner);
    cli::add_channel_info_command(*app.add_subcommand("channel"), runner);
    cli::add_user_commands(app, runner);
    cli::add_lan_commands(app, runner);
    cli::testkit::parse(app, args);
    session.close();
    EXPECT_FALSE(runner.error) << (runner.error ? runner.error->what() : "");
    EXPECT_FALSE(runner.usage) << runner.usage.value_or("");
    if (!runner.printed) return {};
    return *runner.printed;
}

// FreeIPMI's "\tKey     value" lines of an ipmi-config checkout, by section.
inline std::map<std::string, std::string> checkout_values(const std::string &output, const std::string &section)
{
    std::map<std::string, std::string> values;
    std::istringstream lines(output);
    std::string line;
    bool inside = false;
    while (std::getline(lines, line)) {
        if (line.rfind("Section ", 0) == 0) inside = line.substr(8) == section;
        else if (line == "EndSection") inside = false;
        else if (inside && !line.empty() && line[0] == '\t' && line.find('#') == std::string::npos) {
            std::istringstream words(line);
            std::string key, value;
            words >> key;
            std::getline(words, value);
            value.erase(0, value.find_first_not_of(" \t"));
            value.erase(value.find_last_not_of(" \t\r") + 1);
            values[key] = value;
        }
    }
    return values;
}

// The rows of ipmitool's `user list`, split on runs of spaces; the name is
// empty for unnamed users (ipmitool pads the name column to 17 characters).
struct UserRow {
    int id = 0;
    std::string name, callin, link_auth, ipmi_msg, limit;
};

inline std::vector<UserRow> user_rows(const std::string &output)
{
    std::vector<UserRow> rows;
    std::istringstream lines(output);
    std::string line;
    while (std::getline(lines, line)) {
        if (line.size() < 22 || line.rfind("ID ", 0) == 0) continue;
        UserRow r;
        r.id = std::stoi(line.substr(0, 4));
        r.name = line.substr(4, 17);
        r.name.erase(r.name.find_last_not_of(' ') + 1);
        std::istringstream rest(line.substr(21));
        rest >> r.callin >> r.link_auth >> r.ipmi_msg;
        std::getline(rest, r.limit);
        r.limit.erase(0, r.limit.find_first_not_of(' '));
        r.limit.erase(r.limit.find_last_not_of(" \r") + 1);
        rows.push_back(r);
    }
    return rows;
}

inline std::string yes_no(bool b) { return b ? "Yes" : "No"; }

}  // namespace admintest
