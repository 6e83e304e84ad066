#include "sensor_units.h"

namespace rmcpp::commands {

namespace {

constexpr std::array<std::string_view, 8> rate_texts = {
    "", "per us", "per ms", "per s", "per minute", "per hour", "per day", "",
};

// Every code below the table's end has a name.
static_assert(sensor_unit_names[0] == "unspecified");
static_assert(sensor_unit_names[59] == "reserved");
static_assert(sensor_unit_names[92] == "grams");

}  // namespace

std::string_view sensor_rate_text(SensorRateUnit rate)
{
    return rate_texts[static_cast<uint8_t>(rate) & 0x07];
}

bool sensor_unit_text(uint8_t units1, uint8_t base_unit, uint8_t modifier_unit, std::string &out)
{
    out.clear();
    const SensorRateUnit rate = sensor_rate_unit(units1);
    const SensorModifierUnit modifier = sensor_modifier_unit(units1);
    if (rate == SensorRateUnit::reserved || modifier == SensorModifierUnit::reserved) return false;
    const std::string_view base = sensor_unit_name(base_unit);
    if (base.empty()) return false;

    std::string text(base);
    if (modifier != SensorModifierUnit::none) {
        const std::string_view mod = sensor_unit_name(modifier_unit);
        if (mod.empty()) return false;
        text += modifier == SensorModifierUnit::divide ? " / " : " * ";
        text += mod;
    }
    if (rate != SensorRateUnit::none) {
        text += ' ';
        text += sensor_rate_text(rate);
    }
    out = std::move(text);
    return true;
}

}  // namespace rmcpp::commands
