// Running one command on many hosts: the bound on hosts at once, each
// host's output in one piece with its prefix, the JSON lines, the grouped
// output and the summary; here with a stand-in for the session's work.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <map>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <nlohmann/json.hpp>

#include "fleet.h"
#include "hostrange.h"

namespace {

using cli::HostRun;

struct Printed {
    int status = 0;
    std::string out, err;
};

std::string contents(std::FILE *f)
{
    std::string text;
    std::rewind(f);
    char buffer[4096];
    size_t n = 0;
    while ((n = std::fread(buffer, 1, sizeof buffer, f)) > 0) text.append(buffer, n);
    std::fclose(f);
    return text;
}

Printed fleet(const std::vector<std::string> &hosts, const std::function<HostRun(const std::string &)> &run,
              cli::FleetSettings settings)
{
    std::FILE *out = std::tmpfile(), *err = std::tmpfile();
    Printed p;
    p.status = cli::run_fleet(hosts, run, settings, out, err);
    p.out = contents(out);
    p.err = contents(err);
    return p;
}

std::vector<std::string> lines_of(const std::string &text)
{
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

// A host's made-up output: several lines naming it.
HostRun answer(const std::string &host)
{
    HostRun r;
    r.host = host;
    for (int i = 0; i < 5; ++i) r.out += "line " + std::to_string(i) + " of " + host + "\n";
    r.result = nlohmann::json{{"name", host}};
    return r;
}

TEST(Fleet, NoMoreHostsRunAtOnceThanTheFanout)
{
    constexpr int kFanout = 4;
    std::mutex lock;
    std::condition_variable full;
    int inside = 0, most = 0;
    const auto run = [&](const std::string &host) {
        std::unique_lock<std::mutex> hold(lock);
        most = std::max(most, ++inside);
        full.notify_all();
        // Wait for the others of the first wave: serial runs would time out.
        full.wait_for(hold, std::chrono::seconds(5), [&] { return most >= kFanout; });
        --inside;
        return answer(host);
    };
    const auto hosts = rmcpp::commands::expand_hosts("h[1-16]");
    cli::FleetSettings settings;
    settings.fanout = kFanout;
    const Printed p = fleet(hosts, run, settings);
    EXPECT_EQ(most, kFanout);
    EXPECT_EQ(p.status, 0);
    EXPECT_EQ(lines_of(p.out).size(), 16u * 5);
}

TEST(Fleet, EachHostsLinesArePrefixedAndComeInOnePiece)
{
    const auto hosts = rmcpp::commands::expand_hosts("bmc[01-40]");
    const auto run = [](const std::string &host) {
        std::this_thread::sleep_for(std::chrono::microseconds(host.back() * 37 % 500));
        return answer(host);
    };
    cli::FleetSettings settings;
    settings.fanout = 8;
    const Printed p = fleet(hosts, run, settings);
    const auto lines = lines_of(p.out);
    ASSERT_EQ(lines.size(), hosts.size() * 5);
    std::map<std::string, int> blocks;
    for (size_t i = 0; i < lines.size(); i += 5) {
        const std::string host = lines[i].substr(0, lines[i].find(':'));
        ++blocks[host];
        for (int k = 0; k < 5; ++k)
            EXPECT_EQ(lines[i + k], host + ": line " + std::to_string(k) + " of " + host) << "line " << i + k;
    }
    EXPECT_EQ(blocks.size(), hosts.size()) << "every host once";
    EXPECT_EQ(lines_of(p.err).size(), 1u) << "the summary only: " << p.err;
}

TEST(Fleet, AFailedHostMakesTheExitStatusOneAndIsCountedInTheSummary)
{
    const auto run = [](const std::string &host) {
        HostRun r;
        r.host = host;
        if (host == "b") {
            r.status = 1;
            r.err = "rmcpp: mc info failed\n";
            r.error = nlohmann::json{{"code", 1}, {"name", "x"}, {"message", "mc info failed"}};
        } else {
            r.out = "fine\n";
        }
        return r;
    };
    const Printed p = fleet({"a", "b", "c"}, run, {});
    EXPECT_EQ(p.status, 1);
    const auto err = lines_of(p.err);
    ASSERT_EQ(err.size(), 2u) << p.err;
    EXPECT_EQ(err[0], "b: rmcpp: mc info failed");
    EXPECT_EQ(err[1].rfind("rmcpp: 3 hosts, 2 ok, 1 failed (", 0), 0u) << err[1];
    EXPECT_EQ(err[1].substr(err[1].size() - 3), " s)");
    auto out = lines_of(p.out);
    std::sort(out.begin(), out.end());
    EXPECT_EQ(out, std::vector<std::string>({"a: fine", "c: fine"}));
}

TEST(Fleet, UnderJsonEachHostIsOneObjectOnOneLine)
{
    const auto run = [](const std::string &host) {
        HostRun r = answer(host);
        if (host == "n2") {
            r.status = 1;
            r.result.reset();
            r.error = nlohmann::json{{"code", 3}, {"name", "RMCPP_ERR_RETRY_OVER"}, {"message", "no answer"}};
        }
        return r;
    };
    cli::FleetSettings settings;
    settings.json = true;
    const Printed p = fleet(rmcpp::commands::expand_hosts("n[1-3]"), run, settings);
    EXPECT_EQ(p.status, 1);
    std::map<std::string, nlohmann::json> by_host;
    for (const auto &line : lines_of(p.out)) {
        const auto j = nlohmann::json::parse(line);
        by_host[j.at("host").get<std::string>()] = j;
    }
    ASSERT_EQ(by_host.size(), 3u) << p.out;
    EXPECT_EQ(by_host["n1"]["result"]["name"], "n1");
    EXPECT_FALSE(by_host["n1"].contains("error"));
    EXPECT_EQ(by_host["n2"]["error"]["name"], "RMCPP_ERR_RETRY_OVER");
    EXPECT_FALSE(by_host["n2"].contains("result"));
}

TEST(Fleet, JsonLinesPutTheHostFirst)
{
    HostRun ok;
    ok.host = "bmc\"1";
    ok.result = nlohmann::json{{"a", 1}};
    EXPECT_EQ(cli::json_line(ok), R"({"host":"bmc\"1","result":{"a":1}})");
    HostRun failed;
    failed.host = "x";
    failed.error = nlohmann::json{{"code", 2}};
    EXPECT_EQ(cli::json_line(failed), R"({"host":"x","error":{"code":2}})");
}

TEST(Fleet, ConsolidateGroupsHostsWithTheSameOutputAtTheEnd)
{
    const auto run = [](const std::string &host) {
        HostRun r;
        r.host = host;
        r.out = host == "bmc05" || host == "bmc06" ? "Chassis Power is off\n" : "Chassis Power is on\n";
        return r;
    };
    cli::FleetSettings settings;
    settings.consolidate = true;
    settings.fanout = 3;
    const Printed p = fleet(rmcpp::commands::expand_hosts("bmc[01-07]"), run, settings);
    EXPECT_EQ(p.out, "----------------\n"
                     "bmc[01-04,07]\n"
                     "----------------\n"
                     "Chassis Power is on\n"
                     "----------------\n"
                     "bmc[05-06]\n"
                     "----------------\n"
                     "Chassis Power is off\n");
    EXPECT_EQ(lines_of(p.err).size(), 1u) << "the summary only";
}

TEST(Fleet, ConsolidatedOutputCountsErrorsAsOutput)
{
    std::vector<HostRun> runs(3);
    runs[0] = {"a1", 0, "ok\n", "", std::nullopt, std::nullopt};
    runs[1] = {"a2", 1, "", "rmcpp: failed\n", std::nullopt, std::nullopt};
    runs[2] = {"a3", 1, "", "rmcpp: failed\n", std::nullopt, std::nullopt};
    EXPECT_EQ(cli::consolidated(runs), "----------------\na1\n----------------\nok\n"
                                       "----------------\na[2-3]\n----------------\nrmcpp: failed\n");
}

TEST(Fleet, PrefixedPutsTheHostBeforeEveryLine)
{
    EXPECT_EQ(cli::prefixed("h", "a\nb\n"), "h: a\nh: b\n");
    EXPECT_EQ(cli::prefixed("h", "a\n\nb"), "h: a\nh: \nh: b\n");
    EXPECT_EQ(cli::prefixed("h", ""), "");
}

TEST(Fleet, TheSummaryLine)
{
    EXPECT_EQ(cli::summary_line(1000, 2, 1.234), "rmcpp: 1000 hosts, 998 ok, 2 failed (1.23 s)");
    EXPECT_EQ(cli::summary_line(3, 0, 0), "rmcpp: 3 hosts, 3 ok, 0 failed (0.00 s)");
    EXPECT_EQ(cli::summary_line(1, 1, 0.5), "rmcpp: 1 host, 0 ok, 1 failed (0.50 s)");
}

// Without a terminal on standard error there is no bar: nothing but the
// summary is written there (the tests' standard error is a file).
TEST(Fleet, TheProgressBarIsDrawnOnlyWhenAsked)
{
    cli::FleetSettings settings;
    settings.progress = true;
    const auto slow = [](const std::string &host) {
        std::this_thread::sleep_for(std::chrono::milliseconds(150));
        return answer(host);
    };
    const Printed drawn = fleet({"a", "b"}, slow, settings);
    EXPECT_NE(drawn.err.find("\r["), std::string::npos) << drawn.err;
    EXPECT_NE(drawn.err.find("\r\033[K"), std::string::npos) << "erased before the summary";
    const auto last = drawn.err.rfind("\r\033[K");
    EXPECT_EQ(drawn.err.substr(last + 4, 15), "rmcpp: 2 hosts,");
    settings.progress = false;
    const Printed plain = fleet({"a", "b"}, slow, settings);
    EXPECT_EQ(plain.err.find('\r'), std::string::npos) << plain.err;
}

}  // namespace
