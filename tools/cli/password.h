// Where the password comes from besides -P: the IPMI_PASSWORD environment
// variable (-E), the first line of a file (-f), or the terminal (-a).
#pragma once

#include <optional>
#include <string>

namespace cli {

// Each returns the password, or nothing with the reason in `problem`.
std::optional<std::string> password_from_environment(std::string &problem);
std::optional<std::string> password_from_file(const std::string &path, std::string &problem);

// Asks on the controlling terminal (/dev/tty) with echo turned off.
std::optional<std::string> password_from_terminal(std::string &problem);

}  // namespace cli
