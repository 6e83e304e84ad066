// What ipmitool ("sdr list", "sensor list") and FreeIPMI (ipmi-sensors)
// print for a BMC's sensors, read back into fields, and the checks that our
// sensor list says the same.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "bmcsim_clients.h"
#include "run_program.h"
#include "sdr_list_print.h"
#include "sensor_list.h"

namespace sdrtest {

using rmcpp::commands::SensorListEntry;

inline std::string trim(const std::string &s)
{
    const size_t a = s.find_first_not_of(' ');
    if (a == std::string::npos) return "";
    return s.substr(a, s.find_last_not_of(' ') - a + 1);
}

inline std::vector<std::string> split(const std::string &line, char sep)
{
    std::vector<std::string> out;
    std::string cell;
    std::istringstream in(line);
    while (std::getline(in, cell, sep)) out.push_back(trim(cell));
    return out;
}

// Rows of a '|' or ',' table, by their first column (the sensor name in
// ipmitool's tables, the second column in FreeIPMI's).
inline std::map<std::string, std::vector<std::string>> rows(const std::string &text, char sep, size_t name_column)
{
    std::map<std::string, std::vector<std::string>> out;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) {
        auto cells = split(line, sep);
        if (cells.size() > name_column) out[cells[name_column]] = cells;
    }
    return out;
}

inline std::string fixed(double v, int places)
{
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", places, v);
    return text;
}

inline std::string threshold_text(const std::optional<double> &v, int places, const char *none)
{
    return v ? fixed(*v, places) : none;
}

// ipmitool sdr list: name | value unit | status.
inline void expect_as_ipmitool_sdr_list(const std::vector<SensorListEntry> &ours, const std::string &printed)
{
    const auto table = rows(printed, '|', 0);
    EXPECT_EQ(table.size(), ours.size()) << printed;
    for (const auto &e : ours) {
        auto it = table.find(e.name);
        ASSERT_NE(it, table.end()) << e.name << " not in\n" << printed;
        ASSERT_EQ(it->second.size(), 3u) << e.name;
        EXPECT_EQ(it->second[1], cli::sdr_value_text(e)) << e.name;
        EXPECT_EQ(it->second[2], rmcpp::commands::sensor_status_text(e)) << e.name;
    }
}

// ipmitool sensor list: name | value | unit | status | lnr | lcr | lnc |
// unc | ucr | unr, threshold sensors' numbers to three places.
inline void expect_as_ipmitool_sensor_list(const std::vector<SensorListEntry> &ours, const std::string &printed)
{
    const auto table = rows(printed, '|', 0);
    for (const auto &e : ours) {
        if (!e.threshold_based) continue;
        auto it = table.find(e.name);
        ASSERT_NE(it, table.end()) << e.name << " not in\n" << printed;
        const auto &c = it->second;
        ASSERT_EQ(c.size(), 10u) << e.name;
        EXPECT_EQ(c[1], e.reading ? fixed(*e.reading, 3) : "na") << e.name;
        EXPECT_EQ(c[2], e.unit) << e.name;
        EXPECT_EQ(c[3], e.reading ? rmcpp::commands::sensor_status_text(e) : "na") << e.name;
        EXPECT_EQ(c[4], threshold_text(e.thresholds.lnr, 3, "na")) << e.name;
        EXPECT_EQ(c[5], threshold_text(e.thresholds.lcr, 3, "na")) << e.name;
        EXPECT_EQ(c[6], threshold_text(e.thresholds.lnc, 3, "na")) << e.name;
        EXPECT_EQ(c[7], threshold_text(e.thresholds.unc, 3, "na")) << e.name;
        EXPECT_EQ(c[8], threshold_text(e.thresholds.ucr, 3, "na")) << e.name;
        EXPECT_EQ(c[9], threshold_text(e.thresholds.unr, 3, "na")) << e.name;
    }
}

// ipmi-sensors --output-sensor-thresholds --comma-separated-output:
// ID,Name,Type,Reading,Units,Lower NR,Lower C,Lower NC,Upper NC,Upper C,Upper NR,Event
inline void expect_as_ipmi_sensors(const std::vector<SensorListEntry> &ours, const std::string &printed)
{
    const auto table = rows(printed, ',', 1);
    for (const auto &e : ours) {
        auto it = table.find(e.name);
        ASSERT_NE(it, table.end()) << e.name << " not in\n" << printed;
        const auto &c = it->second;
        ASSERT_EQ(c.size(), 12u) << e.name;
        EXPECT_EQ(c[3], e.reading ? fixed(*e.reading, 2) : "N/A") << e.name;
        if (!e.threshold_based) continue;
        EXPECT_EQ(c[5], threshold_text(e.thresholds.lnr, 2, "N/A")) << e.name;
        EXPECT_EQ(c[6], threshold_text(e.thresholds.lcr, 2, "N/A")) << e.name;
        EXPECT_EQ(c[7], threshold_text(e.thresholds.lnc, 2, "N/A")) << e.name;
        EXPECT_EQ(c[8], threshold_text(e.thresholds.unc, 2, "N/A")) << e.name;
        EXPECT_EQ(c[9], threshold_text(e.thresholds.ucr, 2, "N/A")) << e.name;
        EXPECT_EQ(c[10], threshold_text(e.thresholds.unr, 2, "N/A")) << e.name;
        using rmcpp::commands::ThresholdSeverity;
        if (e.state != rmcpp::commands::SensorState::reading) {
            EXPECT_EQ(c[11], "N/A") << e.name;
            continue;
        }
        switch (e.threshold.severity) {
        case ThresholdSeverity::ok: EXPECT_EQ(c[11], "'OK'") << e.name; break;
        case ThresholdSeverity::non_critical: EXPECT_NE(c[11].find("Non-Critical"), std::string::npos) << e.name << c[11]; break;
        case ThresholdSeverity::critical:
            EXPECT_NE(c[11].find("Critical"), std::string::npos) << e.name << c[11];
            EXPECT_EQ(c[11].find("Non-Critical"), std::string::npos) << e.name << c[11];
            break;
        case ThresholdSeverity::non_recoverable: EXPECT_NE(c[11].find("Non-Recoverable"), std::string::npos) << e.name << c[11]; break;
        }
    }
}

}  // namespace sdrtest
