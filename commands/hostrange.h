// Host lists with ranges, as cluster tools write them: "bmc[01-64].dc1",
// "10.0.[0-3].[1-250]", "node[1-3,7,10-12]", several separated by commas.
// A bracket holding a colon is an IPv6 literal ("[::1]"), not a range.
#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <vector>

namespace rmcpp::commands {

// The most hosts one list (or host file) may name.
constexpr size_t kMaxHosts = 1000000;

// A list that cannot be expanded; what() says why, in words.
struct HostrangeError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Expands a comma-separated list of hosts and hostranges, in the order
// written: each bracket [a-b,c,...] stands for its numbers, zero-padded to
// the width of a bound written with a leading zero ("[01-64]": 01..64), and
// several brackets in one host expand as their cross product, left to right.
// Hosts named twice are kept once, where they first appear. Throws
// HostrangeError for a bad range, an unclosed bracket, an empty host or a
// list of more than `limit` hosts.
std::vector<std::string> expand_hosts(const std::string &list, size_t limit = kMaxHosts);

// The hosts of a host file's text: one host, hostrange or list per line;
// blank lines and lines starting with '#' are skipped. Errors name the line.
std::vector<std::string> hosts_of_file_text(const std::string &text, size_t limit = kMaxHosts);

// True when `list` is one host without a comma or a range (an IPv6 literal
// in brackets is one host): the tool then runs as for one BMC.
bool single_host(const std::string &list);

// The hosts in range form, the inverse of expand_hosts: hosts that differ
// only in one number are written once with that number in brackets
// ("bmc01,bmc02,bmc03,bmc07" -> "bmc[01-03,07]"); of the numbers a host
// holds, the one giving the shortest text is bracketed. Groups follow the
// order in which their first host appears, numbers within a group ascend.
std::string compress_hosts(const std::vector<std::string> &hosts);

}  // namespace rmcpp::commands
