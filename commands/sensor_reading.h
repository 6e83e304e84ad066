// Get Sensor Reading (NetFn Sensor/Event, command 2Dh): the request, the
// response, the conversion of a raw analog reading to its value, and the
// state a threshold sensor's comparison bits report.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "sdr_record.h"

namespace rmcpp::commands {

inline constexpr uint8_t get_sensor_reading_netfn = 0x04;
inline constexpr uint8_t get_sensor_reading_cmd = 0x2D;

// Writes the request data (the sensor number) and returns its length; 0 when
// `capacity` has no room or the number is FFh, which is reserved.
size_t build_get_sensor_reading(uint8_t sensor_number, uint8_t *out, size_t capacity);

enum class SensorReadingResult : uint8_t {
    ok = 0,
    truncated,        // fewer than the completion code, reading and flags bytes
    completion_code,  // non-zero completion code, kept in the struct
    invalid,          // more bytes than the response has
};

// Threshold comparison bits of response byte 4.
enum : uint8_t {
    sensor_at_or_below_lower_non_critical = 0x01,
    sensor_at_or_below_lower_critical = 0x02,
    sensor_at_or_below_lower_non_recoverable = 0x04,
    sensor_at_or_above_upper_non_critical = 0x08,
    sensor_at_or_above_upper_critical = 0x10,
    sensor_at_or_above_upper_non_recoverable = 0x20,
};

struct SensorReading {
    uint8_t completion_code = 0;
    uint8_t raw = 0;                       // the reading byte
    bool event_messages_disabled = false;  // flags bit 7 clear
    bool scanning_disabled = false;        // flags bit 6 clear
    bool unavailable = false;              // flags bit 5: reading/state unavailable
    bool has_states = false;               // byte 4 present
    bool has_states_high = false;          // byte 5 present
    uint8_t threshold_status = 0;          // byte 4 [5:0], threshold sensors
    uint16_t discrete_states = 0;          // states 0-14 (bytes 4 and 5 [6:0])
};

// `data` is the response data from the completion code on; bytes 4 and 5
// are optional.
SensorReadingResult decode_get_sensor_reading(const uint8_t *data, size_t length,
                                              SensorReading &out);

// What a threshold sensor's comparison bits say: the most severe threshold
// crossed, and on which side. When a BMC reports both sides at the same
// severity the upper side is named.
enum class ThresholdSeverity : uint8_t { ok = 0, non_critical, critical, non_recoverable };
enum class ThresholdSide : uint8_t { none = 0, lower, upper };

struct ThresholdState {
    ThresholdSeverity severity = ThresholdSeverity::ok;
    ThresholdSide side = ThresholdSide::none;
};

ThresholdState threshold_state(uint8_t threshold_status);
// "ok", "nc", "cr", "nr".
std::string_view threshold_severity_text(ThresholdSeverity severity);
// "ok", "lnc", "lcr", "lnr", "unc", "ucr", "unr".
std::string_view threshold_state_text(ThresholdState state);

// Linearization codes of a full sensor record.
enum : uint8_t {
    sensor_linear = 0x00,
    sensor_ln = 0x01,
    sensor_log10 = 0x02,
    sensor_log2 = 0x03,
    sensor_e = 0x04,
    sensor_exp10 = 0x05,
    sensor_exp2 = 0x06,
    sensor_one_over_x = 0x07,
    sensor_sqr = 0x08,
    sensor_cube = 0x09,
    sensor_sqrt = 0x0A,
    sensor_cube_root = 0x0B,
};

// The factors the conversion y = L[(M*x + B * 10^Bexp) * 10^Rexp] needs.
struct SensorConversion {
    SdrAnalogFormat format = SdrAnalogFormat::unsigned_;
    uint8_t linearization = sensor_linear;
    int16_t m = 1;
    int16_t b = 0;
    int8_t b_exp = 0;
    int8_t r_exp = 0;
};

SensorConversion sensor_conversion(const SdrFullSensor &record);

enum class SensorConvertResult : uint8_t {
    ok = 0,
    no_analog_reading,  // analog data format 11b
    non_linear,         // 70h-7Fh: factors come from Get Sensor Reading Factors
    invalid,            // reserved linearization code
    out_of_domain,      // L undefined there (log of 0 or less, 1/0, sqrt of < 0)
};

// The raw reading as the analog data format reads it: unsigned 0..255,
// 1's complement -127..127, 2's complement -128..127. No analog reading
// gives the byte unsigned.
int sensor_raw_value(SdrAnalogFormat format, uint8_t raw);

SensorConvertResult convert_sensor_reading(const SensorConversion &conversion, uint8_t raw,
                                           double &out);

}  // namespace rmcpp::commands
