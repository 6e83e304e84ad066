// Get Sensor Thresholds (NetFn Sensor/Event, command 27h): the raw
// threshold values a threshold sensor holds, with the mask of those that
// can be read.
#pragma once

#include <cstdint>

#include "transport.h"

namespace rmcpp::commands {

inline constexpr uint8_t get_sensor_thresholds_cmd = 0x27;

// Readable threshold mask bits; the same order as the SDR's reading mask
// bits 8 to 13.
enum : uint8_t {
    threshold_lnc = 0x01,
    threshold_lcr = 0x02,
    threshold_lnr = 0x04,
    threshold_unc = 0x08,
    threshold_ucr = 0x10,
    threshold_unr = 0x20,
};

struct SensorThresholds {
    uint8_t readable = 0;  // mask of the values below that are given
    uint8_t lower_non_critical = 0;
    uint8_t lower_critical = 0;
    uint8_t lower_non_recoverable = 0;
    uint8_t upper_non_critical = 0;
    uint8_t upper_critical = 0;
    uint8_t upper_non_recoverable = 0;
    bool operator==(const SensorThresholds &) const = default;
};

Bytes build_get_sensor_thresholds(uint8_t sensor_number);
// Response data after the completion code: exactly 7 bytes.
bool decode_get_sensor_thresholds(const Bytes &data, SensorThresholds &out);
Bytes encode_get_sensor_thresholds(const SensorThresholds &t);

}  // namespace rmcpp::commands
