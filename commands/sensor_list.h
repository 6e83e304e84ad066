// The sensors of the SDR repository with their present readings: what
// "sdr list" and "sensor list" show. For each full and compact sensor record
// Get Sensor Reading (and, for threshold sensors with a full record, Get
// Sensor Thresholds); event-only records are listed without a reading.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "sdr_repository.h"
#include "sensor_reading.h"
#include "sensor_thresholds.h"
#include "transport.h"

namespace rmcpp::commands {

// sensors: full and compact records (what "sdr list" shows without a type);
// all: event-only records too.
enum class SdrFilter : uint8_t { sensors, all, full, compact, event };

enum class SensorState : uint8_t {
    reading,     // the BMC gave a reading (or states)
    no_reading,  // reading unavailable, scanning disabled, or refused (CBh: not present)
    disabled,    // the record says the sensor is not scanned
    event_only,  // an event-only record: nothing to read
};

// Thresholds converted to the sensor's unit; absent when not readable.
struct SensorThresholdValues {
    std::optional<double> lnr, lcr, lnc, unc, ucr, unr;
};

struct SensorListEntry {
    uint16_t record_id = 0;
    uint8_t record_type = 0;
    std::string name;
    uint8_t number = 0;
    uint8_t owner_lun = 0;
    uint8_t sensor_type = 0;
    uint8_t event_reading_type = 0;
    bool threshold_based = false;  // event/reading type 01h
    SensorState state = SensorState::reading;
    uint8_t completion_code = 0;  // of Get Sensor Reading, when it refused (CBh: not present)
    std::optional<double> reading;  // threshold sensors with an analog reading
    uint8_t raw = 0;
    std::string unit;  // "degrees C", "RPM"; "discrete" for discrete sensors
    bool percentage = false;
    ThresholdState threshold;  // for threshold sensors with a reading
    uint16_t discrete_states = 0;
    SensorThresholdValues thresholds;
};

// The threshold sensors' severity word ("ok", "nc", "cr", "nr") or "ns" when
// there is no reading to judge.
std::string sensor_status_text(const SensorListEntry &e);

// The entries for already-read records.
std::vector<SensorListEntry> sensor_list(Transport &t, const std::vector<Bytes> &records, SdrFilter filter);
// Reads the repository first.
std::vector<SensorListEntry> sensor_list(Transport &t, SdrFilter filter);

}  // namespace rmcpp::commands
