#include "sdr_record.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace rmcpp::commands;

namespace {

// Full sensor record "CPU Temp" with a distinct value in every field.
const std::vector<uint8_t> full_record = {
    0x34, 0x12, 0x51, 0x01, 0x33,  // record 1234h, version 51h, type 01h, 51 bytes
    0x41,                          // owner: software ID 20h
    0x52,                          // channel 5, LUN 2
    0x30,                          // sensor number
    0x07, 0x83,                    // entity 7, logical instance 3
    0x7F, 0x68,                    // initialization, capabilities
    0x01, 0x01,                    // temperature, threshold
    0x95, 0x0A, 0x95, 0x7A, 0x3F, 0x1B,  // masks
    0x5B,                          // 1's complement, per s, divide, percentage
    0x01, 0x16,                    // degrees C / second
    0x85,                          // linearization 5 (reserved bit 7 set)
    0x02, 0xD5,                    // M = 302h (-254), tolerance 21
    0xF4, 0x6A,                    // B = 1F4h (500), accuracy low bits 2Ah
    0xA9,                          // accuracy high bits Ah, accuracy exp 2, direction 1
    0xE3,                          // R exp -2, B exp 3
    0x05,                          // nominal and normal min specified
    0x64, 0x70, 0x10, 0xFF, 0x01,  // nominal, normal max/min, sensor max/min
    0x90, 0x88, 0x80,              // upper NR, CR, NC
    0x05, 0x0A, 0x0F,              // lower NR, CR, NC
    0x02, 0x03,                    // hysteresis + and -
    0x00, 0x00,                    // reserved
    0xA5,                          // OEM
    0xC8, 'C', 'P', 'U', ' ', 'T', 'e', 'm', 'p',
};

const std::vector<uint8_t> compact_record = {
    0x01, 0x00, 0x51, 0x02, 0x1E,
    0x20, 0x01, 0x45,              // owner slave address 10h, channel 0 LUN 1, number 45h
    0x0A, 0x01,                    // entity 10, physical instance 1
    0x67, 0x40, 0x08, 0x6F,
    0x0F, 0x40, 0x02, 0x01, 0x7F, 0x00,
    0xC0, 0x00, 0x00,              // no analog reading
    0x93, 0x85,                    // direction 2, alpha modifier, share count 3; increments, offset 5
    0x04, 0x06,
    0x00, 0x00, 0x00,
    0x5A,
    0xC3, 'P', 'S', '1',
};

// "ABCD" packed: 21h 22h 23h 24h as four 6-bit codes, low bits first.
const std::vector<uint8_t> event_only_record = {
    0x02, 0x00, 0x51, 0x03, 0x0F,
    0x22, 0x00, 0x70,
    0x03, 0x81,
    0x12, 0x6F,
    0x42, 0x01,                    // direction 1, share count 2; offset 1
    0x00,
    0x11,
    0x83, 0xA1, 0x38, 0x92,
};

}  // namespace

TEST(SdrHeader, DecodesIdVersionTypeLength)
{
    SdrHeader h;
    ASSERT_EQ(decode_sdr_header(full_record.data(), full_record.size(), h), SdrResult::ok);
    EXPECT_EQ(h.record_id, 0x1234);
    EXPECT_EQ(h.version, 0x51);
    EXPECT_EQ(h.type, 0x01);
    EXPECT_EQ(h.length, 0x33);
    EXPECT_EQ(full_record.size(), sdr_header_length + h.length);
}

TEST(SdrHeader, ShortHeaderIsTruncated)
{
    SdrHeader h;
    for (size_t n = 0; n < sdr_header_length; ++n)
        EXPECT_EQ(decode_sdr_header(full_record.data(), n, h), SdrResult::truncated) << n;
}

TEST(SdrFullSensor, DecodesEveryField)
{
    SdrFullSensor s;
    ASSERT_EQ(decode_sdr_full_sensor(full_record.data(), full_record.size(), s), SdrResult::ok);
    EXPECT_EQ(s.header.record_id, 0x1234);
    EXPECT_EQ(s.key.owner_id, 0x20);
    EXPECT_TRUE(s.key.owner_is_software);
    EXPECT_EQ(s.key.channel, 5);
    EXPECT_EQ(s.key.owner_lun, 2);
    EXPECT_EQ(s.key.number, 0x30);
    EXPECT_EQ(s.key.entity_id, 7);
    EXPECT_TRUE(s.key.entity_logical);
    EXPECT_EQ(s.key.entity_instance, 3);
    EXPECT_EQ(s.initialization, 0x7F);
    EXPECT_EQ(s.capabilities, 0x68);
    EXPECT_EQ(s.sensor_type, 0x01);
    EXPECT_EQ(s.event_reading_type, 0x01);
    EXPECT_EQ(s.assertion_mask, 0x0A95);
    EXPECT_EQ(s.deassertion_mask, 0x7A95);
    EXPECT_EQ(s.reading_mask, 0x1B3F);
    EXPECT_EQ(s.units.units1, 0x5B);
    EXPECT_EQ(s.units.analog_format, SdrAnalogFormat::ones_complement);
    EXPECT_EQ(s.units.rate, 3);
    EXPECT_EQ(s.units.modifier, 1);
    EXPECT_TRUE(s.units.percentage);
    EXPECT_EQ(s.units.base_unit, 1);
    EXPECT_EQ(s.units.modifier_unit, 22);
    EXPECT_EQ(s.linearization, 5);
    EXPECT_EQ(s.m, 0x302 - 1024);
    EXPECT_EQ(s.tolerance, 21);
    EXPECT_EQ(s.b, 500);
    EXPECT_EQ(s.accuracy, 0x2A | (0xA << 6));
    EXPECT_EQ(s.accuracy_exp, 2);
    EXPECT_EQ(s.direction, 1);
    EXPECT_EQ(s.r_exp, -2);
    EXPECT_EQ(s.b_exp, 3);
    EXPECT_TRUE(s.nominal_specified);
    EXPECT_FALSE(s.normal_max_specified);
    EXPECT_TRUE(s.normal_min_specified);
    EXPECT_EQ(s.nominal_reading, 0x64);
    EXPECT_EQ(s.normal_max, 0x70);
    EXPECT_EQ(s.normal_min, 0x10);
    EXPECT_EQ(s.sensor_max, 0xFF);
    EXPECT_EQ(s.sensor_min, 0x01);
    EXPECT_EQ(s.upper_non_recoverable, 0x90);
    EXPECT_EQ(s.upper_critical, 0x88);
    EXPECT_EQ(s.upper_non_critical, 0x80);
    EXPECT_EQ(s.lower_non_recoverable, 0x05);
    EXPECT_EQ(s.lower_critical, 0x0A);
    EXPECT_EQ(s.lower_non_critical, 0x0F);
    EXPECT_EQ(s.positive_hysteresis, 2);
    EXPECT_EQ(s.negative_hysteresis, 3);
    EXPECT_EQ(s.oem, 0xA5);
    EXPECT_EQ(s.id.type, SdrIdStringType::ascii_8bit);
    EXPECT_EQ(s.id.raw.size(), 8u);
    EXPECT_EQ(s.id.text, "CPU Temp");
}

TEST(SdrFullSensor, SignedFieldsAtTheirExtremes)
{
    std::vector<uint8_t> rec = full_record;
    rec[24] = 0x00; rec[25] = 0x80;  // M = 200h: -512
    rec[26] = 0xFF; rec[27] = 0x40;  // B = 1FFh: 511
    rec[29] = 0x87;                  // R exp -8, B exp 7
    SdrFullSensor s;
    ASSERT_EQ(decode_sdr_full_sensor(rec.data(), rec.size(), s), SdrResult::ok);
    EXPECT_EQ(s.m, -512);
    EXPECT_EQ(s.tolerance, 0);
    EXPECT_EQ(s.b, 511);
    EXPECT_EQ(s.r_exp, -8);
    EXPECT_EQ(s.b_exp, 7);

    rec[24] = 0xFF; rec[25] = 0x7F;  // M = 1FFh: 511, tolerance 63
    rec[26] = 0xFF; rec[27] = 0xC0;  // B = 3FFh: -1
    rec[29] = 0x78;                  // R exp 7, B exp -8
    ASSERT_EQ(decode_sdr_full_sensor(rec.data(), rec.size(), s), SdrResult::ok);
    EXPECT_EQ(s.m, 511);
    EXPECT_EQ(s.tolerance, 63);
    EXPECT_EQ(s.b, -1);
    EXPECT_EQ(s.r_exp, 7);
    EXPECT_EQ(s.b_exp, -8);
}

TEST(SdrFullSensor, EveryShortPrefixIsTruncated)
{
    SdrFullSensor s;
    // Each prefix sits in a buffer of its own size, so a read past it shows
    // under the address sanitizer.
    for (size_t n = 0; n < full_record.size(); ++n) {
        const std::vector<uint8_t> prefix(full_record.begin(), full_record.begin() + static_cast<long>(n));
        EXPECT_EQ(decode_sdr_full_sensor(prefix.data(), prefix.size(), s), SdrResult::truncated) << n;
    }
}

TEST(SdrFullSensor, RecordLengthShorterThanFixedPartIsTruncated)
{
    // The header claims only 42 body bytes: the ID string code is missing,
    // though the buffer holds it.
    std::vector<uint8_t> rec = full_record;
    rec[4] = 42;
    SdrFullSensor s;
    EXPECT_EQ(decode_sdr_full_sensor(rec.data(), rec.size(), s), SdrResult::truncated);
}

TEST(SdrFullSensor, IdStringPastRecordEndIsTruncatedEvenWithBytesAfter)
{
    // The record ends after four ID bytes, the type/length byte says eight,
    // and four more bytes follow in the buffer: they belong to no record.
    std::vector<uint8_t> rec = full_record;
    rec[4] = 43 + 4;
    SdrFullSensor s;
    EXPECT_EQ(decode_sdr_full_sensor(rec.data(), rec.size(), s), SdrResult::truncated);
}

TEST(SdrFullSensor, IdStringOverSixteenBytesIsInvalid)
{
    std::vector<uint8_t> rec(full_record.begin(), full_record.begin() + 48);
    rec[47] = 0xC0 | 17;
    rec.insert(rec.end(), 17, 'x');
    rec[4] = static_cast<uint8_t>(43 + 17);
    SdrFullSensor s;
    EXPECT_EQ(decode_sdr_full_sensor(rec.data(), rec.size(), s), SdrResult::invalid);
    rec[47] = 0xC0 | 16;
    ASSERT_EQ(decode_sdr_full_sensor(rec.data(), rec.size(), s), SdrResult::ok);
    EXPECT_EQ(s.id.text, std::string(16, 'x'));
}

TEST(SdrFullSensor, EmptyIdStringAndTrailingBytes)
{
    std::vector<uint8_t> rec(full_record.begin(), full_record.begin() + 48);
    rec[47] = 0xC0;
    rec[4] = 43;
    rec.push_back(0xEE);  // the next record's first byte
    SdrFullSensor s;
    ASSERT_EQ(decode_sdr_full_sensor(rec.data(), rec.size(), s), SdrResult::ok);
    EXPECT_TRUE(s.id.raw.empty());
    EXPECT_TRUE(s.id.text.empty());
}

TEST(SdrFullSensor, OtherTypeIsRefused)
{
    SdrFullSensor s;
    EXPECT_EQ(decode_sdr_full_sensor(compact_record.data(), compact_record.size(), s),
              SdrResult::wrong_type);
    SdrCompactSensor c;
    EXPECT_EQ(decode_sdr_compact_sensor(full_record.data(), full_record.size(), c),
              SdrResult::wrong_type);
    SdrEventOnly e;
    EXPECT_EQ(decode_sdr_event_only(full_record.data(), full_record.size(), e),
              SdrResult::wrong_type);
}

TEST(SdrFullSensor, UnicodeAndBcdStringsKeepTheirBytesOnly)
{
    std::vector<uint8_t> rec = full_record;
    rec[47] = 0x08;  // Unicode, 8 bytes
    SdrFullSensor s;
    ASSERT_EQ(decode_sdr_full_sensor(rec.data(), rec.size(), s), SdrResult::ok);
    EXPECT_EQ(s.id.type, SdrIdStringType::unicode);
    EXPECT_EQ(s.id.raw, std::vector<uint8_t>(full_record.begin() + 48, full_record.end()));
    EXPECT_TRUE(s.id.text.empty());
    rec[47] = 0x48;  // BCD plus
    ASSERT_EQ(decode_sdr_full_sensor(rec.data(), rec.size(), s), SdrResult::ok);
    EXPECT_EQ(s.id.type, SdrIdStringType::bcd_plus);
    EXPECT_TRUE(s.id.text.empty());
}

TEST(SdrCompactSensor, DecodesEveryField)
{
    SdrCompactSensor s;
    ASSERT_EQ(decode_sdr_compact_sensor(compact_record.data(), compact_record.size(), s),
              SdrResult::ok);
    EXPECT_EQ(s.header.record_id, 0x0001);
    EXPECT_EQ(s.header.type, 0x02);
    EXPECT_EQ(s.key.owner_id, 0x10);
    EXPECT_FALSE(s.key.owner_is_software);
    EXPECT_EQ(s.key.channel, 0);
    EXPECT_EQ(s.key.owner_lun, 1);
    EXPECT_EQ(s.key.number, 0x45);
    EXPECT_EQ(s.key.entity_id, 10);
    EXPECT_FALSE(s.key.entity_logical);
    EXPECT_EQ(s.key.entity_instance, 1);
    EXPECT_EQ(s.initialization, 0x67);
    EXPECT_EQ(s.capabilities, 0x40);
    EXPECT_EQ(s.sensor_type, 0x08);
    EXPECT_EQ(s.event_reading_type, 0x6F);
    EXPECT_EQ(s.assertion_mask, 0x400F);
    EXPECT_EQ(s.deassertion_mask, 0x0102);
    EXPECT_EQ(s.reading_mask, 0x007F);
    EXPECT_EQ(s.units.analog_format, SdrAnalogFormat::none);
    EXPECT_EQ(s.units.rate, 0);
    EXPECT_EQ(s.units.modifier, 0);
    EXPECT_FALSE(s.units.percentage);
    EXPECT_EQ(s.sharing.direction, 2);
    EXPECT_EQ(s.sharing.id_instance_modifier_type, 1);
    EXPECT_EQ(s.sharing.share_count, 3);
    EXPECT_TRUE(s.sharing.entity_instance_increments);
    EXPECT_EQ(s.sharing.id_instance_modifier_offset, 5);
    EXPECT_EQ(s.positive_hysteresis, 4);
    EXPECT_EQ(s.negative_hysteresis, 6);
    EXPECT_EQ(s.oem, 0x5A);
    EXPECT_EQ(s.id.text, "PS1");
}

TEST(SdrCompactSensor, EveryShortPrefixIsTruncated)
{
    SdrCompactSensor s;
    // Each prefix sits in a buffer of its own size, so a read past it shows
    // under the address sanitizer.
    for (size_t n = 0; n < compact_record.size(); ++n) {
        const std::vector<uint8_t> prefix(compact_record.begin(), compact_record.begin() + static_cast<long>(n));
        EXPECT_EQ(decode_sdr_compact_sensor(prefix.data(), prefix.size(), s), SdrResult::truncated) << n;
    }
}

TEST(SdrEventOnly, DecodesKeyTypeAndPackedIdString)
{
    SdrEventOnly s;
    ASSERT_EQ(decode_sdr_event_only(event_only_record.data(), event_only_record.size(), s),
              SdrResult::ok);
    EXPECT_EQ(s.header.type, 0x03);
    EXPECT_EQ(s.key.owner_id, 0x11);
    EXPECT_EQ(s.key.number, 0x70);
    EXPECT_EQ(s.key.entity_id, 3);
    EXPECT_TRUE(s.key.entity_logical);
    EXPECT_EQ(s.key.entity_instance, 1);
    EXPECT_EQ(s.sensor_type, 0x12);
    EXPECT_EQ(s.event_reading_type, 0x6F);
    EXPECT_EQ(s.sharing.direction, 1);
    EXPECT_EQ(s.sharing.id_instance_modifier_type, 0);
    EXPECT_FALSE(s.sharing.entity_instance_increments);
    EXPECT_EQ(s.sharing.share_count, 2);
    EXPECT_EQ(s.sharing.id_instance_modifier_offset, 1);
    EXPECT_EQ(s.oem, 0x11);
    EXPECT_EQ(s.id.type, SdrIdStringType::ascii_6bit_packed);
    EXPECT_EQ(s.id.text, "ABCD");
}

TEST(SdrEventOnly, EveryShortPrefixIsTruncated)
{
    SdrEventOnly s;
    // Each prefix sits in a buffer of its own size, so a read past it shows
    // under the address sanitizer.
    for (size_t n = 0; n < event_only_record.size(); ++n) {
        const std::vector<uint8_t> prefix(event_only_record.begin(), event_only_record.begin() + static_cast<long>(n));
        EXPECT_EQ(decode_sdr_event_only(prefix.data(), prefix.size(), s), SdrResult::truncated) << n;
    }
}

TEST(SdrIdString, SixBitPackedAsciiUnpacks)
{
    // "ABCD" hand-packed in the test data above.
    const uint8_t abcd[] = {0xA1, 0x38, 0x92};
    EXPECT_EQ(sdr_unpack_6bit_ascii(abcd, 3), "ABCD");
    // Packing computed from the codes, for a longer string.
    const std::string word = "FAN 1-2_";
    std::vector<uint8_t> packed;
    uint32_t acc = 0;
    unsigned bits = 0;
    for (char c : word) {
        acc |= static_cast<uint32_t>(c - 0x20) << bits;
        bits += 6;
        while (bits >= 8) {
            packed.push_back(static_cast<uint8_t>(acc));
            acc >>= 8;
            bits -= 8;
        }
    }
    ASSERT_EQ(packed.size(), 6u);
    EXPECT_EQ(sdr_unpack_6bit_ascii(packed.data(), packed.size()), word);
    // Two bytes hold two whole characters; the last four bits are padding.
    EXPECT_EQ(sdr_unpack_6bit_ascii(abcd, 2), "AB");
    EXPECT_EQ(sdr_unpack_6bit_ascii(abcd, 0), "");
}

TEST(SdrSignExtend, TenAndFourBitFields)
{
    EXPECT_EQ(sdr_sign_extend(0x1FF, 10), 511);
    EXPECT_EQ(sdr_sign_extend(0x200, 10), -512);
    EXPECT_EQ(sdr_sign_extend(0x3FF, 10), -1);
    EXPECT_EQ(sdr_sign_extend(0x7, 4), 7);
    EXPECT_EQ(sdr_sign_extend(0x8, 4), -8);
    EXPECT_EQ(sdr_sign_extend(0xF, 4), -1);
}

TEST(SdrRecords, DamagedRecordsGiveAResultNotACrash)
{
    // Deterministic noise under a header naming each record type, every
    // length up to a long record, each in a buffer of exactly its size.
    uint32_t seed = 12345;
    auto next = [&seed] {
        seed = seed * 1103515245u + 12345u;
        return static_cast<uint8_t>(seed >> 16);
    };
    size_t decoded = 0;
    for (uint8_t type = 1; type <= 3; ++type) {
        for (size_t n = 0; n <= 80; ++n) {
            for (int round = 0; round < 20; ++round) {
                std::vector<uint8_t> rec(n);
                for (auto &byte : rec) byte = next();
                if (n > 3) rec[3] = type;
                if (n > 4 && round % 2) rec[4] = static_cast<uint8_t>(n - sdr_header_length);
                SdrResult res;
                if (type == 1) {
                    SdrFullSensor s;
                    res = decode_sdr_full_sensor(rec.data(), rec.size(), s);
                    if (res == SdrResult::ok) {
                        EXPECT_LE(s.id.raw.size(), sdr_id_string_max);
                    }
                } else if (type == 2) {
                    SdrCompactSensor s;
                    res = decode_sdr_compact_sensor(rec.data(), rec.size(), s);
                    if (res == SdrResult::ok) {
                        EXPECT_LE(s.id.raw.size(), sdr_id_string_max);
                    }
                } else {
                    SdrEventOnly s;
                    res = decode_sdr_event_only(rec.data(), rec.size(), s);
                    if (res == SdrResult::ok) {
                        EXPECT_LE(s.id.raw.size(), sdr_id_string_max);
                    }
                }
                if (n < sdr_header_length + 12) {
                    EXPECT_EQ(res, SdrResult::truncated) << n;
                }
                if (res == SdrResult::ok) ++decoded;
            }
        }
    }
    // Some of the noise must make whole records, or this test shows nothing.
    EXPECT_GT(decoded, 0u);
}
