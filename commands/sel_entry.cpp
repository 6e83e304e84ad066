#include "sel_entry.h"

#include <cstdio>

#include "wire.h"

namespace rmcpp::commands {

using rmcpp::wire::Reader;
using rmcpp::wire::Writer;

std::optional<SelInfo> decode_get_sel_info(const uint8_t *data, size_t length)
{
    if (!data) return std::nullopt;
    Reader r(data, length);
    SelInfo info;
    info.version_raw = r.u8();
    info.entries = r.u16le();
    info.free_space = r.u16le();
    info.last_add_time = r.u32le();
    info.last_erase_time = r.u32le();
    info.operation_support = r.u8();
    if (!r.ok() || r.remaining() != 0) return std::nullopt;
    // BCD with the least significant digit in the high nibble: 51h is 1.5.
    info.version_major = info.version_raw & 0x0F;
    info.version_minor = info.version_raw >> 4;
    info.overflow = (info.operation_support & 0x80) != 0;
    info.delete_supported = (info.operation_support & 0x08) != 0;
    info.partial_add_supported = (info.operation_support & 0x04) != 0;
    info.reserve_supported = (info.operation_support & 0x02) != 0;
    info.allocation_info_supported = (info.operation_support & 0x01) != 0;
    return info;
}

std::optional<uint16_t> decode_reserve_sel(const uint8_t *data, size_t length)
{
    if (!data) return std::nullopt;
    Reader r(data, length);
    uint16_t reservation = r.u16le();
    if (!r.ok() || r.remaining() != 0) return std::nullopt;
    return reservation;
}

SelRecordKind sel_record_kind(uint8_t record_type)
{
    if (record_type == 0x02) return SelRecordKind::SystemEvent;
    if (record_type >= 0xC0 && record_type <= 0xDF) return SelRecordKind::OemTimestamped;
    if (record_type >= 0xE0) return SelRecordKind::OemNonTimestamped;
    return SelRecordKind::Unspecified;
}

namespace {

enum class EventClass { Threshold, Discrete, Oem, Other };

EventClass event_class(uint8_t event_type)
{
    if (event_type == 0x01) return EventClass::Threshold;
    if ((event_type >= 0x02 && event_type <= 0x0C) || event_type == 0x6F) return EventClass::Discrete;
    if (event_type >= 0x70 && event_type <= 0x7F) return EventClass::Oem;
    return EventClass::Other;
}

}  // namespace

EventDataUse event_data2_use(uint8_t event_type, uint8_t event_data1)
{
    const uint8_t code = event_data1 >> 6;
    if (code == 0) return EventDataUse::Unspecified;
    switch (event_class(event_type)) {
    case EventClass::Threshold:
        return code == 1 ? EventDataUse::TriggerReading
               : code == 2 ? EventDataUse::OemCode
                           : EventDataUse::SensorSpecific;
    case EventClass::Discrete:
        return code == 1 ? EventDataUse::PreviousState
               : code == 2 ? EventDataUse::OemCode
                           : EventDataUse::SensorSpecific;
    case EventClass::Oem:
        return code == 1 ? EventDataUse::PreviousState
               : code == 2 ? EventDataUse::OemCode
                           : EventDataUse::Reserved;
    case EventClass::Other:
        break;
    }
    return EventDataUse::Reserved;
}

EventDataUse event_data3_use(uint8_t event_type, uint8_t event_data1)
{
    const uint8_t code = (event_data1 >> 4) & 0x03;
    if (code == 0) return EventDataUse::Unspecified;
    switch (event_class(event_type)) {
    case EventClass::Threshold:
        return code == 1 ? EventDataUse::TriggerThreshold
               : code == 2 ? EventDataUse::OemCode
                           : EventDataUse::SensorSpecific;
    case EventClass::Discrete:
        return code == 1 ? EventDataUse::Reserved
               : code == 2 ? EventDataUse::OemCode
                           : EventDataUse::SensorSpecific;
    case EventClass::Oem:
        return code == 2 ? EventDataUse::OemCode : EventDataUse::Reserved;
    case EventClass::Other:
        break;
    }
    return EventDataUse::Reserved;
}

std::optional<SelRecord> decode_sel_record(const uint8_t *data, size_t length)
{
    if (!data || length != kSelRecordSize) return std::nullopt;
    Reader r(data, length);
    SelRecord rec;
    rec.record_id = r.u16le();
    rec.record_type = r.u8();
    rec.kind = sel_record_kind(rec.record_type);
    switch (rec.kind) {
    case SelRecordKind::SystemEvent: {
        rec.timestamp = r.u32le();
        const uint8_t gen_lo = r.u8();
        const uint8_t gen_hi = r.u8();
        rec.generator_id = static_cast<uint16_t>(gen_lo | (gen_hi << 8));
        rec.generator_address = gen_lo >> 1;
        rec.generator_is_software = (gen_lo & 0x01) != 0;
        rec.generator_channel = gen_hi >> 4;
        rec.generator_lun = gen_hi & 0x03;
        rec.evm_rev = r.u8();
        rec.sensor_type = r.u8();
        rec.sensor_number = r.u8();
        const uint8_t dir_type = r.u8();
        rec.deassertion = (dir_type & 0x80) != 0;
        rec.event_type = dir_type & 0x7F;
        r.bytes(rec.event_data.data(), rec.event_data.size());
        rec.offset = rec.event_data[0] & 0x0F;
        break;
    }
    case SelRecordKind::OemTimestamped: {
        rec.timestamp = r.u32le();
        const uint32_t b0 = r.u8();
        const uint32_t b1 = r.u8();
        const uint32_t b2 = r.u8();
        rec.manufacturer_id = b0 | (b1 << 8) | (b2 << 16);
        rec.oem_data.resize(6);
        r.bytes(rec.oem_data.data(), rec.oem_data.size());
        break;
    }
    case SelRecordKind::OemNonTimestamped:
    case SelRecordKind::Unspecified:
        rec.oem_data.resize(13);
        r.bytes(rec.oem_data.data(), rec.oem_data.size());
        break;
    }
    if (!r.ok() || r.remaining() != 0) return std::nullopt;
    return rec;
}

std::array<uint8_t, 6> build_get_sel_entry(const GetSelEntryRequest &request)
{
    std::array<uint8_t, 6> out{};
    Writer w(out.data(), out.size());
    w.u16le(request.reservation_id).u16le(request.record_id).u8(request.offset).u8(request.bytes_to_read);
    return out;
}

std::optional<SelEntryChunk> decode_get_sel_entry_chunk(const uint8_t *data, size_t length)
{
    if (!data) return std::nullopt;
    Reader r(data, length);
    SelEntryChunk chunk;
    chunk.next_record_id = r.u16le();
    if (!r.ok() || r.remaining() > kSelRecordSize) return std::nullopt;
    chunk.data.resize(r.remaining());
    r.bytes(chunk.data.data(), chunk.data.size());
    if (!r.ok()) return std::nullopt;
    return chunk;
}

std::optional<SelEntry> decode_get_sel_entry(const uint8_t *data, size_t length)
{
    if (!data) return std::nullopt;
    Reader r(data, length);
    SelEntry entry;
    entry.next_record_id = r.u16le();
    if (!r.ok() || r.remaining() != kSelRecordSize) return std::nullopt;
    r.bytes(entry.raw.data(), entry.raw.size());
    if (!r.ok()) return std::nullopt;
    auto record = decode_sel_record(entry.raw.data(), entry.raw.size());
    if (!record) return std::nullopt;
    entry.record = std::move(*record);
    return entry;
}

std::array<uint8_t, 6> build_clear_sel(uint16_t reservation_id, ClearSelAction action)
{
    std::array<uint8_t, 6> out{};
    Writer w(out.data(), out.size());
    w.u16le(reservation_id).u8('C').u8('L').u8('R').u8(static_cast<uint8_t>(action));
    return out;
}

std::optional<ErasureProgress> decode_clear_sel(const uint8_t *data, size_t length)
{
    if (!data) return std::nullopt;
    Reader r(data, length);
    const uint8_t progress = r.u8();
    if (!r.ok() || r.remaining() != 0) return std::nullopt;
    switch (progress & 0x0F) {
    case 0x0:
        return ErasureProgress::InProgress;
    case 0x1:
        return ErasureProgress::Completed;
    default:
        return std::nullopt;
    }
}

namespace {

struct CivilDate {
    int64_t year;
    unsigned month;
    unsigned day;
};

// Days since 1970-01-01 to a proleptic Gregorian date (eras of 400 years
// starting on 1 March, so the leap day falls at the end of each year).
CivilDate civil_from_days(int64_t days)
{
    const int64_t z = days + 719468;
    const int64_t era = z / 146097;  // z is never negative here
    const int64_t doe = z - era * 146097;
    const int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const int64_t mp = (5 * doy + 2) / 153;
    const unsigned day = static_cast<unsigned>(doy - (153 * mp + 2) / 5 + 1);
    const unsigned month = static_cast<unsigned>(mp < 10 ? mp + 3 : mp - 9);
    const int64_t year = yoe + era * 400 + (month <= 2 ? 1 : 0);
    return {year, month, day};
}

}  // namespace

std::string iso8601_utc(uint32_t unix_seconds)
{
    const int64_t days = unix_seconds / 86400;
    const uint32_t secs = unix_seconds % 86400;
    const CivilDate date = civil_from_days(days);
    char text[32];
    std::snprintf(text, sizeof text, "%04lld-%02u-%02uT%02u:%02u:%02uZ", static_cast<long long>(date.year),
                  date.month, date.day, secs / 3600, (secs / 60) % 60, secs % 60);
    return text;
}

std::string sel_timestamp_text(uint32_t timestamp)
{
    if (timestamp == kSelTimestampUnspecified) return "unspecified";
    if (timestamp <= kSelTimestampPreInitMax) return "pre-init +" + std::to_string(timestamp) + "s";
    return iso8601_utc(timestamp);
}

}  // namespace rmcpp::commands
