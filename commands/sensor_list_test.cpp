#include "sensor_list.h"

#include <gtest/gtest.h>

#include "sdr_testkit.h"

using namespace rmcpp::commands;
using rmcpp::commands::testkit::FakeSdrBmc;
using rmcpp::commands::testkit::ScriptedTransport;

namespace {

// A temperature in 0.5 degree steps from -20: raw 130 is 45.0 degrees C.
SdrFullSensor cpu_temp()
{
    SdrFullSensor s = testkit::full_sensor(0x0001, 0x10, "CPU Temp");
    s.b = -20;
    s.m = 5;
    s.r_exp = -1;
    s.b_exp = 1;
    return s;
}

FakeSdrBmc machine()
{
    FakeSdrBmc bmc;
    bmc.records.push_back(encode_sdr_full_sensor(cpu_temp()));
    SdrFullSensor fan = testkit::full_sensor(0x0002, 0x20, "FAN1");
    fan.sensor_type = 0x04;
    fan.units.base_unit = 18;  // RPM
    fan.m = 60;
    bmc.records.push_back(encode_sdr_full_sensor(fan));
    bmc.records.push_back(encode_sdr_compact_sensor(testkit::compact_sensor(0x0003, 0x30, "PS1 Status")));
    bmc.records.push_back(testkit::event_only_record(0x0004, 0x40, "Watchdog"));
    // Raw 130 with upper non-critical crossed.
    bmc.sensors[0x10].reading = {130, 0xC0, 0x08};
    bmc.sensors[0x10].thresholds = {0x3F, 60, 50, 40, 116, 140, 160};
    bmc.sensors[0x20].reading = {50, 0xC0, 0x00};
    bmc.sensors[0x30].reading = {0x00, 0xC0, 0x01, 0x80};
    return bmc;
}

TEST(SensorList, ConvertsFullSensorReadingsAndThresholds)
{
    FakeSdrBmc bmc = machine();
    ScriptedTransport t;
    bmc.attach(t);
    const auto list = sensor_list(t, SdrFilter::all);
    ASSERT_EQ(list.size(), 4u);

    const SensorListEntry &cpu = list[0];
    EXPECT_EQ(cpu.name, "CPU Temp");
    EXPECT_EQ(cpu.number, 0x10);
    EXPECT_TRUE(cpu.threshold_based);
    EXPECT_EQ(cpu.state, SensorState::reading);
    ASSERT_TRUE(cpu.reading);
    EXPECT_DOUBLE_EQ(*cpu.reading, 45.0);
    EXPECT_EQ(cpu.unit, "degrees C");
    EXPECT_EQ(cpu.threshold.severity, ThresholdSeverity::non_critical);
    EXPECT_EQ(cpu.threshold.side, ThresholdSide::upper);
    EXPECT_EQ(sensor_status_text(cpu), "nc");
    ASSERT_TRUE(cpu.thresholds.lnr && cpu.thresholds.unr && cpu.thresholds.unc);
    EXPECT_DOUBLE_EQ(*cpu.thresholds.lnr, 0.0);
    EXPECT_DOUBLE_EQ(*cpu.thresholds.unc, 38.0);
    EXPECT_DOUBLE_EQ(*cpu.thresholds.unr, 60.0);

    EXPECT_EQ(list[1].name, "FAN1");
    ASSERT_TRUE(list[1].reading);
    EXPECT_DOUBLE_EQ(*list[1].reading, 3000.0);
    EXPECT_EQ(list[1].unit, "RPM");
    EXPECT_EQ(sensor_status_text(list[1]), "ok");

    EXPECT_EQ(list[2].name, "PS1 Status");
    EXPECT_FALSE(list[2].threshold_based);
    EXPECT_FALSE(list[2].reading);
    EXPECT_EQ(list[2].unit, "discrete");
    EXPECT_EQ(list[2].discrete_states, 0x0001);
    EXPECT_EQ(sensor_status_text(list[2]), "ok");

    EXPECT_EQ(list[3].name, "Watchdog");
    EXPECT_EQ(list[3].state, SensorState::event_only);
    EXPECT_EQ(sensor_status_text(list[3]), "ns");
}

TEST(SensorList, SensorsAreReadAtTheirOwnerLun)
{
    FakeSdrBmc bmc;
    SdrFullSensor s = cpu_temp();
    s.key.owner_lun = 2;
    bmc.records.push_back(encode_sdr_full_sensor(s));
    bmc.sensors[0x10].reading = {130, 0xC0, 0x00};
    ScriptedTransport t;
    bmc.attach(t);
    const auto list = sensor_list(t, SdrFilter::all);
    ASSERT_EQ(list.size(), 1u);
    EXPECT_EQ(list[0].owner_lun, 2);
    int sensor_requests = 0;
    for (const auto &rq : t.asked) {
        if (rq.netfn != get_sensor_reading_netfn) continue;
        ++sensor_requests;
        EXPECT_EQ(rq.lun, 2);
    }
    EXPECT_EQ(sensor_requests, 2);  // the reading and the thresholds
}

TEST(SensorList, FilterKeepsOneRecordType)
{
    FakeSdrBmc bmc = machine();
    ScriptedTransport t;
    bmc.attach(t);
    const auto records = read_sdr_repository(t);
    auto names = [&](SdrFilter f) {
        std::vector<std::string> n;
        for (const auto &e : sensor_list(t, records, f)) n.push_back(e.name);
        return n;
    };
    EXPECT_EQ(names(SdrFilter::sensors), (std::vector<std::string>{"CPU Temp", "FAN1", "PS1 Status"}));
    EXPECT_EQ(names(SdrFilter::all), (std::vector<std::string>{"CPU Temp", "FAN1", "PS1 Status", "Watchdog"}));
    EXPECT_EQ(names(SdrFilter::full), (std::vector<std::string>{"CPU Temp", "FAN1"}));
    EXPECT_EQ(names(SdrFilter::compact), (std::vector<std::string>{"PS1 Status"}));
    EXPECT_EQ(names(SdrFilter::event), (std::vector<std::string>{"Watchdog"}));
}

TEST(SensorList, UnavailableReadingScanningOffAndAbsentSensorHaveNoReading)
{
    FakeSdrBmc bmc = machine();
    bmc.sensors[0x10].reading = {130, 0xE0, 0x00};  // reading unavailable
    bmc.sensors[0x20].reading = {50, 0x80, 0x00};   // scanning disabled
    bmc.sensors.erase(0x30);                        // CBh: not present
    ScriptedTransport t;
    bmc.attach(t);
    const auto list = sensor_list(t, SdrFilter::all);
    EXPECT_EQ(list[2].completion_code, 0xCB);
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(list[i].state, SensorState::no_reading) << list[i].name;
        EXPECT_FALSE(list[i].reading) << list[i].name;
        EXPECT_EQ(sensor_status_text(list[i]), "ns") << list[i].name;
    }
    // A threshold sensor's thresholds are read all the same.
    ASSERT_TRUE(list[0].thresholds.unc);
    EXPECT_DOUBLE_EQ(*list[0].thresholds.unc, 38.0);
}

TEST(SensorList, RecordWithScanningOffIsDisabledAndNotRead)
{
    FakeSdrBmc bmc;
    SdrFullSensor s = cpu_temp();
    s.initialization = 0x7D;  // scanning not enabled
    bmc.records.push_back(encode_sdr_full_sensor(s));
    ScriptedTransport t;
    bmc.attach(t);
    const auto list = sensor_list(t, SdrFilter::all);
    ASSERT_EQ(list.size(), 1u);
    EXPECT_EQ(list[0].state, SensorState::disabled);
    for (const auto &rq : t.asked) EXPECT_NE(rq.netfn, get_sensor_reading_netfn);
}

TEST(SensorList, RecordThresholdsServeWhenGetSensorThresholdsIsRefused)
{
    FakeSdrBmc bmc = machine();
    bmc.sensors[0x10].thresholds_cc = 0xC1;
    ScriptedTransport t;
    bmc.attach(t);
    const auto list = sensor_list(t, SdrFilter::full);
    ASSERT_TRUE(list[0].thresholds.ucr);
    // The record's upper critical, raw 90: (5*90 - 200) / 10.
    EXPECT_DOUBLE_EQ(*list[0].thresholds.ucr, 25.0);
}

TEST(SensorList, OtherCompletionCodeOfAReadingIsKeptAndTheListGoesOn)
{
    FakeSdrBmc bmc = machine();
    bmc.sensors[0x20].completion_code = 0xCC;
    ScriptedTransport t;
    bmc.attach(t);
    const auto list = sensor_list(t, SdrFilter::all);
    ASSERT_EQ(list.size(), 4u);
    EXPECT_EQ(list[1].state, SensorState::no_reading);
    EXPECT_EQ(list[1].completion_code, 0xCC);
    EXPECT_EQ(list[2].state, SensorState::reading);
}

TEST(SensorList, FailedExchangeOfAReadingStops)
{
    FakeSdrBmc bmc = machine();
    ScriptedTransport t;
    t.answer = [&](const testkit::Request &rq) {
        if (rq.cmd == get_sensor_reading_cmd && rq.data[0] == 0x20) return Reply{-5, 0, {}};
        return bmc.answer(rq);
    };
    try {
        sensor_list(t, SdrFilter::all);
        FAIL() << "no error";
    } catch (const CommandError &e) {
        EXPECT_EQ(e.step, "Get Sensor Reading");
        EXPECT_EQ(e.kind, CommandError::Kind::exchange);
        EXPECT_EQ(e.result, -5);
    }
}

TEST(SensorList, ReadingAnswerTooLongIsMalformed)
{
    FakeSdrBmc bmc = machine();
    bmc.sensors[0x20].reading = {50, 0xC0, 0x00, 0x00, 0x00};
    ScriptedTransport t;
    bmc.attach(t);
    try {
        sensor_list(t, SdrFilter::all);
        FAIL() << "no error";
    } catch (const CommandError &e) {
        EXPECT_EQ(e.kind, CommandError::Kind::malformed);
    }
}

}  // namespace
