// rmcpp: an IPMI v2.0 / RMCP+ command-line tool over librmcpp.
#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "decode.h"
#include "options.h"
#include "rmcpp.h"
#include "session.h"
#include "trace_log.h"

namespace {

using cli::Bytes;
using cli::Fields;
using cli::Options;
using cli::Session;

// Lines of the library's log the error messages look for.
constexpr const char *kRakp2KeyInvalid = "Received Key of RAKP Message 2 is invalid.\n\n";
constexpr const char *kRakp4KeyInvalid = "Received Key of RAKP Message 4 is invalid.\n\n";

std::string sentence(std::string text)
{
    while (!text.empty() && (text.back() == '\n' || text.back() == '.')) text.pop_back();
    if (!text.empty()) text[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(text[0])));
    return text;
}

// A hint for the BMC that never answers the presence ping.
constexpr const char *kNoPingHint = "; if the BMC never answers presence pings, try --no-ping";

int fail(const std::string &what, int code, const std::string &hint = "")
{
    std::string meaning = rmcpp_strerror(code);
    if (code == RMCPP_ERR_STATUS && cli::trace::seen(kRakp2KeyInvalid)) {
        meaning = "the key exchange code in RAKP 2 did not match: wrong password (or Kg); the session was refused";
    } else if (code == RMCPP_ERR_HEADER && cli::trace::seen(kRakp4KeyInvalid)) {
        meaning = "the integrity check value in RAKP 4 did not match: the two sides derived different session "
                  "keys (wrong Kg?)";
    } else if (code == RMCPP_ERR_STATUS) {
        if (const auto status = cli::trace::last_status_code()) {
            char text[160];
            std::snprintf(text, sizeof text, "the BMC answered with RMCP+ status 0x%02X, %s", status->first,
                          sentence(status->second).c_str());
            meaning = text;
        }
    }
    std::string extra = hint;
    if (extra.empty() && code == RMCPP_ERR_PING && what != "ping") extra = kNoPingHint;
    std::fprintf(stderr, "rmcpp: %s failed (%d): %s%s\n", what.c_str(), code, meaning.c_str(), extra.c_str());
    return 1;
}

// A usage error found after parsing: one line and a pointer to the help.
int usage_error(const std::string &text)
{
    std::fprintf(stderr, "rmcpp: %s; see rmcpp --help\n", text.c_str());
    return 2;
}

void warn(const std::string &what, int code)
{
    std::fprintf(stderr, "rmcpp: warning: %s failed (%d): %s\n", what.c_str(), code, rmcpp_strerror(code));
}

const char *completion_text(uint8_t cc)
{
    static const std::map<uint8_t, const char *> texts = {
        {0xC0, "node busy"},
        {0xC1, "invalid command"},
        {0xC2, "command invalid for given LUN"},
        {0xC3, "timeout while processing command"},
        {0xC4, "out of space"},
        {0xC5, "reservation cancelled or invalid"},
        {0xC6, "request data truncated"},
        {0xC7, "request data length invalid"},
        {0xC8, "request data field length limit exceeded"},
        {0xC9, "parameter out of range"},
        {0xCA, "cannot return number of requested data bytes"},
        {0xCB, "requested sensor, data, or record not present"},
        {0xCC, "invalid data field in request"},
        {0xCD, "command illegal for specified sensor or record type"},
        {0xCE, "command response could not be provided"},
        {0xCF, "cannot execute duplicated request"},
        {0xD0, "SDR repository in update mode"},
        {0xD1, "device in firmware update mode"},
        {0xD2, "BMC initialization in progress"},
        {0xD3, "destination unavailable"},
        {0xD4, "insufficient privilege level"},
        {0xD5, "command not supported in present state"},
        {0xD6, "sub-function disabled or unavailable"},
        {0xFF, "unspecified error"},
    };
    const auto it = texts.find(cc);
    return it == texts.end() ? "unknown completion code" : it->second;
}

void print_fields(const Options &o, const Fields &fields)
{
    if (o.json) {
        std::printf("%s\n", cli::json_object(fields).c_str());
        return;
    }
    size_t width = 0;
    for (const auto &f : fields) width = std::max(width, f.label.size());
    for (const auto &f : fields) std::printf("%-*s : %s\n", static_cast<int>(width), f.label.c_str(), f.text.c_str());
}

// Runs one request in a fresh session; the response data goes to `out`.
int request(const Options &o, const std::string &what, uint8_t netfn, uint8_t cmd, const Bytes &data, Bytes &out)
{
    Session s(o);
    int r = s.open();
    if (r != 0) return fail("establishment", r);
    uint8_t cc = 0;
    r = s.exchange(netfn, cmd, data, cc, out);
    if (r != 0) return fail(what, r, s.hint(r));
    if (cc != 0) {
        s.close();
        std::fprintf(stderr, "rmcpp: %s failed: completion code 0x%02X (%s)\n", what.c_str(), cc, completion_text(cc));
        return 1;
    }
    // The command's result is what counts; a session left open times out
    // on the BMC by itself.
    r = s.close();
    if (r != 0) warn("close session", r);
    return 0;
}

// ------------------------------------------------------------ commands

// The host without the brackets of an IPv6 literal ("[::1]").
std::string bare_host(const std::string &host)
{
    if (host.size() >= 2 && host.front() == '[' && host.back() == ']') return host.substr(1, host.size() - 2);
    return host;
}

// With --port-range the ping leaves from the first free port of 7001..7099,
// as sessions then do.
bool bind_port_range(int fd, int family)
{
    for (uint16_t port = 7001; port <= 7099; ++port) {
        sockaddr_storage local{};
        socklen_t length = 0;
        if (family == AF_INET6) {
            auto *a = reinterpret_cast<sockaddr_in6 *>(&local);
            a->sin6_family = AF_INET6;
            a->sin6_port = htons(port);
            length = sizeof *a;
        } else {
            auto *a = reinterpret_cast<sockaddr_in *>(&local);
            a->sin_family = AF_INET;
            a->sin_port = htons(port);
            length = sizeof *a;
        }
        if (bind(fd, reinterpret_cast<sockaddr *>(&local), length) == 0) return true;
    }
    return false;
}

// Pings each address the host resolves to until one answers.
int cmd_ping(const Options &o)
{
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_DGRAM;
    hints.ai_protocol = IPPROTO_UDP;
    addrinfo *found = nullptr;
    const std::string port = std::to_string(o.port != 0 ? o.port : 623);
    if (getaddrinfo(bare_host(o.host).c_str(), port.c_str(), &hints, &found) != 0 || found == nullptr)
        return fail("ping", RMCPP_ERR_RESOLVE);
    int result = RMCPP_ERR_SOCKET;
    for (const addrinfo *a = found; a != nullptr && result != 0; a = a->ai_next) {
        const int fd = socket(a->ai_family, a->ai_socktype | SOCK_CLOEXEC, a->ai_protocol);
        if (fd < 0) continue;
        if (o.port_range && !bind_port_range(fd, a->ai_family)) {
            result = RMCPP_ERR_BIND;
        } else if (connect(fd, a->ai_addr, a->ai_addrlen) == 0) {
            const timeval limit = {o.timeout, 0};
            result = RMCP_PingPong(fd, o.attempts, &limit) == 0 ? 0 : RMCPP_ERR_PING;
        }
        ::close(fd);
    }
    freeaddrinfo(found);
    if (result != 0) return fail("ping", result);
    if (o.json)
        std::printf("{\"host\": %s, \"pong\": true}\n", cli::json_string(o.host).c_str());
    else
        std::printf("%s answered the presence ping (IPMI supported)\n", o.host.c_str());
    return 0;
}

// Algorithm names by their IPMI v2.0 numbers, as the session shows them.
const char *algorithm(int kind, unsigned value)
{
    static const char *const authentication[] = {"RAKP-none", "RAKP-HMAC-SHA1", "RAKP-HMAC-MD5",
                                                 "RAKP-HMAC-SHA256"};
    static const char *const integrity[] = {"none", "HMAC-SHA1-96", "HMAC-MD5-128", "MD5-128", "HMAC-SHA256-128"};
    static const char *const confidentiality[] = {"none", "AES-CBC-128", "xRC4-128", "xRC4-40"};
    switch (kind) {
    case 0: return value < 4 ? authentication[value] : "unknown";
    case 1: return value < 5 ? integrity[value] : "unknown";
    default: return value < 4 ? confidentiality[value] : "unknown";
    }
}

// The same names as ipmitool's `channel getciphers` writes them.
std::string cipher_algorithm(int kind, unsigned value)
{
    static const char *const authentication[] = {"none", "hmac_sha1", "hmac_md5", "hmac_sha256"};
    static const char *const integrity[] = {"none", "hmac_sha1_96", "hmac_md5_128", "md5_128", "sha256_128"};
    static const char *const confidentiality[] = {"none", "aes_cbc_128", "xrc4_128", "xrc4_40"};
    const char *name = nullptr;
    switch (kind) {
    case 0: name = value < 4 ? authentication[value] : nullptr; break;
    case 1: name = value < 5 ? integrity[value] : nullptr; break;
    default: name = value < 4 ? confidentiality[value] : nullptr; break;
    }
    if (name != nullptr) return name;
    char text[16];
    std::snprintf(text, sizeof text, "0x%02x", value);
    return text;
}

unsigned authentication_of(int suite)
{
    if (suite >= 15) return 3;
    return suite >= 1 ? 1 : 0;
}

int cmd_session(const Options &o)
{
    Session s(o);
    int r = s.open();
    if (r != 0) return fail("establishment", r);
    const IPMI_SessionParam &p = s.param();
    const RMCPp_Session &rs = *p.session;
    char console_id[16], bmc_id[16];
    std::snprintf(console_id, sizeof console_id, "0x%08X", rs.console_session_id);
    std::snprintf(bmc_id, sizeof bmc_id, "0x%08X", rs.bmc_session_id);
    const bool standard = o.standard_keys || s.suite() >= 15;
    Fields f = {
        {"Cipher Suite", "cipher_suite", std::to_string(s.suite()), true},
        {"Granted Privilege", "granted_privilege", cli::privilege_name(p.granted_privilege), false},
        {"Authentication", "authentication", algorithm(0, authentication_of(s.suite())), false},
        {"Integrity", "integrity", algorithm(1, rs.integrity_alg), false},
        {"Confidentiality", "confidentiality", algorithm(2, rs.confidentiality_alg), false},
        {"Console Session ID", "console_session_id", console_id, false},
        {"BMC Session ID", "bmc_session_id", bmc_id, false},
        {"Key Mode", "key_mode", standard ? "standard" : "library", false},
    };
    r = s.close();
    f.push_back({"Closed", "closed", r == 0 ? "true" : "false", true});
    print_fields(o, f);
    if (r != 0) return fail("close session", r, s.hint(r));
    return 0;
}

int cmd_channel_ciphers(const Options &o, const std::vector<std::string> &args)
{
    if (args.size() > 1) return usage_error("channel ciphers takes at most one CHANNEL");
    uint8_t channel = 0x0E;
    if (args.size() == 1) {
        const auto c = cli::parse_byte(args[0]);
        if (!c || *c > 0x0F) return usage_error("channel must be 0..15: " + args[0]);
        channel = *c;
    }
    IPMI_SessionParam p;
    fill_param(o, o.cipher_suite.value_or(3), p);
    const RMCPP_SessionOptions so = session_options(o);
    RMCPP_ChannelCipherSuites list{};
    list.size = sizeof list;
    const int r = rmcpp_get_channel_cipher_suites(&p, &so, channel, &list);
    if (r != 0) return fail("channel ciphers", r);
    const uint32_t count = std::min<uint32_t>(list.count, RMCPP_MAX_CIPHER_SUITES);
    if (o.json) {
        std::string out = "{\"channel\": " + std::to_string(channel) + ", \"cipher_suites\": [";
        for (uint32_t i = 0; i < count; ++i) {
            const RMCPP_CipherSuite &c = list.suites[i];
            out += (i ? ", " : "") + cli::json_object({
                                         {"", "id", std::to_string(c.id), true},
                                         {"", "authentication", cipher_algorithm(0, c.auth_alg), false},
                                         {"", "integrity", cipher_algorithm(1, c.integrity_alg), false},
                                         {"", "confidentiality", cipher_algorithm(2, c.confidentiality_alg), false},
                                     });
        }
        std::printf("%s]}\n", out.c_str());
        return 0;
    }
    std::printf("%-5s%-16s%-16s%s\n", "ID", "Auth Alg", "Integrity Alg", "Confidentiality Alg");
    for (uint32_t i = 0; i < count; ++i) {
        const RMCPP_CipherSuite &c = list.suites[i];
        std::printf("%-5u%-16s%-16s%s\n", c.id, cipher_algorithm(0, c.auth_alg).c_str(),
                    cipher_algorithm(1, c.integrity_alg).c_str(), cipher_algorithm(2, c.confidentiality_alg).c_str());
    }
    return 0;
}

int cmd_raw(const Options &o, const std::vector<std::string> &args)
{
    if (args.size() < 2) return usage_error("raw needs NETFN and CMD");
    Bytes bytes;
    for (const auto &a : args) {
        const auto b = cli::parse_byte(a);
        if (!b) return usage_error("not a byte: " + a);
        bytes.push_back(*b);
    }
    if (bytes[0] > 0x3F) return usage_error("netFn must be below 0x40");
    Bytes out;
    const int r = request(o, "raw request", bytes[0], bytes[1], Bytes(bytes.begin() + 2, bytes.end()), out);
    if (r != 0) return r;
    if (o.json)
        std::printf("{\"completion_code\": 0, \"data\": %s}\n", cli::json_string(cli::hex_bytes(out)).c_str());
    else
        std::printf("%s\n", cli::hex_bytes(out).c_str());
    return 0;
}

int cmd_decoded(const Options &o, const std::string &what, uint8_t netfn, uint8_t cmd,
                std::optional<Fields> (*decode)(const Bytes &))
{
    Bytes out;
    const int r = request(o, what, netfn, cmd, {}, out);
    if (r != 0) return r;
    const auto fields = decode(out);
    if (!fields) {
        std::fprintf(stderr, "rmcpp: %s: response too short (%zu bytes)\n", what.c_str(), out.size());
        return 1;
    }
    print_fields(o, *fields);
    return 0;
}

int cmd_power(const Options &o, const std::string &action)
{
    if (action == "status") {
        Bytes out;
        const int r = request(o, "chassis power status", 0x00, 0x01, {}, out);
        if (r != 0) return r;
        if (out.empty()) return fail("chassis power status", RMCPP_ERR_DATA_LENGTH);
        const bool on = out[0] & 1;
        if (o.json)
            std::printf("{\"chassis_power\": \"%s\"}\n", on ? "on" : "off");
        else
            std::printf("Chassis Power is %s\n", on ? "on" : "off");
        return 0;
    }
    static const std::map<std::string, std::pair<uint8_t, const char *>> controls = {
        {"off", {0x00, "Down/Off"}},  {"on", {0x01, "Up/On"}},    {"cycle", {0x02, "Cycle"}},
        {"reset", {0x03, "Reset"}},   {"soft", {0x05, "Soft"}},
    };
    const auto it = controls.find(action);
    if (it == controls.end()) return usage_error("chassis power takes status, on, off, cycle, reset or soft");
    Bytes out;
    const int r = request(o, "chassis power " + action, 0x00, 0x02, {it->second.first}, out);
    if (r != 0) return r;
    if (o.json)
        std::printf("{\"chassis_control\": %s}\n", cli::json_string(action).c_str());
    else
        std::printf("Chassis Power Control: %s\n", it->second.second);
    return 0;
}

int run(const Options &o)
{
    const auto &c = o.command;
    const std::vector<std::string> rest(c.begin() + 1, c.end());
    if (c[0] == "ping" && rest.empty()) return cmd_ping(o);
    if (c[0] == "session" && rest.empty()) return cmd_session(o);
    if (c[0] == "raw") return cmd_raw(o, rest);
    if (c[0] == "mc" && rest.size() == 1 && rest[0] == "info")
        return cmd_decoded(o, "mc info", 0x06, 0x01, cli::decode_device_id);
    if (c[0] == "mc" && rest.size() == 1 && rest[0] == "selftest")
        return cmd_decoded(o, "mc selftest", 0x06, 0x04, cli::decode_self_test);
    if (c[0] == "chassis" && rest.size() == 1 && rest[0] == "status")
        return cmd_decoded(o, "chassis status", 0x00, 0x01, cli::decode_chassis_status);
    if (c[0] == "chassis" && rest.size() == 2 && rest[0] == "power") return cmd_power(o, rest[1]);
    if (c[0] == "channel" && !rest.empty() && rest[0] == "ciphers")
        return cmd_channel_ciphers(o, std::vector<std::string>(rest.begin() + 1, rest.end()));
    std::string words;
    for (const auto &w : c) words += (words.empty() ? "" : " ") + w;
    return usage_error("unknown command: " + words);
}

}  // namespace

int main(int argc, char **argv)
{
    Options o;
    std::string problem;
    switch (cli::parse(argc, argv, o, problem)) {
    case cli::Parsed::Help:
        std::fputs(cli::usage().c_str(), stdout);
        return 0;
    case cli::Parsed::Version:
        std::printf("rmcpp %s\nlibrmcpp %s\n", RMCPP_TOOL_VERSION, rmcpp_version());
        return 0;
    case cli::Parsed::UsageError:
        return usage_error(problem);
    case cli::Parsed::Run:
        break;
    }
    cli::trace::set_verbose(o.verbose);
    cli::trace::watch(kRakp2KeyInvalid);
    cli::trace::watch(kRakp4KeyInvalid);
    return run(o);
}
