// A scripted BMC for the SDR procedures' tests: an SDR repository answering
// Get SDR Repository Info, Reserve SDR Repository and Get SDR the way a BMC
// does (reservations a later one cancels, partial reads, CAh above a size),
// and sensors answering Get Sensor Reading and Get Sensor Thresholds.
#pragma once

#include <map>
#include <string>

#include "scripted_transport_testkit.h"
#include "sdr_record.h"
#include "sdr_repository.h"
#include "sensor_reading.h"
#include "sensor_thresholds.h"

namespace rmcpp::commands::testkit {

inline SdrFullSensor full_sensor(uint16_t id, uint8_t number, const std::string &name)
{
    SdrFullSensor s;
    s.header.record_id = id;
    s.header.version = 0x51;
    s.key.owner_id = 0x10;  // slave address 20h
    s.key.number = number;
    s.key.entity_id = 0x03;
    s.key.entity_instance = 1;
    s.initialization = 0x7F;
    s.capabilities = 0x68;
    s.sensor_type = 0x01;         // temperature
    s.event_reading_type = 0x01;  // threshold
    s.reading_mask = 0x3F3F;      // all thresholds readable and settable
    s.units.base_unit = 1;        // degrees C
    s.m = 1;
    s.upper_non_recoverable = 100;
    s.upper_critical = 90;
    s.upper_non_critical = 80;
    s.lower_non_recoverable = 0;
    s.lower_critical = 5;
    s.lower_non_critical = 10;
    s.id.type = SdrIdStringType::ascii_8bit;
    s.id.raw.assign(name.begin(), name.end());
    s.id.text = name;
    return s;
}

inline SdrCompactSensor compact_sensor(uint16_t id, uint8_t number, const std::string &name)
{
    SdrCompactSensor s;
    s.header.record_id = id;
    s.header.version = 0x51;
    s.key.owner_id = 0x10;
    s.key.number = number;
    s.initialization = 0x7F;
    s.sensor_type = 0x08;         // power supply
    s.event_reading_type = 0x6F;  // sensor-specific discrete
    s.id.type = SdrIdStringType::ascii_8bit;
    s.id.raw.assign(name.begin(), name.end());
    s.id.text = name;
    return s;
}

// An event-only record, built byte by byte (there is no encoder for it).
inline Bytes event_only_record(uint16_t id, uint8_t number, const std::string &name)
{
    Bytes r{static_cast<uint8_t>(id), static_cast<uint8_t>(id >> 8), 0x51, sdr_type_event_only,
            static_cast<uint8_t>(12 + name.size()), 0x20, 0x00, number, 0x07, 0x01, 0x05, 0x6F, 0x01, 0x00, 0x00,
            0x00, static_cast<uint8_t>(0xC0 | name.size())};
    r.insert(r.end(), name.begin(), name.end());
    return r;
}

struct FakeSensor {
    uint8_t completion_code = 0;
    Bytes reading{0x00, 0xC0, 0x00};  // reading, flags, states
    uint8_t thresholds_cc = 0;
    SensorThresholds thresholds{0x3F, 10, 5, 0, 80, 90, 100};
};

struct FakeSdrBmc {
    std::vector<Bytes> records;
    std::map<uint8_t, FakeSensor> sensors;
    uint8_t max_read = 255;          // CAh when more is asked for
    int cancel_after_reads = -1;     // Get SDRs answered before a reservation is lost (once)
    std::map<size_t, uint16_t> next_override;  // record index -> next ID given
    bool info_fails = false;

    uint16_t reservation = 0;
    int reads = 0;
    int reservations = 0;
    std::vector<GetSdrRequest> gets;

    Reply answer(const Request &rq)
    {
        if (rq.netfn == sdr_storage_netfn && rq.cmd == get_sdr_repository_info_cmd) {
            if (info_fails) return {0, 0xC1, {}};
            SdrRepositoryInfo info;
            info.record_count = static_cast<uint16_t>(records.size());
            info.free_space = 0x1000;
            return {0, 0, encode_get_sdr_repository_info(info)};
        }
        if (rq.netfn == sdr_storage_netfn && rq.cmd == reserve_sdr_repository_cmd) {
            ++reservations;
            reservation = static_cast<uint16_t>(0x0100 + reservations);
            return {0, 0, encode_reserve_sdr_repository(reservation)};
        }
        if (rq.netfn == sdr_storage_netfn && rq.cmd == get_sdr_cmd) return get_sdr(rq.data);
        if (rq.netfn == get_sensor_reading_netfn && !rq.data.empty()) {
            auto it = sensors.find(rq.data[0]);
            if (it == sensors.end()) return {0, 0xCB, {}};
            if (rq.cmd == get_sensor_reading_cmd) {
                if (it->second.completion_code) return {0, it->second.completion_code, {}};
                return {0, 0, it->second.reading};
            }
            if (rq.cmd == get_sensor_thresholds_cmd) {
                if (it->second.thresholds_cc) return {0, it->second.thresholds_cc, {}};
                return {0, 0, encode_get_sensor_thresholds(it->second.thresholds)};
            }
        }
        return {0, 0xC1, {}};
    }

    Reply get_sdr(const Bytes &data)
    {
        GetSdrRequest rq;
        if (!decode_get_sdr_request(data, rq)) return {0, 0xC7, {}};
        gets.push_back(rq);
        if (cancel_after_reads >= 0 && reads++ == cancel_after_reads) {
            cancel_after_reads = -1;
            ++reservation;  // someone else reserved
        }
        if (rq.reservation != reservation) return {0, cc_reservation_cancelled, {}};
        size_t index = 0;
        if (rq.record_id != sdr_first_record_id) {
            while (index < records.size() && (records[index][0] | (records[index][1] << 8)) != rq.record_id) ++index;
            if (index == records.size()) return {0, 0xCB, {}};
        }
        const Bytes &r = records[index];
        if (rq.count > max_read && rq.count != sdr_read_whole_record) return {0, cc_cannot_return_bytes, {}};
        if (rq.offset > r.size()) return {0, 0xC9, {}};
        const size_t n = std::min<size_t>(rq.count, r.size() - rq.offset);
        uint16_t next = index + 1 < records.size()
                            ? static_cast<uint16_t>(records[index + 1][0] | (records[index + 1][1] << 8))
                            : sdr_last_record_id;
        if (auto o = next_override.find(index); o != next_override.end()) next = o->second;
        return {0, 0, encode_get_sdr(next, r.data() + rq.offset, n)};
    }

    // A ScriptedTransport answering from this BMC.
    void attach(ScriptedTransport &t)
    {
        t.answer = [this](const Request &rq) { return answer(rq); };
    }
};

}  // namespace rmcpp::commands::testkit
