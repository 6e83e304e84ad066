#include "sdr_store.h"

#include <algorithm>
#include <cmath>
#include <ctime>
#include <random>

#include "sdr_record.h"
#include "sdr_repository.h"
#include "sensor_reading.h"
#include "sensor_thresholds.h"
#include "wire.h"

namespace cmd = rmcpp::commands;

namespace bmcsim {

double SensorWave::at(uint64_t ms) const
{
    switch (kind) {
    case Kind::fixed: return value;
    case Kind::sine: {
        const double period = period_ms ? period_ms : 1;
        return value + amplitude * std::sin(2 * M_PI * static_cast<double>((ms + phase_ms) % period_ms) / period);
    }
    case Kind::random_walk: {
        // Replayed from the start with the seed, so a time always gives the
        // same value; the walk stops after 100000 steps.
        const uint64_t steps = ms / (period_ms ? period_ms : 1);
        double v = value;
        std::mt19937 gen(seed);
        std::uniform_real_distribution<double> move(-step, step);
        for (uint64_t i = 0; i < steps && i < 100000; ++i) v = std::clamp(v + move(gen), min, max);
        return v;
    }
    }
    return value;
}

}  // namespace bmcsim

namespace bmcsim::detail {

namespace {

enum : uint8_t { kStorage = 0x0A, kSensorEvent = 0x04 };
enum : uint8_t {
    kOk = 0x00,
    kInvalidCommand = 0xC1,
    kRequestLengthInvalid = 0xC7,
    kParameterOutOfRange = 0xC9,
    kNotPresent = 0xCB,
};

cmd::SensorConversion conversion(const SimSensor &s)
{
    cmd::SensorConversion c;
    c.format = static_cast<cmd::SdrAnalogFormat>(s.analog_format & 0x03);
    c.linearization = s.linearization;
    c.m = s.m;
    c.b = s.b;
    c.b_exp = s.b_exp;
    c.r_exp = s.r_exp;
    return c;
}

const SimSensor *find_sensor(const Config &c, uint8_t number)
{
    for (const SimSensor &s : c.sensors)
        if (s.number == number) return &s;
    return nullptr;
}

cmd::SdrIdString id_string(const std::string &name)
{
    cmd::SdrIdString id;
    id.type = cmd::SdrIdStringType::ascii_8bit;
    id.raw.assign(name.begin(), name.begin() + static_cast<std::ptrdiff_t>(std::min<size_t>(name.size(), 16)));
    id.text.assign(id.raw.begin(), id.raw.end());
    return id;
}

cmd::SdrSensorKey key_of(const SimSensor &s)
{
    cmd::SdrSensorKey k;
    k.owner_id = 0x10;  // slave address 20h, the BMC
    k.owner_lun = s.lun & 0x03;
    k.number = s.number;
    k.entity_id = s.entity_id;
    k.entity_instance = s.entity_instance & 0x7F;
    return k;
}

// Threshold masks: the assertion events each threshold raises (going low
// for lower thresholds, going high for upper ones).
uint16_t threshold_events(const SimSensor &s)
{
    uint16_t m = 0;
    if (s.lnc) m |= 1u << 0;
    if (s.lcr) m |= 1u << 2;
    if (s.lnr) m |= 1u << 4;
    if (s.unc) m |= 1u << 7;
    if (s.ucr) m |= 1u << 9;
    if (s.unr) m |= 1u << 11;
    return m;
}

uint8_t readable_mask(const SimSensor &s)
{
    return static_cast<uint8_t>((s.lnc ? cmd::threshold_lnc : 0) | (s.lcr ? cmd::threshold_lcr : 0) |
                                (s.lnr ? cmd::threshold_lnr : 0) | (s.unc ? cmd::threshold_unc : 0) |
                                (s.ucr ? cmd::threshold_ucr : 0) | (s.unr ? cmd::threshold_unr : 0));
}

uint8_t raw_or_zero(const SimSensor &s, const std::optional<double> &v) { return v ? sensor_raw_for(s, *v) : 0; }

}  // namespace

double sensor_value_of(const SimSensor &s, uint8_t raw)
{
    double v = 0;
    if (cmd::convert_sensor_reading(conversion(s), raw, v) != cmd::SensorConvertResult::ok) return NAN;
    return v;
}

uint8_t sensor_raw_for(const SimSensor &s, double value)
{
    uint8_t best = 0;
    double best_distance = INFINITY;
    for (int raw = 0; raw <= 255; ++raw) {
        const double v = sensor_value_of(s, static_cast<uint8_t>(raw));
        if (std::isnan(v)) continue;
        const double d = std::fabs(v - value);
        if (d < best_distance) {
            best_distance = d;
            best = static_cast<uint8_t>(raw);
        }
    }
    return best;
}

Bytes sensor_record(const SimSensor &s, uint16_t record_id)
{
    const uint8_t init = static_cast<uint8_t>(s.scanning ? 0x7F : 0x7D);  // scanning, events, defaults
    if (s.threshold_based()) {
        cmd::SdrFullSensor r;
        r.header.record_id = record_id;
        r.header.version = 0x51;
        r.key = key_of(s);
        r.initialization = init;
        r.capabilities = 0x68;  // thresholds readable and settable, per-threshold events
        r.sensor_type = s.sensor_type;
        r.event_reading_type = s.event_reading_type;
        r.assertion_mask = threshold_events(s);
        r.deassertion_mask = threshold_events(s);
        r.reading_mask = static_cast<uint16_t>(readable_mask(s) << 8 | readable_mask(s));
        r.units.analog_format = static_cast<cmd::SdrAnalogFormat>(s.analog_format & 0x03);
        r.units.base_unit = s.base_unit;
        r.linearization = s.linearization;
        r.m = s.m;
        r.b = s.b;
        r.r_exp = s.r_exp;
        r.b_exp = s.b_exp;
        r.sensor_max = 0xFF;
        r.sensor_min = 0x00;
        r.upper_non_recoverable = raw_or_zero(s, s.unr);
        r.upper_critical = raw_or_zero(s, s.ucr);
        r.upper_non_critical = raw_or_zero(s, s.unc);
        r.lower_non_recoverable = raw_or_zero(s, s.lnr);
        r.lower_critical = raw_or_zero(s, s.lcr);
        r.lower_non_critical = raw_or_zero(s, s.lnc);
        r.id = id_string(s.name);
        return cmd::encode_sdr_full_sensor(r);
    }
    cmd::SdrCompactSensor r;
    r.header.record_id = record_id;
    r.header.version = 0x51;
    r.key = key_of(s);
    r.initialization = init;
    r.capabilities = 0x40;  // auto re-arm, no thresholds
    r.sensor_type = s.sensor_type;
    r.event_reading_type = s.event_reading_type;
    r.assertion_mask = 0x7FFF;
    r.deassertion_mask = 0x7FFF;
    r.reading_mask = 0x7FFF;
    r.units.analog_format = cmd::SdrAnalogFormat::none;
    r.sharing.share_count = 1;
    r.id = id_string(s.name);
    return cmd::encode_sdr_compact_sensor(r);
}

void SdrRepository::rebuild(const Config &c)
{
    if (built_ && built_for_ == c.sensors) return;
    std::vector<Bytes> records;
    for (size_t i = 0; i < c.sensors.size(); ++i) records.push_back(sensor_record(c.sensors[i], static_cast<uint16_t>(i + 1)));
    if (built_) {
        // A record that is new counts as an addition, one that is gone as
        // an erase; each change gets a later second than the one before.
        auto missing_from = [](const std::vector<Bytes> &from, const std::vector<Bytes> &of) {
            for (const Bytes &r : of)
                if (std::find(from.begin(), from.end(), r) == from.end()) return true;
            return false;
        };
        const uint32_t now = static_cast<uint32_t>(std::time(nullptr));
        const uint32_t stamp = std::max(now, std::max(last_addition_, last_erase_) + 1);
        if (missing_from(records_, records)) last_addition_ = stamp;
        if (missing_from(records, records_)) last_erase_ = stamp;
    }
    built_ = true;
    built_for_ = c.sensors;
    records_ = std::move(records);
}

uint8_t SdrRepository::status_of(const SimSensor &s, uint8_t raw) const
{
    const double v = sensor_value_of(s, raw);
    auto at_or_below = [&](const std::optional<double> &t) { return t && v <= sensor_value_of(s, sensor_raw_for(s, *t)); };
    auto at_or_above = [&](const std::optional<double> &t) { return t && v >= sensor_value_of(s, sensor_raw_for(s, *t)); };
    uint8_t bits = 0;
    if (at_or_below(s.lnc)) bits |= cmd::sensor_at_or_below_lower_non_critical;
    if (at_or_below(s.lcr)) bits |= cmd::sensor_at_or_below_lower_critical;
    if (at_or_below(s.lnr)) bits |= cmd::sensor_at_or_below_lower_non_recoverable;
    if (at_or_above(s.unc)) bits |= cmd::sensor_at_or_above_upper_non_critical;
    if (at_or_above(s.ucr)) bits |= cmd::sensor_at_or_above_upper_critical;
    if (at_or_above(s.unr)) bits |= cmd::sensor_at_or_above_upper_non_recoverable;
    return bits;
}

void SdrRepository::sample(const Config &c, uint64_t now_ms)
{
    static constexpr uint8_t kOffsets[6] = {0x00, 0x02, 0x04, 0x07, 0x09, 0x0B};
    for (const SimSensor &s : c.sensors) {
        if (!s.threshold_based() || s.unavailable || !s.scanning) continue;
        const uint8_t raw = sensor_raw_for(s, s.reading.at(now_ms));
        const uint8_t now = status_of(s, raw);
        auto [it, first] = last_status_.try_emplace(s.number, 0);
        const uint8_t changed = static_cast<uint8_t>(now ^ it->second);
        it->second = now;
        if (!changed || (!c.on_threshold_crossing && !log_event)) continue;
        const std::optional<double> thresholds[6] = {s.lnc, s.lcr, s.lnr, s.unc, s.ucr, s.unr};
        for (int i = 0; i < 6; ++i) {
            if (!(changed & (1u << i))) continue;
            ThresholdCrossing x;
            x.sensor_number = s.number;
            x.sensor_type = s.sensor_type;
            x.sensor_name = s.name;
            x.event_offset = kOffsets[i];
            x.asserted = (now & (1u << i)) != 0;
            x.raw_reading = raw;
            x.raw_threshold = raw_or_zero(s, thresholds[i]);
            x.reading = sensor_value_of(s, raw);
            x.at_ms = now_ms;
            if (c.on_threshold_crossing) c.on_threshold_crossing(x);
            if (log_event) log_event(x);
        }
    }
}

bool SdrRepository::handle(uint8_t netfn, uint8_t command, const Bytes &data, const Config &c, uint64_t now_ms,
                           uint8_t &cc, Bytes &out)
{
    cc = kOk;
    out.clear();
    if (netfn == kStorage && command == cmd::get_sdr_repository_info_cmd) {
        rebuild(c);
        cmd::SdrRepositoryInfo info;
        info.record_count = static_cast<uint16_t>(c.sensors.size());
        info.free_space = 0x0800;
        info.operation_support = 0x22;  // non-modal updates, Reserve SDR Repository
        info.last_addition = last_addition_;
        info.last_erase = last_erase_;
        out = cmd::encode_get_sdr_repository_info(info);
        return true;
    }
    if (netfn == kStorage && command == cmd::reserve_sdr_repository_cmd) {
        if (++reservation_ == 0) reservation_ = 1;
        out = cmd::encode_reserve_sdr_repository(reservation_);
        return true;
    }
    if (netfn == kStorage && command == cmd::get_sdr_cmd) {
        rebuild(c);
        cmd::GetSdrRequest rq;
        if (!cmd::decode_get_sdr_request(data, rq)) return cc = kRequestLengthInvalid, true;
        const bool whole = rq.offset == 0 && rq.count == cmd::sdr_read_whole_record;
        // A partial read needs the reservation in force; a whole record may
        // be read without one.
        if (!(whole && rq.reservation == 0) && (rq.reservation == 0 || rq.reservation != reservation_))
            return cc = cmd::cc_reservation_cancelled, true;
        if (records_.empty()) return cc = kNotPresent, true;
        size_t index = 0;
        if (rq.record_id != cmd::sdr_first_record_id) {
            index = static_cast<size_t>(rq.record_id) - 1;
            if (rq.record_id == cmd::sdr_last_record_id) index = records_.size() - 1;
            if (index >= records_.size()) return cc = kNotPresent, true;
        }
        const Bytes &record = records_[index];
        if (rq.offset > record.size()) return cc = kParameterOutOfRange, true;
        const size_t n = std::min<size_t>(rq.count, record.size() - rq.offset);
        if (n > kMaxRead) return cc = cmd::cc_cannot_return_bytes, true;
        const uint16_t next = index + 1 < records_.size() ? static_cast<uint16_t>(index + 2) : cmd::sdr_last_record_id;
        out = cmd::encode_get_sdr(next, record.data() + rq.offset, n);
        return true;
    }
    if (netfn == kSensorEvent &&
        (command == cmd::get_sensor_reading_cmd || command == cmd::get_sensor_thresholds_cmd)) {
        if (data.size() != 1) return cc = kRequestLengthInvalid, true;
        const SimSensor *s = find_sensor(c, data[0]);
        if (!s) return cc = kNotPresent, true;
        sample(c, now_ms);
        if (command == cmd::get_sensor_thresholds_cmd) {
            if (!s->threshold_based()) return cc = kInvalidCommand, true;
            cmd::SensorThresholds t;
            t.readable = readable_mask(*s);
            t.lower_non_critical = raw_or_zero(*s, s->lnc);
            t.lower_critical = raw_or_zero(*s, s->lcr);
            t.lower_non_recoverable = raw_or_zero(*s, s->lnr);
            t.upper_non_critical = raw_or_zero(*s, s->unc);
            t.upper_critical = raw_or_zero(*s, s->ucr);
            t.upper_non_recoverable = raw_or_zero(*s, s->unr);
            out = cmd::encode_get_sensor_thresholds(t);
            return true;
        }
        const uint8_t flags = static_cast<uint8_t>(0x80 | (s->scanning ? 0x40 : 0) | (s->unavailable ? 0x20 : 0));
        if (s->threshold_based()) {
            const uint8_t raw = sensor_raw_for(*s, s->reading.at(now_ms));
            out = {raw, flags, static_cast<uint8_t>(0xC0 | status_of(*s, raw))};
        } else {
            out = {0x00, flags, static_cast<uint8_t>(s->states & 0xFF), static_cast<uint8_t>(0x80 | ((s->states >> 8) & 0x7F))};
        }
        return true;
    }
    return false;
}

}  // namespace bmcsim::detail
