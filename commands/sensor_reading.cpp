#include "sensor_reading.h"

#include <cmath>

#include "wire.h"

namespace rmcpp::commands {

namespace {

constexpr size_t reading_min_length = 3;  // completion code, reading, flags
constexpr size_t reading_max_length = 5;

constexpr uint8_t threshold_status_mask = 0x3F;
constexpr uint8_t states_high_mask = 0x7F;

ThresholdSeverity severity_of(uint8_t status, uint8_t non_critical, uint8_t critical,
                              uint8_t non_recoverable)
{
    if (status & non_recoverable) return ThresholdSeverity::non_recoverable;
    if (status & critical) return ThresholdSeverity::critical;
    if (status & non_critical) return ThresholdSeverity::non_critical;
    return ThresholdSeverity::ok;
}

}  // namespace

size_t build_get_sensor_reading(uint8_t sensor_number, uint8_t *out, size_t capacity)
{
    if (sensor_number == 0xFF) return 0;
    rmcpp::wire::Writer w(out, capacity);
    w.u8(sensor_number);
    return w.ok() ? w.size() : 0;
}

SensorReadingResult decode_get_sensor_reading(const uint8_t *data, size_t length,
                                              SensorReading &out)
{
    rmcpp::wire::Reader r(data, length);
    SensorReading s;
    s.completion_code = r.u8();
    if (!r.ok()) return SensorReadingResult::truncated;
    if (s.completion_code != 0) {
        out = s;
        return SensorReadingResult::completion_code;
    }
    if (length < reading_min_length) return SensorReadingResult::truncated;
    if (length > reading_max_length) return SensorReadingResult::invalid;

    s.raw = r.u8();
    const uint8_t flags = r.u8();
    s.event_messages_disabled = (flags & 0x80) == 0;
    s.scanning_disabled = (flags & 0x40) == 0;
    s.unavailable = (flags & 0x20) != 0;
    if (r.remaining() > 0) {
        const uint8_t low = r.u8();
        s.has_states = true;
        s.threshold_status = static_cast<uint8_t>(low & threshold_status_mask);
        s.discrete_states = low;
    }
    if (r.remaining() > 0) {
        const uint8_t high = r.u8();
        s.has_states_high = true;
        s.discrete_states =
            static_cast<uint16_t>(s.discrete_states | ((high & states_high_mask) << 8));
    }
    if (!r.ok()) return SensorReadingResult::truncated;
    out = s;
    return SensorReadingResult::ok;
}

ThresholdState threshold_state(uint8_t status)
{
    const ThresholdSeverity lower =
        severity_of(status, sensor_at_or_below_lower_non_critical, sensor_at_or_below_lower_critical,
                    sensor_at_or_below_lower_non_recoverable);
    const ThresholdSeverity upper =
        severity_of(status, sensor_at_or_above_upper_non_critical, sensor_at_or_above_upper_critical,
                    sensor_at_or_above_upper_non_recoverable);
    if (upper == ThresholdSeverity::ok && lower == ThresholdSeverity::ok) return {};
    if (upper >= lower) return {upper, ThresholdSide::upper};
    return {lower, ThresholdSide::lower};
}

std::string_view threshold_severity_text(ThresholdSeverity severity)
{
    switch (severity) {
    case ThresholdSeverity::ok: return "ok";
    case ThresholdSeverity::non_critical: return "nc";
    case ThresholdSeverity::critical: return "cr";
    case ThresholdSeverity::non_recoverable: return "nr";
    }
    return "ok";
}

std::string_view threshold_state_text(ThresholdState state)
{
    static constexpr std::string_view lower[] = {"ok", "lnc", "lcr", "lnr"};
    static constexpr std::string_view upper[] = {"ok", "unc", "ucr", "unr"};
    const auto i = static_cast<size_t>(state.severity) & 0x03;
    switch (state.side) {
    case ThresholdSide::lower: return lower[i];
    case ThresholdSide::upper: return upper[i];
    case ThresholdSide::none: break;
    }
    return "ok";
}

SensorConversion sensor_conversion(const SdrFullSensor &record)
{
    SensorConversion c;
    c.format = record.units.analog_format;
    c.linearization = record.linearization;
    c.m = record.m;
    c.b = record.b;
    c.b_exp = record.b_exp;
    c.r_exp = record.r_exp;
    return c;
}

int sensor_raw_value(SdrAnalogFormat format, uint8_t raw)
{
    switch (format) {
    case SdrAnalogFormat::ones_complement:
        // A set sign bit means minus the inverted byte: FFh is -0, 80h is -127.
        return (raw & 0x80) ? -static_cast<int>(static_cast<uint8_t>(~raw)) : raw;
    case SdrAnalogFormat::twos_complement:
        return (raw & 0x80) ? static_cast<int>(raw) - 256 : raw;
    case SdrAnalogFormat::unsigned_:
    case SdrAnalogFormat::none:
        break;
    }
    return raw;
}

SensorConvertResult convert_sensor_reading(const SensorConversion &c, uint8_t raw, double &out)
{
    if (c.format == SdrAnalogFormat::none) return SensorConvertResult::no_analog_reading;
    const uint8_t l = c.linearization & 0x7F;
    if (l >= 0x70) return SensorConvertResult::non_linear;
    if (l > sensor_cube_root) return SensorConvertResult::invalid;

    const double x = sensor_raw_value(c.format, raw);
    const double v = (c.m * x + c.b * std::pow(10.0, c.b_exp)) * std::pow(10.0, c.r_exp);
    double y = v;
    switch (l) {
    case sensor_linear: y = v; break;
    case sensor_ln: y = v > 0 ? std::log(v) : NAN; break;
    case sensor_log10: y = v > 0 ? std::log10(v) : NAN; break;
    case sensor_log2: y = v > 0 ? std::log2(v) : NAN; break;
    case sensor_e: y = std::exp(v); break;
    case sensor_exp10: y = std::pow(10.0, v); break;
    case sensor_exp2: y = std::exp2(v); break;
    case sensor_one_over_x: y = v != 0 ? 1.0 / v : NAN; break;
    case sensor_sqr: y = v * v; break;
    case sensor_cube: y = v * v * v; break;
    case sensor_sqrt: y = v >= 0 ? std::sqrt(v) : NAN; break;
    case sensor_cube_root: y = std::cbrt(v); break;
    }
    if (!std::isfinite(y)) return SensorConvertResult::out_of_domain;
    out = y;
    return SensorConvertResult::ok;
}

}  // namespace rmcpp::commands
