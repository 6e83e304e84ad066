// Every command's help, and the tool's own, fits one screen: at most 24
// lines of at most 80 columns. Usage errors under --json are JSON objects.
#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "tool.h"

namespace {

std::string joined(const std::vector<std::string> &words)
{
    std::string out = "rmcpp";
    for (const auto &w : words) out += " " + w;
    return out;
}

void expect_one_screen(const std::string &help, const std::string &command)
{
    ASSERT_FALSE(help.empty()) << command;
    std::istringstream in(help);
    std::string line;
    int lines = 0;
    while (std::getline(in, line)) {
        ++lines;
        EXPECT_LE(line.size(), 80u) << command << ": " << line;
    }
    EXPECT_LE(lines, 24) << command << ":\n" << help;
}

TEST(ToolHelp, EveryCommandsHelpFitsOneScreen)
{
    cli::Tool tool;
    const auto commands = tool.commands();
    ASSERT_GE(commands.size(), 14u) << "ping session raw mc(2) chassis(2, power 6) channel(1)";
    expect_one_screen(cli::Tool().help({}), "rmcpp");
    for (const auto &command : commands) {
        cli::Tool fresh;
        const std::string help = fresh.help(command);
        expect_one_screen(help, joined(command));
        EXPECT_NE(help.find("Usage: " + joined(command)), std::string::npos) << help;
    }
}

// The overview names every command and its subcommands.
TEST(ToolHelp, OverviewListsEveryCommand)
{
    cli::Tool tool;
    const std::string overview = tool.help({});
    for (const auto &command : tool.commands()) {
        if (command.size() > 2) continue;
        std::string words = command[0];
        if (command.size() == 2) words += " " + command[1];
        EXPECT_NE(overview.find(words), std::string::npos) << words << "\n" << overview;
    }
    EXPECT_NE(overview.find("Exit status: 0 done, 1 the BMC or the network failed, 2 usage error."),
              std::string::npos);
}

struct Captured {
    int status = 0;
    std::string out, err;
};

Captured run(std::vector<std::string> args)
{
    std::FILE *out = std::tmpfile();
    std::FILE *err = std::tmpfile();
    Captured c;
    {
        cli::Tool tool(out, err);
        c.status = tool.run(std::move(args));
    }
    for (auto [file, text] : {std::pair{out, &c.out}, std::pair{err, &c.err}}) {
        std::rewind(file);
        char buffer[4096];
        size_t n = 0;
        while ((n = std::fread(buffer, 1, sizeof buffer, file)) > 0) text->append(buffer, n);
        std::fclose(file);
    }
    return c;
}

TEST(ToolUsage, UnderJsonAUsageErrorIsAJsonObjectToo)
{
    const auto c = run({"--json", "-H", "127.0.15.9", "-C", "4", "session"});
    EXPECT_EQ(c.status, 2);
    EXPECT_EQ(c.err, "rmcpp: cipher suite must be 0, 1, 2, 3, 15, 16 or 17: 4; see rmcpp --help\n");
    const auto json = nlohmann::json::parse(c.out);
    EXPECT_EQ(json, nlohmann::json({{"code", 2},
                                    {"name", "usage"},
                                    {"message", "cipher suite must be 0, 1, 2, 3, 15, 16 or 17: 4"}}));
    for (const auto &args : std::vector<std::vector<std::string>>{
             {"--json"}, {"--json", "-H"}, {"--json", "frobnicate"}, {"-H", "::1", "chassis", "--json"}}) {
        const auto r = run(args);
        EXPECT_EQ(r.status, 2) << joined(args);
        const auto j = nlohmann::json::parse(r.out);
        EXPECT_EQ(j["name"], "usage") << r.out;
        EXPECT_EQ(j["code"], 2) << r.out;
        EXPECT_EQ("rmcpp: " + j["message"].get<std::string>() + "; see rmcpp --help\n", r.err);
    }
}

TEST(ToolUsage, WithoutJsonNothingOnStandardOutput)
{
    const auto c = run({"-H", "127.0.15.9", "chassis", "power"});
    EXPECT_EQ(c.status, 2);
    EXPECT_EQ(c.out, "");
    EXPECT_EQ(c.err, "rmcpp: chassis power takes status, on, off, cycle, reset or soft; see rmcpp --help\n");
}

TEST(ToolUsage, PrivilegeNamesInAnyCaseAndNumbers)
{
    EXPECT_EQ(cli::parse_privilege("administrator"), 4);
    EXPECT_EQ(cli::parse_privilege("Operator"), 3);
    EXPECT_EQ(cli::parse_privilege("CALLBACK"), 1);
    EXPECT_EQ(cli::parse_privilege("user"), 2);
    EXPECT_EQ(cli::parse_privilege("oem"), 5);
    EXPECT_EQ(cli::parse_privilege("0"), 0);
    EXPECT_EQ(cli::parse_privilege("5"), 5);
    EXPECT_EQ(cli::parse_privilege("6"), std::nullopt);
    EXPECT_EQ(cli::parse_privilege("admin"), std::nullopt);
    EXPECT_EQ(cli::Options().privilege, 4) << "ADMINISTRATOR unless -L says otherwise";
}

}  // namespace
