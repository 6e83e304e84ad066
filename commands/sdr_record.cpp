#include "sdr_record.h"

#include "wire.h"

namespace rmcpp::commands {

namespace {

using rmcpp::wire::Reader;

// Fixed bytes after the header, up to and including the ID string
// type/length byte.
constexpr size_t full_sensor_fixed = 43;
constexpr size_t compact_sensor_fixed = 27;
constexpr size_t event_only_fixed = 12;

void read_sensor_key(Reader &r, SdrSensorKey &key)
{
    const uint8_t owner = r.u8();
    key.owner_id = static_cast<uint8_t>(owner >> 1);
    key.owner_is_software = (owner & 0x01) != 0;
    const uint8_t lun = r.u8();
    key.channel = static_cast<uint8_t>(lun >> 4);
    key.owner_lun = static_cast<uint8_t>(lun & 0x03);
    key.number = r.u8();
}

void read_entity(Reader &r, SdrSensorKey &key)
{
    key.entity_id = r.u8();
    const uint8_t instance = r.u8();
    key.entity_logical = (instance & 0x80) != 0;
    key.entity_instance = static_cast<uint8_t>(instance & 0x7F);
}

void read_units(Reader &r, SdrUnits &units)
{
    const uint8_t u1 = r.u8();
    units.units1 = u1;
    units.analog_format = static_cast<SdrAnalogFormat>(u1 >> 6);
    units.rate = static_cast<uint8_t>((u1 >> 3) & 0x07);
    units.modifier = static_cast<uint8_t>((u1 >> 1) & 0x03);
    units.percentage = (u1 & 0x01) != 0;
    units.base_unit = r.u8();
    units.modifier_unit = r.u8();
}

void read_sharing(Reader &r, SdrSharing &sharing)
{
    const uint8_t first = r.u8();
    sharing.direction = static_cast<uint8_t>(first >> 6);
    sharing.id_instance_modifier_type = static_cast<uint8_t>((first >> 4) & 0x03);
    sharing.share_count = static_cast<uint8_t>(first & 0x0F);
    const uint8_t second = r.u8();
    sharing.entity_instance_increments = (second & 0x80) != 0;
    sharing.id_instance_modifier_offset = static_cast<uint8_t>(second & 0x7F);
}

// Reads the ID string type/length byte and the string after it.
SdrResult read_id_string(Reader &r, SdrIdString &id)
{
    const uint8_t code = r.u8();
    if (!r.ok()) return SdrResult::truncated;
    id.type = static_cast<SdrIdStringType>(code >> 6);
    const size_t n = code & 0x1F;
    if (n > sdr_id_string_max) return SdrResult::invalid;
    id.raw.assign(n, 0);
    if (!r.bytes(id.raw.data(), n)) return SdrResult::truncated;
    id.text.clear();
    if (id.type == SdrIdStringType::ascii_8bit)
        id.text.assign(id.raw.begin(), id.raw.end());
    else if (id.type == SdrIdStringType::ascii_6bit_packed)
        id.text = sdr_unpack_6bit_ascii(id.raw.data(), id.raw.size());
    return SdrResult::ok;
}

// Checks the header and that the whole record is present; `body` then covers
// exactly the record, positioned after the header.
SdrResult open_record(const uint8_t *data, size_t length, uint8_t type, size_t fixed,
                      SdrHeader &header, Reader &body)
{
    const SdrResult head = decode_sdr_header(data, length, header);
    if (head != SdrResult::ok) return head;
    if (header.type != type) return SdrResult::wrong_type;
    if (length < sdr_header_length + header.length || header.length < fixed)
        return SdrResult::truncated;
    body = Reader(data, sdr_header_length + header.length);
    body.skip(sdr_header_length);
    return SdrResult::ok;
}

}  // namespace

std::string sdr_unpack_6bit_ascii(const uint8_t *data, size_t length)
{
    // Bytes feed an accumulator low bits first; every six bits make a character.
    Reader r(data, length);
    std::string text;
    text.reserve(length * 8 / 6);
    uint32_t bits = 0;
    unsigned count = 0;
    while (r.remaining() > 0) {
        bits |= static_cast<uint32_t>(r.u8()) << count;
        count += 8;
        while (count >= 6) {
            text.push_back(static_cast<char>((bits & 0x3F) + 0x20));
            bits >>= 6;
            count -= 6;
        }
    }
    return text;
}

SdrResult decode_sdr_header(const uint8_t *data, size_t length, SdrHeader &out)
{
    Reader r(data, length);
    SdrHeader h;
    h.record_id = r.u16le();
    h.version = r.u8();
    h.type = r.u8();
    h.length = r.u8();
    if (!r.ok()) return SdrResult::truncated;
    out = h;
    return SdrResult::ok;
}

SdrResult decode_sdr_full_sensor(const uint8_t *data, size_t length, SdrFullSensor &out)
{
    SdrFullSensor s;
    Reader r(nullptr, 0);
    SdrResult res = open_record(data, length, sdr_type_full_sensor, full_sensor_fixed, s.header, r);
    if (res != SdrResult::ok) return res;

    read_sensor_key(r, s.key);
    read_entity(r, s.key);
    s.initialization = r.u8();
    s.capabilities = r.u8();
    s.sensor_type = r.u8();
    s.event_reading_type = r.u8();
    s.assertion_mask = r.u16le();
    s.deassertion_mask = r.u16le();
    s.reading_mask = r.u16le();
    read_units(r, s.units);
    s.linearization = static_cast<uint8_t>(r.u8() & 0x7F);

    const uint8_t m_ls = r.u8();
    const uint8_t m_tol = r.u8();
    s.m = static_cast<int16_t>(sdr_sign_extend(m_ls | ((m_tol & 0xC0u) << 2), 10));
    s.tolerance = static_cast<uint8_t>(m_tol & 0x3F);

    const uint8_t b_ls = r.u8();
    const uint8_t b_acc = r.u8();
    s.b = static_cast<int16_t>(sdr_sign_extend(b_ls | ((b_acc & 0xC0u) << 2), 10));
    const uint8_t acc_dir = r.u8();
    s.accuracy = static_cast<uint16_t>((b_acc & 0x3F) | ((acc_dir & 0xF0u) << 2));
    s.accuracy_exp = static_cast<uint8_t>((acc_dir >> 2) & 0x03);
    s.direction = static_cast<uint8_t>(acc_dir & 0x03);

    const uint8_t exps = r.u8();
    s.r_exp = static_cast<int8_t>(sdr_sign_extend(exps >> 4, 4));
    s.b_exp = static_cast<int8_t>(sdr_sign_extend(exps & 0x0F, 4));

    const uint8_t flags = r.u8();
    s.nominal_specified = (flags & 0x01) != 0;
    s.normal_max_specified = (flags & 0x02) != 0;
    s.normal_min_specified = (flags & 0x04) != 0;
    s.nominal_reading = r.u8();
    s.normal_max = r.u8();
    s.normal_min = r.u8();
    s.sensor_max = r.u8();
    s.sensor_min = r.u8();
    s.upper_non_recoverable = r.u8();
    s.upper_critical = r.u8();
    s.upper_non_critical = r.u8();
    s.lower_non_recoverable = r.u8();
    s.lower_critical = r.u8();
    s.lower_non_critical = r.u8();
    s.positive_hysteresis = r.u8();
    s.negative_hysteresis = r.u8();
    r.skip(2);
    s.oem = r.u8();
    if (!r.ok()) return SdrResult::truncated;
    res = read_id_string(r, s.id);
    if (res != SdrResult::ok) return res;
    out = std::move(s);
    return SdrResult::ok;
}

SdrResult decode_sdr_compact_sensor(const uint8_t *data, size_t length, SdrCompactSensor &out)
{
    SdrCompactSensor s;
    Reader r(nullptr, 0);
    SdrResult res =
        open_record(data, length, sdr_type_compact_sensor, compact_sensor_fixed, s.header, r);
    if (res != SdrResult::ok) return res;

    read_sensor_key(r, s.key);
    read_entity(r, s.key);
    s.initialization = r.u8();
    s.capabilities = r.u8();
    s.sensor_type = r.u8();
    s.event_reading_type = r.u8();
    s.assertion_mask = r.u16le();
    s.deassertion_mask = r.u16le();
    s.reading_mask = r.u16le();
    read_units(r, s.units);
    read_sharing(r, s.sharing);
    s.positive_hysteresis = r.u8();
    s.negative_hysteresis = r.u8();
    r.skip(3);
    s.oem = r.u8();
    if (!r.ok()) return SdrResult::truncated;
    res = read_id_string(r, s.id);
    if (res != SdrResult::ok) return res;
    out = std::move(s);
    return SdrResult::ok;
}

SdrResult decode_sdr_event_only(const uint8_t *data, size_t length, SdrEventOnly &out)
{
    SdrEventOnly s;
    Reader r(nullptr, 0);
    SdrResult res = open_record(data, length, sdr_type_event_only, event_only_fixed, s.header, r);
    if (res != SdrResult::ok) return res;

    read_sensor_key(r, s.key);
    read_entity(r, s.key);
    s.sensor_type = r.u8();
    s.event_reading_type = r.u8();
    read_sharing(r, s.sharing);
    r.skip(1);
    s.oem = r.u8();
    if (!r.ok()) return SdrResult::truncated;
    res = read_id_string(r, s.id);
    if (res != SdrResult::ok) return res;
    out = std::move(s);
    return SdrResult::ok;
}

}  // namespace rmcpp::commands
