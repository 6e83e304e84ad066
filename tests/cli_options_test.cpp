// The rmcpp tool's options: host and port forms, usage errors in one line,
// --version, runtime errors in words, the hints for BMCs that never answer
// the presence ping or key the integrity code with K1, and the robust
// defaults (kernel-chosen local port) with the flags that turn them back.
// BMCs are in-process simulators on 127.0.3.1..127.0.3.9.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "bmcsim.h"
#include "rmcpp.h"
#include "run_program.h"

namespace {

constexpr const char *kBmc = "127.0.3.1";           // library key mode, port 623
constexpr const char *kNobody = "127.0.3.2";        // nothing listens
constexpr const char *kStandardBmc = "127.0.3.3";   // standard key mode
constexpr const char *kNoPongBmc = "127.0.3.4";     // never answers the presence ping
constexpr const char *kPortSpy = "127.0.3.5";       // a bare socket that notes the sender's port
constexpr const char *kOtherPortBmc = "127.0.3.6";  // listens on port 40623
constexpr const char *kStrayBmc = "127.0.3.7";      // a damaged RAKP 2 before the correct one

bool contains(const std::string &text, const std::string &part) { return text.find(part) != std::string::npos; }

testkit::ProgramResult rmcpp(std::vector<std::string> args)
{
    args.insert(args.begin(), RMCPP_CLI);
    return testkit::run_program(args, std::chrono::seconds(30));
}

std::vector<std::string> admin(const std::string &host, std::vector<std::string> rest)
{
    std::vector<std::string> a = {"-H", host, "-U", "admin", "-P", "password", "-R", "1", "-N", "1"};
    a.insert(a.end(), rest.begin(), rest.end());
    return a;
}

bmcsim::Config simulator(const std::string &address)
{
    bmcsim::Config c;
    c.address = address;
    c.users = {{"admin", "password", 4, true}};
    return c;
}

// A usage error: exit 2, nothing on standard output, one line on standard
// error that points to the help instead of printing it.
void expect_one_line_usage_error(const std::vector<std::string> &args, const std::string &reason)
{
    const auto r = rmcpp(args);
    std::string shown;
    for (const auto &a : args) shown += a + " ";
    EXPECT_EQ(r.exit_code, 2) << shown;
    EXPECT_EQ(r.out, "") << shown;
    EXPECT_EQ(r.err, "rmcpp: " + reason + "; see rmcpp --help\n") << shown;
}

TEST(CliOptions, BadValuesAreOneLineUsageErrors)
{
    expect_one_line_usage_error({"-H", "bad host!", "session"}, "not an IPv4 or IPv6 address or host name: bad host!");
    expect_one_line_usage_error({"-H", "[::1", "session"}, "not an IPv4 or IPv6 address or host name: [::1");
    expect_one_line_usage_error({"-H", "::1]", "session"}, "not an IPv4 or IPv6 address or host name: ::1]");
    expect_one_line_usage_error({"-H", "1::2::3", "session"}, "not an IPv4 or IPv6 address or host name: 1::2::3");
    expect_one_line_usage_error({"-H", "a..b", "session"}, "not an IPv4 or IPv6 address or host name: a..b");
    expect_one_line_usage_error({"-H", kBmc, "-p", "0", "session"}, "port must be 1..65535: 0");
    expect_one_line_usage_error({"-H", kBmc, "-p", "65536", "session"}, "port must be 1..65535: 65536");
    expect_one_line_usage_error({"-H", kBmc, "-p", "six", "session"}, "port must be 1..65535: six");
    for (const char *suite : {"4", "14", "18", "-1", "x"})
        expect_one_line_usage_error({"-H", kBmc, "-C", suite, "session"},
                                    std::string("cipher suite must be 0, 1, 2, 3, 15, 16 or 17: ") + suite);
    expect_one_line_usage_error({"-H", kBmc, "-R", "0", "session"}, "attempts must be 1..255: 0");
    expect_one_line_usage_error({"-H", kBmc, "-L", "KING", "session"}, "unknown privilege level: KING");
    expect_one_line_usage_error({"-H", kBmc, "--frobnicate", "session"}, "unknown option: --frobnicate");
    expect_one_line_usage_error({"-H"}, "option -H needs a value");
    expect_one_line_usage_error({"session"}, "no BMC given (-H HOST)");
    expect_one_line_usage_error({"-H", kBmc}, "no command given");
    expect_one_line_usage_error({"-H", kBmc, "channel", "ciphers", "16"}, "channel must be 0..15: 16");
    expect_one_line_usage_error({"-H", kBmc, "channel", "ciphers", "1", "2"},
                                "channel ciphers takes at most one CHANNEL");
}

TEST(CliOptions, VersionShowsTheToolAndTheLibrary)
{
    const auto r = rmcpp({"--version"});
    EXPECT_EQ(r.exit_code, 0);
    EXPECT_EQ(r.err, "");
    const std::string library_line = std::string("librmcpp ") + rmcpp_version() + "\n";
    ASSERT_TRUE(r.out.size() > library_line.size()) << r.out;
    EXPECT_EQ(r.out.substr(0, 6), "rmcpp ");
    EXPECT_EQ(r.out.substr(r.out.size() - library_line.size()), library_line) << r.out;
    EXPECT_EQ(std::count(r.out.begin(), r.out.end(), '\n'), 2) << r.out;
}

TEST(CliOptions, HelpListsTheNewFlagsAndCommands)
{
    const auto r = rmcpp({"--help"});
    EXPECT_EQ(r.exit_code, 0);
    for (const char *word : {"--no-ping", "--standard-keys", "--library-random", "--lenient", "--port-range",
                             "--version", "channel ciphers", "15, 16 or 17", "Get Channel Cipher Suites", "::1"})
        EXPECT_TRUE(contains(r.out, word)) << word;
}

// An unresolvable name is a runtime error: its result code in words, no
// usage text.
TEST(CliOptions, UnresolvableHostIsARuntimeErrorInWords)
{
    const auto r = rmcpp(admin("bmc.invalid", {"-C", "3", "mc", "info"}));
    EXPECT_EQ(r.exit_code, 1);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, std::string("rmcpp: establishment failed (41): ") + rmcpp_strerror(RMCPP_ERR_RESOLVE) + "\n");
    EXPECT_FALSE(contains(r.err, "usage")) << r.err;
    EXPECT_FALSE(contains(r.err, "--help")) << r.err;
}

TEST(CliOptions, WrongPasswordIsARuntimeErrorWithoutUsage)
{
    bmcsim::Simulator sim(simulator(kBmc));
    sim.start();
    const auto r = rmcpp({"-H", kBmc, "-U", "admin", "-P", "wrong", "-C", "3", "-R", "1", "-N", "1", "mc", "info"});
    EXPECT_EQ(r.exit_code, 1);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
    EXPECT_TRUE(contains(r.err, "wrong password")) << r.err;
    EXPECT_FALSE(contains(r.err, "usage")) << r.err;
    EXPECT_FALSE(contains(r.err, "--help")) << r.err;
}

// The bracketed and bare IPv6 forms and host names get past the option
// check and on to the network; on a port where nothing listens the ping
// goes unanswered.
TEST(CliOptions, Ipv6FormsAndHostNamesReachTheNetwork)
{
    for (const char *host : {"::1", "[::1]", "localhost", kNobody}) {
        const auto r = rmcpp({"-H", host, "-p", "40620", "-R", "1", "-N", "1", "ping"});
        EXPECT_EQ(r.exit_code, 1) << host;
        EXPECT_EQ(r.err, "rmcpp: ping failed (34): the BMC did not answer the ASF presence ping\n") << host;
    }
}

TEST(CliOptions, AnyPortAndTheDefaultPort)
{
    bmcsim::Config c = simulator(kOtherPortBmc);
    c.port = 40623;
    bmcsim::Simulator other(c);
    other.start();
    bmcsim::Simulator standard_port(simulator(kBmc));
    standard_port.start();

    auto r = rmcpp(admin(kOtherPortBmc, {"-p", "40623", "-C", "3", "mc", "info"}));
    EXPECT_EQ(r.exit_code, 0) << r.err;
    EXPECT_TRUE(contains(r.out, "Manufacturer ID           : 23130\n")) << r.out;
    r = rmcpp(admin(kBmc, {"-p", "623", "-C", "3", "mc", "info"}));
    EXPECT_EQ(r.exit_code, 0) << r.err;
    r = rmcpp(admin(kBmc, {"-C", "3", "mc", "info"}));
    EXPECT_EQ(r.exit_code, 0) << r.err;
    EXPECT_EQ(other.stats().sessions_established, 1u);
    EXPECT_EQ(standard_port.stats().sessions_established, 2u);
}

// "localhost" resolves to the loopback addresses; the simulator on
// 127.0.0.1 at an unusual port answers one of them.
TEST(CliOptions, HostNameIsResolved)
{
    bmcsim::Config c = simulator("127.0.0.1");
    c.port = 40624;
    bmcsim::Simulator sim(c);
    sim.start();
    const auto r = rmcpp(admin("localhost", {"-p", "40624", "-C", "3", "mc", "info"}));
    EXPECT_EQ(r.exit_code, 0) << r.err;
    EXPECT_TRUE(contains(r.out, "Device ID                 : 32\n")) << r.out;
    EXPECT_EQ(sim.stats().sessions_established, 1u);
}

TEST(CliOptions, UnansweredPingSuggestsNoPing)
{
    const std::string hint = "rmcpp: establishment failed (34): the BMC did not answer the ASF presence ping; if the "
                             "BMC never answers presence pings, try --no-ping\n";
    auto r = rmcpp(admin(kNobody, {"-C", "3", "mc", "info"}));
    EXPECT_EQ(r.exit_code, 1);
    EXPECT_EQ(r.err, hint);

    bmcsim::Config c = simulator(kNoPongBmc);
    c.ping.reply.silent = true;
    bmcsim::Simulator sim(c);
    sim.start();
    r = rmcpp(admin(kNoPongBmc, {"-C", "3", "mc", "info"}));
    EXPECT_EQ(r.exit_code, 1);
    EXPECT_EQ(r.err, hint);
    EXPECT_EQ(sim.stats().sessions_established, 0u);

    r = rmcpp(admin(kNoPongBmc, {"--no-ping", "-C", "3", "mc", "info"}));
    EXPECT_EQ(r.exit_code, 0) << r.err;
    EXPECT_TRUE(contains(r.out, "Device ID                 : 32\n")) << r.out;
    EXPECT_EQ(sim.stats().sessions_established, 1u);
    EXPECT_EQ(sim.stats().count(bmcsim::Kind::Ping), 1u) << "only the run without --no-ping pinged";
}

// A BMC that keys the integrity code with K1 sets a suite 2 or 3 session
// up (RAKP 4 is keyed with the SIK either way) but drops its messages.
TEST(CliOptions, UnansweredFirstMessageSuggestsStandardKeys)
{
    bmcsim::Config c = simulator(kStandardBmc);
    c.standard_keys = true;
    bmcsim::Simulator sim(c);
    sim.start();
    const std::string hint = std::string("rmcpp: mc info failed (4): ") + rmcpp_strerror(RMCPP_ERR_RETRY_OVER) +
                             "; the session was set up but its first message got no answer: the BMC probably keys "
                             "the integrity code the standard way (K1); try --standard-keys\n";
    for (const char *suite : {"2", "3"}) {
        auto r = rmcpp(admin(kStandardBmc, {"-C", suite, "mc", "info"}));
        EXPECT_EQ(r.exit_code, 1) << suite;
        EXPECT_EQ(r.err, hint) << suite;
        r = rmcpp(admin(kStandardBmc, {"-C", suite, "--standard-keys", "mc", "info"}));
        EXPECT_EQ(r.exit_code, 0) << suite << r.err;
        EXPECT_TRUE(contains(r.out, "Device ID                 : 32\n")) << r.out;
    }
    // Suites without integrity use no key beyond the SIK.
    const auto r = rmcpp(admin(kStandardBmc, {"-C", "1", "mc", "info"}));
    EXPECT_EQ(r.exit_code, 0) << r.err;
    EXPECT_EQ(sim.stats().sessions_established, 5u);
}

// An answered message that fails later is no sign of a key mismatch.
TEST(CliOptions, NoStandardKeysHintOnceTheSessionAnswered)
{
    bmcsim::Simulator sim(simulator(kBmc));
    sim.start();
    const auto r = rmcpp(admin(kBmc, {"-C", "3", "raw", "0x06", "0x99"}));
    EXPECT_EQ(r.exit_code, 1);
    EXPECT_EQ(r.err, "rmcpp: raw request failed: completion code 0xC1 (invalid command)\n");
}

// The port the tool's first datagram leaves from, seen by a bare socket on
// kPortSpy:623 that never answers.
std::optional<uint16_t> source_port_of_first_datagram(const std::vector<std::string> &extra)
{
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return std::nullopt;
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(623);
    inet_pton(AF_INET, kPortSpy, &a.sin_addr);
    if (bind(fd, reinterpret_cast<sockaddr *>(&a), sizeof a) != 0) {
        close(fd);
        return std::nullopt;
    }
    std::vector<std::string> args = admin(kPortSpy, {"-C", "3"});
    args.insert(args.end(), extra.begin(), extra.end());
    args.push_back("session");
    const auto r = rmcpp(args);
    EXPECT_EQ(r.exit_code, 1) << r.err;
    std::optional<uint16_t> port;
    pollfd p{fd, POLLIN, 0};
    if (poll(&p, 1, 0) == 1) {
        uint8_t buffer[512];
        sockaddr_in from{};
        socklen_t length = sizeof from;
        if (recvfrom(fd, buffer, sizeof buffer, 0, reinterpret_cast<sockaddr *>(&from), &length) > 0)
            port = ntohs(from.sin_port);
    }
    close(fd);
    return port;
}

TEST(CliOptions, KernelChosenLocalPortUnlessPortRange)
{
    const auto kernel = source_port_of_first_datagram({});
    ASSERT_TRUE(kernel.has_value());
    EXPECT_TRUE(*kernel < 7001 || *kernel > 7099) << *kernel;
    const auto range = source_port_of_first_datagram({"--port-range"});
    ASSERT_TRUE(range.has_value());
    EXPECT_GE(*range, 7001);
    EXPECT_LE(*range, 7099);
}

// Strict peer checks drop a RAKP 2 whose key exchange code does not check
// and wait on for the correct one that follows; --lenient takes the first
// and the establishment fails on it.
TEST(CliOptions, StrictPeerUnlessLenient)
{
    bmcsim::Config c = simulator(kStrayBmc);
    c.rakp2.fault = bmcsim::EstFault::KeyExchangeCode;
    c.rakp2.reply.then_correct = true;
    bmcsim::Simulator sim(c);
    sim.start();
    auto r = rmcpp(admin(kStrayBmc, {"-C", "3", "mc", "info"}));
    EXPECT_EQ(r.exit_code, 0) << r.err;
    r = rmcpp(admin(kStrayBmc, {"-C", "3", "--lenient", "mc", "info"}));
    EXPECT_EQ(r.exit_code, 1) << r.out;
    EXPECT_TRUE(contains(r.err, "rmcpp: establishment failed (")) << r.err;
    EXPECT_EQ(sim.stats().sessions_established, 1u);
}

TEST(CliOptions, LibraryDefaultsStillWork)
{
    bmcsim::Simulator sim(simulator(kBmc));
    sim.start();
    const auto r = rmcpp(admin(kBmc, {"-C", "3", "--library-random", "--lenient", "--port-range", "session"}));
    EXPECT_EQ(r.exit_code, 0) << r.err;
    EXPECT_TRUE(contains(r.out, "Closed             : true\n")) << r.out;
}

}  // namespace
