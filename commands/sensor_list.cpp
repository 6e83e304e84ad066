#include "sensor_list.h"

#include "sdr_record.h"
#include "sensor_units.h"

namespace rmcpp::commands {

namespace {

constexpr uint8_t threshold_event_reading_type = 0x01;
constexpr uint8_t init_scanning_enabled = 0x02;  // sensor initialization: scanning enabled

bool wanted(uint8_t type, SdrFilter filter)
{
    switch (filter) {
    case SdrFilter::sensors: return type == sdr_type_full_sensor || type == sdr_type_compact_sensor;
    case SdrFilter::all:
        return type == sdr_type_full_sensor || type == sdr_type_compact_sensor || type == sdr_type_event_only;
    case SdrFilter::full: return type == sdr_type_full_sensor;
    case SdrFilter::compact: return type == sdr_type_compact_sensor;
    case SdrFilter::event: return type == sdr_type_event_only;
    }
    return false;
}

[[noreturn]] void malformed(const std::string &step, const std::string &what)
{
    throw CommandError(CommandError::Kind::malformed, step, 0, 0, step + ": " + what);
}

std::string unit_text(const SdrUnits &u)
{
    std::string text;
    if (!sensor_unit_text(u.units1, u.base_unit, u.modifier_unit, text)) text = "unknown";
    return text;
}

std::optional<double> converted(const SensorConversion &c, uint8_t raw)
{
    double v = 0;
    if (convert_sensor_reading(c, raw, v) != SensorConvertResult::ok) return std::nullopt;
    return v;
}

// Reads the sensor; fills state, raw reading and states.
void read_sensor(Transport &t, SensorListEntry &e)
{
    uint8_t request[1];
    if (build_get_sensor_reading(e.number, request, sizeof request) == 0) {
        e.state = SensorState::no_reading;
        return;
    }
    const Reply reply =
        t.exchange_lun(e.owner_lun, get_sensor_reading_netfn, get_sensor_reading_cmd, Bytes(request, request + 1));
    // A sensor the BMC cannot read (CBh, or another refusal of this one
    // sensor) has no reading; the list goes on.
    if (reply.result == 0 && reply.completion_code != 0) {
        e.state = SensorState::no_reading;
        e.completion_code = reply.completion_code;
        return;
    }
    const Bytes data = call_replied(reply, "Get Sensor Reading");
    Bytes response{0x00};
    response.insert(response.end(), data.begin(), data.end());
    SensorReading r;
    if (decode_get_sensor_reading(response.data(), response.size(), r) != SensorReadingResult::ok)
        malformed("Get Sensor Reading", "sensor " + e.name + ": the answer does not decode");
    if (r.unavailable || r.scanning_disabled) {
        e.state = SensorState::no_reading;
        return;
    }
    e.raw = r.raw;
    e.discrete_states = r.discrete_states;
    if (e.threshold_based) e.threshold = threshold_state(r.threshold_status);
}

SensorThresholdValues threshold_values(const SensorConversion &c, const SensorThresholds &t)
{
    SensorThresholdValues v;
    auto take = [&](uint8_t bit, uint8_t raw, std::optional<double> &out) {
        if (t.readable & bit) out = converted(c, raw);
    };
    take(threshold_lnr, t.lower_non_recoverable, v.lnr);
    take(threshold_lcr, t.lower_critical, v.lcr);
    take(threshold_lnc, t.lower_non_critical, v.lnc);
    take(threshold_unc, t.upper_non_critical, v.unc);
    take(threshold_ucr, t.upper_critical, v.ucr);
    take(threshold_unr, t.upper_non_recoverable, v.unr);
    return v;
}

// The thresholds the sensor reports; the record's own when the BMC does not
// answer Get Sensor Thresholds.
SensorThresholds thresholds_of(Transport &t, const SdrFullSensor &s)
{
    SensorThresholds th;
    const Reply reply = t.exchange_lun(s.key.owner_lun, get_sensor_reading_netfn, get_sensor_thresholds_cmd,
                                       build_get_sensor_thresholds(s.key.number));
    if (reply.result == 0 && reply.completion_code == 0) {
        if (!decode_get_sensor_thresholds(reply.data, th))
            malformed("Get Sensor Thresholds", "the answer is not 7 bytes");
        return th;
    }
    if (reply.result != 0) call_replied(reply, "Get Sensor Thresholds");
    th.readable = static_cast<uint8_t>((s.reading_mask >> 8) & 0x3F);
    th.lower_non_critical = s.lower_non_critical;
    th.lower_critical = s.lower_critical;
    th.lower_non_recoverable = s.lower_non_recoverable;
    th.upper_non_critical = s.upper_non_critical;
    th.upper_critical = s.upper_critical;
    th.upper_non_recoverable = s.upper_non_recoverable;
    return th;
}

// What full and compact records share: the entry's identity and unit, and
// whether the sensor is scanned at all.
template <typename Record>
SensorListEntry sensor_entry(const Record &s)
{
    SensorListEntry e;
    e.record_id = s.header.record_id;
    e.record_type = s.header.type;
    e.name = s.id.text;
    e.number = s.key.number;
    e.owner_lun = s.key.owner_lun;
    e.sensor_type = s.sensor_type;
    e.event_reading_type = s.event_reading_type;
    e.threshold_based = s.event_reading_type == threshold_event_reading_type;
    e.unit = e.threshold_based ? unit_text(s.units) : "discrete";
    e.percentage = s.units.percentage;
    if (!(s.initialization & init_scanning_enabled)) e.state = SensorState::disabled;
    return e;
}

SensorListEntry full_entry(Transport &t, const Bytes &record)
{
    SdrFullSensor s;
    if (decode_sdr_full_sensor(record.data(), record.size(), s) != SdrResult::ok)
        malformed("Get SDR", "a full sensor record does not decode");
    SensorListEntry e = sensor_entry(s);
    if (e.state == SensorState::disabled) return e;
    read_sensor(t, e);
    if (!e.threshold_based) return e;
    // The thresholds are there to read even when the reading is not.
    const SensorConversion c = sensor_conversion(s);
    if (e.state == SensorState::reading) e.reading = converted(c, e.raw);
    e.thresholds = threshold_values(c, thresholds_of(t, s));
    return e;
}

// A compact record carries no conversion factors: no reading in a unit.
SensorListEntry compact_entry(Transport &t, const Bytes &record)
{
    SdrCompactSensor s;
    if (decode_sdr_compact_sensor(record.data(), record.size(), s) != SdrResult::ok)
        malformed("Get SDR", "a compact sensor record does not decode");
    SensorListEntry e = sensor_entry(s);
    if (e.state == SensorState::disabled) return e;
    read_sensor(t, e);
    return e;
}

SensorListEntry event_entry(const Bytes &record)
{
    SdrEventOnly s;
    if (decode_sdr_event_only(record.data(), record.size(), s) != SdrResult::ok)
        malformed("Get SDR", "an event-only record does not decode");
    SensorListEntry e;
    e.record_id = s.header.record_id;
    e.record_type = s.header.type;
    e.name = s.id.text;
    e.number = s.key.number;
    e.owner_lun = s.key.owner_lun;
    e.sensor_type = s.sensor_type;
    e.event_reading_type = s.event_reading_type;
    e.threshold_based = s.event_reading_type == threshold_event_reading_type;
    e.unit = "discrete";
    e.state = SensorState::event_only;
    return e;
}

}  // namespace

std::string sensor_status_text(const SensorListEntry &e)
{
    if (e.state != SensorState::reading) return "ns";
    if (!e.threshold_based) return "ok";
    return std::string(threshold_severity_text(e.threshold.severity));
}

std::vector<SensorListEntry> sensor_list(Transport &t, const std::vector<Bytes> &records, SdrFilter filter)
{
    std::vector<SensorListEntry> out;
    for (const Bytes &record : records) {
        SdrHeader h;
        if (decode_sdr_header(record.data(), record.size(), h) != SdrResult::ok)
            malformed("Get SDR", "a record shorter than its header");
        if (!wanted(h.type, filter)) continue;
        if (h.type == sdr_type_full_sensor) out.push_back(full_entry(t, record));
        else if (h.type == sdr_type_compact_sensor) out.push_back(compact_entry(t, record));
        else out.push_back(event_entry(record));
    }
    return out;
}

std::vector<SensorListEntry> sensor_list(Transport &t, SdrFilter filter)
{
    return sensor_list(t, read_sdr_repository(t), filter);
}

}  // namespace rmcpp::commands
