// Command-line options of rmcpp, named as ipmitool names them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace cli {

struct Options {
    std::string host;
    uint32_t address = 0;            // host order
    int port_option = 0;             // 0: 623, 1: 664
    std::string user;
    std::optional<std::string> password;
    std::optional<std::string> kg;
    int cipher_suite = 3;
    int privilege = 0;               // 0: the highest the BMC grants
    bool name_only = false;
    int attempts = 3;
    int timeout = 2;
    uint8_t target = 0x20;
    uint8_t lun = 0;
    bool standard_keys = false;
    bool verbose = false;
    bool json = false;
    std::vector<std::string> command;
};

// Parses argv; on a usage error returns a message, on --help the text "help".
std::optional<std::string> parse(int argc, char **argv, Options &out);
std::string usage();

// Parses a byte written as decimal or 0x-prefixed hex; ipmitool-style.
std::optional<uint8_t> parse_byte(const std::string &text);

const char *privilege_name(unsigned level);

}  // namespace cli
