// Sensor Data Records: the five-byte record header, and the full sensor
// (01h), compact sensor (02h) and event-only (03h) records.
//
// A decoder takes one record, header included. It reads only the bytes the
// header's record length covers; input shorter than that, a body shorter
// than the record type's fixed part, or an ID string running past the
// record's end is refused.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace rmcpp::commands {

enum class SdrResult : uint8_t {
    ok = 0,
    truncated,    // fewer bytes than the header or the record length needs
    wrong_type,   // the header names another record type
    invalid,      // a field holds a reserved value (an ID string over 16 bytes)
};

inline constexpr size_t sdr_header_length = 5;
inline constexpr size_t sdr_id_string_max = 16;

enum : uint8_t {
    sdr_type_full_sensor = 0x01,
    sdr_type_compact_sensor = 0x02,
    sdr_type_event_only = 0x03,
};

struct SdrHeader {
    uint16_t record_id = 0;
    uint8_t version = 0;  // 51h for IPMI v1.5 and v2.0 records
    uint8_t type = 0;
    uint8_t length = 0;   // bytes following the header
};

SdrResult decode_sdr_header(const uint8_t *data, size_t length, SdrHeader &out);

// The record key and entity bytes shared by the sensor records.
struct SdrSensorKey {
    uint8_t owner_id = 0;        // 7-bit slave address or software ID
    bool owner_is_software = false;  // owner ID bit 0: system software ID
    uint8_t channel = 0;         // owner LUN byte [7:4]
    uint8_t owner_lun = 0;       // owner LUN byte [1:0]
    uint8_t number = 0;
    uint8_t entity_id = 0;
    uint8_t entity_instance = 0;  // [6:0]
    bool entity_logical = false;  // entity instance bit 7: logical container
};

// Sensor Units 1 split, with units 2 and 3 as unit type codes.
enum class SdrAnalogFormat : uint8_t {
    unsigned_ = 0,
    ones_complement = 1,
    twos_complement = 2,
    none = 3,  // no analog reading
};

struct SdrUnits {
    SdrAnalogFormat analog_format = SdrAnalogFormat::unsigned_;
    uint8_t rate = 0;      // [5:3]
    uint8_t modifier = 0;  // [2:1]
    bool percentage = false;
    uint8_t units1 = 0;    // the byte as received
    uint8_t base_unit = 0;
    uint8_t modifier_unit = 0;
};

enum class SdrIdStringType : uint8_t {
    unicode = 0,
    bcd_plus = 1,
    ascii_6bit_packed = 2,
    ascii_8bit = 3,  // 8-bit ASCII + Latin 1
};

struct SdrIdString {
    SdrIdStringType type = SdrIdStringType::ascii_8bit;
    std::vector<uint8_t> raw;  // the bytes as received
    // Text for 8-bit ASCII and 6-bit packed ASCII; empty for the others.
    std::string text;
};

struct SdrFullSensor {
    SdrHeader header;
    SdrSensorKey key;
    uint8_t initialization = 0;
    uint8_t capabilities = 0;
    uint8_t sensor_type = 0;
    uint8_t event_reading_type = 0;
    uint16_t assertion_mask = 0;    // or lower threshold reading mask
    uint16_t deassertion_mask = 0;  // or upper threshold reading mask
    uint16_t reading_mask = 0;      // or settable / readable threshold mask
    SdrUnits units;
    uint8_t linearization = 0;  // [6:0]
    int16_t m = 0;              // 10-bit two's complement
    uint8_t tolerance = 0;      // 6 bits, in +/- half raw counts
    int16_t b = 0;              // 10-bit two's complement
    uint16_t accuracy = 0;      // 10 bits, in 1/100 percent
    uint8_t accuracy_exp = 0;   // 2 bits
    uint8_t direction = 0;      // 2 bits
    int8_t r_exp = 0;           // result exponent, 4-bit signed
    int8_t b_exp = 0;           // 4-bit signed
    bool nominal_specified = false;
    bool normal_max_specified = false;
    bool normal_min_specified = false;
    uint8_t nominal_reading = 0;
    uint8_t normal_max = 0;
    uint8_t normal_min = 0;
    uint8_t sensor_max = 0;
    uint8_t sensor_min = 0;
    uint8_t upper_non_recoverable = 0;
    uint8_t upper_critical = 0;
    uint8_t upper_non_critical = 0;
    uint8_t lower_non_recoverable = 0;
    uint8_t lower_critical = 0;
    uint8_t lower_non_critical = 0;
    uint8_t positive_hysteresis = 0;
    uint8_t negative_hysteresis = 0;
    uint8_t oem = 0;
    SdrIdString id;
};

// Record sharing bytes of compact and event-only records; the first also
// carries the sensor direction.
struct SdrSharing {
    uint8_t direction = 0;                  // [7:6] of the first byte
    uint8_t id_instance_modifier_type = 0;  // 0 numeric, 1 alpha
    uint8_t share_count = 0;                // [3:0]
    bool entity_instance_increments = false;
    uint8_t id_instance_modifier_offset = 0;  // [6:0]
};

struct SdrCompactSensor {
    SdrHeader header;
    SdrSensorKey key;
    uint8_t initialization = 0;
    uint8_t capabilities = 0;
    uint8_t sensor_type = 0;
    uint8_t event_reading_type = 0;
    uint16_t assertion_mask = 0;
    uint16_t deassertion_mask = 0;
    uint16_t reading_mask = 0;
    SdrUnits units;
    SdrSharing sharing;
    uint8_t positive_hysteresis = 0;
    uint8_t negative_hysteresis = 0;
    uint8_t oem = 0;
    SdrIdString id;
};

struct SdrEventOnly {
    SdrHeader header;
    SdrSensorKey key;
    uint8_t sensor_type = 0;
    uint8_t event_reading_type = 0;
    SdrSharing sharing;
    uint8_t oem = 0;
    SdrIdString id;
};

SdrResult decode_sdr_full_sensor(const uint8_t *data, size_t length, SdrFullSensor &out);
SdrResult decode_sdr_compact_sensor(const uint8_t *data, size_t length, SdrCompactSensor &out);
SdrResult decode_sdr_event_only(const uint8_t *data, size_t length, SdrEventOnly &out);

// Encoders, the decoders' twins: the whole record, header included. The
// header's record length is computed; the ID string is written from `raw`
// with its type. Empty when a field does not fit (an ID string over 16
// bytes, M or B outside 10 bits, exponents outside 4 bits).
std::vector<uint8_t> encode_sdr_full_sensor(const SdrFullSensor &record);
std::vector<uint8_t> encode_sdr_compact_sensor(const SdrCompactSensor &record);

// Sign-extends the low `bits` bits of a two's complement field.
constexpr int32_t sdr_sign_extend(uint32_t value, unsigned bits)
{
    const uint32_t mask = (1u << bits) - 1;
    const uint32_t sign = 1u << (bits - 1);
    value &= mask;
    return (value & sign) ? static_cast<int32_t>(value) - static_cast<int32_t>(mask + 1)
                          : static_cast<int32_t>(value);
}

// 6-bit packed ASCII: four characters in three bytes, least significant bits
// first, each code plus 20h.
std::string sdr_unpack_6bit_ascii(const uint8_t *data, size_t length);

}  // namespace rmcpp::commands
