// Command-line options of rmcpp, named as ipmitool names them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace cli {

struct Options {
    std::string host;                // as given: IPv4, IPv6 ("::1", "[::1]") or a name
    uint16_t port = 0;               // 0: 623
    std::string user;
    std::optional<std::string> password;
    std::optional<std::string> kg;
    std::optional<int> cipher_suite; // none: ask the BMC and take the strongest
    int privilege = 0;               // 0: the highest the BMC grants
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
    std::vector<std::string> command;
};

// What parse() found: run the command, show the help or the version, or a
// usage error (its text in `problem`).
enum class Parsed { Run, Help, Version, UsageError };

Parsed parse(int argc, char **argv, Options &out, std::string &problem);
std::string usage();

// Parses a byte written as decimal or 0x-prefixed hex; ipmitool-style.
std::optional<uint8_t> parse_byte(const std::string &text);

// True for an IPv4 or IPv6 literal (bare or in brackets) or a well-formed
// host name.
bool valid_host(const std::string &host);

const char *privilege_name(unsigned level);

}  // namespace cli
