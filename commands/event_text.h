// Names of sensor types, from the IPMI v2.0 sensor type code table, and
// words for event offsets in the short form ipmitool prints in its event
// lists, so users recognise them.
#pragma once

#include <cstdint>
#include <string_view>

namespace rmcpp::commands {

inline constexpr uint8_t kEventTypeThreshold = 0x01;
inline constexpr uint8_t kEventTypeGenericFirst = 0x02;
inline constexpr uint8_t kEventTypeGenericLast = 0x0C;
inline constexpr uint8_t kEventTypeSensorSpecific = 0x6F;
inline constexpr uint8_t kEventTypeOemFirst = 0x70;
inline constexpr uint8_t kEventTypeOemLast = 0x7F;

// "Temperature" for 01h ... "FRU State" for 2Ch; "OEM reserved" for
// C0h-FFh; empty for reserved codes (00h, 2Dh-BFh).
std::string_view sensor_type_name(uint8_t sensor_type);

// The words for one event offset (0h-Fh, event data 1 bits 3:0):
// - event type 01h: the threshold table;
// - 02h-0Ch: the generic discrete tables;
// - 6Fh: the sensor-specific table of the sensor type;
// Empty when the code has no words here (reserved offsets, OEM event types,
// sensor types without a table, offsets above Fh).
std::string_view event_description(uint8_t event_type, uint8_t sensor_type, uint8_t offset);

// The generic and sensor-specific tables alone, for callers that already
// know which one applies. Empty as above.
std::string_view generic_event_description(uint8_t event_type, uint8_t offset);
std::string_view sensor_specific_event_description(uint8_t sensor_type, uint8_t offset);

}  // namespace rmcpp::commands
