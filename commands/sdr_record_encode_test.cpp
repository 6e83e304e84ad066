// The SDR encoders against the decoders, and against bytes written out by hand.
#include <gtest/gtest.h>

#include "sdr_record.h"
#include "sdr_testkit.h"

using namespace rmcpp::commands;

namespace {

TEST(EncodeSdrFullSensor, RoundTripsEveryField)
{
    SdrFullSensor s = testkit::full_sensor(0x1234, 0x42, "12V Rail");
    s.key.owner_is_software = true;
    s.key.channel = 3;
    s.key.owner_lun = 2;
    s.key.entity_logical = true;
    s.units.analog_format = SdrAnalogFormat::twos_complement;
    s.units.rate = 3;
    s.units.modifier = 1;
    s.units.percentage = true;
    s.units.base_unit = 4;
    s.units.modifier_unit = 22;
    s.linearization = sensor_log10;
    s.m = -300;
    s.tolerance = 0x2A;
    s.b = 511;
    s.accuracy = 0x3A5;
    s.accuracy_exp = 2;
    s.direction = 1;
    s.r_exp = -3;
    s.b_exp = 7;
    s.nominal_specified = true;
    s.normal_min_specified = true;
    s.nominal_reading = 120;
    s.normal_max = 130;
    s.normal_min = 110;
    s.sensor_max = 255;
    s.sensor_min = 1;
    s.positive_hysteresis = 2;
    s.negative_hysteresis = 3;
    s.oem = 0x99;
    const Bytes bytes = encode_sdr_full_sensor(s);
    ASSERT_EQ(bytes.size(), 5u + 43u + 8u);
    EXPECT_EQ(bytes[4], 43 + 8);

    SdrFullSensor d;
    ASSERT_EQ(decode_sdr_full_sensor(bytes.data(), bytes.size(), d), SdrResult::ok);
    EXPECT_EQ(d.header.record_id, 0x1234);
    EXPECT_EQ(d.header.type, sdr_type_full_sensor);
    EXPECT_EQ(d.key.owner_id, s.key.owner_id);
    EXPECT_TRUE(d.key.owner_is_software);
    EXPECT_EQ(d.key.channel, 3);
    EXPECT_EQ(d.key.owner_lun, 2);
    EXPECT_EQ(d.key.number, 0x42);
    EXPECT_TRUE(d.key.entity_logical);
    EXPECT_EQ(d.units.analog_format, SdrAnalogFormat::twos_complement);
    EXPECT_EQ(d.units.rate, 3);
    EXPECT_EQ(d.units.modifier, 1);
    EXPECT_TRUE(d.units.percentage);
    EXPECT_EQ(d.units.base_unit, 4);
    EXPECT_EQ(d.units.modifier_unit, 22);
    EXPECT_EQ(d.linearization, sensor_log10);
    EXPECT_EQ(d.m, -300);
    EXPECT_EQ(d.tolerance, 0x2A);
    EXPECT_EQ(d.b, 511);
    EXPECT_EQ(d.accuracy, 0x3A5);
    EXPECT_EQ(d.accuracy_exp, 2);
    EXPECT_EQ(d.direction, 1);
    EXPECT_EQ(d.r_exp, -3);
    EXPECT_EQ(d.b_exp, 7);
    EXPECT_TRUE(d.nominal_specified);
    EXPECT_FALSE(d.normal_max_specified);
    EXPECT_TRUE(d.normal_min_specified);
    EXPECT_EQ(d.nominal_reading, 120);
    EXPECT_EQ(d.normal_max, 130);
    EXPECT_EQ(d.normal_min, 110);
    EXPECT_EQ(d.sensor_max, 255);
    EXPECT_EQ(d.sensor_min, 1);
    EXPECT_EQ(d.upper_non_recoverable, 100);
    EXPECT_EQ(d.upper_critical, 90);
    EXPECT_EQ(d.upper_non_critical, 80);
    EXPECT_EQ(d.lower_non_recoverable, 0);
    EXPECT_EQ(d.lower_critical, 5);
    EXPECT_EQ(d.lower_non_critical, 10);
    EXPECT_EQ(d.positive_hysteresis, 2);
    EXPECT_EQ(d.negative_hysteresis, 3);
    EXPECT_EQ(d.oem, 0x99);
    EXPECT_EQ(d.id.text, "12V Rail");
    EXPECT_EQ(d.reading_mask, 0x3F3F);
}

TEST(EncodeSdrFullSensor, MAndBCarryTheirTopBitsBesideToleranceAndAccuracy)
{
    SdrFullSensor s = testkit::full_sensor(1, 1, "T");
    s.m = -2;  // 3FEh
    s.tolerance = 0;
    s.b = 0x155;
    s.accuracy = 0;
    s.r_exp = -1;
    s.b_exp = 2;
    const Bytes b = encode_sdr_full_sensor(s);
    ASSERT_FALSE(b.empty());
    // Bytes 25..30 of the record (1-based), i.e. indexes 24..29.
    EXPECT_EQ(b[24], 0xFE);
    EXPECT_EQ(b[25], 0xC0);
    EXPECT_EQ(b[26], 0x55);
    EXPECT_EQ(b[27], 0x40);
    EXPECT_EQ(b[28], 0x00);
    EXPECT_EQ(b[29], 0xF2);
}

TEST(EncodeSdrFullSensor, RefusesFieldsThatDoNotFit)
{
    SdrFullSensor s = testkit::full_sensor(1, 1, "T");
    s.m = 512;
    EXPECT_TRUE(encode_sdr_full_sensor(s).empty());
    s.m = 1;
    s.r_exp = 8;
    EXPECT_TRUE(encode_sdr_full_sensor(s).empty());
    s.r_exp = 0;
    s.id.raw.assign(17, 'x');
    EXPECT_TRUE(encode_sdr_full_sensor(s).empty());
}

TEST(EncodeSdrCompactSensor, RoundTripsEveryField)
{
    SdrCompactSensor s = testkit::compact_sensor(0x0203, 0x51, "PS1 Status");
    s.assertion_mask = 0x7FFF;
    s.deassertion_mask = 0x0102;
    s.reading_mask = 0x000F;
    s.sharing.direction = 2;
    s.sharing.id_instance_modifier_type = 1;
    s.sharing.share_count = 4;
    s.sharing.entity_instance_increments = true;
    s.sharing.id_instance_modifier_offset = 0x11;
    s.positive_hysteresis = 1;
    s.negative_hysteresis = 2;
    s.oem = 0x33;
    const Bytes bytes = encode_sdr_compact_sensor(s);
    ASSERT_EQ(bytes.size(), 5u + 27u + 10u);
    SdrCompactSensor d;
    ASSERT_EQ(decode_sdr_compact_sensor(bytes.data(), bytes.size(), d), SdrResult::ok);
    EXPECT_EQ(d.header.record_id, 0x0203);
    EXPECT_EQ(d.key.number, 0x51);
    EXPECT_EQ(d.sensor_type, 0x08);
    EXPECT_EQ(d.event_reading_type, 0x6F);
    EXPECT_EQ(d.assertion_mask, 0x7FFF);
    EXPECT_EQ(d.deassertion_mask, 0x0102);
    EXPECT_EQ(d.reading_mask, 0x000F);
    EXPECT_EQ(d.sharing.direction, 2);
    EXPECT_EQ(d.sharing.id_instance_modifier_type, 1);
    EXPECT_EQ(d.sharing.share_count, 4);
    EXPECT_TRUE(d.sharing.entity_instance_increments);
    EXPECT_EQ(d.sharing.id_instance_modifier_offset, 0x11);
    EXPECT_EQ(d.positive_hysteresis, 1);
    EXPECT_EQ(d.negative_hysteresis, 2);
    EXPECT_EQ(d.oem, 0x33);
    EXPECT_EQ(d.id.text, "PS1 Status");
}

}  // namespace
