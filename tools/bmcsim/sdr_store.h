// The simulated BMC's SDR repository and sensor device: records encoded
// from the configured sensors, reservations, Get SDR with partial reads,
// Get Sensor Reading and Get Sensor Thresholds, and the sampling that finds
// threshold crossings.
#pragma once

#include <map>
#include <vector>

#include "bmcsim.h"

namespace bmcsim::detail {

// A sensor's raw byte for a value in its unit: the byte whose converted
// value is nearest (every linearisation, every analog format).
uint8_t sensor_raw_for(const SimSensor &s, double value);
double sensor_value_of(const SimSensor &s, uint8_t raw);

// The record of a sensor: full for threshold sensors, compact for discrete.
Bytes sensor_record(const SimSensor &s, uint16_t record_id);

class SdrRepository {
public:
    // Get SDRs may return at most this many record bytes (CAh above).
    static constexpr size_t kMaxRead = 32;

    // Answers a Storage or Sensor/Event request when it is one of ours; the
    // completion code and data. `now_ms` counts from the simulator's start.
    bool handle(uint8_t netfn, uint8_t cmd, const Bytes &data, const Config &c, uint64_t now_ms, uint8_t &cc,
                Bytes &out);

    // Samples every sensor at `now_ms` and reports each threshold newly
    // crossed or left through the hook.
    void sample(const Config &c, uint64_t now_ms);

    uint16_t reservation() const { return reservation_; }

    // Also told of each crossing the sampling finds: the engine logs it in
    // the SEL.
    ThresholdCrossingHook log_event;

private:
    void rebuild(const Config &c);
    uint8_t status_of(const SimSensor &s, uint8_t raw) const;

    bool built_ = false;
    std::vector<SimSensor> built_for_;
    std::vector<Bytes> records_;
    // Most recent addition and erase: 0 for the repository the simulator
    // starts with, then the time of each change of the configured sensors
    // (records added or gone), so consoles that cache the repository see it
    // move.
    uint32_t last_addition_ = 0;
    uint32_t last_erase_ = 0;
    uint16_t reservation_ = 0;
    std::map<uint8_t, uint8_t> last_status_;  // by sensor number: threshold bits last seen
};

}  // namespace bmcsim::detail
