// Command-line options of rmcpp, named as ipmitool names them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

namespace cli {

// Hosts at once: --fanout's default and bounds.
constexpr int kDefaultFanout = 64;
constexpr int kMaxFanout = 1024;

struct Options {
    std::string host;                // as given: IPv4, IPv6 ("::1", "[::1]") or a name
    uint16_t port = 0;               // 0: 623
    std::string user;
    std::optional<std::string> password;
    std::optional<std::string> kg;
    std::optional<int> cipher_suite; // none: ask the BMC and take the strongest
    int privilege = 4;               // ADMINISTRATOR, as ipmitool asks; 0: the highest the BMC grants
    bool name_only = false;
    int attempts = 3;
    int timeout = 2;
    uint8_t target = 0x20;
    uint8_t lun = 0;
    bool standard_keys = false;
    bool no_ping = false;
    bool library_random = false;     // the library's generator instead of the kernel's
    bool lenient = false;            // a bad datagram ends the exchange (no strict peer)
    bool port_range = false;         // local port from 7001..7099 instead of the kernel's choice
    bool verbose = false;
    bool json = false;
    // Several hosts (a list, a hostrange or --hostfile): the command runs on
    // each of `hosts`, at most `fanout` at once; `host` is set per host.
    bool fleet = false;
    std::vector<std::string> hosts;
    int fanout = kDefaultFanout;
    bool consolidate = false;        // group hosts with the same output
};

// The options as typed; check() turns them into Options.
struct OptionText {
    std::optional<std::string> host, port, user, password, password_file, kg, suite, privilege, attempts, timeout,
        target, lun, hostfile, fanout;
    bool password_from_env = false;
    bool password_prompt = false;
};

// Adds the global options to the tool's command line; their values land in
// `text` and `o` (the flags).
void add_options(CLI::App &app, OptionText &text, Options &o);

// Checks the typed values and fills `o`: the password from -E, -f or the
// prompt of -a included. Returns the usage error, empty when all is well.
std::string check(const OptionText &text, Options &o);

// Limits of the session's fields (IPMI v2.0: user name 16 bytes, password
// and Kg 20).
constexpr size_t kMaxUserName = 16;
constexpr size_t kMaxPassword = 20;

// Parses a byte written as decimal or 0x-prefixed hex; ipmitool-style.
std::optional<uint8_t> parse_byte(const std::string &text);

// CALLBACK, USER, OPERATOR, ADMINISTRATOR, OEM in any case, or 0..5.
std::optional<int> parse_privilege(const std::string &text);

// True for an IPv4 or IPv6 literal (bare or in brackets) or a well-formed
// host name.
bool valid_host(const std::string &host);

const char *privilege_name(unsigned level);

}  // namespace cli
