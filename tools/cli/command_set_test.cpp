// A tool built for one command line has every command that line can reach,
// whole, and the tool built for help has them all.
#include <gtest/gtest.h>

#include <set>

#include "tool.h"

namespace {

using Paths = std::vector<std::vector<std::string>>;

Paths commands_of(const cli::CommandSet &set)
{
    cli::Tool tool(stdout, stderr, set);
    return tool.commands();
}

Paths under(const Paths &all, const std::string &top)
{
    Paths out;
    for (const auto &p : all)
        if (!p.empty() && p[0] == top) out.push_back(p);
    return out;
}

std::set<std::string> tops(const Paths &all)
{
    std::set<std::string> out;
    for (const auto &p : all) out.insert(p[0]);
    return out;
}

TEST(CommandSet, EveryTopLevelCommandIsBuiltWholeWhenNamed)
{
    const Paths all = commands_of({});
    ASSERT_GE(tops(all).size(), 11u);
    for (const auto &top : tops(all)) {
        const Paths built = commands_of(cli::CommandSet::reached_by({"-H", "bmc", top, "x"}));
        EXPECT_EQ(under(built, top), under(all, top)) << top;
        EXPECT_EQ(tops(built), std::set<std::string>{top}) << top;
    }
}

TEST(CommandSet, TheSensorAliasBuildsTheSdrGroup)
{
    const Paths all = commands_of({});
    EXPECT_EQ(commands_of(cli::CommandSet::reached_by({"sensor", "list"})), under(all, "sdr"));
}

TEST(CommandSet, HelpOrNoCommandBuildsEverything)
{
    const Paths all = commands_of({});
    for (const std::vector<std::string> &line : std::vector<std::vector<std::string>>{
             {"sel", "--help"}, {"sel", "-h"}, {"-vh", "sel"}, {"--help-all"}, {}, {"-H", "bmc"}, {"bogus"}})
        EXPECT_EQ(commands_of(cli::CommandSet::reached_by(line)), all) << ::testing::PrintToString(line);
}

TEST(CommandSet, AnOptionValueNamingACommandOnlyAddsIt)
{
    const Paths built = commands_of(cli::CommandSet::reached_by({"-U", "user", "mc", "info"}));
    EXPECT_EQ(tops(built), (std::set<std::string>{"mc", "user"}));
}

TEST(CommandSet, ARunBuiltForItsLineGivesTheFullToolsUsageErrors)
{
    // "chassis" alone takes a subcommand: the message names the same choices.
    for (const std::vector<std::string> &line :
         std::vector<std::vector<std::string>>{{"chassis"}, {"sel", "bogus"}, {"raw"}, {"mc", "info", "--bogus"}}) {
        std::FILE *full_err = std::tmpfile();
        std::FILE *lean_err = std::tmpfile();
        cli::Tool full(stdout, full_err);
        cli::Tool lean(stdout, lean_err, cli::CommandSet::reached_by(line));
        const std::vector<std::string> args = [&] {
            auto a = line;
            a.insert(a.begin(), {"-H", "127.0.0.1", "-U", "u", "-P", "p"});
            return a;
        }();
        EXPECT_EQ(full.run(args), 2);
        EXPECT_EQ(lean.run(args), 2);
        auto text = [](std::FILE *f) {
            std::rewind(f);
            std::string s;
            for (int c; (c = std::fgetc(f)) != EOF;) s += static_cast<char>(c);
            std::fclose(f);
            return s;
        };
        EXPECT_EQ(text(lean_err), text(full_err)) << ::testing::PrintToString(line);
    }
}

}  // namespace
