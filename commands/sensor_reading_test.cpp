#include "sensor_reading.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

using namespace rmcpp::commands;

namespace {

void expect_close(double actual, double expected)
{
    EXPECT_NEAR(actual, expected, 1e-12 * std::max(1.0, std::fabs(expected)));
}

SensorConversion factors(SdrAnalogFormat format, uint8_t linearization, int16_t m, int16_t b,
                         int8_t b_exp, int8_t r_exp)
{
    SensorConversion c;
    c.format = format;
    c.linearization = linearization;
    c.m = m;
    c.b = b;
    c.b_exp = b_exp;
    c.r_exp = r_exp;
    return c;
}

double convert(const SensorConversion &c, uint8_t raw)
{
    double y = -12345.0;
    EXPECT_EQ(convert_sensor_reading(c, raw, y), SensorConvertResult::ok);
    return y;
}

}  // namespace

TEST(GetSensorReadingRequest, CarriesTheSensorNumber)
{
    uint8_t buf[4] = {0xEE, 0xEE, 0xEE, 0xEE};
    EXPECT_EQ(get_sensor_reading_netfn, 0x04);
    EXPECT_EQ(get_sensor_reading_cmd, 0x2D);
    ASSERT_EQ(build_get_sensor_reading(0x30, buf, sizeof buf), 1u);
    EXPECT_EQ(buf[0], 0x30);
    EXPECT_EQ(buf[1], 0xEE);
}

TEST(GetSensorReadingRequest, NoRoomOrReservedNumberWritesNothing)
{
    uint8_t buf[1] = {0xEE};
    EXPECT_EQ(build_get_sensor_reading(0x30, buf, 0), 0u);
    EXPECT_EQ(build_get_sensor_reading(0xFF, buf, 1), 0u);
    EXPECT_EQ(buf[0], 0xEE);
}

TEST(GetSensorReadingResponse, ThresholdSensorWithAllFlagsEnabled)
{
    const uint8_t rsp[] = {0x00, 0x5A, 0xC0, 0xC9};  // reserved bits 7:6 of byte 4 set
    SensorReading s;
    ASSERT_EQ(decode_get_sensor_reading(rsp, sizeof rsp, s), SensorReadingResult::ok);
    EXPECT_EQ(s.raw, 0x5A);
    EXPECT_FALSE(s.event_messages_disabled);
    EXPECT_FALSE(s.scanning_disabled);
    EXPECT_FALSE(s.unavailable);
    EXPECT_TRUE(s.has_states);
    EXPECT_FALSE(s.has_states_high);
    EXPECT_EQ(s.threshold_status,
              sensor_at_or_below_lower_non_critical | sensor_at_or_above_upper_non_critical);
}

TEST(GetSensorReadingResponse, DisabledAndUnavailableFlags)
{
    const uint8_t rsp[] = {0x00, 0x00, 0x20};
    SensorReading s;
    ASSERT_EQ(decode_get_sensor_reading(rsp, sizeof rsp, s), SensorReadingResult::ok);
    EXPECT_TRUE(s.event_messages_disabled);
    EXPECT_TRUE(s.scanning_disabled);
    EXPECT_TRUE(s.unavailable);
    EXPECT_FALSE(s.has_states);
    EXPECT_EQ(s.threshold_status, 0);
    EXPECT_EQ(s.discrete_states, 0);

    const uint8_t only_events_off[] = {0x00, 0x10, 0x40};
    ASSERT_EQ(decode_get_sensor_reading(only_events_off, 3, s), SensorReadingResult::ok);
    EXPECT_TRUE(s.event_messages_disabled);
    EXPECT_FALSE(s.scanning_disabled);
    EXPECT_FALSE(s.unavailable);
    EXPECT_EQ(s.raw, 0x10);
}

TEST(GetSensorReadingResponse, DiscreteStatesZeroToFourteen)
{
    const uint8_t rsp[] = {0x00, 0x00, 0xC0, 0x81, 0xC2};  // byte 5 bit 7 reserved
    SensorReading s;
    ASSERT_EQ(decode_get_sensor_reading(rsp, sizeof rsp, s), SensorReadingResult::ok);
    EXPECT_TRUE(s.has_states);
    EXPECT_TRUE(s.has_states_high);
    // States 0, 7, 9 and 14.
    EXPECT_EQ(s.discrete_states, (1u << 0) | (1u << 7) | (1u << 9) | (1u << 14));
}

TEST(GetSensorReadingResponse, EachThresholdBit)
{
    const uint8_t bits[] = {
        sensor_at_or_below_lower_non_critical, sensor_at_or_below_lower_critical,
        sensor_at_or_below_lower_non_recoverable, sensor_at_or_above_upper_non_critical,
        sensor_at_or_above_upper_critical, sensor_at_or_above_upper_non_recoverable,
    };
    for (int i = 0; i < 6; ++i) {
        EXPECT_EQ(bits[i], 1u << i);
        const uint8_t rsp[] = {0x00, 0x00, 0xC0, bits[i]};
        SensorReading s;
        ASSERT_EQ(decode_get_sensor_reading(rsp, sizeof rsp, s), SensorReadingResult::ok);
        EXPECT_EQ(s.threshold_status, bits[i]);
    }
}

TEST(GetSensorReadingResponse, CompletionCodeShortAndLong)
{
    SensorReading s;
    const uint8_t not_present[] = {0xCB};
    EXPECT_EQ(decode_get_sensor_reading(not_present, 1, s), SensorReadingResult::completion_code);
    EXPECT_EQ(s.completion_code, 0xCB);

    const uint8_t rsp[] = {0x00, 0x12, 0xC0, 0x00, 0x00, 0x00};
    EXPECT_EQ(decode_get_sensor_reading(rsp, 0, s), SensorReadingResult::truncated);
    EXPECT_EQ(decode_get_sensor_reading(rsp, 1, s), SensorReadingResult::truncated);
    EXPECT_EQ(decode_get_sensor_reading(rsp, 2, s), SensorReadingResult::truncated);
    EXPECT_EQ(decode_get_sensor_reading(rsp, 6, s), SensorReadingResult::invalid);
    EXPECT_EQ(decode_get_sensor_reading(rsp, 5, s), SensorReadingResult::ok);
}

TEST(ThresholdState, NoBitsIsOk)
{
    const ThresholdState st = threshold_state(0);
    EXPECT_EQ(st.severity, ThresholdSeverity::ok);
    EXPECT_EQ(st.side, ThresholdSide::none);
    EXPECT_EQ(threshold_state_text(st), "ok");
    EXPECT_EQ(threshold_severity_text(st.severity), "ok");
}

TEST(ThresholdState, MostSevereCrossingWins)
{
    // A reading past the lower critical threshold is also past non-critical.
    ThresholdState st = threshold_state(sensor_at_or_below_lower_non_critical |
                                        sensor_at_or_below_lower_critical);
    EXPECT_EQ(st.severity, ThresholdSeverity::critical);
    EXPECT_EQ(st.side, ThresholdSide::lower);
    EXPECT_EQ(threshold_state_text(st), "lcr");
    EXPECT_EQ(threshold_severity_text(st.severity), "cr");

    st = threshold_state(0x38);
    EXPECT_EQ(threshold_state_text(st), "unr");
    EXPECT_EQ(threshold_severity_text(st.severity), "nr");

    st = threshold_state(sensor_at_or_below_lower_non_recoverable | sensor_at_or_above_upper_critical);
    EXPECT_EQ(threshold_state_text(st), "lnr");

    st = threshold_state(sensor_at_or_below_lower_non_critical | sensor_at_or_above_upper_non_critical);
    EXPECT_EQ(threshold_state_text(st), "unc");
}

TEST(ThresholdState, EverySingleBitText)
{
    EXPECT_EQ(threshold_state_text(threshold_state(0x01)), "lnc");
    EXPECT_EQ(threshold_state_text(threshold_state(0x02)), "lcr");
    EXPECT_EQ(threshold_state_text(threshold_state(0x04)), "lnr");
    EXPECT_EQ(threshold_state_text(threshold_state(0x08)), "unc");
    EXPECT_EQ(threshold_state_text(threshold_state(0x10)), "ucr");
    EXPECT_EQ(threshold_state_text(threshold_state(0x20)), "unr");
    EXPECT_EQ(threshold_severity_text(threshold_state(0x01).severity), "nc");
    EXPECT_EQ(threshold_severity_text(threshold_state(0x08).severity), "nc");
    // Reserved bits 7:6 alone say nothing.
    EXPECT_EQ(threshold_state_text(threshold_state(0xC0)), "ok");
}

TEST(SensorRawValue, EachAnalogFormat)
{
    EXPECT_EQ(sensor_raw_value(SdrAnalogFormat::unsigned_, 0x00), 0);
    EXPECT_EQ(sensor_raw_value(SdrAnalogFormat::unsigned_, 0x7F), 127);
    EXPECT_EQ(sensor_raw_value(SdrAnalogFormat::unsigned_, 0x80), 128);
    EXPECT_EQ(sensor_raw_value(SdrAnalogFormat::unsigned_, 0xFF), 255);

    EXPECT_EQ(sensor_raw_value(SdrAnalogFormat::ones_complement, 0x00), 0);
    EXPECT_EQ(sensor_raw_value(SdrAnalogFormat::ones_complement, 0x7F), 127);
    EXPECT_EQ(sensor_raw_value(SdrAnalogFormat::ones_complement, 0x80), -127);
    EXPECT_EQ(sensor_raw_value(SdrAnalogFormat::ones_complement, 0xFE), -1);
    EXPECT_EQ(sensor_raw_value(SdrAnalogFormat::ones_complement, 0xFF), 0);  // -0

    EXPECT_EQ(sensor_raw_value(SdrAnalogFormat::twos_complement, 0x00), 0);
    EXPECT_EQ(sensor_raw_value(SdrAnalogFormat::twos_complement, 0x7F), 127);
    EXPECT_EQ(sensor_raw_value(SdrAnalogFormat::twos_complement, 0x80), -128);
    EXPECT_EQ(sensor_raw_value(SdrAnalogFormat::twos_complement, 0xFF), -1);
}

TEST(SensorConversion, LinearInEachAnalogFormat)
{
    // M = 2, B = -3, Bexp = 1, Rexp = -1: y = (2x - 30) / 10.
    auto c = factors(SdrAnalogFormat::unsigned_, sensor_linear, 2, -3, 1, -1);
    expect_close(convert(c, 0xC8), (2.0 * 200 - 3.0 * 10) * 0.1);
    c.format = SdrAnalogFormat::ones_complement;
    expect_close(convert(c, 0xC8), (2.0 * -55 - 3.0 * 10) * 0.1);
    c.format = SdrAnalogFormat::twos_complement;
    expect_close(convert(c, 0xC8), (2.0 * -56 - 3.0 * 10) * 0.1);
}

TEST(SensorConversion, NoAnalogReadingConvertsNothing)
{
    const auto c = factors(SdrAnalogFormat::none, sensor_linear, 1, 0, 0, 0);
    double y = 7.0;
    EXPECT_EQ(convert_sensor_reading(c, 0x10, y), SensorConvertResult::no_analog_reading);
    EXPECT_EQ(y, 7.0);
}

TEST(SensorConversion, EveryLinearization)
{
    // x = 40, M = 5, B = 7, Bexp = -1, Rexp = -2: inner value (200 + 0.7) / 100.
    const double v = (5.0 * 40 + 7.0 * 0.1) * 0.01;
    auto c = factors(SdrAnalogFormat::unsigned_, sensor_linear, 5, 7, -1, -2);
    const uint8_t x = 40;
    const struct {
        uint8_t code;
        double expected;
    } cases[] = {
        {sensor_linear, v},
        {sensor_ln, std::log(v)},
        {sensor_log10, std::log10(v)},
        {sensor_log2, std::log2(v)},
        {sensor_e, std::exp(v)},
        {sensor_exp10, std::pow(10.0, v)},
        {sensor_exp2, std::pow(2.0, v)},
        {sensor_one_over_x, 1.0 / v},
        {sensor_sqr, v * v},
        {sensor_cube, v * v * v},
        {sensor_sqrt, std::sqrt(v)},
        {sensor_cube_root, std::cbrt(v)},
    };
    for (const auto &tc : cases) {
        c.linearization = tc.code;
        SCOPED_TRACE(static_cast<int>(tc.code));
        expect_close(convert(c, x), tc.expected);
    }
}

TEST(SensorConversion, CubeRootOfANegativeValue)
{
    auto c = factors(SdrAnalogFormat::twos_complement, sensor_cube_root, 1, 0, 0, 0);
    expect_close(convert(c, 0xE5), -3.0);  // -27
}

TEST(SensorConversion, OutsideTheFunctionsDomain)
{
    double y = 0;
    // Inner value 0 for unsigned 0 with M = 1, B = 0.
    auto c = factors(SdrAnalogFormat::unsigned_, sensor_ln, 1, 0, 0, 0);
    EXPECT_EQ(convert_sensor_reading(c, 0, y), SensorConvertResult::out_of_domain);
    c.linearization = sensor_log10;
    EXPECT_EQ(convert_sensor_reading(c, 0, y), SensorConvertResult::out_of_domain);
    c.linearization = sensor_log2;
    EXPECT_EQ(convert_sensor_reading(c, 0, y), SensorConvertResult::out_of_domain);
    c.linearization = sensor_one_over_x;
    EXPECT_EQ(convert_sensor_reading(c, 0, y), SensorConvertResult::out_of_domain);
    c.format = SdrAnalogFormat::twos_complement;
    c.linearization = sensor_sqrt;
    EXPECT_EQ(convert_sensor_reading(c, 0xFF, y), SensorConvertResult::out_of_domain);
    c.linearization = sensor_ln;
    EXPECT_EQ(convert_sensor_reading(c, 0xFF, y), SensorConvertResult::out_of_domain);
}

TEST(SensorConversion, NonLinearAndReservedCodes)
{
    double y = 0;
    auto c = factors(SdrAnalogFormat::unsigned_, 0x70, 1, 0, 0, 0);
    EXPECT_EQ(convert_sensor_reading(c, 1, y), SensorConvertResult::non_linear);
    c.linearization = 0x7F;
    EXPECT_EQ(convert_sensor_reading(c, 1, y), SensorConvertResult::non_linear);
    c.linearization = 0x0C;
    EXPECT_EQ(convert_sensor_reading(c, 1, y), SensorConvertResult::invalid);
    c.linearization = 0x6F;
    EXPECT_EQ(convert_sensor_reading(c, 1, y), SensorConvertResult::invalid);
}

TEST(SensorConversion, FactorsFromAFullSensorRecord)
{
    // A voltage sensor: 2's complement, M = -254, B = 500, Bexp = 3, Rexp = -2.
    const uint8_t rec[] = {
        0x34, 0x12, 0x51, 0x01, 0x2B + 2,
        0x20, 0x00, 0x31, 0x14, 0x01, 0x7F, 0x68, 0x02, 0x01,
        0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
        0x80, 0x04, 0x00,
        0x00,
        0x02, 0xC0, 0xF4, 0x40, 0x00, 0xE3,
        0x00, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
        0xC2, 'V', '1',
    };
    SdrFullSensor s;
    ASSERT_EQ(decode_sdr_full_sensor(rec, sizeof rec, s), SdrResult::ok);
    const SensorConversion c = sensor_conversion(s);
    EXPECT_EQ(c.format, SdrAnalogFormat::twos_complement);
    EXPECT_EQ(c.linearization, sensor_linear);
    EXPECT_EQ(c.m, -254);
    EXPECT_EQ(c.b, 500);
    EXPECT_EQ(c.b_exp, 3);
    EXPECT_EQ(c.r_exp, -2);
    expect_close(convert(c, 0xF6), (-254.0 * -10 + 500.0 * 1000) * 0.01);
}

TEST(GetSensorReadingResponse, EveryLengthInItsOwnBuffer)
{
    // Lengths 0 to 8 of each byte pattern, in buffers of exactly that size.
    for (size_t n = 0; n <= 8; ++n) {
        for (unsigned fill = 0; fill < 256; fill += 51) {
            std::vector<uint8_t> rsp(n, static_cast<uint8_t>(fill));
            if (n) rsp[0] = 0;
            SensorReading s;
            const SensorReadingResult res = decode_get_sensor_reading(rsp.data(), rsp.size(), s);
            const SensorReadingResult expected = n < 3    ? SensorReadingResult::truncated
                                                 : n <= 5 ? SensorReadingResult::ok
                                                          : SensorReadingResult::invalid;
            EXPECT_EQ(res, expected) << n;
            if (res == SensorReadingResult::ok) {
                EXPECT_EQ(s.has_states, n >= 4);
                EXPECT_EQ(s.has_states_high, n == 5);
                EXPECT_EQ(s.raw, static_cast<uint8_t>(fill));
            }
        }
    }
}
