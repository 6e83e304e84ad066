// rmcpp: an IPMI v2.0 / RMCP+ command-line tool over librmcpp.
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
#include "trace_log.h"

namespace {

using cli::Bytes;
using cli::Fields;
using cli::Options;

// Lines of the library's log the error messages look for.
constexpr const char *kRakp2KeyInvalid = "Received Key of RAKP Message 2 is invalid.\n\n";
constexpr const char *kRakp4KeyInvalid = "Received Key of RAKP Message 4 is invalid.\n\n";

std::string sentence(std::string text)
{
    while (!text.empty() && (text.back() == '\n' || text.back() == '.')) text.pop_back();
    if (!text.empty()) text[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(text[0])));
    return text;
}

int fail(const std::string &what, int code)
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
    std::fprintf(stderr, "rmcpp: %s failed (%d): %s\n", what.c_str(), code, meaning.c_str());
    return 1;
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

// ------------------------------------------------------------ a session

class Session {
public:
    explicit Session(const Options &o) : o_(o) {}
    ~Session()
    {
        if (open_) IPMI_CloseSession(&p_);
    }

    int open()
    {
        std::memset(&p_, 0, sizeof p_);
        p_.bmc_address = o_.address;
        p_.port_option = o_.port_option;
        p_.user_name = o_.user.c_str();
        p_.user_password = o_.password ? o_.password->c_str() : nullptr;
        p_.privilege_level = o_.privilege;
        p_.cipher_suite_id = o_.cipher_suite;
        p_.user_lookup_option = o_.name_only ? 1 : 0;
        p_.two_key_login_option = o_.kg ? 1 : 0;
        p_.server_key = o_.kg ? o_.kg->c_str() : nullptr;
        p_.slave_address = o_.target;
        p_.lun = o_.lun;
        p_.retry_count = static_cast<uint16_t>(o_.attempts);
        p_.timeout_sec = static_cast<uint16_t>(o_.timeout);
        IPMI_SetupStandardKeys(o_.standard_keys ? 1 : 0);
        const int r = IPMI_SetupSession(&p_);
        open_ = r == 0;
        return r;
    }

    // One request/response exchange; fills the completion code and data.
    int exchange(uint8_t netfn, uint8_t cmd, const Bytes &data, uint8_t &cc, Bytes &response)
    {
        const IPMI_MsgHeader h = {netfn, 0x81, cmd, 0, static_cast<uint8_t>(seq_++ & 0x3F),
                                  static_cast<uint8_t>(netfn + 1), o_.target, o_.lun};
        Bytes request(data.size() + 7);
        int length = 0;
        int r = MakeIPMIRequest(&h, data.data(), static_cast<int>(data.size()), request.data(),
                                static_cast<int>(request.size()), &length);
        if (r != 0) return r;
        uint8_t buffer[1024];
        uint32_t received = 0, released = 0;
        r = IPMI_Message_IF(&p_, request.data(), static_cast<uint32_t>(length), buffer, sizeof buffer, &received, 0,
                            &released, o_.attempts, o_.timeout);
        if (released) open_ = false;
        if (r != 0) return r;
        if (received < 8) return RMCPP_ERR_HEADER;
        cc = buffer[6];
        response.assign(buffer + 7, buffer + received - 1);
        return 0;
    }

    int close()
    {
        if (!open_) return 0;
        open_ = false;
        return IPMI_CloseSession(&p_);
    }

    const IPMI_SessionParam &param() const { return p_; }

private:
    const Options &o_;
    IPMI_SessionParam p_{};
    bool open_ = false;
    unsigned seq_ = 1;
};

// Runs one request in a fresh session; the response data goes to `out`.
int request(const Options &o, const std::string &what, uint8_t netfn, uint8_t cmd, const Bytes &data, Bytes &out)
{
    Session s(o);
    int r = s.open();
    if (r != 0) return fail("establishment", r);
    uint8_t cc = 0;
    r = s.exchange(netfn, cmd, data, cc, out);
    if (r != 0) return fail(what, r);
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

int cmd_ping(const Options &o)
{
    int fd = -1;
    int r = init_socket(&fd, o.address, o.port_option == 1 ? 664 : 623, 0);
    if (r != 0) return fail("ping", r);
    const timeval limit = {o.timeout, 0};
    r = RMCP_PingPong(fd, o.attempts, &limit);
    ::close(fd);
    if (r != 0) return fail("ping", RMCPP_ERR_PING);
    if (o.json)
        std::printf("{\"host\": %s, \"pong\": true}\n", cli::json_string(o.host).c_str());
    else
        std::printf("%s answered the presence ping (IPMI supported)\n", o.host.c_str());
    return 0;
}

const char *algorithm(int kind, unsigned value)
{
    static const char *names[3][2] = {{"RAKP-none", "RAKP-HMAC-SHA1"},
                                      {"none", "HMAC-SHA1-96"},
                                      {"none", "AES-CBC-128"}};
    return value < 2 ? names[kind][value] : "unknown";
}

int cmd_session(const Options &o)
{
    Session s(o);
    int r = s.open();
    if (r != 0) return fail("establishment", r);
    const IPMI_SessionParam &p = s.param();
    const RMCPp_Session &rs = *p.session;
    const unsigned auth = o.cipher_suite >= 1 ? 1 : 0;
    char console_id[16], bmc_id[16];
    std::snprintf(console_id, sizeof console_id, "0x%08X", rs.console_session_id);
    std::snprintf(bmc_id, sizeof bmc_id, "0x%08X", rs.bmc_session_id);
    Fields f = {
        {"Cipher Suite", "cipher_suite", std::to_string(o.cipher_suite), true},
        {"Granted Privilege", "granted_privilege", cli::privilege_name(p.granted_privilege), false},
        {"Authentication", "authentication", algorithm(0, auth), false},
        {"Integrity", "integrity", algorithm(1, rs.integrity_alg), false},
        {"Confidentiality", "confidentiality", algorithm(2, rs.confidentiality_alg), false},
        {"Console Session ID", "console_session_id", console_id, false},
        {"BMC Session ID", "bmc_session_id", bmc_id, false},
        {"Key Mode", "key_mode", o.standard_keys ? "standard" : "library", false},
    };
    r = s.close();
    f.push_back({"Closed", "closed", r == 0 ? "true" : "false", true});
    print_fields(o, f);
    if (r != 0) return fail("close session", r);
    return 0;
}

int cmd_raw(const Options &o, const std::vector<std::string> &args)
{
    if (args.size() < 2) {
        std::fprintf(stderr, "rmcpp: raw needs NETFN and CMD\n");
        return 2;
    }
    Bytes bytes;
    for (const auto &a : args) {
        const auto b = cli::parse_byte(a);
        if (!b) {
            std::fprintf(stderr, "rmcpp: not a byte: %s\n", a.c_str());
            return 2;
        }
        bytes.push_back(*b);
    }
    if (bytes[0] > 0x3F) {
        std::fprintf(stderr, "rmcpp: netFn must be below 0x40\n");
        return 2;
    }
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
    if (it == controls.end()) {
        std::fprintf(stderr, "rmcpp: chassis power takes status, on, off, cycle, reset or soft\n");
        return 2;
    }
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
    std::fprintf(stderr, "rmcpp: unknown command: ");
    for (const auto &w : c) std::fprintf(stderr, "%s ", w.c_str());
    std::fprintf(stderr, "\n%s", cli::usage().c_str());
    return 2;
}

}  // namespace

int main(int argc, char **argv)
{
    Options o;
    if (const auto problem = cli::parse(argc, argv, o)) {
        if (*problem == "help") {
            std::fputs(cli::usage().c_str(), stdout);
            return 0;
        }
        std::fprintf(stderr, "rmcpp: %s\n\n%s", problem->c_str(), cli::usage().c_str());
        return 2;
    }
    cli::trace::set_verbose(o.verbose);
    cli::trace::watch(kRakp2KeyInvalid);
    cli::trace::watch(kRakp4KeyInvalid);
    return run(o);
}
