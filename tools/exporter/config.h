// The exporter's configuration file: named modules, each saying how to reach
// and what to read from a BMC.
#pragma once

#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace exporter {

struct Module {
    std::string name;
    std::string user;
    std::string password;  // from password or password_file; never logged or shown
    uint8_t privilege = 4;  // 1 callback .. 4 administrator, 5 OEM
    int cipher_suite = 3;   // 0-3, 15-17
    bool standard_keys = false;
    bool ping = false;      // RMCP presence ping before each new session
    int timeout_ms = 5000;
    std::vector<std::string> collectors{"sensors", "chassis", "sel", "device"};
};

struct Config {
    std::map<std::string, Module> modules;
};

// A fault in the file, with the 1-based line it is on (0 when no line
// applies, e.g. the file cannot be read).
class ConfigError : public std::runtime_error {
public:
    ConfigError(int line, const std::string &message) : std::runtime_error(message), line(line) {}
    int line;
};

// password_file paths are read relative to `base_dir` unless absolute.
// A ConfigError's message says what is wrong; load_config's begins with
// "FILE:LINE: " as compilers write it.
Config parse_config(const std::string &text, const std::string &base_dir);
Config load_config(const std::string &path);

}  // namespace exporter
