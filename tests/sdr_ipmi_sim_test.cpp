// The sensor list, read over a real session from OpenIPMI's ipmi_sim (a
// black box on 127.0.12.20) holding records made by our SDR encoders, says
// what ipmitool and FreeIPMI print for the same BMC.
#include <gtest/gtest.h>

#include <cstdio>
#include <memory>

#include "bmcsim_clients.h"
#include "ipmi_sim_peer.h"
#include "sdr_peers.h"
#include "sdr_record.h"
#include "session.h"

namespace {

using namespace std::chrono_literals;
namespace cmd = rmcpp::commands;

constexpr const char *kBmc = "127.0.12.20";

cmd::SdrFullSensor threshold_sensor(uint16_t id, uint8_t number, const std::string &name, uint8_t type, uint8_t unit)
{
    cmd::SdrFullSensor s;
    s.header.record_id = id;
    s.header.version = 0x51;
    s.key.owner_id = 0x10;  // the BMC, 20h
    s.key.number = number;
    s.key.entity_id = 0x07;
    s.key.entity_instance = 1;
    s.initialization = 0x7F;
    s.capabilities = 0x68;
    s.sensor_type = type;
    s.event_reading_type = 0x01;
    s.reading_mask = 0x3F3F;
    s.units.base_unit = unit;
    s.m = 1;
    s.id.raw.assign(name.begin(), name.end());
    return s;
}

std::string sdr_add(const cmd::Bytes &record)
{
    std::string line = "main_sdr_add 0x20";
    char byte[8];
    for (uint8_t b : record) {
        std::snprintf(byte, sizeof byte, " 0x%02x", b);
        line += byte;
    }
    return line + "\n";
}

// Records and sensors: a temperature in half degrees from -20 with its
// upper non-critical threshold crossed, a voltage at 0.06 V per count, a
// fan, a two's complement temperature below zero, a discrete power supply
// and an event-only record.
std::string emulator_commands()
{
    std::string c;
    auto cpu = threshold_sensor(1, 0x10, "CPU Temp", 0x01, 1);
    cpu.m = 5;
    cpu.b = -20;
    cpu.b_exp = 1;
    cpu.r_exp = -1;
    c += sdr_add(cmd::encode_sdr_full_sensor(cpu));
    c += "sensor_add 0x20 0 0x10 0x01 0x01\n";
    c += "sensor_set_threshold 0x20 0 0x10 settable 111111 200 180 170 40 50 60\n";
    c += "sensor_set_value 0x20 0 0x10 172 0\n";  // 66 degrees: at or above 65 (unc)

    auto volts = threshold_sensor(2, 0x20, "12V", 0x02, 4);
    volts.m = 6;
    volts.r_exp = -2;
    c += sdr_add(cmd::encode_sdr_full_sensor(volts));
    c += "sensor_add 0x20 0 0x20 0x02 0x01\n";
    c += "sensor_set_threshold 0x20 0 0x20 settable 011011 0 220 210 0 180 190\n";
    c += "sensor_set_value 0x20 0 0x20 201 0\n";

    auto fan = threshold_sensor(3, 0x30, "FAN1", 0x04, 18);
    fan.m = 60;
    c += sdr_add(cmd::encode_sdr_full_sensor(fan));
    c += "sensor_add 0x20 0 0x30 0x04 0x01\n";
    c += "sensor_set_threshold 0x20 0 0x30 settable 000011 0 0 0 0 10 15\n";
    c += "sensor_set_value 0x20 0 0x30 50 0\n";

    auto inlet = threshold_sensor(4, 0x31, "Inlet Temp", 0x01, 1);
    inlet.units.analog_format = cmd::SdrAnalogFormat::twos_complement;
    c += sdr_add(cmd::encode_sdr_full_sensor(inlet));
    c += "sensor_add 0x20 0 0x31 0x01 0x01\n";
    c += "sensor_set_threshold 0x20 0 0x31 settable 010010 0 45 0 0 0xfb 0\n";
    c += "sensor_set_value 0x20 0 0x31 0xfd 0\n";  // -3 degrees


    cmd::SdrCompactSensor psu;
    psu.header.record_id = 6;
    psu.header.version = 0x51;
    psu.key.owner_id = 0x10;
    psu.key.number = 0x40;
    psu.key.entity_id = 0x0A;
    psu.key.entity_instance = 1;
    psu.initialization = 0x7F;
    psu.capabilities = 0x40;
    psu.sensor_type = 0x08;
    psu.event_reading_type = 0x6F;
    psu.assertion_mask = psu.deassertion_mask = psu.reading_mask = 0x7FFF;
    psu.units.analog_format = cmd::SdrAnalogFormat::none;
    psu.sharing.share_count = 1;
    const std::string name = "PSU1 Status";
    psu.id.raw.assign(name.begin(), name.end());
    c += sdr_add(cmd::encode_sdr_compact_sensor(psu));
    c += "sensor_add 0x20 0 0x40 0x08 0x6f\n";
    c += "sensor_set_bit 0x20 0 0x40 0 1 0\n";

    // Event-only: watchdog 2, sensor 50h.
    c += sdr_add({0x07, 0x00, 0x51, 0x03, 0x14, 0x20, 0x00, 0x50, 0x07, 0x01, 0x23, 0x6F, 0x01, 0x00, 0x00, 0x00,
                  0xC8, 'W', 'a', 't', 'c', 'h', 'd', 'o', 'g'});
    return c;
}

class SdrIpmiSim : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        try {
            peer_ = std::make_unique<testkit::IpmiSimPeer>(std::string(kBmc), testkit::default_ipmi_sim_users(), true,
                                                           emulator_commands());
        } catch (const std::exception &e) {
            problem_ = e.what();
        }
    }
    static void TearDownTestSuite() { peer_.reset(); }
    void SetUp() override
    {
        if (!peer_) GTEST_FAIL() << "ipmi_sim did not start: " << problem_;
    }

    static std::vector<cmd::SensorListEntry> ours(cmd::SdrFilter filter)
    {
        cli::Options o;
        o.host = kBmc;
        o.user = "admin";
        o.password = "password";
        o.cipher_suite = 3;
        o.name_only = true;  // ipmi_sim looks users up by name only
        o.standard_keys = true;
        cli::Session s(o);
        EXPECT_EQ(s.open(), 0);
        return cmd::sensor_list(s, filter);
    }

    static testkit::ProgramResult ipmitool(std::vector<std::string> command)
    {
        std::vector<std::string> a{"ipmitool", "-I", "lanplus", "-H", kBmc, "-U", "admin", "-P", "password", "-C", "3"};
        a.insert(a.end(), command.begin(), command.end());
        return testkit::run_program(a, 20s);
    }

    static std::unique_ptr<testkit::IpmiSimPeer> peer_;
    static std::string problem_;
};

std::unique_ptr<testkit::IpmiSimPeer> SdrIpmiSim::peer_;
std::string SdrIpmiSim::problem_;

TEST_F(SdrIpmiSim, OurListReadsEveryRecord)
{
    const auto list = ours(cmd::SdrFilter::all);
    ASSERT_EQ(list.size(), 6u);
    ASSERT_TRUE(list[0].reading);
    EXPECT_DOUBLE_EQ(*list[0].reading, 66.0);
    EXPECT_EQ(cmd::sensor_status_text(list[0]), "nc");
    ASSERT_TRUE(list[3].reading);
    EXPECT_DOUBLE_EQ(*list[3].reading, -3.0);
    EXPECT_EQ(list[5].state, cmd::SensorState::event_only);
}

TEST_F(SdrIpmiSim, SameAsIpmitoolSdrList)
{
    const auto list = ours(cmd::SdrFilter::sensors);
    const auto r = ipmitool({"sdr", "list"});
    ASSERT_EQ(r.exit_code, 0) << r.out << r.err;
    EXPECT_EQ(list.size(), 5u);
    sdrtest::expect_as_ipmitool_sdr_list(list, r.out);
}

TEST_F(SdrIpmiSim, SameAsIpmitoolSdrListByRecordType)
{
    for (auto [filter, word] : {std::pair{cmd::SdrFilter::all, "all"}, std::pair{cmd::SdrFilter::full, "full"}, std::pair{cmd::SdrFilter::compact, "compact"},
                                std::pair{cmd::SdrFilter::event, "event"}}) {
        const auto list = ours(filter);
        const auto r = ipmitool({"sdr", "list", word});
        ASSERT_EQ(r.exit_code, 0) << r.out << r.err;
        sdrtest::expect_as_ipmitool_sdr_list(list, r.out);
    }
}

TEST_F(SdrIpmiSim, SameAsIpmitoolSensorList)
{
    auto list = ours(cmd::SdrFilter::all);
    const auto r = ipmitool({"sensor", "list"});
    ASSERT_EQ(r.exit_code, 0) << r.out << r.err;
    std::erase_if(list, [](const cmd::SensorListEntry &e) { return !e.reading; });
    sdrtest::expect_as_ipmitool_sensor_list(list, r.out);
}

TEST_F(SdrIpmiSim, SameAsFreeIpmiSensors)
{
    simtest::TempDir home;
    const std::string conf = home.path() + "/freeipmi.conf";
    std::fclose(std::fopen(conf.c_str(), "w"));
    const auto r = testkit::run_program(
        {"ipmi-sensors", "-D", "LAN_2_0", "-h", kBmc, "-u", "admin", "-p", "password", "-I", "3", "-W",
         "opensesspriv", "--config-file", conf, "--sdr-cache-directory", home.path(), "--quiet-cache",
         "--output-sensor-thresholds", "--comma-separated-output"},
        20s, {{"HOME", home.path()}});
    ASSERT_EQ(r.exit_code, 0) << r.out << "\n" << r.err;
    auto list = ours(cmd::SdrFilter::all);
    // FreeIPMI leaves event-only records out of its list.
    std::erase_if(list, [](const cmd::SensorListEntry &e) { return e.state == cmd::SensorState::event_only; });
    sdrtest::expect_as_ipmi_sensors(list, r.out);
}

}  // namespace
