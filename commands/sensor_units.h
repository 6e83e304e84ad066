// Sensor units: the unit type codes of the Sensor Units 2 and 3 bytes, and
// the text of a sensor's whole unit (base, modifier, rate) from the three
// Sensor Units bytes of a full or compact sensor record.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace rmcpp::commands {

// Names of unit type codes 0 (unspecified) to 92 (grams), as IPMI v2.0 names
// them. Code 59 is reserved and named so.
inline constexpr std::array<std::string_view, 93> sensor_unit_names = {
    "unspecified", "degrees C", "degrees F", "degrees K", "Volts", "Amps", "Watts",
    "Joules", "Coulombs", "VA", "Nits", "lumen", "lux", "Candela", "kPa", "PSI",
    "Newton", "CFM", "RPM", "Hz", "microsecond", "millisecond", "second", "minute",
    "hour", "day", "week", "mil", "inches", "feet", "cu in", "cu feet", "mm", "cm",
    "m", "cu cm", "cu m", "liters", "fluid ounce", "radians", "steradians",
    "revolutions", "cycles", "gravities", "ounce", "pound", "ft-lb", "oz-in", "gauss",
    "gilberts", "henry", "millihenry", "farad", "microfarad", "ohms", "siemens",
    "mole", "becquerel", "PPM", "reserved", "Decibels", "DbA", "DbC", "gray",
    "sievert", "color temp deg K", "bit", "kilobit", "megabit", "gigabit", "byte",
    "kilobyte", "megabyte", "gigabyte", "word", "dword", "qword", "line", "hit",
    "miss", "retry", "reset", "overrun / overflow", "underrun", "collision",
    "packets", "messages", "characters", "error", "correctable error",
    "uncorrectable error", "fatal error", "grams",
};

// Name of a unit type code; empty for codes past the table (93 to 255).
constexpr std::string_view sensor_unit_name(uint8_t code)
{
    return code < sensor_unit_names.size() ? sensor_unit_names[code] : std::string_view{};
}

// Sensor Units 1, bits [5:3].
enum class SensorRateUnit : uint8_t {
    none = 0,
    per_microsecond = 1,
    per_millisecond = 2,
    per_second = 3,
    per_minute = 4,
    per_hour = 5,
    per_day = 6,
    reserved = 7,
};

// Sensor Units 1, bits [2:1].
enum class SensorModifierUnit : uint8_t {
    none = 0,
    divide = 1,    // base unit / modifier unit
    multiply = 2,  // base unit * modifier unit
    reserved = 3,
};

constexpr SensorRateUnit sensor_rate_unit(uint8_t units1)
{
    return static_cast<SensorRateUnit>((units1 >> 3) & 0x07);
}
constexpr SensorModifierUnit sensor_modifier_unit(uint8_t units1)
{
    return static_cast<SensorModifierUnit>((units1 >> 1) & 0x03);
}
constexpr bool sensor_unit_percentage(uint8_t units1) { return (units1 & 0x01) != 0; }

// "per us", "per ms", "per s", "per minute", "per hour", "per day"; empty for
// none and reserved.
std::string_view sensor_rate_text(SensorRateUnit rate);

// The unit as text, "base [op modifier] [per rate]": "Volts", "Joules / second",
// "Amps * hour per s", "RPM per minute". Percentage (Units 1 bit 0) is a
// separate flag and does not show here. Returns false (and leaves `out`
// empty) when a unit code is past the table or the rate or modifier field
// holds its reserved value.
bool sensor_unit_text(uint8_t units1, uint8_t base_unit, uint8_t modifier_unit, std::string &out);

}  // namespace rmcpp::commands
