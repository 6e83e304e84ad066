#include "fru_read.h"

#include <gtest/gtest.h>

#include "scripted_transport_testkit.h"

namespace rmcpp::commands {
namespace {

using testkit::Request;
using testkit::ScriptedTransport;

std::vector<uint8_t> sample_image()
{
    FruContents c;
    c.chassis = FruChassisFields{0x17, "CH-PART-1", "CH-SER-1"};
    c.board = FruBoardFields{0x800000, "Acme", "Board X", "BSN-1", "BPN-1", ""};
    c.product = FruProductFields{"Acme", "Server Y", "PPN-1", "1.0", "PSN-1", "Asset-7", ""};
    return *encode_fru(c);
}

// A FRU device answering Read FRU Data from `image`, refusing with CAh any
// read above `max_count` units.
struct FruBmc {
    std::vector<uint8_t> image;
    bool words = false;
    uint8_t max_count = 255;
    uint8_t info_size_delta = 0;

    Reply operator()(const Request &rq) const
    {
        if (rq.netfn != 0x0A) return {0, 0xC1, {}};
        if (rq.cmd == 0x10) {
            const uint16_t size = static_cast<uint16_t>(image.size() + info_size_delta);
            return {0, 0, {static_cast<uint8_t>(size), static_cast<uint8_t>(size >> 8), uint8_t(words ? 1 : 0)}};
        }
        if (rq.cmd != 0x11 || rq.data.size() != 4) return {0, 0xC7, {}};
        const size_t unit = words ? 2 : 1;
        const size_t offset = (rq.data[1] | (rq.data[2] << 8)) * unit;
        const uint8_t count = rq.data[3];
        if (count > max_count) return {0, 0xCA, {}};
        if (offset >= image.size()) return {0, 0xC9, {}};
        const size_t bytes = std::min(count * unit, image.size() - offset);
        Bytes d{static_cast<uint8_t>(bytes / unit)};
        d.insert(d.end(), image.begin() + offset, image.begin() + offset + bytes);
        return {0, 0, d};
    }
};

TEST(ReadFru, ReadsTheWholeAreaAndDecodesIt)
{
    ScriptedTransport t;
    FruBmc bmc{sample_image()};
    t.answer = bmc;
    const FruDevice fru = read_fru(t, 0);
    EXPECT_EQ(fru.image, bmc.image);
    EXPECT_FALSE(fru.decoded.damaged());
    EXPECT_EQ(fru.decoded.chassis.chassis_type, 0x17);
    EXPECT_EQ(fru.decoded.board.product_name.text, "Board X");
    EXPECT_EQ(fru.decoded.product.asset_tag.text, "Asset-7");
    EXPECT_EQ(t.asked.at(0), (Request{0x0A, 0x10, {0x00}}));
    EXPECT_EQ(t.asked.at(1), (Request{0x0A, 0x11, {0x00, 0x00, 0x00, 32}}));
    EXPECT_EQ(t.asked.size(), 1 + (bmc.image.size() + 31) / 32);
}

TEST(ReadFru, AsksTheGivenDevice)
{
    ScriptedTransport t;
    t.answer = FruBmc{sample_image()};
    read_fru(t, 3);
    for (const Request &rq : t.asked) EXPECT_EQ(rq.data.at(0), 3);
}

TEST(ReadFru, CannotReturnShrinksTheChunk)
{
    ScriptedTransport t;
    FruBmc bmc{sample_image()};
    bmc.max_count = 10;
    t.answer = bmc;
    const FruDevice fru = read_fru(t, 0);
    EXPECT_EQ(fru.image, bmc.image);
    EXPECT_FALSE(fru.decoded.damaged());
    EXPECT_EQ(t.asked.at(1).data.at(3), 32);
    EXPECT_EQ(t.asked.at(2).data.at(3), 16);
    EXPECT_EQ(t.asked.at(3).data.at(3), 8);
    EXPECT_EQ(t.asked.at(4).data.at(3), 8);
}

TEST(ReadFru, WordAccessCountsInWords)
{
    ScriptedTransport t;
    FruBmc bmc{sample_image()};
    bmc.words = true;
    t.answer = bmc;
    const FruDevice fru = read_fru(t, 0);
    EXPECT_TRUE(fru.access_by_words);
    EXPECT_EQ(fru.image, bmc.image);
    EXPECT_EQ(t.asked.at(1).data, (Bytes{0, 0, 0, 16}));
    EXPECT_EQ(t.asked.at(2).data, (Bytes{0, 16, 0, 16}));
}

TEST(ReadFru, AShortReadIsContinuedWhereItStopped)
{
    FruBmc bmc{sample_image()};
    bool cut = false;
    ScriptedTransport t;
    t.answer = [&](const Request &rq) -> Reply {
        Reply r = bmc(rq);
        if (rq.cmd == 0x11 && !cut) {
            cut = true;
            r.data.resize(1 + 5);
            r.data[0] = 5;
        }
        return r;
    };
    const FruDevice fru = read_fru(t, 0);
    EXPECT_EQ(fru.image, bmc.image);
    EXPECT_EQ(t.asked.at(2).data, (Bytes{0, 5, 0, 32}));
}

TEST(ReadFru, ADamagedAreaIsReportedNotThrown)
{
    ScriptedTransport t;
    FruBmc bmc{sample_image()};
    bmc.image[bmc.image.size() - 1] ^= 0x01;  // the product area's checksum
    t.answer = bmc;
    const FruDevice fru = read_fru(t, 0);
    ASSERT_TRUE(fru.decoded.damaged());
    EXPECT_EQ(fru.decoded.damage[0].area, FruAreaKind::product);
    EXPECT_EQ(fru.decoded.damage[0].problem, FruProblem::bad_checksum);
    EXPECT_EQ(fru.decoded.board.manufacturer.text, "Acme");
}

TEST(ReadFru, AnEmptyDeviceGivesATruncatedHeader)
{
    ScriptedTransport t;
    t.queue(0x00, {0x00, 0x00, 0x00});
    const FruDevice fru = read_fru(t, 0);
    EXPECT_EQ(fru.area_size, 0);
    ASSERT_TRUE(fru.decoded.damaged());
    EXPECT_EQ(fru.decoded.damage[0].problem, FruProblem::truncated);
    EXPECT_EQ(t.asked.size(), 1u);
}

TEST(ReadFru, ARefusedAreaInfoIsACompletionCodeError)
{
    ScriptedTransport t;
    t.queue(0xCB);
    try {
        read_fru(t, 9);
        FAIL();
    } catch (const CommandError &e) {
        EXPECT_EQ(e.kind, CommandError::Kind::completion_code);
        EXPECT_EQ(e.step, "Get FRU Inventory Area Info");
        EXPECT_EQ(e.completion_code, 0xCB);
    }
}

TEST(ReadFru, AShortAreaInfoIsMalformed)
{
    ScriptedTransport t;
    t.queue(0x00, {0x10});
    try {
        read_fru(t, 0);
        FAIL();
    } catch (const CommandError &e) {
        EXPECT_EQ(e.kind, CommandError::Kind::malformed);
    }
}

TEST(ReadFru, CannotReturnEvenOneByteGivesUp)
{
    ScriptedTransport t;
    t.answer = [](const Request &rq) -> Reply {
        if (rq.cmd == 0x10) return {0, 0, {0x40, 0x00, 0x00}};
        return {0, 0xCA, {}};
    };
    try {
        read_fru(t, 0);
        FAIL();
    } catch (const CommandError &e) {
        EXPECT_EQ(e.kind, CommandError::Kind::completion_code);
        EXPECT_EQ(e.completion_code, 0xCA);
    }
    EXPECT_EQ(t.asked.size(), 1u + 6u);  // 32, 16, 8, 4, 2, 1
}

TEST(ReadFru, MoreThanAskedIsMalformed)
{
    ScriptedTransport t;
    t.queue(0x00, {0x40, 0x00, 0x00});
    t.queue(0x00, Bytes(1 + 33, 0x00));
    t.replies.back().data[0] = 33;
    EXPECT_THROW(read_fru(t, 0), CommandError);
}

TEST(ReadFru, ZeroBytesReturnedIsMalformed)
{
    ScriptedTransport t;
    t.queue(0x00, {0x40, 0x00, 0x00});
    t.queue(0x00, {0x00});
    try {
        read_fru(t, 0);
        FAIL();
    } catch (const CommandError &e) {
        EXPECT_EQ(e.kind, CommandError::Kind::malformed);
    }
}

TEST(ReadFru, ACountThatDisagreesWithTheDataIsMalformed)
{
    ScriptedTransport t;
    t.queue(0x00, {0x40, 0x00, 0x00});
    t.queue(0x00, {0x04, 0x01, 0x02});
    EXPECT_THROW(read_fru(t, 0), CommandError);
}

TEST(ReadFru, BusyIsRetriedAFewTimes)
{
    ScriptedTransport t;
    FruBmc bmc{sample_image()};
    int busy = 2;
    t.answer = [&](const Request &rq) -> Reply {
        if (rq.cmd == 0x11 && busy > 0) return --busy, Reply{0, 0x81, {}};
        return bmc(rq);
    };
    EXPECT_EQ(read_fru(t, 0).image, bmc.image);

    ScriptedTransport always;
    always.answer = [&](const Request &rq) -> Reply {
        if (rq.cmd == 0x11) return {0, 0x81, {}};
        return bmc(rq);
    };
    EXPECT_THROW(read_fru(always, 0), CommandError);
}

TEST(ReadFru, ALostExchangeIsAnExchangeError)
{
    ScriptedTransport t;
    t.queue(0x00, {0x40, 0x00, 0x00});
    try {
        read_fru(t, 0);
        FAIL();
    } catch (const CommandError &e) {
        EXPECT_EQ(e.kind, CommandError::Kind::exchange);
        EXPECT_EQ(e.step, "Read FRU Data");
    }
}

}  // namespace
}  // namespace rmcpp::commands
