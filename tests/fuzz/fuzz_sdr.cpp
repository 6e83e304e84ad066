// Sensor data records as Get SDR returns them, and the Get Sensor Reading
// response read against the record: option byte 0 picks the record decoder
// (full, compact, event-only), option byte 1 gives the record's length; the
// reading response is the rest.
#include <string>

#include "fuzz_support.h"
#include "sensor_reading.h"
#include "sensor_units.h"

using namespace rmcpp::commands;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::Options in(data, size);
    const uint8_t which = in.u8() % 3;
    const uint8_t record_length = in.u8();
    const fuzz::Bytes record = in.take(record_length);
    const fuzz::Bytes response = in.rest();

    SdrHeader header;
    (void)decode_sdr_header(record.data(), record.size(), header);
    std::string unit;
    if (which == 0) {
        SdrFullSensor full;
        if (decode_sdr_full_sensor(record.data(), record.size(), full) != SdrResult::ok) return 0;
        (void)sensor_unit_text(full.units.units1, full.units.base_unit, full.units.modifier_unit, unit);
        SensorReading reading;
        if (decode_get_sensor_reading(response.data(), response.size(), reading) != SensorReadingResult::ok)
            return 0;
        double value = 0;
        (void)convert_sensor_reading(sensor_conversion(full), reading.raw, value);
        (void)threshold_state_text(threshold_state(reading.threshold_status));
    } else if (which == 1) {
        SdrCompactSensor compact;
        if (decode_sdr_compact_sensor(record.data(), record.size(), compact) != SdrResult::ok) return 0;
        (void)sensor_unit_text(compact.units.units1, compact.units.base_unit, compact.units.modifier_unit, unit);
    } else {
        SdrEventOnly event;
        (void)decode_sdr_event_only(record.data(), record.size(), event);
    }
    return 0;
}
