#include "fru_area.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

#include "wire.h"

using namespace rmcpp::commands;

namespace {

using Bytes = std::vector<uint8_t>;

// An info area: version 1, length in 8-byte units, `fixed` (type, language,
// date), the fields as given (each with its type/length byte), C1h, zero
// padding and the checksum.
Bytes area(const Bytes &fixed, const Bytes &fields, bool end_marker = true)
{
    Bytes a = {0x01, 0x00};
    a.insert(a.end(), fixed.begin(), fixed.end());
    a.insert(a.end(), fields.begin(), fields.end());
    if (end_marker) a.push_back(0xC1);
    while ((a.size() + 1) % 8) a.push_back(0x00);
    a.push_back(0x00);
    a[1] = static_cast<uint8_t>(a.size() / 8);
    a.back() = rmcpp::wire::checksum(a.data(), a.size() - 1);
    return a;
}

Bytes header(uint8_t internal_use, uint8_t chassis, uint8_t board, uint8_t product, uint8_t multirecord)
{
    Bytes h = {0x01, internal_use, chassis, board, product, multirecord, 0x00, 0x00};
    h[7] = rmcpp::wire::checksum(h.data(), 7);
    return h;
}

// An 8-bit text field. One character would give C1h, the end marker.
Bytes text(const std::string &s)
{
    EXPECT_NE(s.size(), 1u);
    Bytes b(s.size() + 1);
    b[0] = static_cast<uint8_t>(0xC0 | s.size());
    std::copy(s.begin(), s.end(), b.begin() + 1);
    return b;
}

Bytes cat(std::initializer_list<Bytes> parts)
{
    Bytes out;
    for (const Bytes &p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}

const Bytes kChassis = area({0x17},
                            cat({text("PN-1"),
                                 {0x43, 0x12, 0x34, 0xBC},          // BCD plus "1234-."
                                 {0x83, 0x29, 0xDC, 0xA6}}));       // custom: 6-bit "IPMI"

// 2010-01-01 00:00 UTC is 7364160 (0x705E40) minutes after 1996-01-01.
const Bytes kBoard = area({25, 0x40, 0x5E, 0x70},
                          cat({text("Acme"),
                               {0x02, 0xDE, 0xAD},                  // binary product name
                               {0xC0},                              // empty serial number
                               {0x42, 0x01, 0xA9},                  // BCD plus "01 9"
                               text("f1"),
                               {0xC4, 'c', 'a', 'f', 0xE9}}));      // custom, Latin 1

const Bytes kProduct = area({0x00},
                            cat({text("Acme"), text("Widget"), text("W-100"), text("1.0"), text("S123"),
                                 text("TAG"), text("p1"), text("extra1"), text("extra2")}));

// Header, chassis, board and product areas back to back, the last one ending
// with the image.
Bytes valid_image()
{
    const uint8_t chassis = 1;
    const uint8_t board = static_cast<uint8_t>(chassis + kChassis.size() / 8);
    const uint8_t product = static_cast<uint8_t>(board + kBoard.size() / 8);
    return cat({header(0, chassis, board, product, 0), kChassis, kBoard, kProduct});
}

// Decodes from a heap copy of exactly `n` bytes so an over-read is caught by
// the address sanitizer.
FruImage decode_prefix(const Bytes &image, size_t n)
{
    std::unique_ptr<uint8_t[]> copy(new uint8_t[n ? n : 1]);
    std::copy(image.begin(), image.begin() + static_cast<std::ptrdiff_t>(n), copy.get());
    return decode_fru(copy.get(), n);
}

bool has_damage(const FruImage &fru, FruAreaKind area, FruProblem problem)
{
    return std::any_of(fru.damage.begin(), fru.damage.end(),
                       [&](const FruDamage &d) { return d.area == area && d.problem == problem; });
}

FruField field(uint8_t type_length, const Bytes &data, bool english = true)
{
    return decode_fru_field(static_cast<FruFieldType>(type_length >> 6), data.data(), data.size(), english);
}

}  // namespace

TEST(FruField, BinaryIsHex)
{
    FruField f = field(0x03, {0x00, 0xAB, 0x7F});
    EXPECT_EQ(f.type, FruFieldType::binary);
    EXPECT_EQ(f.text, "00ab7f");
    EXPECT_EQ(f.raw, (Bytes{0x00, 0xAB, 0x7F}));
}

TEST(FruField, BcdPlusDigitsSpaceDashPeriod)
{
    FruField f = field(0x43, {0x01, 0x9A, 0xBC});
    EXPECT_EQ(f.type, FruFieldType::bcd_plus);
    EXPECT_EQ(f.text, "019 -.");
    EXPECT_FALSE(f.reserved_chars);
}

TEST(FruField, BcdPlusReservedDigitsAreFlagged)
{
    for (uint8_t digit : {0x0D, 0x0E, 0x0F}) {
        FruField f = field(0x41, {static_cast<uint8_t>(0x10 | digit)});
        EXPECT_EQ(f.text, "1?");
        EXPECT_TRUE(f.reserved_chars);
    }
}

TEST(FruField, SixBitPackedAscii)
{
    FruField f = field(0x83, {0x29, 0xDC, 0xA6});
    EXPECT_EQ(f.type, FruFieldType::ascii6);
    EXPECT_EQ(f.text, "IPMI");
}

TEST(FruField, SixBitPackedAsciiTwoGroups)
{
    // "ABCD1234": A=21h B=22h C=23h D=24h, 1=11h 2=12h 3=13h 4=14h (value + 20h).
    auto pack = [](uint8_t a, uint8_t b, uint8_t c, uint8_t d) {
        const uint32_t v = a | (b << 6) | (c << 12) | (d << 18);
        return Bytes{static_cast<uint8_t>(v), static_cast<uint8_t>(v >> 8), static_cast<uint8_t>(v >> 16)};
    };
    FruField f = field(0x86, cat({pack(0x21, 0x22, 0x23, 0x24), pack(0x11, 0x12, 0x13, 0x14)}));
    EXPECT_EQ(f.text, "ABCD1234");
}

TEST(FruField, SixBitPackedAsciiPunctuation)
{
    FruField f = field(0x86, {0x61, 0x88, 0x3A, 0x11, 0x43, 0x0D});
    EXPECT_EQ(f.text, "AAH.1,4#");
}

TEST(FruField, SixBitPackedAsciiShortLastGroup)
{
    // Two bytes hold two whole characters; the last four bits make none.
    FruField f = field(0x82, {0x29, 0x0C});
    EXPECT_EQ(f.text, "IP");
    f = field(0x81, {0x29});
    EXPECT_EQ(f.text, "I");
}

TEST(FruField, EightBitLatin1BecomesUtf8)
{
    FruField f = field(0xC4, {'c', 'a', 'f', 0xE9});
    EXPECT_EQ(f.type, FruFieldType::text);
    EXPECT_EQ(f.text, "caf\xC3\xA9");
}

TEST(FruField, UnicodeWhenNotEnglish)
{
    // U+0041, U+00E9, U+20AC, least significant byte first.
    FruField f = field(0xC6, {0x41, 0x00, 0xE9, 0x00, 0xAC, 0x20}, false);
    EXPECT_EQ(f.text, "A\xC3\xA9\xE2\x82\xAC");
    f = field(0xC3, {0x41, 0x00, 0x42}, false);
    EXPECT_EQ(f.text, "A?");
}

TEST(FruField, EmptyOfEveryType)
{
    for (uint8_t tl : {0x00, 0x40, 0x80, 0xC0}) {
        FruField f = field(tl, {});
        EXPECT_EQ(f.text, "");
        EXPECT_TRUE(f.raw.empty());
    }
}

TEST(FruImage, DecodesEveryArea)
{
    const Bytes image = valid_image();
    FruImage fru = decode_fru(image.data(), image.size());
    ASSERT_TRUE(fru.header_ok);
    EXPECT_FALSE(fru.damaged());
    EXPECT_EQ(fru.internal_use_offset, 0u);
    EXPECT_EQ(fru.chassis_offset, 8u);
    EXPECT_EQ(fru.board_offset, 8u + kChassis.size());
    EXPECT_EQ(fru.product_offset, 8u + kChassis.size() + kBoard.size());
    EXPECT_EQ(fru.multirecord_offset, 0u);

    ASSERT_TRUE(fru.chassis.present);
    EXPECT_EQ(fru.chassis.chassis_type, 0x17);
    EXPECT_EQ(fru.chassis.part_number.text, "PN-1");
    EXPECT_EQ(fru.chassis.serial_number.type, FruFieldType::bcd_plus);
    EXPECT_EQ(fru.chassis.serial_number.text, "1234-.");
    ASSERT_EQ(fru.chassis.custom.size(), 1u);
    EXPECT_EQ(fru.chassis.custom[0].text, "IPMI");

    ASSERT_TRUE(fru.board.present);
    EXPECT_EQ(fru.board.language, 25);
    EXPECT_EQ(fru.board.mfg_minutes, 7364160u);
    EXPECT_EQ(fru.board.mfg_unix, 1262304000);
    EXPECT_EQ(fru.board.manufacturer.text, "Acme");
    EXPECT_EQ(fru.board.product_name.type, FruFieldType::binary);
    EXPECT_EQ(fru.board.product_name.text, "dead");
    EXPECT_EQ(fru.board.serial_number.text, "");
    EXPECT_EQ(fru.board.part_number.text, "01 9");
    EXPECT_EQ(fru.board.fru_file_id.text, "f1");
    ASSERT_EQ(fru.board.custom.size(), 1u);
    EXPECT_EQ(fru.board.custom[0].text, "caf\xC3\xA9");

    ASSERT_TRUE(fru.product.present);
    EXPECT_EQ(fru.product.language, 0);
    EXPECT_EQ(fru.product.manufacturer.text, "Acme");
    EXPECT_EQ(fru.product.product_name.text, "Widget");
    EXPECT_EQ(fru.product.part_number.text, "W-100");
    EXPECT_EQ(fru.product.version.text, "1.0");
    EXPECT_EQ(fru.product.serial_number.text, "S123");
    EXPECT_EQ(fru.product.asset_tag.text, "TAG");
    EXPECT_EQ(fru.product.fru_file_id.text, "p1");
    ASSERT_EQ(fru.product.custom.size(), 2u);
    EXPECT_EQ(fru.product.custom[0].text, "extra1");
    EXPECT_EQ(fru.product.custom[1].text, "extra2");
}

TEST(FruImage, ManufacturingDate)
{
    auto board_date = [](uint8_t b0, uint8_t b1, uint8_t b2) {
        const Bytes image = cat({header(0, 0, 1, 0, 0), area({0, b0, b1, b2}, cat({text("mm"), text("nn"), text("ss"),
                                                                                   text("pp"), text("ff")}))});
        FruImage fru = decode_fru(image.data(), image.size());
        EXPECT_FALSE(fru.damaged());
        return fru.board;
    };
    FruBoardArea b = board_date(0, 0, 0);
    EXPECT_EQ(b.mfg_minutes, 0u);  // not given
    EXPECT_EQ(b.mfg_unix, 0);
    b = board_date(1, 0, 0);
    EXPECT_EQ(b.mfg_unix, kFruEpochUnix + 60);
    b = board_date(0x00, 0x01, 0x00);  // little-endian: 256 minutes
    EXPECT_EQ(b.mfg_minutes, 256u);
    EXPECT_EQ(b.mfg_unix, kFruEpochUnix + 256 * 60);
    b = board_date(0xFF, 0xFF, 0xFF);
    EXPECT_EQ(b.mfg_minutes, 0xFFFFFFu);
    EXPECT_EQ(b.mfg_unix, kFruEpochUnix + int64_t{0xFFFFFF} * 60);
}

TEST(FruImage, HeaderWithNoAreas)
{
    const Bytes image = header(0, 0, 0, 0, 0);
    FruImage fru = decode_fru(image.data(), image.size());
    EXPECT_TRUE(fru.header_ok);
    EXPECT_FALSE(fru.damaged());
    EXPECT_FALSE(fru.chassis.present);
    EXPECT_FALSE(fru.board.present);
    EXPECT_FALSE(fru.product.present);
}

TEST(FruImage, HeaderBadChecksum)
{
    Bytes image = valid_image();
    image[7] ^= 0x01;
    FruImage fru = decode_fru(image.data(), image.size());
    EXPECT_FALSE(fru.header_ok);
    EXPECT_TRUE(has_damage(fru, FruAreaKind::header, FruProblem::bad_checksum));
    EXPECT_FALSE(fru.chassis.present);
}

TEST(FruImage, HeaderBadVersion)
{
    Bytes image = valid_image();
    image[0] = 0x02;
    image[7] = rmcpp::wire::checksum(image.data(), 7);
    FruImage fru = decode_fru(image.data(), image.size());
    EXPECT_FALSE(fru.header_ok);
    EXPECT_TRUE(has_damage(fru, FruAreaKind::header, FruProblem::bad_version));
}

TEST(FruImage, EmptyAndNullInput)
{
    FruImage fru = decode_fru(nullptr, 100);
    EXPECT_TRUE(has_damage(fru, FruAreaKind::header, FruProblem::truncated));
    const uint8_t one = 1;
    fru = decode_fru(&one, 0);
    EXPECT_TRUE(has_damage(fru, FruAreaKind::header, FruProblem::truncated));
}

TEST(FruImage, AreaBadChecksumIsReportedAndOtherAreasDecoded)
{
    Bytes image = valid_image();
    const size_t board = 8 + kChassis.size();
    image[board + kBoard.size() - 1] ^= 0x55;  // board checksum byte
    FruImage fru = decode_fru(image.data(), image.size());
    ASSERT_EQ(fru.damage.size(), 1u);
    EXPECT_EQ(fru.damage[0].area, FruAreaKind::board);
    EXPECT_EQ(fru.damage[0].problem, FruProblem::bad_checksum);
    EXPECT_EQ(fru.damage[0].offset, board + kBoard.size() - 1);
    EXPECT_EQ(fru.chassis.part_number.text, "PN-1");
    EXPECT_EQ(fru.product.product_name.text, "Widget");
    // The fields of the area are still given, for what they are worth.
    EXPECT_EQ(fru.board.manufacturer.text, "Acme");
}

TEST(FruImage, AreaBadVersionAndZeroLength)
{
    Bytes image = valid_image();
    image[8] = 0x02;  // chassis version
    const size_t product = 8 + kChassis.size() + kBoard.size();
    image[product + 1] = 0;  // product length
    FruImage fru = decode_fru(image.data(), image.size());
    EXPECT_TRUE(has_damage(fru, FruAreaKind::chassis, FruProblem::bad_version));
    EXPECT_TRUE(has_damage(fru, FruAreaKind::product, FruProblem::zero_length));
    EXPECT_FALSE(fru.chassis.present);
    EXPECT_FALSE(fru.product.present);
    ASSERT_TRUE(fru.board.present);
    EXPECT_EQ(fru.board.manufacturer.text, "Acme");
}

TEST(FruImage, AreaLengthPastEnd)
{
    Bytes image = valid_image();
    const size_t product = 8 + kChassis.size() + kBoard.size();
    image[product + 1] = static_cast<uint8_t>(kProduct.size() / 8 + 1);
    FruImage fru = decode_fru(image.data(), image.size());
    ASSERT_EQ(fru.damage.size(), 1u);
    EXPECT_EQ(fru.damage[0].area, FruAreaKind::product);
    EXPECT_EQ(fru.damage[0].problem, FruProblem::length_past_end);
    EXPECT_FALSE(fru.product.present);
    EXPECT_TRUE(fru.chassis.present);
    EXPECT_TRUE(fru.board.present);
}

TEST(FruImage, AreaOffsetPastEnd)
{
    Bytes image = cat({header(0x20, 0x10, 0, 0, 0x30)});
    FruImage fru = decode_fru(image.data(), image.size());
    EXPECT_TRUE(fru.header_ok);
    EXPECT_TRUE(has_damage(fru, FruAreaKind::internal_use, FruProblem::truncated));
    EXPECT_TRUE(has_damage(fru, FruAreaKind::chassis, FruProblem::truncated));
    EXPECT_TRUE(has_damage(fru, FruAreaKind::multirecord, FruProblem::truncated));
}

TEST(FruImage, MissingEndMarker)
{
    // Part number and serial fill the area up to the checksum byte with no C1h.
    const Bytes chassis = area({0x01}, cat({text("ABC"), text("DEFGHIJ")}), false);
    ASSERT_EQ(chassis.size(), 16u);
    const Bytes image = cat({header(0, 1, 0, 0, 0), chassis});
    FruImage fru = decode_fru(image.data(), image.size());
    ASSERT_EQ(fru.damage.size(), 1u);
    EXPECT_EQ(fru.damage[0].problem, FruProblem::missing_end_marker);
    EXPECT_EQ(fru.damage[0].offset, 8u + 15u);
    EXPECT_EQ(fru.chassis.part_number.text, "ABC");
    EXPECT_EQ(fru.chassis.serial_number.text, "DEFGHIJ");
}

TEST(FruImage, FieldPastEnd)
{
    // The custom field claims 20 bytes in a 16-byte area.
    const Bytes chassis = area({0x01}, cat({text("AA"), text("BB"), {0xD4, 'x', 'y'}}), false);
    const Bytes image = cat({header(0, 1, 0, 0, 0), chassis});
    FruImage fru = decode_fru(image.data(), image.size());
    ASSERT_EQ(fru.damage.size(), 1u);
    EXPECT_EQ(fru.damage[0].area, FruAreaKind::chassis);
    EXPECT_EQ(fru.damage[0].problem, FruProblem::field_past_end);
    EXPECT_EQ(fru.damage[0].offset, 8u + 3u + 3u + 3u);
    EXPECT_EQ(fru.chassis.serial_number.text, "BB");
    EXPECT_TRUE(fru.chassis.custom.empty());
}

TEST(FruImage, MissingRequiredField)
{
    const Bytes product = area({0x00}, cat({text("Acme"), text("Widget")}));
    const Bytes image = cat({header(0, 0, 0, 1, 0), product});
    FruImage fru = decode_fru(image.data(), image.size());
    ASSERT_EQ(fru.damage.size(), 1u);
    EXPECT_EQ(fru.damage[0].area, FruAreaKind::product);
    EXPECT_EQ(fru.damage[0].problem, FruProblem::missing_field);
    EXPECT_EQ(fru.product.product_name.text, "Widget");
    EXPECT_TRUE(fru.product.part_number.raw.empty());
}

TEST(FruImage, EveryPrefixIsReportedDamaged)
{
    const Bytes image = valid_image();
    for (size_t n = 0; n < image.size(); ++n) {
        FruImage fru = decode_prefix(image, n);
        EXPECT_TRUE(fru.damaged()) << "prefix of " << n << " bytes";
    }
    EXPECT_FALSE(decode_prefix(image, image.size()).damaged());
}

TEST(FruImage, EverySingleByteChangeIsReportedDamaged)
{
    // Every byte of this image lies under the header's or an area's checksum.
    const Bytes image = valid_image();
    for (size_t i = 0; i < image.size(); ++i) {
        for (uint8_t delta : {0x01, 0x80, 0xFF}) {
            Bytes changed = image;
            changed[i] = static_cast<uint8_t>(changed[i] + delta);
            FruImage fru = decode_prefix(changed, changed.size());
            EXPECT_TRUE(fru.damaged()) << "byte " << i << " + " << int{delta};
        }
    }
}

namespace rmcpp::commands {
namespace {

TEST(EncodeFru, RoundTripsEveryFieldThroughTheDecoder)
{
    FruContents c;
    c.chassis = FruChassisFields{0x17, "CH-PART-1", "CH-SER-1"};
    c.board = FruBoardFields{12345678, "Acme Corp", "Board X", "BSN-1", "BPN-1", "file.bin"};
    c.product = FruProductFields{"Acme", "Server Y", "PPN-1", "1.0", "PSN-1", "Asset-7", ""};
    const auto image = encode_fru(c);
    ASSERT_TRUE(image);
    EXPECT_EQ(image->size() % 8, 0u);
    const FruImage fru = decode_fru(image->data(), image->size());
    EXPECT_TRUE(fru.header_ok);
    EXPECT_FALSE(fru.damaged());
    EXPECT_EQ(fru.chassis_offset, 8u);
    EXPECT_EQ(fru.chassis.chassis_type, 0x17);
    EXPECT_EQ(fru.chassis.part_number.text, "CH-PART-1");
    EXPECT_EQ(fru.chassis.serial_number.text, "CH-SER-1");
    EXPECT_EQ(fru.board.mfg_minutes, 12345678u);
    EXPECT_EQ(fru.board.manufacturer.text, "Acme Corp");
    EXPECT_EQ(fru.board.product_name.text, "Board X");
    EXPECT_EQ(fru.board.serial_number.text, "BSN-1");
    EXPECT_EQ(fru.board.part_number.text, "BPN-1");
    EXPECT_EQ(fru.board.fru_file_id.text, "file.bin");
    EXPECT_EQ(fru.board.fru_file_id.type, FruFieldType::text);
    EXPECT_EQ(fru.board.language, 25);
    EXPECT_EQ(fru.product.manufacturer.text, "Acme");
    EXPECT_EQ(fru.product.product_name.text, "Server Y");
    EXPECT_EQ(fru.product.part_number.text, "PPN-1");
    EXPECT_EQ(fru.product.version.text, "1.0");
    EXPECT_EQ(fru.product.serial_number.text, "PSN-1");
    EXPECT_EQ(fru.product.asset_tag.text, "Asset-7");
    EXPECT_EQ(fru.product.fru_file_id.text, "");
    EXPECT_TRUE(fru.chassis.custom.empty());
}

TEST(EncodeFru, WritesTheHeaderAndAreaBytes)
{
    FruContents c;
    c.chassis = FruChassisFields{0x01, "AB", ""};
    const auto image = encode_fru(c);
    ASSERT_TRUE(image);
    // Header: version 1, chassis at 8, checksum; area: 01h, 2 x 8 bytes,
    // type, "AB", empty serial, C1h, pad, checksum.
    const std::vector<uint8_t> want{0x01, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 0xFE, 0x01, 0x02, 0x01, 0xC2,
                                    0x41, 0x42, 0xC0, 0xC1, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x36};
    EXPECT_EQ(*image, want);
}

TEST(EncodeFru, OnlyTheAreasGivenArePresent)
{
    FruContents c;
    c.product = FruProductFields{"M", "N", "P", "V", "S", "A", ""};
    const auto image = encode_fru(c);
    ASSERT_TRUE(image);
    const FruImage fru = decode_fru(image->data(), image->size());
    EXPECT_FALSE(fru.damaged());
    EXPECT_FALSE(fru.chassis.present);
    EXPECT_FALSE(fru.board.present);
    EXPECT_TRUE(fru.product.present);
    EXPECT_EQ(fru.product_offset, 8u);
}

TEST(EncodeFru, RefusesAFieldLongerThan63BytesOrADateBeyond24Bits)
{
    FruContents c;
    c.product = FruProductFields{std::string(64, 'x'), "", "", "", "", "", ""};
    EXPECT_FALSE(encode_fru(c));
    c.product->manufacturer = std::string(63, 'x');
    EXPECT_TRUE(encode_fru(c));
    FruContents d;
    d.board = FruBoardFields{0x1000000, "", "", "", "", ""};
    EXPECT_FALSE(encode_fru(d));
    EXPECT_FALSE(encode_fru_text_field(std::string(64, 'y')));
    EXPECT_EQ(*encode_fru_text_field("AB"), (std::vector<uint8_t>{0xC2, 'A', 'B'}));
}

TEST(EncodeFru, AOneCharacterFieldIsSixBitAsciiAsC1hEndsTheFields)
{
    EXPECT_EQ(*encode_fru_text_field("A"), (std::vector<uint8_t>{0x81, 'A' - 0x20}));
    EXPECT_FALSE(encode_fru_text_field("a"));
    FruContents c;
    c.product = FruProductFields{"M", "N", "1", "V", "S", "A", ""};
    const auto image = encode_fru(c);
    ASSERT_TRUE(image);
    const FruImage fru = decode_fru(image->data(), image->size());
    EXPECT_FALSE(fru.damaged());
    EXPECT_EQ(fru.product.part_number.text, "1");
    EXPECT_EQ(fru.product.asset_tag.text, "A");
}

}  // namespace
}  // namespace rmcpp::commands
