// FRU inventory image: common header, chassis, board and product info areas
// (Platform Management FRU Information Storage Definition v1.0).
//
// decode_fru() never reads past the image. A damaged area is listed in
// FruImage::damage (which area, what, where) and the other areas are still
// decoded. A header that is short, not version 1 or fails its checksum
// gives no areas, as its offsets cannot be trusted.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace rmcpp::commands {

enum class FruAreaKind : uint8_t {
    header,
    internal_use,
    chassis,
    board,
    product,
    multirecord,
};

enum class FruProblem : uint8_t {
    truncated,           // the image ends before the header or an area's first bytes
    bad_version,         // format version is not 1
    bad_checksum,        // the bytes do not add up to zero
    zero_length,         // an info area whose length byte is 0
    length_past_end,     // the area's length runs past the end of the image
    field_past_end,      // a field's length runs past the area's checksum byte
    missing_end_marker,  // no C1h before the checksum byte
    missing_field,       // C1h where a required field was due
};

struct FruDamage {
    FruAreaKind area;
    FruProblem problem;
    size_t offset;  // byte offset in the image where the problem was found
};

// Bits 7:6 of a type/length byte.
enum class FruFieldType : uint8_t {
    binary = 0,    // binary, or type not given
    bcd_plus = 1,  // 0-9, space, dash, period
    ascii6 = 2,    // 6-bit packed ASCII
    text = 3,      // 8-bit ASCII + Latin 1 (English) or 2-byte Unicode
};

struct FruField {
    FruFieldType type = FruFieldType::binary;
    std::vector<uint8_t> raw;  // the field's data bytes as stored
    // UTF-8 text; binary data as lowercase hex. Reserved BCD plus digits and
    // an odd trailing Unicode byte show as '?'.
    std::string text;
    bool reserved_chars = false;  // some BCD plus digit was Dh-Fh
};

struct FruChassisArea {
    bool present = false;
    size_t offset = 0;  // in bytes
    uint8_t chassis_type = 0;
    FruField part_number;
    FruField serial_number;
    std::vector<FruField> custom;
};

struct FruBoardArea {
    bool present = false;
    size_t offset = 0;
    uint8_t language = 0;
    uint32_t mfg_minutes = 0;  // minutes since 1996-01-01 00:00 UTC; 0 = not given
    int64_t mfg_unix = 0;      // the same as Unix seconds (0 when not given)
    FruField manufacturer;
    FruField product_name;
    FruField serial_number;
    FruField part_number;
    FruField fru_file_id;
    std::vector<FruField> custom;
};

struct FruProductArea {
    bool present = false;
    size_t offset = 0;
    uint8_t language = 0;
    FruField manufacturer;
    FruField product_name;
    FruField part_number;  // part / model number
    FruField version;
    FruField serial_number;
    FruField asset_tag;
    FruField fru_file_id;
    std::vector<FruField> custom;
};

struct FruImage {
    bool header_ok = false;  // header present, version 1, checksum zero
    // Area offsets in bytes (the header's value times 8); 0 = no such area.
    size_t internal_use_offset = 0;
    size_t chassis_offset = 0;
    size_t board_offset = 0;
    size_t product_offset = 0;
    size_t multirecord_offset = 0;
    FruChassisArea chassis;
    FruBoardArea board;
    FruProductArea product;
    std::vector<FruDamage> damage;

    bool damaged() const { return !damage.empty(); }
};

// 1996-01-01 00:00 UTC as Unix seconds.
inline constexpr int64_t kFruEpochUnix = 820454400;

// English (0 or 25) makes type 11b 8-bit ASCII + Latin 1; any other
// language makes it 2-byte Unicode, least significant byte first.
constexpr bool fru_language_english(uint8_t language) { return language == 0 || language == 25; }

// The chassis type's name from the SMBIOS system enclosure types ("Rack
// Mount Chassis" for 17h); empty for codes it does not name.
std::string_view fru_chassis_type_name(uint8_t chassis_type);

// Decodes one field's data bytes of the given type into text.
FruField decode_fru_field(FruFieldType type, const uint8_t *data, size_t length, bool english);

FruImage decode_fru(const uint8_t *image, size_t length);

// ---- Encoding -------------------------------------------------------------
// The twin of decode_fru() for the fields a platform describes: fields are
// written as 8-bit ASCII text (type 11b), language English, each area
// padded to a multiple of 8 bytes and checksummed.

inline constexpr size_t kFruFieldMaxLength = 63;  // 6-bit length

struct FruChassisFields {
    uint8_t chassis_type = 0;
    std::string part_number, serial_number;
};

struct FruBoardFields {
    uint32_t mfg_minutes = 0;  // minutes since 1996-01-01 00:00 UTC; 0 = not given
    std::string manufacturer, product_name, serial_number, part_number, fru_file_id;
};

struct FruProductFields {
    std::string manufacturer, product_name, part_number, version, serial_number, asset_tag, fru_file_id;
};

struct FruContents {
    std::optional<FruChassisFields> chassis;
    std::optional<FruBoardFields> board;
    std::optional<FruProductFields> product;
};

// Type/length byte and text. As C1h marks the end of the fields, one
// character goes as 6-bit ASCII (space to underscore only). Nothing for text
// longer than 63 bytes or a single character 6-bit ASCII lacks.
std::optional<std::vector<uint8_t>> encode_fru_text_field(const std::string &text);

// Common header and the areas present, in chassis, board, product order.
// Nothing when a field is too long or a mfg date exceeds 24 bits.
std::optional<std::vector<uint8_t>> encode_fru(const FruContents &contents);

}  // namespace rmcpp::commands
