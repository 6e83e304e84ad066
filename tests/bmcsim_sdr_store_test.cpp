// The simulator's SDR repository and sensors, request by request, and the
// threshold crossings its sampling reports through the hook.
#include <gtest/gtest.h>

#include "sdr_record.h"
#include "sdr_repository.h"
#include "sdr_store.h"
#include "sensor_reading.h"
#include "sensor_thresholds.h"

namespace {

namespace cmd = rmcpp::commands;
using bmcsim::Bytes;
using bmcsim::Config;
using bmcsim::SimSensor;
using bmcsim::detail::SdrRepository;

SimSensor temperature()
{
    SimSensor s;
    s.name = "CPU Temp";
    s.number = 0x01;
    s.base_unit = 1;
    s.lnc = 5;
    s.unc = 80;
    s.ucr = 90;
    s.reading.value = 45;
    return s;
}

SimSensor psu()
{
    SimSensor s;
    s.name = "PSU1 Status";
    s.number = 0x30;
    s.sensor_type = 0x08;
    s.event_reading_type = 0x6F;
    s.states = 0x0003;
    return s;
}

struct Store {
    Config c;
    SdrRepository sdr;
    uint8_t cc = 0;
    Bytes out;
    Store()
    {
        c.sensors = {temperature(), psu()};
    }
    bool ask(uint8_t netfn, uint8_t command, const Bytes &data, uint64_t ms = 0)
    {
        return sdr.handle(netfn, command, data, c, ms, cc, out);
    }
    uint16_t reserve()
    {
        ask(0x0A, cmd::reserve_sdr_repository_cmd, {});
        uint16_t r = 0;
        cmd::decode_reserve_sdr_repository(out, r);
        return r;
    }
};

TEST(SimulatedSdrRepository, InfoCountsTheSensors)
{
    Store s;
    ASSERT_TRUE(s.ask(0x0A, cmd::get_sdr_repository_info_cmd, {}));
    cmd::SdrRepositoryInfo info;
    ASSERT_TRUE(cmd::decode_get_sdr_repository_info(s.out, info));
    EXPECT_EQ(info.record_count, 2);
    EXPECT_EQ(info.version, 0x51);
}

TEST(SimulatedSdrRepository, PartialReadsGiveTheEncodedRecord)
{
    Store s;
    const uint16_t r = s.reserve();
    const Bytes expected = bmcsim::detail::sensor_record(s.c.sensors[0], 1);
    Bytes got;
    uint16_t next = 0;
    for (size_t offset = 0; offset < expected.size(); offset += 10) {
        const uint8_t n = static_cast<uint8_t>(std::min<size_t>(10, expected.size() - offset));
        ASSERT_TRUE(s.ask(0x0A, cmd::get_sdr_cmd, cmd::build_get_sdr({r, 0x0000, static_cast<uint8_t>(offset), n})));
        ASSERT_EQ(s.cc, 0);
        cmd::GetSdrResponse resp;
        ASSERT_TRUE(cmd::decode_get_sdr(s.out, resp));
        next = resp.next_record_id;
        got.insert(got.end(), resp.data.begin(), resp.data.end());
    }
    EXPECT_EQ(got, expected);
    EXPECT_EQ(next, 2);
    cmd::SdrFullSensor full;
    ASSERT_EQ(cmd::decode_sdr_full_sensor(got.data(), got.size(), full), cmd::SdrResult::ok);
    EXPECT_EQ(full.id.text, "CPU Temp");
    EXPECT_EQ(full.upper_critical, 90);

    ASSERT_TRUE(s.ask(0x0A, cmd::get_sdr_cmd, cmd::build_get_sdr({r, 2, 0, 5})));
    cmd::GetSdrResponse last;
    ASSERT_TRUE(cmd::decode_get_sdr(s.out, last));
    EXPECT_EQ(last.next_record_id, 0xFFFF);
    EXPECT_EQ(last.data[3], cmd::sdr_type_compact_sensor);
}

TEST(SimulatedSdrRepository, ALaterReservationCancelsTheEarlierOne)
{
    Store s;
    const uint16_t first = s.reserve();
    const uint16_t second = s.reserve();
    EXPECT_NE(first, second);
    s.ask(0x0A, cmd::get_sdr_cmd, cmd::build_get_sdr({first, 0, 0, 5}));
    EXPECT_EQ(s.cc, cmd::cc_reservation_cancelled);
    s.ask(0x0A, cmd::get_sdr_cmd, cmd::build_get_sdr({second, 0, 0, 5}));
    EXPECT_EQ(s.cc, 0);
    s.ask(0x0A, cmd::get_sdr_cmd, cmd::build_get_sdr({0, 0, 5, 5}));
    EXPECT_EQ(s.cc, cmd::cc_reservation_cancelled);
}

TEST(SimulatedSdrRepository, MoreThanItCanReturnIsCAh)
{
    Store s;
    const uint16_t r = s.reserve();
    s.ask(0x0A, cmd::get_sdr_cmd, cmd::build_get_sdr({r, 0, 0, 0xFF}));
    EXPECT_EQ(s.cc, cmd::cc_cannot_return_bytes);
    s.ask(0x0A, cmd::get_sdr_cmd, cmd::build_get_sdr({r, 0, 5, SdrRepository::kMaxRead + 1}));
    EXPECT_EQ(s.cc, cmd::cc_cannot_return_bytes);
    s.ask(0x0A, cmd::get_sdr_cmd, cmd::build_get_sdr({r, 0, 5, SdrRepository::kMaxRead}));
    EXPECT_EQ(s.cc, 0);
    s.ask(0x0A, cmd::get_sdr_cmd, cmd::build_get_sdr({r, 9, 0, 5}));
    EXPECT_EQ(s.cc, 0xCB);
}

TEST(SimulatedSensors, ReadingAndThresholdsInRawCounts)
{
    Store s;
    ASSERT_TRUE(s.ask(0x04, cmd::get_sensor_reading_cmd, {0x01}));
    ASSERT_EQ(s.cc, 0);
    Bytes response{0x00};
    response.insert(response.end(), s.out.begin(), s.out.end());
    cmd::SensorReading r;
    ASSERT_EQ(cmd::decode_get_sensor_reading(response.data(), response.size(), r), cmd::SensorReadingResult::ok);
    EXPECT_EQ(r.raw, 45);
    EXPECT_FALSE(r.scanning_disabled);
    EXPECT_EQ(r.threshold_status, 0);

    ASSERT_TRUE(s.ask(0x04, cmd::get_sensor_thresholds_cmd, {0x01}));
    cmd::SensorThresholds t;
    ASSERT_TRUE(cmd::decode_get_sensor_thresholds(s.out, t));
    EXPECT_EQ(t.readable, cmd::threshold_lnc | cmd::threshold_unc | cmd::threshold_ucr);
    EXPECT_EQ(t.lower_non_critical, 5);
    EXPECT_EQ(t.upper_critical, 90);

    ASSERT_TRUE(s.ask(0x04, cmd::get_sensor_reading_cmd, {0x30}));
    EXPECT_EQ(s.out, (Bytes{0x00, 0xC0, 0x03, 0x80}));
    s.ask(0x04, cmd::get_sensor_reading_cmd, {0x77});
    EXPECT_EQ(s.cc, 0xCB);
}

TEST(SimulatedSensors, RawCountsFollowTheConversion)
{
    SimSensor v;
    v.m = 6;
    v.r_exp = -2;
    EXPECT_EQ(bmcsim::detail::sensor_raw_for(v, 12.06), 201);
    EXPECT_DOUBLE_EQ(bmcsim::detail::sensor_value_of(v, 201), 12.06);
    SimSensor t;
    t.analog_format = 2;
    EXPECT_EQ(bmcsim::detail::sensor_raw_for(t, -5), 0xFB);
}

TEST(SensorWave, SineAndWalkAreFunctionsOfTime)
{
    bmcsim::SensorWave sine;
    sine.kind = bmcsim::SensorWave::Kind::sine;
    sine.value = 50;
    sine.amplitude = 10;
    sine.period_ms = 1000;
    EXPECT_DOUBLE_EQ(sine.at(0), 50);
    EXPECT_NEAR(sine.at(250), 60, 1e-9);
    EXPECT_NEAR(sine.at(750), 40, 1e-9);
    EXPECT_NEAR(sine.at(1250), 60, 1e-9);

    bmcsim::SensorWave walk;
    walk.kind = bmcsim::SensorWave::Kind::random_walk;
    walk.value = 100;
    walk.step = 5;
    walk.period_ms = 100;
    walk.seed = 42;
    walk.min = 90;
    walk.max = 110;
    EXPECT_DOUBLE_EQ(walk.at(99), 100);
    EXPECT_NE(walk.at(100), 100);
    EXPECT_EQ(walk.at(5000), walk.at(5099));  // the same step, the same value
    bmcsim::SensorWave other = walk;
    other.seed = 43;
    bool differ = false;
    for (uint64_t ms = 100; ms < 3000; ms += 100) {
        EXPECT_GE(walk.at(ms), 90);
        EXPECT_LE(walk.at(ms), 110);
        differ = differ || walk.at(ms) != other.at(ms);
    }
    EXPECT_TRUE(differ);
}

TEST(ThresholdCrossings, EachCrossingAndReturnGoesThroughTheHook)
{
    Store s;
    // 60 +/- 40 over 4 s: above 80 (unc) and 90 (ucr) near 1 s, below 5
    // (lnc) near 3 s.
    s.c.sensors[0].reading.kind = bmcsim::SensorWave::Kind::sine;
    s.c.sensors[0].reading.value = 50;
    s.c.sensors[0].reading.amplitude = 48;
    s.c.sensors[0].reading.period_ms = 4000;
    std::vector<bmcsim::ThresholdCrossing> seen;
    s.c.on_threshold_crossing = [&](const bmcsim::ThresholdCrossing &x) { seen.push_back(x); };
    for (uint64_t ms = 0; ms <= 4000; ms += 100) s.sdr.sample(s.c, ms);

    std::vector<std::pair<uint8_t, bool>> order;
    for (const auto &x : seen) order.emplace_back(x.event_offset, x.asserted);
    EXPECT_EQ(order, (std::vector<std::pair<uint8_t, bool>>{
                         {0x07, true}, {0x09, true}, {0x09, false}, {0x07, false}, {0x00, true}, {0x00, false}}));
    ASSERT_FALSE(seen.empty());
    EXPECT_EQ(seen[0].sensor_number, 0x01);
    EXPECT_EQ(seen[0].sensor_name, "CPU Temp");
    EXPECT_GE(seen[0].reading, 80);
    EXPECT_EQ(seen[0].raw_threshold, 80);
    EXPECT_EQ(seen[1].raw_threshold, 90);
    EXPECT_GT(seen[1].at_ms, seen[0].at_ms);
}

TEST(ThresholdCrossings, NoHookNoCallAndASteadyReadingReportsNothingAgain)
{
    Store s;
    s.c.sensors[0].reading.value = 85;  // above unc from the start
    int calls = 0;
    s.sdr.sample(s.c, 0);  // no hook yet: the crossing is noted, not reported
    s.c.on_threshold_crossing = [&](const bmcsim::ThresholdCrossing &) { ++calls; };
    s.sdr.sample(s.c, 100);
    s.sdr.sample(s.c, 200);
    EXPECT_EQ(calls, 0);
    s.c.sensors[0].reading.value = 91;
    s.ask(0x04, cmd::get_sensor_reading_cmd, {0x01}, 300);  // a reading samples too
    EXPECT_EQ(calls, 1);
}

}  // namespace
