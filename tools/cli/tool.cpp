#include "tool.h"

#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <map>

#include "decode.h"
#include "rmcpp.h"
#include "session.h"
#include "trace_log.h"

namespace cli {

using rmcpp::commands::call;
using rmcpp::commands::CommandError;
using rmcpp::commands::Transport;

namespace {

// A usage error found once the command line is parsed.
struct UsageProblem {
    std::string text;
};
struct VersionWanted {};

std::string join(const std::vector<std::string> &words, const std::string &separator)
{
    std::string out;
    for (const auto &w : words) out += (out.empty() ? "" : separator) + w;
    return out;
}

// "a, b or c"
std::string alternatives(const std::vector<std::string> &words)
{
    std::string out;
    for (size_t i = 0; i < words.size(); ++i) out += (i == 0 ? "" : i + 1 == words.size() ? " or " : ", ") + words[i];
    return out;
}

std::vector<const CLI::App *> subcommands_of(const CLI::App &app)
{
    return app.get_subcommands([](const CLI::App *) { return true; });
}

// The root's help is the tool's overview; each command's is CLI11's.
class Formatter : public CLI::Formatter {
public:
    explicit Formatter(const Tool &tool) : tool_(tool) { column_width(24); }
    std::string make_help(const CLI::App *app, std::string name, CLI::AppFormatMode mode) const override
    {
        if (app->get_parent() == nullptr) return tool_.overview();
        return CLI::Formatter::make_help(app, std::move(name), mode);
    }

private:
    const Tool &tool_;
};

// ------------------------------------------------------------ ping

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

// Pings each address the host resolves to until one answers; 0 or the
// library's result code.
int presence_ping(const Options &o)
{
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_DGRAM;
    hints.ai_protocol = IPPROTO_UDP;
    addrinfo *found = nullptr;
    const std::string port = std::to_string(o.port != 0 ? o.port : 623);
    if (getaddrinfo(bare_host(o.host).c_str(), port.c_str(), &hints, &found) != 0 || found == nullptr)
        return RMCPP_ERR_RESOLVE;
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
    return result;
}

void cmd_ping(const Options &o, ToolRunner &runner)
{
    const int r = presence_ping(o);
    if (r != 0) return runner.fail(Failure::library("ping", r));
    runner.print({o.host + " answered the presence ping (IPMI supported)\n", {{"host", o.host}, {"pong", true}}});
}

// ------------------------------------------------------------ session

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

unsigned authentication_of(int suite)
{
    if (suite >= 15) return 3;
    return suite >= 1 ? 1 : 0;
}

std::string hex32(uint32_t value)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", value);
    return text;
}

// Establishes a session, shows it and closes it; the close is part of what
// it shows.
void cmd_session(const Options &o, ToolRunner &runner)
{
    Session s(o);
    const int r = s.open();
    if (r != 0) return runner.fail(Failure::library("establishment", r));
    const IPMI_SessionParam &p = s.param();
    const RMCPp_Session &rs = *p.session;
    const bool standard = o.standard_keys || s.suite() >= 15;
    Fields f = {
        {"Cipher Suite", "cipher_suite", s.suite()},
        {"Granted Privilege", "granted_privilege", privilege_name(p.granted_privilege)},
        {"Authentication", "authentication", algorithm(0, authentication_of(s.suite()))},
        {"Integrity", "integrity", algorithm(1, rs.integrity_alg)},
        {"Confidentiality", "confidentiality", algorithm(2, rs.confidentiality_alg)},
        {"Console Session ID", "console_session_id", hex32(rs.console_session_id)},
        {"BMC Session ID", "bmc_session_id", hex32(rs.bmc_session_id)},
        {"Key Mode", "key_mode", standard ? "standard" : "library"},
    };
    const int closed = s.close();
    f.push_back({"Closed", "closed", closed == 0});
    if (closed == 0 || !o.json) runner.print(printed(f));
    if (closed != 0) runner.fail(Failure::library("close session", closed, s.hint(closed)));
}

// ------------------------------------------------------------ channel ciphers

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

// The CHANNEL of `channel ciphers`, 0x0E (the one asked over) when not
// given; nothing after a usage error.
std::optional<uint8_t> ciphers_channel(Runner &runner, const std::vector<std::string> &args)
{
    if (args.size() > 1) {
        runner.usage_error("channel ciphers takes at most one CHANNEL");
        return std::nullopt;
    }
    if (args.empty()) return 0x0E;
    const auto c = parse_byte(args[0]);
    if (!c || *c > 0x0F) {
        runner.usage_error("channel must be 0..15: " + args[0]);
        return std::nullopt;
    }
    return c;
}

void cmd_channel_ciphers(const Options &o, ToolRunner &runner, uint8_t channel)
{
    IPMI_SessionParam p;
    fill_param(o, o.cipher_suite.value_or(3), p);
    const RMCPP_SessionOptions so = session_options(o);
    RMCPP_ChannelCipherSuites list{};
    list.size = sizeof list;
    const int r = rmcpp_get_channel_cipher_suites(&p, &so, channel, &list);
    if (r != 0) return runner.fail(Failure::library("channel ciphers", r));
    const uint32_t count = std::min<uint32_t>(list.count, RMCPP_MAX_CIPHER_SUITES);
    Printed out{"", {{"channel", channel}, {"cipher_suites", nlohmann::json::array()}}};
    char line[128];
    std::snprintf(line, sizeof line, "%-5s%-16s%-16s%s\n", "ID", "Auth Alg", "Integrity Alg", "Confidentiality Alg");
    out.text = line;
    for (uint32_t i = 0; i < count; ++i) {
        const RMCPP_CipherSuite &c = list.suites[i];
        const std::string names[3] = {cipher_algorithm(0, c.auth_alg), cipher_algorithm(1, c.integrity_alg),
                                      cipher_algorithm(2, c.confidentiality_alg)};
        std::snprintf(line, sizeof line, "%-5u%-16s%-16s%s\n", c.id, names[0].c_str(), names[1].c_str(),
                      names[2].c_str());
        out.text += line;
        out.json["cipher_suites"].push_back(
            {{"id", c.id}, {"authentication", names[0]}, {"integrity", names[1]}, {"confidentiality", names[2]}});
    }
    runner.print(out);
}

// ------------------------------------------------------------ requests

std::string too_short(const rmcpp::commands::Bytes &data)
{
    return "response too short (" + std::to_string(data.size()) + " bytes)";
}

// One request whose response data decodes into fields.
void decoded(Runner &runner, const std::string &what, uint8_t netfn, uint8_t cmd,
             std::optional<Fields> (*decode)(const Bytes &))
{
    runner.in_session(what, [=](Transport &t) {
        const auto data = call(t, what, netfn, cmd, {});
        const auto fields = decode(data);
        if (!fields) throw CommandError(CommandError::Kind::malformed, what, 0, 0, too_short(data));
        return printed(*fields);
    });
}

void cmd_raw(Runner &runner, const std::vector<std::string> &args)
{
    Bytes bytes;
    for (const auto &a : args) {
        const auto b = parse_byte(a);
        if (!b) return runner.usage_error("not a byte: " + a);
        bytes.push_back(*b);
    }
    if (bytes[0] > 0x3F) return runner.usage_error("netFn must be below 0x40");
    runner.in_session("raw request", [bytes](Transport &t) {
        const auto data = call(t, "raw request", bytes[0], bytes[1], Bytes(bytes.begin() + 2, bytes.end()));
        const std::string hex = hex_bytes(data);
        return Printed{hex + "\n", {{"completion_code", 0}, {"data", hex}}};
    });
}

void cmd_power_status(Runner &runner)
{
    runner.in_session("chassis power status", [](Transport &t) {
        const auto data = call(t, "chassis power status", 0x00, 0x01, {});
        if (data.empty())
            throw CommandError(CommandError::Kind::malformed, "chassis power status", 0, 0, too_short(data));
        const std::string state = (data[0] & 1) ? "on" : "off";
        return Printed{"Chassis Power is " + state + "\n", {{"chassis_power", state}}};
    });
}

// Chassis Control (IPMI v2.0, 28.3): the action's control value and the
// words ipmitool prints for it.
void cmd_power_control(Runner &runner, const std::string &action, uint8_t control, const std::string &words)
{
    const std::string what = "chassis power " + action;
    runner.in_session(what, [=](Transport &t) {
        call(t, what, 0x00, 0x02, {control});
        return Printed{"Chassis Power Control: " + words + "\n", {{"chassis_control", action}}};
    });
}

}  // namespace

// ------------------------------------------------------------ the tool

namespace {

// Every top-level command with its aliases, as add_commands() and
// register_command_groups() build them.
constexpr std::string_view kTopLevel[][2] = {
    {"ping", ""}, {"session", ""}, {"raw", ""}, {"mc", ""},   {"chassis", ""}, {"channel", ""},
    {"sdr", "sensor"}, {"sel", ""}, {"fru", ""}, {"user", ""}, {"lan", ""},
};

// -h, --help, and short flags run together with an h in them (-vh).
bool may_ask_for_help(std::string_view arg)
{
    if (arg.rfind("--", 0) == 0) return arg.rfind("--help", 0) == 0;
    return arg.size() > 1 && arg[0] == '-' && arg.find('h') != std::string_view::npos;
}

}  // namespace

CommandSet CommandSet::reached_by(const std::vector<std::string> &args)
{
    CommandSet set;
    for (const auto &arg : args)
        if (may_ask_for_help(arg)) return set;
    for (const auto &names : kTopLevel)
        for (const auto &arg : args)
            if (arg == names[0] || (!names[1].empty() && arg == names[1])) {
                set.named_.emplace_back(names[0]);
                break;
            }
    set.all_ = set.named_.empty();
    return set;
}

bool CommandSet::has(std::string_view command) const
{
    return all_ || std::find(named_.begin(), named_.end(), command) != named_.end();
}

Tool::Tool(std::FILE *out, std::FILE *err, const CommandSet &commands)
    : out_(out), err_(err), runner_(o_, out, err), recorder_(runner_, command_), app_(std::make_unique<CLI::App>())
{
    CLI::App &app = *app_;
    app.name("rmcpp");
    // Settings the commands inherit: options after the command are the
    // tool's, and what no command takes is reported in words below.
    app.formatter(std::make_shared<Formatter>(*this));
    app.fallthrough();
    app.allow_extras();
    app.option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    app.footer("The tool's options (-H HOST, -U USER, ...) go before or after the command;\n"
               "rmcpp --help lists them.\n");
    add_options(app, text_, o_);
    app.add_flag("--version", version_, "show the tool's and the library's version");
    add_commands(commands);
    register_command_groups(app, chassis_, channel_, recorder_, commands);
    app.parse_complete_callback([this] { after_parse(); });
}

void Tool::add_commands(const CommandSet &wanted)
{
    CLI::App &app = *app_;
    if (wanted.has("ping"))
        app.add_subcommand("ping", "ASF presence ping (no session)")->callback([this] { command_ = cmd_ping; });
    if (wanted.has("session"))
        app.add_subcommand("session", "establish a session, show it, close it")->callback([this] {
            command_ = cmd_session;
        });
    if (wanted.has("raw")) add_raw();
    if (wanted.has("mc")) add_mc();
    if (wanted.has("chassis")) add_chassis();
    if (wanted.has("channel")) add_channel();
}

void Tool::add_raw()
{
    CLI::App *raw = app_->add_subcommand("raw", "send one IPMI request, print the response data");
    raw->add_option("NETFN", netfn_, "network function, 0x00..0x3F")->type_name("");
    raw->add_option("CMD", cmd_, "command byte")->type_name("");
    raw->add_option("DATA", raw_data_, "request data bytes")->type_name("");
    raw->callback([this] {
        if (netfn_.empty() || cmd_.empty()) return runner_.usage_error("raw needs NETFN and CMD");
        std::vector<std::string> args = {netfn_, cmd_};
        args.insert(args.end(), raw_data_.begin(), raw_data_.end());
        cmd_raw(recorder_, args);
    });
}

void Tool::add_mc()
{
    CLI::App *mc = app_->add_subcommand("mc", "the management controller");
    mc->add_subcommand("info", "Get Device ID, decoded")->callback([this] {
        decoded(recorder_, "mc info", 0x06, 0x01, decode_device_id);
    });
    mc->add_subcommand("selftest", "Get Self Test Results, decoded")->callback([this] {
        decoded(recorder_, "mc selftest", 0x06, 0x04, decode_self_test);
    });
}

void Tool::add_chassis()
{
    chassis_ = app_->add_subcommand("chassis", "the chassis: status and power");
    chassis_->add_subcommand("status", "Get Chassis Status, decoded")->callback([this] {
        decoded(recorder_, "chassis status", 0x00, 0x01, decode_chassis_status);
    });
    CLI::App *power = chassis_->add_subcommand("power", "show or change the chassis power");
    power->add_subcommand("status", "Chassis Power is on|off")->callback([this] { cmd_power_status(recorder_); });
    static const struct {
        const char *action, *help, *words;
        uint8_t control;
    } controls[] = {
        {"on", "power up", "Up/On", 0x01},
        {"off", "power down at once", "Down/Off", 0x00},
        {"cycle", "power down, wait, power up", "Cycle", 0x02},
        {"reset", "hard reset", "Reset", 0x03},
        {"soft", "ask the OS to shut down (ACPI soft-off)", "Soft", 0x05},
    };
    for (const auto &c : controls)
        power->add_subcommand(c.action, c.help)->callback([this, &c] {
            cmd_power_control(recorder_, c.action, c.control, c.words);
        });
}

void Tool::add_channel()
{
    channel_ = app_->add_subcommand("channel", "the LAN channel");
    CLI::App *ciphers = channel_->add_subcommand("ciphers", "cipher suites the channel offers");
    ciphers->add_option("CHANNEL", channel_args_, "channel number 0..15 (default: the one asked over)")->type_name("");
    ciphers->callback([this] {
        const auto channel = ciphers_channel(runner_, channel_args_);
        if (channel) command_ = [c = *channel](const Options &o, ToolRunner &r) { cmd_channel_ciphers(o, r, c); };
    });
}

void Tool::after_parse()
{
    if (version_) throw VersionWanted{};
    std::vector<std::string> path;
    const CLI::App *deepest = app_.get();
    while (!deepest->get_subcommands().empty()) {
        deepest = deepest->get_subcommands().front();
        path.push_back(deepest->get_name());
    }
    const std::vector<std::string> extras = app_->remaining(true);
    for (const auto &e : extras)
        if (e.size() > 1 && e[0] == '-') throw UsageProblem{"unknown option: " + e};
    if (!extras.empty()) {
        std::vector<std::string> words = path;
        words.insert(words.end(), extras.begin(), extras.end());
        throw UsageProblem{"unknown command: " + join(words, " ")};
    }
    if (path.empty()) throw UsageProblem{"no command given"};
    if (const auto choices = subcommands_of(*deepest); !choices.empty()) {
        std::vector<std::string> names;
        for (const auto *c : choices) names.push_back(c->get_name());
        throw UsageProblem{join(path, " ") + " takes " + alternatives(names)};
    }
    if (const std::string problem = check(text_, o_); !problem.empty()) throw UsageProblem{problem};
    trace::set_verbose(o_.verbose);
    trace::watch(kRakp2KeyInvalid);
    trace::watch(kRakp4KeyInvalid);
}

int Tool::run(int argc, char **argv)
{
    std::vector<std::string> args(argv + 1, argv + argc);
    return run(std::move(args));
}

int Tool::run(std::vector<std::string> args)
{
    // --json is known before parsing, so that a usage error comes as JSON too.
    o_.json = std::find(args.begin(), args.end(), "--json") != args.end();
    std::reverse(args.begin(), args.end());
    try {
        app_->parse(args);
    } catch (const CLI::CallForHelp &) {
        std::fputs(app_->help().c_str(), out_);
        return 0;
    } catch (const VersionWanted &) {
        std::fprintf(out_, "rmcpp %s\nlibrmcpp %s\n", RMCPP_TOOL_VERSION, rmcpp_version());
        return 0;
    } catch (const UsageProblem &p) {
        runner_.usage_error(p.text);
    } catch (const CLI::ArgumentMismatch &e) {
        // "-H: 1 required TEXT missing"
        const std::string what = e.what();
        runner_.usage_error("option " + what.substr(0, what.find(':')) + " needs a value");
    } catch (const CLI::ParseError &e) {
        runner_.usage_error(e.what());
    }
    if (runner_.exit_status() != 0 || !command_) return runner_.exit_status();
    return run_command();
}

// The command the line asked for: on the one host as ever, or on each of
// many, every host on a thread of its own with buffers of its own.
int Tool::run_command()
{
    if (!o_.fleet) {
        command_(o_, runner_);
        return runner_.exit_status();
    }
    FleetSettings settings;
    settings.fanout = o_.fanout;
    settings.json = o_.json;
    settings.consolidate = o_.consolidate;
    settings.progress = isatty(fileno(err_)) == 1;
    const Command command = command_;
    const Options &base = o_;
    return run_fleet(
        o_.hosts, [&](const std::string &host) { return run_on_host(command, base, host); }, settings, out_, err_);
}

std::string Tool::help(const std::vector<std::string> &command)
{
    std::vector<std::string> args = command;
    args.push_back("--help");
    std::reverse(args.begin(), args.end());
    try {
        app_->parse(args);
    } catch (const CLI::CallForHelp &) {
        return app_->help();
    }
    return "";
}

std::vector<std::vector<std::string>> Tool::commands() const
{
    std::vector<std::vector<std::string>> out;
    std::vector<std::pair<const CLI::App *, std::vector<std::string>>> todo = {{app_.get(), {}}};
    while (!todo.empty()) {
        auto [app, path] = todo.back();
        todo.pop_back();
        if (!path.empty()) out.push_back(path);
        const auto subs = subcommands_of(*app);
        for (auto it = subs.rbegin(); it != subs.rend(); ++it) {
            auto next = path;
            next.push_back((*it)->get_name());
            todo.emplace_back(*it, next);
        }
    }
    return out;
}

// The arguments of a command in one line: its subcommands as a|b|c, or its
// positional arguments (NAME required, [NAME] optional, [NAME...] many).
std::string Tool::synopsis(const CLI::App &command, const std::string &path) const
{
    // Arguments checked by the command itself rather than by CLI11.
    static const std::map<std::string, std::string> written = {{"raw", "raw NETFN CMD [DATA...]"},
                                                               {"channel ciphers", "channel ciphers [CHANNEL]"}};
    if (const auto it = written.find(path); it != written.end()) return it->second;
    std::vector<std::string> names;
    for (const auto *c : subcommands_of(command)) names.push_back(c->get_name());
    if (!names.empty()) return path + " " + join(names, "|");
    std::string out = path;
    for (const CLI::Option *opt : command.get_options()) {
        if (!opt->get_positional()) continue;
        std::string name = opt->get_name();
        if (opt->get_items_expected_max() > 1) name += "...";
        out += " " + (opt->get_required() ? name : "[" + name + "]");
    }
    return out;
}

std::string Tool::overview() const
{
    std::string text = R"(usage: rmcpp [options] COMMAND [ARGUMENTS]      (rmcpp COMMAND --help: more)
Talks to a BMC over IPMI v2.0 / RMCP+ (UDP). Options (man rmcpp: all of them):
  -H HOST      the BMC: IPv4 or IPv6 address (::1 or [::1]) or host name;
               or many at once: a,b,bmc[01-64].dc1,10.0.[0-3].[1-250]
  --hostfile FILE  hosts, one a line    --fanout N  hosts at once (64)
  -p PORT      its UDP port (623)      -U USER  user name (at most 16 bytes)
  -P PASSWORD  at most 20 bytes; or -a: ask, -E: from IPMI_PASSWORD,
               -f FILE: the file's first line     -k KG  BMC key (two-key)
  -C SUITE     0, 1, 2, 3, 15, 16 or 17; default: the strongest the BMC lists
               in Get Channel Cipher Suites (17, else 3)
  -L LEVEL     CALLBACK, USER, OPERATOR, ADMINISTRATOR (default), OEM, 0..5
  -R COUNT     attempts (3)   -N SECONDS  wait per attempt (2)   --name-only
  -t ADDRESS   target (0x20)  --lun LUN  target LUN (0)   -v  the library's log
  --standard-keys  --no-ping  --library-random  --lenient  --port-range
  --json  results and errors as JSON  --consolidate  --version  -h, --help
Commands:
)";
    std::vector<std::string> tokens;
    for (const auto *c : subcommands_of(*app_)) {
        const auto subs = subcommands_of(*c);
        if (subs.empty()) tokens.push_back(synopsis(*c, c->get_name()));
        for (const auto *s : subs) tokens.push_back(synopsis(*s, c->get_name() + " " + s->get_name()));
    }
    std::string line = " ";
    for (const auto &t : tokens) {
        if (line.size() > 1 && line.size() + 3 + t.size() > 79) {
            text += line + "\n";
            line = " ";
        }
        line += (line.size() > 1 ? "   " : " ") + t;
    }
    text += line + "\n";
    text += "Exit status: 0 done, 1 the BMC or the network failed, 2 usage error.\n";
    return text;
}

}  // namespace cli
