#include "options.h"

#include <arpa/inet.h>
#include <netdb.h>

#include <cstdlib>
#include <fstream>
#include <map>

namespace cli {

std::string usage()
{
    return R"(usage: rmcpp [options] COMMAND [ARGUMENTS]

Talks to a BMC over IPMI v2.0 / RMCP+ (UDP).

Options:
  -H HOST        BMC address (IPv4 address or host name)
  -p PORT        UDP port: 623 (default) or 664
  -U USER        user name (up to 16 characters; empty for anonymous)
  -P PASSWORD    password (up to 20 characters)
  -E             take the password from the IPMI_PASSWORD environment variable
  -f FILE        take the password from the first line of FILE
  -k KG          BMC key Kg for two-key login
  -C SUITE       cipher suite 0..3 (default 3)
  -L PRIVILEGE   CALLBACK, USER, OPERATOR, ADMINISTRATOR, OEM, or 0 for the
                 highest level the BMC grants (default 0)
  --name-only    name-only user look-up
  -R COUNT       attempts per request (default 3)
  -N SECONDS     wait per attempt (default 2)
  -t ADDRESS     target (responder) slave address (default 0x20)
  --lun LUN      target LUN 0..3 (default 0)
  --standard-keys
                 derive K1 and K2 as IPMI v2.0 defines them (for BMCs that
                 key the integrity code with K1)
  -v             show the library's log lines on standard error
  --json         print results as JSON
  -h, --help     show this text

Commands:
  ping                              ASF presence ping
  session                           establish a session, show it, close it
  raw NETFN CMD [DATA...]           send one IPMI request, print the response
  mc info                           Get Device ID, decoded
  mc selftest                       Get Self Test Results, decoded
  chassis status                    Get Chassis Status, decoded
  chassis power status|on|off|cycle|reset|soft

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

std::optional<uint32_t> resolve(const std::string &host)
{
    in_addr a{};
    if (inet_aton(host.c_str(), &a) != 0) return ntohl(a.s_addr);
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_DGRAM;
    addrinfo *found = nullptr;
    if (getaddrinfo(host.c_str(), nullptr, &hints, &found) != 0 || found == nullptr) return std::nullopt;
    const uint32_t address = ntohl(reinterpret_cast<sockaddr_in *>(found->ai_addr)->sin_addr.s_addr);
    freeaddrinfo(found);
    return address;
}

std::optional<int> parse_int(const std::string &text, int low, int high)
{
    if (text.empty()) return std::nullopt;
    char *end = nullptr;
    const long v = std::strtol(text.c_str(), &end, 0);
    if (*end != '\0' || v < low || v > high) return std::nullopt;
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

}  // namespace

std::optional<std::string> parse(int argc, char **argv, Options &o)
{
    std::vector<std::string> args(argv + 1, argv + argc);
    bool password_from_env = false;
    std::optional<std::string> password_file;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string &a = args[i];
        auto value = [&](const char *name) -> std::optional<std::string> {
            if (i + 1 >= args.size()) return std::nullopt;
            (void)name;
            return args[++i];
        };
        if (a == "-h" || a == "--help") return std::string("help");
        if (a == "--name-only") { o.name_only = true; continue; }
        if (a == "--standard-keys") { o.standard_keys = true; continue; }
        if (a == "-v") { o.verbose = true; continue; }
        if (a == "--json") { o.json = true; continue; }
        if (a == "-E") { password_from_env = true; continue; }
        if (a == "-H" || a == "-p" || a == "-U" || a == "-P" || a == "-f" || a == "-k" || a == "-C" || a == "-L" ||
            a == "-R" || a == "-N" || a == "-t" || a == "--lun") {
            const auto v = value(a.c_str());
            if (!v) return "option " + a + " needs a value";
            if (a == "-H") {
                o.host = *v;
            } else if (a == "-p") {
                if (*v == "623") o.port_option = 0;
                else if (*v == "664") o.port_option = 1;
                else return "port must be 623 or 664: " + *v;
            } else if (a == "-U") {
                o.user = *v;
            } else if (a == "-P") {
                o.password = *v;
            } else if (a == "-f") {
                password_file = *v;
            } else if (a == "-k") {
                o.kg = *v;
            } else if (a == "-C") {
                const auto s = parse_int(*v, 0, 3);
                if (!s) return "cipher suite must be 0, 1, 2 or 3: " + *v;
                o.cipher_suite = *s;
            } else if (a == "-L") {
                const auto p = parse_privilege(*v);
                if (!p) return "unknown privilege level: " + *v;
                o.privilege = *p;
            } else if (a == "-R") {
                const auto n = parse_int(*v, 1, 255);
                if (!n) return "attempts must be 1..255: " + *v;
                o.attempts = *n;
            } else if (a == "-N") {
                const auto n = parse_int(*v, 1, 255);
                if (!n) return "seconds must be 1..255: " + *v;
                o.timeout = *n;
            } else if (a == "-t") {
                const auto t = parse_byte(*v);
                if (!t) return "target address must be a byte: " + *v;
                o.target = *t;
            } else {
                const auto l = parse_int(*v, 0, 3);
                if (!l) return "LUN must be 0..3: " + *v;
                o.lun = static_cast<uint8_t>(*l);
            }
            continue;
        }
        if (a.size() > 1 && a[0] == '-' && o.command.empty()) return "unknown option: " + a;
        o.command.push_back(a);
    }
    if (password_from_env) {
        const char *p = std::getenv("IPMI_PASSWORD");
        if (p == nullptr) return std::string("-E given but IPMI_PASSWORD is not set");
        o.password = p;
    }
    if (password_file) {
        std::ifstream in(*password_file);
        if (!in) return "cannot read password file " + *password_file;
        std::string line;
        std::getline(in, line);
        o.password = line;
    }
    if (o.command.empty()) return std::string("no command given");
    if (o.host.empty()) return std::string("no BMC given (-H HOST)");
    const auto address = resolve(o.host);
    if (!address) return "cannot resolve host " + o.host;
    o.address = *address;
    return std::nullopt;
}

}  // namespace cli
