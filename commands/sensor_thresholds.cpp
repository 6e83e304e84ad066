#include "sensor_thresholds.h"

#include "wire.h"

namespace rmcpp::commands {

Bytes build_get_sensor_thresholds(uint8_t sensor_number)
{
    Bytes out(1);
    rmcpp::wire::Writer w(out.data(), out.size());
    w.u8(sensor_number);
    return out;
}

bool decode_get_sensor_thresholds(const Bytes &data, SensorThresholds &out)
{
    if (data.size() != 7) return false;
    rmcpp::wire::Reader r(data.data(), data.size());
    SensorThresholds t;
    t.readable = static_cast<uint8_t>(r.u8() & 0x3F);
    t.lower_non_critical = r.u8();
    t.lower_critical = r.u8();
    t.lower_non_recoverable = r.u8();
    t.upper_non_critical = r.u8();
    t.upper_critical = r.u8();
    t.upper_non_recoverable = r.u8();
    if (!r.ok()) return false;
    out = t;
    return true;
}

Bytes encode_get_sensor_thresholds(const SensorThresholds &t)
{
    Bytes out(7);
    rmcpp::wire::Writer w(out.data(), out.size());
    w.u8(static_cast<uint8_t>(t.readable & 0x3F)).u8(t.lower_non_critical).u8(t.lower_critical);
    w.u8(t.lower_non_recoverable).u8(t.upper_non_critical).u8(t.upper_critical).u8(t.upper_non_recoverable);
    return out;
}

}  // namespace rmcpp::commands
