// What ipmitool and FreeIPMI print for the SEL and FRU commands, read into
// fields, and the tool's own sel and fru commands run over a real session,
// so a test can set one beside the other field by field.
#pragma once

#include <ctime>
#include <fstream>
#include <iomanip>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "bmcsim_clients.h"
#include "run_program.h"
#include "runner_testkit.h"
#include "session.h"

namespace selfru {

using namespace std::chrono_literals;

struct Peer {
    std::string address;
    std::string user = "admin";
    std::string password = "password";
    bool name_only = false;
    bool opensesspriv = false;  // FreeIPMI's -W opensesspriv (ipmi_sim needs it)
};

// ipmitool and FreeIPMI print SEL times in the local time zone: UTC here.
inline const std::map<std::string, std::string> kUtc{{"TZ", "UTC"}};

inline testkit::ProgramResult ipmitool(const Peer &p, const std::vector<std::string> &command)
{
    std::vector<std::string> argv{"ipmitool", "-I", "lanplus", "-H", p.address, "-U", p.user, "-P", p.password,
                                  "-C", "3", "-N", "1", "-R", "3"};
    argv.insert(argv.end(), command.begin(), command.end());
    return testkit::run_program(argv, 20s, kUtc);
}

// A FreeIPMI program with a scratch SDR cache of its own.
inline testkit::ProgramResult freeipmi(const Peer &p, const std::string &program, const std::vector<std::string> &args,
                                       const std::string &cache_dir)
{
    const std::string config = cache_dir + "/freeipmi.conf";  // no system configuration
    std::ofstream(config).close();
    std::vector<std::string> argv{program, "-D", "LAN_2_0", "-h", p.address, "-u", p.user, "-p", p.password,
                                  "-l", "ADMIN", "-I", "3", "--config-file", config,
                                  "--sdr-cache-directory", cache_dir};
    if (p.opensesspriv) argv.insert(argv.end(), {"-W", "opensesspriv"});
    argv.insert(argv.end(), args.begin(), args.end());
    return testkit::run_program(argv, 20s, {{"TZ", "UTC"}, {"HOME", cache_dir}});
}

// Runs "rmcpp <args>" of one command group over a session of its own;
// returns what it printed (or nothing, with the reason in `error`).
template <typename AddGroup>
std::optional<cli::Printed> rmcpp(const Peer &p, AddGroup add, const std::vector<std::string> &args,
                                  std::string &error)
{
    cli::Options o;
    o.host = p.address;
    o.user = p.user;
    o.password = p.password;
    o.cipher_suite = 3;
    o.standard_keys = true;
    o.name_only = p.name_only;
    cli::Session session(o);
    if (int rc = session.open(); rc != 0) {
        error = "session: " + std::to_string(rc);
        return std::nullopt;
    }
    cli::testkit::CapturingRunner runner(session);
    CLI::App app;
    add(app, runner);
    cli::testkit::parse(app, args);
    session.close();
    if (runner.error) error = runner.error->what();
    if (runner.usage) error = *runner.usage;
    return runner.printed;
}

inline std::vector<std::string> split(const std::string &line, char sep)
{
    std::vector<std::string> parts;
    std::istringstream in(line);
    std::string part;
    while (std::getline(in, part, sep)) {
        part.erase(0, part.find_first_not_of(" "));
        part.erase(part.find_last_not_of(" \r") + 1);
        parts.push_back(part);
    }
    return parts;
}

inline std::vector<std::string> lines(const std::string &text)
{
    std::vector<std::string> out;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line))
        if (!line.empty()) out.push_back(line);
    return out;
}

inline std::string iso(const std::tm &tm)
{
    char b[32];
    std::strftime(b, sizeof b, "%Y-%m-%dT%H:%M:%SZ", &tm);
    return b;
}

// ipmitool's "11/23/2026" (or "11/23/26") and "19:22:07" (or "19:22:07
// UTC") as ISO 8601 (TZ is UTC).
inline std::string iso_from_ipmitool(const std::string &date, const std::string &time)
{
    std::tm tm{};
    std::istringstream in(date + " " + time);
    in >> std::get_time(&tm, date.size() == 8 ? "%m/%d/%y %H:%M:%S" : "%m/%d/%Y %H:%M:%S");
    return in.fail() ? "unreadable: " + date + " " + time : iso(tm);
}

// FreeIPMI's "Nov-23-2026" and "19:22:07".
inline std::string iso_from_freeipmi(const std::string &date, const std::string &time)
{
    std::tm tm{};
    std::istringstream in(date + " " + time);
    in >> std::get_time(&tm, "%b-%d-%Y %H:%M:%S");
    return in.fail() ? "unreadable: " + date + " " + time : iso(tm);
}

// The value of "  Label : value" (label and value trimmed) in what
// ipmitool and FreeIPMI print; empty when absent.
inline std::string field(const std::string &text, const std::string &label)
{
    for (const std::string &line : lines(text)) {
        const size_t colon = line.find(':');
        if (colon == std::string::npos) continue;
        auto parts = split(line.substr(0, colon), '\x01');
        if (parts.empty() || parts[0] != label) continue;
        std::string value = line.substr(colon + 1);
        value.erase(0, value.find_first_not_of(" \t"));
        value.erase(value.find_last_not_of(" \t\r") + 1);
        return value;
    }
    return {};
}

}  // namespace selfru
