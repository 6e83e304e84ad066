#include "sdr_repository.h"

#include <gtest/gtest.h>

#include "sdr_testkit.h"

using namespace rmcpp::commands;
using rmcpp::commands::testkit::FakeSdrBmc;
using rmcpp::commands::testkit::ScriptedTransport;

namespace {

TEST(GetSdrRepositoryInfo, DecodesTheFourteenBytes)
{
    const Bytes data{0x51, 0x03, 0x00, 0x00, 0x10, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 0x22};
    SdrRepositoryInfo info;
    ASSERT_TRUE(decode_get_sdr_repository_info(data, info));
    EXPECT_EQ(info.version, 0x51);
    EXPECT_EQ(info.record_count, 3);
    EXPECT_EQ(info.free_space, 0x1000);
    EXPECT_EQ(info.last_addition, 0x04030201u);
    EXPECT_EQ(info.last_erase, 0x08070605u);
    EXPECT_EQ(info.operation_support, 0x22);
    EXPECT_EQ(encode_get_sdr_repository_info(info), data);
}

TEST(GetSdrRepositoryInfo, RefusesOtherLengths)
{
    SdrRepositoryInfo info;
    EXPECT_FALSE(decode_get_sdr_repository_info(Bytes(13, 0), info));
    EXPECT_FALSE(decode_get_sdr_repository_info(Bytes(15, 0), info));
}

TEST(ReserveSdrRepository, TwoBytesLeastSignificantFirst)
{
    uint16_t r = 0;
    ASSERT_TRUE(decode_reserve_sdr_repository({0x34, 0x12}, r));
    EXPECT_EQ(r, 0x1234);
    EXPECT_FALSE(decode_reserve_sdr_repository({0x34}, r));
    EXPECT_FALSE(decode_reserve_sdr_repository({0x34, 0x12, 0x00}, r));
    EXPECT_EQ(encode_reserve_sdr_repository(0x1234), (Bytes{0x34, 0x12}));
}

TEST(GetSdr, RequestFieldsInOrder)
{
    const GetSdrRequest rq{0x0102, 0x0304, 5, 16};
    EXPECT_EQ(build_get_sdr(rq), (Bytes{0x02, 0x01, 0x04, 0x03, 0x05, 0x10}));
    GetSdrRequest back;
    ASSERT_TRUE(decode_get_sdr_request(build_get_sdr(rq), back));
    EXPECT_EQ(back, rq);
    EXPECT_FALSE(decode_get_sdr_request({0x00, 0x00, 0x00}, back));
}

TEST(GetSdr, ResponseNextIdThenRecordBytes)
{
    GetSdrResponse r;
    ASSERT_TRUE(decode_get_sdr({0x07, 0x00, 0xAA, 0xBB}, r));
    EXPECT_EQ(r.next_record_id, 7);
    EXPECT_EQ(r.data, (Bytes{0xAA, 0xBB}));
    EXPECT_FALSE(decode_get_sdr({0x07}, r));
    const uint8_t bytes[] = {0xAA, 0xBB};
    EXPECT_EQ(encode_get_sdr(7, bytes, 2), (Bytes{0x07, 0x00, 0xAA, 0xBB}));
}

FakeSdrBmc three_records()
{
    FakeSdrBmc bmc;
    bmc.records.push_back(encode_sdr_full_sensor(testkit::full_sensor(0x0001, 0x10, "CPU Temp")));
    bmc.records.push_back(encode_sdr_compact_sensor(testkit::compact_sensor(0x0002, 0x20, "PSU Status")));
    bmc.records.push_back(testkit::event_only_record(0x0005, 0x30, "Watchdog"));
    return bmc;
}

TEST(ReadSdrRepository, ReadsEveryRecordHeaderFirstThenPieces)
{
    FakeSdrBmc bmc = three_records();
    ScriptedTransport t;
    bmc.attach(t);
    const auto records = read_sdr_repository(t);
    EXPECT_EQ(records, bmc.records);
    EXPECT_EQ(bmc.reservations, 1);
    ASSERT_GE(bmc.gets.size(), 2u);
    EXPECT_EQ(bmc.gets[0], (GetSdrRequest{bmc.reservation, 0x0000, 0, 5}));
    EXPECT_EQ(bmc.gets[1], (GetSdrRequest{bmc.reservation, 0x0000, 5, 16}));
    for (const auto &g : bmc.gets) EXPECT_LE(g.count, 16);
    // The full record (5 + 51 bytes): header, then 16+16+16+3.
    EXPECT_EQ(bmc.gets[4].count, 3);
    EXPECT_EQ(bmc.gets[5], (GetSdrRequest{bmc.reservation, 0x0002, 0, 5}));
}

TEST(ReadSdrRepository, HalvesThePieceWhenTheBmcAnswersCAh)
{
    FakeSdrBmc bmc = three_records();
    bmc.max_read = 6;
    ScriptedTransport t;
    bmc.attach(t);
    EXPECT_EQ(read_sdr_repository(t), bmc.records);
    std::vector<uint8_t> counts;
    for (const auto &g : bmc.gets) counts.push_back(g.count);
    // 16 refused, 8 refused, then 4 from there on.
    ASSERT_GE(counts.size(), 5u);
    EXPECT_EQ(counts[1], 16);
    EXPECT_EQ(counts[2], 8);
    EXPECT_EQ(counts[3], 4);
    for (size_t i = 3; i < counts.size(); ++i) EXPECT_LE(counts[i], 5) << i;
}

TEST(ReadSdrRepository, FailsWhenNotEvenOneByteComesBack)
{
    FakeSdrBmc bmc = three_records();
    bmc.max_read = 0;
    ScriptedTransport t;
    bmc.attach(t);
    try {
        read_sdr_repository(t);
        FAIL() << "no error";
    } catch (const CommandError &e) {
        EXPECT_EQ(e.kind, CommandError::Kind::malformed);  // even the header is refused
        EXPECT_EQ(e.step, "Get SDR");
    }
}

TEST(ReadSdrRepository, ReReservesAndRestartsTheRecordWhenTheReservationIsLost)
{
    FakeSdrBmc bmc = three_records();
    bmc.cancel_after_reads = 3;  // in the middle of the first record's body
    ScriptedTransport t;
    bmc.attach(t);
    EXPECT_EQ(read_sdr_repository(t), bmc.records);
    EXPECT_EQ(bmc.reservations, 2);
    // After the refusal the first record is read again from its header.
    ASSERT_GE(bmc.gets.size(), 5u);
    EXPECT_EQ(bmc.gets[3].reservation, 0x0101);
    EXPECT_EQ(bmc.gets[4], (GetSdrRequest{0x0102, 0x0000, 0, 5}));
}

TEST(ReadSdrRepository, GivesUpAfterTheReservationIsLostTooOften)
{
    FakeSdrBmc bmc = three_records();
    ScriptedTransport t;
    t.answer = [&](const testkit::Request &rq) {
        if (rq.cmd == get_sdr_cmd) return Reply{0, cc_reservation_cancelled, {}};
        return bmc.answer(rq);
    };
    SdrReadLimits limits;
    limits.reservation_retries = 3;
    try {
        read_sdr_repository(t, limits);
        FAIL() << "no error";
    } catch (const CommandError &e) {
        EXPECT_EQ(e.kind, CommandError::Kind::completion_code);
        EXPECT_EQ(e.completion_code, cc_reservation_cancelled);
    }
    EXPECT_EQ(bmc.reservations, 4);
}

TEST(ReadSdrRepository, NextIdThatLoopsIsAnInconsistentRepository)
{
    FakeSdrBmc bmc = three_records();
    bmc.next_override[2] = 0x0001;  // the last record links back to the first
    ScriptedTransport t;
    bmc.attach(t);
    try {
        read_sdr_repository(t);
        FAIL() << "no error";
    } catch (const CommandError &e) {
        EXPECT_EQ(e.kind, CommandError::Kind::malformed);
        EXPECT_NE(std::string(e.what()).find("links back to record 0001h"), std::string::npos) << e.what();
    }
}

TEST(ReadSdrRepository, LongestRecordReadsWhileOffsetsReach)
{
    FakeSdrBmc bmc;
    Bytes record{0x01, 0x00, 0x51, 0xC0, 0xFF};  // an OEM record of 255 bytes after the header
    record.resize(5 + 255, 0xAB);
    bmc.records.push_back(record);
    bmc.max_read = 255;
    ScriptedTransport t;
    bmc.attach(t);
    SdrReadLimits limits;
    limits.piece = 255;  // header, then 255 bytes from offset 5: the last 4 would sit past offset 255
    EXPECT_EQ(read_sdr_repository(t, limits), bmc.records);  // 5 + 255 reaches every byte
    limits.piece = 100;
    EXPECT_EQ(read_sdr_repository(t, limits), bmc.records);
    // One byte at a time the last bytes would need offsets past FFh.
    limits.piece = 1;
    EXPECT_THROW(read_sdr_repository(t, limits), CommandError);
}

TEST(ReadSdrRepository, ShortAnswerIsMalformed)
{
    FakeSdrBmc bmc = three_records();
    ScriptedTransport t;
    t.answer = [&](const testkit::Request &rq) {
        Reply r = bmc.answer(rq);
        if (rq.cmd == get_sdr_cmd && rq.data[4] == 5 && r.data.size() > 3) r.data.resize(r.data.size() - 3);
        return r;
    };
    EXPECT_THROW(read_sdr_repository(t), CommandError);
}

TEST(ReadSdrRepository, OtherCompletionCodesStopWithThatCode)
{
    FakeSdrBmc bmc = three_records();
    ScriptedTransport t;
    t.answer = [&](const testkit::Request &rq) {
        if (rq.cmd == get_sdr_cmd) return Reply{0, 0xC0, {}};
        return bmc.answer(rq);
    };
    try {
        read_sdr_repository(t);
        FAIL() << "no error";
    } catch (const CommandError &e) {
        EXPECT_EQ(e.kind, CommandError::Kind::completion_code);
        EXPECT_EQ(e.completion_code, 0xC0);
        EXPECT_EQ(e.step, "Get SDR");
    }
}

TEST(ReadSdrRepository, EmptyRepositoryNeedsNoReservation)
{
    FakeSdrBmc bmc;
    ScriptedTransport t;
    bmc.attach(t);
    EXPECT_TRUE(read_sdr_repository(t).empty());
    EXPECT_EQ(bmc.reservations, 0);
}

TEST(ReadSdrRepository, RepositoryInfoRefusedStopsThere)
{
    FakeSdrBmc bmc = three_records();
    bmc.info_fails = true;
    ScriptedTransport t;
    bmc.attach(t);
    try {
        read_sdr_repository(t);
        FAIL() << "no error";
    } catch (const CommandError &e) {
        EXPECT_EQ(e.step, "Get SDR Repository Info");
        EXPECT_EQ(e.completion_code, 0xC1);
    }
}

}  // namespace
