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

using rmcpp::wire::Writer;

void write_sensor_key(Writer &w, const SdrSensorKey &key)
{
    w.u8(static_cast<uint8_t>((key.owner_id << 1) | (key.owner_is_software ? 1 : 0)));
    w.u8(static_cast<uint8_t>(((key.channel & 0x0F) << 4) | (key.owner_lun & 0x03)));
    w.u8(key.number);
}

void write_entity(Writer &w, const SdrSensorKey &key)
{
    w.u8(key.entity_id);
    w.u8(static_cast<uint8_t>((key.entity_logical ? 0x80 : 0) | (key.entity_instance & 0x7F)));
}

void write_units(Writer &w, const SdrUnits &u)
{
    w.u8(static_cast<uint8_t>((static_cast<uint8_t>(u.analog_format) << 6) | ((u.rate & 0x07) << 3) |
                              ((u.modifier & 0x03) << 1) | (u.percentage ? 1 : 0)));
    w.u8(u.base_unit).u8(u.modifier_unit);
}

void write_sharing(Writer &w, const SdrSharing &s)
{
    w.u8(static_cast<uint8_t>(((s.direction & 0x03) << 6) | ((s.id_instance_modifier_type & 0x03) << 4) |
                              (s.share_count & 0x0F)));
    w.u8(static_cast<uint8_t>((s.entity_instance_increments ? 0x80 : 0) | (s.id_instance_modifier_offset & 0x7F)));
}

void write_id_string(Writer &w, const SdrIdString &id)
{
    w.u8(static_cast<uint8_t>((static_cast<uint8_t>(id.type) << 6) | (id.raw.size() & 0x1F)));
    w.bytes(id.raw.data(), id.raw.size());
}

bool fits_signed(int value, unsigned bits)
{
    const int limit = 1 << (bits - 1);
    return value >= -limit && value < limit;
}

// Writes the header with the length of what follows it; `body` is the
// record's size after the header.
void write_header(const SdrHeader &h, uint8_t type, std::vector<uint8_t> &out, size_t body)
{
    Writer w(out.data(), out.size());
    w.u16le(h.record_id).u8(h.version).u8(type).u8(static_cast<uint8_t>(body));
}

}  // namespace

std::vector<uint8_t> encode_sdr_full_sensor(const SdrFullSensor &s)
{
    if (s.id.raw.size() > sdr_id_string_max || !fits_signed(s.m, 10) || !fits_signed(s.b, 10) ||
        !fits_signed(s.r_exp, 4) || !fits_signed(s.b_exp, 4) || s.accuracy > 0x3FF || s.tolerance > 0x3F)
        return {};
    const size_t body = full_sensor_fixed + s.id.raw.size();
    std::vector<uint8_t> out(sdr_header_length + body);
    write_header(s.header, sdr_type_full_sensor, out, body);
    Writer w(out.data() + sdr_header_length, body);
    write_sensor_key(w, s.key);
    write_entity(w, s.key);
    w.u8(s.initialization).u8(s.capabilities).u8(s.sensor_type).u8(s.event_reading_type);
    w.u16le(s.assertion_mask).u16le(s.deassertion_mask).u16le(s.reading_mask);
    write_units(w, s.units);
    w.u8(static_cast<uint8_t>(s.linearization & 0x7F));
    const auto m = static_cast<uint16_t>(s.m) & 0x3FFu;
    const auto b = static_cast<uint16_t>(s.b) & 0x3FFu;
    w.u8(static_cast<uint8_t>(m)).u8(static_cast<uint8_t>(((m >> 8) << 6) | (s.tolerance & 0x3F)));
    w.u8(static_cast<uint8_t>(b)).u8(static_cast<uint8_t>(((b >> 8) << 6) | (s.accuracy & 0x3F)));
    w.u8(static_cast<uint8_t>(((s.accuracy >> 6) << 4) | ((s.accuracy_exp & 0x03) << 2) | (s.direction & 0x03)));
    w.u8(static_cast<uint8_t>(((static_cast<uint8_t>(s.r_exp) & 0x0F) << 4) | (static_cast<uint8_t>(s.b_exp) & 0x0F)));
    w.u8(static_cast<uint8_t>((s.nominal_specified ? 0x01 : 0) | (s.normal_max_specified ? 0x02 : 0) |
                              (s.normal_min_specified ? 0x04 : 0)));
    w.u8(s.nominal_reading).u8(s.normal_max).u8(s.normal_min).u8(s.sensor_max).u8(s.sensor_min);
    w.u8(s.upper_non_recoverable).u8(s.upper_critical).u8(s.upper_non_critical);
    w.u8(s.lower_non_recoverable).u8(s.lower_critical).u8(s.lower_non_critical);
    w.u8(s.positive_hysteresis).u8(s.negative_hysteresis);
    w.fill(0, 2).u8(s.oem);
    write_id_string(w, s.id);
    return w.ok() ? out : std::vector<uint8_t>{};
}

std::vector<uint8_t> encode_sdr_compact_sensor(const SdrCompactSensor &s)
{
    if (s.id.raw.size() > sdr_id_string_max) return {};
    const size_t body = compact_sensor_fixed + s.id.raw.size();
    std::vector<uint8_t> out(sdr_header_length + body);
    write_header(s.header, sdr_type_compact_sensor, out, body);
    Writer w(out.data() + sdr_header_length, body);
    write_sensor_key(w, s.key);
    write_entity(w, s.key);
    w.u8(s.initialization).u8(s.capabilities).u8(s.sensor_type).u8(s.event_reading_type);
    w.u16le(s.assertion_mask).u16le(s.deassertion_mask).u16le(s.reading_mask);
    write_units(w, s.units);
    write_sharing(w, s.sharing);
    w.u8(s.positive_hysteresis).u8(s.negative_hysteresis);
    w.fill(0, 3).u8(s.oem);
    write_id_string(w, s.id);
    return w.ok() ? out : std::vector<uint8_t>{};
}

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
