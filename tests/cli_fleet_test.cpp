// The rmcpp tool on many BMCs at once: one simulator serves 127.0.18.1 to
// 127.0.18.20 as twenty BMCs; 127.0.18.99 has none and never answers.
// Prefixed text, one JSON line per host, the summary, the exit status,
// grouped output, host files, and the usage errors of host lists.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "bmcsim.h"
#include "run_program.h"

namespace {

constexpr int kBmcs = 20;
constexpr const char *kAll = "127.0.18.[1-20]";
constexpr const char *kNobody = "127.0.18.99";

std::string bmc(int i) { return "127.0.18." + std::to_string(i); }

std::vector<std::string> lines_of(const std::string &text)
{
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

class CliFleet : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        bmcsim::Config c;
        c.address = bmc(1);
        for (int i = 2; i <= kBmcs; ++i) c.extra_addresses.push_back(bmc(i));
        c.users = {{"admin", "password", 4, true}};
        c.max_sessions = 64;
        sim_ = new bmcsim::Simulator(c);
        sim_->start();
    }
    static void TearDownTestSuite()
    {
        sim_->stop();
        delete sim_;
        sim_ = nullptr;
    }

    static testkit::ProgramResult rmcpp(std::vector<std::string> args)
    {
        std::vector<std::string> a = {RMCPP_CLI, "-U", "admin", "-P", "password", "-C", "3", "-R", "1", "-N", "1"};
        a.insert(a.end(), args.begin(), args.end());
        return testkit::run_program(a, std::chrono::seconds(60));
    }

    // Sessions established since the test started, and all of them closed.
    void expect_sessions_closed(size_t established)
    {
        const auto stats = sim_->stats();
        EXPECT_EQ(stats.sessions_established - established_before_, established);
        EXPECT_EQ(stats.sessions_closed - closed_before_, established);
        EXPECT_TRUE(stats.sessions.empty()) << stats.sessions.size() << " sessions left open";
    }

    void SetUp() override
    {
        const auto stats = sim_->stats();
        established_before_ = stats.sessions_established;
        closed_before_ = stats.sessions_closed;
    }

    static bmcsim::Simulator *sim_;
    size_t established_before_ = 0, closed_before_ = 0;
};

bmcsim::Simulator *CliFleet::sim_ = nullptr;

// "rmcpp: 21 hosts, 20 ok, 1 failed (0.52 s)" as the last line of stderr.
void expect_summary(const std::string &err, int hosts, int ok, int failed)
{
    const auto lines = lines_of(err);
    ASSERT_FALSE(lines.empty());
    const std::regex summary("rmcpp: " + std::to_string(hosts) + (hosts == 1 ? " host, " : " hosts, ") + std::to_string(ok) + " ok, " +
                             std::to_string(failed) + R"( failed \([0-9]+\.[0-9]{2} s\))");
    EXPECT_TRUE(std::regex_match(lines.back(), summary)) << lines.back();
}

TEST_F(CliFleet, EveryHostAnswersMcInfoUnderItsOwnPrefix)
{
    const auto r = rmcpp({"-H", kAll, "--fanout", "4", "mc", "info"});
    EXPECT_EQ(r.exit_code, 0) << r.err;
    const auto lines = lines_of(r.out);
    ASSERT_FALSE(lines.empty());
    // Each host's lines come in one piece, as one host alone prints them.
    std::map<std::string, std::vector<std::string>> blocks;
    std::string current;
    std::set<std::string> finished;
    for (const auto &line : lines) {
        const auto colon = line.find(": ");
        ASSERT_NE(colon, std::string::npos) << line;
        const std::string host = line.substr(0, colon);
        if (host != current) {
            EXPECT_TRUE(finished.insert(host).second) << host << "'s lines are split: " << r.out;
            current = host;
        }
        blocks[host].push_back(line.substr(colon + 2));
    }
    ASSERT_EQ(blocks.size(), static_cast<size_t>(kBmcs));
    for (int i = 1; i <= kBmcs; ++i) {
        const auto &block = blocks[bmc(i)];
        ASSERT_EQ(block.size(), 10u) << bmc(i);
        EXPECT_EQ(block[0], "Device ID                 : 32");
        EXPECT_EQ(block[5], "IPMI Version              : 2.0");
    }
    EXPECT_EQ(lines_of(r.err).size(), 1u) << "nothing but the summary: " << r.err;
    expect_summary(r.err, kBmcs, kBmcs, 0);
    expect_sessions_closed(kBmcs);
}

TEST_F(CliFleet, UnderJsonEachHostIsOneLineWithItsResultOrError)
{
    const auto r = rmcpp({"--json", "-H", std::string(kAll) + "," + kNobody, "--fanout", "4", "mc", "info"});
    EXPECT_EQ(r.exit_code, 1) << "one host failed";
    const auto lines = lines_of(r.out);
    ASSERT_EQ(lines.size(), static_cast<size_t>(kBmcs + 1)) << r.out;
    std::map<std::string, nlohmann::json> by_host;
    for (const auto &line : lines) {
        const auto j = nlohmann::json::parse(line);
        ASSERT_TRUE(j.contains("host")) << line;
        EXPECT_EQ(j.size(), 2u) << line;
        by_host[j["host"].get<std::string>()] = j;
    }
    ASSERT_EQ(by_host.size(), static_cast<size_t>(kBmcs + 1));
    for (int i = 1; i <= kBmcs; ++i) {
        const auto &j = by_host[bmc(i)];
        ASSERT_TRUE(j.contains("result")) << j.dump();
        EXPECT_EQ(j["result"]["device_id"], 32);
        EXPECT_EQ(j["result"]["ipmi_version"], "2.0");
    }
    const auto &nobody = by_host[kNobody];
    ASSERT_TRUE(nobody.contains("error")) << nobody.dump();
    EXPECT_EQ(nobody["error"]["name"], "RMCPP_ERR_PING");
    EXPECT_EQ(nobody["error"]["code"], 34);
    EXPECT_NE(nobody["error"]["message"].get<std::string>().find("presence ping"), std::string::npos);
    const auto err = lines_of(r.err);
    ASSERT_EQ(err.size(), 2u) << r.err;
    EXPECT_EQ(err[0].rfind(std::string(kNobody) + ": rmcpp: establishment failed (34): ", 0), 0u) << err[0];
    expect_summary(r.err, kBmcs + 1, kBmcs, 1);
    expect_sessions_closed(kBmcs);
}

TEST_F(CliFleet, AHostThatDoesNotAnswerFailsAloneInText)
{
    const auto r = rmcpp({"-H", std::string(kNobody) + ",127.0.18.[1-3]", "chassis", "power", "status"});
    EXPECT_EQ(r.exit_code, 1);
    auto out = lines_of(r.out);
    std::sort(out.begin(), out.end());
    EXPECT_EQ(out, std::vector<std::string>({"127.0.18.1: Chassis Power is on", "127.0.18.2: Chassis Power is on",
                                             "127.0.18.3: Chassis Power is on"}));
    const auto err = lines_of(r.err);
    ASSERT_EQ(err.size(), 2u) << r.err;
    EXPECT_EQ(err[0], std::string(kNobody) +
                          ": rmcpp: establishment failed (34): the BMC did not answer the ASF presence ping; if the "
                          "BMC never answers presence pings, try --no-ping");
    expect_summary(r.err, 4, 3, 1);
}

TEST_F(CliFleet, ConsolidateGroupsHostsWithTheSameOutput)
{
    const auto r = rmcpp({"-H", "127.0.18.[1-6,9],127.0.18.99", "--fanout", "3", "--consolidate", "chassis", "power",
                          "status"});
    EXPECT_EQ(r.exit_code, 1);
    EXPECT_EQ(r.out, "----------------\n"
                     "127.0.18.[1-6,9]\n"
                     "----------------\n"
                     "Chassis Power is on\n"
                     "----------------\n"
                     "127.0.18.99\n"
                     "----------------\n"
                     "rmcpp: establishment failed (34): the BMC did not answer the ASF presence ping; if the BMC "
                     "never answers presence pings, try --no-ping\n");
    EXPECT_EQ(lines_of(r.err).size(), 1u) << r.err;
    expect_summary(r.err, 8, 7, 1);
}

class HostFile {
public:
    explicit HostFile(const std::string &text)
    {
        char name[] = "/tmp/rmcpp-hostfile-XXXXXX";
        const int fd = mkstemp(name);
        path_ = name;
        if (fd >= 0) {
            EXPECT_EQ(write(fd, text.data(), text.size()), static_cast<ssize_t>(text.size()));
            close(fd);
        }
    }
    ~HostFile() { unlink(path_.c_str()); }
    const std::string &path() const { return path_; }

private:
    std::string path_;
};

TEST_F(CliFleet, AHostFileNamesOneHostOrRangePerLine)
{
    const HostFile file("# the first rack\n"
                        "127.0.18.[1-3]\n"
                        "\n"
                        "  127.0.18.7  \n"
                        "# 127.0.18.8 is away\n"
                        "127.0.18.2\n");
    const auto r = rmcpp({"--hostfile", file.path(), "-H", "127.0.18.12", "--json", "mc", "info"});
    EXPECT_EQ(r.exit_code, 0) << r.err;
    std::set<std::string> hosts;
    for (const auto &line : lines_of(r.out)) hosts.insert(nlohmann::json::parse(line)["host"].get<std::string>());
    EXPECT_EQ(hosts, std::set<std::string>({"127.0.18.1", "127.0.18.2", "127.0.18.3", "127.0.18.7", "127.0.18.12"}));
    EXPECT_EQ(lines_of(r.out).size(), 5u) << "a host named twice runs once";
    expect_summary(r.err, 5, 5, 0);
    expect_sessions_closed(5);
}

TEST_F(CliFleet, OneHostWithoutRangesRunsAsBefore)
{
    const auto r = rmcpp({"-H", bmc(4), "chassis", "power", "status"});
    EXPECT_EQ(r.exit_code, 0);
    EXPECT_EQ(r.out, "Chassis Power is on\n");
    EXPECT_EQ(r.err, "") << "no prefix, no summary";
    const auto j = rmcpp({"-H", bmc(4), "--json", "chassis", "power", "status"});
    EXPECT_EQ(j.out, "{\n  \"chassis_power\": \"on\"\n}\n");
    EXPECT_EQ(j.err, "");
    // A range naming one host is still a run over hosts.
    const auto ranged = rmcpp({"-H", "127.0.18.[4]", "chassis", "power", "status"});
    EXPECT_EQ(ranged.out, "127.0.18.4: Chassis Power is on\n");
    expect_summary(ranged.err, 1, 1, 0);
}

TEST_F(CliFleet, BadHostListsAndFleetOptionsAreUsageErrors)
{
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"-H", "127.0.18.[5-1]"}, "bad hostrange 127.0.18.[5-1]: 5-1 counts down; write 1-5"},
        {{"-H", "127.0.18.[a-3]"}, "bad hostrange 127.0.18.[a-3]: 'a' is not a number"},
        {{"-H", "127.0.18.[1-3"}, "bad hostrange 127.0.18.[1-3: '[' is not closed"},
        {{"-H", "127.0.18.1,,127.0.18.2"}, "empty host in the list 127.0.18.1,,127.0.18.2"},
        {{"-H", "10.[0-255].[0-255].[1-254]"}, "the hosts expand to more than 1000000, the most one run takes"},
        {{"-H", "127.0.18.1,bad host"}, "not an IPv4 or IPv6 address or host name: bad host"},
        {{"--hostfile", "/nonexistent/hosts"}, "cannot read host file /nonexistent/hosts: No such file or directory"},
        {{"--hostfile", "/"}, "cannot read host file /: Is a directory"},
        {{"-H", kAll, "--fanout", "0"}, "fanout must be 1..1024: 0"},
        {{"-H", kAll, "--fanout", "1025"}, "fanout must be 1..1024: 1025"},
        {{"-H", kAll, "--port-range"},
         "--port-range takes one host: sessions with many hosts use ports the kernel chooses"},
        {{"-H", kAll, "--library-random"},
         "--library-random takes one host: sessions with many hosts use the kernel's random numbers"},
        {{"-H", kAll, "--consolidate", "--json"}, "--consolidate groups text output; it does not go with --json"},
    };
    for (const auto &[args, message] : cases) {
        std::vector<std::string> a = args;
        a.insert(a.end(), {"mc", "info"});
        const auto r = rmcpp(a);
        EXPECT_EQ(r.exit_code, 2) << message;
        EXPECT_EQ(r.err, "rmcpp: " + message + "; see rmcpp --help\n");
        if (std::find(args.begin(), args.end(), "--json") == args.end())
            EXPECT_EQ(r.out, "");
        else
            EXPECT_EQ(nlohmann::json::parse(r.out),
                      nlohmann::json({{"code", 2}, {"name", "usage"}, {"message", message}}));
    }
    const HostFile empty("# nobody here\n\n");
    const auto r = rmcpp({"--hostfile", empty.path(), "mc", "info"});
    EXPECT_EQ(r.exit_code, 2);
    EXPECT_EQ(r.err, "rmcpp: host file " + empty.path() + " names no host; see rmcpp --help\n");
    const HostFile bad("127.0.18.1\n127.0.18.[9-2]\n");
    const auto b = rmcpp({"--hostfile", bad.path(), "mc", "info"});
    EXPECT_EQ(b.exit_code, 2);
    EXPECT_EQ(b.err, "rmcpp: host file " + bad.path() +
                         ", line 2: bad hostrange 127.0.18.[9-2]: 9-2 counts down; write 2-9; see rmcpp --help\n");
    expect_sessions_closed(0);
}

// Every command runs over many hosts; those that take arguments check them
// once, before any host is asked.
TEST_F(CliFleet, CommandsWithArgumentsRunOnEveryHost)
{
    const auto raw = rmcpp({"-H", "127.0.18.[1-2]", "--json", "raw", "6", "1"});
    EXPECT_EQ(raw.exit_code, 0) << raw.err;
    for (const auto &line : lines_of(raw.out)) {
        const auto j = nlohmann::json::parse(line);
        EXPECT_EQ(j["result"]["data"].get<std::string>().substr(0, 2), "20") << line;
    }
    EXPECT_EQ(lines_of(raw.out).size(), 2u);
    const auto ciphers = rmcpp({"-H", "127.0.18.[1-2]", "channel", "ciphers"});
    EXPECT_EQ(ciphers.exit_code, 0) << ciphers.err;
    EXPECT_NE(ciphers.out.find("127.0.18.2: 3    hmac_sha1"), std::string::npos) << ciphers.out;
    const auto bad = rmcpp({"-H", "127.0.18.[1-2]", "channel", "ciphers", "16"});
    EXPECT_EQ(bad.exit_code, 2);
    EXPECT_EQ(bad.err, "rmcpp: channel must be 0..15: 16; see rmcpp --help\n");
    const auto ping = rmcpp({"-H", "127.0.18.[1-2]", "ping"});
    EXPECT_EQ(ping.exit_code, 0);
    EXPECT_NE(ping.out.find("127.0.18.1: 127.0.18.1 answered the presence ping"), std::string::npos) << ping.out;
}

}  // namespace
