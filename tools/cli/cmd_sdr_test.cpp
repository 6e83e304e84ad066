#include <gtest/gtest.h>

#include "runner_testkit.h"
#include "sdr_list_print.h"
#include "sdr_testkit.h"

using namespace rmcpp::commands;
using rmcpp::commands::testkit::FakeSdrBmc;
using rmcpp::commands::testkit::ScriptedTransport;

namespace {

FakeSdrBmc machine()
{
    FakeSdrBmc bmc;
    SdrFullSensor cpu = testkit::full_sensor(0x0001, 0x10, "CPU Temp");
    cpu.m = 5;
    cpu.b = -20;
    cpu.b_exp = 1;
    cpu.r_exp = -1;
    bmc.records.push_back(encode_sdr_full_sensor(cpu));
    SdrFullSensor volts = testkit::full_sensor(0x0002, 0x20, "12V");
    volts.sensor_type = 0x02;
    volts.units.base_unit = 4;
    volts.m = 6;
    volts.r_exp = -2;
    bmc.records.push_back(encode_sdr_full_sensor(volts));
    bmc.records.push_back(encode_sdr_compact_sensor(testkit::compact_sensor(0x0003, 0x30, "PS1 Status")));
    bmc.records.push_back(testkit::event_only_record(0x0004, 0x40, "Watchdog"));
    bmc.sensors[0x10].reading = {130, 0xC0, 0x10};  // upper critical
    bmc.sensors[0x10].thresholds = {0x38, 0, 0, 0, 170, 180, 200};
    bmc.sensors[0x20].reading = {215, 0xC0, 0x00};
    bmc.sensors[0x30].reading = {0x00, 0xC0, 0x01, 0x00};
    return bmc;
}

struct Tool {
    FakeSdrBmc bmc = machine();
    ScriptedTransport t;
    cli::testkit::CapturingRunner runner{t};
    CLI::App app;
    Tool()
    {
        bmc.attach(t);
        cli::add_sdr_commands(app, runner);
    }
};

TEST(SdrList, WithoutATypeListsFullAndCompactRecords)
{
    Tool tool;
    cli::testkit::parse(tool.app, {"sdr", "list"});
    ASSERT_TRUE(tool.runner.printed);
    EXPECT_EQ(tool.runner.printed->json.size(), 3u);
    EXPECT_EQ(tool.runner.printed->text.find("Watchdog"), std::string::npos);
}

TEST(SdrList, PrintsIpmitoolsLayout)
{
    Tool tool;
    cli::testkit::parse(tool.app, {"sdr", "list", "all"});
    ASSERT_TRUE(tool.runner.printed) << (tool.runner.error ? tool.runner.error->what() : "");
    EXPECT_EQ(tool.runner.sessions, (std::vector<std::string>{"sdr list"}));
    EXPECT_EQ(tool.runner.printed->text,
              "CPU Temp         | 45 degrees C      | cr\n"
              "12V              | 12.90 Volts       | ok\n"
              "PS1 Status       | 0x01              | ok\n"
              "Watchdog         | Event-Only        | ns\n");
}

TEST(SdrList, JsonCarriesTheSameValuesAsNumbers)
{
    Tool tool;
    cli::testkit::parse(tool.app, {"sdr", "list", "all"});
    ASSERT_TRUE(tool.runner.printed);
    const auto &j = tool.runner.printed->json;
    ASSERT_TRUE(j.is_array());
    ASSERT_EQ(j.size(), 4u);
    EXPECT_EQ(j[0]["name"], "CPU Temp");
    EXPECT_EQ(j[0]["sensor_number"], 0x10);
    EXPECT_EQ(j[0]["sensor_type"], "Temperature");
    EXPECT_TRUE(j[0]["reading"].is_number());
    EXPECT_DOUBLE_EQ(j[0]["reading"].get<double>(), 45.0);
    EXPECT_EQ(j[0]["unit"], "degrees C");
    EXPECT_EQ(j[0]["status"], "cr");
    EXPECT_TRUE(j[0]["thresholds"]["lnr"].is_null());
    EXPECT_DOUBLE_EQ(j[0]["thresholds"]["unc"].get<double>(), 65.0);
    EXPECT_DOUBLE_EQ(j[0]["thresholds"]["unr"].get<double>(), 80.0);
    EXPECT_DOUBLE_EQ(j[1]["reading"].get<double>(), 12.9);
    EXPECT_TRUE(j[2]["reading"].is_null());
    EXPECT_EQ(j[2]["states"], 1);
    EXPECT_EQ(j[3]["state"], "event_only");
    EXPECT_TRUE(j[3]["reading"].is_null());
}

TEST(SdrList, SensorListIsTheSameCommand)
{
    Tool a, b;
    cli::testkit::parse(a.app, {"sdr", "list", "full"});
    cli::testkit::parse(b.app, {"sensor", "list", "full"});
    ASSERT_TRUE(a.runner.printed && b.runner.printed);
    EXPECT_EQ(a.runner.printed->text, b.runner.printed->text);
    EXPECT_EQ(a.runner.printed->json, b.runner.printed->json);
    EXPECT_EQ(a.runner.printed->json.size(), 2u);
}

TEST(SdrList, FilterNamesOneRecordType)
{
    Tool tool;
    cli::testkit::parse(tool.app, {"sdr", "list", "event"});
    ASSERT_TRUE(tool.runner.printed);
    EXPECT_EQ(tool.runner.printed->text, "Watchdog         | Event-Only        | ns\n");
    Tool compact;
    cli::testkit::parse(compact.app, {"sdr", "list", "compact"});
    ASSERT_TRUE(compact.runner.printed);
    EXPECT_EQ(compact.runner.printed->text, "PS1 Status       | 0x01              | ok\n");
}

TEST(SdrList, UnknownRecordTypeIsAUsageError)
{
    Tool tool;
    cli::testkit::parse(tool.app, {"sdr", "list", "fruit"});
    ASSERT_TRUE(tool.runner.usage);
    EXPECT_NE(tool.runner.usage->find("fruit"), std::string::npos);
    EXPECT_EQ(tool.runner.exit_status(), 2);
    EXPECT_TRUE(tool.runner.sessions.empty());
}

TEST(SdrList, NoReadingAndDisabled)
{
    Tool tool;
    tool.bmc.sensors[0x10].reading = {0, 0xE0, 0x00};
    tool.bmc.sensors.erase(0x30);
    cli::testkit::parse(tool.app, {"sdr", "list", "all"});
    ASSERT_TRUE(tool.runner.printed);
    EXPECT_EQ(tool.runner.printed->text,
              "CPU Temp         | no reading        | ns\n"
              "12V              | 12.90 Volts       | ok\n"
              "PS1 Status       | Not Readable      | ns\n"
              "Watchdog         | Event-Only        | ns\n");
    EXPECT_TRUE(tool.runner.printed->json[0]["reading"].is_null());
    EXPECT_EQ(tool.runner.printed->json[0]["state"], "no_reading");
}

TEST(SdrList, ErrorOfTheBmcStopsTheCommand)
{
    Tool tool;
    tool.bmc.info_fails = true;
    cli::testkit::parse(tool.app, {"sdr", "list"});
    ASSERT_TRUE(tool.runner.error);
    EXPECT_EQ(tool.runner.error->step, "Get SDR Repository Info");
    EXPECT_EQ(tool.runner.exit_status(), 1);
}

TEST(SdrValueText, WholeNumbersWithoutDecimalsOthersWithTwo)
{
    SensorListEntry e;
    e.threshold_based = true;
    e.unit = "RPM";
    e.reading = 3000;
    EXPECT_EQ(cli::sdr_value_text(e), "3000 RPM");
    e.reading = -2.5;
    EXPECT_EQ(cli::sdr_value_text(e), "-2.50 RPM");
    e.percentage = true;
    e.reading = 40;
    EXPECT_EQ(cli::sdr_value_text(e), "40 percent");
}

}  // namespace
