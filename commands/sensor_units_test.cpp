#include "sensor_units.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

using namespace rmcpp::commands;

TEST(SensorUnits, TableRunsFromUnspecifiedToGrams)
{
    EXPECT_EQ(sensor_unit_names.size(), 93u);
    EXPECT_EQ(sensor_unit_name(0), "unspecified");
    EXPECT_EQ(sensor_unit_name(1), "degrees C");
    EXPECT_EQ(sensor_unit_name(2), "degrees F");
    EXPECT_EQ(sensor_unit_name(3), "degrees K");
    EXPECT_EQ(sensor_unit_name(4), "Volts");
    EXPECT_EQ(sensor_unit_name(5), "Amps");
    EXPECT_EQ(sensor_unit_name(6), "Watts");
    EXPECT_EQ(sensor_unit_name(18), "RPM");
    EXPECT_EQ(sensor_unit_name(19), "Hz");
    EXPECT_EQ(sensor_unit_name(22), "second");
    EXPECT_EQ(sensor_unit_name(23), "minute");
    EXPECT_EQ(sensor_unit_name(58), "PPM");
    EXPECT_EQ(sensor_unit_name(59), "reserved");
    EXPECT_EQ(sensor_unit_name(60), "Decibels");
    EXPECT_EQ(sensor_unit_name(65), "color temp deg K");
    EXPECT_EQ(sensor_unit_name(70), "byte");
    EXPECT_EQ(sensor_unit_name(82), "overrun / overflow");
    EXPECT_EQ(sensor_unit_name(91), "fatal error");
    EXPECT_EQ(sensor_unit_name(92), "grams");
}

TEST(SensorUnits, CodesPastTheTableHaveNoName)
{
    EXPECT_TRUE(sensor_unit_name(93).empty());
    EXPECT_TRUE(sensor_unit_name(200).empty());
    EXPECT_TRUE(sensor_unit_name(255).empty());
}

TEST(SensorUnits, EveryNameIsPresentAndUnique)
{
    std::set<std::string_view> seen;
    for (size_t i = 0; i < sensor_unit_names.size(); ++i) {
        EXPECT_FALSE(sensor_unit_names[i].empty()) << i;
        EXPECT_TRUE(seen.insert(sensor_unit_names[i]).second) << "duplicate at " << i;
    }
}

TEST(SensorUnits, UnitsOneFieldsSplit)
{
    // 10 011 10 1: 2's complement, per s, base * modifier, percentage.
    const uint8_t units1 = 0x9D;
    EXPECT_EQ(sensor_rate_unit(units1), SensorRateUnit::per_second);
    EXPECT_EQ(sensor_modifier_unit(units1), SensorModifierUnit::multiply);
    EXPECT_TRUE(sensor_unit_percentage(units1));
    EXPECT_EQ(sensor_rate_unit(0x00), SensorRateUnit::none);
    EXPECT_EQ(sensor_modifier_unit(0x02), SensorModifierUnit::divide);
    EXPECT_FALSE(sensor_unit_percentage(0x02));
}

TEST(SensorUnits, BaseAlone)
{
    std::string text;
    ASSERT_TRUE(sensor_unit_text(0x00, 4, 0, text));
    EXPECT_EQ(text, "Volts");
    // The modifier code is ignored when the modifier field says none.
    ASSERT_TRUE(sensor_unit_text(0x00, 1, 250, text));
    EXPECT_EQ(text, "degrees C");
}

TEST(SensorUnits, DivideAndMultiplyModifiers)
{
    std::string text;
    ASSERT_TRUE(sensor_unit_text(0x02, 7, 22, text));
    EXPECT_EQ(text, "Joules / second");
    ASSERT_TRUE(sensor_unit_text(0x04, 5, 24, text));
    EXPECT_EQ(text, "Amps * hour");
}

TEST(SensorUnits, EveryRate)
{
    const char *expected[] = {"RPM", "RPM per us", "RPM per ms", "RPM per s",
                              "RPM per minute", "RPM per hour", "RPM per day"};
    for (uint8_t rate = 0; rate < 7; ++rate) {
        std::string text;
        ASSERT_TRUE(sensor_unit_text(static_cast<uint8_t>(rate << 3), 18, 0, text)) << int(rate);
        EXPECT_EQ(text, expected[rate]);
    }
}

TEST(SensorUnits, ModifierAndRateTogether)
{
    std::string text;
    ASSERT_TRUE(sensor_unit_text((4 << 3) | (1 << 1) | 1, 70, 22, text));
    EXPECT_EQ(text, "byte / second per minute");
}

TEST(SensorUnits, ReservedFieldsAndUnknownCodesAreRefused)
{
    std::string text = "stale";
    EXPECT_FALSE(sensor_unit_text(7 << 3, 4, 0, text));
    EXPECT_TRUE(text.empty());
    EXPECT_FALSE(sensor_unit_text(3 << 1, 4, 4, text));
    EXPECT_FALSE(sensor_unit_text(0x00, 93, 0, text));
    EXPECT_FALSE(sensor_unit_text(0x02, 4, 93, text));
    EXPECT_TRUE(text.empty());
}
