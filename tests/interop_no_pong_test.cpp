// rmcpp-bmcsim --no-pong, as many OpenBMC and virtual BMCs behave: an ASF
// presence ping gets no Presence Pong, while ipmitool (which does not
// ping) still gets its sessions. The same ping to a simulator without the
// option gets its pong, so the probe itself is known to work. Addresses
// 127.0.1.23 to 127.0.1.25.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "bmcsim.h"
#include "bmcsim_clients.h"
#include "run_program.h"

namespace {

using namespace std::chrono_literals;
using simtest::output;
using Bytes = std::vector<uint8_t>;

constexpr const char *kNoPong = "127.0.1.23";
constexpr const char *kPong = "127.0.1.24";
constexpr const char *kConfigured = "127.0.1.25";
constexpr auto kClientLimit = 30s;

// An ASF presence ping with this message tag: RMCP header (class ASF),
// ASF IANA 4542, message type 80h, tag, reserved, data length 0.
Bytes presence_ping(uint8_t tag) { return {0x06, 0x00, 0xFF, 0x06, 0x00, 0x00, 0x11, 0xBE, 0x80, tag, 0x00, 0x00}; }

// Sends one ping from a socket of its own to address:623 and returns what
// comes back within the wait, if anything.
std::optional<Bytes> ping(const std::string &address, uint8_t tag, int wait_ms = 1000)
{
    int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return std::nullopt;
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(623);
    ::inet_pton(AF_INET, address.c_str(), &to.sin_addr);
    Bytes d = presence_ping(tag);
    std::optional<Bytes> answer;
    if (::sendto(fd, d.data(), d.size(), 0, reinterpret_cast<const sockaddr *>(&to), sizeof to) ==
        static_cast<ssize_t>(d.size())) {
        pollfd p{fd, POLLIN, 0};
        if (::poll(&p, 1, wait_ms) == 1) {
            Bytes buf(512);
            ssize_t n = ::recv(fd, buf.data(), buf.size(), 0);
            if (n >= 0) answer = Bytes(buf.begin(), buf.begin() + n);
        }
    }
    ::close(fd);
    return answer;
}

std::string lines_of(const bmcsim::ChildProcess &sim)
{
    std::string all;
    for (const auto &l : sim.output()) all += l + "\n";
    return all;
}

std::vector<std::string> simulator(const std::string &address, bool pong)
{
    std::vector<std::string> args{"--address", address, "--standard-keys", "--user", "admin:Secr3t-pw:4",
                                  "--device-id", "0x42"};
    if (!pong) args.push_back("--no-pong");
    return args;
}

TEST(NoPong, APingToTheSimulatorWithoutTheOptionGetsItsPong)
{
    bmcsim::ChildProcess sim(simulator(kPong, true));
    auto answer = ping(kPong, 0x5A);
    ASSERT_TRUE(answer.has_value()) << lines_of(sim);
    ASSERT_EQ(answer->size(), 28u);
    EXPECT_EQ((*answer)[8], 0x40);  // Presence Pong
    EXPECT_EQ((*answer)[9], 0x5A);  // the ping's tag
}

TEST(NoPong, APingGetsNoAnswerAndIsLogged)
{
    bmcsim::ChildProcess sim(simulator(kNoPong, false));
    EXPECT_FALSE(ping(kNoPong, 0x21).has_value());
    EXPECT_FALSE(ping(kNoPong, 0x22, 300).has_value());
    EXPECT_TRUE(sim.wait_for_output("presence ping, tag 21: not answered", 2s)) << lines_of(sim);
    EXPECT_TRUE(sim.wait_for_output("presence ping, tag 22: not answered", 2s)) << lines_of(sim);
}

TEST(NoPong, IpmitoolStillGetsItsSessions)
{
    if (simtest::find_program("ipmitool").empty())
        GTEST_SKIP() << "ipmitool is not installed (Debian package ipmitool)";
    bmcsim::ChildProcess sim(simulator(kNoPong, false));
    for (int suite : {3, 17}) {
        auto r = testkit::run_program({"ipmitool", "-I", "lanplus", "-H", kNoPong, "-U", "admin", "-P", "Secr3t-pw",
                                       "-C", std::to_string(suite), "-N", "1", "-R", "2", "raw", "6", "1"},
                                      kClientLimit);
        EXPECT_FALSE(r.timed_out) << "ipmitool still running after the time limit";
        EXPECT_EQ(r.exit_code, 0) << output(r) << lines_of(sim);
        EXPECT_EQ(output(r).rfind(" 42 ", 0), 0u) << output(r);
        EXPECT_EQ(simtest::count_lines(sim, "cipher suite " + std::to_string(suite) + ", privilege up to "), 1u)
            << lines_of(sim);
    }
    // And pings stay unanswered meanwhile.
    EXPECT_FALSE(ping(kNoPong, 0x23, 300).has_value());
}

TEST(NoPong, TheOptionIsTakenFromAConfigFile)
{
    simtest::TempDir dir;
    ASSERT_FALSE(dir.path().empty());
    std::string path = dir.path() + "/bmcsim.conf";
    std::FILE *f = std::fopen(path.c_str(), "w");
    ASSERT_NE(f, nullptr);
    std::fprintf(f, "address %s\n# stay quiet to pings\nno-pong\n", kConfigured);
    std::fclose(f);
    bmcsim::ChildProcess sim({"--config", path});
    EXPECT_FALSE(ping(kConfigured, 0x31).has_value());
    EXPECT_TRUE(sim.wait_for_output("presence ping, tag 31: not answered", 2s)) << lines_of(sim);
}

}  // namespace
