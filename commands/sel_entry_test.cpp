#include "sel_entry.h"

#include <gtest/gtest.h>

#include <vector>

using namespace rmcpp::commands;

namespace {

using Bytes = std::vector<uint8_t>;

// A system event record: ID 0102h, timestamp 6553F100h (2023-11-14T22:13:20Z),
// generator 20h (BMC) on channel 0 LUN 0, EvM rev 04h, temperature sensor
// 30h, assertion of threshold offset 09h (Upper Critical going high) with
// trigger reading 5Ah and trigger threshold 55h.
const Bytes kSystemEvent = {0x02, 0x01, 0x02, 0x00, 0xF1, 0x53, 0x65, 0x20,
                            0x00, 0x04, 0x01, 0x30, 0x01, 0x59, 0x5A, 0x55};

}  // namespace

TEST(GetSelInfo, DecodesEveryField)
{
    const Bytes data = {0x51, 0x34, 0x12, 0x00, 0x80, 0x00, 0xF1, 0x53, 0x65,
                        0x10, 0x20, 0x30, 0x40, 0x8A};
    auto info = decode_get_sel_info(data.data(), data.size());
    ASSERT_TRUE(info);
    EXPECT_EQ(info->version_raw, 0x51);
    EXPECT_EQ(info->version_major, 1);
    EXPECT_EQ(info->version_minor, 5);
    EXPECT_EQ(info->entries, 0x1234);
    EXPECT_EQ(info->free_space, 0x8000);
    EXPECT_EQ(info->last_add_time, 0x6553F100u);
    EXPECT_EQ(info->last_erase_time, 0x40302010u);
    EXPECT_EQ(info->operation_support, 0x8A);
    EXPECT_TRUE(info->overflow);
    EXPECT_TRUE(info->delete_supported);
    EXPECT_FALSE(info->partial_add_supported);
    EXPECT_TRUE(info->reserve_supported);
    EXPECT_FALSE(info->allocation_info_supported);
}

TEST(GetSelInfo, OtherSupportFlags)
{
    const Bytes data = {0x51, 0, 0, 0xFF, 0xFF, 0, 0, 0, 0, 0, 0, 0, 0, 0x05};
    auto info = decode_get_sel_info(data.data(), data.size());
    ASSERT_TRUE(info);
    EXPECT_EQ(info->free_space, 0xFFFF);
    EXPECT_FALSE(info->overflow);
    EXPECT_FALSE(info->delete_supported);
    EXPECT_TRUE(info->partial_add_supported);
    EXPECT_FALSE(info->reserve_supported);
    EXPECT_TRUE(info->allocation_info_supported);
}

TEST(GetSelInfo, RefusesEveryShortPrefixAndTrailingBytes)
{
    Bytes data = {0x51, 0x34, 0x12, 0x00, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0x02};
    for (size_t n = 0; n < data.size(); ++n)
        EXPECT_FALSE(decode_get_sel_info(data.data(), n)) << "length " << n;
    data.push_back(0);
    EXPECT_FALSE(decode_get_sel_info(data.data(), data.size()));
    EXPECT_FALSE(decode_get_sel_info(nullptr, 14));
}

TEST(ReserveSel, DecodesReservationId)
{
    const Bytes data = {0x34, 0x12};
    EXPECT_EQ(decode_reserve_sel(data.data(), data.size()), std::optional<uint16_t>(0x1234));
    EXPECT_FALSE(decode_reserve_sel(data.data(), 0));
    EXPECT_FALSE(decode_reserve_sel(data.data(), 1));
    const Bytes longer = {0x34, 0x12, 0x00};
    EXPECT_FALSE(decode_reserve_sel(longer.data(), longer.size()));
}

TEST(GetSelEntry, BuildsRequestLeastSignificantFirst)
{
    GetSelEntryRequest req;
    req.reservation_id = 0xABCD;
    req.record_id = 0x0102;
    req.offset = 0x05;
    req.bytes_to_read = 0x08;
    const auto bytes = build_get_sel_entry(req);
    EXPECT_EQ(Bytes(bytes.begin(), bytes.end()), (Bytes{0xCD, 0xAB, 0x02, 0x01, 0x05, 0x08}));
}

TEST(GetSelEntry, DefaultRequestReadsTheWholeFirstRecord)
{
    const auto bytes = build_get_sel_entry(GetSelEntryRequest{});
    EXPECT_EQ(Bytes(bytes.begin(), bytes.end()), (Bytes{0x00, 0x00, 0x00, 0x00, 0x00, 0xFF}));
}

TEST(GetSelEntry, DecodesNextIdAndSystemEventRecord)
{
    Bytes data = {0x03, 0x01};
    data.insert(data.end(), kSystemEvent.begin(), kSystemEvent.end());
    auto entry = decode_get_sel_entry(data.data(), data.size());
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->next_record_id, 0x0103);
    EXPECT_EQ(Bytes(entry->raw.begin(), entry->raw.end()), kSystemEvent);
    const SelRecord &rec = entry->record;
    EXPECT_EQ(rec.record_id, 0x0102);
    EXPECT_EQ(rec.record_type, 0x02);
    EXPECT_EQ(rec.kind, SelRecordKind::SystemEvent);
    EXPECT_EQ(rec.timestamp, 0x6553F100u);
    EXPECT_EQ(sel_timestamp_text(rec.timestamp), "2023-11-14T22:13:20Z");
    EXPECT_EQ(rec.generator_id, 0x0020);
    EXPECT_EQ(rec.generator_address, 0x10);
    EXPECT_FALSE(rec.generator_is_software);
    EXPECT_EQ(rec.generator_channel, 0);
    EXPECT_EQ(rec.generator_lun, 0);
    EXPECT_EQ(rec.evm_rev, 0x04);
    EXPECT_EQ(rec.sensor_type, 0x01);
    EXPECT_EQ(rec.sensor_number, 0x30);
    EXPECT_FALSE(rec.deassertion);
    EXPECT_EQ(rec.event_type, 0x01);
    EXPECT_EQ(rec.event_data, (std::array<uint8_t, 3>{0x59, 0x5A, 0x55}));
    EXPECT_EQ(rec.offset, 0x09);
    EXPECT_EQ(event_data2_use(rec.event_type, rec.event_data[0]), EventDataUse::TriggerReading);
    EXPECT_EQ(event_data3_use(rec.event_type, rec.event_data[0]), EventDataUse::TriggerThreshold);
    EXPECT_TRUE(rec.oem_data.empty());
}

TEST(GetSelEntry, LastRecordHasNextIdFFFF)
{
    Bytes data = {0xFF, 0xFF};
    data.insert(data.end(), kSystemEvent.begin(), kSystemEvent.end());
    auto entry = decode_get_sel_entry(data.data(), data.size());
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->next_record_id, kSelLastEntry);
}

TEST(GetSelEntry, RefusesEveryShortPrefixAndTrailingBytes)
{
    Bytes data = {0x03, 0x01};
    data.insert(data.end(), kSystemEvent.begin(), kSystemEvent.end());
    for (size_t n = 0; n < data.size(); ++n)
        EXPECT_FALSE(decode_get_sel_entry(data.data(), n)) << "length " << n;
    data.push_back(0x00);
    EXPECT_FALSE(decode_get_sel_entry(data.data(), data.size()));
    EXPECT_FALSE(decode_get_sel_entry(nullptr, 18));
}

TEST(GetSelEntry, ChunkKeepsPartialBytes)
{
    const Bytes data = {0x04, 0x00, 0xAA, 0xBB, 0xCC};
    auto chunk = decode_get_sel_entry_chunk(data.data(), data.size());
    ASSERT_TRUE(chunk);
    EXPECT_EQ(chunk->next_record_id, 0x0004);
    EXPECT_EQ(chunk->data, (Bytes{0xAA, 0xBB, 0xCC}));

    auto empty = decode_get_sel_entry_chunk(data.data(), 2);
    ASSERT_TRUE(empty);
    EXPECT_TRUE(empty->data.empty());

    EXPECT_FALSE(decode_get_sel_entry_chunk(data.data(), 0));
    EXPECT_FALSE(decode_get_sel_entry_chunk(data.data(), 1));
    const Bytes too_long(2 + kSelRecordSize + 1, 0x11);
    EXPECT_FALSE(decode_get_sel_entry_chunk(too_long.data(), too_long.size()));
    EXPECT_TRUE(decode_get_sel_entry_chunk(too_long.data(), too_long.size() - 1));
}

TEST(SelRecord, DeassertionAndGeneratorBits)
{
    // Software ID 41h (BIOS, bit 0 set), channel 5, LUN 2; deassertion of
    // processor (07h) sensor-specific (6Fh) offset 01h, Thermal Trip.
    const Bytes data = {0x10, 0x00, 0x02, 0xFF, 0xFF, 0xFF, 0xFF, 0x41,
                        0x52, 0x04, 0x07, 0x9C, 0xEF, 0xA1, 0x03, 0xC4};
    auto rec = decode_sel_record(data.data(), data.size());
    ASSERT_TRUE(rec);
    EXPECT_EQ(rec->record_id, 0x0010);
    EXPECT_EQ(rec->timestamp, kSelTimestampUnspecified);
    EXPECT_EQ(rec->generator_id, 0x5241);
    EXPECT_EQ(rec->generator_address, 0x20);
    EXPECT_TRUE(rec->generator_is_software);
    EXPECT_EQ(rec->generator_channel, 5);
    EXPECT_EQ(rec->generator_lun, 2);
    EXPECT_EQ(rec->sensor_type, 0x07);
    EXPECT_EQ(rec->sensor_number, 0x9C);
    EXPECT_TRUE(rec->deassertion);
    EXPECT_EQ(rec->event_type, 0x6F);
    EXPECT_EQ(rec->offset, 0x01);
    EXPECT_EQ(event_data2_use(rec->event_type, rec->event_data[0]), EventDataUse::OemCode);
    EXPECT_EQ(event_data3_use(rec->event_type, rec->event_data[0]), EventDataUse::OemCode);
}

TEST(SelRecord, OemTimestamped)
{
    const Bytes data = {0x20, 0x00, 0xC1, 0x00, 0xF1, 0x53, 0x65, 0x57,
                        0x01, 0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66};
    auto rec = decode_sel_record(data.data(), data.size());
    ASSERT_TRUE(rec);
    EXPECT_EQ(rec->record_type, 0xC1);
    EXPECT_EQ(rec->kind, SelRecordKind::OemTimestamped);
    EXPECT_EQ(rec->timestamp, 0x6553F100u);
    EXPECT_EQ(rec->manufacturer_id, 0x000157u);
    EXPECT_EQ(rec->oem_data, (Bytes{0x11, 0x22, 0x33, 0x44, 0x55, 0x66}));
}

TEST(SelRecord, OemNonTimestamped)
{
    const Bytes data = {0x21, 0x00, 0xE0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13};
    auto rec = decode_sel_record(data.data(), data.size());
    ASSERT_TRUE(rec);
    EXPECT_EQ(rec->kind, SelRecordKind::OemNonTimestamped);
    EXPECT_EQ(rec->timestamp, 0u);
    EXPECT_EQ(rec->oem_data, (Bytes{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13}));
}

TEST(SelRecord, KindOfEveryRecordType)
{
    for (unsigned t = 0; t <= 0xFF; ++t) {
        const SelRecordKind kind = sel_record_kind(static_cast<uint8_t>(t));
        if (t == 0x02)
            EXPECT_EQ(kind, SelRecordKind::SystemEvent);
        else if (t >= 0xC0 && t <= 0xDF)
            EXPECT_EQ(kind, SelRecordKind::OemTimestamped) << t;
        else if (t >= 0xE0)
            EXPECT_EQ(kind, SelRecordKind::OemNonTimestamped) << t;
        else
            EXPECT_EQ(kind, SelRecordKind::Unspecified) << t;
    }
    EXPECT_EQ(sel_record_kind(0xBF), SelRecordKind::Unspecified);
    EXPECT_EQ(sel_record_kind(0xDF), SelRecordKind::OemTimestamped);
    EXPECT_EQ(sel_record_kind(0xFF), SelRecordKind::OemNonTimestamped);
}

TEST(SelRecord, UnspecifiedTypeKeepsRawBytes)
{
    const Bytes data = {0x22, 0x00, 0x10, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13};
    auto rec = decode_sel_record(data.data(), data.size());
    ASSERT_TRUE(rec);
    EXPECT_EQ(rec->kind, SelRecordKind::Unspecified);
    EXPECT_EQ(rec->oem_data.size(), 13u);
    EXPECT_EQ(rec->oem_data.front(), 1);
    EXPECT_EQ(rec->oem_data.back(), 13);
}

TEST(SelRecord, RefusesWrongLengths)
{
    Bytes data = kSystemEvent;
    for (size_t n = 0; n < data.size(); ++n)
        EXPECT_FALSE(decode_sel_record(data.data(), n)) << "length " << n;
    data.push_back(0);
    EXPECT_FALSE(decode_sel_record(data.data(), data.size()));
    EXPECT_FALSE(decode_sel_record(nullptr, 16));
}

TEST(EventDataUse, ThresholdCodes)
{
    EXPECT_EQ(event_data2_use(0x01, 0x00), EventDataUse::Unspecified);
    EXPECT_EQ(event_data2_use(0x01, 0x40), EventDataUse::TriggerReading);
    EXPECT_EQ(event_data2_use(0x01, 0x80), EventDataUse::OemCode);
    EXPECT_EQ(event_data2_use(0x01, 0xC0), EventDataUse::SensorSpecific);
    EXPECT_EQ(event_data3_use(0x01, 0x00), EventDataUse::Unspecified);
    EXPECT_EQ(event_data3_use(0x01, 0x10), EventDataUse::TriggerThreshold);
    EXPECT_EQ(event_data3_use(0x01, 0x20), EventDataUse::OemCode);
    EXPECT_EQ(event_data3_use(0x01, 0x30), EventDataUse::SensorSpecific);
}

TEST(EventDataUse, DiscreteCodes)
{
    for (uint8_t type : {uint8_t{0x02}, uint8_t{0x0C}, uint8_t{0x6F}}) {
        EXPECT_EQ(event_data2_use(type, 0x00), EventDataUse::Unspecified);
        EXPECT_EQ(event_data2_use(type, 0x40), EventDataUse::PreviousState);
        EXPECT_EQ(event_data2_use(type, 0x80), EventDataUse::OemCode);
        EXPECT_EQ(event_data2_use(type, 0xC0), EventDataUse::SensorSpecific);
        EXPECT_EQ(event_data3_use(type, 0x00), EventDataUse::Unspecified);
        EXPECT_EQ(event_data3_use(type, 0x10), EventDataUse::Reserved);
        EXPECT_EQ(event_data3_use(type, 0x20), EventDataUse::OemCode);
        EXPECT_EQ(event_data3_use(type, 0x30), EventDataUse::SensorSpecific);
    }
}

TEST(EventDataUse, OemAndReservedTypeCodes)
{
    for (uint8_t type : {uint8_t{0x70}, uint8_t{0x7F}}) {
        EXPECT_EQ(event_data2_use(type, 0x40), EventDataUse::PreviousState);
        EXPECT_EQ(event_data2_use(type, 0x80), EventDataUse::OemCode);
        EXPECT_EQ(event_data2_use(type, 0xC0), EventDataUse::Reserved);
        EXPECT_EQ(event_data3_use(type, 0x10), EventDataUse::Reserved);
        EXPECT_EQ(event_data3_use(type, 0x20), EventDataUse::OemCode);
        EXPECT_EQ(event_data3_use(type, 0x30), EventDataUse::Reserved);
    }
    EXPECT_EQ(event_data2_use(0x0D, 0x00), EventDataUse::Unspecified);
    EXPECT_EQ(event_data2_use(0x0D, 0x40), EventDataUse::Reserved);
    EXPECT_EQ(event_data3_use(0x00, 0x20), EventDataUse::Reserved);
}

TEST(ClearSel, BuildsInitiateAndStatusRequests)
{
    const auto start = build_clear_sel(0x1234, ClearSelAction::InitiateErase);
    EXPECT_EQ(Bytes(start.begin(), start.end()), (Bytes{0x34, 0x12, 0x43, 0x4C, 0x52, 0xAA}));
    const auto status = build_clear_sel(0x1234, ClearSelAction::GetStatus);
    EXPECT_EQ(Bytes(status.begin(), status.end()), (Bytes{0x34, 0x12, 'C', 'L', 'R', 0x00}));
}

TEST(ClearSel, DecodesErasureProgress)
{
    const uint8_t in_progress = 0x00, completed = 0x01, reserved_bits = 0xF1, unknown = 0x02;
    EXPECT_EQ(decode_clear_sel(&in_progress, 1), std::optional(ErasureProgress::InProgress));
    EXPECT_EQ(decode_clear_sel(&completed, 1), std::optional(ErasureProgress::Completed));
    EXPECT_EQ(decode_clear_sel(&reserved_bits, 1), std::optional(ErasureProgress::Completed));
    EXPECT_FALSE(decode_clear_sel(&unknown, 1));
    EXPECT_FALSE(decode_clear_sel(&completed, 0));
    const Bytes longer = {0x01, 0x00};
    EXPECT_FALSE(decode_clear_sel(longer.data(), longer.size()));
    EXPECT_FALSE(decode_clear_sel(nullptr, 1));
}

TEST(Timestamp, EpochInIso8601)
{
    EXPECT_EQ(iso8601_utc(0), "1970-01-01T00:00:00Z");
    EXPECT_EQ(iso8601_utc(86399), "1970-01-01T23:59:59Z");
}

TEST(Timestamp, KnownDates)
{
    EXPECT_EQ(iso8601_utc(1700000000), "2023-11-14T22:13:20Z");
    EXPECT_EQ(iso8601_utc(951782400), "2000-02-29T00:00:00Z");
    EXPECT_EQ(iso8601_utc(1709251199), "2024-02-29T23:59:59Z");
    EXPECT_EQ(iso8601_utc(0xFFFFFFFE), "2106-02-07T06:28:14Z");
}

TEST(Timestamp, PreInitUnspecifiedAndReal)
{
    EXPECT_EQ(sel_timestamp_text(0), "pre-init +0s");
    EXPECT_EQ(sel_timestamp_text(310), "pre-init +310s");
    EXPECT_EQ(sel_timestamp_text(0x20000000), "pre-init +536870912s");
    EXPECT_EQ(sel_timestamp_text(0x20000001), "1987-01-05T18:48:33Z");
    EXPECT_EQ(sel_timestamp_text(0xFFFFFFFF), "unspecified");
    EXPECT_EQ(sel_timestamp_text(0xFFFFFFFE), "2106-02-07T06:28:14Z");
}

TEST(SelRecord, EveryRecordTypeDecodesAndKeepsItsIdAndType)
{
    for (unsigned t = 0; t <= 0xFF; ++t) {
        Bytes data(kSelRecordSize, static_cast<uint8_t>(t ^ 0x5A));
        data[0] = 0x78;
        data[1] = 0x56;
        data[2] = static_cast<uint8_t>(t);
        auto rec = decode_sel_record(data.data(), data.size());
        ASSERT_TRUE(rec) << t;
        EXPECT_EQ(rec->record_id, 0x5678);
        EXPECT_EQ(rec->record_type, t);
        EXPECT_EQ(rec->kind, sel_record_kind(static_cast<uint8_t>(t)));
    }
}

TEST(Decoders, EveryLengthOfAnOversizedBufferIsSafe)
{
    // Each decoder accepts only its own lengths; the rest are refused
    // without reading past the given length (checked under ASan).
    const Bytes buffer(40, 0x02);
    for (size_t n = 0; n <= buffer.size(); ++n) {
        std::vector<uint8_t> exact(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(n));
        const uint8_t *p = exact.empty() ? buffer.data() : exact.data();
        EXPECT_EQ(decode_get_sel_info(p, n).has_value(), n == 14) << n;
        EXPECT_EQ(decode_reserve_sel(p, n).has_value(), n == 2) << n;
        EXPECT_EQ(decode_sel_record(p, n).has_value(), n == 16) << n;
        EXPECT_EQ(decode_get_sel_entry(p, n).has_value(), n == 18) << n;
        EXPECT_EQ(decode_get_sel_entry_chunk(p, n).has_value(), n >= 2 && n <= 18) << n;
        EXPECT_EQ(decode_clear_sel(p, n).has_value(), false) << n;  // 02h is not a progress code
    }
}
