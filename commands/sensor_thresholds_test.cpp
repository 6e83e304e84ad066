#include "sensor_thresholds.h"

#include <gtest/gtest.h>

using namespace rmcpp::commands;

namespace {

TEST(GetSensorThresholds, RequestIsTheSensorNumber)
{
    EXPECT_EQ(build_get_sensor_thresholds(0x31), (Bytes{0x31}));
}

TEST(GetSensorThresholds, DecodesMaskThenLowerThenUpper)
{
    const Bytes data{0x1B, 10, 5, 1, 80, 90, 100};
    SensorThresholds t;
    ASSERT_TRUE(decode_get_sensor_thresholds(data, t));
    EXPECT_EQ(t.readable, 0x1B);
    EXPECT_EQ(t.lower_non_critical, 10);
    EXPECT_EQ(t.lower_critical, 5);
    EXPECT_EQ(t.lower_non_recoverable, 1);
    EXPECT_EQ(t.upper_non_critical, 80);
    EXPECT_EQ(t.upper_critical, 90);
    EXPECT_EQ(t.upper_non_recoverable, 100);
    EXPECT_EQ(encode_get_sensor_thresholds(t), data);
}

TEST(GetSensorThresholds, ReservedMaskBitsAreDropped)
{
    SensorThresholds t;
    ASSERT_TRUE(decode_get_sensor_thresholds({0xFF, 0, 0, 0, 0, 0, 0}, t));
    EXPECT_EQ(t.readable, 0x3F);
}

TEST(GetSensorThresholds, RefusesOtherLengths)
{
    SensorThresholds t;
    EXPECT_FALSE(decode_get_sensor_thresholds({0x3F, 1, 2, 3, 4, 5}, t));
    EXPECT_FALSE(decode_get_sensor_thresholds({0x3F, 1, 2, 3, 4, 5, 6, 7}, t));
}

}  // namespace
