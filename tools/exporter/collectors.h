// The collectors: each reads one part of a BMC over an open session and
// turns the answers into metric families. A collector throws (a
// rmcpp::commands::CommandError, or std::runtime_error for an answer that
// does not decode) when it cannot give its families; what it added to
// `out` by then is not to be used.
#pragma once

#include <cstdint>
#include <string>

#include "metrics.h"
#include "sdr_cache.h"
#include "sensor_list.h"
#include "transport.h"

namespace exporter {

// Sensors: Get SDR Repository Info, the records from `cache` when its
// timestamps have not moved (else the repository read again), then each
// sensor's reading: ipmi_sensor_value and ipmi_sensor_state.
void collect_sensors(rmcpp::commands::Transport &t, SdrCache &cache, const std::string &target, Families &out);
// Get Chassis Status: ipmi_chassis_power_state.
void collect_chassis(rmcpp::commands::Transport &t, Families &out);
// Get SEL Info: ipmi_sel_entries, ipmi_sel_free_space_bytes.
void collect_sel(rmcpp::commands::Transport &t, Families &out);
// Get Device ID: ipmi_bmc_info.
void collect_device(rmcpp::commands::Transport &t, Families &out);

// Runs the collector `name`; false for a name that is none of the above.
bool collect(const std::string &name, rmcpp::commands::Transport &t, SdrCache &cache, const std::string &target,
             Families &out);

// The type label: the sensor type's name in lower case, words joined with
// "_" ("temperature", "power_supply"); "unknown" for reserved types.
std::string sensor_type_label(uint8_t sensor_type);
// The unit label: "celsius", "volts", "rpm", "watts", "amperes",
// "percent", or the unit's text in lower case with "_" for spaces.
std::string sensor_unit_label(const rmcpp::commands::SensorListEntry &e);
// 0 nominal, 1 non-critical, 2 critical, 3 non-recoverable.
int sensor_state_value(rmcpp::commands::ThresholdSeverity severity);

}  // namespace exporter
