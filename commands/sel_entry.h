// System Event Log: Get SEL Info, Reserve SEL, Get SEL Entry and Clear SEL
// (Storage network function), and the 16-byte SEL record.
//
// Every decoder takes the response data after the completion code and gives
// nothing when that data is short, too long or malformed.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace rmcpp::commands {

inline constexpr uint8_t kSelNetFn = 0x0A;  // Storage request
inline constexpr uint8_t kGetSelInfoCmd = 0x40;
inline constexpr uint8_t kReserveSelCmd = 0x42;
inline constexpr uint8_t kGetSelEntryCmd = 0x43;
inline constexpr uint8_t kClearSelCmd = 0x47;

inline constexpr uint16_t kSelFirstEntry = 0x0000;
inline constexpr uint16_t kSelLastEntry = 0xFFFF;
inline constexpr size_t kSelRecordSize = 16;

// ---- Get SEL Info ---------------------------------------------------------

struct SelInfo {
    uint8_t version_raw = 0;    // 51h for IPMI v1.5 / v2.0
    uint8_t version_major = 0;  // 1 for 51h (bits 3:0)
    uint8_t version_minor = 0;  // 5 for 51h (bits 7:4)
    uint16_t entries = 0;
    uint16_t free_space = 0;  // bytes; FFFFh means 65535 or more
    uint32_t last_add_time = 0;
    uint32_t last_erase_time = 0;
    uint8_t operation_support = 0;  // the raw flags byte
    bool overflow = false;                   // bit 7: events dropped, SEL full
    bool delete_supported = false;           // bit 3
    bool partial_add_supported = false;      // bit 2
    bool reserve_supported = false;          // bit 1
    bool allocation_info_supported = false;  // bit 0
};

std::optional<SelInfo> decode_get_sel_info(const uint8_t *data, size_t length);

// ---- Reserve SEL ----------------------------------------------------------

std::optional<uint16_t> decode_reserve_sel(const uint8_t *data, size_t length);

// ---- SEL record -----------------------------------------------------------

enum class SelRecordKind {
    SystemEvent,      // 02h
    OemTimestamped,   // C0h-DFh
    OemNonTimestamped,  // E0h-FFh
    Unspecified,      // any other type: the 13 bytes after the type kept raw
};

SelRecordKind sel_record_kind(uint8_t record_type);

// What event data 2 and 3 carry, from event data 1 bits 7:6 and 5:4. The
// meaning of each 2-bit code depends on the event/reading type class.
enum class EventDataUse {
    Unspecified,
    TriggerReading,     // byte 2, threshold
    TriggerThreshold,   // byte 3, threshold
    PreviousState,      // byte 2, discrete and OEM: previous state / severity
    OemCode,
    SensorSpecific,     // sensor-specific event extension code
    Reserved,
};

EventDataUse event_data2_use(uint8_t event_type, uint8_t event_data1);
EventDataUse event_data3_use(uint8_t event_type, uint8_t event_data1);

struct SelRecord {
    uint16_t record_id = 0;
    uint8_t record_type = 0;
    SelRecordKind kind = SelRecordKind::Unspecified;
    uint32_t timestamp = 0;  // system event and OEM timestamped records

    // System event record.
    uint16_t generator_id = 0;    // byte 8 | byte 9 << 8, as on the wire
    uint8_t generator_address = 0;  // bits 7:1 of byte 8
    bool generator_is_software = false;  // bit 0 of byte 8: system software ID
    uint8_t generator_channel = 0;  // bits 7:4 of byte 9
    uint8_t generator_lun = 0;      // bits 1:0 of byte 9
    uint8_t evm_rev = 0;            // 04h for IPMI v2.0 / v1.5
    uint8_t sensor_type = 0;
    uint8_t sensor_number = 0;
    bool deassertion = false;  // event dir, bit 7
    uint8_t event_type = 0;    // event/reading type code, bits 6:0
    std::array<uint8_t, 3> event_data{};
    uint8_t offset = 0;  // event data 1 bits 3:0

    // OEM timestamped record.
    uint32_t manufacturer_id = 0;  // 3 bytes, least significant first
    // OEM data: 6 bytes (timestamped) or 13 bytes (non-timestamped and
    // unspecified types).
    std::vector<uint8_t> oem_data;
};

// Exactly 16 bytes.
std::optional<SelRecord> decode_sel_record(const uint8_t *data, size_t length);

// ---- Get SEL Entry --------------------------------------------------------

struct GetSelEntryRequest {
    uint16_t reservation_id = 0;  // 0000h unless reading part of a record
    uint16_t record_id = kSelFirstEntry;
    uint8_t offset = 0;
    uint8_t bytes_to_read = 0xFF;  // FFh: the entire record
};

std::array<uint8_t, 6> build_get_sel_entry(const GetSelEntryRequest &request);

// A response to a partial read: the next record ID and whatever bytes came.
struct SelEntryChunk {
    uint16_t next_record_id = 0;
    std::vector<uint8_t> data;
};

std::optional<SelEntryChunk> decode_get_sel_entry_chunk(const uint8_t *data, size_t length);

// A response to a whole-record read: the next record ID and exactly 16 bytes.
struct SelEntry {
    uint16_t next_record_id = 0;
    std::array<uint8_t, kSelRecordSize> raw{};
    SelRecord record;
};

std::optional<SelEntry> decode_get_sel_entry(const uint8_t *data, size_t length);

// ---- Clear SEL ------------------------------------------------------------

enum class ClearSelAction : uint8_t {
    GetStatus = 0x00,
    InitiateErase = 0xAA,
};

std::array<uint8_t, 6> build_clear_sel(uint16_t reservation_id, ClearSelAction action);

enum class ErasureProgress {
    InProgress,  // 0h
    Completed,   // 1h
};

// Bits 3:0 must be 0h or 1h; anything else is refused.
std::optional<ErasureProgress> decode_clear_sel(const uint8_t *data, size_t length);

// ---- Timestamps -----------------------------------------------------------

inline constexpr uint32_t kSelTimestampUnspecified = 0xFFFFFFFF;
// Values up to here count seconds since the controller's initialisation.
inline constexpr uint32_t kSelTimestampPreInitMax = 0x20000000;

// Plain conversion: "YYYY-MM-DDThh:mm:ssZ".
std::string iso8601_utc(uint32_t unix_seconds);

// A SEL or SDR timestamp in words: "unspecified" for FFFFFFFFh,
// "pre-init +<n>s" for values up to 20000000h, else iso8601_utc.
std::string sel_timestamp_text(uint32_t timestamp);

}  // namespace rmcpp::commands
