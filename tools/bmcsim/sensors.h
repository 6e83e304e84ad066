// The simulated machine's sensors: what a platform file's `sensors:` section
// describes, the readings they give over time, and the threshold crossings
// of those readings.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace bmcsim {

// How a reading moves: fixed, a sine, or a seeded random walk, in the
// sensor's unit. Time counts from the simulator's start.
struct SensorWave {
    enum class Kind { fixed, sine, random_walk } kind = Kind::fixed;
    double value = 0;       // fixed: the reading; sine: the centre; walk: the start
    double amplitude = 0;   // sine
    double step = 0;        // walk: each step moves up to this far either way
    double min = -1e300, max = 1e300;  // walk: kept inside
    uint32_t period_ms = 1000;  // sine: one cycle; walk: one step
    uint32_t phase_ms = 0;      // sine
    uint32_t seed = 1;          // walk

    double at(uint64_t ms) const;
    bool operator==(const SensorWave &) const = default;
};

struct SimSensor {
    std::string name;  // up to 16 characters
    uint8_t number = 0;
    uint8_t lun = 0;
    uint8_t sensor_type = 0x01;
    uint8_t event_reading_type = 0x01;  // 01h threshold; others discrete
    uint8_t entity_id = 0x07;           // system board
    uint8_t entity_instance = 1;
    uint8_t base_unit = 0;
    uint8_t analog_format = 0;  // 0 unsigned, 1 one's complement, 2 two's complement
    uint8_t linearization = 0;
    int16_t m = 1, b = 0;
    int8_t r_exp = 0, b_exp = 0;
    // Thresholds in the sensor's unit; absent ones are not readable.
    std::optional<double> lnr, lcr, lnc, unc, ucr, unr;
    SensorWave reading;
    uint16_t states = 0;       // discrete sensors: the state bits asserted
    bool unavailable = false;  // the reading is flagged unavailable
    bool scanning = true;      // the record enables scanning

    bool threshold_based() const { return event_reading_type == 0x01; }
    bool operator==(const SimSensor &) const = default;
};

// A reading that went past a threshold, or came back. Lower thresholds are
// crossed going low, upper ones going high.
struct ThresholdCrossing {
    uint8_t sensor_number = 0;
    uint8_t sensor_type = 0;
    std::string sensor_name;
    // Threshold event offset: 00h lower non-critical going low, 02h lower
    // critical, 04h lower non-recoverable, 07h upper non-critical going
    // high, 09h upper critical, 0Bh upper non-recoverable.
    uint8_t event_offset = 0;
    bool asserted = true;  // false: the reading came back (deassertion)
    uint8_t raw_reading = 0;
    uint8_t raw_threshold = 0;
    double reading = 0;
    uint64_t at_ms = 0;
};

using ThresholdCrossingHook = std::function<void(const ThresholdCrossing &)>;

}  // namespace bmcsim
