#include "options.h"

#include <arpa/inet.h>

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <map>

namespace cli {

std::string usage()
{
    return R"(usage: rmcpp [options] COMMAND [ARGUMENTS]

Talks to a BMC over IPMI v2.0 / RMCP+ (UDP).

Options:
  -H HOST        BMC: IPv4 address, IPv6 address (::1 or [::1]) or host name
  -p PORT        UDP port of the BMC, 1..65535 (default 623)
  -U USER        user name (up to 16 characters; empty for anonymous)
  -P PASSWORD    password (up to 20 characters)
  -E             take the password from the IPMI_PASSWORD environment variable
  -f FILE        take the password from the first line of FILE
  -k KG          BMC key Kg for two-key login
  -C SUITE       cipher suite 0, 1, 2, 3, 15, 16 or 17; without -C the BMC
                 is asked (Get Channel Cipher Suites) and the strongest it
                 offers is taken: 17, else 3; 3 when it does not answer
  -L PRIVILEGE   CALLBACK, USER, OPERATOR, ADMINISTRATOR, OEM, or 0 for the
                 highest level the BMC grants (default 0)
  --name-only    name-only user look-up
  -R COUNT       attempts per request (default 3)
  -N SECONDS     wait per attempt (default 2)
  -t ADDRESS     target (responder) slave address (default 0x20)
  --lun LUN      target LUN 0..3 (default 0)
  --standard-keys
                 derive K1 and K2 as IPMI v2.0 defines them (for BMCs that
                 key the integrity code with K1; suites 1..3)
  --no-ping      skip the ASF presence ping (for BMCs that never answer it)
  --library-random
                 take session IDs, Rm and IVs from the library's generator
                 instead of the kernel's random source
  --lenient      end an exchange at the first bad datagram instead of
                 dropping it and waiting on (strict peer checks)
  --port-range   bind the first free local port of 7001..7099 instead of
                 one the kernel chooses
  -v             show the library's log lines on standard error
  --json         print results as JSON
  --version      show the tool's and the library's version
  -h, --help     show this text

Commands:
  ping                              ASF presence ping
  session                           establish a session, show it, close it
  raw NETFN CMD [DATA...]           send one IPMI request, print the response
  mc info                           Get Device ID, decoded
  mc selftest                       Get Self Test Results, decoded
  chassis status                    Get Chassis Status, decoded
  chassis power status|on|off|cycle|reset|soft
  channel ciphers [CHANNEL]         cipher suites the channel offers
                                    (default: the channel asked over)

The exit status is 0 on success and 1 on any failure (2 for a usage error).
)";
}

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

std::optional<int> parse_privilege(const std::string &text)
{
    static const std::map<std::string, int> names = {{"0", 0},        {"CALLBACK", 1}, {"USER", 2},
                                                     {"OPERATOR", 3}, {"ADMINISTRATOR", 4}, {"OEM", 5}};
    std::string upper;
    for (char c : text) upper += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    const auto it = names.find(upper);
    if (it == names.end()) return std::nullopt;
    return it->second;
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

Parsed parse(int argc, char **argv, Options &o, std::string &problem)
{
    std::vector<std::string> args(argv + 1, argv + argc);
    bool password_from_env = false;
    std::optional<std::string> password_file;
    auto refuse = [&](std::string text) {
        problem = std::move(text);
        return Parsed::UsageError;
    };
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string &a = args[i];
        if (a == "-h" || a == "--help") return Parsed::Help;
        if (a == "--version") return Parsed::Version;
        if (a == "--name-only") { o.name_only = true; continue; }
        if (a == "--standard-keys") { o.standard_keys = true; continue; }
        if (a == "--no-ping") { o.no_ping = true; continue; }
        if (a == "--library-random") { o.library_random = true; continue; }
        if (a == "--lenient") { o.lenient = true; continue; }
        if (a == "--port-range") { o.port_range = true; continue; }
        if (a == "-v") { o.verbose = true; continue; }
        if (a == "--json") { o.json = true; continue; }
        if (a == "-E") { password_from_env = true; continue; }
        if (a == "-H" || a == "-p" || a == "-U" || a == "-P" || a == "-f" || a == "-k" || a == "-C" || a == "-L" ||
            a == "-R" || a == "-N" || a == "-t" || a == "--lun") {
            if (i + 1 >= args.size()) return refuse("option " + a + " needs a value");
            const std::string &v = args[++i];
            if (a == "-H") {
                if (!valid_host(v)) return refuse("not an IPv4 or IPv6 address or host name: " + v);
                o.host = v;
            } else if (a == "-p") {
                const auto port = parse_int(v, 1, 65535);
                if (!port) return refuse("port must be 1..65535: " + v);
                o.port = static_cast<uint16_t>(*port);
            } else if (a == "-U") {
                o.user = v;
            } else if (a == "-P") {
                o.password = v;
            } else if (a == "-f") {
                password_file = v;
            } else if (a == "-k") {
                o.kg = v;
            } else if (a == "-C") {
                const auto s = parse_suite(v);
                if (!s) return refuse("cipher suite must be 0, 1, 2, 3, 15, 16 or 17: " + v);
                o.cipher_suite = *s;
            } else if (a == "-L") {
                const auto p = parse_privilege(v);
                if (!p) return refuse("unknown privilege level: " + v);
                o.privilege = *p;
            } else if (a == "-R") {
                const auto n = parse_int(v, 1, 255);
                if (!n) return refuse("attempts must be 1..255: " + v);
                o.attempts = *n;
            } else if (a == "-N") {
                const auto n = parse_int(v, 1, 255);
                if (!n) return refuse("seconds must be 1..255: " + v);
                o.timeout = *n;
            } else if (a == "-t") {
                const auto t = parse_byte(v);
                if (!t) return refuse("target address must be a byte: " + v);
                o.target = *t;
            } else {
                const auto l = parse_int(v, 0, 3);
                if (!l) return refuse("LUN must be 0..3: " + v);
                o.lun = static_cast<uint8_t>(*l);
            }
            continue;
        }
        if (a.size() > 1 && a[0] == '-' && o.command.empty()) return refuse("unknown option: " + a);
        o.command.push_back(a);
    }
    if (password_from_env) {
        const char *p = std::getenv("IPMI_PASSWORD");
        if (p == nullptr) return refuse("-E given but IPMI_PASSWORD is not set");
        o.password = p;
    }
    if (password_file) {
        std::ifstream in(*password_file);
        if (!in) return refuse("cannot read password file " + *password_file);
        std::string line;
        std::getline(in, line);
        o.password = line;
    }
    if (o.command.empty()) return refuse("no command given");
    if (o.host.empty()) return refuse("no BMC given (-H HOST)");
    return Parsed::Run;
}

}  // namespace cli
