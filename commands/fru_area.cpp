#include "fru_area.h"

#include <iterator>

#include "wire.h"

namespace rmcpp::commands {
namespace {

constexpr uint8_t kEndOfFields = 0xC1;
constexpr size_t kHeaderLength = 8;

// BCD plus digit values: 0h-9h digits, Ah space, Bh dash, Ch period,
// Dh-Fh reserved.
constexpr char kBcdPlus[16] = {'0', '1', '2', '3', '4', '5', '6', '7',
                               '8', '9', ' ', '-', '.', '?', '?', '?'};
constexpr char kHex[] = "0123456789abcdef";

void append_utf8(std::string &out, uint32_t cp)
{
    if (cp < 0x80) {
        out += static_cast<char>(cp);
    } else if (cp < 0x800) {
        out += static_cast<char>(0xC0 | (cp >> 6));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else {
        out += static_cast<char>(0xE0 | (cp >> 12));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    }
}

void add_damage(std::vector<FruDamage> &damage, FruAreaKind area, FruProblem problem, size_t offset)
{
    damage.push_back(FruDamage{area, problem, offset});
}

enum class FieldRead { field, end, damaged };

// Reads one type/length-prefixed field from an area body. `base` is the
// body's offset in the image, for damage reports.
FieldRead read_field(wire::Reader &r, size_t base, bool english, FruAreaKind kind, FruField &out,
                     std::vector<FruDamage> &damage)
{
    const size_t at = base + r.offset();
    if (r.remaining() == 0) {
        add_damage(damage, kind, FruProblem::missing_end_marker, at);
        return FieldRead::damaged;
    }
    const uint8_t type_length = r.u8();
    if (type_length == kEndOfFields) return FieldRead::end;
    const size_t n = type_length & 0x3F;
    const uint8_t *data = r.here();
    if (!r.skip(n)) {
        add_damage(damage, kind, FruProblem::field_past_end, at);
        return FieldRead::damaged;
    }
    out = decode_fru_field(static_cast<FruFieldType>(type_length >> 6), data, n, english);
    return FieldRead::field;
}

// Reads the required fields in order, then custom fields up to C1h.
void read_fields(wire::Reader &r, size_t base, bool english, FruAreaKind kind,
                 std::initializer_list<FruField *> required, std::vector<FruField> &custom,
                 std::vector<FruDamage> &damage)
{
    for (FruField *field : required) {
        const size_t at = base + r.offset();
        switch (read_field(r, base, english, kind, *field, damage)) {
        case FieldRead::field: break;
        case FieldRead::end: add_damage(damage, kind, FruProblem::missing_field, at); return;
        case FieldRead::damaged: return;
        }
    }
    for (;;) {
        FruField field;
        switch (read_field(r, base, english, kind, field, damage)) {
        case FieldRead::field: custom.push_back(std::move(field)); break;
        case FieldRead::end:
        case FieldRead::damaged: return;
        }
    }
}

// Checks an info area's version, length and checksum. On success `body`
// covers the area without its checksum byte, positioned after the version
// and length bytes.
bool open_area(const uint8_t *image, size_t length, size_t offset, FruAreaKind kind, wire::Reader &body,
               std::vector<FruDamage> &damage)
{
    if (offset >= length || length - offset < 2) {
        add_damage(damage, kind, FruProblem::truncated, offset);
        return false;
    }
    wire::Reader r(image + offset, length - offset);
    const uint8_t version = r.u8();
    const size_t size = static_cast<size_t>(r.u8()) * 8;
    if ((version & 0x0F) != 1) {
        add_damage(damage, kind, FruProblem::bad_version, offset);
        return false;
    }
    if (size == 0) {
        add_damage(damage, kind, FruProblem::zero_length, offset + 1);
        return false;
    }
    if (size > length - offset) {
        add_damage(damage, kind, FruProblem::length_past_end, offset + 1);
        return false;
    }
    if (wire::checksum(image + offset, size) != 0)
        add_damage(damage, kind, FruProblem::bad_checksum, offset + size - 1);
    body = wire::Reader(image + offset, size - 1);
    body.skip(2);
    return true;
}

void decode_chassis(const uint8_t *image, size_t length, FruImage &fru)
{
    FruChassisArea &a = fru.chassis;
    a.offset = fru.chassis_offset;
    wire::Reader r(nullptr, 0);
    if (!open_area(image, length, a.offset, FruAreaKind::chassis, r, fru.damage)) return;
    a.present = true;
    a.chassis_type = r.u8();
    read_fields(r, a.offset, true, FruAreaKind::chassis, {&a.part_number, &a.serial_number}, a.custom,
                fru.damage);
}

void decode_board(const uint8_t *image, size_t length, FruImage &fru)
{
    FruBoardArea &a = fru.board;
    a.offset = fru.board_offset;
    wire::Reader r(nullptr, 0);
    if (!open_area(image, length, a.offset, FruAreaKind::board, r, fru.damage)) return;
    a.present = true;
    a.language = r.u8();
    const uint32_t b0 = r.u8();
    const uint32_t b1 = r.u8();
    const uint32_t b2 = r.u8();
    a.mfg_minutes = b0 | (b1 << 8) | (b2 << 16);
    a.mfg_unix = a.mfg_minutes ? kFruEpochUnix + static_cast<int64_t>(a.mfg_minutes) * 60 : 0;
    read_fields(r, a.offset, fru_language_english(a.language), FruAreaKind::board,
                {&a.manufacturer, &a.product_name, &a.serial_number, &a.part_number, &a.fru_file_id}, a.custom,
                fru.damage);
}

void decode_product(const uint8_t *image, size_t length, FruImage &fru)
{
    FruProductArea &a = fru.product;
    a.offset = fru.product_offset;
    wire::Reader r(nullptr, 0);
    if (!open_area(image, length, a.offset, FruAreaKind::product, r, fru.damage)) return;
    a.present = true;
    a.language = r.u8();
    read_fields(r, a.offset, fru_language_english(a.language), FruAreaKind::product,
                {&a.manufacturer, &a.product_name, &a.part_number, &a.version, &a.serial_number, &a.asset_tag,
                 &a.fru_file_id},
                a.custom, fru.damage);
}

}  // namespace

std::string_view fru_chassis_type_name(uint8_t chassis_type)
{
    static constexpr std::string_view kNames[] = {
        "",                     // 00h
        "Other",                "Unknown",               "Desktop",              "Low Profile Desktop",
        "Pizza Box",            "Mini Tower",            "Tower",                "Portable",
        "LapTop",               "Notebook",              "Hand Held",            "Docking Station",
        "All in One",           "Sub Notebook",          "Space-saving",         "Lunch Box",
        "Main Server Chassis",  "Expansion Chassis",     "SubChassis",           "Bus Expansion Chassis",
        "Peripheral Chassis",   "RAID Chassis",          "Rack Mount Chassis",   "Sealed-case PC",
        "Multi-system Chassis", "Compact PCI",           "Advanced TCA",         "Blade",
        "Blade Enclosure",      "Tablet",                "Convertible",          "Detachable",
        "IoT Gateway",          "Embedded PC",           "Mini PC",              "Stick PC",
    };
    return chassis_type < std::size(kNames) ? kNames[chassis_type] : std::string_view{};
}

FruField decode_fru_field(FruFieldType type, const uint8_t *data, size_t length, bool english)
{
    FruField f;
    f.type = type;
    wire::Reader r(data, length);
    f.raw.resize(length);
    r.bytes(f.raw.data(), length);
    const std::vector<uint8_t> &b = f.raw;
    switch (type) {
    case FruFieldType::binary:
        for (uint8_t v : b) {
            f.text += kHex[v >> 4];
            f.text += kHex[v & 0x0F];
        }
        break;
    case FruFieldType::bcd_plus:
        for (uint8_t v : b) {
            for (uint8_t digit : {static_cast<uint8_t>(v >> 4), static_cast<uint8_t>(v & 0x0F)}) {
                if (digit > 0x0C) f.reserved_chars = true;
                f.text += kBcdPlus[digit];
            }
        }
        break;
    case FruFieldType::ascii6: {
        // Characters are consecutive 6-bit values, least significant bits
        // first: 3 bytes hold 4 characters. Leftover bits of a short last
        // group make no character.
        uint32_t acc = 0;
        unsigned bits = 0;
        for (uint8_t v : b) {
            acc |= static_cast<uint32_t>(v) << bits;
            bits += 8;
            while (bits >= 6) {
                f.text += static_cast<char>((acc & 0x3F) + 0x20);
                acc >>= 6;
                bits -= 6;
            }
        }
        break;
    }
    case FruFieldType::text:
        if (english) {
            for (uint8_t v : b) append_utf8(f.text, v);
        } else {
            size_t i = 0;
            for (; i + 1 < b.size(); i += 2) {
                const uint32_t unit = static_cast<uint32_t>(b[i]) | (static_cast<uint32_t>(b[i + 1]) << 8);
                if (unit >= 0xD800 && unit <= 0xDFFF)
                    f.text += '?';
                else
                    append_utf8(f.text, unit);
            }
            if (i < b.size()) f.text += '?';
        }
        break;
    }
    return f;
}

FruImage decode_fru(const uint8_t *image, size_t length)
{
    FruImage fru;
    if (image == nullptr) length = 0;
    wire::Reader r(image, length);
    const uint8_t version = r.u8();
    const size_t internal_use = static_cast<size_t>(r.u8()) * 8;
    const size_t chassis = static_cast<size_t>(r.u8()) * 8;
    const size_t board = static_cast<size_t>(r.u8()) * 8;
    const size_t product = static_cast<size_t>(r.u8()) * 8;
    const size_t multirecord = static_cast<size_t>(r.u8()) * 8;
    r.skip(2);  // pad, checksum
    if (!r.ok()) {
        add_damage(fru.damage, FruAreaKind::header, FruProblem::truncated, 0);
        return fru;
    }
    if ((version & 0x0F) != 1) {
        add_damage(fru.damage, FruAreaKind::header, FruProblem::bad_version, 0);
        return fru;
    }
    if (wire::checksum(image, kHeaderLength) != 0) {
        add_damage(fru.damage, FruAreaKind::header, FruProblem::bad_checksum, kHeaderLength - 1);
        return fru;
    }
    fru.header_ok = true;
    fru.internal_use_offset = internal_use;
    fru.chassis_offset = chassis;
    fru.board_offset = board;
    fru.product_offset = product;
    fru.multirecord_offset = multirecord;

    // The internal use and multirecord areas carry no length of their own
    // here; only their start is checked against the image.
    if (internal_use && internal_use >= length)
        add_damage(fru.damage, FruAreaKind::internal_use, FruProblem::truncated, internal_use);
    if (chassis) decode_chassis(image, length, fru);
    if (board) decode_board(image, length, fru);
    if (product) decode_product(image, length, fru);
    if (multirecord && multirecord >= length)
        add_damage(fru.damage, FruAreaKind::multirecord, FruProblem::truncated, multirecord);
    return fru;
}

namespace {

constexpr uint8_t kEnglish = 25;
constexpr uint8_t kTextType = 0xC0;  // type 11b in bits 7:6

// Version 1, length, the fixed bytes, the fields, C1h, zero padding to a
// multiple of 8 and the checksum; nothing when a field is too long.
std::optional<std::vector<uint8_t>> encode_area(const std::vector<uint8_t> &fixed,
                                                std::initializer_list<const std::string *> fields)
{
    std::vector<uint8_t> encoded;
    for (const std::string *f : fields) {
        auto field = encode_fru_text_field(*f);
        if (!field) return std::nullopt;
        encoded.insert(encoded.end(), field->begin(), field->end());
    }
    const size_t body = 2 + fixed.size() + encoded.size() + 1 + 1;  // ..., C1h, checksum
    const size_t size = (body + 7) / 8 * 8;
    if (size / 8 > 0xFF) return std::nullopt;
    std::vector<uint8_t> area(size);
    wire::Writer w(area.data(), area.size());
    w.u8(0x01).u8(static_cast<uint8_t>(size / 8)).bytes(fixed.data(), fixed.size());
    w.bytes(encoded.data(), encoded.size());
    w.u8(kEndOfFields).fill(0x00, size - 1 - w.size());
    w.u8(wire::checksum(area.data(), size - 1));
    if (!w.ok()) return std::nullopt;
    return area;
}

}  // namespace

std::optional<std::vector<uint8_t>> encode_fru_text_field(const std::string &text)
{
    if (text.size() > kFruFieldMaxLength) return std::nullopt;
    if (text.size() == 1) {
        const uint8_t c = static_cast<uint8_t>(text[0]);
        if (c < 0x20 || c > 0x5F) return std::nullopt;
        return std::vector<uint8_t>{static_cast<uint8_t>((2u << 6) | 1u), static_cast<uint8_t>(c - 0x20)};
    }
    std::vector<uint8_t> out(1 + text.size());
    wire::Writer w(out.data(), out.size());
    w.u8(static_cast<uint8_t>(kTextType | text.size()));
    w.bytes(reinterpret_cast<const uint8_t *>(text.data()), text.size());
    return out;
}

std::optional<std::vector<uint8_t>> encode_fru(const FruContents &contents)
{
    std::optional<std::vector<uint8_t>> chassis, board, product;
    if (const auto &c = contents.chassis) {
        chassis = encode_area({c->chassis_type}, {&c->part_number, &c->serial_number});
        if (!chassis) return std::nullopt;
    }
    if (const auto &b = contents.board) {
        if (b->mfg_minutes > 0xFFFFFF) return std::nullopt;
        board = encode_area({kEnglish, static_cast<uint8_t>(b->mfg_minutes), static_cast<uint8_t>(b->mfg_minutes >> 8),
                             static_cast<uint8_t>(b->mfg_minutes >> 16)},
                            {&b->manufacturer, &b->product_name, &b->serial_number, &b->part_number,
                             &b->fru_file_id});
        if (!board) return std::nullopt;
    }
    if (const auto &p = contents.product) {
        product = encode_area({kEnglish}, {&p->manufacturer, &p->product_name, &p->part_number, &p->version,
                                           &p->serial_number, &p->asset_tag, &p->fru_file_id});
        if (!product) return std::nullopt;
    }

    std::vector<uint8_t> image(kHeaderLength);
    uint8_t offsets[3] = {0, 0, 0};
    int i = 0;
    for (const auto *area : {&chassis, &board, &product}) {
        if (*area) {
            if (image.size() / 8 > 0xFF) return std::nullopt;
            offsets[i] = static_cast<uint8_t>(image.size() / 8);
            image.insert(image.end(), (*area)->begin(), (*area)->end());
        }
        ++i;
    }
    wire::Writer w(image.data(), kHeaderLength);
    w.u8(0x01).u8(0x00).u8(offsets[0]).u8(offsets[1]).u8(offsets[2]).u8(0x00).u8(0x00);
    w.u8(wire::checksum(image.data(), kHeaderLength - 1));
    return image;
}

}  // namespace rmcpp::commands
