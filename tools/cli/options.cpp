#include "options.h"

#include <arpa/inet.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <unordered_set>

#include "hostrange.h"
#include "password.h"

namespace cli {

using rmcpp::commands::expand_hosts;
using rmcpp::commands::hosts_of_file_text;
using rmcpp::commands::single_host;
using rmcpp::commands::HostrangeError;
using rmcpp::commands::kMaxHosts;

std::optional<uint8_t> parse_byte(const std::string &text)
{
    if (text.empty()) return std::nullopt;
    char *end = nullptr;
    const long v = std::strtol(text.c_str(), &end, 0);
    if (*end != '\0' || v < 0 || v > 255) return std::nullopt;
    return static_cast<uint8_t>(v);
}

const char *privilege_name(unsigned level)
{
    switch (level) {
    case 0: return "none";
    case 1: return "CALLBACK";
    case 2: return "USER";
    case 3: return "OPERATOR";
    case 4: return "ADMINISTRATOR";
    case 5: return "OEM";
    default: return "unknown";
    }
}

namespace {

std::optional<int> parse_int(const std::string &text, int low, int high)
{
    if (text.empty()) return std::nullopt;
    char *end = nullptr;
    errno = 0;
    const long v = std::strtol(text.c_str(), &end, 0);
    if (*end != '\0' || errno != 0 || v < low || v > high) return std::nullopt;
    return static_cast<int>(v);
}

std::optional<int> parse_suite(const std::string &text)
{
    const auto s = parse_int(text, 0, 17);
    if (!s || (*s > 3 && *s < 15)) return std::nullopt;
    return s;
}

bool ipv6_literal(const std::string &text)
{
    // A zone ("fe80::1%eth0") follows the address.
    const std::string address = text.substr(0, text.find('%'));
    if (address.size() != text.size() && address.size() + 1 == text.size()) return false;
    in6_addr a{};
    return inet_pton(AF_INET6, address.c_str(), &a) == 1;
}

// Letters, digits, hyphens and underscores in dot-separated labels of at
// most 63 characters, 253 in all; a trailing dot is allowed.
bool host_name(const std::string &text)
{
    if (text.empty() || text.size() > 254) return false;
    std::string name = text;
    if (name.back() == '.') name.pop_back();
    if (name.empty() || name.size() > 253) return false;
    size_t label = 0;
    for (char c : name) {
        if (c == '.') {
            if (label == 0) return false;
            label = 0;
            continue;
        }
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '-' && c != '_') return false;
        if (++label > 63) return false;
    }
    return label != 0;
}

}  // namespace

bool valid_host(const std::string &host)
{
    if (host.size() >= 2 && host.front() == '[' && host.back() == ']')
        return ipv6_literal(host.substr(1, host.size() - 2));
    if (host.find(':') != std::string::npos) return ipv6_literal(host);
    return host_name(host);
}

std::optional<int> parse_privilege(const std::string &text)
{
    static const std::map<std::string, int> names = {
        {"CALLBACK", 1}, {"USER", 2}, {"OPERATOR", 3}, {"ADMINISTRATOR", 4}, {"OEM", 5}};
    std::string upper;
    for (char c : text) upper += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    const auto it = names.find(upper);
    if (it != names.end()) return it->second;
    return parse_int(text, 0, 5);
}

void add_options(CLI::App &app, OptionText &t, Options &o)
{
    const auto into = [](std::optional<std::string> &slot) {
        return [&slot](const std::string &value) { slot = value; };
    };
    app.add_option_function<std::string>("-H", into(t.host), "BMC: IPv4, IPv6 (::1 or [::1]) or host name; or a list");
    app.add_option_function<std::string>("--hostfile", into(t.hostfile), "hosts, one host or hostrange a line");
    app.add_option_function<std::string>("--fanout", into(t.fanout), "hosts at once (64)");
    app.add_flag("--consolidate", o.consolidate, "group hosts with the same output");
    app.add_option_function<std::string>("-p", into(t.port), "UDP port of the BMC (623)");
    app.add_option_function<std::string>("-U", into(t.user), "user name");
    app.add_option_function<std::string>("-P", into(t.password), "password");
    app.add_flag("-a", t.password_prompt, "ask for the password");
    app.add_flag("-E", t.password_from_env, "password from IPMI_PASSWORD");
    app.add_option_function<std::string>("-f", into(t.password_file), "password from the file's first line");
    app.add_option_function<std::string>("-k", into(t.kg), "BMC key Kg");
    app.add_option_function<std::string>("-C", into(t.suite), "cipher suite");
    app.add_option_function<std::string>("-L", into(t.privilege), "privilege level");
    app.add_option_function<std::string>("-R", into(t.attempts), "attempts per request");
    app.add_option_function<std::string>("-N", into(t.timeout), "seconds per attempt");
    app.add_option_function<std::string>("-t", into(t.target), "target slave address");
    app.add_option_function<std::string>("--lun", into(t.lun), "target LUN");
    app.add_flag("--name-only", o.name_only, "name-only user look-up");
    app.add_flag("--standard-keys", o.standard_keys, "K1 and K2 as IPMI v2.0 derives them");
    app.add_flag("--no-ping", o.no_ping, "skip the presence ping");
    app.add_flag("--library-random", o.library_random, "the library's random generator");
    app.add_flag("--lenient", o.lenient, "no strict peer checks");
    app.add_flag("--port-range", o.port_range, "local port from 7001..7099");
    app.add_flag("-v", o.verbose, "the library's log on standard error");
    app.add_flag("--json", o.json, "print results as JSON");
}

namespace {

// The password from the first of -a, -f, -E, -P given.
std::string resolve_password(const OptionText &t, Options &o)
{
    std::string problem;
    std::optional<std::string> password = t.password;
    if (t.password_from_env) password = password_from_environment(problem);
    if (problem.empty() && t.password_file) password = password_from_file(*t.password_file, problem);
    if (problem.empty() && t.password_prompt) password = password_from_terminal(problem);
    if (!problem.empty()) return problem;
    o.password = password;
    return "";
}

}  // namespace

namespace {

// The whole of a host file; false with the reason in `problem`.
bool read_host_file(const std::string &path, std::string &text, std::string &problem)
{
    std::FILE *f = std::fopen(path.c_str(), "r");
    if (f == nullptr) {
        problem = "cannot read host file " + path + ": " + std::strerror(errno);
        return false;
    }
    char buffer[65536];
    size_t n = 0;
    while ((n = std::fread(buffer, 1, sizeof buffer, f)) > 0) text.append(buffer, n);
    const bool failed = std::ferror(f) != 0;
    const int error = errno;
    std::fclose(f);
    if (failed) problem = "cannot read host file " + path + ": " + std::strerror(error);
    return !failed;
}

// The hosts of -H and --hostfile, each named once; the usage error or "".
std::string fleet_hosts(const OptionText &t, Options &o)
{
    std::vector<std::string> hosts;
    try {
        if (t.host) hosts = expand_hosts(*t.host);
    } catch (const HostrangeError &e) {
        return e.what();
    }
    if (t.hostfile) {
        std::string text, problem;
        if (!read_host_file(*t.hostfile, text, problem)) return problem;
        try {
            std::unordered_set<std::string> seen(hosts.begin(), hosts.end());
            for (std::string &h : hosts_of_file_text(text))
                if (seen.insert(h).second) hosts.push_back(std::move(h));
        } catch (const HostrangeError &e) {
            return "host file " + *t.hostfile + ", " + e.what();
        }
        if (hosts.empty()) return "host file " + *t.hostfile + " names no host";
    }
    if (hosts.size() > kMaxHosts)
        return "the hosts expand to more than " + std::to_string(kMaxHosts) + ", the most one run takes";
    for (const std::string &h : hosts)
        if (!valid_host(h)) return "not an IPv4 or IPv6 address or host name: " + h;
    // Sessions on many threads at once must not share ports or random state.
    if (o.port_range) return "--port-range takes one host: sessions with many hosts use ports the kernel chooses";
    if (o.library_random)
        return "--library-random takes one host: sessions with many hosts use the kernel's random numbers";
    o.fleet = true;
    o.hosts = std::move(hosts);
    return "";
}

}  // namespace

std::string check(const OptionText &t, Options &o)
{
    if (!t.host && !t.hostfile) return "no BMC given (-H HOST)";
    if (t.host && !t.hostfile && single_host(*t.host)) {
        if (!valid_host(*t.host)) return "not an IPv4 or IPv6 address or host name: " + *t.host;
        o.host = *t.host;
    } else if (const std::string problem = fleet_hosts(t, o); !problem.empty()) {
        return problem;
    }
    if (t.fanout) {
        const auto n = parse_int(*t.fanout, 1, kMaxFanout);
        if (!n) return "fanout must be 1.." + std::to_string(kMaxFanout) + ": " + *t.fanout;
        o.fanout = *n;
    }
    if (o.consolidate && o.json) return "--consolidate groups text output; it does not go with --json";
    if (t.port) {
        const auto port = parse_int(*t.port, 1, 65535);
        if (!port) return "port must be 1..65535: " + *t.port;
        o.port = static_cast<uint16_t>(*port);
    }
    if (t.user) {
        if (t.user->size() > kMaxUserName)
            return "user name is " + std::to_string(t.user->size()) + " characters long; at most " +
                   std::to_string(kMaxUserName) + " are allowed";
        o.user = *t.user;
    }
    if (t.kg) {
        if (t.kg->size() > kMaxPassword)
            return "Kg is " + std::to_string(t.kg->size()) + " characters long; at most " +
                   std::to_string(kMaxPassword) + " are allowed";
        o.kg = t.kg;
    }
    if (t.suite) {
        const auto s = parse_suite(*t.suite);
        if (!s) return "cipher suite must be 0, 1, 2, 3, 15, 16 or 17: " + *t.suite;
        o.cipher_suite = *s;
    }
    if (t.privilege) {
        const auto p = parse_privilege(*t.privilege);
        if (!p) return "unknown privilege level: " + *t.privilege;
        o.privilege = *p;
    }
    if (t.attempts) {
        const auto n = parse_int(*t.attempts, 1, 255);
        if (!n) return "attempts must be 1..255: " + *t.attempts;
        o.attempts = *n;
    }
    if (t.timeout) {
        const auto n = parse_int(*t.timeout, 1, 255);
        if (!n) return "seconds must be 1..255: " + *t.timeout;
        o.timeout = *n;
    }
    if (t.target) {
        const auto a = parse_byte(*t.target);
        if (!a) return "target address must be a byte: " + *t.target;
        o.target = *a;
    }
    if (t.lun) {
        const auto l = parse_int(*t.lun, 0, 3);
        if (!l) return "LUN must be 0..3: " + *t.lun;
        o.lun = static_cast<uint8_t>(*l);
    }
    if (const std::string problem = resolve_password(t, o); !problem.empty()) return problem;
    if (o.password && o.password->size() > kMaxPassword)
        return "password is " + std::to_string(o.password->size()) + " characters long; at most " +
               std::to_string(kMaxPassword) + " are allowed";
    return "";
}

}  // namespace cli
