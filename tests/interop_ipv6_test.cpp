// ipmitool (Debian's package, run as a black box) reaching rmcpp-bmcsim
// over IPv6: one simulator listens on 127.0.1.22 and ::1 at once
// (--address 127.0.1.22,::1), in standard-key mode, and serves cipher
// suites 3 and 17 on both.
//
// ipmitool 1.8.19 opens a session to ::1 only when the machine has an IPv6
// address besides ::1 (it looks one up for the scope). So, when it may, this
// program moves into a network namespace of its own, brings its loopback up
// and gives it fd00::623 as well; there it is also alone on ::1 port 623.
// Otherwise it stays where it is (ctest serialises the tests that bind ::1
// with the resource lock ipv6_loopback) and needs such an address there.
#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <future>
#include <memory>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "bmcsim.h"
#include "bmcsim_clients.h"
#include "run_program.h"

namespace {

using namespace std::chrono_literals;
using simtest::output;

constexpr const char *kV4Address = "127.0.1.22";
constexpr const char *kConfiguredV4Address = "127.0.1.26";
constexpr auto kClientLimit = 30s;

bool write_file(const std::string &path, const std::string &text)
{
    std::ofstream f(path);
    return static_cast<bool>(f << text << std::flush);
}

// Loopback up, and fd00::623/128 on it.
bool set_up_loopback()
{
    int fd = ::socket(AF_INET6, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return false;
    ifreq ifr{};
    std::strncpy(ifr.ifr_name, "lo", IFNAMSIZ - 1);
    bool ok = ::ioctl(fd, SIOCGIFFLAGS, &ifr) == 0;
    ifr.ifr_flags = static_cast<short>(ifr.ifr_flags | IFF_UP);
    ok = ok && ::ioctl(fd, SIOCSIFFLAGS, &ifr) == 0;
    struct {
        in6_addr address;
        uint32_t prefix_length;
        int index;
    } request{};  // the kernel's in6_ifreq
    ::inet_pton(AF_INET6, "fd00::623", &request.address);
    request.prefix_length = 128;
    request.index = static_cast<int>(::if_nametoindex("lo"));
    ok = ok && request.index > 0 && ::ioctl(fd, SIOCSIFADDR, &request) == 0;
    ::close(fd);
    return ok;
}

// A network namespace of this program's own (as root, or as root of a new
// user namespace), set up as above. False when neither is allowed.
bool own_network()
{
    if (::unshare(CLONE_NEWNET) == 0) return set_up_loopback();
    uid_t uid = ::getuid();
    gid_t gid = ::getgid();
    if (::unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) return false;
    return write_file("/proc/self/setgroups", "deny") &&
           write_file("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1") &&
           write_file("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1") && set_up_loopback();
}

// An IPv6 address that is neither loopback nor multicast on some interface.
bool has_other_ipv6_address()
{
    ifaddrs *all = nullptr;
    if (::getifaddrs(&all) != 0) return false;
    bool found = false;
    for (ifaddrs *a = all; a && !found; a = a->ifa_next) {
        if (!a->ifa_addr || a->ifa_addr->sa_family != AF_INET6) continue;
        const in6_addr &ip = reinterpret_cast<const sockaddr_in6 *>(a->ifa_addr)->sin6_addr;
        found = !IN6_IS_ADDR_LOOPBACK(&ip) && !IN6_IS_ADDR_MULTICAST(&ip);
    }
    ::freeifaddrs(all);
    return found;
}

std::string lines_of(const bmcsim::ChildProcess &sim)
{
    std::string all;
    for (const auto &l : sim.output()) all += l + "\n";
    return all;
}

std::vector<std::string> lanplus(const std::string &host, int suite, const std::vector<std::string> &command,
                                 const std::string &port = "623")
{
    std::vector<std::string> argv{"ipmitool", "-I", "lanplus", "-H", host, "-p", port, "-U", "admin",
                                  "-P", "Secr3t-pw", "-C", std::to_string(suite), "-N", "1", "-R", "2"};
    argv.insert(argv.end(), command.begin(), command.end());
    return argv;
}

class Ipv6 : public ::testing::TestWithParam<int> {
protected:
    static void SetUpTestSuite()
    {
        if (simtest::find_program("ipmitool").empty()) return;
        if (!namespace_tried_) {
            namespace_tried_ = true;
            own_network_ = own_network();
        }
        if (!own_network_ && !has_other_ipv6_address()) return;
        sim_ = std::make_unique<bmcsim::ChildProcess>(std::vector<std::string>{
            "--address", std::string(kV4Address) + ",::1", "--standard-keys", "--user", "admin:Secr3t-pw:4",
            "--device-id", "0x42", "--device-revision", "3", "--firmware", "7.31", "--manufacturer", "0x12345",
            "--product", "0xBEEF", "--aux", "01020304"});
    }
    static void TearDownTestSuite() { sim_.reset(); }
    void SetUp() override
    {
        if (simtest::find_program("ipmitool").empty())
            GTEST_SKIP() << "ipmitool is not installed (Debian package ipmitool)";
        if (!own_network_ && !has_other_ipv6_address())
            GTEST_SKIP() << "no network namespace of its own allowed, and no IPv6 address besides ::1 here: "
                            "ipmitool 1.8.19 cannot open a session to ::1 without one";
        if (!sim_) GTEST_FAIL() << "the simulator did not start";
    }

    // Runs ipmitool and checks that it ended well and that the simulator
    // saw one more session established with this suite and closed.
    testkit::ProgramResult ipmitool(const std::vector<std::string> &argv, int suite)
    {
        std::string opened = "established for user 'admin': cipher suite " + std::to_string(suite) + ", ";
        size_t opened_before = simtest::count_lines(*sim_, opened);
        size_t closed_before = simtest::count_lines(*sim_, "closed (user 'admin')");
        testkit::ProgramResult r = testkit::run_program(argv, kClientLimit);
        EXPECT_FALSE(r.timed_out) << "ipmitool still running after the time limit";
        EXPECT_EQ(r.exit_code, 0) << output(r) << lines_of(*sim_);
        EXPECT_TRUE(simtest::wait_for_lines(*sim_, opened, opened_before + 1)) << lines_of(*sim_);
        EXPECT_TRUE(simtest::wait_for_lines(*sim_, "closed (user 'admin')", closed_before + 1)) << lines_of(*sim_);
        return r;
    }

    static bool namespace_tried_;
    static bool own_network_;
    static std::unique_ptr<bmcsim::ChildProcess> sim_;
};

bool Ipv6::namespace_tried_ = false;
bool Ipv6::own_network_ = false;
std::unique_ptr<bmcsim::ChildProcess> Ipv6::sim_;

TEST_P(Ipv6, TheSimulatorListensOnBothAddresses)
{
    EXPECT_TRUE(sim_->wait_for_output(std::string("listening on ") + kV4Address + ":623", 1s)) << lines_of(*sim_);
    EXPECT_TRUE(sim_->wait_for_output("listening on [::1]:623", 1s)) << lines_of(*sim_);
}

TEST_P(Ipv6, RawGetDeviceIdOverIpv6PrintsTheConfiguredBytes)
{
    auto r = ipmitool(lanplus("::1", GetParam(), {"raw", "6", "1"}), GetParam());
    EXPECT_NE(output(r).find(" 42 03 07 31 02 bf 45 23 01 ef be 01 02 03 04"), std::string::npos) << output(r);
}

TEST_P(Ipv6, McInfoOverIpv6DecodesTheConfiguredIdentity)
{
    auto r = ipmitool(lanplus("::1", GetParam(), {"mc", "info"}), GetParam());
    EXPECT_EQ(simtest::field(output(r), "Device ID"), "66") << output(r);
    EXPECT_EQ(simtest::field(output(r), "Firmware Revision"), "7.31");
    EXPECT_EQ(simtest::field(output(r), "Manufacturer ID"), "74565");
}

TEST_P(Ipv6, TheIpv4AddressOfTheSameSimulatorStillServes)
{
    auto r = ipmitool(lanplus(kV4Address, GetParam(), {"raw", "6", "1"}), GetParam());
    EXPECT_NE(output(r).find(" 42 03 07 31"), std::string::npos) << output(r);
}

// ipmitool always offers the same console session ID, so sessions from two
// of them at once are told apart by their IPv6 address and port alone.
TEST_P(Ipv6, TwoClientsAtOnceOverIpv6EachGetTheirSession)
{
    int suite = GetParam();
    std::string opened = "established for user 'admin': cipher suite " + std::to_string(suite) + ", ";
    size_t before = simtest::count_lines(*sim_, opened);
    auto run = [suite] { return testkit::run_program(lanplus("::1", suite, {"raw", "6", "1"}), kClientLimit); };
    auto first = std::async(std::launch::async, run);
    auto second = std::async(std::launch::async, run);
    for (auto *f : {&first, &second}) {
        testkit::ProgramResult r = f->get();
        EXPECT_FALSE(r.timed_out);
        EXPECT_EQ(r.exit_code, 0) << output(r) << lines_of(*sim_);
        EXPECT_NE(output(r).find(" 42 03 07 31"), std::string::npos) << output(r);
    }
    EXPECT_TRUE(simtest::wait_for_lines(*sim_, opened, before + 2)) << lines_of(*sim_);
}

// Get Session Info for this session gives the console's address as
// recorded: ::1 in 16 bytes, then a zero MAC address and the port.
TEST_P(Ipv6, GetSessionInfoOverIpv6GivesTheConsolesIpv6Address)
{
    auto r = ipmitool(lanplus("::1", GetParam(), {"raw", "6", "0x3d", "0"}), GetParam());
    std::istringstream words(r.out);
    std::vector<int> bytes;
    std::string w;
    while (words >> w) bytes.push_back(std::stoi(w, nullptr, 16));
    ASSERT_EQ(bytes.size(), 30u) << output(r);
    EXPECT_EQ(bytes[3], 1);     // user ID
    EXPECT_EQ(bytes[5], 0x11);  // IPMI v2.0 / RMCP+ on channel 1
    std::vector<int> loopback(16, 0);
    loopback[15] = 1;
    EXPECT_EQ(std::vector<int>(bytes.begin() + 6, bytes.begin() + 22), loopback) << output(r);
    EXPECT_EQ(std::vector<int>(bytes.begin() + 22, bytes.begin() + 28), std::vector<int>(6, 0)) << output(r);
    EXPECT_NE(bytes[28] | bytes[29], 0) << output(r);  // ipmitool's port, least significant byte first
}

INSTANTIATE_TEST_SUITE_P(Suites, Ipv6, ::testing::Values(3, 17),
                         [](const auto &info) { return "C" + std::to_string(info.param); });

using Ipv6ConfigFile = Ipv6;

// A config file may name IPv6 addresses too, in brackets or not; here on a
// port of its own so the shared simulator keeps ::1 port 623.
TEST_F(Ipv6ConfigFile, AddressesFromAConfigFileServeIpv6)
{
    simtest::TempDir dir;
    ASSERT_FALSE(dir.path().empty());
    std::string path = dir.path() + "/bmcsim.conf";
    std::FILE *f = std::fopen(path.c_str(), "w");
    ASSERT_NE(f, nullptr);
    std::fprintf(f, "address %s,[::1]\nport 1623\nstandard-keys\nuser admin:Secr3t-pw:4\ndevice-id 0x24\n",
                 kConfiguredV4Address);
    std::fclose(f);
    bmcsim::ChildProcess sim({"--config", path});
    EXPECT_TRUE(sim.wait_for_output("listening on [::1]:1623", 1s)) << lines_of(sim);
    auto r = testkit::run_program(lanplus("::1", 17, {"raw", "6", "1"}, "1623"), kClientLimit);
    EXPECT_FALSE(r.timed_out);
    EXPECT_EQ(r.exit_code, 0) << output(r) << lines_of(sim);
    EXPECT_EQ(output(r).rfind(" 24 ", 0), 0u) << output(r);
}

}  // namespace
