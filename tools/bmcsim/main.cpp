// rmcpp-bmcsim: the simulator as a program. Prints one line per event to
// standard output and stops on SIGINT or SIGTERM.
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "bmcsim.h"
#include "platform_file.h"

namespace {

using namespace bmcsim;

const char *kUsage = R"(usage: rmcpp-bmcsim [options]

A simulated IPMI v2.0 baseboard management controller on UDP.

  --address A[,B...] IPv4 or IPv6 address(es) to listen on (default
                     127.0.0.1), e.g. 127.0.0.5,::1 ("[::1]" also taken);
                     repeat the option or give a list. An item may be an
                     IPv4 range FIRST-LAST (127.1.0.1-127.1.39.16) or a
                     hostrange with numeric brackets (127.1.[0-3].[1-250],
                     127.0.19.[1-3,7]); up to 65536 addresses in all. One
                     process serves them all, each address as a BMC of its
                     own (its own sessions, session IDs and chassis) with
                     the same users and settings
  --threads N        server threads sharing the addresses (default 1)
  --quiet            log only the listening and stopping lines, not every
                     request (for large fleets)
  --port N           UDP port (default 623)
  --config FILE      read options from FILE: one per line, written without
                     the leading "--" ("user admin:secret:4"); '#' starts a comment;
                     files it names are found beside it
  --standard-keys    suites 1 to 3: key the integrity code with
                     K1 = HMAC-SHA1(SIK, 20 x 01) and make
                     K2 = HMAC-SHA1(SIK, 20 x 02), as IPMI v2.0 says; by
                     default the SIK itself keys the integrity code and
                     K2 = HMAC-SHA1(SIK, 64 x 02), as this library does.
                     Suites 15 to 17 always use K1 = HMAC-SHA256(SIK, 20 x 01)
                     and K2 = HMAC-SHA256(SIK, 20 x 02)
  --user NAME:PASSWORD[:PRIVILEGE[:disabled]]
                     add a user (repeatable; an empty NAME is the anonymous
                     user; PRIVILEGE 1..5, default 4)
  --kg HEX           the BMC key Kg (up to 20 bytes)
  --guid HEX         the 16-byte managed system GUID
  --suites LIST      cipher suites accepted and listed, from 0, 1, 2, 3
                     (HMAC-SHA1) and 15, 16, 17 (HMAC-SHA256); default all
  --no-pong          do not answer ASF presence pings (as many BMCs do)
  --max-privilege N  privilege granted when Open Session asks for 0 (default 4)
  --max-sessions N   sessions at once (default 16)
  --establishment-timeout MS
                     a session still being established with no request for
                     this long gives up its slot to a new console when the
                     table is full (default 10000)
  --session-id N     a fixed managed system session ID
  --seq-start N      first outbound session sequence number (default 1)
  --bridge-delay MS  delay of a bridged response (default 20)
  --lenient-window   take inbound sequence numbers any distance ahead
  --any-protection   take session packets with any valid protection, not
                     only the negotiated one
  --caps SETTINGS    channel capabilities, comma-separated: kg-set=0|1,
                     per-message-auth-disabled, user-auth-disabled,
                     no-v20-extended, no-v20-connections, completion-code=N,
                     data-length=N, channel=N
  --reply KIND:SETTINGS
                     how requests of KIND are answered, comma-separated:
                     silent, ignore=N, delay=MS, copies=N, strays=N,
                     stray=garbage|bad-header|other-class, faulty=N, then-correct
  --fault KIND:NAME[,index=N][,value=N]
                     answers of KIND carry one wrong field NAME

Device identity (Get Device ID):
  --device-id N            device ID (default 0x20)
  --device-revision N      device revision byte (default 1)
  --firmware M.mm          firmware revision, e.g. 2.15 (default)
  --ipmi-version M.m       IPMI version, e.g. 2.0 (default)
  --device-support N       additional device support bits (default 0xBF)
  --manufacturer N         manufacturer ID, an IANA number (default 0x5A5A)
  --product N              product ID (default 1)
  --aux HEX                4 bytes of auxiliary firmware revision (default 00000000)

Chassis (Get Chassis Status; Chassis Control changes power and last event):
  --power on|off           power state at start (default on)
  --chassis SETTINGS       comma-separated: policy=always-off|previous|always-on|unknown,
                           overload, interlock, power-fault, control-fault,
                           last-event=N, misc=N

Platform (the simulated machine):
  --platform FILE          a YAML file describing the machine: sensors (with
                           their SDR records and live readings); see
                           sample-platform.yaml

  --help             show this text

KIND is one of: ping, capabilities, open-session, rakp2, rakp4, session.
Numbers may be written in hex with 0x. Fault names:
  ping:          too-short length-29 length-40 rmcp-version rmcp-reserved
                 rmcp-sequence rmcp-class iana message-type message-tag
                 asf-reserved data-length second-iana oem supported-entities
                 supported-interactions trailing-reserved (index 0..5)
  capabilities:  rmcp-version rmcp-reserved rmcp-sequence rmcp-class auth-type
                 session-sequence session-id message-length checksum1
                 checksum2 rq-addr netfn rq-lun rs-addr rq-seq rs-lun command
  open-session, rakp2, rakp4:
                 rmcp-version rmcp-reserved rmcp-sequence rmcp-class
                 auth-format payload-type authenticated-bit encrypted-bit
                 session-id sequence-number length-field payload-length tag
                 status reserved console-session-id payload-byte
                 granted-privilege auth-algorithm integrity-algorithm
                 confidentiality-algorithm key-exchange-code
                 integrity-check-value
  session:       reorder replay wrong-session-id bad-integrity
                 bad-integrity-pad bad-integrity-pad-length bad-next-header
                 bad-confidentiality-pad bad-confidentiality-pad-length
                 bad-confidentiality-payload-length
                 short-confidentiality-payload other-protection completion-code
)";

struct Usage : std::runtime_error {
    using std::runtime_error::runtime_error;
};

template <class E>
using Names = std::vector<std::pair<std::string_view, E>>;

const Names<PongFault> kPongFaults = {
    {"too-short", PongFault::TooShort}, {"length-29", PongFault::Length29},
    {"length-40", PongFault::Length40}, {"rmcp-version", PongFault::RmcpVersion},
    {"rmcp-reserved", PongFault::RmcpReserved}, {"rmcp-sequence", PongFault::RmcpSequence},
    {"rmcp-class", PongFault::RmcpClass}, {"iana", PongFault::Iana},
    {"message-type", PongFault::MessageType}, {"message-tag", PongFault::MessageTag},
    {"asf-reserved", PongFault::AsfReserved}, {"data-length", PongFault::DataLength},
    {"second-iana", PongFault::SecondIana}, {"oem", PongFault::Oem},
    {"supported-entities", PongFault::SupportedEntities},
    {"supported-interactions", PongFault::SupportedInteractions},
    {"trailing-reserved", PongFault::TrailingReserved},
};

const Names<CapsFault> kCapsFaults = {
    {"rmcp-version", CapsFault::RmcpVersion}, {"rmcp-reserved", CapsFault::RmcpReserved},
    {"rmcp-sequence", CapsFault::RmcpSequence}, {"rmcp-class", CapsFault::RmcpClass},
    {"auth-type", CapsFault::AuthType}, {"session-sequence", CapsFault::SessionSequence},
    {"session-id", CapsFault::SessionId}, {"message-length", CapsFault::MessageLength},
    {"checksum1", CapsFault::Checksum1}, {"checksum2", CapsFault::Checksum2},
    {"rq-addr", CapsFault::RqAddr}, {"netfn", CapsFault::NetFn}, {"rq-lun", CapsFault::RqLun},
    {"rs-addr", CapsFault::RsAddr}, {"rq-seq", CapsFault::RqSeq}, {"rs-lun", CapsFault::RsLun},
    {"command", CapsFault::Command},
};

const Names<EstFault> kEstFaults = {
    {"rmcp-version", EstFault::RmcpVersion}, {"rmcp-reserved", EstFault::RmcpReserved},
    {"rmcp-sequence", EstFault::RmcpSequence}, {"rmcp-class", EstFault::RmcpClass},
    {"auth-format", EstFault::AuthFormat}, {"payload-type", EstFault::PayloadType},
    {"authenticated-bit", EstFault::AuthenticatedBit}, {"encrypted-bit", EstFault::EncryptedBit},
    {"session-id", EstFault::SessionId}, {"sequence-number", EstFault::SequenceNumber},
    {"length-field", EstFault::LengthField}, {"payload-length", EstFault::PayloadLength},
    {"tag", EstFault::Tag}, {"status", EstFault::Status}, {"reserved", EstFault::Reserved},
    {"console-session-id", EstFault::ConsoleSessionId}, {"payload-byte", EstFault::PayloadByte},
    {"granted-privilege", EstFault::GrantedPrivilege}, {"auth-algorithm", EstFault::AuthAlgorithm},
    {"integrity-algorithm", EstFault::IntegrityAlgorithm},
    {"confidentiality-algorithm", EstFault::ConfidentialityAlgorithm},
    {"key-exchange-code", EstFault::KeyExchangeCode},
    {"integrity-check-value", EstFault::IntegrityCheckValue},
};

const Names<SessionFault> kSessionFaults = {
    {"reorder", SessionFault::Reorder}, {"replay", SessionFault::Replay},
    {"wrong-session-id", SessionFault::WrongSessionId}, {"bad-integrity", SessionFault::BadIntegrity},
    {"bad-integrity-pad", SessionFault::BadIntegrityPad},
    {"bad-integrity-pad-length", SessionFault::BadIntegrityPadLength},
    {"bad-next-header", SessionFault::BadNextHeader},
    {"bad-confidentiality-pad", SessionFault::BadConfidentialityPad},
    {"bad-confidentiality-pad-length", SessionFault::BadConfidentialityPadLength},
    {"bad-confidentiality-payload-length", SessionFault::BadConfidentialityPayloadLength},
    {"short-confidentiality-payload", SessionFault::ShortConfidentialityPayload},
    {"other-protection", SessionFault::OtherProtection},
    {"completion-code", SessionFault::CompletionCode},
};

template <class E>
E named(const Names<E> &names, std::string_view name, const char *what)
{
    for (const auto &[n, e] : names)
        if (n == name) return e;
    throw Usage("unknown " + std::string(what) + " fault: " + std::string(name));
}

long number(const std::string &text, const char *what)
{
    char *end = nullptr;
    errno = 0;
    long v = std::strtol(text.c_str(), &end, 0);
    if (text.empty() || *end != '\0' || errno != 0) throw Usage(std::string("not a number for ") + what + ": " + text);
    return v;
}

Bytes hex_bytes(const std::string &text, size_t max, const char *what)
{
    std::string t = text.rfind("0x", 0) == 0 ? text.substr(2) : text;
    if (t.size() % 2 != 0 || t.size() / 2 > max) throw Usage(std::string("bad hex for ") + what + ": " + text);
    Bytes b;
    for (size_t i = 0; i < t.size(); i += 2) b.push_back(static_cast<uint8_t>(number("0x" + t.substr(i, 2), what)));
    return b;
}

std::vector<std::string> split(const std::string &s, char sep)
{
    std::vector<std::string> parts;
    std::string cur;
    std::istringstream in(s);
    while (std::getline(in, cur, sep)) parts.push_back(cur);
    if (!s.empty() && s.back() == sep) parts.push_back("");
    return parts;
}

// "key=value" or "key"
std::pair<std::string, std::string> setting(const std::string &s)
{
    size_t eq = s.find('=');
    if (eq == std::string::npos) return {s, ""};
    return {s.substr(0, eq), s.substr(eq + 1)};
}

Reply *reply_of(Config &c, const std::string &kind)
{
    if (kind == "ping") return &c.ping.reply;
    if (kind == "capabilities") return &c.capabilities.reply;
    if (kind == "open-session") return &c.open_session.reply;
    if (kind == "rakp2") return &c.rakp2.reply;
    if (kind == "rakp4") return &c.rakp4.reply;
    if (kind == "session") return &c.session.reply;
    throw Usage("unknown kind: " + kind);
}

void parse_reply(Config &c, const std::string &arg)
{
    size_t colon = arg.find(':');
    if (colon == std::string::npos) throw Usage("--reply wants KIND:SETTINGS");
    Reply &r = *reply_of(c, arg.substr(0, colon));
    for (const auto &s : split(arg.substr(colon + 1), ',')) {
        auto [key, value] = setting(s);
        if (key == "silent") r.silent = true;
        else if (key == "ignore") r.ignore_first = static_cast<int>(number(value, "ignore"));
        else if (key == "delay") r.delay_ms = static_cast<int>(number(value, "delay"));
        else if (key == "copies") r.copies = static_cast<int>(number(value, "copies"));
        else if (key == "strays") r.strays = static_cast<int>(number(value, "strays"));
        else if (key == "faulty") r.faulty_answers = static_cast<int>(number(value, "faulty"));
        else if (key == "then-correct") r.then_correct = true;
        else if (key == "stray") {
            if (value == "garbage") r.stray_kind = StrayKind::Garbage;
            else if (value == "bad-header") r.stray_kind = StrayKind::BadRmcpHeader;
            else if (value == "other-class") r.stray_kind = StrayKind::OtherClass;
            else throw Usage("unknown stray kind: " + value);
        } else throw Usage("unknown reply setting: " + key);
    }
}

void parse_fault(Config &c, const std::string &arg)
{
    size_t colon = arg.find(':');
    if (colon == std::string::npos) throw Usage("--fault wants KIND:NAME");
    std::string kind = arg.substr(0, colon);
    auto parts = split(arg.substr(colon + 1), ',');
    if (parts.empty()) throw Usage("--fault wants a fault name");
    int index = -1, value = -1;
    for (size_t i = 1; i < parts.size(); ++i) {
        auto [key, v] = setting(parts[i]);
        if (key == "index") index = static_cast<int>(number(v, "index"));
        else if (key == "value") value = static_cast<int>(number(v, "value"));
        else throw Usage("unknown fault setting: " + key);
    }
    const std::string &name = parts[0];
    if (kind == "ping") {
        c.ping.fault = named(kPongFaults, name, "ping");
        c.ping.index = index;
        c.ping.value = value;
    } else if (kind == "capabilities") {
        c.capabilities.fault = named(kCapsFaults, name, "capabilities");
        c.capabilities.value = value;
    } else if (kind == "open-session" || kind == "rakp2" || kind == "rakp4") {
        EstablishmentBehaviour &e = kind == "open-session" ? c.open_session : kind == "rakp2" ? c.rakp2 : c.rakp4;
        e.fault = named(kEstFaults, name, kind.c_str());
        e.index = index;
        e.value = value;
    } else if (kind == "session") {
        c.session.fault = named(kSessionFaults, name, "session");
        c.session.index = index;
        c.session.value = value;
    } else {
        throw Usage("unknown kind: " + kind);
    }
}

void parse_caps(Config &c, const std::string &arg)
{
    CapabilitiesBehaviour &k = c.capabilities;
    for (const auto &s : split(arg, ',')) {
        auto [key, value] = setting(s);
        if (key == "kg-set") k.kg_set = number(value, "kg-set") != 0;
        else if (key == "per-message-auth-disabled") k.per_message_auth_disabled = true;
        else if (key == "user-auth-disabled") k.user_auth_disabled = true;
        else if (key == "no-v20-extended") k.ipmi20_extended = false;
        else if (key == "no-v20-connections") k.ipmi20_connections = false;
        else if (key == "completion-code") k.completion_code = static_cast<uint8_t>(number(value, "completion-code"));
        else if (key == "data-length") k.data_length = static_cast<int>(number(value, "data-length"));
        else if (key == "channel") k.channel = static_cast<uint8_t>(number(value, "channel"));
        else throw Usage("unknown capabilities setting: " + key);
    }
}

void parse_user(Config &c, const std::string &arg)
{
    auto parts = split(arg, ':');
    if (parts.size() < 2 || parts.size() > 4) throw Usage("--user wants NAME:PASSWORD[:PRIVILEGE[:disabled]]");
    User u;
    u.name = parts[0];
    u.password = parts[1];
    if (u.name.size() > 16) throw Usage("user name longer than 16 bytes: " + u.name);
    if (u.password.size() > 20) throw Usage("password longer than 20 bytes for user " + u.name);
    if (parts.size() > 2) u.max_privilege = static_cast<uint8_t>(number(parts[2], "privilege"));
    if (parts.size() > 3) {
        if (parts[3] != "disabled") throw Usage("the fourth field of --user can only be 'disabled'");
        u.enabled = false;
    }
    c.users.push_back(u);
}

// Chassis settings "policy=previous,power-fault,last-event=0x10".
void parse_chassis(Config &c, const std::string &arg)
{
    ChassisState &k = c.chassis;
    for (const auto &s : split(arg, ',')) {
        auto [key, value] = setting(s);
        if (key == "policy") {
            if (value == "always-off") k.restore_policy = 0;
            else if (value == "previous") k.restore_policy = 1;
            else if (value == "always-on") k.restore_policy = 2;
            else if (value == "unknown") k.restore_policy = 3;
            else throw Usage("unknown power restore policy: " + value);
        } else if (key == "overload") k.power_overload = true;
        else if (key == "interlock") k.interlock = true;
        else if (key == "power-fault") k.power_fault = true;
        else if (key == "control-fault") k.control_fault = true;
        else if (key == "last-event") k.last_event = static_cast<uint8_t>(number(value, "last-event"));
        else if (key == "misc") k.misc = static_cast<uint8_t>(number(value, "misc"));
        else throw Usage("unknown chassis setting: " + key);
    }
}

// "2.15" -> major 2, minor 0x15 (two BCD digits; "2.5" is 2.50).
std::pair<uint8_t, uint8_t> revision(const std::string &text, const char *what, size_t minor_digits)
{
    size_t dot = text.find('.');
    std::string major = text.substr(0, dot);
    std::string minor = dot == std::string::npos ? "" : text.substr(dot + 1);
    if (major.empty() || minor.size() > minor_digits ||
        major.find_first_not_of("0123456789") != std::string::npos ||
        minor.find_first_not_of("0123456789") != std::string::npos)
        throw Usage(std::string("bad ") + what + ": " + text);
    minor.resize(minor_digits, '0');
    return {static_cast<uint8_t>(number(major, what)), static_cast<uint8_t>(std::stoul(minor, nullptr, 16))};
}

void parse_suites(Config &c, const std::string &list)
{
    const std::vector<int> &supported = supported_cipher_suites();
    c.cipher_suites.clear();
    for (const auto &s : split(list, ',')) {
        int suite = static_cast<int>(number(s, "suite"));
        if (std::find(supported.begin(), supported.end(), suite) == supported.end())
            throw Usage("cipher suite " + s + " is not served (0, 1, 2, 3, 15, 16 and 17 are)");
        c.cipher_suites.push_back(suite);
    }
}

bool address_given = false;  // the first --address replaces the default
bool quiet = false;

void add_addresses(Config &c, const std::string &list)
{
    std::vector<std::string> addresses;
    try {
        addresses = expand_addresses(list);
    } catch (const std::invalid_argument &e) {
        throw Usage(std::string("--address: ") + e.what());
    }
    if (c.extra_addresses.size() + addresses.size() >= kMaxAddresses)
        throw Usage("--address: more than " + std::to_string(kMaxAddresses) + " addresses in one simulator");
    for (auto &a : addresses) {
        if (!address_given) c.address = a;
        else c.extra_addresses.push_back(a);
        address_given = true;
    }
}

void apply(Config &c, const std::string &option, const std::string &value, bool &help);

// Configuration files may name further ones; a file that names itself,
// directly or through others, stops at this depth instead of recursing
// until the stack runs out.
constexpr int kMaxConfigDepth = 16;
int config_depth = 0;
// A file is read whole before it is applied, up to this size, so that a
// device without end (/dev/zero) or an endless pipe is refused rather than
// read until memory runs out.
constexpr size_t kMaxConfigBytes = 1 << 20;

std::string config_text(std::ifstream &in, const std::string &path)
{
    std::string text;
    char chunk[4096];
    while (in.read(chunk, sizeof chunk) || in.gcount() > 0) {
        text.append(chunk, static_cast<size_t>(in.gcount()));
        if (text.size() > kMaxConfigBytes) throw Usage("config file longer than 1 MiB: " + path);
    }
    return text;
}

void read_config(Config &c, const std::string &path, bool &help)
{
    if (config_depth >= kMaxConfigDepth)
        throw Usage("config files nest more than " + std::to_string(kMaxConfigDepth) + " deep: " + path);
    std::ifstream in(path);
    if (!in) throw Usage("cannot read " + path);
    struct Nesting {
        Nesting() { ++config_depth; }
        ~Nesting() { --config_depth; }
    } nesting;
    std::istringstream lines(config_text(in, path));
    std::string line;
    while (std::getline(lines, line)) {
        size_t hash = line.find('#');
        if (hash != std::string::npos) line.erase(hash);
        std::istringstream words(line);
        std::string option, value;
        if (!(words >> option)) continue;
        words >> value;
        // Files a config file names are found beside it.
        if ((option == "config" || option == "platform") && !value.empty() && value[0] != '/') {
            const size_t slash = path.rfind('/');
            if (slash != std::string::npos) value = path.substr(0, slash + 1) + value;
        }
        apply(c, "--" + option, value, help);
    }
}

bool takes_value(const std::string &option)
{
    return option != "--help" && option != "--lenient-window" && option != "--any-protection" &&
           option != "--standard-keys" && option != "--no-pong" && option != "--quiet";
}

void apply(Config &c, const std::string &option, const std::string &value, bool &help)
{
    if (option == "--help") help = true;
    else if (option == "--lenient-window") c.session.strict_inbound_window = false;
    else if (option == "--any-protection") c.session.require_negotiated_protection = false;
    else if (option == "--standard-keys") c.standard_keys = true;
    else if (option == "--no-pong") c.ping.pong = false;
    else if (option == "--quiet") quiet = true;
    else if (option == "--threads") {
        long n = number(value, "threads");
        if (n < 1 || n > 64) throw Usage("--threads wants 1 to 64");
        c.server_threads = static_cast<int>(n);
    }
    else if (option == "--address") add_addresses(c, value);
    else if (option == "--port") c.port = static_cast<uint16_t>(number(value, "port"));
    else if (option == "--config") read_config(c, value, help);
    else if (option == "--user") parse_user(c, value);
    else if (option == "--kg") c.kg = hex_bytes(value, 20, "kg");
    else if (option == "--guid") {
        Bytes g = hex_bytes(value, 16, "guid");
        if (g.size() != 16) throw Usage("--guid wants 16 bytes");
        std::copy(g.begin(), g.end(), c.guid.begin());
    } else if (option == "--suites") parse_suites(c, value);
    else if (option == "--max-privilege") c.channel_max_privilege = static_cast<uint8_t>(number(value, "max-privilege"));
    else if (option == "--max-sessions") c.max_sessions = static_cast<int>(number(value, "max-sessions"));
    else if (option == "--establishment-timeout")
        c.establishment_timeout_ms = static_cast<int>(number(value, "establishment-timeout"));
    else if (option == "--session-id") c.bmc_session_id = static_cast<uint32_t>(std::stoul(value, nullptr, 0));
    else if (option == "--seq-start") c.session.outbound_sequence_start = static_cast<uint32_t>(std::stoul(value, nullptr, 0));
    else if (option == "--bridge-delay") c.session.bridge_delay_ms = static_cast<int>(number(value, "bridge-delay"));
    else if (option == "--caps") parse_caps(c, value);
    else if (option == "--device-id") c.device.device_id = static_cast<uint8_t>(number(value, "device-id"));
    else if (option == "--device-revision") c.device.device_revision = static_cast<uint8_t>(number(value, "device-revision"));
    else if (option == "--firmware") {
        auto [major, minor] = revision(value, "firmware", 2);
        if (major > 0x7F) throw Usage("firmware major revision above 127: " + value);
        c.device.firmware_major = major;
        c.device.firmware_minor = minor;
    } else if (option == "--ipmi-version") {
        auto [major, minor] = revision(value, "ipmi-version", 1);
        if (major > 9) throw Usage("bad ipmi-version: " + value);
        c.device.ipmi_version = static_cast<uint8_t>((minor << 4) | major);
    } else if (option == "--device-support") c.device.additional_support = static_cast<uint8_t>(number(value, "device-support"));
    else if (option == "--manufacturer") {
        long m = number(value, "manufacturer");
        if (m < 0 || m > 0xFFFFF) throw Usage("manufacturer ID above 20 bits: " + value);
        c.device.manufacturer = static_cast<uint32_t>(m);
    } else if (option == "--product") c.device.product = static_cast<uint16_t>(number(value, "product"));
    else if (option == "--aux") {
        Bytes a = hex_bytes(value, 4, "aux");
        if (a.size() != 4) throw Usage("--aux wants 4 bytes");
        std::copy(a.begin(), a.end(), c.device.aux.begin());
    } else if (option == "--power") {
        if (value != "on" && value != "off") throw Usage("--power wants on or off");
        c.chassis.power_on = value == "on";
    } else if (option == "--chassis") parse_chassis(c, value);
    else if (option == "--platform") load_platform_file(value, c);
    else if (option == "--reply") parse_reply(c, value);
    else if (option == "--fault") parse_fault(c, value);
    else throw Usage("unknown option: " + option);
}

void print(const std::string &line)
{
    auto now = std::chrono::system_clock::now();
    std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    long ms = static_cast<long>(
        std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000);
    tm t{};
    localtime_r(&seconds, &t);
    std::printf("%02d:%02d:%02d.%03ld %s\n", t.tm_hour, t.tm_min, t.tm_sec, ms, line.c_str());
    std::fflush(stdout);
}

}  // namespace

int main(int argc, char **argv)
{
    Config config;
    bool help = false;
    try {
        for (int i = 1; i < argc; ++i) {
            std::string option = argv[i];
            std::string value;
            if (takes_value(option)) {
                if (i + 1 >= argc) throw Usage(option + " needs a value");
                value = argv[++i];
            }
            apply(config, option, value, help);
        }
    } catch (const std::exception &e) {
        std::fprintf(stderr, "rmcpp-bmcsim: %s\n(see --help)\n", e.what());
        return 2;
    }
    if (help) {
        std::fputs(kUsage, stdout);
        return 0;
    }

    // The signals are taken by sigwait below, so block them before any thread starts.
    sigset_t stop_signals;
    sigemptyset(&stop_signals);
    sigaddset(&stop_signals, SIGINT);
    sigaddset(&stop_signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stop_signals, nullptr);

    config.on_threshold_crossing = [](const ThresholdCrossing &x) {
        char line[160];
        std::snprintf(line, sizeof line, "sensor %02Xh (%s): threshold event offset %02Xh %s at %.2f",
                      x.sensor_number, x.sensor_name.c_str(), x.event_offset,
                      x.asserted ? "asserted" : "deasserted", x.reading);
        print(line);
    };
    // Nobody reads the record of a program; it would only grow.
    config.keep_record = false;
    Simulator sim(config);
    sim.on_log([](const std::string &line) {
        if (!quiet || line.rfind("listening on ", 0) == 0 || line == "stopped") print(line);
    });
    try {
        sim.start();
    } catch (const std::exception &e) {
        std::fprintf(stderr, "rmcpp-bmcsim: %s\n", e.what());
        return 1;
    }
    int sig = 0;
    sigwait(&stop_signals, &sig);
    print(std::string("stopping on ") + (sig == SIGINT ? "SIGINT" : "SIGTERM"));
    sim.stop();
    return 0;
}
