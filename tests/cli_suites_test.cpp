// The rmcpp tool against the rmcpp-bmcsim program: cipher suites 15, 16 and
// 17 over IPv4 and IPv6 (::1), the suite chosen when -C is not given,
// --no-ping against a BMC that never answers the presence ping, and
// `channel ciphers` next to what ipmitool prints for the same BMC.
// Addresses 127.0.3.20..127.0.3.25 and ::1 (ctest lock ipv6_loopback).
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <iterator>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <nlohmann/json.hpp>

#include "bmcsim.h"
#include "bmcsim_clients.h"
#include "cipher_suites_testkit.h"
#include "run_program.h"

namespace {

using namespace std::chrono_literals;

constexpr const char *kBmc = "127.0.3.20";         // suites 0-3 and 15-17, also on ::1
constexpr const char *kOldBmc = "127.0.3.21";      // suites 0-3 only
constexpr const char *kNoPongBmc = "127.0.3.22";   // never answers the presence ping
constexpr const char *kRelay = "127.0.3.23";       // drops Get Channel Cipher Suites on the way
constexpr const char *kBehindRelay = "127.0.3.24"; // the BMC behind it
constexpr const char *kOnly17Bmc = "127.0.3.25";   // suite 17 only

bool contains(const std::string &text, const std::string &part) { return text.find(part) != std::string::npos; }

testkit::ProgramResult rmcpp(const std::string &host, std::vector<std::string> rest)
{
    std::vector<std::string> a = {RMCPP_CLI, "-H", host, "-U", "admin", "-P", "password", "-R", "2", "-N", "1"};
    a.insert(a.end(), rest.begin(), rest.end());
    return testkit::run_program(a, 30s);
}

std::string established(int suite)
{
    return "established for user 'admin': cipher suite " + std::to_string(suite) + ",";
}

std::string log(const bmcsim::ChildProcess &sim)
{
    std::string all;
    for (const auto &l : sim.output()) all += l + "\n";
    return all;
}

// Starts one rmcpp-bmcsim per test suite; a simulator that does not start
// fails each test of the suite with the reason.
template <const char *const *Arguments, size_t N>
class WithSimulator : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        try {
            sim_ = std::make_unique<bmcsim::ChildProcess>(std::vector<std::string>(Arguments, Arguments + N));
        } catch (const std::exception &e) {
            problem_ = e.what();
        }
    }
    static void TearDownTestSuite() { sim_.reset(); }
    void SetUp() override
    {
        if (!sim_) GTEST_FAIL() << "the simulator did not start: " << problem_;
    }
    static std::unique_ptr<bmcsim::ChildProcess> sim_;
    static std::string problem_;
};
template <const char *const *Arguments, size_t N>
std::unique_ptr<bmcsim::ChildProcess> WithSimulator<Arguments, N>::sim_;
template <const char *const *Arguments, size_t N>
std::string WithSimulator<Arguments, N>::problem_;

constexpr const char *kBmcArguments[] = {"--address", "127.0.3.20,::1", "--user", "admin:password:4", "--suites",
                                         "0,1,2,3,15,16,17"};
constexpr const char *kOldBmcArguments[] = {"--address", kOldBmc, "--user", "admin:password:4", "--suites",
                                            "0,1,2,3"};
using CliSuites = WithSimulator<kBmcArguments, std::size(kBmcArguments)>;
using CliOldBmc = WithSimulator<kOldBmcArguments, std::size(kOldBmcArguments)>;

TEST_F(CliSuites, McInfoWithSuites15To17OverIpv4AndIpv6)
{
    for (const char *host : {kBmc, "::1", "[::1]"}) {
        for (int suite : {3, 15, 16, 17}) {
            const size_t before = simtest::count_lines(*sim_, established(suite));
            const auto r = rmcpp(host, {"-C", std::to_string(suite), "mc", "info"});
            EXPECT_EQ(r.exit_code, 0) << host << " suite " << suite << ": " << r.err;
            EXPECT_TRUE(contains(r.out, "Device ID                 : 32\n")) << r.out;
            EXPECT_TRUE(contains(r.out, "Manufacturer ID           : 23130\n")) << r.out;
            EXPECT_TRUE(simtest::wait_for_lines(*sim_, established(suite), before + 1))
                << host << " suite " << suite << "\n"
                << log(*sim_);
        }
    }
}

TEST_F(CliSuites, SessionShowsTheSuite17Algorithms)
{
    const auto r = rmcpp("::1", {"-C", "17", "session"});
    EXPECT_EQ(r.exit_code, 0) << r.err;
    EXPECT_TRUE(contains(r.out, "Cipher Suite       : 17\n")) << r.out;
    EXPECT_TRUE(contains(r.out, "Authentication     : RAKP-HMAC-SHA256\n")) << r.out;
    EXPECT_TRUE(contains(r.out, "Integrity          : HMAC-SHA256-128\n")) << r.out;
    EXPECT_TRUE(contains(r.out, "Confidentiality    : AES-CBC-128\n")) << r.out;
    EXPECT_TRUE(contains(r.out, "Key Mode           : standard\n")) << r.out;
    EXPECT_TRUE(contains(r.out, "Closed             : true\n")) << r.out;
}

TEST_F(CliSuites, WithoutSuite17IsTakenWhenOffered)
{
    for (const char *host : {kBmc, "::1"}) {
        const auto r = rmcpp(host, {"session"});
        EXPECT_EQ(r.exit_code, 0) << host << ": " << r.err;
        EXPECT_TRUE(contains(r.out, "Cipher Suite       : 17\n")) << host << ": " << r.out;
    }
}

TEST_F(CliOldBmc, WithoutSuite3IsTakenFromABmcWithout17)
{
    const std::string query = "outside a session: netFn 06 command 54";
    const size_t asked = simtest::count_lines(*sim_, query);
    const auto r = rmcpp(kOldBmc, {"session"});
    EXPECT_EQ(r.exit_code, 0) << r.err;
    EXPECT_TRUE(contains(r.out, "Cipher Suite       : 3\n")) << r.out;
    EXPECT_GT(simtest::count_lines(*sim_, query), asked) << "the tool asked the BMC which suites it offers\n"
                                                           << log(*sim_);
}

TEST(CliSuite17Only, WithoutSuiteASuite17OnlyBmcGets17)
{
    bmcsim::ChildProcess only17(
        std::vector<std::string>{"--address", kOnly17Bmc, "--user", "admin:password:4", "--suites", "17"});
    const auto r = rmcpp(kOnly17Bmc, {"mc", "info"});
    EXPECT_EQ(r.exit_code, 0) << r.err;
    EXPECT_TRUE(simtest::wait_for_lines(only17, established(17), 1)) << log(only17);
}

TEST(CliNoPong, NoPingReachesABmcThatNeverAnswersPings)
{
    bmcsim::ChildProcess no_pong(std::vector<std::string>{"--address", kNoPongBmc, "--user", "admin:password:4",
                                                          "--suites", "0,1,2,3,15,16,17", "--no-pong"});
    auto r = rmcpp(kNoPongBmc, {"-R", "1", "ping"});
    EXPECT_EQ(r.exit_code, 1);
    EXPECT_EQ(r.err, "rmcpp: ping failed (34): the BMC did not answer the ASF presence ping\n");

    r = rmcpp(kNoPongBmc, {"-R", "1", "-C", "3", "mc", "info"});
    EXPECT_EQ(r.exit_code, 1);
    EXPECT_EQ(r.err, "rmcpp: establishment failed (34): the BMC did not answer the ASF presence ping; if the BMC "
                     "never answers presence pings, try --no-ping\n");

    for (const std::vector<std::string> &suite : {std::vector<std::string>{"-C", "3"}, {"-C", "17"}, {}}) {
        std::vector<std::string> args = {"--no-ping"};
        args.insert(args.end(), suite.begin(), suite.end());
        args.insert(args.end(), {"mc", "info"});
        r = rmcpp(kNoPongBmc, args);
        EXPECT_EQ(r.exit_code, 0) << r.err;
        EXPECT_TRUE(contains(r.out, "Device ID                 : 32\n")) << r.out;
    }
    EXPECT_TRUE(simtest::wait_for_lines(no_pong, established(17), 2)) << log(no_pong);
}

// ------------------------------------------------------ channel ciphers

// The tool's table of suites 0 to 3, as every simulator here offers them.
constexpr const char *kSuites0To3Table = "ID   Auth Alg        Integrity Alg   Confidentiality Alg\n"
                                         "0    none            none            none\n"
                                         "1    hmac_sha1       none            none\n"
                                         "2    hmac_sha1       hmac_sha1_96    none\n"
                                         "3    hmac_sha1       hmac_sha1_96    aes_cbc_128\n";

TEST_F(CliSuites, ChannelCiphersListsTheOfferedSuites)
{
    const auto r = rmcpp(kBmc, {"channel", "ciphers"});
    EXPECT_EQ(r.exit_code, 0) << r.err;
    EXPECT_EQ(r.out,
              std::string(kSuites0To3Table) +
                  "15   hmac_sha256     none            none\n"
                  "16   hmac_sha256     sha256_128      none\n"
                  "17   hmac_sha256     sha256_128      aes_cbc_128\n");
    EXPECT_EQ(rmcpp("::1", {"channel", "ciphers", "14"}).out, r.out);
}

TEST_F(CliOldBmc, ChannelCiphersListsSuites0To3)
{
    const auto r = rmcpp(kOldBmc, {"channel", "ciphers"});
    EXPECT_EQ(r.exit_code, 0) << r.err;
    EXPECT_EQ(r.out,
              kSuites0To3Table);
}

TEST_F(CliOldBmc, ChannelCiphersAsJson)
{
    const auto r = rmcpp(kOldBmc, {"--json", "channel", "ciphers"});
    EXPECT_EQ(r.exit_code, 0) << r.err;
    const auto suite = [](int id, const char *authentication, const char *integrity, const char *confidentiality) {
        return nlohmann::json{{"id", id},
                              {"authentication", authentication},
                              {"integrity", integrity},
                              {"confidentiality", confidentiality}};
    };
    EXPECT_EQ(nlohmann::json::parse(r.out),
              nlohmann::json({{"channel", 14},
                              {"cipher_suites",
                               {suite(0, "none", "none", "none"), suite(1, "hmac_sha1", "none", "none"),
                                suite(2, "hmac_sha1", "hmac_sha1_96", "none"),
                                suite(3, "hmac_sha1", "hmac_sha1_96", "aes_cbc_128")}}}))
        << r.out;
}

TEST_F(CliSuites, ChannelCiphersAgreesWithIpmitool)
{
    ASSERT_FALSE(simtest::find_program("ipmitool").empty()) << "ipmitool is not installed (Debian package ipmitool)";
    const auto mine = rmcpp(kBmc, {"channel", "ciphers"});
    ASSERT_EQ(mine.exit_code, 0) << mine.err;
    const auto theirs = testkit::run_program({"ipmitool", "-I", "lanplus", "-H", kBmc, "-U", "admin", "-P",
                                              "password", "-C", "17", "-N", "1", "-R", "2", "channel", "getciphers",
                                              "ipmi"},
                                             30s);
    ASSERT_EQ(theirs.exit_code, 0) << simtest::output(theirs);
    const auto listed = ciphertest::table_rows(mine.out, false);
    EXPECT_EQ(listed, ciphertest::table_rows(theirs.out, true)) << mine.out << "\n" << theirs.out;
    EXPECT_EQ(listed.size(), 7u);
}

// ------------------------------------- a BMC that ignores the suite query

// Between the console and a BMC: forwards everything but Get Channel Cipher
// Suites requests outside a session, which it drops, as a BMC that does not
// know the command and stays silent would.
class SuiteQueryFilter {
public:
    SuiteQueryFilter(const char *listen, const char *target)
    {
        console_side_ = bound(listen, 623);
        bmc_side_ = bound(listen, 0);
        target_.sin_family = AF_INET;
        target_.sin_port = htons(623);
        inet_pton(AF_INET, target, &target_.sin_addr);
        thread_ = std::thread([this] { run(); });
    }
    ~SuiteQueryFilter()
    {
        stop_ = true;
        thread_.join();
        close(console_side_);
        close(bmc_side_);
    }
    int dropped() const { return dropped_; }

private:
    static int bound(const char *address, uint16_t port)
    {
        const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_port = htons(port);
        inet_pton(AF_INET, address, &a.sin_addr);
        if (fd < 0 || bind(fd, reinterpret_cast<sockaddr *>(&a), sizeof a) != 0)
            throw std::runtime_error(std::string("cannot bind ") + address);
        return fd;
    }
    // netFn App (0x06), command 0x54 in an IPMI v1.5 frame without a session
    // (message at 14) or an RMCP+ frame of payload type IPMI (message at 16).
    static bool suite_query(const uint8_t *d, ssize_t n)
    {
        auto command_at = [&](ssize_t message) {
            return n > message + 5 && (d[message + 1] >> 2) == 0x06 && d[message + 5] == 0x54;
        };
        if (n < 5 || d[0] != 0x06 || (d[3] & 0x1F) != 0x07) return false;
        if (d[4] == 0x00) return command_at(14);
        return d[4] == 0x06 && (d[5] & 0x3F) == 0x00 && command_at(16);
    }
    void run()
    {
        sockaddr_in console{};
        while (!stop_) {
            pollfd p[2] = {{console_side_, POLLIN, 0}, {bmc_side_, POLLIN, 0}};
            if (poll(p, 2, 50) <= 0) continue;
            uint8_t d[2048];
            if (p[0].revents & POLLIN) {
                socklen_t length = sizeof console;
                const ssize_t n =
                    recvfrom(console_side_, d, sizeof d, 0, reinterpret_cast<sockaddr *>(&console), &length);
                if (n > 0 && suite_query(d, n))
                    ++dropped_;
                else if (n > 0)
                    sendto(bmc_side_, d, static_cast<size_t>(n), 0, reinterpret_cast<const sockaddr *>(&target_),
                           sizeof target_);
            }
            if (p[1].revents & POLLIN) {
                const ssize_t n = recv(bmc_side_, d, sizeof d, 0);
                if (n > 0)
                    sendto(console_side_, d, static_cast<size_t>(n), 0, reinterpret_cast<const sockaddr *>(&console),
                           sizeof console);
            }
        }
    }

    int console_side_ = -1, bmc_side_ = -1;
    sockaddr_in target_{};
    std::atomic<bool> stop_{false};
    std::atomic<int> dropped_{0};
    std::thread thread_;
};

TEST(CliSuiteQuery, WithoutSuiteAnUnansweredQueryFallsBackTo3)
{
    bmcsim::ChildProcess behind(std::vector<std::string>{"--address", kBehindRelay, "--user", "admin:password:4",
                                                         "--suites", "0,1,2,3,15,16,17"});
    SuiteQueryFilter filter(kRelay, kBehindRelay);
    const auto r = rmcpp(kRelay, {"-R", "1", "session"});
    EXPECT_EQ(r.exit_code, 0) << r.err;
    EXPECT_TRUE(contains(r.out, "Cipher Suite       : 3\n")) << r.out;
    EXPECT_GE(filter.dropped(), 1) << "the tool asked, and got no answer";
    EXPECT_TRUE(simtest::wait_for_lines(behind, established(3), 1)) << log(behind);
}

}  // namespace
