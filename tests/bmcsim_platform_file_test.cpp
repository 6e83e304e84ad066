// The simulator's platform file: sections by name, unknown keys refused
// with the line they are on, and the sensors it describes.
#include <gtest/gtest.h>

#include "platform_file.h"

namespace {

using bmcsim::Config;
using bmcsim::PlatformFileError;

std::string error_of(const std::string &text)
{
    Config c;
    try {
        bmcsim::load_platform_text(text, "p.yaml", c);
    } catch (const PlatformFileError &e) {
        return e.what();
    }
    return "";
}

TEST(PlatformFile, SampleLoadsEverySensor)
{
    Config c;
    bmcsim::load_platform_file(BMCSIM_SAMPLE_PLATFORM, c);
    ASSERT_EQ(c.sensors.size(), 7u);
    const auto &cpu = c.sensors[0];
    EXPECT_EQ(cpu.name, "CPU Temp");
    EXPECT_EQ(cpu.number, 0x01);
    EXPECT_EQ(cpu.sensor_type, 0x01);
    EXPECT_EQ(cpu.base_unit, 1);
    EXPECT_EQ(cpu.entity_id, 3);
    EXPECT_EQ(cpu.reading.kind, bmcsim::SensorWave::Kind::sine);
    EXPECT_EQ(cpu.reading.period_ms, 600000u);
    ASSERT_TRUE(cpu.ucr);
    EXPECT_DOUBLE_EQ(*cpu.ucr, 90);
    EXPECT_FALSE(cpu.lnr);
    EXPECT_EQ(c.sensors[1].analog_format, 2);
    EXPECT_EQ(c.sensors[2].reading.kind, bmcsim::SensorWave::Kind::random_walk);
    EXPECT_EQ(c.sensors[2].reading.seed, 7u);
    EXPECT_EQ(c.sensors[3].r_exp, -2);
    EXPECT_TRUE(c.sensors[5].unavailable);
    EXPECT_EQ(c.sensors[6].event_reading_type, 0x6F);
    EXPECT_EQ(c.sensors[6].sensor_type, 0x08);
    EXPECT_EQ(c.sensors[6].states, 0x0001);
}

TEST(PlatformFile, NamesAndNumbersAlike)
{
    Config c;
    bmcsim::load_platform_text("sensors:\n"
                               "  - {name: A, number: 7, type: 2, unit: 4, linearization: sqrt, m: -3, b: 0x10}\n",
                               "p.yaml", c);
    ASSERT_EQ(c.sensors.size(), 1u);
    EXPECT_EQ(c.sensors[0].sensor_type, 2);
    EXPECT_EQ(c.sensors[0].base_unit, 4);
    EXPECT_EQ(c.sensors[0].linearization, 0x0A);
    EXPECT_EQ(c.sensors[0].m, -3);
    EXPECT_EQ(c.sensors[0].b, 16);
}

TEST(PlatformFile, UnknownSectionNamesItsLine)
{
    EXPECT_EQ(error_of("sensors: []\n\nfans: []\n"), "p.yaml:3: unknown section 'fans'");
}

TEST(PlatformFile, UnknownSensorKeyNamesItsLine)
{
    const std::string e = error_of("sensors:\n  - name: A\n    number: 1\n    colour: red\n");
    EXPECT_EQ(e.rfind("p.yaml:4: unknown key 'colour' in a sensor", 0), 0u) << e;
}

TEST(PlatformFile, UnknownThresholdKeyIsRefused)
{
    const std::string e = error_of("sensors:\n  - name: A\n    number: 1\n    thresholds: {upper: 3}\n");
    EXPECT_EQ(e.rfind("p.yaml:4: unknown key 'upper' in thresholds", 0), 0u) << e;
}

TEST(PlatformFile, BadValuesAreRefusedWithTheirLine)
{
    EXPECT_EQ(error_of("sensors:\n  - name: A\n    number: 300\n"),
              "p.yaml:3: number must be a whole number from 0 to 254");
    EXPECT_EQ(error_of("sensors:\n  - name: A\n    number: 1\n    unit: furlongs\n"), "p.yaml:4: unknown unit 'furlongs'");
    EXPECT_EQ(error_of("sensors:\n  - name: A\n    number: 1\n    m: 600\n"),
              "p.yaml:4: m must be a whole number from -512 to 511");
    EXPECT_EQ(error_of("sensors:\n  - name: A\n    number: 1\n  - name: B\n    number: 1\n"),
              "p.yaml:5: sensor number 1 is used twice");
    EXPECT_EQ(error_of("sensors:\n  - name: A\n    number: 1\n    reading: {sine: {center: 1}}\n"),
              "p.yaml:4: sine needs center, amplitude and period_ms");
    EXPECT_EQ(error_of("sensors:\n  - number: 1\n"), "p.yaml:2: a sensor needs a name and a number");
    EXPECT_EQ(error_of("sensors:\n  - name: A\n    number: 1\n    states: 1\n"),
              "p.yaml:4: states are for discrete sensors (event_reading_type other than 1)");
}

TEST(PlatformFile, SyntaxErrorNamesItsLine)
{
    const std::string e = error_of("sensors:\n  - name: A\n    number: [1\n");
    EXPECT_EQ(e.rfind("p.yaml:", 0), 0u) << e;
    EXPECT_NE(e.find(':', 7), std::string::npos);
}

TEST(PlatformFile, MissingFileIsAnError)
{
    Config c;
    EXPECT_THROW(bmcsim::load_platform_file("/nonexistent/platform.yaml", c), PlatformFileError);
}

TEST(PlatformFile, ErrorLeavesTheConfigAsItWas)
{
    Config c;
    bmcsim::load_platform_text("sensors:\n  - {name: A, number: 1}\n", "p.yaml", c);
    EXPECT_THROW(bmcsim::load_platform_text("sensors:\n  - {name: B, number: 2}\n  - {name: C}\n", "p.yaml", c),
                 PlatformFileError);
    ASSERT_EQ(c.sensors.size(), 1u);
    EXPECT_EQ(c.sensors[0].name, "A");
}

}  // namespace
