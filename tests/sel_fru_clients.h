// What ipmitool and FreeIPMI print for the SEL and FRU commands, read into
// fields, and the tool's own sel and fru commands run over a real session,
// so a test can set one beside the other field by field.
#pragma once

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <iomanip>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

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

// The SEL entry lines of ipmitool's sel list and elist (elist puts its SDR
// complaints on standard output too).
inline std::vector<std::string> entry_lines(const std::string &text);

inline std::vector<std::string> lines(const std::string &text)
{
    std::vector<std::string> out;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line))
        if (!line.empty()) out.push_back(line);
    return out;
}

inline std::vector<std::string> entry_lines(const std::string &text)
{
    std::vector<std::string> out;
    for (const std::string &line : lines(text))
        if (line.find(" | ") != std::string::npos) out.push_back(line);
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

// ipmitool's "   1 | 11/23/2026 | 19:22:07 | Temperature #0x30 | Upper Critical going high | Asserted"
// against the tool's entry, field by field.
inline void expect_same_entry(const std::string &ipmitool_line, const nlohmann::json &e)
{
    const auto f = split(ipmitool_line, '|');
    ASSERT_GE(f.size(), 5u) << ipmitool_line;
    EXPECT_EQ(std::stoul(f[0], nullptr, 16), e["record_id"].get<unsigned>()) << ipmitool_line;
    if (f[1] == "Pre-Init")
        EXPECT_EQ("pre-init +" + std::to_string(std::stoul(f[2])) + "s", e["time"]) << ipmitool_line;
    else
        EXPECT_EQ(iso_from_ipmitool(f[1], f[2]), e["time"]) << ipmitool_line;
    if (e["kind"] == "system_event") {
        ASSERT_EQ(f.size(), 6u) << ipmitool_line;
        char sensor[64];
        std::snprintf(sensor, sizeof sensor, "%s #0x%02x", e["sensor_type"].get<std::string>().c_str(),
                      e["sensor_number"].get<unsigned>());
        EXPECT_EQ(f[3], sensor);
        EXPECT_EQ(f[4], e["description"]);
        EXPECT_EQ(f[5], e["direction"]);
    } else {
        char record[32], mfg[16];
        std::snprintf(record, sizeof record, "OEM record %02x", e["record_type"].get<unsigned>());
        std::snprintf(mfg, sizeof mfg, "%06x", e["manufacturer_id"].get<unsigned>());
        EXPECT_EQ(f[3], record);
        EXPECT_EQ(f[4], mfg);
        std::string data;
        for (unsigned b : e["oem_data"]) {
            char h[4];
            std::snprintf(h, sizeof h, "%02x", b);
            data += h;
        }
        EXPECT_EQ(f[5], data);
    }
}

// ipmi-fru's output shows the fields of our `fru print --json`, label by
// label, and the board's manufacturing date. FreeIPMI refuses BCD plus
// fields: `skip` names labels to leave out.
template <typename Json>
void expect_ipmi_fru_fields(const std::string &out, const Json &json, const std::vector<std::string> &skip = {})
{
    const std::map<std::string, std::string> labels{
        {"FRU Chassis Type", json["chassis"]["type"]},
        {"FRU Chassis Part Number", json["chassis"]["part_number"]},
        {"FRU Chassis Serial Number", json["chassis"]["serial"]},
        {"FRU Board Manufacturer", json["board"]["manufacturer"]},
        {"FRU Board Product Name", json["board"]["product"]},
        {"FRU Board Serial Number", json["board"]["serial"]},
        {"FRU Board Part Number", json["board"]["part_number"]},
        {"FRU Product Manufacturer Name", json["product"]["manufacturer"]},
        {"FRU Product Name", json["product"]["name"]},
        {"FRU Product Part/Model Number", json["product"]["part_number"]},
        {"FRU Product Version", json["product"]["version"]},
        {"FRU Product Serial Number", json["product"]["serial"]},
        {"FRU Product Asset Tag", json["product"]["asset_tag"]},
    };
    for (const auto &[label, value] : labels) {
        if (std::find(skip.begin(), skip.end(), label) != skip.end()) continue;
        EXPECT_EQ(field(out, label), value) << label << "\n" << out;
    }
    // "05/23/24 - 07:28:00"
    std::tm tm{};
    std::istringstream in(field(out, "FRU Board Manufacturing Date/Time"));
    in >> std::get_time(&tm, "%m/%d/%y - %H:%M:%S");
    EXPECT_EQ(iso(tm), json["board"]["mfg_date"]) << out;
}

}  // namespace selfru
